#include "SeparationBounds.h"

#include <BulletDynamics/Dynamics/btRigidBody.h>

#include <algorithm>

namespace Zento {

namespace {

// The target speed of a spring's row, beyond any the bodies reach: the row's
// force bound then decides the impulse alone. Finite, so that a row between
// two fixed bodies, of zero effective mass, stays a number.
constexpr btScalar kUnreachableSpeed = 1e6f;

} // namespace

int SeparationBounds::rowCount(btScalar separation) const
{
    // A spring only acts once its bound is passed: approaching it is free.
    const btScalar reach = spring ? 0 : tolerance;
    return int(minimum && separation < *minimum + reach) + int(maximum && separation > *maximum - reach);
}

void SeparationBounds::fillRows(btTypedConstraint::btConstraintInfo2& info, int row, const Motion& motion,
                                const btRigidBody& a, const btRigidBody& b) const
{
    const btVector3 turnA = motion.armA.cross(motion.direction);
    const btVector3 turnB = motion.armB.cross(motion.direction);
    const btScalar inverseMass = a.getInvMass() + b.getInvMass() + turnA.dot(a.getInvInertiaTensorWorld() * turnA) +
                                 turnB.dot(b.getInvInertiaTensorWorld() * turnB);
    const btScalar timeStep = 1 / info.fps;
    // How fast the separation grows.
    const btScalar speed = motion.direction.dot(b.getLinearVelocity() + b.getAngularVelocity().cross(motion.armB) -
                                                a.getLinearVelocity() - a.getAngularVelocity().cross(motion.armA));

    // One row along the direction. Its velocity is minus the speed at which
    // the separation grows: a positive impulse pulls the anchors together.
    auto addRow = [&](btScalar bound, bool pulls) {
        const int at = row * info.rowskip;
        for (int axis = 0; axis < 3; ++axis) {
            info.m_J1linearAxis[at + axis] = motion.direction[axis];
            info.m_J1angularAxis[at + axis] = turnA[axis];
            info.m_J2linearAxis[at + axis] = -motion.direction[axis];
            info.m_J2angularAxis[at + axis] = -turnB[axis];
        }
        // How far beyond the bound, counted positive either way.
        const btScalar beyond = pulls ? motion.separation - bound : bound - motion.separation;
        const btScalar sign = pulls ? 1 : -1;
        if (spring && inverseMass > SIMD_EPSILON) {
            // An explicit spring, held to what one step can integrate stably.
            const btScalar mass = 1 / inverseMass;
            const btScalar stiffness = std::min(spring->stiffness, mass / (16 * timeStep * timeStep));
            const btScalar damping = std::min(spring->damping, mass / timeStep);
            const btScalar force = std::max(btScalar(0), stiffness * beyond + damping * sign * speed);
            info.m_constraintError[at] = sign * kUnreachableSpeed;
            info.m_lowerLimit[at] = pulls ? 0 : -force * timeStep;
            info.m_upperLimit[at] = pulls ? force * timeStep : 0;
        } else {
            // Once passed, the error is taken out as a joint's is; before,
            // the anchors may close the whole gap in this step.
            const btScalar erp = beyond > 0 ? info.erp : 1;
            info.m_constraintError[at] = sign * info.fps * erp * beyond;
            info.m_lowerLimit[at] = pulls ? 0 : -SIMD_INFINITY;
            info.m_upperLimit[at] = pulls ? SIMD_INFINITY : 0;
        }
        ++row;
    };
    const btScalar reach = spring ? 0 : tolerance;
    if (minimum && motion.separation < *minimum + reach)
        addRow(*minimum, false);
    if (maximum && motion.separation > *maximum - reach)
        addRow(*maximum, true);
}

} // namespace Zento
