// One simulation step of a 20-body ragdoll with 19 D6 constraints falling onto
// a ground, at 25 frames a second in 10 sub-steps: the graph's stepSimulation,
// that is the physics and the write-back of every dynamic body into its node,
// against raw Bullet stepping the same world, built by hand from the same nodes
// with Bullet alone; and the write-back alone (SolverNode::writeBack and the
// matrices pushed), with its share of the step. The worlds are compared too:
// how far their bodies lie apart after the first frames shows that they are
// the same world.
// Prints one figure a line.

#include "ConstraintNode.h"
#include "JointNode.h"
#include "MathUtils.h"
#include "RagdollFixture.h"
#include "RigidBodyNode.h"
#include "SolverNode.h"
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
#include <vector>

using Imath::V3d;
using ZentoCore::NodePath;

namespace {

constexpr int kFrames = 100;
constexpr int kRounds = 7;
constexpr int kSubSteps = 10;
constexpr double kFrameTime = 1.0 / 25.0;
constexpr double kBodyRadius = 0.05;
constexpr double kTwist = 30.0, kSwing = 40.0;

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

// The ragdoll as nodes: a capsule along each bone and, but at the pelvis, a D6
// constraint at the bone's start with its twist along the bone. The ragdoll
// is aggregate 0, without self collision; it starts tipped over above a ground.
void buildRagdoll(ZentoSceneGraph& graph)
{
    graph.createSolver();
    graph.createGround();
    std::map<std::string, std::string> paths;
    for (const Bone& bone : kBones) {
        const std::string parentPath = bone.parent ? paths[bone.parent] : "";
        const std::string path = parentPath + "/" + bone.name;
        paths[bone.name] = path;
        auto joint = std::make_shared<JointNode>(NodePath(path));
        joint->translation = bone.offset;
        if (!bone.parent)
            joint->rotation = Imath::Eulerd(0.3, 0.2, 0.5);
        graph.addNode(joint, parentPath);

        const double length = bone.end.length();
        auto body = std::make_shared<RigidBodyNode>(NodePath(path + "/" + bone.name + "_RB"));
        body->translation = 0.5 * bone.end;
        body->rotation = RagdollFixture::alongX(bone.end);
        set(*body, "type", 3);
        set(*body, "state", 1);
        set(*body, "dimension", V3d(kBodyRadius, std::max(0.0, 0.5 * length - kBodyRadius), kBodyRadius));
        set(*body, "aggregate", 0);
        graph.addNode(body, path);
        if (!bone.parent)
            continue;
        auto constraint = std::make_shared<ConstraintNode>(NodePath(path + "/" + bone.name + "_RBC"));
        constraint->rotation = RagdollFixture::alongX(bone.end);
        set(*constraint, "constraintType", 5);
        for (const char* key : {"angularMotionX", "angularMotionY", "angularMotionZ"})
            set(*constraint, key, 1);
        set(*constraint, "enableTwistLimit", true);
        set(*constraint, "twistLimit", V3d(-kTwist, kTwist, 0));
        set(*constraint, "enableSwingLimit", true);
        set(*constraint, "swingLimit", V3d(kSwing, kSwing, 0));
        graph.addNode(constraint, path);
    }
}

btTransform toBullet(const Imath::M44d& m)
{
    Imath::M44d rotation = m;
    Imath::removeScalingAndShear(rotation);
    const Imath::Quatd q = Imath::extractQuat(rotation);
    return btTransform(btQuaternion(btScalar(q.v.x), btScalar(q.v.y), btScalar(q.v.z), btScalar(q.r)),
                       btVector3(btScalar(m[3][0]), btScalar(m[3][1]), btScalar(m[3][2])));
}

// The same ragdoll with Bullet alone: the bodies, joints and settings that
// the solver gives Bullet for these nodes, built from their world matrices.
struct RawWorld {
    explicit RawWorld(const ZentoSceneGraph& graph)
        : dispatcher(&configuration), world(&dispatcher, &broadphase, &solver, &configuration)
    {
        world.setGravity(btVector3(0, -9.81f, 0));
        world.getSolverInfo().m_numIterations = 4;
        world.getSolverInfo().m_splitImpulsePenetrationThreshold = 0;
        const short ground = 1, ragdoll = 2;
        std::map<const BaseNode*, btRigidBody*> made;
        for (const auto& entry : graph.nodes) {
            const BaseNode& node = *entry.second;
            if (node.typeId() != RigidBodyNode::kTypeId)
                continue;
            const btTransform pose = toBullet(node.worldMatrix());
            const bool plane = !node.parent;
            if (plane) {
                shapes.push_back(std::make_unique<btStaticPlaneShape>(btVector3(0, 1, 0), 0.0f));
            } else {
                const V3d d = node.attributes.typedEntry<V3d>("dimension")->get();
                shapes.push_back(std::make_unique<btCapsuleShapeX>(btScalar(d.x), btScalar(2 * d.y)));
            }
            btCollisionShape& shape = *shapes.back();
            btScalar mass = 0;
            btVector3 inertia(0, 0, 0);
            if (!plane) {
                const V3d d = node.attributes.typedEntry<V3d>("dimension")->get();
                mass = btScalar(1000.0 * M_PI * d.x * d.x * (2 * d.y + 4.0 / 3.0 * d.x));
                shape.calculateLocalInertia(mass, inertia);
            }
            btRigidBody::btRigidBodyConstructionInfo info(mass, nullptr, &shape, inertia);
            info.m_startWorldTransform = pose;
            // Bullet multiplies the frictions of a contact: 0.5 on both sides.
            info.m_friction = std::sqrt(0.5f);
            bodies.push_back(std::make_unique<btRigidBody>(info));
            btRigidBody& body = *bodies.back();
            body.setContactProcessingThreshold(0.02f + shape.getMargin());
            if (!plane) {
                body.setDamping(0.0f, 0.05f);
                body.setSleepingThresholds(0.1f, 0.1f);
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
            const BaseNode* child = nullptr;
            for (const BaseNode* sibling : node.parent->children)
                if (sibling->typeId() == RigidBodyNode::kTypeId)
                    child = sibling;
            const BaseNode* parent = nullptr;
            for (const BaseNode* sibling : node.parent->parent->children)
                if (sibling->typeId() == RigidBodyNode::kTypeId)
                    parent = sibling;
            btRigidBody& a = *made[parent];
            btRigidBody& b = *made[child];
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
    btSequentialImpulseConstraintSolver solver;
    btDiscreteDynamicsWorld world;
    std::vector<std::unique_ptr<btCollisionShape>> shapes;
    std::vector<std::unique_ptr<btRigidBody>> bodies;
    std::vector<std::unique_ptr<btTypedConstraint>> joints;
    std::map<std::string, btRigidBody*> bodyOf;
};

// The best, over the rounds, of the mean time of one frame, in microseconds.
double bestMicroseconds(const std::function<void()>& setUp, const std::function<void()>& frame)
{
    double best = 1e300;
    for (int round = 0; round < kRounds; ++round) {
        setUp();
        const auto start = std::chrono::steady_clock::now();
        for (int i = 0; i < kFrames; ++i)
            frame();
        best = std::min(best, std::chrono::duration<double, std::micro>(std::chrono::steady_clock::now() - start).count());
    }
    return best / kFrames;
}

// The largest distance between a body of the solver and the same body of the raw world.
double metresApart(SolverNode& solver, const RawWorld& raw)
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
    return apart;
}

} // namespace

int main()
{
    ZentoSceneGraph graph;
    buildRagdoll(graph);
    SolverNode& solver = static_cast<SolverNode&>(*graph.node("/Solver"));
    int bodies = 0, constraints = 0;
    for (const auto& entry : graph.nodes) {
        bodies += entry.second->typeId() == RigidBodyNode::kTypeId && entry.second->parent;
        constraints += entry.second->typeId() == ConstraintNode::kTypeId;
    }

    const double step = bestMicroseconds([&] { graph.startSimulation(); }, [&] { graph.stepSimulation(); });
    std::unique_ptr<RawWorld> raw;
    const double rawStep = bestMicroseconds([&] { raw = std::make_unique<RawWorld>(graph); }, [&] { raw->step(); });
    // Writing back again the poses where the last round left the bodies.
    const double writeBack = bestMicroseconds([] {}, [&] { graph.updateMatrices(solver.writeBack()); });
    graph.stopSimulation();

    // Both worlds from the start, frame by frame.
    graph.startSimulation();
    raw = std::make_unique<RawWorld>(graph);
    double apartAfterFrame = 0.0, apartAfterSecond = 0.0;
    for (int frame = 1; frame <= 25; ++frame) {
        graph.stepSimulation();
        raw->step();
        if (frame == 1)
            apartAfterFrame = metresApart(solver, *raw);
    }
    apartAfterSecond = metresApart(solver, *raw);
    graph.stopSimulation();

    std::printf("ragdoll_bodies %d\n", bodies);
    std::printf("ragdoll_d6_constraints %d\n", constraints);
    std::printf("frames_timed %d\n", kFrames);
    std::printf("solver_step_us %.1f\n", step);
    std::printf("raw_bullet_step_us %.1f\n", rawStep);
    std::printf("step_ratio_to_raw_bullet %.2f\n", step / rawStep);
    std::printf("write_back_us %.2f\n", writeBack);
    std::printf("write_back_share_percent %.1f\n", 100.0 * writeBack / step);
    std::printf("bodies_apart_after_1_frame_mm %.3f\n", 1000.0 * apartAfterFrame);
    std::printf("bodies_apart_after_1_second_mm %.3f\n", 1000.0 * apartAfterSecond);
    return 0;
}
