#pragma once

#include <BulletDynamics/ConstraintSolver/btTypedConstraint.h>

namespace Zento {

// A spring and damper from an anchor on a body to an anchor on a handle (the
// kinematic body that follows the cursor), with a force limit on each world
// axis. It is solved implicitly, as a soft joint, so that a stiff spring
// stays stable at any step; the damper acts on the anchors' relative
// velocity, so that a body moving with the cursor is not held back.
class DragSpring : public btTypedConstraint {
public:
    // Anchors in the frames of the bodies' centres of mass, in metres;
    // stiffness in newtons per metre, damping in newton seconds per metre,
    // the force limit in newtons.
    DragSpring(btRigidBody& handle, btRigidBody& body, const btVector3& anchorInHandle, const btVector3& anchorInBody,
               btScalar stiffness, btScalar damping, btScalar forceLimit);

    void getInfo1(btConstraintInfo1* info) override;
    void getInfo2(btConstraintInfo2* info) override;
    // The spring is fixed at construction; Bullet's generic parameters do not apply.
    void setParam(int, btScalar, int) override {}
    btScalar getParam(int, int) const override { return 0; }

private:
    btVector3 mAnchorInHandle;
    btVector3 mAnchorInBody;
    btScalar mStiffness;
    btScalar mDamping;
    btScalar mForceLimit;
};

} // namespace Zento
