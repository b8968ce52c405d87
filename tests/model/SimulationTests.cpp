#include "ConstraintNode.h"
#include "JointNode.h"
#include "MathUtils.h"
#include "RagdollFixture.h"
#include "RagdollScene.h"
#include "RigidBodyNode.h"
#include "SceneState.h"
#include "SolverNode.h"
#include "ZentoSceneGraph.h"

#include <btBulletDynamicsCommon.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <map>

using Imath::M44d;
using Imath::V3d;
using ZentoCore::NodePath;
using Zento::RigidBodyAttributes;
using Zento::RigidBodyConstraintAttributes;
using Zento::ZentoPhysx;

namespace {

template <typename T>
void set(BaseNode& node, const std::string& key, const T& value)
{
    ASSERT_NE(node.attributes.typedEntry<T>(key), nullptr) << key;
    node.attributes.typedEntry<T>(key)->set(value);
}

// A scene graph with its solver, and helpers to hang nodes into it.
struct SimulationScene : SolverScene {
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
};

V3d worldPosition(const BaseNode& node)
{
    return node.worldMatrix().translation();
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
    EXPECT_EQ(scene.solver->physics.solverIterations(), 16) << "PGS: four for each of the body's iterations";

    set(*scene.solver, "solverOffsetSlopeOverride", true);
    set(*scene.solver, "bounceThresholdVelocityOverride", true);
    set(*scene.solver, "gravity", V3d(0, 0, 0));
    set(*scene.solver, "solverType", 1);
    scene.graph.startSimulation();
    const btContactSolverInfo& info = scene.solver->physics.world()->getSolverInfo();
    EXPECT_FLOAT_EQ(info.m_linearSlop, 0.01f);
    EXPECT_FLOAT_EQ(info.m_restitutionVelocityThreshold, 0.5f);
    EXPECT_EQ(scene.solver->physics.solverIterations(), 4) << "TGS: a quarter of the iterations, four times the steps";
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

constexpr int kFps = 25;
constexpr double kFastest = 50.0;

} // namespace

TEST(Simulation, AHumanRagdollDroppedInAnyOrientationFallsAsleepStillAndWithinItsLimits)
{
    const Imath::Eulerd turns[] = {{0, 0, 0}, {M_PI / 2, 0, 0.3}, {-M_PI / 2, 0.4, 0}, {0.2, 0.3, M_PI / 2}};
    for (int type : {ZentoPhysx::PGS, ZentoPhysx::TGS})
        for (const Imath::Eulerd& turn : turns) {
            RagdollScene ragdoll(1, type);
            ragdoll.place(0, turn, 0.5);
            ragdoll.start();
            const std::string name = "solver type " + std::to_string(type) + ", turn " + std::to_string(V3d(turn).x);
            // Falls 0.5 m in a third of a second, then has 5 s to fall asleep.
            double fastest = 0.0;
            int frame = 1;
            for (; frame <= kFps && ragdoll.depths().first > 0.01; ++frame) {
                ragdoll.graph.stepSimulation();
                fastest = std::max(fastest, ragdoll.fastest());
            }
            for (const int landed = frame; frame < landed + 5 * kFps; ++frame) {
                ragdoll.graph.stepSimulation();
                fastest = std::max(fastest, ragdoll.fastest());
            }
            EXPECT_TRUE(ragdoll.asleep()) << name;
            const std::vector<V3d> asleep = ragdoll.positions();
            ragdoll.run(4 * kFps);
            const std::vector<V3d> after = ragdoll.positions();
            for (size_t body = 0; body < after.size(); ++body)
                EXPECT_LE((after[body] - asleep[body]).length() * ragdoll.scale, 0.005) << name;
            const RagdollScene::Worst worst = ragdoll.worst();
            EXPECT_LE(worst.beyond, 2.0) << name;
            EXPECT_LE(worst.apart, 0.01) << name;
            EXPECT_LE(fastest, kFastest) << name;
            EXPECT_GT(ragdoll.depths().first, -0.01) << name << ": on the ground, not in it";
        }
}

TEST(Simulation, AHandDraggedFastPullsItsRagdollAlongAndItsJointsHold)
{
    // The joints' worst while the hand (0.8 g, on a forearm of 140 g) is
    // dragged and held, down to the thumbs and fingers of 0.4 to 2 g: within
    // 15 degrees and 2 cm with either solver.
    for (const int type : {ZentoPhysx::PGS, ZentoPhysx::TGS}) {
        RagdollScene ragdoll(1, type);
        ragdoll.place(0, Imath::Eulerd(M_PI / 2, 0, 0.3), 0.5);
        ragdoll.start();
        ragdoll.run(4 * kFps);
        const auto hand = std::find_if(ragdoll.ragdolls.front().bodies.begin(), ragdoll.ragdolls.front().bodies.end(),
                                       [](const auto& body) { return body->path.name() == "RightFingerBase_RB"; });
        ASSERT_NE(hand, ragdoll.ragdolls.front().bodies.end());
        const V3d start = worldPosition(**hand);
        ragdoll.graph.grabBody((*hand)->path.string(), Imath::V3f(start));

        // 3 m up and aside at 10 m/s, 0.4 m a frame; held 2 s; released for 2 s.
        const V3d step = V3d(0.6, 0.8, 0.0) * (0.4 / ragdoll.scale);
        RagdollScene::Worst worst;
        double fastest = 0.0;
        constexpr double kSteps = 7.5;
        for (int frame = 1; frame <= 3 * kFps; ++frame) {
            ragdoll.graph.dragBody(Imath::V3f(start + step * std::min(double(frame), kSteps)));
            ragdoll.graph.stepSimulation();
            worst.include(ragdoll.worst());
            fastest = std::max(fastest, ragdoll.fastest());
        }
        const double held = (worldPosition(**hand) - (start + step * kSteps)).length() * ragdoll.scale;
        ragdoll.graph.releaseBody();
        for (int frame = 1; frame <= 2 * kFps; ++frame) {
            ragdoll.graph.stepSimulation();
            fastest = std::max(fastest, ragdoll.fastest());
        }
        const std::string name = "solver type " + std::to_string(type);
        EXPECT_LE(held, 0.3) << name << ": the hand hangs near the cursor";
        EXPECT_LE(worst.beyond, 15.0) << name;
        EXPECT_LE(worst.apart, 0.02) << name;
        EXPECT_LE(ragdoll.worst().beyond, 3.0) << name;
        EXPECT_LE(ragdoll.worst().apart, 0.01) << name;
        EXPECT_LE(fastest, kFastest) << name;
    }
}

namespace {

// Eight ragdolls dropped into a pile, two layers of what the benchmark piles
// eight high, left for 12 s: as many impacts at a fourth of the cost.
struct Pile {
    Pile(int type, RagdollScene::Build build) : scene(8, type, build)
    {
        scene.placeAsPile();
        scene.start();
        for (int frame = 1; frame <= 12 * kFps; ++frame) {
            scene.graph.stepSimulation();
            fastest = std::max(fastest, scene.fastest());
            const auto [lowest, lowestTop] = scene.depths();
            deepest = std::min(deepest, lowest);
            sunk = std::min(sunk, lowestTop);
        }
    }

    // What holds of any pile: none flies off, ends in the ground, apart or past its limits, or awake.
    void expectAtRest(const std::string& name) const
    {
        EXPECT_LE(fastest, kFastest) << name;
        EXPECT_GT(scene.depths().first, -0.02) << name << ": all on the ground at the end, none in it";
        EXPECT_LE(scene.worst().apart, 0.02) << name;
        EXPECT_LE(scene.worst().beyond, 5.0) << name;
        EXPECT_TRUE(scene.asleep()) << name;
    }

    RagdollScene scene;
    // Over all frames: metres per second, and metres above the ground of
    // the lowest point of any body and of the lowest top.
    double fastest = 0.0;
    double deepest = 1e300;
    double sunk = 1e300;
};

} // namespace

TEST(Simulation, RagdollsDroppedIntoAPileEndAtRestWithinTheirLimits)
{
    for (const int type : {ZentoPhysx::PGS, ZentoPhysx::TGS}) {
        const Pile pile(type, RagdollScene::Build::Fixture);
        const std::string name = "solver type " + std::to_string(type);
        pile.expectAtRest(name);
        // A toe or fingertip of a few grams that a leg lands on sinks for a
        // few frames, never wholly more than 2 cm under the ground.
        EXPECT_GT(pile.sunk, -0.02) << name;
    }
}

TEST(Simulation, RagdollsAsZentoRigBuildsThemPileUpWithoutSinkingIntoTheGround)
{
    for (const int type : {ZentoPhysx::PGS, ZentoPhysx::TGS}) {
        const Pile pile(type, RagdollScene::Build::Rig);
        const std::string name = "solver type " + std::to_string(type);
        pile.expectAtRest(name);
        // With no body more than ten times the mass of one it is joined to,
        // no impact drives any body more than 2 cm into the ground.
        EXPECT_GT(pile.sunk, 0.0) << name << ": a body wholly under the ground";
        EXPECT_GT(pile.deepest, -0.02) << name;
    }
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
    scene.run(50);
    // The grabbed point, the ball's top, follows; the ball may swing about it.
    V3d grabbed;
    ball->worldMatrix().multVecMatrix(V3d(0, 0.2, 0), grabbed);
    EXPECT_TRUE(grabbed.equalWithAbsError(V3d(1, 1.4, 0), 0.05)) << grabbed;
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
    EXPECT_EQ(scene.solver->physics.solverIterations(), 4 * 255);
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
