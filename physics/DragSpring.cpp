#include "DragSpring.h"

#include <BulletDynamics/Dynamics/btRigidBody.h>

namespace Zento {

namespace {

// One row along each world axis.
constexpr int kRows = 3;
// The most constraint force mixing of a row, for Bullet's iterations to converge.
constexpr btScalar kMostMixing = 0.5f;

} // namespace

DragSpring::DragSpring(btRigidBody& handle, btRigidBody& body, const btVector3& anchorInHandle,
                       const btVector3& anchorInBody, btScalar stiffness, btScalar damping, btScalar forceLimit)
    : OwnConstraint(handle, body, anchorInHandle, anchorInBody), mStiffness(stiffness), mDamping(damping),
      mForceLimit(forceLimit)
{
}

// The hand's pull in the colour of a selection, apart from the joints.
btVector3 DragSpring::color() const
{
    return btVector3(1, 0.5f, 0);
}

void DragSpring::getInfo1(btConstraintInfo1* info)
{
    info->m_numConstraintRows = kRows;
    info->nub = 6 - kRows;
}

void DragSpring::getInfo2(btConstraintInfo2* info)
{
    const btVector3 armA = m_rbA.getCenterOfMassTransform().getBasis() * mAnchorInA;
    const btVector3 armB = m_rbB.getCenterOfMassTransform().getBasis() * mAnchorInB;
    const btVector3 offset = m_rbB.getCenterOfMassPosition() + armB - m_rbA.getCenterOfMassPosition() - armA;
    // The implicit spring and damper over one step h: the anchors close the
    // fraction erp of their offset, and an impulse P gives way by the
    // velocity P times compliance.
    const btScalar step = 1 / info->fps;
    const btScalar resistance = step * mStiffness + mDamping;
    const btScalar erp = step * mStiffness / resistance;
    const btScalar compliance = 1 / (step * resistance);
    for (int axis = 0; axis < kRows; ++axis) {
        btVector3 direction(0, 0, 0);
        direction[axis] = 1;
        const btVector3 turnA = armA.cross(direction);
        const btVector3 turnB = armB.cross(direction);
        const int at = axis * info->rowskip;
        for (int i = 0; i < 3; ++i) {
            info->m_J1linearAxis[at + i] = direction[i];
            info->m_J1angularAxis[at + i] = turnA[i];
            info->m_J2linearAxis[at + i] = -direction[i];
            info->m_J2angularAxis[at + i] = -turnB[i];
        }
        info->m_constraintError[at] = info->fps * erp * offset[axis];
        // Bullet's constraint force mixing is relative to the row's effective
        // mass: the compliance is divided by its inverse.
        const btScalar inverseMass = m_rbA.getInvMass() + m_rbB.getInvMass() +
                                     turnA.dot(m_rbA.getInvInertiaTensorWorld() * turnA) +
                                     turnB.dot(m_rbB.getInvInertiaTensorWorld() * turnB);
        // Bullet's iteration only converges below 1: a spring softer than
        // that for the body is held to it.
        info->cfm[at] = inverseMass > SIMD_EPSILON ? btMin(compliance / inverseMass, kMostMixing) : 0;
        info->m_lowerLimit[at] = -mForceLimit * step;
        info->m_upperLimit[at] = mForceLimit * step;
    }
}

} // namespace Zento
