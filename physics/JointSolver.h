#pragma once

#include <BulletDynamics/ConstraintSolver/btSequentialImpulseConstraintSolver.h>

#include <unordered_map>
#include <vector>

namespace Zento {

// Bullet's sequential impulse solver with two changes for joints, which a
// ragdoll's bodies of very different masses need: the rows that hold
// (anchors, locks, limits; not the forces of drives and springs) iterate
// twice as often as contacts, and they and the rows of soft joints
// start from the impulse they ended the last step with, as Bullet's
// contacts do. A joint under a steady load (a limb pressed against the
// ground, a body hanging from a drag) then holds within a step instead of
// sagging until the iterations catch up.
class JointSolver : public btSequentialImpulseConstraintSolver {
public:
    // How many times as often as contacts the rows that hold iterate, at the least.
    static constexpr int kJointIterationFactor = 2;

    void prepareSolve(int numBodies, int numManifolds) override;

protected:
    void convertJoints(btTypedConstraint** constraints, int numConstraints, const btContactSolverInfo& info) override;
    btScalar solveGroupCacheFriendlyFinish(btCollisionObject** bodies, int numBodies,
                                           const btContactSolverInfo& info) override;

private:
    // A row's impulse and the direction it acted in, to tell whether the
    // next step's row at the same place is the same row.
    struct Row {
        btVector3 linear;
        btVector3 angular;
        btScalar impulse;
    };
    // The rows of each joint, by the joint they belong to.
    using Rows = std::unordered_map<const void*, std::vector<Row>>;

    void warmStart(btSolverConstraint& row, const Row& was);

    // The rows of the last step, and those of this one as its islands finish.
    Rows mLast;
    Rows mThis;
};

} // namespace Zento
