#include "ConstraintNode.h"
#include "JointNode.h"
#include "MathUtils.h"
#include "RagdollFixture.h"
#include "RigidBodyNode.h"
#include "SceneState.h"
#include "SolverNode.h"
#include "ZentoSceneGraph.h"

#include <btBulletDynamicsCommon.h>
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <map>

using Imath::M44d;
using Imath::V3d;
using ZentoCore::NodePath;
using Zento::RigidBodyAttributes;
using Zento::RigidBodyConstraintAttributes;

namespace {

template <typename T>
void set(BaseNode& node, const std::string& key, const T& value)
{
    ASSERT_NE(node.attributes.typedEntry<T>(key), nullptr) << key;
    node.attributes.typedEntry<T>(key)->set(value);
}

// A scene graph with its solver, and helpers to hang nodes into it.
struct SimulationScene {
    SimulationScene()
    {
        graph.createSolver();
        solver = std::dynamic_pointer_cast<SolverNode>(graph.node("/Solver"));
    }

    template <typename Node>
    std::shared_ptr<Node> add(const std::string& path, const V3d& translation = V3d(0, 0, 0))
    {
        auto node = std::make_shared<Node>(NodePath(path));
        node->translation = translation;
        graph.addNode(node, NodePath(path).parentPath().string());
        return node;
    }

    std::shared_ptr<RigidBodyNode> body(const std::string& path, int type, int state, const V3d& dimension,
                                        const V3d& translation)
    {
        auto node = std::make_shared<RigidBodyNode>(NodePath(path));
        node->translation = translation;
        set(*node, "type", type);
        set(*node, "state", state);
        set(*node, "dimension", dimension);
        graph.addNode(node, NodePath(path).parentPath().string());
        return node;
    }

    void run(int frames)
    {
        for (int frame = 0; frame < frames; ++frame)
            graph.stepSimulation();
    }

    ZentoSceneGraph graph;
    std::shared_ptr<SolverNode> solver;
};

V3d worldPosition(const BaseNode& node)
{
    return node.worldMatrix().translation();
}

M44d rotationOnly(M44d m)
{
    m[3][0] = m[3][1] = m[3][2] = 0.0;
    return m;
}

} // namespace

TEST(Simulation, StopRestoresEveryBodyExactlyInItsEulerOrder)
{
    SimulationScene scene;
    scene.graph.createGround();
    scene.add<JointNode>("/Skeleton", V3d(0, 1, 0));
    auto body = scene.body("/Skeleton/a_RB", RigidBodyAttributes::Capsule, RigidBodyAttributes::Dynamic,
                           V3d(0.1, 0.3, 0.1), V3d(0.2, 1.5, -0.1));
    body->rotation = Imath::Eulerd(0.3, -0.7, 1.1, Imath::Eulerd::ZYX);
    auto child = scene.add<JointNode>("/Skeleton/a_RB/tip", V3d(0.4, 0, 0));
    scene.graph.updateMatrix(body->path);
    // Exact but for the last bits of the matrices pushed to the viewport.
    const SceneState before = capture(scene.graph);

    scene.graph.startSimulation();
    scene.graph.stopSimulation();
    expectSameScene(before, capture(scene.graph), "start and stop without a step", true, 1e-12);

    scene.graph.startSimulation();
    scene.run(100);
    EXPECT_LT(worldPosition(*body).y, 1.0) << "fell";
    EXPECT_FALSE(scene.graph.delegate().GetTransform(child->path).equalWithAbsError(
        before.nodes.at(child->path.string()).meshTransform, 1e-3))
        << "the child followed in the viewport";
    scene.graph.stopSimulation();
    expectSameScene(before, capture(scene.graph), "stopped", true, 1e-12);
    EXPECT_FALSE(scene.solver->physics.isInitialized());
}

TEST(Simulation, OnlyActiveDynamicBodiesMoveAndBodiesLeftOutJoinTheWorld)
{
    SimulationScene scene;
    scene.add<JointNode>("/Skeleton");
    const V3d box(0.2, 0.2, 0.2);
    auto fixed = scene.body("/Skeleton/s_RB", RigidBodyAttributes::Box, RigidBodyAttributes::Static, box, V3d(0, 2, 0));
    auto moved = scene.body("/Skeleton/k_RB", RigidBodyAttributes::Box, RigidBodyAttributes::Kinematic, box, V3d(2, 2, 0));
    auto inactive = scene.body("/Skeleton/i_RB", RigidBodyAttributes::Box, RigidBodyAttributes::Dynamic, box, V3d(4, 2, 0));
    set(*inactive, "active", false);
    // A convex mesh takes no part; the body below it is joined through it to the world.
    scene.add<JointNode>("/Skeleton/Arm", V3d(6, 2, 0));
    auto mesh = scene.body("/Skeleton/Arm/m_RB", RigidBodyAttributes::ConvexMesh, RigidBodyAttributes::Dynamic, box,
                           V3d(0, 0, 0));
    scene.add<JointNode>("/Skeleton/Arm/Hand", V3d(0.5, 0, 0));
    auto hanging = scene.body("/Skeleton/Arm/Hand/h_RB", RigidBodyAttributes::Box, RigidBodyAttributes::Dynamic, box,
                              V3d(0.3, 0, 0));
    scene.add<ConstraintNode>("/Skeleton/Arm/Hand/h_RBC");

    scene.graph.startSimulation();
    scene.run(50);
    EXPECT_EQ(fixed->translation, V3d(0, 2, 0));
    EXPECT_EQ(moved->translation, V3d(2, 2, 0));
    EXPECT_EQ(inactive->translation, V3d(4, 2, 0));
    EXPECT_EQ(scene.solver->bodyOf(*inactive), nullptr);
    EXPECT_EQ(scene.solver->bodyOf(*mesh), nullptr);
    EXPECT_EQ(scene.solver->bodies.size(), 3u);
    ASSERT_EQ(scene.solver->physics.constraints().size(), 1u);
    EXPECT_EQ(scene.solver->physics.constraints()[0]->name, "h_RBC");
    EXPECT_TRUE(worldPosition(*hanging).equalWithAbsError(V3d(6.8, 2, 0), 0.01)) << "held by the world, not fallen";
    scene.graph.stopSimulation();
}

TEST(Simulation, SolverAttributesReachThePhysics)
{
    SimulationScene scene;
    auto ball = scene.body("/ball_RB", RigidBodyAttributes::Sphere, RigidBodyAttributes::Dynamic, V3d(0.2, 0, 0),
                           V3d(0, 1, 0));
    scene.graph.createGround();
    const btContactSolverInfo defaults;
    set(*scene.solver, "solverOffsetSlope", 0.01);
    set(*scene.solver, "bounceThresholdVelocity", 0.5);
    scene.graph.startSimulation();
    EXPECT_EQ(scene.solver->physics.world()->getSolverInfo().m_linearSlop, defaults.m_linearSlop)
        << "no override, no effect";
    EXPECT_EQ(scene.solver->physics.world()->getConstraintSolver()->getSolverType(), BT_SEQUENTIAL_IMPULSE_SOLVER);

    set(*scene.solver, "solverOffsetSlopeOverride", true);
    set(*scene.solver, "bounceThresholdVelocityOverride", true);
    set(*scene.solver, "gravity", V3d(0, 0, 0));
    set(*scene.solver, "solverType", 1);
    scene.graph.startSimulation();
    const btContactSolverInfo& info = scene.solver->physics.world()->getSolverInfo();
    EXPECT_FLOAT_EQ(info.m_linearSlop, 0.01f);
    EXPECT_FLOAT_EQ(info.m_restitutionVelocityThreshold, 0.5f);
    EXPECT_EQ(scene.solver->physics.world()->getConstraintSolver()->getSolverType(), BT_NNCG_SOLVER) << "TGS";
    scene.run(10);
    EXPECT_EQ(ball->translation, V3d(0, 1, 0)) << "no gravity";
    scene.graph.stopSimulation();

    // Turning an override off again brings the engine's own value back.
    set(*scene.solver, "solverOffsetSlopeOverride", false);
    set(*scene.solver, "bounceThresholdVelocityOverride", false);
    scene.graph.startSimulation();
    EXPECT_EQ(scene.solver->physics.world()->getSolverInfo().m_linearSlop, defaults.m_linearSlop);
    EXPECT_EQ(scene.solver->physics.world()->getSolverInfo().m_restitutionVelocityThreshold,
              defaults.m_restitutionVelocityThreshold);
    scene.graph.stopSimulation();
}

TEST(Simulation, GrabDragAndReleaseMoveABodyThroughADragBody)
{
    SimulationScene scene;
    scene.graph.createGround();
    auto ball = scene.body("/ball_RB", RigidBodyAttributes::Sphere, RigidBodyAttributes::Dynamic, V3d(0.2, 0, 0),
                           V3d(0, 0.2, 0));
    auto joint = scene.add<JointNode>("/Skeleton");
    scene.graph.setSelection({"/Skeleton", "/ball_RB"});
    scene.graph.releaseBody();
    scene.graph.startSimulation();
    EXPECT_TRUE(scene.graph.simulating);
    EXPECT_TRUE(scene.graph.selectedPaths().empty()) << "nothing stays selected while it runs";
    scene.run(5);
    auto& bodies = scene.solver->physics.rigidBodies();
    const size_t before = bodies.size();

    scene.solver->grab(*joint, Imath::V3f(0, 0.2f, 0));
    EXPECT_EQ(scene.solver->dragBodyHandle, nullptr) << "no body, no drag";
    scene.graph.grabBody("/Nowhere", Imath::V3f(0, 0.2f, 0));
    EXPECT_EQ(scene.solver->dragBodyHandle, nullptr);
    scene.graph.grabBody("/ball_RB", Imath::V3f(0, 0.3f, 0));
    ASSERT_NE(scene.solver->dragBodyHandle, nullptr);
    ASSERT_NE(scene.solver->dragConstraint, nullptr);
    EXPECT_EQ(bodies.size(), before + 1);
    for (int frame = 1; frame <= 25; ++frame) {
        scene.graph.dragBody(Imath::V3f(0.04f * frame, 0.3f + 0.06f * frame, 0));
        scene.graph.stepSimulation();
    }
    scene.run(25);
    // The grab point, 0.1 above the centre, hangs at the drag point.
    EXPECT_TRUE(worldPosition(*ball).equalWithAbsError(V3d(1.0, 1.7, 0), 0.1)) << worldPosition(*ball);
    scene.graph.releaseBody();
    EXPECT_EQ(scene.solver->dragBodyHandle, nullptr);
    EXPECT_EQ(bodies.size(), before);
    EXPECT_TRUE(scene.solver->physics.constraints().empty());
    scene.run(50);
    EXPECT_NEAR(worldPosition(*ball).y, 0.2, 0.01) << "falls back once released";
    scene.graph.stopSimulation();
    EXPECT_FALSE(scene.graph.simulating);

    // A scene that has lost its solver runs nothing and breaks nothing.
    ZentoSceneGraph bare;
    bare.startSimulation();
    bare.stepSimulation();
    bare.grabBody("/ball_RB", Imath::V3f(0, 0, 0));
    bare.dragBody(Imath::V3f(1, 1, 1));
    bare.releaseBody();
    bare.stopSimulation();
    EXPECT_FALSE(bare.simulating);
}

namespace {

struct Limb {
    std::shared_ptr<BaseNode> parentBody;
    std::shared_ptr<BaseNode> childBody;
    M44d parentFrame;
    M44d childFrame;
};

constexpr double kTwistLower = -15.0, kTwistUpper = 25.0, kSwing = 35.0;

} // namespace

TEST(Simulation, ACapsuleRagdollOnABvhSkeletonComesToRestWithinItsLimits)
{
    // The skeleton of a motion capture file, whose units are about 5.6 cm,
    // which the scene scale turns into metres.
    constexpr double kScale = 0.056;
    SimulationScene scene;
    set(*scene.solver, "sceneScale", kScale);
    scene.graph.createGround();
    ASSERT_FALSE(CharacterImport::loadSkeleton(scene.graph, RagdollFixture::kSkeletonFile).empty());

    // A capsule along each bone of some length, to its longest child, and a
    // D6 constraint at the bone's start with its x along the bone. The hips,
    // whose bones start at the hips, are a ball. The ragdoll is aggregate 0,
    // without self collision, and more solver iterations hold its limits.
    std::vector<std::shared_ptr<BaseNode>> joints;
    for (const auto& entry : scene.graph.nodes)
        if (entry.second->typeId() == JointNode::kTypeId)
            joints.push_back(entry.second);
    std::vector<std::shared_ptr<BaseNode>> bodies;
    for (const auto& joint : joints) {
        const BaseNode* longest = nullptr;
        for (const BaseNode* child : joint->children)
            if (!longest || child->translation.length() > longest->translation.length())
                longest = child;
        const bool hips = !joint->parent;
        if (!hips && (!longest || longest->translation.length() < 1.5))
            continue;
        const V3d bone = hips ? V3d(0, 0, 0) : longest->translation;
        const double radius = hips ? 1.5 : std::max(0.5, 0.12 * bone.length());
        const std::string name = joint->path.string() + "/" + joint->path.name();
        auto body = scene.body(name + "_RB", hips ? RigidBodyAttributes::Sphere : RigidBodyAttributes::Capsule,
                               RigidBodyAttributes::Dynamic,
                               V3d(radius, std::max(0.0, 0.5 * bone.length() - radius), radius), 0.5 * bone);
        set(*body, "aggregate", 0);
        set(*body, "solverIteratorCount", 16);
        bodies.push_back(body);
        if (hips)
            continue;
        body->rotation = RagdollFixture::alongX(bone);
        auto constraint = scene.add<ConstraintNode>(name + "_RBC");
        constraint->rotation = body->rotation;
        set(*constraint, "constraintType", int(RigidBodyConstraintAttributes::D6));
        for (const char* key : {"angularMotionX", "angularMotionY", "angularMotionZ"})
            set(*constraint, key, int(RigidBodyConstraintAttributes::Limit));
        set(*constraint, "enableTwistLimit", true);
        set(*constraint, "twistLimit", V3d(kTwistLower, kTwistUpper, 0));
        set(*constraint, "enableSwingLimit", true);
        set(*constraint, "swingLimit", V3d(kSwing, kSwing, 0));
    }
    ASSERT_GE(bodies.size(), 15u);

    // Lift the skeleton clear of the ground and tip it over.
    BaseNode& root = *scene.graph.node("/Skeleton/Hips");
    double lowest = 0.0;
    for (const auto& joint : joints)
        lowest = std::min(lowest, worldPosition(*joint).y);
    root.translation.y += 3.0 - lowest;
    root.rotation = Imath::Eulerd(0.0, 0.5, 0.4);
    scene.graph.updateMatrix(root.path);

    // Each constraint's frame relative to its two bodies, found as the solver finds them.
    std::vector<Limb> limbs;
    for (const auto& entry : scene.graph.nodes) {
        const BaseNode& constraint = *entry.second;
        if (constraint.typeId() != ConstraintNode::kTypeId)
            continue;
        Limb limb;
        for (const BaseNode* up = constraint.parent->parent; up && !limb.parentBody; up = up->parent)
            for (const BaseNode* child : up->children)
                if (!limb.parentBody && child->typeId() == RigidBodyNode::kTypeId)
                    limb.parentBody = scene.graph.nodeByPath(child->path);
        for (const BaseNode* child : constraint.parent->children)
            if (child->typeId() == RigidBodyNode::kTypeId)
                limb.childBody = scene.graph.nodeByPath(child->path);
        if (!limb.parentBody)
            continue;
        limb.parentFrame = constraint.worldMatrix() * ZentoCore::matrixInverse(limb.parentBody->worldMatrix());
        limb.childFrame = constraint.worldMatrix() * ZentoCore::matrixInverse(limb.childBody->worldMatrix());
        limbs.push_back(limb);
    }
    EXPECT_EQ(limbs.size() + 1, bodies.size()) << "every body but the root's is joined";

    const SceneState before = capture(scene.graph);
    scene.graph.startSimulation();
    ASSERT_EQ(scene.solver->physics.constraints().size(), limbs.size());
    std::vector<V3d> lastSecond;
    constexpr int kFrames = 250;
    for (int frame = 1; frame <= kFrames; ++frame) {
        scene.graph.stepSimulation();
        if (frame == kFrames - 25)
            for (const auto& body : bodies)
                lastSecond.push_back(worldPosition(*body));
    }

    for (size_t i = 0; i < bodies.size(); ++i) {
        const BaseNode& body = *bodies[i];
        const V3d moved = worldPosition(body) - lastSecond[i];
        EXPECT_LT(moved.length() * kScale, 0.02) << body.path.string() << " still moves";
        // The capsule's two ends, less its radius, are not below the ground.
        const auto dimension = body.attributes.typedEntry<V3d>("dimension")->get();
        for (double end : {-dimension.y, dimension.y}) {
            V3d tip;
            body.worldMatrix().multVecMatrix(V3d(end, 0, 0), tip);
            EXPECT_GT((tip.y - dimension.x) * kScale, -0.02) << body.path.string();
        }
    }
    EXPECT_LT(worldPosition(*bodies.front()).y * kScale, 0.5) << "the hips lie on the ground";

    // Euler angles x, y, z in turn: twist first, then the two swings.
    constexpr double kTolerance = 3.0;
    for (const Limb& limb : limbs) {
        const M44d parent = rotationOnly(limb.parentFrame * limb.parentBody->worldMatrix());
        const M44d child = rotationOnly(limb.childFrame * limb.childBody->worldMatrix());
        const Imath::Eulerd angles(child * parent.transposed(), Imath::Eulerd::XYZ);
        const V3d degrees = V3d(angles) * (180.0 / M_PI);
        const std::string name = limb.childBody->path.string();
        EXPECT_GT(degrees.x, kTwistLower - kTolerance) << name;
        EXPECT_LT(degrees.x, kTwistUpper + kTolerance) << name;
        EXPECT_LT(std::abs(degrees.y), kSwing + kTolerance) << name;
        EXPECT_LT(std::abs(degrees.z), kSwing + kTolerance) << name;
    }
    EXPECT_TRUE(scene.solver->physics.frozenBodies().empty());

    scene.graph.stopSimulation();
    expectSameScene(before, capture(scene.graph), "stopped", true, 1e-12);
}

TEST(Simulation, ASleepingBodyFollowsTheDragAndFallsWhenReleased)
{
    SimulationScene scene;
    scene.graph.createGround();
    auto ball = scene.body("/ball_RB", RigidBodyAttributes::Sphere, RigidBodyAttributes::Dynamic, V3d(0.2, 0, 0),
                           V3d(0, 0.2, 0));
    scene.graph.startSimulation();
    scene.run(100);
    const btCollisionObject& engineBall = *scene.solver->physics.world()->getCollisionObjectArray()[1];
    ASSERT_EQ(engineBall.getActivationState(), ISLAND_SLEEPING) << "at rest long enough to sleep";

    scene.solver->grab(*ball, Imath::V3f(0, 0.4f, 0));
    scene.run(100);
    ASSERT_EQ(engineBall.getActivationState(), ISLAND_SLEEPING) << "held still long enough to sleep again";
    scene.solver->drag(Imath::V3f(1, 1.4f, 0));
    scene.run(25);
    EXPECT_TRUE(worldPosition(*ball).equalWithAbsError(V3d(1, 1.2, 0), 0.05)) << worldPosition(*ball);
    scene.solver->release();
    scene.run(50);
    EXPECT_NEAR(worldPosition(*ball).y, 0.2, 0.01) << "fell back once released";
    scene.graph.stopSimulation();
}

TEST(Simulation, HostileValuesNeitherCrashNorReachTheNodes)
{
    constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
    constexpr double kInfinity = std::numeric_limits<double>::infinity();
    SimulationScene scene;
    scene.graph.createGround();
    scene.add<JointNode>("/Skeleton", V3d(0, 1, 0));
    // Bodies with broken sizes, places and masses, each with a constraint to the one above.
    const V3d box(0.1, 0.2, 0.1);
    auto add = [&](const std::string& name, int type, const V3d& dimension, const V3d& at) {
        scene.add<JointNode>("/Skeleton/" + name, V3d(0, 0, 0));
        auto body = scene.body("/Skeleton/" + name + "/" + name + "_RB", type, RigidBodyAttributes::Dynamic, dimension, at);
        scene.add<ConstraintNode>("/Skeleton/" + name + "/" + name + "_RBC");
        return body;
    };
    add("nan", RigidBodyAttributes::Box, V3d(kNaN, 0.2, 0.1), V3d(0, 1, 0));
    add("infinite", RigidBodyAttributes::Capsule, V3d(kInfinity, 0.2, 0.1), V3d(0.5, 1, 0));
    add("negative", RigidBodyAttributes::Box, V3d(-0.1, -0.2, -0.1), V3d(1, 1, 0));
    add("pointCapsule", RigidBodyAttributes::Capsule, V3d(0.1, 0, 0.1), V3d(1.5, 1, 0));
    add("flat", RigidBodyAttributes::Sphere, V3d(0, 0, 0), V3d(2, 1, 0));
    auto nowhere = add("nowhere", RigidBodyAttributes::Box, box, V3d(kNaN, 1, 0));
    auto heavy = add("massless", RigidBodyAttributes::Box, box, V3d(2.5, 1, 0));
    set(*heavy, "useMass", true);
    set(*heavy, "mass", -3.0);
    auto dense = add("dense", RigidBodyAttributes::Box, box, V3d(3, 1, 0));
    set(*dense, "density", kInfinity);
    auto crushed = add("crushed", RigidBodyAttributes::Box, box, V3d(3.5, 1, 0));
    crushed->scale = V3d(0, 1, 1);
    // Two bodies on one spot, joined, and a constraint turned by NaN.
    auto twinA = add("twinA", RigidBodyAttributes::Box, box, V3d(4, 1, 0));
    scene.add<JointNode>("/Skeleton/twinA/twinB", V3d(0, 0, 0));
    scene.body("/Skeleton/twinA/twinB/twinB_RB", RigidBodyAttributes::Box, RigidBodyAttributes::Dynamic, box,
               V3d(4, 1, 0));
    scene.add<ConstraintNode>("/Skeleton/twinA/twinB/twinB_RBC")->rotation = Imath::Eulerd(kNaN, 0, 0);
    // Settings that make no sense.
    set(*scene.solver, "gravity", V3d(kNaN, kInfinity, 0));
    set(*scene.solver, "sceneScale", 0.0);
    set(*scene.solver, "solverOffsetSlopeOverride", true);
    set(*scene.solver, "solverOffsetSlope", kNaN);
    set(*scene.solver, "subSamples", -4);
    set(*scene.solver, "solverType", 9);
    for (auto& entry : scene.graph.nodes)
        if (entry.second->typeId() == RigidBodyNode::kTypeId)
            set(*entry.second, "solverIteratorCount", 1 << 30);

    std::map<std::string, std::pair<V3d, Imath::Eulerd>> before;
    for (const auto& entry : scene.graph.nodes)
        before[entry.first.string()] = {entry.second->translation, entry.second->rotation};

    scene.graph.startSimulation();
    EXPECT_EQ(scene.solver->bodyOf(*nowhere), nullptr) << "no body without a place";
    EXPECT_EQ(scene.solver->bodyOf(*heavy), nullptr) << "no body without a mass";
    EXPECT_EQ(scene.solver->bodyOf(*dense), nullptr);
    EXPECT_EQ(scene.solver->bodyOf(*crushed), nullptr) << "no body without a size";
    EXPECT_EQ(scene.solver->physics.solverIterations(), 255);
    scene.run(2000);
    for (const auto& entry : scene.graph.nodes) {
        const BaseNode& node = *entry.second;
        const V3d rotation(node.rotation);
        EXPECT_TRUE(std::isfinite(node.translation.length()) || !std::isfinite(before[entry.first.string()].first.length()))
            << entry.first.string();
        EXPECT_TRUE(std::isfinite(rotation.length()) || !std::isfinite(V3d(before[entry.first.string()].second).length()))
            << entry.first.string();
    }
    scene.graph.stopSimulation();
    for (const auto& entry : scene.graph.nodes) {
        const auto& [translation, rotation] = before[entry.first.string()];
        EXPECT_TRUE(entry.second->translation == translation || !std::isfinite(translation.x)) << entry.first.string();
        EXPECT_TRUE(V3d(entry.second->rotation) == V3d(rotation) || !std::isfinite(rotation.x)) << entry.first.string();
    }

    // Thousands of sub-steps a frame are held to a number that keeps a frame short.
    set(*scene.solver, "subSamples", 1 << 30);
    scene.graph.startSimulation();
    scene.run(2);
    EXPECT_TRUE(scene.solver->physics.isInitialized());
    scene.graph.stopSimulation();
}
