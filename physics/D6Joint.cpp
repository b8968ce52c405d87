#include "D6Joint.h"

#include <BulletDynamics/Dynamics/btRigidBody.h>

namespace Zento {

// The twist about x is the innermost of the Euler angles, so that it is never
// the middle one, which Bullet holds within a quarter turn.
D6Joint::D6Joint(btRigidBody& a, btRigidBody& b, const btTransform& frameInA, const btTransform& frameInB)
    : btGeneric6DofSpring2Constraint(a, b, frameInA, frameInB, RO_XYZ)
{
}

void D6Joint::setLinearBounds(int axis, const SeparationBounds& bounds)
{
    setLimit(axis, 1, -1);
    mBounds[axis] = bounds;
}

void D6Joint::getInfo1(btConstraintInfo1* info)
{
    btGeneric6DofSpring2Constraint::getInfo1(info);
    mJointRows = info->m_numConstraintRows;
    for (int axis = 0; axis < 3; ++axis)
        if (mBounds[axis])
            info->m_numConstraintRows += mBounds[axis]->rowCount(getRelativePivotPosition(axis));
}

void D6Joint::getInfo2(btConstraintInfo2* info)
{
    btGeneric6DofSpring2Constraint::getInfo2(info);
    const btTransform& frameA = getCalculatedTransformA();
    const btVector3& anchorB = getCalculatedTransformB().getOrigin();
    int row = mJointRows;
    for (int axis = 0; axis < 3; ++axis) {
        if (!mBounds[axis])
            continue;
        SeparationBounds::Motion motion;
        motion.separation = getRelativePivotPosition(axis);
        motion.direction = frameA.getBasis().getColumn(axis);
        motion.armA = anchorB - getRigidBodyA().getCenterOfMassPosition();
        motion.armB = anchorB - getRigidBodyB().getCenterOfMassPosition();
        mBounds[axis]->fillRows(*info, row, motion, getRigidBodyA(), getRigidBodyB());
        row += mBounds[axis]->rowCount(motion.separation);
    }
}

} // namespace Zento
