#include "DistanceConstraint.h"

#include <btBulletDynamicsCommon.h>

namespace Zento {

DistanceConstraint::DistanceConstraint(btRigidBody& a, btRigidBody& b, const btVector3& anchorInA,
                                       const btVector3& anchorInB, const SeparationBounds& bounds)
    : OwnConstraint(a, b, anchorInA, anchorInB), mBounds(bounds)
{
}

btScalar DistanceConstraint::distance() const
{
    return (anchorB() - anchorA()).length();
}

void DistanceConstraint::getInfo1(btConstraintInfo1* info)
{
    info->m_numConstraintRows = mBounds.rowCount(distance());
    info->nub = 6 - info->m_numConstraintRows;
}

void DistanceConstraint::getInfo2(btConstraintInfo2* info)
{
    const btVector3 a = anchorA();
    const btVector3 b = anchorB();
    SeparationBounds::Motion motion;
    motion.separation = (b - a).length();
    // Anchors on one spot have no direction between them; any will do to push them apart.
    motion.direction = motion.separation > SIMD_EPSILON ? (b - a) / motion.separation
                                                        : m_rbA.getCenterOfMassTransform().getBasis().getColumn(0);
    motion.armA = b - m_rbA.getCenterOfMassPosition();
    motion.armB = b - m_rbB.getCenterOfMassPosition();
    mBounds.fillRows(*info, 0, motion, m_rbA, m_rbB);
}

btVector3 DistanceConstraint::color() const
{
    return btVector3(1, 1, 0);
}

} // namespace Zento
