#include "JointMeasure.h"

#include "DistanceConstraint.h"

#include <BulletDynamics/ConstraintSolver/btConeTwistConstraint.h>
#include <BulletDynamics/ConstraintSolver/btGeneric6DofSpring2Constraint.h>
#include <BulletDynamics/ConstraintSolver/btHingeConstraint.h>
#include <BulletDynamics/ConstraintSolver/btPoint2PointConstraint.h>
#include <BulletDynamics/ConstraintSolver/btSliderConstraint.h>
#include <BulletDynamics/Dynamics/btRigidBody.h>

#include <algorithm>
#include <cmath>

namespace Zento::JointMeasure {

namespace {

// How far a value lies outside lower..upper; 0 inside.
double outside(double value, double lower, double upper)
{
    return std::max({lower - value, value - upper, 0.0});
}

// The joint's frame on a body, in the world.
btTransform worldFrame(const btRigidBody& body, const btTransform& frame)
{
    return body.getCenterOfMassTransform() * frame;
}

// The angle of the turn between two rotations, radians, 0 to pi.
double turnBetween(const btQuaternion& a, const btQuaternion& b)
{
    const double dot = std::min(1.0, std::abs(double(a.normalized().dot(b.normalized()))));
    return 2.0 * std::acos(dot);
}

Error d6(btGeneric6DofSpring2Constraint& joint)
{
    joint.calculateTransforms();
    Error error;
    for (int axis = 0; axis < 3; ++axis) {
        const btRotationalLimitMotor2& limit = *joint.getRotationalLimitMotor(axis);
        if (limit.m_loLimit > limit.m_hiLimit)
            continue;
        // Bullet wraps the angle to the side of the range it is nearest, as its solver does.
        const btScalar angle = btAdjustAngleToLimits(joint.getAngle(axis), limit.m_loLimit, limit.m_hiLimit);
        error.angle = std::max(error.angle, outside(angle, limit.m_loLimit, limit.m_hiLimit));
    }
    // Bounds with a spring give way by design: Bullet sees their axes as free.
    const btTranslationalLimitMotor2& linear = *joint.getTranslationalLimitMotor();
    double squared = 0.0;
    for (int axis = 0; axis < 3; ++axis) {
        if (linear.m_lowerLimit[axis] > linear.m_upperLimit[axis])
            continue;
        const double beyond =
            outside(joint.getRelativePivotPosition(axis), linear.m_lowerLimit[axis], linear.m_upperLimit[axis]);
        squared += beyond * beyond;
    }
    error.separation = std::sqrt(squared);
    return error;
}

Error hinge(btHingeConstraint& joint)
{
    const btTransform a = worldFrame(joint.getRigidBodyA(), joint.getAFrame());
    const btTransform b = worldFrame(joint.getRigidBodyB(), joint.getBFrame());
    Error error;
    error.separation = (b.getOrigin() - a.getOrigin()).length();
    // The hinge's axis, z of both frames, is held in line.
    const double aligned = std::clamp(double(a.getBasis().getColumn(2).dot(b.getBasis().getColumn(2))), -1.0, 1.0);
    error.angle = std::acos(aligned);
    if (joint.hasLimit()) {
        double width = joint.getUpperLimit() - joint.getLowerLimit();
        if (width < 0.0)
            width += 2.0 * M_PI;
        const double centre = joint.getLowerLimit() + 0.5 * width;
        const double fromCentre = std::abs(double(btNormalizeAngle(btScalar(joint.getHingeAngle() - centre))));
        error.angle = std::max(error.angle, fromCentre - 0.5 * width);
    }
    return error;
}

// The swing limit of a cone in the direction of the swing's axis (y and z
// of the joint's frame): the radius of Bullet's ellipse of the two spans.
double coneLimit(btConeTwistConstraint& joint, const btVector3& swingAxis)
{
    // Spans under Bullet's threshold lock their turn.
    const auto span = [&](btScalar value) {
        return value >= joint.getFixThresh() ? double(value) : 1e-9;
    };
    const double aboutZ = span(joint.getSwingSpan1()), aboutY = span(joint.getSwingSpan2());
    const double x = swingAxis.y(), y = -swingAxis.z();
    if (std::abs(x) <= SIMD_EPSILON)
        return aboutZ;
    const double slope = y * y / (x * x);
    return std::sqrt((1.0 + slope) / (1.0 / (aboutY * aboutY) + slope / (aboutZ * aboutZ)));
}

Error coneTwist(btConeTwistConstraint& joint)
{
    const btTransform a = worldFrame(joint.getRigidBodyA(), joint.getAFrame());
    const btTransform b = worldFrame(joint.getRigidBodyB(), joint.getBFrame());
    Error error;
    error.separation = (b.getOrigin() - a.getOrigin()).length();
    // Split into swing and twist as Bullet does, from the second frame's side.
    const btQuaternion relative = b.getRotation().inverse() * a.getRotation();
    const btVector3 twistAxis(1, 0, 0);
    const btVector3 swung = quatRotate(relative, twistAxis).normalized();
    const btQuaternion swing = shortestArcQuat(twistAxis, swung).normalized();
    const double swingAngle = swing.getAngle();
    if (swingAngle > SIMD_EPSILON) {
        const btVector3 axis = btVector3(swing.x(), swing.y(), swing.z()).normalized();
        error.angle = std::max(0.0, swingAngle - coneLimit(joint, axis));
    }
    if (joint.getTwistSpan() >= 0.0f) {
        const btQuaternion twist = (swing.inverse() * relative).normalized();
        const double twistAngle = turnBetween(twist, btQuaternion::getIdentity());
        error.angle = std::max(error.angle, twistAngle - double(joint.getTwistSpan()));
    }
    return error;
}

// A slider, as the joint builder makes it, holds every turn and moves along
// the x axis of its first frame within its linear limits.
Error slider(btSliderConstraint& joint)
{
    const btTransform a = worldFrame(joint.getRigidBodyA(), joint.getFrameOffsetA());
    const btTransform b = worldFrame(joint.getRigidBodyB(), joint.getFrameOffsetB());
    const btVector3 delta = b.getOrigin() - a.getOrigin();
    const btVector3 axis = a.getBasis().getColumn(0);
    const double along = delta.dot(axis);
    const double across = (delta - axis * btScalar(along)).length();
    const double lower = joint.getLowerLinLimit(), upper = joint.getUpperLinLimit();
    const double beyond = lower <= upper ? outside(along, lower, upper) : 0.0;
    Error error;
    error.separation = std::hypot(across, beyond);
    error.angle = turnBetween(a.getRotation(), b.getRotation());
    return error;
}

Error ball(btPoint2PointConstraint& joint)
{
    const btVector3 a = joint.getRigidBodyA().getCenterOfMassTransform() * joint.getPivotInA();
    const btVector3 b = joint.getRigidBodyB().getCenterOfMassTransform() * joint.getPivotInB();
    Error error;
    error.separation = (b - a).length();
    return error;
}

Error distance(const DistanceConstraint& joint)
{
    const SeparationBounds& bounds = joint.bounds();
    Error error;
    if (bounds.spring)
        return error;
    const double apart = joint.distance();
    if (bounds.minimum)
        error.separation = std::max(error.separation, double(*bounds.minimum) - apart);
    if (bounds.maximum)
        error.separation = std::max(error.separation, apart - double(*bounds.maximum));
    return error;
}

} // namespace

Error error(btTypedConstraint& joint)
{
    if (auto* six = dynamic_cast<btGeneric6DofSpring2Constraint*>(&joint))
        return d6(*six);
    if (auto* hinged = dynamic_cast<btHingeConstraint*>(&joint))
        return hinge(*hinged);
    if (auto* cone = dynamic_cast<btConeTwistConstraint*>(&joint))
        return coneTwist(*cone);
    if (auto* sliding = dynamic_cast<btSliderConstraint*>(&joint))
        return slider(*sliding);
    if (auto* point = dynamic_cast<btPoint2PointConstraint*>(&joint))
        return ball(*point);
    if (const auto* apart = dynamic_cast<const DistanceConstraint*>(&joint))
        return distance(*apart);
    // A hand's drag is a spring: it holds nothing.
    return {};
}

std::optional<double> narrowestLimit(btTypedConstraint& joint)
{
    std::optional<double> narrowest;
    const auto consider = [&](double lower, double upper) {
        if (lower < upper)
            narrowest = std::min(narrowest.value_or(upper), 0.5 * (upper - lower));
    };
    if (auto* six = dynamic_cast<btGeneric6DofSpring2Constraint*>(&joint)) {
        for (int axis = 0; axis < 3; ++axis)
            consider(six->getRotationalLimitMotor(axis)->m_loLimit, six->getRotationalLimitMotor(axis)->m_hiLimit);
    } else if (auto* hinged = dynamic_cast<btHingeConstraint*>(&joint)) {
        if (hinged->hasLimit()) {
            double width = hinged->getUpperLimit() - hinged->getLowerLimit();
            consider(0.0, width < 0.0 ? width + 2.0 * M_PI : width);
        }
    } else if (auto* cone = dynamic_cast<btConeTwistConstraint*>(&joint)) {
        consider(-cone->getSwingSpan1(), cone->getSwingSpan1());
        consider(-cone->getSwingSpan2(), cone->getSwingSpan2());
    }
    return narrowest;
}

} // namespace Zento::JointMeasure
