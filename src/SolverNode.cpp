#include "SolverNode.h"

#include "ConstraintNode.h"
#include "MathUtils.h"
#include "RigidBodyNode.h"
#include "ZentoSceneGraph.h"

#include <algorithm>
#include <cmath>

using Imath::M44f;
using Imath::V3f;
using Zento::RigidBody;
using Zento::RigidBodyAttributes;
using Zento::RigidBodyConstraintAttributes;

namespace {

template <typename T>
void addAttribute(ZentoCore::MapMetadata& attributes, const std::string& key, const T& value)
{
    const ZentoCore::MetadataImpl<T> entry(value);
    attributes.addEntry(key, &entry);
}

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

// m followed by a translation by t.
M44f translated(M44f m, const V3f& t)
{
    m[3][0] += t.x;
    m[3][1] += t.y;
    m[3][2] += t.z;
    return m;
}

M44f translationMatrix(const V3f& t)
{
    return translated(M44f(), t);
}

// R(q) · T(t) of a body's pose.
M44f poseMatrix(const RigidBody& body)
{
    V3f t;
    Imath::Quatf q;
    body.pose(t, q);
    return translated(q.toMatrix44(), t);
}

bool finite(const M44f& m)
{
    for (int row = 0; row < 4; ++row)
        for (int column = 0; column < 4; ++column)
            if (!std::isfinite(m[row][column]))
                return false;
    return true;
}

BaseNode* firstBody(const BaseNode& node)
{
    const auto found = std::find_if(node.children.begin(), node.children.end(),
                                    [](const BaseNode* child) { return child->typeId() == RigidBodyNode::kTypeId; });
    return found == node.children.end() ? nullptr : *found;
}

// The drag body touches nothing: it sits in a collision pool of its own.
constexpr int kDragCollisionPool = 100;

} // namespace

SolverNode::SolverNode(const ZentoCore::NodePath& path) : BaseNode(path)
{
    addAttribute(attributes, "useGpu", false);
    addAttribute(attributes, "enableDebugger", false);
    addAttribute(attributes, "debuggerHost", std::string("127.0.0.1"));
    addAttribute(attributes, "debuggerPort", 5425);
    addAttribute(attributes, "debuggerTimeout", 10);
    addAttribute(attributes, "subSamples", 10);
    addAttribute(attributes, "sceneScale", 1.0);
    addAttribute(attributes, "gravity", Imath::V3d(0.0, -9.81, 0.0));
    addAttribute(attributes, "threads", -1);
    // Each tolerance is passed to the physics only while its "Override" flag
    // is set; otherwise the engine keeps its own default.
    addAttribute(attributes, "frictionOffsetThresholdOverride", false);
    addAttribute(attributes, "frictionOffsetThreshold", 0.04);
    addAttribute(attributes, "ccdMaxSeparationOverride", false);
    addAttribute(attributes, "ccdMaxSeparation", 0.04);
    addAttribute(attributes, "solverOffsetSlopeOverride", false);
    addAttribute(attributes, "solverOffsetSlope", 0.0);
    addAttribute(attributes, "bounceThresholdVelocityOverride", false);
    addAttribute(attributes, "bounceThresholdVelocity", 2.0);
    addAttribute(attributes, "solverType", 0);
    addAttribute(attributes, "aggregateSelfCollision", true);
    addAttribute(attributes, "enableKineKineCollisionFilter", true);
    addAttribute(attributes, "enableStaticKineCollisionFilter", true);

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

void SolverNode::start()
{
    restPoses.clear();
    dragBodyHandle = nullptr;
    dragConstraint = nullptr;
    if (physics.isInitialized())
        physics.release();

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

    // The physics frame rate, not linked to the playback timer.
    physics.setFps(25.0);
    passOn<bool>(attributes, "enableDebugger", [this](bool enable) { physics.enablePvd(enable); });
    passOn<double>(attributes, "sceneScale", [this](double scale) { physics.setScale(scale); });

    physics.init();
    physics.initScene();
    if (!sceneGraph)
        return;
    const std::unordered_map<int, std::vector<int>> aggregates = addBodies();
    addConstraints();
    // Only aggregate 0 is made without self collision.
    physics.addAggregates(aggregates, {{0, false}}, 0, false);
}

std::unordered_map<int, std::vector<int>> SolverNode::addBodies()
{
    std::unordered_map<int, std::vector<int>> aggregates;
    // A copy, as the simulation must not depend on the map staying as it is.
    const ZentoSceneGraph::NodeMap nodes = sceneGraph->nodes;
    for (const auto& entry : nodes) {
        const BaseNode& node = *entry.second;
        if (node.typeId() != RigidBodyNode::kTypeId)
            continue;
        RigidBodyAttributes record;
        if (!record.deserialise(&node.attributes))
            continue;
        record.scale = V3f(node.scale);
        record.translation = V3f(node.translation);
        record.rotation = Imath::Quatf(node.rotation.toQuat());
        record.rotatePivot = V3f(node.pivot);
        record.scalePivot = V3f(node.pivot);
        record.worldMatrix = M44f(node.worldMatrix());
        M44f world = record.worldMatrix;
        V3f shear;
        Imath::Eulerf rotation(Imath::Eulerf::XYZ);
        // A world matrix with a zero scale gives no pose to start from.
        if (!ZentoCore::extractSHRT(world, record.scale, shear, rotation, record.translation))
            continue;
        record.rotation = rotation.toQuat();
        if (!record.active || record.type >= RigidBodyAttributes::ConvexMesh)
            continue;

        const std::string path = node.path.string();
        ZentoUtils::Mesh mesh;
        RigidBody* body = physics.addRigidBody(path, record, &mesh, false);
        if (!body)
            continue;
        restPoses[path] = {node.translation, node.rotation};
        body->aggregate = record.aggregate;
        bodyIds[path] = body->id;
        if (record.aggregate != -1)
            aggregates[record.aggregate].push_back(static_cast<int>(body->id & 0xffffffffu));
    }
    return aggregates;
}

RigidBody* SolverNode::bodyOf(const std::string& path)
{
    const auto id = bodyIds.find(path);
    if (id == bodyIds.end())
        return nullptr;
    auto& table = physics.rigidBodies();
    const auto body = table.find(id->second);
    return body == table.end() ? nullptr : &body->second;
}

void SolverNode::addConstraints()
{
    const ZentoSceneGraph::NodeMap nodes = sceneGraph->nodes;
    for (const auto& entry : nodes) {
        const BaseNode& node = *entry.second;
        if (node.typeId() != ConstraintNode::kTypeId || !node.parent)
            continue;
        RigidBodyConstraintAttributes record;
        if (!record.deserialise(&node.attributes))
            continue;
        record.name = node.path.name();

        const BaseNode* childNode = firstBody(*node.parent);
        if (!childNode)
            continue;
        std::shared_ptr<BaseNode> prop;
        const auto parentText = node.attributes.typedEntry<std::string>("parentRigidBody");
        if (parentText && !parentText->get().empty())
            prop = sceneGraph->nodeByPath(ZentoCore::NodePath(parentText->get()));
        const BaseNode* parentNode = std::dynamic_pointer_cast<RigidBodyNode>(prop).get();
        for (const BaseNode* up = childNode->parent->parent; up && !parentNode; up = up->parent)
            parentNode = firstBody(*up);
        if (!parentNode)
            continue;

        // A body that was not added joins as a default body: the fixed world.
        const RigidBody none;
        RigidBody* parent = bodyOf(parentNode->path.string());
        RigidBody* child = bodyOf(childNode->path.string());
        const M44f frame(node.worldMatrix());
        const M44f parentFrame = frame * ZentoCore::matrixInverse(poseMatrix(parent ? *parent : none));
        const M44f childFrame = frame * ZentoCore::matrixInverse(poseMatrix(child ? *child : none));

        for (int drive = 0; drive < RigidBodyConstraintAttributes::DriveCount; ++drive)
            record.drives[drive].deserialise(node.attributes, RigidBodyConstraintAttributes::kDrivePrefixes[drive]);
        physics.addRigidBodyConstraint(record.name, record, parent, parentFrame, child, childFrame, false);
    }
}

void SolverNode::step()
{
    if (physics.isInitialized())
        physics.stepPhysics();
    writeBack();
}

void SolverNode::writeBack()
{
    if (!sceneGraph)
        return;
    const auto& table = physics.rigidBodies();
    for (const auto& entry : bodyIds) {
        const auto found = table.find(entry.second);
        if (found == table.end() || found->second.state != RigidBodyAttributes::Dynamic)
            continue;
        const RigidBody& body = found->second;
        M44f scaling;
        scaling.setScale(body.scale);
        const M44f world = translationMatrix(-body.scalePivot) * scaling * translationMatrix(body.scalePivot) *
                           translationMatrix(body.scalePivotTranslate) * translationMatrix(-body.rotatePivot) *
                           poseMatrix(body) * translationMatrix(body.rotatePivot) * translationMatrix(body.rotatePivotTranslate);

        const std::shared_ptr<BaseNode> node = sceneGraph->node(entry.first);
        if (!node)
            continue;
        const M44f parentWorld = node->parent ? M44f(node->parent->worldMatrix()) : M44f();
        const M44f local = world * ZentoCore::matrixInverse(parentWorld);
        // A parent of zero or broken scale makes no local pose; the node stays.
        if (!finite(local))
            continue;
        node->translation = Imath::V3d(local[3][0], local[3][1], local[3][2]);
        node->rotation = Imath::Eulerd(Imath::M44d(local), node->rotation.order());
        sceneGraph->updateMatrix(node->path);
    }
}

void SolverNode::stop()
{
    physics.release();
    dragBodyHandle = nullptr;
    dragConstraint = nullptr;
    if (!sceneGraph)
        return;
    for (const auto& entry : restPoses) {
        const std::shared_ptr<BaseNode> node = sceneGraph->node(entry.first);
        if (!node)
            continue;
        node->translation = entry.second.translation;
        node->rotation = entry.second.rotation;
        sceneGraph->updateMatrix(entry.first);
    }
}

void SolverNode::grab(const std::shared_ptr<BaseNode>& body, const V3f& grabPoint)
{
    // A drag left over from a grab without release would hold its body forever.
    release();
    if (!body)
        return;
    RigidBody* grabbed = bodyOf(body->path.string());
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

    RigidBodyConstraintAttributes joint;
    joint.constraintType = RigidBodyConstraintAttributes::Distance;
    joint.name = "__dynamic__";
    const M44f point = translationMatrix(grabPoint);
    const M44f dragFrame = point * ZentoCore::matrixInverse(poseMatrix(*dragBodyHandle));
    const M44f grabbedFrame = point * ZentoCore::matrixInverse(poseMatrix(*grabbed));
    dragConstraint = physics.addRigidBodyConstraint(joint.name, joint, dragBodyHandle, dragFrame, grabbed,
                                                    grabbedFrame, false);
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
