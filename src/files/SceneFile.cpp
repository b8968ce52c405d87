#include "SceneFile.h"

#include "Archive.h"
#include "LoaderFiles.h"
#include "MathUtils.h"
#include "ConstraintNode.h"
#include "JointNode.h"
#include "MeshNode.h"
#include "RigidBodyNode.h"
#include "SolverNode.h"
#include "ZentoSceneGraph.h"

#include <algorithm>
#include <unordered_map>

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

// The node of one entry, or null for a type that no class has, which is passed over.
std::shared_ptr<BaseNode> readNode(const std::string& key, const MapMetadata& entry)
{
    const std::shared_ptr<BaseNode> node = makeNode(entry.typedEntry<int>("typeId")->value(), NodePath(key));
    if (!node)
        return nullptr;
    if (node->typeId() == MeshNode::kTypeId)
        static_cast<MeshNode&>(*node).geometryMap = entry.typedEntryAs<MapMetadata>("mesh");
    if (const auto attributes = entry.typedEntryAs<MapMetadata>("attributes"))
        node->attributes = *attributes;
    readValue(entry, "translation", node->translation);
    readValue(entry, "scale", node->scale);
    readValue(entry, "pivot", node->pivot);
    readValue(entry, "rotation", node->rotation);
    readValue(entry, "color", node->color);
    readValue(entry, "visible", node->visible);
    readValue(entry, "active", node->active);
    return node;
}

// The nodes of the file, parents first, checked as a whole before any goes
// into the scene: why the scene cannot hold them, or the empty text.
std::string readNodes(const MapMetadata& top, std::vector<ZentoSceneGraph::NewNode>& nodes)
{
    // Byte order puts a parent before its children, so each parent's world
    // matrix is there for them.
    std::vector<std::string> keys = top.getKeys();
    std::sort(keys.begin(), keys.end());
    std::unordered_map<std::string, Imath::M44d> worlds;
    for (const std::string& key : keys) {
        const auto entry = top.typedEntryAs<MapMetadata>(key);
        if (!entry)
            continue; // "version"
        const std::shared_ptr<BaseNode> node = readNode(key, *entry);
        if (!node)
            continue;
        const std::string named = "the node \"" + key + "\" ";
        if (!entry->isFinite())
            return named + "holds a number that is not finite";
        // A parent that is not the parent of the path could be the node
        // itself or one of its descendants: a tree could not be built.
        std::string parent;
        readValue(*entry, "parent", parent);
        if (!parent.empty() && parent != node->path.parentPath().string())
            return named + "names \"" + parent + "\" as its parent, which is not the parent of its path";
        if (key == SolverNode::kPath && node->typeId() != SolverNode::kTypeId)
            return named + "is a " + node->typeName() + ", but that path is the solver's";
        const auto parentWorld = worlds.find(parent);
        const Imath::M44d world =
            parentWorld == worlds.end() ? node->localMatrix() : node->localMatrix() * parentWorld->second;
        if (!isFinite(world))
            return named + "lies too far away: its world matrix overflows";
        worlds.emplace(key, world);
        nodes.push_back({node, parent});
    }
    return std::string();
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

bool load(ZentoSceneGraph& graph, const std::string& file, std::string* error)
{
    MapMetadata top;
    if (!Zento::readArchiveMap(file, top, error))
        return false;
    if (!isSceneFile(top)) {
        Zento::setError(error, Zento::cannotRead(file, "it is no scene file"));
        return false;
    }
    std::vector<ZentoSceneGraph::NewNode> nodes;
    const std::string problem = readNodes(top, nodes);
    if (!problem.empty()) {
        Zento::setError(error, Zento::cannotRead(file, problem));
        return false;
    }
    graph.removeNodes(graph.nodePaths());
    graph.setSelection({});
    graph.addNodes(nodes);
    // Every scene has its solver, also one read from a file that lacks it.
    if (!graph.node(SolverNode::kPath))
        graph.createSolver();
    return true;
}

} // namespace SceneFile
