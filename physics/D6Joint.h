#pragma once

#include "SeparationBounds.h"

#include <BulletDynamics/ConstraintSolver/btGeneric6DofSpring2Constraint.h>

#include <array>
#include <optional>

namespace Zento {

// Bullet's six degrees of freedom joint, whose linear limits can also be
// soft: a limit with a spring pulls back once passed, where Bullet's own
// limits only stop.
class D6Joint : public btGeneric6DofSpring2Constraint {
public:
    D6Joint(btRigidBody& a, btRigidBody& b, const btTransform& frameInA, const btTransform& frameInB);

    // Frees the linear axis (0 to 2) of Bullet's own limit and holds it within
    // the bounds instead, measured along the axis of the first body's frame.
    void setLinearBounds(int axis, const SeparationBounds& bounds);

    void getInfo1(btConstraintInfo1* info) override;
    void getInfo2(btConstraintInfo2* info) override;

private:
    std::array<std::optional<SeparationBounds>, 3> mBounds;
    int mJointRows = 0;
};

} // namespace Zento
