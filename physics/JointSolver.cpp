#include "JointSolver.h"

namespace Zento {

namespace {

// How closely a row must point where it pointed on the last step to start from its impulse.
constexpr btScalar kSameDirection = 0.9f;

bool sameDirection(const btVector3& a, const btVector3& b)
{
    const btScalar lengths = a.length() * b.length();
    if (lengths <= SIMD_EPSILON)
        return a.length2() <= SIMD_EPSILON && b.length2() <= SIMD_EPSILON;
    return a.dot(b) >= kSameDirection * lengths;
}

// A row that holds: an anchor, a lock or a limit, free to push as hard as
// it must one way at least. A row bounded both ways is a force (a drive's, a
// spring's, a breakable joint's) that its joint sets anew from each step's
// state; it keeps the world's iterations and starts cold.
bool holds(const btSolverConstraint& row)
{
    return row.m_lowerLimit <= -SIMD_INFINITY || row.m_upperLimit >= SIMD_INFINITY;
}

// A row of a soft joint (a spring solved implicitly, as the hand's drag):
// it carries its load from step to step as a joint that holds does, though
// within a force limit.
bool isSoft(const btSolverConstraint& row)
{
    return row.m_cfm > 0;
}

} // namespace

void JointSolver::prepareSolve(int numBodies, int numManifolds)
{
    btSequentialImpulseConstraintSolver::prepareSolve(numBodies, numManifolds);
    mLast.swap(mThis);
    mThis.clear();
}

void JointSolver::convertJoints(btTypedConstraint** constraints, int numConstraints, const btContactSolverInfo& info)
{
    btSequentialImpulseConstraintSolver::convertJoints(constraints, numConstraints, info);
    btConstraintArray& rows = m_tmpSolverNonContactConstraintPool;
    const int jointIterations = kJointIterationFactor * info.m_numIterations;
    // The rows of one joint lie together, in the order that it gives them.
    for (int first = 0; first < rows.size();) {
        const void* joint = rows[first].m_originalContactPoint;
        int end = first;
        while (end < rows.size() && rows[end].m_originalContactPoint == joint)
            ++end;
        const auto last = mLast.find(joint);
        // A joint whose rows changed in number (a limit met or left) starts cold.
        const bool warm = last != mLast.end() && int(last->second.size()) == end - first;
        for (int index = first; index < end; ++index) {
            btSolverConstraint& row = rows[index];
            if (holds(row)) {
                row.m_overrideNumSolverIterations = btMax(row.m_overrideNumSolverIterations, jointIterations);
                m_maxOverrideNumSolverIterations =
                    btMax(m_maxOverrideNumSolverIterations, row.m_overrideNumSolverIterations);
            }
            if (warm && (holds(row) || isSoft(row)))
                warmStart(row, last->second[index - first]);
        }
        first = end;
    }
}

void JointSolver::warmStart(btSolverConstraint& row, const Row& was)
{
    if (!sameDirection(row.m_contactNormal1, was.linear) || !sameDirection(row.m_relpos1CrossNormal, was.angular))
        return;
    const btScalar impulse = btMax(row.m_lowerLimit, btMin(row.m_upperLimit, was.impulse));
    row.m_appliedImpulse = impulse;
    btSolverBody& a = m_tmpSolverBodyPool[row.m_solverBodyIdA];
    btSolverBody& b = m_tmpSolverBodyPool[row.m_solverBodyIdB];
    a.internalApplyImpulse(row.m_contactNormal1 * a.internalGetInvMass(), row.m_angularComponentA, impulse);
    b.internalApplyImpulse(row.m_contactNormal2 * b.internalGetInvMass(), row.m_angularComponentB, impulse);
}

btScalar JointSolver::solveGroupCacheFriendlyFinish(btCollisionObject** bodies, int numBodies,
                                                    const btContactSolverInfo& info)
{
    for (int index = 0; index < m_tmpSolverNonContactConstraintPool.size(); ++index) {
        const btSolverConstraint& row = m_tmpSolverNonContactConstraintPool[index];
        mThis[row.m_originalContactPoint].push_back(
            {row.m_contactNormal1, row.m_relpos1CrossNormal, row.m_appliedImpulse});
    }
    return btSequentialImpulseConstraintSolver::solveGroupCacheFriendlyFinish(bodies, numBodies, info);
}

} // namespace Zento
