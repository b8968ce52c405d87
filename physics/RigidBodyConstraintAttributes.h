#pragma once

#include <Imath/ImathMatrix.h>
#include <Imath/ImathVec.h>

#include <array>
#include <cfloat>
#include <string>

namespace ZentoCore {
class MapMetadata;
}

namespace Zento {

// One drive of a joint. The defaults are those of a PhysX joint drive: no
// spring, no damping, a force (not an acceleration) without limit. PhysX drives
// have no restitution or bounce threshold; they start at 0 like a limit's.
struct DriveRecord {
    float stiffness = 0.0f;
    float damping = 0.0f;
    float restitution = 0.0f;
    float bounceThreshold = 0.0f;
    float forceLimit = FLT_MAX;
    bool isAcceleration = false;
    bool enable = false;

    // The seven values under prefix + "stiffness", prefix + "damping", ...:
    // numbers as double, the flags as bool. A node keeps them under "driveX_"
    // and the like, an element of "cDrive" with no prefix.
    void serialise(ZentoCore::MapMetadata& map, const std::string& prefix) const;
    // A missing or wrongly typed entry leaves the field as it is. Numbers
    // beyond the range of float become the largest float of their sign.
    void deserialise(const ZentoCore::MapMetadata& map, const std::string& prefix);
};

// The spring of a limit. PhysX limits start hard: every value 0.
struct LimitSpring {
    bool enable = false;
    double stiffness = 0.0;
    double damping = 0.0;
    double restitution = 0.0;
    double bounceThreshold = 0.0;
};

// A linear limit of a D6 joint: lower and upper bound. PhysX starts a pair at
// a third of its largest float, so that the difference still fits in a float.
struct LinearLimit {
    bool enable = false;
    Imath::V2d range{-FLT_MAX / 3.0f, FLT_MAX / 3.0f};
    LimitSpring spring;
};

// The settings of one joint between two bodies. A constraint node's attributes
// are written by serialise, and the solver and the ragdoll export read them
// back by deserialise, so keys and defaults exist only here. Defaults follow
// what PhysX takes for a setting of the same name, at a tolerance scale of one
// metre. Angles are in degrees, as the user edits them; of an angular limit
// only x and y are used, of "distanceLimit" only x.
struct RigidBodyConstraintAttributes {
    enum Type : unsigned short { Fixed, Distance, Spherical, Revolute, Prismatic, D6, TypeCount };
    enum Motion : int { Locked, Limit, Free, MotionCount };
    // The D6 degrees of freedom in the order of `motions`.
    enum Axis { LinearX, LinearY, LinearZ, AngularX, AngularY, AngularZ, AxisCount };
    enum Drive { DriveX, DriveY, DriveZ, DriveSwing, DriveTwist, DriveSlerp, DriveCount };

    // The attribute prefix of each drive on a constraint node, in the order of `drives`.
    static constexpr const char* kDrivePrefixes[DriveCount] = {"driveX_",     "driveY_",     "driveZ_",
                                                               "driveSwing_", "driveTwist_", "driveSlerp_"};
    // The ragdoll file's list of the six drive maps.
    static constexpr const char* kDrivesKey = "cDrive";
    static constexpr const char* kNameKey = "name";

    std::string name;
    // Every motion locked, the simplest joint that holds two bodies together.
    unsigned short constraintType = Fixed;

    // No constraint flag is set in PhysX: joined bodies do not collide.
    bool enableCollision = false;
    bool driveLimitsAreForces = false;
    bool improveSlerp = false;
    bool disablePreprocessing = false;
    bool enableExtendedLimits = false;

    // Projection is off; its tolerances are PhysX's 1e10 and pi.
    bool enableProjection = false;
    double projectionLinearTolerance = 1e10;
    double projectionAngularTolerance = 180.0;

    // PhysX's largest float is an unbreakable joint.
    bool breakable = false;
    double breakForce = FLT_MAX;

    // A spherical joint's cone of a quarter turn each way. A revolute joint
    // reads it as lower and upper bound; PhysX would start a hinge at -90 to
    // 90, but a negative angle is no valid cone while a zero range is a valid hinge.
    bool enableLimit = false;
    Imath::V3d limit{90.0, 90.0, 0.0};
    LimitSpring spring;

    // PhysX enables a distance joint's maximum, 0, with a tolerance of 0.025
    // metres: the anchors stay together, as the drag of a body wants.
    bool enableMinDistance = false;
    double minDistance = 0.0;
    bool enableMaxDistance = true;
    double maxDistance = 0.0;
    double tolerance = 0.025;

    // A revolute drive, off, at rest (radians per second), without force limit.
    bool enableDrive = false;
    bool enableFreeSpin = false;
    double driveVelocity = 0.0;
    double driveForceLimit = FLT_MAX;
    double driveGearRatio = 1.0;

    // Motion values, indexed by Axis: all locked, as a new PhysX D6 joint.
    std::array<int, AxisCount> motions{Locked, Locked, Locked, Locked, Locked, Locked};

    // The D6 limits as PhysX sets them up: unlimited distance, a quarter turn
    // of twist, cone and pyramid each way.
    bool enableDistanceLimit = false;
    Imath::V2d distanceLimit{FLT_MAX, 0.0};
    bool enableTwistLimit = false;
    Imath::V3d twistLimit{-90.0, 90.0, 0.0};
    bool enableSwingLimit = false;
    Imath::V3d swingLimit{90.0, 90.0, 0.0};
    bool enablePyramidLimit = false;
    Imath::V3d pyramidYSwingLimit{-90.0, 90.0, 0.0};
    Imath::V3d pyramidZSwingLimit{-90.0, 90.0, 0.0};
    std::array<LinearLimit, 3> linearLimits;

    // The D6 drive target: at rest, in the identity pose.
    Imath::V3d driveLinearVelocity{0.0, 0.0, 0.0};
    Imath::V3d driveAngularVelocity{0.0, 0.0, 0.0};
    Imath::M44d drivePose;

    std::array<DriveRecord, DriveCount> drives;

    // Writes every attribute, "name" and the drives as "cDrive" (a list of six
    // maps) into the map, replacing entries of the same keys; false only for a
    // null map.
    bool serialise(ZentoCore::MapMetadata* map) const;

    // Reads back what serialise writes. A missing or wrongly typed entry, and a
    // motion out of range, leave the member as it is; "cDrive" is read when it
    // is there. False, with nothing read, for a null map or without an int
    // "constraintType". A type out of range is read: it names no joint.
    bool deserialise(const ZentoCore::MapMetadata* map);
};

} // namespace Zento
