#include "CharacterImport.h"

#include "JointNode.h"
#include "MeshLoader.h"
#include "MeshNode.h"
#include "SkeletonLoader.h"
#include "ZentoSceneGraph.h"

using namespace ZentoCore;

namespace {

// A node made by an import, with the path of its parent in the import; the
// empty text for a node that hangs under nothing.
struct NewNode {
    std::shared_ptr<BaseNode> node;
    std::string parentPath;
};

Imath::Eulerd eulerOf(const Imath::Quatd& rotation)
{
    Imath::Eulerd euler; // XYZ
    euler.extract(rotation.toMatrix33());
    return euler;
}

void importJoint(const Joint& joint, const NodePath& path, const std::string& parentPath, std::vector<NewNode>& nodes)
{
    if (path.isEmpty())
        return; // a name that makes no path; the loaders do not give such
    auto node = std::make_shared<JointNode>(path);
    node->translation = joint.translation;
    node->scale = joint.scale;
    node->rotation = eulerOf(joint.rotation);
    node->attributes.typedEntry<int>("jointId")->set(joint.id);
    nodes.push_back({node, parentPath});
    for (unsigned short i = 0; i < joint.numChildren(); ++i)
        if (const Joint* child = joint.child(i))
            importJoint(*child, path.appendChild(child->name), path.string(), nodes);
}

void importMeshChildren(const MapMetadata& children, const NodePath& parentPath, std::vector<NewNode>& nodes,
                        std::vector<std::string>& names)
{
    for (const auto& entry : children) {
        const auto child = children.typedEntryAs<MapMetadata>(entry.first);
        const NodePath path = parentPath.appendChild(entry.first);
        if (!child || path.isEmpty())
            continue;
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
        if (const auto grandchildren = child->typedEntryAs<MapMetadata>(Zento::kMeshChildrenKey))
            importMeshChildren(*grandchildren, path, nodes, names);
    }
}

// Parents come before their children in the list, so each finds its parent in the scene.
void addAll(ZentoSceneGraph& graph, const std::vector<NewNode>& nodes, std::vector<std::string>& names)
{
    for (const NewNode& entry : nodes) {
        graph.addNode(entry.node, entry.parentPath);
        names.push_back(entry.node->path.string());
    }
}

} // namespace

namespace CharacterImport {

std::vector<std::string> loadSkeleton(ZentoSceneGraph& graph, const std::string& file, std::string* error)
{
    std::vector<std::string> names;
    const Skeleton skeleton = Zento::loadSkeleton(file, error);
    if (skeleton.numJoints() == 0)
        return names;
    const NodePath root("/Skeleton");
    std::vector<NewNode> nodes = {{std::make_shared<TransformNode>(root), ""}};
    names.push_back(root.string());
    // A root joint lies below "/Skeleton" by its path but hangs under nothing:
    // its local matrix is its world matrix.
    for (unsigned short id : skeleton.rootIds()) {
        const Joint& joint = skeleton.joint(id);
        importJoint(joint, root.appendChild(joint.name), "", nodes);
    }
    addAll(graph, nodes, names);
    return names;
}

std::vector<std::string> loadMesh(ZentoSceneGraph& graph, const std::string& file, std::string* error)
{
    std::vector<std::string> names;
    const std::shared_ptr<MapMetadata> tree = Zento::loadMesh(file, "*", error);
    if (!tree || tree->empty())
        return names;
    const NodePath root("/Skin");
    std::vector<NewNode> nodes = {{std::make_shared<TransformNode>(root), ""}};
    names.push_back(root.string());
    if (const auto children = tree->typedEntryAs<MapMetadata>(Zento::kMeshChildrenKey))
        importMeshChildren(*children, root, nodes, names);
    addAll(graph, nodes, names);
    return names;
}

} // namespace CharacterImport
