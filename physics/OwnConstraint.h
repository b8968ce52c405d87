#pragma once

#include <BulletDynamics/ConstraintSolver/btTypedConstraint.h>

class btIDebugDraw;

namespace Zento {

// A joint of a type of our own, which Bullet's debug drawing passes over: it
// draws itself, as the line between its two anchors, in the engine's units.
class OwnConstraint : public btTypedConstraint {
public:
    // Anchors in the frames of the bodies' centres of mass, in metres.
    OwnConstraint(btRigidBody& a, btRigidBody& b, const btVector3& anchorInA, const btVector3& anchorInB)
        : btTypedConstraint(MAX_CONSTRAINT_TYPE, a, b), mAnchorInA(anchorInA), mAnchorInB(anchorInB)
    {
    }

    // Bullet's generic parameters do not apply to our joints.
    void setParam(int, btScalar, int) override {}
    btScalar getParam(int, int) const override { return 0; }

    // The line between the anchors, in the joint's colour.
    void draw(btIDebugDraw& drawer) const;

    // The anchors in world space, in metres.
    btVector3 anchorA() const { return m_rbA.getCenterOfMassTransform() * mAnchorInA; }
    btVector3 anchorB() const { return m_rbB.getCenterOfMassTransform() * mAnchorInB; }

protected:
    virtual btVector3 color() const = 0;

    btVector3 mAnchorInA;
    btVector3 mAnchorInB;
};

} // namespace Zento
