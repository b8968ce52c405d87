#pragma once

#include "OwnConstraint.h"

namespace Zento {

// A spring and damper from an anchor on a body to an anchor on a handle (the
// kinematic body that follows the cursor), with a force limit on each world
// axis. It is solved implicitly, as a soft joint, so that a stiff spring
// stays stable at any step; the damper acts on the anchors' relative
// velocity, so that a body moving with the cursor is not held back.
class DragSpring : public OwnConstraint {
public:
    // Anchors in the frames of the bodies' centres of mass, in metres;
    // stiffness in newtons per metre, damping in newton seconds per metre,
    // the force limit in newtons.
    DragSpring(btRigidBody& handle, btRigidBody& body, const btVector3& anchorInHandle, const btVector3& anchorInBody,
               btScalar stiffness, btScalar damping, btScalar forceLimit);

    void getInfo1(btConstraintInfo1* info) override;
    void getInfo2(btConstraintInfo2* info) override;

private:
    btVector3 color() const override;

    btScalar mStiffness;
    btScalar mDamping;
    btScalar mForceLimit;
};

} // namespace Zento
