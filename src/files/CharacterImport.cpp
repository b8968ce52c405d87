#include "CharacterImport.h"

#include "JointNode.h"
#include "LoaderFiles.h"
#include "MathUtils.h"
#include "MeshLoader.h"
#include "MeshNode.h"
#include "SkeletonLoader.h"
#include "UniqueNames.h"
#include "ZentoSceneGraph.h"

using namespace ZentoCore;

namespace {

using NewNode = ZentoSceneGraph::NewNode;

constexpr const char* kSkeletonPath = "/Skeleton";
constexpr const char* kSkinPath = "/Skin";

// Every node stores its full path, so a chain of joints costs the square of
// its depth in path text: a 65,535-joint chain would take gigabytes. Paths are
// held to the length that file systems allow, which no real character reaches.
constexpr size_t kMaxPathLength = 4096;

// The readers refuse quaternions that are no rotation; the others need not be unit ones.
Imath::Eulerd eulerOf(const Imath::Quatd& rotation)
{
    Imath::Quatd unit;
    ZentoCore::unitQuaternion(rotation, unit);
    Imath::Eulerd euler; // XYZ
    euler.extract(unit.toMatrix33());
    return euler;
}

// The path of a child named name, or the empty path with the reason in problem.
NodePath childPath(const NodePath& parent, const std::string& name, std::string& problem)
{
    const NodePath path = parent.appendChild(name);
    if (path.isEmpty())
        problem = "the name \"" + name + "\" cannot stand in a node path";
    else if (path.string().size() > kMaxPathLength)
        problem = "the nodes nest too deep: the path of \"" + name + "\" would be longer than "
            + std::to_string(kMaxPathLength) + " characters";
    else
        return path;
    return NodePath();
}

// The names below container that a new child must not take: the first
// element below it of every path in the scene, so that an import replaces
// nothing, not even a node whose parent is missing.
UniqueNames namesTakenBelow(const ZentoSceneGraph& graph, const NodePath& container)
{
    std::unordered_set<std::string> taken;
    const size_t start = container.string().size() + 1;
    for (auto entry = graph.nodes.upper_bound(container);
         entry != graph.nodes.end() && entry->first.hasPrefix(container); ++entry)
        taken.insert(entry->first.string().substr(start, entry->first.string().find('/', start) - start));
    return UniqueNames(std::move(taken));
}

// The node at path that the import hangs below: the scene's own when there is
// one, else a new group at the head of the import.
void useContainer(const ZentoSceneGraph& graph, const NodePath& path, std::vector<NewNode>& nodes,
                  std::vector<std::string>& names)
{
    if (graph.nodeByPath(path))
        return;
    nodes.push_back({std::make_shared<TransformNode>(path), ""});
    names.push_back(path.string());
}

// The joints depth first, children in order, so each parent comes before its
// children; on a stack of its own, so that no depth exhausts the call stack.
// A root joint lies below "/Skeleton" by its path but hangs under nothing:
// its local matrix is its world matrix. Why it cannot, or the empty text.
std::string importJoints(const Skeleton& skeleton, UniqueNames& rootNames, std::vector<NewNode>& nodes)
{
    std::vector<std::pair<const Joint*, std::shared_ptr<BaseNode>>> pending;
    for (auto id = skeleton.rootIds().rbegin(); id != skeleton.rootIds().rend(); ++id)
        pending.emplace_back(&skeleton.joint(*id), nullptr);
    std::string problem;
    while (!pending.empty()) {
        const Joint& joint = *pending.back().first;
        const std::shared_ptr<BaseNode> parent = pending.back().second;
        pending.pop_back();
        const NodePath path = parent ? childPath(parent->path, joint.name, problem)
                                     : childPath(NodePath(kSkeletonPath), rootNames.claim(joint.name), problem);
        if (path.isEmpty())
            return problem;
        auto node = std::make_shared<JointNode>(path);
        node->translation = joint.translation;
        node->scale = joint.scale;
        node->rotation = eulerOf(joint.rotation);
        node->attributes.typedEntry<int>("jointId")->set(joint.id);
        nodes.push_back({node, parent ? parent->path.string() : std::string()});
        for (unsigned short i = joint.numChildren(); i-- > 0;)
            pending.emplace_back(joint.child(i), node);
    }
    return problem;
}

// Recursive: a mesh tree is at most kMaxMeshDepth levels deep. Why it cannot,
// or the empty text.
std::string importMeshChildren(const MapMetadata& children, const NodePath& parentPath, UniqueNames* topNames,
                               std::vector<NewNode>& nodes, std::vector<std::string>& names)
{
    for (const auto& entry : children) {
        const auto child = children.typedEntryAs<MapMetadata>(entry.first);
        if (!child)
            continue;
        std::string problem;
        const NodePath path = childPath(parentPath, topNames ? topNames->claim(entry.first) : entry.first, problem);
        if (path.isEmpty())
            return problem;
        std::shared_ptr<BaseNode> node;
        if (child->typedEntry<ZentoUtils::Mesh>(Zento::kMeshGeoKey)) {
            auto mesh = std::make_shared<MeshNode>(path);
            mesh->geometryMap = child;
            node = mesh;
        } else {
            node = std::make_shared<TransformNode>(path);
        }
        if (const auto pivot = child->typedEntry<Imath::V3d>(Zento::kMeshPivotKey))
            node->pivot = pivot->get();
        if (const auto translation = child->typedEntry<Imath::V3d>(Zento::kMeshTranslationKey))
            node->translation = translation->get();
        if (const auto scale = child->typedEntry<Imath::V3d>(Zento::kMeshScaleKey))
            node->scale = scale->get();
        if (const auto rotation = child->typedEntry<Imath::Quatd>(Zento::kMeshRotationKey))
            node->rotation = eulerOf(rotation->get());
        nodes.push_back({node, parentPath.string()});
        names.push_back(path.string());
        if (const auto grandchildren = child->typedEntryAs<MapMetadata>(Zento::kMeshChildrenKey)) {
            problem = importMeshChildren(*grandchildren, path, nullptr, nodes, names);
            if (!problem.empty())
                return problem;
        }
    }
    return std::string();
}

std::string patternsOf(const std::vector<std::string>& extensions)
{
    std::string patterns;
    for (const std::string& extension : extensions)
        patterns += (patterns.empty() ? "*" : " *") + extension;
    return patterns;
}

// Adds the nodes once all are made, so a refused file leaves the scene as it was.
std::vector<std::string> addAll(ZentoSceneGraph& graph, const std::vector<NewNode>& nodes,
                                std::vector<std::string>& names, const std::string& file, const std::string& problem,
                                std::string* error)
{
    if (!problem.empty()) {
        Zento::setError(error, Zento::cannotRead(file, problem));
        return {};
    }
    graph.addNodes(nodes);
    for (const NewNode& entry : nodes)
        names.push_back(entry.node->path.string());
    return names;
}

} // namespace

namespace CharacterImport {

std::vector<std::string> loadSkeleton(ZentoSceneGraph& graph, const std::string& file, std::string* error)
{
    const Skeleton skeleton = Zento::loadSkeleton(file, error);
    if (skeleton.numJoints() == 0)
        return {};
    std::vector<NewNode> nodes;
    std::vector<std::string> names;
    const NodePath root(kSkeletonPath);
    useContainer(graph, root, nodes, names);
    UniqueNames rootNames = namesTakenBelow(graph, root);
    const std::string problem = importJoints(skeleton, rootNames, nodes);
    return addAll(graph, nodes, names, file, problem, error);
}

std::vector<std::string> loadMesh(ZentoSceneGraph& graph, const std::string& file, std::string* error)
{
    const std::shared_ptr<MapMetadata> tree = Zento::loadMesh(file, "*", error);
    if (tree->empty())
        return {};
    std::vector<NewNode> nodes;
    std::vector<std::string> names;
    const NodePath root(kSkinPath);
    useContainer(graph, root, nodes, names);
    UniqueNames topNames = namesTakenBelow(graph, root);
    std::string problem;
    if (const auto children = tree->typedEntryAs<MapMetadata>(Zento::kMeshChildrenKey))
        problem = importMeshChildren(*children, root, &topNames, nodes, names);
    return addAll(graph, nodes, names, file, problem, error);
}

std::string skeletonFilePatterns()
{
    return patternsOf(Zento::skeletonExtensions());
}

std::string meshFilePatterns()
{
    return patternsOf(Zento::meshExtensions());
}

} // namespace CharacterImport
