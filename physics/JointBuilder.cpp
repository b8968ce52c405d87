#include "JointBuilder.h"

#include "BulletConversions.h"
#include "D6Joint.h"
#include "DistanceConstraint.h"

#include <BulletDynamics/ConstraintSolver/btFixedConstraint.h>
#include <btBulletDynamicsCommon.h>

#include <Imath/ImathEuler.h>
#include <Imath/ImathMatrixAlgo.h>

#include <algorithm>
#include <optional>

namespace Zento {

namespace {

using Record = RigidBodyConstraintAttributes;

constexpr double kDegrees = M_PI / 180.0;
// The middle Euler angle of a D6 joint is held short of the gimbal pole,
// where Bullet's angles stop being unique.
constexpr double kMiddleAxisLimit = 0.49 * M_PI;

// The range of one degree of freedom in the engine's units; an empty range
// (lower above upper) leaves the axis free, as Bullet reads it.
struct AxisRange {
    double lower;
    double upper;
    bool free() const { return lower > upper; }
};

constexpr AxisRange kFree{1.0, -1.0};
constexpr AxisRange kLocked{0.0, 0.0};
constexpr AxisRange kQuarterTurn{-0.5 * M_PI, 0.5 * M_PI};

AxisRange degrees(double lower, double upper)
{
    if (!std::isfinite(lower) || !std::isfinite(upper) || lower > upper || upper - lower >= 360.0)
        return kFree;
    return {lower * kDegrees, upper * kDegrees};
}

// A symmetric swing of the given half angle, if it is one that a cone can take.
std::optional<AxisRange> swing(double halfAngle)
{
    if (!(halfAngle > 0.0 && halfAngle < 180.0))
        return std::nullopt;
    return AxisRange{-halfAngle * kDegrees, halfAngle * kDegrees};
}

AxisRange angularRange(const Record& a, int axis)
{
    switch (a.motions[axis]) {
    case Record::Locked:
        return kLocked;
    case Record::Free:
        return kFree;
    default:
        break;
    }
    if (axis == Record::AngularX)
        return a.enableTwistLimit ? degrees(a.twistLimit.x, a.twistLimit.y) : kQuarterTurn;
    const bool aboutY = axis == Record::AngularY;
    if (a.enableSwingLimit)
        return swing(aboutY ? a.swingLimit.x : a.swingLimit.y).value_or(kQuarterTurn);
    if (a.enablePyramidLimit) {
        const Imath::V3d& pyramid = aboutY ? a.pyramidYSwingLimit : a.pyramidZSwingLimit;
        return degrees(std::min(pyramid.x, pyramid.y), std::max(pyramid.x, pyramid.y));
    }
    return kQuarterTurn;
}

AxisRange linearRange(const Record& a, int axis, float scale)
{
    switch (a.motions[axis]) {
    case Record::Locked:
        return kLocked;
    case Record::Limit: {
        const LinearLimit& limit = a.linearLimits[axis];
        if (!limit.enable || !std::isfinite(limit.range.x) || !std::isfinite(limit.range.y) ||
            limit.range.x > limit.range.y)
            return kFree;
        return {limit.range.x * scale, limit.range.y * scale};
    }
    default:
        return kFree;
    }
}

// Turns about one axis, in the column convention of Bullet.
btTransform turn(const btVector3& axis, double angle)
{
    return btTransform(btQuaternion(axis, static_cast<btScalar>(angle)));
}

// The body that a drive moves, for drives given as accelerations.
const btRigidBody& drivenBody(const btRigidBody& parent, const btRigidBody& child)
{
    return child.getInvMass() > 0.0f ? child : parent;
}

// A drive as a spring toward the target and, with damping, a motor toward the
// velocity: the motor's force is at most what the damping would give at rest,
// and never more than the drive's force limit.
void setDrive(btGeneric6DofSpring2Constraint& joint, int index, const DriveRecord& drive, double target,
              double velocity, btScalar massScale)
{
    if (!drive.enable)
        return;
    const btScalar factor = drive.isAcceleration ? massScale : 1.0f;
    const auto stiffness = static_cast<btScalar>(nonNegative(drive.stiffness)) * factor;
    const auto damping = static_cast<btScalar>(nonNegative(drive.damping)) * factor;
    if (stiffness > 0.0f || damping > 0.0f) {
        joint.enableSpring(index, true);
        joint.setStiffness(index, stiffness);
        joint.setDamping(index, damping);
        joint.setEquilibriumPoint(index, static_cast<btScalar>(target));
    }
    if (velocity != 0.0 && std::isfinite(velocity) && damping > 0.0f) {
        const double force = std::min(double(damping) * std::abs(velocity),
                                      nonNegative(drive.forceLimit) * double(factor));
        joint.enableMotor(index, true);
        joint.setTargetVelocity(index, static_cast<btScalar>(velocity));
        joint.setMaxMotorForce(index, static_cast<btScalar>(force));
    }
}

// The spring of a limit, if it has one that holds: without stiffness a
// spring stops nothing.
std::optional<SeparationBounds::Spring> limitSpring(const LimitSpring& spring)
{
    if (!spring.enable || !(spring.stiffness > 0.0) || !std::isfinite(spring.stiffness))
        return std::nullopt;
    return SeparationBounds::Spring{static_cast<btScalar>(spring.stiffness),
                                    static_cast<btScalar>(nonNegative(spring.damping))};
}

// A linear limit of a D6 joint: a hard one is Bullet's, bouncing back with the
// restitution of its spring group; one with a spring is held by bounds of our own.
void setLinearLimit(D6Joint& joint, int axis, const AxisRange& range, const LinearLimit& limit)
{
    joint.setLimit(axis, static_cast<btScalar>(range.lower), static_cast<btScalar>(range.upper));
    if (range.free() || range.lower == range.upper || !limit.spring.enable)
        return;
    if (const auto spring = limitSpring(limit.spring)) {
        SeparationBounds bounds;
        bounds.minimum = static_cast<btScalar>(range.lower);
        bounds.maximum = static_cast<btScalar>(range.upper);
        bounds.spring = spring;
        joint.setLinearBounds(axis, bounds);
    } else {
        joint.setBounce(axis, static_cast<btScalar>(std::clamp(finiteOr(limit.spring.restitution, 0.0), 0.0, 1.0)));
    }
}

} // namespace

JointBuilder::JointBuilder(float sceneScale, double stepTime) : mScale(sceneScale), mStepTime(stepTime) {}

bool JointBuilder::isDriven(btTypedConstraint& joint)
{
    if (auto* hinge = dynamic_cast<btHingeConstraint*>(&joint))
        return hinge->getEnableAngularMotor();
    auto* d6 = dynamic_cast<btGeneric6DofSpring2Constraint*>(&joint);
    if (!d6)
        return false;
    for (int axis = 0; axis < 3; ++axis) {
        const btTranslationalLimitMotor2& linear = *d6->getTranslationalLimitMotor();
        const btRotationalLimitMotor2& angular = *d6->getRotationalLimitMotor(axis);
        if (linear.m_enableSpring[axis] || linear.m_enableMotor[axis] || angular.m_enableSpring ||
            angular.m_enableMotor)
            return true;
    }
    return false;
}

std::unique_ptr<btTypedConstraint> JointBuilder::build(const Record& a, btRigidBody& parent,
                                                       const btTransform& parentFrame, btRigidBody& child,
                                                       const btTransform& childFrame) const
{
    switch (a.constraintType) {
    case Record::Fixed:
        return std::make_unique<btFixedConstraint>(parent, child, parentFrame, childFrame);
    case Record::Distance:
        return distance(a, parent, parentFrame, child, childFrame);
    case Record::Spherical:
        return spherical(a, parent, parentFrame, child, childFrame);
    case Record::Revolute:
        return revolute(a, parent, parentFrame, child, childFrame);
    case Record::Prismatic:
        return prismatic(a, parent, parentFrame, child, childFrame);
    case Record::D6:
        return d6(a, parent, parentFrame, child, childFrame);
    default:
        return nullptr;
    }
}

std::unique_ptr<btTypedConstraint> JointBuilder::distance(const Record& a, btRigidBody& parent,
                                                          const btTransform& parentFrame, btRigidBody& child,
                                                          const btTransform& childFrame) const
{
    const bool maximum = a.enableMaxDistance && a.maxDistance >= 0.0 && std::isfinite(a.maxDistance);
    const bool minimum = a.enableMinDistance && a.minDistance > 0.0 && std::isfinite(a.minDistance);
    const std::optional<SeparationBounds::Spring> spring = limitSpring(a.spring);
    // Anchors held together: a ball joint does that exactly.
    if (maximum && a.maxDistance == 0.0 && !minimum && !spring)
        return std::make_unique<btPoint2PointConstraint>(parent, child, parentFrame.getOrigin(), childFrame.getOrigin());

    SeparationBounds bounds;
    if (maximum)
        bounds.maximum = static_cast<btScalar>(a.maxDistance * mScale);
    if (minimum)
        bounds.minimum =
            static_cast<btScalar>((maximum ? std::min(a.minDistance, a.maxDistance) : a.minDistance) * mScale);
    bounds.tolerance = static_cast<btScalar>(nonNegative(a.tolerance) * mScale);
    bounds.spring = spring;
    return std::make_unique<DistanceConstraint>(parent, child, parentFrame.getOrigin(), childFrame.getOrigin(), bounds);
}

std::unique_ptr<btTypedConstraint> JointBuilder::spherical(const Record& a, btRigidBody& parent,
                                                           const btTransform& parentFrame, btRigidBody& child,
                                                           const btTransform& childFrame) const
{
    const auto aboutY = swing(a.limit.x), aboutZ = swing(a.limit.y);
    if (!a.enableLimit || !aboutY || !aboutZ)
        return std::make_unique<btPoint2PointConstraint>(parent, child, parentFrame.getOrigin(), childFrame.getOrigin());
    auto joint = std::make_unique<btConeTwistConstraint>(parent, child, parentFrame, childFrame);
    // The first swing span turns about z, the second about y; the twist is free.
    joint->setLimit(static_cast<btScalar>(aboutZ->upper), static_cast<btScalar>(aboutY->upper), SIMD_PI);
    return joint;
}

std::unique_ptr<btTypedConstraint> JointBuilder::revolute(const Record& a, btRigidBody& parent,
                                                          const btTransform& parentFrame, btRigidBody& child,
                                                          const btTransform& childFrame) const
{
    // Bullet hinges turn about the frame's z, the joint about its x.
    const btTransform zToX(btMatrix3x3(0, 0, 1, 1, 0, 0, 0, 1, 0));
    btTransform parentHinge = parentFrame * zToX;
    const AxisRange range = a.enableLimit ? degrees(a.limit.x, a.limit.y) : kFree;
    // A range centred on the parent's frame never straddles the hinge's wrap at a half turn.
    double centre = 0.0;
    if (!range.free()) {
        centre = 0.5 * (range.lower + range.upper);
        parentHinge = parentHinge * turn(btVector3(0, 0, 1), centre);
    }
    auto joint = std::make_unique<btHingeConstraint>(parent, child, parentHinge, childFrame * zToX, true);
    if (!range.free())
        joint->setLimit(static_cast<btScalar>(range.lower - centre), static_cast<btScalar>(range.upper - centre));
    if (a.enableDrive) {
        const double velocity = finiteOr(a.driveVelocity * a.driveGearRatio, 0.0);
        const double impulse = nonNegative(a.driveForceLimit) * mStepTime;
        joint->enableAngularMotor(true, static_cast<btScalar>(velocity), static_cast<btScalar>(impulse));
    }
    return joint;
}

std::unique_ptr<btTypedConstraint> JointBuilder::prismatic(const Record& a, btRigidBody& parent,
                                                           const btTransform& parentFrame, btRigidBody& child,
                                                           const btTransform& childFrame) const
{
    auto joint = std::make_unique<btSliderConstraint>(parent, child, parentFrame, childFrame, true);
    joint->setLowerAngLimit(0.0f);
    joint->setUpperAngLimit(0.0f);
    const bool limited = a.enableLimit && std::isfinite(a.limit.x) && std::isfinite(a.limit.y) && a.limit.x <= a.limit.y;
    joint->setLowerLinLimit(limited ? static_cast<btScalar>(a.limit.x * mScale) : 1.0f);
    joint->setUpperLinLimit(limited ? static_cast<btScalar>(a.limit.y * mScale) : -1.0f);
    return joint;
}

std::unique_ptr<btTypedConstraint> JointBuilder::d6(const Record& a, btRigidBody& parent, btTransform parentFrame,
                                                    btRigidBody& child, btTransform childFrame) const
{
    AxisRange angular[3];
    for (int axis = 0; axis < 3; ++axis)
        angular[axis] = angularRange(a, Record::AngularX + axis);
    // The middle Euler angle, about y, is held within a quarter turn.
    if (!angular[1].free()) {
        angular[1].lower = std::clamp(angular[1].lower, -kMiddleAxisLimit, kMiddleAxisLimit);
        angular[1].upper = std::clamp(angular[1].upper, -kMiddleAxisLimit, kMiddleAxisLimit);
    }
    // The twist, innermost, is centred on its range by turning the child's
    // frame, the outer swing by turning the parent's: a range then never
    // straddles Bullet's angle wrap at a half turn.
    double centre[3] = {0.0, 0.0, 0.0};
    for (int axis : {0, 2}) {
        if (!angular[axis].free()) {
            centre[axis] = 0.5 * (angular[axis].lower + angular[axis].upper);
            angular[axis].lower -= centre[axis];
            angular[axis].upper -= centre[axis];
        }
    }
    childFrame = childFrame * turn(btVector3(1, 0, 0), -centre[0]);
    parentFrame = parentFrame * turn(btVector3(0, 0, 1), centre[2]);

    // Bullet measures the parent's rotation relative to the child, the
    // inverse of the joint's: hence reversed limits and negated targets.
    auto joint = std::make_unique<D6Joint>(parent, child, parentFrame, childFrame);
    for (int axis = 0; axis < 3; ++axis) {
        setLinearLimit(*joint, axis, linearRange(a, axis, mScale), a.linearLimits[axis]);
        if (angular[axis].free())
            joint->setLimit(axis + 3, 1.0f, -1.0f);
        else
            joint->setLimitReversed(axis + 3, static_cast<btScalar>(angular[axis].lower),
                                    static_cast<btScalar>(angular[axis].upper));
    }

    const Imath::M44d& pose = a.drivePose;
    const Imath::V3d target = pose.translation() * double(mScale);
    Imath::M44d turning = pose;
    Imath::Eulerd targetAngles(Imath::Eulerd::XYZ);
    if (Imath::removeScalingAndShear(turning, false))
        targetAngles.extract(turning);
    const btRigidBody& driven = drivenBody(parent, child);
    const btScalar mass = driven.getInvMass() > 0.0f ? 1.0f / driven.getInvMass() : 1.0f;
    const btVector3 inverseInertia = driven.getInvInertiaDiagLocal();
    auto inertia = [&](int axis) { return inverseInertia[axis] > 0.0f ? 1.0f / inverseInertia[axis] : 1.0f; };
    for (int axis = 0; axis < 3; ++axis)
        setDrive(*joint, axis, a.drives[Record::DriveX + axis], target[axis], -a.driveLinearVelocity[axis] * mScale,
                 mass);
    const DriveRecord& twist = a.drives[Record::DriveTwist];
    const DriveRecord& swingDrive = a.drives[Record::DriveSwing];
    const DriveRecord& slerp = a.drives[Record::DriveSlerp];
    for (int axis = 0; axis < 3; ++axis) {
        const DriveRecord& own = axis == 0 ? twist : swingDrive;
        const DriveRecord& drive = own.enable ? own : slerp;
        setDrive(*joint, axis + 3, drive, centre[axis] - targetAngles[axis], -a.driveAngularVelocity[axis],
                 inertia(axis));
    }
    return joint;
}

} // namespace Zento
