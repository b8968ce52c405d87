#pragma once

#include "SeparationBounds.h"

#include <BulletDynamics/ConstraintSolver/btTypedConstraint.h>

class btIDebugDraw;

namespace Zento {

// Keeps the distance between an anchor on each body within bounds while both
// turn freely; Bullet has no such joint.
class DistanceConstraint : public btTypedConstraint {
public:
    // The anchors in the frames of the bodies' centres of mass.
    DistanceConstraint(btRigidBody& a, btRigidBody& b, const btVector3& anchorInA, const btVector3& anchorInB,
                       const SeparationBounds& bounds);

    void getInfo1(btConstraintInfo1* info) override;
    void getInfo2(btConstraintInfo2* info) override;
    // The bounds are fixed at construction; Bullet's generic parameters do not apply.
    void setParam(int, btScalar, int) override {}
    btScalar getParam(int, int) const override { return 0; }

    // The distance between the anchors, in the engine's units.
    btScalar distance() const;
    const SeparationBounds& bounds() const { return mBounds; }
    // The line between the anchors, in the engine's units.
    void draw(btIDebugDraw& drawer) const;

private:
    btVector3 anchorA() const;
    btVector3 anchorB() const;

    btVector3 mAnchorInA;
    btVector3 mAnchorInB;
    SeparationBounds mBounds;
};

} // namespace Zento
