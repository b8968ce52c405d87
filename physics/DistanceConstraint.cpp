#include "DistanceConstraint.h"

#include <LinearMath/btIDebugDraw.h>
#include <btBulletDynamicsCommon.h>

namespace Zento {

// A type of our own, which Bullet's debug drawing passes over.
DistanceConstraint::DistanceConstraint(btRigidBody& a, btRigidBody& b, const btVector3& anchorInA,
                                       const btVector3& anchorInB, const SeparationBounds& bounds)
    : btTypedConstraint(MAX_CONSTRAINT_TYPE, a, b), mAnchorInA(anchorInA), mAnchorInB(anchorInB), mBounds(bounds)
{
}

btVector3 DistanceConstraint::anchorA() const
{
    return m_rbA.getCenterOfMassTransform() * mAnchorInA;
}

btVector3 DistanceConstraint::anchorB() const
{
    return m_rbB.getCenterOfMassTransform() * mAnchorInB;
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

void DistanceConstraint::draw(btIDebugDraw& drawer) const
{
    drawer.drawLine(anchorA(), anchorB(), btVector3(1, 1, 0));
}

} // namespace Zento
