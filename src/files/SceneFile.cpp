#include "SceneFile.h"

#include "Archive.h"
#include "ConstraintNode.h"
#include "JointNode.h"
#include "MeshNode.h"
#include "RigidBodyNode.h"
#include "SolverNode.h"
#include "ZentoSceneGraph.h"

#include <algorithm>

using namespace ZentoCore;

namespace {

constexpr int kFormatVersion = 1;

template <typename T>
void readValue(const MapMetadata& map, const std::string& key, T& value)
{
    if (const auto entry = map.typedEntry<T>(key))
        value = entry->get();
}

std::shared_ptr<BaseNode> makeNode(int typeId, const NodePath& path)
{
    switch (typeId) {
    case TransformNode::kTypeId: return std::make_shared<TransformNode>(path);
    case JointNode::kTypeId: return std::make_shared<JointNode>(path);
    case MeshNode::kTypeId: return std::make_shared<MeshNode>(path);
    case RigidBodyNode::kTypeId: return std::make_shared<RigidBodyNode>(path);
    case SolverNode::kTypeId: return std::make_shared<SolverNode>(path);
    case ConstraintNode::kTypeId: return std::make_shared<ConstraintNode>(path);
    default: return nullptr;
    }
}

MapMetadata nodeEntry(BaseNode& node)
{
    MapMetadata entry;
    entry.set("typeId", node.typeId());
    entry.addEntry("attributes", &node.attributes);
    entry.set("parent", node.parent ? node.parent->path.string() : std::string());
    entry.set("translation", node.translation);
    entry.set("scale", node.scale);
    entry.set("rotation", node.rotation);
    entry.set("pivot", node.pivot);
    entry.set("color", node.color);
    entry.set("visible", node.visible);
    entry.set("active", node.active);
    // The mesh is shared into the file's map, not copied: it can be large.
    if (node.typeId() == MeshNode::kTypeId)
        if (const std::shared_ptr<MapMetadata> mesh = static_cast<MeshNode&>(node).geometryMap)
            entry.insertEntry("mesh", mesh);
    return entry;
}

// A scene file has an int "version", and every other entry is a node: a
// valid path holding a map with an int "typeId". Anything else, such as a
// ragdoll file, is refused before the scene is touched.
bool isSceneFile(const MapMetadata& top)
{
    if (!top.typedEntry<int>("version"))
        return false;
    for (const auto& entry : top) {
        if (entry.first == "version")
            continue;
        const auto node = top.typedEntryAs<MapMetadata>(entry.first);
        if (NodePath(entry.first).isEmpty() || !node || !node->typedEntry<int>("typeId"))
            return false;
    }
    return true;
}

} // namespace

namespace SceneFile {

bool save(const ZentoSceneGraph& graph, const std::string& file)
{
    std::vector<std::string> paths = graph.nodePaths();
    std::sort(paths.begin(), paths.end());
    MapMetadata top;
    top.set("version", kFormatVersion);
    for (const std::string& path : paths)
        if (const std::shared_ptr<BaseNode> node = graph.node(path))
            top.insertEntry(path, std::make_shared<MapMetadata>(nodeEntry(*node)));
    Archive archive(top.memSize(), 0);
    archive << top;
    return archive.good() && archive.writeToFile(file);
}

bool load(ZentoSceneGraph& graph, const std::string& file)
{
    MapMetadata top;
    Archive archive;
    if (!archive.readFromFile(file))
        return false;
    archive >> top;
    if (!archive.good() || !isSceneFile(top))
        return false;

    graph.removeNodes(graph.nodePaths());
    graph.setSelection({});
    // Byte order puts a parent before its children, so each parent is there for them.
    std::vector<std::string> keys = top.getKeys();
    std::sort(keys.begin(), keys.end());
    for (const std::string& key : keys) {
        const auto entry = top.typedEntryAs<MapMetadata>(key);
        const auto typeId = entry ? entry->typedEntry<int>("typeId") : nullptr;
        if (!typeId)
            continue;
        const std::shared_ptr<BaseNode> node = makeNode(typeId->value(), NodePath(key));
        if (!node)
            continue;
        if (node->typeId() == MeshNode::kTypeId)
            static_cast<MeshNode&>(*node).geometryMap = entry->typedEntryAs<MapMetadata>("mesh");
        if (const auto attributes = entry->typedEntryAs<MapMetadata>("attributes"))
            node->attributes = *attributes;
        readValue(*entry, "translation", node->translation);
        readValue(*entry, "scale", node->scale);
        readValue(*entry, "pivot", node->pivot);
        readValue(*entry, "rotation", node->rotation);
        readValue(*entry, "color", node->color);
        readValue(*entry, "visible", node->visible);
        readValue(*entry, "active", node->active);
        std::string parent;
        readValue(*entry, "parent", parent);
        graph.addNode(node, parent);
    }
    // A node comes back hidden by itself; its branch is hidden as hiding it did.
    for (const auto& entry : graph.nodes)
        if (!entry.second->visible)
            graph.updateVisibility(entry.first);
    // Every scene has its solver, also one read from a file that lacks it.
    const std::shared_ptr<BaseNode> solver = graph.node("/Solver");
    if (!solver || solver->typeId() != SolverNode::kTypeId)
        graph.createSolver();
    return true;
}

} // namespace SceneFile
