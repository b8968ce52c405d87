#include "SolverNode.h"

#include "ConstraintNode.h"
#include "MathUtils.h"
#include "NodeTransforms.h"
#include "RigidBodyNode.h"

#include <algorithm>
#include <cmath>

using Imath::M44f;
using Imath::V3f;
using Zento::RigidBody;
using Zento::RigidBodyAttributes;
using Zento::RigidBodyConstraintAttributes;

namespace {

// Hands the attribute to the setter if it is there with its type.
template <typename T, typename Setter>
void passOn(const ZentoCore::MapMetadata& attributes, const std::string& key, Setter&& setter)
{
    if (const auto entry = attributes.typedEntry<T>(key))
        setter(entry->get());
}

// A tolerance reaches the physics only while its "Override" flag is set.
template <typename Setter>
void passOnOverride(const ZentoCore::MapMetadata& attributes, const std::string& key, Setter&& setter)
{
    const auto enabled = attributes.typedEntry<bool>(key + "Override");
    if (enabled && enabled->get())
        passOn<double>(attributes, key, setter);
}

M44f translationMatrix(const V3f& t)
{
    return ZentoCore::poseMatrix(Imath::Quatf(), t);
}

bool finite(const M44f& m)
{
    for (int row = 0; row < 4; ++row)
        for (int column = 0; column < 4; ++column)
            if (!std::isfinite(m[row][column]))
                return false;
    return true;
}

// The drag body touches nothing: it sits in a collision pool of its own.
constexpr int kDragCollisionPool = 100;

} // namespace

SolverNode::SolverNode(const ZentoCore::NodePath& path) : BaseNode(path)
{
    attributes.set("useGpu", false);
    attributes.set("enableDebugger", false);
    attributes.set("debuggerHost", std::string("127.0.0.1"));
    attributes.set("debuggerPort", 5425);
    attributes.set("debuggerTimeout", 10);
    attributes.set("subSamples", 10);
    attributes.set("sceneScale", 1.0);
    attributes.set("gravity", Imath::V3d(0.0, -9.81, 0.0));
    attributes.set("threads", -1);
    // Each tolerance is passed to the physics only while its "Override" flag
    // is set; otherwise the engine keeps its own default.
    attributes.set("frictionOffsetThresholdOverride", false);
    attributes.set("frictionOffsetThreshold", 0.04);
    attributes.set("ccdMaxSeparationOverride", false);
    attributes.set("ccdMaxSeparation", 0.04);
    attributes.set("solverOffsetSlopeOverride", false);
    attributes.set("solverOffsetSlope", 0.0);
    attributes.set("bounceThresholdVelocityOverride", false);
    attributes.set("bounceThresholdVelocity", 2.0);
    attributes.set("solverType", 0);
    attributes.set("aggregateSelfCollision", true);
    attributes.set("enableKineKineCollisionFilter", true);
    attributes.set("enableStaticKineCollisionFilter", true);

    // "enableDynamic" names no attribute, so the editor shows nothing for it;
    // "useGpu" is saved with the scene but not offered in the editor.
    setDisplayList({
        "enableDynamic",
        "subSamples",
        "sceneScale",
        "gravity",
        "threads",
        "solverType",
        "frictionOffsetThresholdOverride",
        "frictionOffsetThreshold",
        "ccdMaxSeparationOverride",
        "ccdMaxSeparation",
        "solverOffsetSlopeOverride",
        "solverOffsetSlope",
        "bounceThresholdVelocityOverride",
        "bounceThresholdVelocity",
        "enableKineKineCollisionFilter",
        "enableStaticKineCollisionFilter",
        "aggregateSelfCollision",
        "@Debug",
        "enableDebugger",
        "debuggerHost",
        "debuggerPort",
        "debuggerTimeout",
    });
    setEnumHint({"solverType"}, {"PGS", "TGS"});
}

int SolverNode::typeId() const
{
    return kTypeId;
}

const std::string& SolverNode::typeName() const
{
    static const std::string name = "Solver";
    return name;
}

bool SolverNode::skipsRendering() const
{
    return false;
}

void SolverNode::start(const NodeMap& nodes)
{
    bodies.clear();
    constraints.clear();
    mBodyIndex.clear();
    dragBodyHandle = nullptr;
    dragConstraint = nullptr;
    if (physics.isInitialized())
        physics.release();
    applySettings();
    physics.init();
    physics.initScene();
    const std::unordered_map<int, std::vector<int>> aggregates = addBodies(nodes);
    resolveWriteBack();
    addConstraints(nodes);
    // Only aggregate 0 is made without self collision.
    physics.addAggregates(aggregates, {{0, false}}, 0, false);
}

void SolverNode::applySettings()
{
    passOn<bool>(attributes, "useGpu", [this](bool use) { physics.setUseGpu(use); });
    passOn<std::string>(attributes, "debuggerHost", [this](const std::string& host) { physics.setPvdHost(host); });
    passOn<int>(attributes, "debuggerPort", [this](int port) { physics.setPvdPort(port); });
    passOn<int>(attributes, "debuggerTimeout",
                [this](int timeout) { physics.setPvdTimeout(static_cast<unsigned int>(std::max(0, timeout))); });
    passOn<int>(attributes, "subSamples",
                [this](int count) { physics.setSubSamples(static_cast<unsigned int>(std::max(0, count))); });
    passOn<int>(attributes, "solverType", [this](int type) { physics.setSolverType(static_cast<short>(type)); });
    passOn<bool>(attributes, "enableKineKineCollisionFilter",
                 [this](bool enable) { physics.setKinematicKinematicFilter(enable); });
    passOn<bool>(attributes, "enableStaticKineCollisionFilter",
                 [this](bool enable) { physics.setStaticKinematicFilter(enable); });
    passOn<Imath::V3d>(attributes, "gravity", [this](const Imath::V3d& gravity) { physics.setGravity(gravity); });

    passOnOverride(attributes, "frictionOffsetThreshold", [this](double v) { physics.setFrictionOffsetThreshold(v); });
    passOnOverride(attributes, "ccdMaxSeparation", [this](double v) { physics.setCcdMaxSeparation(v); });
    passOnOverride(attributes, "solverOffsetSlope", [this](double v) { physics.setSolverOffsetSlop(v); });
    passOnOverride(attributes, "bounceThresholdVelocity", [this](double v) { physics.setBounceThresholdVelocity(v); });

    physics.setFps(kFrameRate);
    passOn<bool>(attributes, "enableDebugger", [this](bool enable) { physics.enablePvd(enable); });
    passOn<double>(attributes, "sceneScale", [this](double scale) { physics.setScale(scale); });
}

std::unordered_map<int, std::vector<int>> SolverNode::addBodies(const NodeMap& nodes)
{
    std::unordered_map<int, std::vector<int>> aggregates;
    for (const auto& entry : nodes) {
        const BaseNode& node = *entry.second;
        if (node.typeId() != RigidBodyNode::kTypeId)
            continue;
        RigidBodyAttributes record;
        if (!bodyRecord(node, record))
            continue;
        if (!record.active || record.type >= RigidBodyAttributes::ConvexMesh)
            continue;

        ZentoUtils::Mesh mesh;
        RigidBody* body = physics.addRigidBody(node.path.string(), record, &mesh, false);
        if (!body)
            continue;
        body->aggregate = record.aggregate;
        mBodyIndex[&node] = bodies.size();
        SimulatedBody simulated;
        simulated.node = entry.second;
        simulated.id = body->id;
        simulated.rest = {node.translation, node.rotation};
        bodies.push_back(std::move(simulated));
        if (record.aggregate != -1)
            aggregates[record.aggregate].push_back(static_cast<int>(body->id & 0xffffffffu));
    }
    return aggregates;
}

bool SolverNode::bodyRecord(const BaseNode& node, RigidBodyAttributes& record)
{
    if (!record.deserialise(&node.attributes))
        return false;
    record.rotatePivot = V3f(node.pivot);
    record.scalePivot = V3f(node.pivot);
    record.worldMatrix = M44f(node.worldMatrix());
    M44f world = record.worldMatrix;
    V3f shear;
    Imath::Eulerf rotation(Imath::Eulerf::XYZ);
    // A world matrix with a zero scale gives no pose to start from.
    if (!ZentoCore::extractSHRT(world, record.scale, shear, rotation, record.translation))
        return false;
    record.rotation = rotation.toQuat();
    return true;
}

RigidBody* SolverNode::bodyOf(const BaseNode& node)
{
    const auto index = mBodyIndex.find(&node);
    if (index == mBodyIndex.end())
        return nullptr;
    auto& table = physics.rigidBodies();
    const auto body = table.find(bodies[index->second].id);
    return body == table.end() ? nullptr : &body->second;
}

void SolverNode::addConstraints(const NodeMap& nodes)
{
    for (const auto& entry : nodes) {
        const BaseNode& node = *entry.second;
        if (node.typeId() != ConstraintNode::kTypeId)
            continue;
        RigidBodyConstraintAttributes record;
        if (!record.deserialise(&node.attributes))
            continue;
        record.name = node.path.name();
        const BaseNode* childNode = ConstraintNode::childBody(node);
        const BaseNode* parentNode = childNode ? ConstraintNode::parentBody(node, nodes) : nullptr;
        if (!parentNode)
            continue;

        // A body that was not added joins as a default body: the fixed world.
        const RigidBody none;
        RigidBody* parent = bodyOf(*parentNode);
        RigidBody* child = bodyOf(*childNode);
        const M44f frame(node.worldMatrix());
        const M44f parentFrame = (parent ? parent : &none)->frameInBody(frame);
        const M44f childFrame = (child ? child : &none)->frameInBody(frame);

        for (int drive = 0; drive < RigidBodyConstraintAttributes::DriveCount; ++drive)
            record.drives[drive].deserialise(node.attributes, RigidBodyConstraintAttributes::kDrivePrefixes[drive]);
        if (Zento::RigidBodyConstraint* joint =
                physics.addRigidBodyConstraint(record.name, record, parent, parentFrame, child, childFrame, false))
            constraints.push_back({entry.second, joint});
    }
}

std::vector<BaseNode*> SolverNode::step()
{
    if (physics.isInitialized())
        physics.stepPhysics();
    return writeBack();
}

void SolverNode::resolveWriteBack()
{
    const auto& table = physics.rigidBodies();
    for (SimulatedBody& simulated : bodies) {
        const RigidBody& body = table.at(simulated.id);
        M44f scaling;
        scaling.setScale(body.scale);
        simulated.beforePose = translationMatrix(-body.scalePivot) * scaling * translationMatrix(body.scalePivot) *
                               translationMatrix(body.scalePivotTranslate) * translationMatrix(-body.rotatePivot);
        simulated.afterPose = translationMatrix(body.rotatePivot) * translationMatrix(body.rotatePivotTranslate);
        simulated.parentInverse = ZentoCore::matrixInverse(M44f(NodeTransforms::parentWorld(*simulated.node)));
        simulated.parentMoves = false;
        for (const BaseNode* up = simulated.node->parent; up && !simulated.parentMoves; up = up->parent) {
            const auto ancestor = mBodyIndex.find(up);
            simulated.parentMoves = ancestor != mBodyIndex.end() &&
                                    table.at(bodies[ancestor->second].id).state == RigidBodyAttributes::Dynamic;
        }
    }
}

std::vector<BaseNode*> SolverNode::writeBack()
{
    std::vector<BaseNode*> moved;
    const auto& table = physics.rigidBodies();
    for (SimulatedBody& simulated : bodies) {
        const auto found = table.find(simulated.id);
        if (found == table.end() || found->second.state != RigidBodyAttributes::Dynamic)
            continue;
        BaseNode& node = *simulated.node;
        // The parents of a body below another are written first: the map
        // orders a parent before its children.
        if (simulated.parentMoves)
            simulated.parentInverse = ZentoCore::matrixInverse(M44f(NodeTransforms::parentWorld(node)));
        const M44f local = simulated.beforePose * found->second.poseMatrix() * simulated.afterPose *
                           simulated.parentInverse;
        // A parent of zero or broken scale makes no local pose; the node stays.
        if (!finite(local))
            continue;
        node.translation = Imath::V3d(local[3][0], local[3][1], local[3][2]);
        node.rotation = Imath::Eulerd(Imath::M44d(local), node.rotation.order());
        moved.push_back(&node);
    }
    return moved;
}

std::vector<BaseNode*> SolverNode::stop()
{
    physics.release();
    constraints.clear();
    dragBodyHandle = nullptr;
    dragConstraint = nullptr;
    std::vector<BaseNode*> restored;
    for (const SimulatedBody& simulated : bodies) {
        simulated.node->translation = simulated.rest.translation;
        simulated.node->rotation = simulated.rest.rotation;
        restored.push_back(simulated.node.get());
    }
    return restored;
}

void SolverNode::grab(const BaseNode& body, const V3f& grabPoint)
{
    // A drag left over from a grab without release would hold its body forever.
    release();
    RigidBody* grabbed = bodyOf(body);
    if (!grabbed)
        return;

    RigidBodyAttributes record;
    record.translation = grabPoint;
    record.worldMatrix = translationMatrix(grabPoint);
    record.state = RigidBodyAttributes::Kinematic;
    record.type = RigidBodyAttributes::Sphere;
    record.dimension = V3f(1.0f, 1.0f, 1.0f);
    record.collisionPool = kDragCollisionPool;
    ZentoUtils::Mesh mesh;
    dragBodyHandle = physics.addRigidBody("__dynamicObject__", record, &mesh, false);
    if (!dragBodyHandle)
        return;
    dragBodyHandle->kinematicTarget = grabPoint;

    dragConstraint = physics.addDrag("__dynamic__", dragBodyHandle, grabbed, grabPoint);
}

void SolverNode::drag(const V3f& point)
{
    if (dragBodyHandle)
        dragBodyHandle->kinematicTarget = point;
}

void SolverNode::release()
{
    if (!dragBodyHandle)
        return;
    physics.removeRigidBody(dragBodyHandle->id);
    dragBodyHandle = nullptr;
    dragConstraint = nullptr;
}
