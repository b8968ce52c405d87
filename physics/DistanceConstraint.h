#pragma once

#include "OwnConstraint.h"
#include "SeparationBounds.h"

namespace Zento {

// Keeps the distance between an anchor on each body within bounds while both
// turn freely; Bullet has no such joint.
class DistanceConstraint : public OwnConstraint {
public:
    // The anchors in the frames of the bodies' centres of mass.
    DistanceConstraint(btRigidBody& a, btRigidBody& b, const btVector3& anchorInA, const btVector3& anchorInB,
                       const SeparationBounds& bounds);

    void getInfo1(btConstraintInfo1* info) override;
    void getInfo2(btConstraintInfo2* info) override;

    // The distance between the anchors, in the engine's units.
    btScalar distance() const;
    const SeparationBounds& bounds() const { return mBounds; }

private:
    btVector3 color() const override;

    SeparationBounds mBounds;
};

} // namespace Zento
