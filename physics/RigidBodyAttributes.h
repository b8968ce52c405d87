#pragma once

#include <Imath/ImathMatrix.h>
#include <Imath/ImathQuat.h>
#include <Imath/ImathVec.h>

namespace ZentoCore {
class MapMetadata;
}

namespace Zento {

// The shape, pose and physical settings of one rigid body. A body node's
// attributes are written by serialise, and the solver and the ragdoll export
// read them back by deserialise, so keys and defaults exist only here.
// Defaults follow what PhysX takes for a setting of the same name.
struct RigidBodyAttributes {
    enum State : unsigned short { Static, Dynamic, Kinematic, StateCount };
    enum Type : unsigned short { Plane, Sphere, Box, Capsule, ConvexMesh, TriangleMesh, HeightField, TypeCount };
    // "axis": a capsule's long axis, a plane's normal.
    enum Axis : int { AxisX, AxisY, AxisZ, kAxisCount };

    // Sphere: radius x. Box: half extents. Capsule: radius x, half height y.
    // A capsule of limb size in metres, until the builder fits it to the bones.
    Imath::V3f dimension{0.1f, 0.2f, 0.1f};

    // The world pose, filled by the solver and the export before use:
    // "transform" and the pivots go to the ragdoll file with the rest.
    Imath::M44f worldMatrix;
    Imath::V3f rotatePivot{0.0f, 0.0f, 0.0f};
    Imath::V3f scalePivot{0.0f, 0.0f, 0.0f};
    Imath::V3f scalePivotTranslate{0.0f, 0.0f, 0.0f};
    Imath::V3f rotatePivotTranslate{0.0f, 0.0f, 0.0f};
    Imath::V3f scale{1.0f, 1.0f, 1.0f};
    Imath::V3f translation{0.0f, 0.0f, 0.0f};
    Imath::Quatf rotation;

    // -1: in no aggregate.
    int aggregate = -1;
    // Bodies collide only with bodies of the same pool. The drag body of the
    // solver takes a pool of its own, so that it touches nothing.
    int collisionPool = 0;
    unsigned short state = Dynamic;
    unsigned short type = Capsule;
    bool active = true;
    // The capsule's long axis and the plane's normal; PhysX lays capsules along x.
    int axis = 0;

    // Mass from density and shape unless useMass is set; then mass, inertia
    // and centre of mass are taken as given, which in PhysX start at 1, (1, 1, 1)
    // and the identity. Water's density, close to that of a body.
    bool useMass = false;
    double mass = 1.0;
    double density = 1000.0;

    // Initial velocities and the PxRigidDynamic defaults (PhysX 5 for the
    // angular velocity limit, in radians per second).
    Imath::V3d linearVelocity{0.0, 0.0, 0.0};
    Imath::V3d angularVelocity{0.0, 0.0, 0.0};
    double maxAngularVelocity = 100.0;
    double linearDamping = 0.0;
    double angularDamping = 0.05;

    // Material: PhysX has no default material; friction as in its samples,
    // and no bounce, so that a ragdoll settles.
    double staticFriction = 0.5;
    double dynamicFriction = 0.5;
    double restitution = 0.0;

    // Collision reactions of the crowd runtime. Off, and a contact of any
    // force counts once they are on; a stuck body holds until PhysX's
    // unbreakable force (its largest float).
    bool dynamicOnCollision = false;
    double collisionForceThreshold = 0.0;
    bool disableCollisionEvent = false;
    bool stuckOnCollision = false;
    double stuckOnCollisionBreakForce = 3.4028234663852886e38;

    // PxHeightFieldDesc starts with no samples; PxHeightFieldGeometry's row,
    // height and column scales start at 1.
    int heightFieldRows = 0;
    int heightFieldColumns = 0;
    Imath::V3d heightFieldScale{1.0, 1.0, 1.0};

    // PxShape defaults at a tolerance scale of one metre; contact reports are
    // off until a threshold below PhysX's largest float is set.
    double restOffset = 0.0;
    double contactOffset = 0.02;
    double contactReportThreshold = 3.4028234663852886e38;

    // Used only with useMass, as PhysX's defaults of a new dynamic body.
    Imath::V3d massSpaceInertiaTensor{1.0, 1.0, 1.0};
    Imath::M44d cMassLocalPose;

    // 5e-5 and 1e-5 times the square of PhysX's default speed scale of 10;
    // the wake counter of 0.4 seconds is twenty steps of 1/50.
    double sleepThreshold = 0.005;
    double wakeCounter = 0.4;
    double stabilizationThreshold = 0.001;

    // PhysX's default position iterations.
    int solverIteratorCount = 4;
    bool storeImpactData = false;
    // The layout of this record in a ragdoll file, for the runtime.
    int version = 1;

    // Writes every attribute and the pose into the map, replacing entries of
    // the same keys; false only for a null map.
    bool serialise(ZentoCore::MapMetadata* map) const;

    // Reads back what serialise writes. A missing or wrongly typed entry, and
    // an "axis" out of range, leave the member as it is. False, with nothing
    // read, for a null map or without a valid "state" and "type": those decide
    // whether and how a body can be built at all.
    bool deserialise(const ZentoCore::MapMetadata* map);
};

} // namespace Zento
