#include "MathUtils.h"
#include "ZentoPhysx.h"

#include <btBulletDynamicsCommon.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>

using Imath::M44f;
using Imath::Quatf;
using Imath::V3f;
using Zento::RigidBody;
using Zento::RigidBodyAttributes;
using Zento::RigidBodyConstraintAttributes;
using Zento::ZentoPhysx;

namespace {

constexpr double kFrame = 1.0 / 25.0;
constexpr double kGravity = 9.81;
constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();
constexpr float kInfinity = std::numeric_limits<float>::infinity();

const Imath::V3d kDown(0, -kGravity, 0);
const Imath::V3d kWeightless(0, 0, 0);

// A scene at 25 frames a second, ready for bodies.
struct Scene {
    explicit Scene(double scale = 1.0, const Imath::V3d& gravity = kDown)
    {
        physics.setFps(25.0);
        physics.setScale(scale);
        physics.setGravity(gravity);
        physics.init();
        physics.initScene();
    }

    RigidBody* add(const std::string& name, unsigned short type, unsigned short state, const V3f& dimension,
                   const V3f& at, const Quatf& rotation = Quatf(), int axis = 0)
    {
        RigidBodyAttributes record;
        record.type = type;
        record.state = state;
        record.dimension = dimension;
        record.axis = axis;
        record.translation = at;
        record.rotation = rotation;
        return physics.addRigidBody(name, record, &mesh, false);
    }

    // A small static box that joints hang from.
    RigidBody* anchor(const V3f& at)
    {
        return add("anchor", RigidBodyAttributes::Box, RigidBodyAttributes::Static, V3f(0.1f, 0.1f, 0.1f), at);
    }

    RigidBody* ground(int axis = 1)
    {
        return add("ground", RigidBodyAttributes::Plane, RigidBodyAttributes::Static, V3f(1, 1, 1), V3f(0, 0, 0),
                   Quatf(), axis);
    }

    void run(double seconds)
    {
        for (int frame = 0; frame < std::lround(seconds / kFrame); ++frame)
            physics.stepPhysics();
    }

    ZentoPhysx physics;
    ZentoUtils::Mesh mesh;
};

bool finite(const V3f& v)
{
    return std::isfinite(v.x) && std::isfinite(v.y) && std::isfinite(v.z);
}

V3f position(const RigidBody& body)
{
    V3f t;
    Quatf q;
    body.pose(t, q);
    return t;
}

Quatf orientation(const RigidBody& body)
{
    V3f t;
    Quatf q;
    body.pose(t, q);
    return q;
}

M44f frameAt(const V3f& at, const Quatf& rotation = Quatf())
{
    return ZentoCore::poseMatrix(rotation, at);
}

// Joins the two bodies with a frame on each, given in world space.
Zento::RigidBodyConstraint* join(ZentoPhysx& physics, const RigidBodyConstraintAttributes& record, RigidBody* parent,
                                 const M44f& parentWorld, RigidBody* child, const M44f& childWorld)
{
    const RigidBody none;
    const M44f parentFrame = (parent ? parent : &none)->frameInBody(parentWorld);
    const M44f childFrame = (child ? child : &none)->frameInBody(childWorld);
    return physics.addRigidBodyConstraint(record.name, record, parent, parentFrame, child, childFrame, false);
}

// Joins the two bodies at one world frame, as the solver does.
Zento::RigidBodyConstraint* join(ZentoPhysx& physics, const RigidBodyConstraintAttributes& record, RigidBody* parent,
                                 RigidBody* child, const M44f& world)
{
    return join(physics, record, parent, world, child, world);
}

Quatf about(const V3f& axis, double degrees)
{
    Quatf q;
    q.setAxisAngle(axis, static_cast<float>(degrees * M_PI / 180.0));
    return q;
}

double degreesBetween(const V3f& a, const V3f& b)
{
    return std::acos(std::clamp(a.normalized().dot(b.normalized()), -1.0f, 1.0f)) * 180.0 / M_PI;
}

} // namespace

TEST(PhysicsScene, ASphereFallsInFreeFallTimeAndRestsOnTheGround)
{
    for (double scale : {1.0, 0.01}) {
        // In a scene of centimetres the same drop in metres takes the same time.
        const float unit = static_cast<float>(1.0 / scale);
        Scene scene(scale);
        scene.ground();
        const float radius = 0.25f * unit, height = 5.0f * unit;
        RigidBody* ball = scene.add("ball", RigidBodyAttributes::Sphere, RigidBodyAttributes::Dynamic,
                                    V3f(radius, 0, 0), V3f(0, height + radius, 0));
        ASSERT_NE(ball, nullptr);
        int frames = 0;
        while (position(*ball).y > radius * 1.02f && frames < 100) {
            scene.physics.stepPhysics();
            ++frames;
        }
        EXPECT_NEAR(frames * kFrame, std::sqrt(2.0 * 5.0 / kGravity), 2 * kFrame) << "scale " << scale;
        scene.run(3.0);
        EXPECT_NEAR(position(*ball).y, radius, 0.01f * unit) << "rests on the ground, not in it";
        EXPECT_NEAR(position(*ball).x, 0.0f, 0.01f * unit);
    }
}

TEST(PhysicsScene, StaticAndKinematicBodiesDoNotFallAndKinematicsFollowTheirTarget)
{
    Scene scene;
    scene.ground();
    RigidBody* fixed =
        scene.add("static", RigidBodyAttributes::Box, RigidBodyAttributes::Static, V3f(0.5f, 0.5f, 0.5f), V3f(0, 3, 0));
    RigidBody* moved = scene.add("kinematic", RigidBodyAttributes::Box, RigidBodyAttributes::Kinematic,
                                 V3f(0.5f, 0.5f, 0.5f), V3f(4, 3, 0));
    // A dynamic box dropped on the static one rests on it.
    RigidBody* box = scene.add("box", RigidBodyAttributes::Box, RigidBodyAttributes::Dynamic, V3f(0.2f, 0.2f, 0.2f),
                               V3f(0, 5, 0));
    ASSERT_TRUE(fixed && moved && box);
    scene.run(2.0);
    EXPECT_EQ(position(*fixed), V3f(0, 3, 0));
    EXPECT_EQ(position(*moved), V3f(4, 3, 0));
    EXPECT_NEAR(position(*box).y, 3.7f, 0.02f);

    moved->kinematicTarget = V3f(4, 6, 1);
    scene.physics.stepPhysics();
    EXPECT_TRUE(position(*moved).equalWithAbsError(V3f(4, 6, 1), 1e-5f)) << "there within one frame";
}

TEST(PhysicsShapes, EachShapeRestsOnTheGroundAtItsSize)
{
    Scene scene;
    scene.ground();
    const float r = 0.2f, h = 0.5f;
    struct Case {
        unsigned short type;
        int axis;
        V3f dimension;
        float restHeight;
    };
    const Case cases[] = {
        {RigidBodyAttributes::Sphere, 0, V3f(r, 0, 0), r},
        {RigidBodyAttributes::Box, 0, V3f(0.3f, 0.1f, 0.4f), 0.1f},
        {RigidBodyAttributes::Capsule, 0, V3f(r, h, 0), r},
        {RigidBodyAttributes::Capsule, 1, V3f(r, h, 0), r + h},
        {RigidBodyAttributes::Capsule, 2, V3f(r, h, 0), r},
    };
    std::vector<RigidBody*> bodies;
    for (size_t i = 0; i < std::size(cases); ++i)
        bodies.push_back(scene.add("shape", cases[i].type, RigidBodyAttributes::Dynamic, cases[i].dimension,
                                   V3f(3.0f * i, 2.0f, 0), Quatf(), cases[i].axis));
    scene.run(3.0);
    for (size_t i = 0; i < std::size(cases); ++i) {
        ASSERT_NE(bodies[i], nullptr);
        EXPECT_NEAR(position(*bodies[i]).y, cases[i].restHeight, 0.01f) << "case " << i;
        // Lying capsules keep their axis level; the standing one stays upright.
        const V3f axis(cases[i].axis == 0, cases[i].axis == 1, cases[i].axis == 2);
        if (cases[i].type == RigidBodyAttributes::Capsule) {
            EXPECT_LT(degreesBetween(axis * orientation(*bodies[i]).toMatrix33(), axis), 1.0);
        }
    }

    // A plane on the x axis is a wall facing +x.
    Scene walled(1.0, kWeightless);
    walled.ground(0);
    RigidBodyAttributes thrown;
    thrown.type = RigidBodyAttributes::Sphere;
    thrown.dimension = V3f(r, 0, 0);
    thrown.translation = V3f(2, 0, 0);
    thrown.linearVelocity = Imath::V3d(-5, 0, 0);
    RigidBody* ball = walled.physics.addRigidBody("ball", thrown, &walled.mesh, false);
    walled.run(1.0);
    EXPECT_NEAR(position(*ball).x, r, 0.01f);
}

TEST(PhysicsScene, BodyAttributesReachTheEngine)
{
    Scene scene;
    RigidBodyAttributes record;
    record.type = RigidBodyAttributes::Box;
    record.dimension = V3f(0.5f, 0.5f, 0.5f);
    record.density = 200.0;
    record.linearVelocity = Imath::V3d(1, 0, 0);
    record.angularVelocity = Imath::V3d(0, 2, 0);
    record.linearDamping = 0.25;
    record.angularDamping = 0.5;
    record.dynamicFriction = 0.7;
    record.restitution = 0.3;
    record.solverIteratorCount = 12;
    RigidBody* light = scene.physics.addRigidBody("light", record, &scene.mesh, false);
    record.useMass = true;
    record.mass = 3.0;
    record.massSpaceInertiaTensor = Imath::V3d(0.5, 2, 4);
    RigidBody* given = scene.physics.addRigidBody("given", record, &scene.mesh, false);
    ASSERT_TRUE(light && given);
    EXPECT_EQ(scene.physics.solverIterations(), 4 * 12) << "solverIteratorCount reaches the solver";

    const btCollisionObjectArray& objects = scene.physics.world()->getCollisionObjectArray();
    ASSERT_EQ(objects.size(), 2);
    const btRigidBody* first = btRigidBody::upcast(objects[0]);
    const btRigidBody* second = btRigidBody::upcast(objects[1]);
    EXPECT_NEAR(1.0f / first->getInvMass(), 200.0f * 1.0f, 1e-3f) << "density times the volume of a unit cube";
    EXPECT_NEAR(1.0f / first->getInvInertiaDiagLocal().x(), 200.0f / 6.0f, 1e-3f) << "a cube's own inertia";
    EXPECT_NEAR(1.0f / second->getInvMass(), 3.0f, 1e-5f);
    EXPECT_NEAR(1.0f / second->getInvInertiaDiagLocal().z(), 4.0f, 1e-5f) << "the inertia as given";
    EXPECT_FLOAT_EQ(first->getLinearVelocity().x(), 1.0f);
    EXPECT_FLOAT_EQ(first->getAngularVelocity().y(), 2.0f);
    EXPECT_FLOAT_EQ(first->getLinearDamping(), 0.25f);
    EXPECT_FLOAT_EQ(first->getAngularDamping(), 0.5f);
    EXPECT_FLOAT_EQ(first->getFriction(), 0.7f);
    EXPECT_FLOAT_EQ(first->getRestitution(), 0.3f);
    EXPECT_EQ(first->getRollingFriction(), 0.0f) << "a box does not roll";
    EXPECT_GT(first->getCcdMotionThreshold(), 0.0f) << "fast bodies are swept";

    // The spin is held to maxAngularVelocity.
    Scene spinning(1.0, kWeightless);
    record.angularVelocity = Imath::V3d(0, 50, 0);
    record.angularDamping = 0.0;
    record.maxAngularVelocity = 10.0;
    RigidBody* top = spinning.physics.addRigidBody("top", record, &spinning.mesh, false);
    ASSERT_NE(top, nullptr);
    spinning.physics.stepPhysics();
    EXPECT_NEAR(spinning.physics.world()->getCollisionObjectArray()[0]->getInterpolationAngularVelocity().length(),
                10.0f, 0.01f);

    // The centre of mass moves the body's pivot of rotation, not its pose.
    Scene offset;
    record.linearVelocity = record.angularVelocity = Imath::V3d(0, 0, 0);
    record.cMassLocalPose = Imath::M44d(Imath::Eulerd(0, 0, 0.5).toMatrix44());
    record.cMassLocalPose.setTranslation(Imath::V3d(0, 0.3, 0));
    record.translation = V3f(1, 2, 3);
    record.rotation = about(V3f(1, 0, 0), 40);
    RigidBody* shifted = offset.physics.addRigidBody("shifted", record, &offset.mesh, false);
    ASSERT_NE(shifted, nullptr);
    EXPECT_TRUE(position(*shifted).equalWithAbsError(V3f(1, 2, 3), 1e-5f));
    EXPECT_TRUE(orientation(*shifted).toMatrix44().equalWithAbsError(record.rotation.toMatrix44(), 1e-5f));
    const V3f centre = V3f(1, 2, 3) + V3f(0, 0.3f, 0) * record.rotation.toMatrix33();
    const btVector3 engineCentre = offset.physics.world()->getCollisionObjectArray()[0]->getWorldTransform().getOrigin();
    EXPECT_TRUE(V3f(engineCentre.x(), engineCentre.y(), engineCentre.z()).equalWithAbsError(centre, 1e-5f));
}

TEST(PhysicsScene, MaterialsOfTwoBodiesCombineByTheirAverage)
{
    // A box slides on a ground without friction: with the box's friction of
    // 1, the contact has 0.5 and the box stops after v^2 / (2 * 0.5 * g).
    Scene scene;
    RigidBodyAttributes ground;
    ground.type = RigidBodyAttributes::Plane;
    ground.state = RigidBodyAttributes::Static;
    ground.axis = 1;
    ground.dynamicFriction = 0.0;
    scene.physics.addRigidBody("ground", ground, &scene.mesh, false);
    RigidBodyAttributes box;
    box.type = RigidBodyAttributes::Box;
    box.dimension = V3f(0.2f, 0.2f, 0.2f);
    box.translation = V3f(0, 0.2f, 0);
    box.dynamicFriction = 1.0;
    box.linearVelocity = Imath::V3d(5, 0, 0);
    RigidBody* slider = scene.physics.addRigidBody("box", box, &scene.mesh, false);
    ASSERT_NE(slider, nullptr);
    scene.run(3.0);
    EXPECT_NEAR(position(*slider).x, 25.0 / kGravity, 0.15);

    // A ball of restitution 1 bounces off a ground of 0 with 0.5: back to a quarter of its drop.
    Scene bouncing;
    ground.restitution = 0.0;
    bouncing.physics.addRigidBody("ground", ground, &bouncing.mesh, false);
    RigidBodyAttributes ball;
    ball.type = RigidBodyAttributes::Sphere;
    ball.dimension = V3f(0.1f, 0, 0);
    ball.translation = V3f(0, 1.1f, 0);
    ball.restitution = 1.0;
    ball.angularDamping = 0.0;
    RigidBody* bouncer = bouncing.physics.addRigidBody("ball", ball, &bouncing.mesh, false);
    ASSERT_NE(bouncer, nullptr);
    float highest = 0.0f;
    bool landed = false;
    for (int frame = 0; frame < 40; ++frame) {
        bouncing.physics.stepPhysics();
        landed = landed || position(*bouncer).y < 0.15f;
        if (landed)
            highest = std::max(highest, position(*bouncer).y - 0.1f);
    }
    EXPECT_NEAR(highest, 0.25f, 0.04f);
}

TEST(PhysicsScene, ABodySleepsOnceItsKineticEnergyPerKilogramStaysBelowItsThresholdAtAnyScale)
{
    // Spheres of 10 cm drifting and spinning in free space, at a kinetic
    // energy per kilogram of 0.8 and of 1.2 times the threshold of 0.005 J/kg.
    // A sphere's is (v^2 + 0.4 r^2 w^2) / 2.
    constexpr double kThreshold = 0.005, kRadius = 0.1;
    for (double scale : {1.0, 0.056}) {
        Scene scene(scale, kWeightless);
        std::vector<std::pair<RigidBody*, bool>> bodies;
        for (double share : {0.8, 1.2})
            for (bool spins : {false, true}) {
                RigidBodyAttributes record;
                record.type = RigidBodyAttributes::Sphere;
                record.dimension = V3f(float(kRadius / scale), 0, 0);
                record.translation = V3f(float(bodies.size() / scale), 0, 0);
                record.angularDamping = 0.0;
                record.sleepThreshold = kThreshold;
                const double speed = std::sqrt(2.0 * share * kThreshold);
                if (spins)
                    record.angularVelocity = Imath::V3d(0, speed / (std::sqrt(0.4) * kRadius), 0);
                else
                    record.linearVelocity = Imath::V3d(speed / scale, 0, 0);
                bodies.push_back({scene.physics.addRigidBody("ball", record, &scene.mesh, false), share < 1.0});
            }
        scene.run(1.0);
        for (const auto& [body, sleeps] : bodies) {
            ASSERT_NE(body, nullptr);
            EXPECT_EQ(body->isAsleep(), sleeps) << "scale " << scale << ", body " << body->id;
        }
    }
}

TEST(PhysicsScene, ARoundBodyRollsToAStopOverTheDistanceItsRollingResistanceGives)
{
    // A ball rolls on the ground at 1 m/s. The contact's rolling lever is the
    // average of the ball's, kRollingResistance times its radius, and the
    // ground's, 0: its torque l m g slows the rolling ball by l g / (1.4 r).
    constexpr double kRadius = 0.1, kSpeed = 1.0;
    Scene scene;
    scene.ground();
    RigidBodyAttributes ball;
    ball.type = RigidBodyAttributes::Sphere;
    ball.dimension = V3f(float(kRadius), 0, 0);
    ball.translation = V3f(0, float(kRadius), 0);
    ball.angularDamping = 0.0;
    ball.linearVelocity = Imath::V3d(kSpeed, 0, 0);
    ball.angularVelocity = Imath::V3d(0, 0, -kSpeed / kRadius);
    RigidBody* roller = scene.physics.addRigidBody("ball", ball, &scene.mesh, false);
    ASSERT_NE(roller, nullptr);
    scene.run(4.0);
    const double lever = 0.5 * ZentoPhysx::kRollingResistance * kRadius;
    const double deceleration = lever * kGravity / (1.4 * kRadius);
    EXPECT_NEAR(position(*roller).x, kSpeed * kSpeed / (2.0 * deceleration), 0.1);
    EXPECT_TRUE(roller->isAsleep());
}

TEST(PhysicsScene, ADragPullsWithAtMostItsAccelerationTimesTheMassJoinedToTheBody)
{
    // Three balls in free space, the first two joined; a handle far away pulls
    // the first, so that the spring pulls as hard as it may.
    Scene scene(1.0, kWeightless);
    RigidBody* first = scene.add("first", RigidBodyAttributes::Sphere, RigidBodyAttributes::Dynamic, V3f(0.1f, 0, 0),
                                 V3f(0, 0, 0));
    RigidBody* second = scene.add("second", RigidBodyAttributes::Sphere, RigidBodyAttributes::Dynamic,
                                  V3f(0.2f, 0, 0), V3f(0, 0.5f, 0));
    RigidBody* third = scene.add("third", RigidBodyAttributes::Sphere, RigidBodyAttributes::Dynamic, V3f(0.1f, 0, 0),
                                 V3f(0, -0.5f, 0));
    RigidBodyConstraintAttributes fixed;
    ASSERT_NE(join(scene.physics, fixed, first, second, frameAt(V3f(0, 0.25f, 0))), nullptr);
    RigidBody* handle = scene.add("handle", RigidBodyAttributes::Sphere, RigidBodyAttributes::Kinematic,
                                  V3f(0.1f, 0, 0), V3f(0, 5, 0));
    ASSERT_TRUE(first && second && third && handle);

    EXPECT_EQ(scene.physics.addDrag("nowhere", handle, first, V3f(kNaN, 0, 0)), nullptr);
    EXPECT_EQ(scene.physics.addDrag("itself", handle, handle, V3f(0, 0, 0)), nullptr);
    EXPECT_EQ(scene.physics.addDrag("no body", handle, nullptr, V3f(0, 0, 0)), nullptr);
    const Zento::DragSettings settings;
    ASSERT_NE(scene.physics.addDrag("drag", handle, first, V3f(0, 0, 0), settings), nullptr);
    handle->kinematicTarget = V3f(100, 5, 0);
    constexpr double kSeconds = 0.2;
    scene.physics.enablePvd(true);
    scene.run(kSeconds);
    // The pull shows in the debug drawing: a line from the grab point, carried
    // by the handle from the body's centre, to the body.
    const auto pull = std::find_if(scene.physics.debugLines().begin(), scene.physics.debugLines().end(),
                                   [&](const Zento::DebugLine& line) {
                                       return line.from.equalWithAbsError(position(*handle) - V3f(0, 5, 0), 1e-3f)
                                           && line.to.equalWithAbsError(position(*first), 1e-3f);
                                   });
    EXPECT_NE(pull, scene.physics.debugLines().end());
    // The joined balls turn about their centre of mass, which the limit's
    // acceleration carries along; the second ball weighs eight times the
    // first. Bullet's steps move by the speed at their end: a h^2 n (n + 1) / 2,
    // over ten sub-steps a frame, twice as many while a hand drags.
    constexpr int kSteps = 100;
    const double step = kSeconds / kSteps;
    const double travelled = settings.acceleration * step * step * kSteps * (kSteps + 1) / 2.0;
    EXPECT_NEAR((position(*first).x + 8.0 * position(*second).x) / 9.0, travelled, 0.005 * travelled);
    EXPECT_NEAR((position(*first) - position(*second)).length(), 0.5, 0.005) << "the joint holds";
    EXPECT_EQ(position(*third).x, 0.0f) << "what is not joined is not pulled";

    // The drag goes with its handle, and the joints it spurred on are back to the world's iterations.
    scene.physics.removeRigidBody(handle->id);
    for (const Zento::RigidBodyConstraint* joint : scene.physics.constraints())
        EXPECT_EQ(joint->joint().getOverrideNumSolverIterations(), -1) << joint->name;
    EXPECT_EQ(scene.physics.constraints().size(), 1u);
}

namespace {

// The direction of an arm along x, turned by the body.
V3f armDirection(const RigidBody& body)
{
    return V3f(1, 0, 0) * orientation(body).toMatrix33();
}

// The child's rotation relative to an unturned parent, in degrees: twist about
// x innermost, then the swings about y and z, as the D6 limits are written.
V3f jointAngles(const RigidBody& body)
{
    const Imath::Eulerf angles(orientation(body).toMatrix44(), Imath::Eulerf::XYZ);
    return V3f(angles.x, angles.y, angles.z) * float(180.0 / M_PI);
}

// An anchor fixed at the origin of a scene without gravity, and a cube at
// (1, 0, 0) joined to it there, free to turn about its own centre.
struct TurningCube {
    explicit TurningCube(const RigidBodyConstraintAttributes& record) : scene(1.0, kWeightless)
    {
        RigidBody* anchor = scene.anchor(V3f(0, 0, 0));
        cube = scene.add("cube", RigidBodyAttributes::Box, RigidBodyAttributes::Dynamic, V3f(0.2f, 0.2f, 0.2f),
                         V3f(1, 0, 0));
        joint = join(scene.physics, record, anchor, cube, frameAt(V3f(1, 0, 0)));
    }

    Scene scene;
    RigidBody* cube = nullptr;
    Zento::RigidBodyConstraint* joint = nullptr;
};

} // namespace

namespace {

// A horizontal arm along +x on a hinge at its end, whose axis, the joint's x,
// is the world's z.
struct HingedArm {
    HingedArm(const RigidBodyConstraintAttributes& record, const Imath::V3d& gravity) : scene(1.0, gravity)
    {
        RigidBody* anchor = scene.anchor(kHinge);
        arm = scene.add("arm", RigidBodyAttributes::Box, RigidBodyAttributes::Dynamic, V3f(0.5f, 0.05f, 0.05f),
                        V3f(0.5f, 2, 0));
        joint = join(scene.physics, record, anchor, arm, frameAt(kHinge, about(V3f(0, 1, 0), -90)));
    }

    // The arm's turn about the hinge, in degrees.
    double angle() const
    {
        const V3f along = armDirection(*arm);
        return std::atan2(double(along.y), double(along.x)) * 180.0 / M_PI;
    }

    static inline const V3f kHinge{0, 2, 0};
    Scene scene;
    RigidBody* arm = nullptr;
    Zento::RigidBodyConstraint* joint = nullptr;
};

} // namespace

TEST(PhysicsConstraints, ARevoluteJointHoldsItsLimitsAndItsDriveTurnsIt)
{
    // Gravity turns the arm the negative way, down to the lower limit.
    auto hang = [&](bool limited, double lower, double upper, double& lowest) {
        RigidBodyConstraintAttributes record;
        record.constraintType = RigidBodyConstraintAttributes::Revolute;
        record.enableLimit = limited;
        record.limit = Imath::V3d(lower, upper, 0);
        HingedArm hinged(record, kDown);
        EXPECT_NE(hinged.joint, nullptr);
        lowest = 0.0;
        for (int frame = 0; frame < 100; ++frame) {
            hinged.scene.physics.stepPhysics();
            lowest = std::min(lowest, hinged.angle());
            EXPECT_NEAR(armDirection(*hinged.arm).z, 0.0f, 0.01f) << "turns only about the hinge";
            EXPECT_NEAR((position(*hinged.arm) - HingedArm::kHinge).length(), 0.5f, 0.01f) << "stays on its hinge";
        }
        return hinged.angle();
    };
    double lowest = 0.0;
    EXPECT_NEAR(hang(true, -40, 40, lowest), -40.0, 3.0);
    EXPECT_NEAR(hang(true, -30, 70, lowest), -30.0, 3.0) << "the lower limit, however far the upper one";
    EXPECT_NEAR(hang(true, -70, 30, lowest), -70.0, 3.0);
    EXPECT_GT(lowest, -73.0) << "never beyond it on the way";
    hang(false, 0, 0, lowest);
    EXPECT_LT(lowest, -150.0) << "without a limit it swings through";

    // The drive turns the arm about the joint's x at its velocity, here without gravity.
    RigidBodyConstraintAttributes record;
    record.constraintType = RigidBodyConstraintAttributes::Revolute;
    record.enableDrive = true;
    record.driveVelocity = 0.5;
    record.driveGearRatio = 2.0;
    HingedArm driven(record, kWeightless);
    driven.scene.run(0.4);
    EXPECT_NEAR(driven.angle(), 0.4 * 180.0 / M_PI, 2.0) << "one radian a second, the positive way";
}

TEST(PhysicsConstraints, AFixedConstraintKeepsTheRelativePose)
{
    Scene scene;
    scene.ground();
    RigidBody* a = scene.add("a", RigidBodyAttributes::Box, RigidBodyAttributes::Dynamic, V3f(0.3f, 0.2f, 0.2f),
                             V3f(0, 2, 0));
    RigidBody* b = scene.add("b", RigidBodyAttributes::Capsule, RigidBodyAttributes::Dynamic, V3f(0.1f, 0.3f, 0),
                             V3f(0.6f, 2.5f, 0.1f), about(V3f(0, 0, 1), 30));
    RigidBodyConstraintAttributes record;
    const M44f before = a->frameInBody(b->poseMatrix());
    ASSERT_NE(join(scene.physics, record, a, b, frameAt(V3f(0.3f, 2.3f, 0))), nullptr);
    scene.run(3.0);
    const M44f after = a->frameInBody(b->poseMatrix());
    EXPECT_LT(position(*a).y, 1.0f) << "fell to the ground";
    for (int row = 0; row < 4; ++row)
        for (int column = 0; column < 3; ++column)
            EXPECT_NEAR(after[row][column], before[row][column], 0.01f);
}

TEST(PhysicsConstraints, ABreakableConstraintBreaksAboveItsForceOnly)
{
    // A box of 8 kg hangs from a fixed anchor: the joint carries about 78 N.
    for (double force : {160.0, 40.0}) {
        Scene scene;
        RigidBody* anchor = scene.anchor(V3f(0, 3, 0));
        RigidBody* box = scene.add("box", RigidBodyAttributes::Box, RigidBodyAttributes::Dynamic,
                                   V3f(0.1f, 0.1f, 0.1f), V3f(0, 2.5f, 0));
        RigidBodyConstraintAttributes record;
        record.breakable = true;
        record.breakForce = force;
        Zento::RigidBodyConstraint* joint = join(scene.physics, record, anchor, box, frameAt(V3f(0, 3, 0)));
        ASSERT_NE(joint, nullptr);
        scene.run(1.0);
        const bool strong = force > 8.0 * kGravity;
        EXPECT_EQ(joint->isBroken(), !strong) << force;
        if (strong)
            EXPECT_NEAR(position(*box).y, 2.5f, 0.01f);
        else
            EXPECT_LT(position(*box).y, 0.0f) << "falls once broken";
    }
}

TEST(PhysicsConstraints, ASphericalJointHoldsItsConeAboutEachAxis)
{
    // A horizontal arm on a ball joint with a cone of 20 degrees about y and
    // 45 about z: gravity along -y turns it about z, along -z about y.
    for (const bool aboutZ : {true, false}) {
        Scene scene(1.0, aboutZ ? kDown : Imath::V3d(0, 0, -kGravity));
        RigidBody* anchor = scene.anchor(V3f(0, 5, 0));
        RigidBody* arm = scene.add("arm", RigidBodyAttributes::Capsule, RigidBodyAttributes::Dynamic,
                                   V3f(0.05f, 0.4f, 0), V3f(0.5f, 5, 0));
        RigidBodyConstraintAttributes record;
        record.constraintType = RigidBodyConstraintAttributes::Spherical;
        record.enableLimit = true;
        record.limit = Imath::V3d(20, 45, 0);
        ASSERT_NE(join(scene.physics, record, anchor, arm, frameAt(V3f(0, 5, 0))), nullptr);
        double widest = 0.0;
        for (int frame = 0; frame < 75; ++frame) {
            scene.physics.stepPhysics();
            widest = std::max(widest, degreesBetween(armDirection(*arm), V3f(1, 0, 0)));
            EXPECT_NEAR((position(*arm) - V3f(0, 5, 0)).length(), 0.5f, 0.01f) << "held at the anchor";
        }
        EXPECT_NEAR(widest, aboutZ ? 45.0 : 20.0, 3.0);
        EXPECT_NEAR(degreesBetween(armDirection(*arm), V3f(1, 0, 0)), aboutZ ? 45.0 : 20.0, 3.0) << "rests there";
    }
}

TEST(PhysicsConstraints, APrismaticJointSlidesAlongItsAxisBetweenItsLimits)
{
    // A slider whose axis, the joint's x, points up or down: falling takes it
    // to the lower or to the upper limit of (-0.3, 0.6).
    for (const bool up : {true, false}) {
        Scene scene;
        RigidBody* anchor = scene.anchor(V3f(0, 5, 0));
        RigidBody* slider = scene.add("slider", RigidBodyAttributes::Box, RigidBodyAttributes::Dynamic,
                                      V3f(0.1f, 0.1f, 0.1f), V3f(0, 5, 0));
        RigidBodyConstraintAttributes record;
        record.constraintType = RigidBodyConstraintAttributes::Prismatic;
        record.enableLimit = true;
        record.limit = Imath::V3d(-0.3, 0.6, 0);
        ASSERT_NE(join(scene.physics, record, anchor, slider, frameAt(V3f(0, 5, 0), about(V3f(0, 0, 1), up ? 90 : -90))),
                  nullptr);
        scene.run(2.0);
        EXPECT_NEAR(position(*slider).y, up ? 4.7f : 4.4f, 0.01f);
        EXPECT_NEAR(position(*slider).x, 0.0f, 0.01f) << "only along its axis";
        EXPECT_LT(degreesBetween(armDirection(*slider), V3f(1, 0, 0)), 0.5) << "does not turn";
    }
}

TEST(PhysicsConstraints, ADistanceJointKeepsItsAnchorsWithinItsRange)
{
    Scene scene;
    const V3f pivot(0, 5, 0);
    RigidBody* anchor = scene.add("anchor", RigidBodyAttributes::Sphere, RigidBodyAttributes::Static, V3f(0.05f, 0, 0),
                                  pivot);
    RigidBodyConstraintAttributes record;
    record.constraintType = RigidBodyConstraintAttributes::Distance;
    // By default the anchors are held together: a pendulum about the anchor point.
    RigidBody* pendulum = scene.add("pendulum", RigidBodyAttributes::Sphere, RigidBodyAttributes::Dynamic,
                                    V3f(0.1f, 0, 0), V3f(-1, 5, 0));
    ASSERT_NE(join(scene.physics, record, anchor, pendulum, frameAt(pivot)), nullptr);
    // The other joints hold the centre of a ball, 0.67 from the anchor at first.
    auto hangOn = [&](const RigidBodyConstraintAttributes& joint, const V3f& at) {
        RigidBody* ball = scene.add("ball", RigidBodyAttributes::Sphere, RigidBodyAttributes::Dynamic, V3f(0.1f, 0, 0), at);
        EXPECT_NE(join(scene.physics, joint, anchor, frameAt(pivot), ball, frameAt(at)), nullptr);
        return ball;
    };
    // A rope of 1: the ball falls freely until the rope is taut, then swings on it.
    record.maxDistance = 1.0;
    RigidBody* rope = hangOn(record, V3f(0.6f, 4.7f, 0));
    // A strut of at least 0.8 with no upper bound: the ball falls onto it.
    record.enableMaxDistance = false;
    record.enableMinDistance = true;
    record.minDistance = 0.8;
    RigidBody* strut = hangOn(record, V3f(0, 5.67f, 0));

    float ropeShortest = 10.0f, ropeLongest = 0.0f;
    for (int frame = 0; frame < 75; ++frame) {
        scene.physics.stepPhysics();
        EXPECT_NEAR((position(*pendulum) - pivot).length(), 1.0f, 0.05f);
        const float length = (position(*rope) - pivot).length();
        ropeShortest = std::min(ropeShortest, length);
        ropeLongest = std::max(ropeLongest, length);
    }
    EXPECT_LT(position(*pendulum).y, 4.5f) << "swung down";
    EXPECT_LT(ropeShortest, 0.7f) << "slack at first";
    EXPECT_NEAR(ropeLongest, 1.0f, 0.02f) << "never longer than the rope, in any direction";
    EXPECT_NEAR(position(*strut).y, 5.8f, 0.02f) << "rests on the strut";
}

TEST(PhysicsConstraints, ADistanceJointWithASpringGivesWayByItsStiffness)
{
    Scene scene;
    RigidBody* anchor = scene.add("anchor", RigidBodyAttributes::Sphere, RigidBodyAttributes::Static, V3f(0.05f, 0, 0),
                                  V3f(0, 5, 0));
    RigidBody* ball = scene.add("ball", RigidBodyAttributes::Sphere, RigidBodyAttributes::Dynamic, V3f(0.1f, 0, 0),
                                V3f(0, 4, 0));
    RigidBodyConstraintAttributes record;
    record.constraintType = RigidBodyConstraintAttributes::Distance;
    record.maxDistance = 1.0;
    record.spring.enable = true;
    record.spring.stiffness = 500.0;
    record.spring.damping = 50.0;
    ASSERT_NE(join(scene.physics, record, anchor, frameAt(V3f(0, 5, 0)), ball, frameAt(V3f(0, 4, 0))), nullptr);
    scene.run(3.0);
    const double mass = 4.0 / 3.0 * M_PI * 0.001 * 1000.0;
    EXPECT_NEAR(position(*ball).y, 4.0 - mass * kGravity / 500.0, 0.005);
}

TEST(PhysicsConstraints, D6AngularLimitsHoldBothWaysOnEachAxis)
{
    // A twist of (10, 50), and pyramid swings of (-20, 40) about y and (-35, 15)
    // about z. A drive turns the cube toward 80 degrees one way or the other
    // about one axis at a time: a limited axis stops at its limit, a free one
    // reaches the target, and the locked axes stay where they are.
    const Imath::V2d ranges[3] = {{10, 50}, {-20, 40}, {-35, 15}};
    for (int axis = 0; axis < 3; ++axis)
        for (int motion : {RigidBodyConstraintAttributes::Limit, RigidBodyConstraintAttributes::Free})
            for (double target : {80.0, -80.0}) {
                RigidBodyConstraintAttributes record;
                record.constraintType = RigidBodyConstraintAttributes::D6;
                record.motions[RigidBodyConstraintAttributes::AngularX + axis] = motion;
                record.enableTwistLimit = true;
                record.twistLimit = Imath::V3d(ranges[0].x, ranges[0].y, 0);
                record.enablePyramidLimit = true;
                record.pyramidYSwingLimit = Imath::V3d(ranges[1].x, ranges[1].y, 0);
                record.pyramidZSwingLimit = Imath::V3d(ranges[2].x, ranges[2].y, 0);
                Imath::V3d angles(0, 0, 0);
                angles[axis] = target * M_PI / 180.0;
                record.drivePose = Imath::M44d(Imath::Eulerd(angles).toMatrix44());
                auto& drive = record.drives[axis == 0 ? RigidBodyConstraintAttributes::DriveTwist
                                                      : RigidBodyConstraintAttributes::DriveSwing];
                drive.enable = true;
                drive.stiffness = 400.0f;
                drive.damping = 40.0f;
                TurningCube cube(record);
                ASSERT_NE(cube.joint, nullptr);
                cube.scene.run(3.0);

                const V3f reached = jointAngles(*cube.cube);
                const double expected = motion == RigidBodyConstraintAttributes::Free ? target
                                        : target > 0.0                                 ? ranges[axis].y
                                                                                       : ranges[axis].x;
                const std::string name = "axis " + std::to_string(axis) + (motion == 1 ? " limited" : " free") +
                                         " toward " + std::to_string(target);
                EXPECT_NEAR(reached[axis], expected, 3.0) << name;
                EXPECT_NEAR(reached[(axis + 1) % 3], 0.0f, 1.0f) << name;
                EXPECT_NEAR(reached[(axis + 2) % 3], 0.0f, 1.0f) << name;
                EXPECT_TRUE(position(*cube.cube).equalWithAbsError(V3f(1, 0, 0), 0.01f)) << name;
            }

    // A drive toward a velocity, with damping, turns the cube at that speed.
    RigidBodyConstraintAttributes record;
    record.constraintType = RigidBodyConstraintAttributes::D6;
    record.motions[RigidBodyConstraintAttributes::AngularX] = RigidBodyConstraintAttributes::Free;
    record.driveAngularVelocity = Imath::V3d(0.5, 0, 0);
    record.drives[RigidBodyConstraintAttributes::DriveTwist].enable = true;
    record.drives[RigidBodyConstraintAttributes::DriveTwist].damping = 1000.0f;
    TurningCube spinning(record);
    spinning.scene.run(1.0);
    EXPECT_NEAR(jointAngles(*spinning.cube).x, 0.5 * 180.0 / M_PI, 2.0);
    // Without damping a drive has no force, as in PhysX.
    record.drives[RigidBodyConstraintAttributes::DriveTwist].damping = 0.0f;
    TurningCube idle(record);
    idle.scene.run(1.0);
    EXPECT_NEAR(jointAngles(*idle.cube).x, 0.0f, 0.1f);
}

TEST(PhysicsConstraints, D6LinearLimitsSpringsAndDrives)
{
    using Record = RigidBodyConstraintAttributes;
    // A box of 8 kg hangs on a D6 joint that lets it move along y between -0.5 and 0.3.
    auto hang = [](bool spring) {
        Scene scene;
        RigidBody* anchor = scene.anchor(V3f(0, 3, 0));
        RigidBody* box = scene.add("box", RigidBodyAttributes::Box, RigidBodyAttributes::Dynamic, V3f(0.1f, 0.1f, 0.1f),
                                   V3f(0, 3, 0));
        Record record;
        record.constraintType = Record::D6;
        record.motions[Record::LinearY] = Record::Limit;
        record.linearLimits[1].enable = true;
        record.linearLimits[1].range = Imath::V2d(-0.5, 0.3);
        record.linearLimits[1].spring.enable = spring;
        record.linearLimits[1].spring.stiffness = 2000.0;
        record.linearLimits[1].spring.damping = 100.0;
        EXPECT_NE(join(scene.physics, record, anchor, box, frameAt(V3f(0, 3, 0))), nullptr);
        scene.run(3.0);
        EXPECT_NEAR(position(*box).x, 0.0f, 0.001f) << "locked across";
        return position(*box).y;
    };
    EXPECT_NEAR(hang(false), 2.5f, 0.005f) << "a hard limit";
    EXPECT_NEAR(hang(true), 2.5f - 8.0f * float(kGravity) / 2000.0f, 0.005f) << "a soft one gives way by m g / k";

    // Drives along x toward a position, and toward a velocity.
    Record record;
    record.constraintType = Record::D6;
    record.motions[Record::LinearX] = Record::Free;
    record.drivePose.setTranslation(Imath::V3d(0.3, 0, 0));
    record.drives[Record::DriveX].enable = true;
    record.drives[Record::DriveX].stiffness = 2000.0f;
    record.drives[Record::DriveX].damping = 1000.0f;
    TurningCube placed(record);
    placed.scene.run(2.0);
    EXPECT_TRUE(position(*placed.cube).equalWithAbsError(V3f(1.3f, 0, 0), 0.005f)) << position(*placed.cube);

    record.drivePose = Imath::M44d();
    record.drives[Record::DriveX].stiffness = 0.0f;
    record.drives[Record::DriveX].damping = 5000.0f;
    record.driveLinearVelocity = Imath::V3d(0.5, 0, 0);
    TurningCube pushed(record);
    pushed.scene.run(1.0);
    EXPECT_NEAR(position(*pushed.cube).x, 1.5f, 0.02f);
}

TEST(PhysicsScene, CollisionEnableAggregatesAndPools)
{
    Scene scene;
    scene.ground();
    const float r = 0.25f;
    auto stack = [&](float x, int aggregate, int pool) {
        RigidBodyAttributes record;
        record.type = RigidBodyAttributes::Sphere;
        record.dimension = V3f(r, 0, 0);
        record.collisionPool = pool;
        std::vector<RigidBody*> pair;
        for (float y : {r, 3 * r + 0.1f}) {
            record.translation = V3f(x, y, 0);
            pair.push_back(scene.physics.addRigidBody("ball", record, &scene.mesh, false));
            pair.back()->aggregate = aggregate;
        }
        return pair;
    };
    const auto passing = stack(0, 0, 0);
    const auto colliding = stack(2, -1, 0);
    // A ball in a pool of its own meets not even the ground.
    RigidBodyAttributes lonely;
    lonely.type = RigidBodyAttributes::Sphere;
    lonely.dimension = V3f(r, 0, 0);
    lonely.collisionPool = 7;
    lonely.translation = V3f(6, r, 0);
    RigidBody* sinking = scene.physics.addRigidBody("lonely", lonely, &scene.mesh, false);
    scene.physics.addAggregates({{0, {static_cast<int>(passing[0]->id), static_cast<int>(passing[1]->id)}}},
                                {{0, false}}, 0, false);
    scene.run(2.0);
    EXPECT_NEAR(position(*passing[1]).y, r, 0.02f) << "passed through its aggregate mate onto the ground";
    EXPECT_NEAR(position(*passing[0]).y, r, 0.02f);
    EXPECT_NEAR(position(*colliding[1]).y, 3 * r, 0.02f) << "rests on the lower ball";
    EXPECT_LT(position(*sinking).y, -1.0f) << "falls through the ground of another pool";

    // Joined bodies do not collide unless "enableCollision" says so.
    for (bool enable : {false, true}) {
        Scene joined;
        RigidBody* anchor = joined.add("anchor", RigidBodyAttributes::Sphere, RigidBodyAttributes::Static, V3f(r, 0, 0),
                                       V3f(0, 0, 0));
        RigidBody* ball = joined.add("ball", RigidBodyAttributes::Sphere, RigidBodyAttributes::Dynamic, V3f(r, 0, 0),
                                     V3f(0, 3 * r, 0));
        RigidBodyConstraintAttributes record;
        record.constraintType = RigidBodyConstraintAttributes::Prismatic;
        record.enableCollision = enable;
        join(joined.physics, record, anchor, ball, frameAt(V3f(0, 3 * r, 0), about(V3f(0, 0, 1), 90)));
        joined.run(1.0);
        if (enable)
            EXPECT_NEAR(position(*ball).y, 2 * r, 0.02f) << "stopped by the anchor";
        else
            EXPECT_LT(position(*ball).y, -1.0f) << "slides through the anchor";
    }
}

TEST(PhysicsRobustness, BadSizesAndMassesBuildNothingOrSomethingFinite)
{
    Scene scene;
    scene.ground();
    RigidBodyAttributes record;
    std::vector<RigidBody*> built;
    const V3f dimensions[] = {V3f(kNaN, 0.2f, 0.1f), V3f(kInfinity, 0.2f, 0.1f), V3f(-0.1f, -0.2f, -0.1f),
                              V3f(0.1f, 0.0f, 0.1f), V3f(0, 0, 0), V3f(1e-30f, 1e-30f, 1e-30f)};
    for (unsigned short type : {RigidBodyAttributes::Sphere, RigidBodyAttributes::Box, RigidBodyAttributes::Capsule})
        for (const V3f& dimension : dimensions) {
            record.type = type;
            record.dimension = dimension;
            record.translation = V3f(built.size() * 0.5f, 1, 0);
            RigidBody* body = scene.physics.addRigidBody("odd", record, &scene.mesh, false);
            EXPECT_EQ(body == nullptr, !finite(dimension)) << type;
            if (body)
                built.push_back(body);
        }
    record.dimension = V3f(0.1f, 0.2f, 0.1f);
    record.useMass = true;
    for (double mass : {-1.0, 0.0, double(kNaN), double(kInfinity)}) {
        record.mass = mass;
        EXPECT_EQ(scene.physics.addRigidBody("massless", record, &scene.mesh, false), nullptr) << mass;
    }
    record.useMass = false;
    record.density = -5.0;
    EXPECT_EQ(scene.physics.addRigidBody("negative", record, &scene.mesh, false), nullptr);
    record.density = 1000.0;
    record.translation = V3f(kNaN, 0, 0);
    EXPECT_EQ(scene.physics.addRigidBody("nowhere", record, &scene.mesh, false), nullptr);
    record.translation = V3f(0, 1, 0);
    record.rotation = Quatf(0, 0, 0, 0);
    EXPECT_EQ(scene.physics.addRigidBody("unturned", record, &scene.mesh, false), nullptr);
    record.type = RigidBodyAttributes::TriangleMesh;
    record.rotation = Quatf();
    EXPECT_EQ(scene.physics.addRigidBody("mesh", record, &scene.mesh, false), nullptr) << "mesh shapes take no part";

    // Two bodies at one spot, joined: the joint has nothing to hold apart.
    record.type = RigidBodyAttributes::Capsule;
    record.dimension = V3f(0.1f, 0.0f, 0.1f);
    RigidBody* a = scene.physics.addRigidBody("a", record, &scene.mesh, false);
    RigidBody* b = scene.physics.addRigidBody("b", record, &scene.mesh, false);
    RigidBodyConstraintAttributes joint;
    joint.constraintType = RigidBodyConstraintAttributes::D6;
    joint.motions.fill(RigidBodyConstraintAttributes::Limit);
    EXPECT_NE(join(scene.physics, joint, a, b, frameAt(V3f(0, 1, 0))), nullptr);
    EXPECT_EQ(join(scene.physics, joint, a, a, frameAt(V3f(0, 1, 0))), nullptr) << "no body joins itself";
    EXPECT_EQ(join(scene.physics, joint, nullptr, nullptr, frameAt(V3f(0, 1, 0))), nullptr);
    M44f broken = frameAt(V3f(0, 1, 0));
    broken[0][0] = kNaN;
    EXPECT_EQ(join(scene.physics, joint, a, b, broken), nullptr);
    joint.constraintType = 77;
    EXPECT_EQ(join(scene.physics, joint, a, b, frameAt(V3f(0, 1, 0))), nullptr) << "a type that names no joint";

    built.push_back(a);
    built.push_back(b);
    scene.run(100.0);
    for (RigidBody* body : built) {
        EXPECT_TRUE(finite(position(*body)));
        EXPECT_GT(position(*body).y, -0.05f) << "nothing sank through the ground";
    }
    EXPECT_TRUE(scene.physics.frozenBodies().empty());
}

TEST(PhysicsRobustness, ABodyThatTurnsNonFiniteIsFrozenAndReportedOnce)
{
    Scene scene;
    RigidBody* anchor = scene.anchor(V3f(0, 2, 0));
    RigidBody* box = scene.add("box", RigidBodyAttributes::Box, RigidBodyAttributes::Dynamic, V3f(0.1f, 0.1f, 0.1f),
                               V3f(0, 1, 0));
    RigidBody* neighbour = scene.add("neighbour", RigidBodyAttributes::Box, RigidBodyAttributes::Dynamic,
                                     V3f(0.1f, 0.1f, 0.1f), V3f(0, 0.5f, 0));
    RigidBodyConstraintAttributes record;
    join(scene.physics, record, anchor, box, frameAt(V3f(0, 2, 0)));
    join(scene.physics, record, box, neighbour, frameAt(V3f(0, 0.75f, 0)));
    scene.run(0.2);
    const V3f before = position(*box);

    btRigidBody* engineBody = btRigidBody::upcast(scene.physics.world()->getCollisionObjectArray()[1]);
    engineBody->setLinearVelocity(btVector3(kNaN, 0, 0));
    scene.run(2.0);
    // What the box was joined to may have caught its bad value in the same step.
    const std::vector<std::string>& frozen = scene.physics.frozenBodies();
    EXPECT_EQ(std::count(frozen.begin(), frozen.end(), "box"), 1) << "reported once";
    EXPECT_LE(std::count(frozen.begin(), frozen.end(), "neighbour"), 1);
    EXPECT_EQ(box->state, RigidBodyAttributes::Static) << "no longer read back";
    EXPECT_TRUE(position(*box).equalWithAbsError(before, 0.01f));
    EXPECT_TRUE(finite(position(*neighbour)));
}

TEST(PhysicsScene, RemovingABodyRemovesItsJointsAndReleaseDropsEverything)
{
    Scene scene;
    RigidBody* a = scene.add("a", RigidBodyAttributes::Box, RigidBodyAttributes::Dynamic, V3f(0.1f, 0.1f, 0.1f),
                             V3f(0, 1, 0));
    RigidBody* b = scene.add("b", RigidBodyAttributes::Box, RigidBodyAttributes::Dynamic, V3f(0.1f, 0.1f, 0.1f),
                             V3f(0, 2, 0));
    RigidBodyConstraintAttributes record;
    join(scene.physics, record, a, b, frameAt(V3f(0, 1.5f, 0)));
    join(scene.physics, record, nullptr, b, frameAt(V3f(0, 2, 0)));
    const unsigned long long removed = a->id;
    EXPECT_EQ(scene.physics.constraints().size(), 2u);
    scene.physics.removeRigidBody(removed);
    EXPECT_EQ(scene.physics.rigidBodies().count(removed), 0u);
    ASSERT_EQ(scene.physics.constraints().size(), 1u);
    EXPECT_EQ(scene.physics.constraints()[0]->parentId, 0u) << "the one to the world stays";
    scene.run(1.0);
    EXPECT_NEAR(position(*b).y, 2.0f, 0.01f) << "held by the world";

    EXPECT_TRUE(scene.physics.isInitialized());
    scene.physics.release();
    EXPECT_FALSE(scene.physics.isInitialized());
    EXPECT_TRUE(scene.physics.rigidBodies().empty());
    EXPECT_EQ(scene.add("late", RigidBodyAttributes::Box, RigidBodyAttributes::Dynamic, V3f(1, 1, 1), V3f(0, 0, 0)),
              nullptr);
    scene.physics.init();
    scene.physics.initScene();
    RigidBody* again = scene.add("again", RigidBodyAttributes::Box, RigidBodyAttributes::Dynamic, V3f(1, 1, 1), V3f(0, 0, 0));
    ASSERT_NE(again, nullptr);
    EXPECT_GT(again->id, removed) << "ids of an earlier run name no new body";
}
