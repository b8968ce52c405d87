// Ragdolls of 20 bodies and 19 D6 constraints falling onto one ground, at 25
// frames a second in 10 sub-steps: the graph's stepSimulation, that is the
// physics and the write-back of every dynamic body into its node with the
// matrices pushed, against raw Bullet stepping the same world, built by hand
// from the same nodes with Bullet alone, in the same run.
//
// Crowd scaling: for 1, 8, 32 and 128 ragdolls side by side, the median
// milliseconds of one frame over their first two seconds (the fall, the
// landing and the settling), of the graph and of raw Bullet, their ratio,
// and the write-back alone; then the largest crowd whose frame fits in 33 ms.
// The worlds are compared too: how far their bodies lie apart after the
// first frames shows that they are the same world. Then the ragdoll check's
// drop test of the one ragdoll, whose bodies never sleep, so that it runs
// its whole five seconds. Last, with each solver type, 32 ragdolls of the
// simulation tests dropped into a pile: how deep, how fast and how far out
// of their joints they go over 12 s, where they end and when they sleep.
// Prints one figure a line.

#include "ConstraintNode.h"
#include "JointNode.h"
#include "JointSolver.h"
#include "MathUtils.h"
#include "RagdollCheck.h"
#include "RagdollFixture.h"
#include "RagdollScene.h"
#include "RigidBodyNode.h"
#include "SolverNode.h"
#include "ZentoPhysx.h"
#include "ZentoSceneGraph.h"

#include <BulletDynamics/ConstraintSolver/btGeneric6DofSpring2Constraint.h>
#include <Imath/ImathMatrixAlgo.h>
#include <btBulletDynamicsCommon.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

using Imath::V3d;
using ZentoCore::NodePath;

namespace {

constexpr int kFrames = 50;
constexpr int kRounds = 4;
constexpr int kSubSteps = 10;
constexpr double kFrameTime = 1.0 / 25.0;
constexpr double kFrameBudgetMs = 33.0;
constexpr double kBodyRadius = 0.05;
constexpr double kTwist = 30.0, kSwing = 40.0;
// Ragdolls stand this far apart, in metres, so that each falls on its own.
constexpr double kSpacing = 2.5;
const int kCrowds[] = {1, 8, 32, 128};

template <typename T>
void set(BaseNode& node, const std::string& key, const T& value)
{
    node.attributes.typedEntry<T>(key)->set(value);
}

// A joint below its parent, at an offset from it, and where its bone ends.
struct Bone {
    const char* name;
    const char* parent;
    V3d offset;
    V3d end;
};

// Pelvis, spine, neck and head; a clavicle, arm and hand on each side; a leg and foot on each side.
const Bone kBones[] = {
    {"Pelvis", nullptr, {0, 1.0, 0}, {0, 0.12, 0}},
    {"Spine1", "Pelvis", {0, 0.12, 0}, {0, 0.12, 0}},
    {"Spine2", "Spine1", {0, 0.12, 0}, {0, 0.12, 0}},
    {"Chest", "Spine2", {0, 0.12, 0}, {0, 0.15, 0}},
    {"Neck", "Chest", {0, 0.15, 0}, {0, 0.1, 0}},
    {"Head", "Neck", {0, 0.1, 0}, {0, 0.2, 0}},
    {"ClavicleL", "Chest", {0.05, 0.1, 0}, {0.15, 0, 0}},
    {"UpperArmL", "ClavicleL", {0.15, 0, 0}, {0.28, 0, 0}},
    {"ForearmL", "UpperArmL", {0.28, 0, 0}, {0.25, 0, 0}},
    {"HandL", "ForearmL", {0.25, 0, 0}, {0.1, 0, 0}},
    {"ClavicleR", "Chest", {-0.05, 0.1, 0}, {-0.15, 0, 0}},
    {"UpperArmR", "ClavicleR", {-0.15, 0, 0}, {-0.28, 0, 0}},
    {"ForearmR", "UpperArmR", {-0.28, 0, 0}, {-0.25, 0, 0}},
    {"HandR", "ForearmR", {-0.25, 0, 0}, {-0.1, 0, 0}},
    {"ThighL", "Pelvis", {0.1, -0.05, 0}, {0, -0.42, 0}},
    {"ShinL", "ThighL", {0, -0.42, 0}, {0, -0.42, 0}},
    {"FootL", "ShinL", {0, -0.42, 0}, {0, -0.05, 0.15}},
    {"ThighR", "Pelvis", {-0.1, -0.05, 0}, {0, -0.42, 0}},
    {"ShinR", "ThighR", {0, -0.42, 0}, {0, -0.42, 0}},
    {"FootR", "ShinR", {0, -0.42, 0}, {0, -0.05, 0.15}},
};

// One ragdoll as nodes below "/Ragdoll<index>", moved by offset: a capsule
// along each bone and, but at the pelvis, a D6 constraint at the bone's start
// with its twist along the bone. Every ragdoll is aggregate 0, without self
// collision; each starts tipped over above the ground. Its bodies never
// sleep: the two worlds would put them to sleep by different rules, and a
// crowd is to cost what an awake crowd costs.
void addRagdoll(ZentoSceneGraph& graph, int index, const V3d& offset)
{
    const std::string root = "/Ragdoll" + std::to_string(index);
    graph.addNode(std::make_shared<TransformNode>(NodePath(root)), "");
    std::map<std::string, std::string> paths;
    for (const Bone& bone : kBones) {
        const std::string parentPath = bone.parent ? paths[bone.parent] : root;
        const std::string path = parentPath + "/" + bone.name;
        paths[bone.name] = path;
        auto joint = std::make_shared<JointNode>(NodePath(path));
        joint->translation = bone.offset + (bone.parent ? V3d(0.0) : offset);
        if (!bone.parent)
            joint->rotation = Imath::Eulerd(0.3, 0.2, 0.5);
        graph.addNode(joint, parentPath);

        const double length = bone.end.length();
        auto body = std::make_shared<RigidBodyNode>(NodePath(path + "/" + bone.name + "_RB"));
        body->translation = 0.5 * bone.end;
        body->rotation = RagdollFixture::alongX(bone.end);
        set(*body, "type", int(Zento::RigidBodyAttributes::Capsule));
        set(*body, "state", int(Zento::RigidBodyAttributes::Dynamic));
        set(*body, "dimension", V3d(kBodyRadius, std::max(0.0, 0.5 * length - kBodyRadius), kBodyRadius));
        set(*body, "aggregate", 0);
        set(*body, "sleepThreshold", 0.0);
        graph.addNode(body, path);
        if (!bone.parent)
            continue;
        auto constraint = std::make_shared<ConstraintNode>(NodePath(path + "/" + bone.name + "_RBC"));
        constraint->rotation = RagdollFixture::alongX(bone.end);
        set(*constraint, "constraintType", int(Zento::RigidBodyConstraintAttributes::D6));
        for (const char* key : {"angularMotionX", "angularMotionY", "angularMotionZ"})
            set(*constraint, key, int(Zento::RigidBodyConstraintAttributes::Limit));
        set(*constraint, "enableTwistLimit", true);
        set(*constraint, "twistLimit", V3d(-kTwist, kTwist, 0));
        set(*constraint, "enableSwingLimit", true);
        set(*constraint, "swingLimit", V3d(kSwing, kSwing, 0));
        graph.addNode(constraint, path);
    }
}

// A scene of count ragdolls in a square, on one ground.
void buildCrowd(ZentoSceneGraph& graph, int count)
{
    graph.createSolver();
    graph.createGround();
    const int side = static_cast<int>(std::ceil(std::sqrt(double(count))));
    for (int index = 0; index < count; ++index)
        addRagdoll(graph, index, V3d(kSpacing * (index % side), 0.0, kSpacing * (index / side)));
}

btTransform toBullet(const Imath::M44d& m)
{
    Imath::M44d rotation = m;
    Imath::removeScalingAndShear(rotation);
    const Imath::Quatd q = Imath::extractQuat(rotation);
    return btTransform(btQuaternion(btScalar(q.v.x), btScalar(q.v.y), btScalar(q.v.z), btScalar(q.r)),
                       btVector3(btScalar(m[3][0]), btScalar(m[3][1]), btScalar(m[3][2])));
}

// The same crowd with Bullet alone: the bodies, joints and settings that the
// solver gives Bullet for these nodes, built from their world matrices, with
// the solver class and the iterations that the physics uses.
struct RawWorld {
    RawWorld(const ZentoSceneGraph& graph, int iterations)
        : dispatcher(&configuration), world(&dispatcher, &broadphase, &solver, &configuration)
    {
        world.setGravity(btVector3(0, -9.81f, 0));
        world.getSolverInfo().m_numIterations = iterations;
        world.getSolverInfo().m_splitImpulsePenetrationThreshold = 0;
        const short ground = 1, ragdoll = 2;
        std::map<const BaseNode*, btRigidBody*> made;
        for (const auto& entry : graph.nodes) {
            const BaseNode& node = *entry.second;
            if (node.typeId() != RigidBodyNode::kTypeId)
                continue;
            const bool plane = !node.parent;
            const V3d d = node.attributes.typedEntry<V3d>("dimension")->get();
            if (plane)
                shapes.push_back(std::make_unique<btStaticPlaneShape>(btVector3(0, 1, 0), 0.0f));
            else
                shapes.push_back(std::make_unique<btCapsuleShapeX>(btScalar(d.x), btScalar(2 * d.y)));
            btCollisionShape& shape = *shapes.back();
            btScalar mass = 0;
            btVector3 inertia(0, 0, 0);
            if (!plane) {
                mass = btScalar(1000.0 * M_PI * d.x * d.x * (2 * d.y + 4.0 / 3.0 * d.x));
                shape.calculateLocalInertia(mass, inertia);
            }
            btRigidBody::btRigidBodyConstructionInfo info(mass, nullptr, &shape, inertia);
            info.m_startWorldTransform = toBullet(node.worldMatrix());
            // Bullet multiplies the frictions of a contact: 0.5 on both sides.
            info.m_friction = std::sqrt(0.5f);
            bodies.push_back(std::make_unique<btRigidBody>(info));
            btRigidBody& body = *bodies.back();
            body.setContactProcessingThreshold(0.02f + shape.getMargin());
            if (!plane) {
                body.setDamping(0.0f, 0.05f);
                body.setSleepingThresholds(0.0f, 0.0f);
                // The solver averages the rolling levers of a contact, the
                // ground's being 0; Bullet multiplies each by the other's friction.
                const btScalar toGround = btScalar(0.5 / std::sqrt(0.5) * kBodyRadius);
                body.setRollingFriction(btScalar(Zento::ZentoPhysx::kRollingResistance) * toGround);
                body.setSpinningFriction(btScalar(Zento::ZentoPhysx::kSpinningResistance) * toGround);
                body.setCcdMotionThreshold(btScalar(kBodyRadius));
                body.setCcdSweptSphereRadius(btScalar(0.8 * kBodyRadius));
            }
            world.addRigidBody(&body, plane ? ground : ragdoll, plane ? short(-1) : ground);
            made[&node] = &body;
            bodyOf[node.path.string()] = &body;
        }
        for (const auto& entry : graph.nodes) {
            const BaseNode& node = *entry.second;
            if (node.typeId() != ConstraintNode::kTypeId)
                continue;
            btRigidBody& a = *made[ConstraintNode::parentBody(node, graph.nodes)];
            btRigidBody& b = *made[ConstraintNode::childBody(node)];
            const btTransform frame = toBullet(node.worldMatrix());
            auto joint = std::make_unique<btGeneric6DofSpring2Constraint>(
                a, b, a.getWorldTransform().inverse() * frame, b.getWorldTransform().inverse() * frame, RO_XYZ);
            for (int axis = 0; axis < 3; ++axis)
                joint->setLimit(axis, 0, 0);
            const btScalar twist = btScalar(kTwist * M_PI / 180.0), swing = btScalar(kSwing * M_PI / 180.0);
            joint->setLimit(3, -twist, twist);
            joint->setLimit(4, -swing, swing);
            joint->setLimit(5, -swing, swing);
            world.addConstraint(joint.get(), true);
            joints.push_back(std::move(joint));
        }
    }

    ~RawWorld()
    {
        for (const auto& joint : joints)
            world.removeConstraint(joint.get());
        for (const auto& body : bodies)
            world.removeRigidBody(body.get());
    }

    void step()
    {
        for (int step = 0; step < kSubSteps; ++step)
            world.stepSimulation(btScalar(kFrameTime / kSubSteps), 0);
    }

    btDefaultCollisionConfiguration configuration;
    btCollisionDispatcher dispatcher;
    btDbvtBroadphase broadphase;
    Zento::JointSolver solver;
    btDiscreteDynamicsWorld world;
    std::vector<std::unique_ptr<btCollisionShape>> shapes;
    std::vector<std::unique_ptr<btRigidBody>> bodies;
    std::vector<std::unique_ptr<btTypedConstraint>> joints;
    std::map<std::string, btRigidBody*> bodyOf;
};

double milliseconds(const std::function<void()>& work)
{
    const auto start = std::chrono::steady_clock::now();
    work();
    return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
}

// The milliseconds of each frame of one round from a fresh start, added to times.
void timeRound(const std::function<void()>& setUp, const std::function<void()>& frame, std::vector<double>& times)
{
    setUp();
    for (int i = 0; i < kFrames; ++i)
        times.push_back(milliseconds(frame));
}

double median(std::vector<double> times)
{
    std::nth_element(times.begin(), times.begin() + times.size() / 2, times.end());
    return times[times.size() / 2];
}

// The largest distance, in millimetres, between a body of the solver and the same body of the raw world.
double millimetresApart(SolverNode& solver, const RawWorld& raw)
{
    double apart = 0.0;
    auto& table = solver.physics.rigidBodies();
    for (const SolverNode::SimulatedBody& body : solver.bodies) {
        Imath::V3f t;
        Imath::Quatf q;
        table.at(body.id).pose(t, q);
        const btVector3 there = raw.bodyOf.at(body.node->path.string())->getWorldTransform().getOrigin();
        apart = std::max(apart, double((t - Imath::V3f(there.x(), there.y(), there.z())).length()));
    }
    return 1000.0 * apart;
}

struct CrowdFigures {
    double stepMs;
    double rawMs;
    double writeBackMs;
};

CrowdFigures measureCrowd(int count, int rounds)
{
    ZentoSceneGraph graph;
    buildCrowd(graph, count);
    SolverNode& solver = static_cast<SolverNode&>(*graph.node("/Solver"));
    graph.startSimulation();
    const int iterations = solver.physics.solverIterations();
    graph.stopSimulation();
    std::vector<double> stepTimes, rawTimes, writeBackTimes;
    const auto graphRound = [&] {
        timeRound([&] { graph.startSimulation(); }, [&] { graph.stepSimulation(); }, stepTimes);
        // Writing back again the poses where the round left the bodies.
        timeRound([] {}, [&] { graph.updateMatrices(solver.writeBack()); }, writeBackTimes);
        graph.stopSimulation();
    };
    std::unique_ptr<RawWorld> raw;
    const auto rawRound = [&] {
        timeRound([&] { raw = std::make_unique<RawWorld>(graph, iterations); }, [&] { raw->step(); }, rawTimes);
        raw.reset();
    };
    // The two take turns, and turns at going first: whichever runs second
    // in a pair is measured some per cent faster, and the machine's speed
    // changes over a run.
    for (int round = 0; round < rounds; ++round) {
        if (round % 2 == 0) {
            graphRound();
            rawRound();
        } else {
            rawRound();
            graphRound();
        }
    }
    CrowdFigures figures;
    figures.stepMs = median(stepTimes);
    figures.rawMs = median(rawTimes);
    figures.writeBackMs = median(writeBackTimes);
    return figures;
}

// The pile of the simulation tests at 32 ragdolls, 12 s at 25 frames a second.
void printPile(RagdollScene::Build build, int solverType, const char* name)
{
    constexpr int kPile = 32, kFps = 25, kSeconds = 12;
    RagdollScene pile(kPile, solverType, build);
    pile.placeAsPile();
    pile.start();
    RagdollScene::Worst during;
    double fastest = 0.0, deepest = 1e300, sunk = 1e300, steppedMs = 0.0, asleepAt = -1.0;
    for (int frame = 1; frame <= kSeconds * kFps; ++frame) {
        steppedMs += milliseconds([&] { pile.graph.stepSimulation(); });
        during.include(pile.worst());
        fastest = std::max(fastest, pile.fastest());
        const auto [lowest, lowestTop] = pile.depths();
        deepest = std::min(deepest, lowest);
        sunk = std::min(sunk, lowestTop);
        if (asleepAt < 0.0 && pile.asleep())
            asleepAt = double(frame) / kFps;
    }
    const RagdollScene::Worst end = pile.worst();
    std::printf("pile_%d_%s_fastest_m_per_s %.2f\n", kPile, name, fastest);
    std::printf("pile_%d_%s_deepest_point_under_ground_cm %.2f\n", kPile, name, 100.0 * std::max(0.0, -deepest));
    std::printf("pile_%d_%s_deepest_body_top_under_ground_cm %.2f\n", kPile, name, 100.0 * std::max(0.0, -sunk));
    std::printf("pile_%d_%s_lowest_point_at_end_cm %.2f\n", kPile, name, 100.0 * pile.depths().first);
    std::printf("pile_%d_%s_worst_anchors_apart_during_cm %.2f\n", kPile, name, 100.0 * during.apart);
    std::printf("pile_%d_%s_worst_beyond_limit_during_degrees %.2f\n", kPile, name, during.beyond);
    std::printf("pile_%d_%s_anchors_apart_after_12_s_cm %.2f\n", kPile, name, 100.0 * end.apart);
    std::printf("pile_%d_%s_beyond_limit_after_12_s_degrees %.2f\n", kPile, name, end.beyond);
    std::printf("pile_%d_%s_asleep_after_s %.2f\n", kPile, name, asleepAt);
    std::printf("pile_%d_%s_mean_step_ms %.2f\n", kPile, name, steppedMs / (kSeconds * kFps));
}

} // namespace

int main()
{
    ZentoSceneGraph one;
    buildCrowd(one, 1);
    SolverNode& solver = static_cast<SolverNode&>(*one.node("/Solver"));
    int bodies = 0, constraints = 0;
    for (const auto& entry : one.nodes) {
        bodies += entry.second->typeId() == RigidBodyNode::kTypeId && entry.second->parent;
        constraints += entry.second->typeId() == ConstraintNode::kTypeId;
    }
    // Both worlds from the start, frame by frame.
    one.startSimulation();
    RawWorld raw(one, solver.physics.solverIterations());
    double apartAfterFrame = 0.0;
    for (int frame = 1; frame <= 25; ++frame) {
        one.stepSimulation();
        raw.step();
        if (frame == 1)
            apartAfterFrame = millimetresApart(solver, raw);
    }
    std::printf("ragdoll_bodies %d\n", bodies);
    std::printf("ragdoll_d6_constraints %d\n", constraints);
    std::printf("bodies_apart_after_1_frame_mm %.3f\n", apartAfterFrame);
    std::printf("bodies_apart_after_1_second_mm %.3f\n", millimetresApart(solver, raw));
    one.stopSimulation();

    const auto dropStart = std::chrono::steady_clock::now();
    const RagdollCheck::DropTest drop = RagdollCheck::dropTest(one);
    const std::chrono::duration<double, std::milli> dropTime = std::chrono::steady_clock::now() - dropStart;
    std::printf("drop_test_ms %.1f\n", dropTime.count());
    std::printf("drop_test_worst_limit_degrees %.2f\n", drop.worstLimitDegrees);
    std::printf("drop_test_worst_separation_mm %.2f\n", drop.worstSeparation * 1000.0);

    std::printf("frames_timed %d\n", kFrames);
    int fits = 0, misses = 0;
    for (int count : kCrowds) {
        const CrowdFigures figures = measureCrowd(count, kRounds);
        std::printf("crowd_%d_step_ms %.2f\n", count, figures.stepMs);
        std::printf("crowd_%d_raw_bullet_ms %.2f\n", count, figures.rawMs);
        std::printf("crowd_%d_ratio_to_raw_bullet %.3f\n", count, figures.stepMs / figures.rawMs);
        std::printf("crowd_%d_write_back_ms %.3f\n", count, figures.writeBackMs);
        if (figures.stepMs <= kFrameBudgetMs)
            fits = count;
        else if (!misses)
            misses = count;
    }
    // Halving the gap between the largest crowd that fits and the smallest
    // that does not, one measured round a probe.
    if (!misses)
        misses = 2 * fits;
    while (misses - fits > 1) {
        const int count = (fits + misses) / 2;
        (measureCrowd(count, 1).stepMs <= kFrameBudgetMs ? fits : misses) = count;
    }
    std::printf("largest_crowd_within_%.0f_ms %d\n", kFrameBudgetMs, fits);

    // The fixture's ragdolls, with masses 175 times apart across a joint, and
    // those that zento-rig builds on the same skeleton.
    printPile(RagdollScene::Build::Fixture, Zento::ZentoPhysx::PGS, "pgs");
    printPile(RagdollScene::Build::Fixture, Zento::ZentoPhysx::TGS, "tgs");
    printPile(RagdollScene::Build::Rig, Zento::ZentoPhysx::PGS, "rig_pgs");
    printPile(RagdollScene::Build::Rig, Zento::ZentoPhysx::TGS, "rig_tgs");
    return 0;
}
