#include "MeshLoader.h"

#include "LoaderFiles.h"
#include "MathUtils.h"
#include "UniqueNames.h"

#include <assimp/Importer.hpp>
#include <assimp/scene.h>

namespace Zento {

namespace {

using ZentoCore::MapMetadata;
using ZentoUtils::Mesh;

// Appends the polygons of an Assimp mesh. Points and lines are no surface and
// are left out, as is any face with an index past the mesh's vertices.
void appendMesh(const aiMesh& in, bool withNormals, bool withUvs, Mesh& out)
{
    const int base = static_cast<int>(out.points.size());
    out.points.reserve(out.points.size() + in.mNumVertices);
    for (unsigned int v = 0; v < in.mNumVertices; ++v)
        out.points.emplace_back(in.mVertices[v].x, in.mVertices[v].y, in.mVertices[v].z);
    const aiVector3D* uvs = in.mTextureCoords[0];
    for (unsigned int f = 0; f < in.mNumFaces; ++f) {
        const aiFace& face = in.mFaces[f];
        bool inside = face.mNumIndices >= 3;
        for (unsigned int c = 0; c < face.mNumIndices; ++c)
            inside &= face.mIndices[c] < in.mNumVertices;
        if (!inside)
            continue;
        out.counts.push_back(static_cast<int>(face.mNumIndices));
        for (unsigned int c = 0; c < face.mNumIndices; ++c) {
            const unsigned int v = face.mIndices[c];
            out.indices.push_back(base + static_cast<int>(v));
            if (withNormals)
                out.normals.emplace_back(in.mNormals[v].x, in.mNormals[v].y, in.mNormals[v].z);
            if (withUvs)
                out.uvs.emplace_back(uvs[v].x, uvs[v].y);
        }
    }
}

// All meshes of a node as one; normals and uvs only when every mesh has them,
// so that they stay one per face corner.
Mesh nodeMesh(const aiScene& scene, const aiNode& node)
{
    bool withNormals = true;
    bool withUvs = true;
    size_t points = 0;
    for (unsigned int m = 0; m < node.mNumMeshes; ++m) {
        const aiMesh& mesh = *scene.mMeshes[node.mMeshes[m]];
        withNormals &= mesh.mNormals != nullptr;
        withUvs &= mesh.mTextureCoords[0] != nullptr;
        points += mesh.mNumVertices;
    }
    Mesh out;
    out.points.reserve(points);
    for (unsigned int m = 0; m < node.mNumMeshes; ++m)
        appendMesh(*scene.mMeshes[node.mMeshes[m]], withNormals, withUvs, out);
    return out;
}

bool hasUsableMeshes(const aiScene& scene, const aiNode& node)
{
    for (unsigned int m = 0; m < node.mNumMeshes; ++m)
        if (node.mMeshes[m] >= scene.mNumMeshes)
            return false;
    return node.mNumMeshes > 0;
}

std::shared_ptr<MapMetadata> nodeTree(const aiScene& scene, const aiNode& node, int level, std::string& reason)
{
    if (level > kMaxMeshDepth) {
        reason = "its nodes nest deeper than " + std::to_string(kMaxMeshDepth) + " levels";
        return nullptr;
    }
    auto tree = std::make_shared<MapMetadata>();
    Imath::V3d translation;
    Imath::Quatd rotation;
    Imath::V3d scale;
    splitMatrix(toImath(node.mTransformation), translation, rotation, scale);
    tree->insertEntry(kMeshTranslationKey, std::make_shared<ZentoCore::MetadataImpl<Imath::V3d>>(translation));
    tree->insertEntry(kMeshRotationKey, std::make_shared<ZentoCore::MetadataImpl<Imath::Quatd>>(rotation));
    tree->insertEntry(kMeshScaleKey, std::make_shared<ZentoCore::MetadataImpl<Imath::V3d>>(scale));
    if (hasUsableMeshes(scene, node))
        tree->insertEntry(kMeshGeoKey, std::make_shared<ZentoCore::MetadataImpl<Mesh>>(nodeMesh(scene, node)));
    auto children = std::make_shared<MapMetadata>();
    ZentoCore::UniqueNames names;
    for (unsigned int c = 0; c < node.mNumChildren; ++c) {
        auto child = nodeTree(scene, *node.mChildren[c], level + 1, reason);
        if (!child)
            return nullptr;
        children->insertEntry(names.claim(pathElementName(node.mChildren[c]->mName.C_Str(), "node")), child);
    }
    tree->insertEntry(kMeshChildrenKey, children);
    return tree;
}

bool loadAssimpMesh(const std::string& file, MapMetadata& tree, std::string* error)
{
    Assimp::Importer importer;
    const aiScene* scene = importScene(importer, file, error);
    if (!scene)
        return false;
    const aiNode& root = *scene->mRootNode;
    // A root that neither holds meshes nor moves its children adds nothing.
    const bool rootIsGroup = !hasUsableMeshes(*scene, root) && root.mTransformation.IsIdentity();
    std::string reason;
    const auto rootTree = nodeTree(*scene, root, rootIsGroup ? 0 : 1, reason);
    if (!rootTree) {
        setError(error, cannotRead(file, reason));
        return false;
    }
    if (rootIsGroup) {
        tree.insertEntry(kMeshChildrenKey, rootTree->getEntry(kMeshChildrenKey));
    } else {
        auto children = std::make_shared<MapMetadata>();
        children->insertEntry(pathElementName(root.mName.C_Str(), "node"), rootTree);
        tree.insertEntry(kMeshChildrenKey, children);
    }
    return true;
}

// The local matrix of a node of the tree, as the scene will build it: scale,
// rotation, translation, each the identity when missing.
Imath::M44d localMatrix(const MapMetadata& tree)
{
    Imath::M44d local;
    if (const auto scale = tree.typedEntry<Imath::V3d>(kMeshScaleKey))
        local.setScale(scale->get());
    if (const auto rotation = tree.typedEntry<Imath::Quatd>(kMeshRotationKey))
        local *= rotation->get().normalized().toMatrix44();
    if (const auto translation = tree.typedEntry<Imath::V3d>(kMeshTranslationKey)) {
        Imath::M44d moving;
        moving.setTranslation(translation->get());
        local *= moving;
    }
    return local;
}

// Why a tree could not be read back or held by a scene: an invalid mesh, too
// deep a nesting, a number that is not finite or a world matrix that
// overflows; the empty text when it can. Recursive to kMaxMeshDepth levels.
std::string treeProblem(const MapMetadata& tree, int level, const Imath::M44d& parentWorld, const std::string& name)
{
    const std::string named = name.empty() ? std::string("the file's top") : "the node \"" + name + "\"";
    for (const auto& entry : tree)
        if (entry.first != kMeshChildrenKey && entry.second && !entry.second->isFinite())
            return named + " holds a number that is not finite";
    const Imath::M44d world = localMatrix(tree) * parentWorld;
    if (!ZentoCore::isFinite(world))
        return named + " lies too far away: its world matrix overflows";
    const auto geo = tree.typedEntry<Mesh>(kMeshGeoKey);
    if (geo && !geo->get().isValid())
        return named + " holds a mesh whose faces do not fit its points";
    const auto children = tree.typedEntryAs<MapMetadata>(kMeshChildrenKey);
    if (!children)
        return std::string();
    if (level >= kMaxMeshDepth && !children->empty())
        return "its nodes nest deeper than " + std::to_string(kMaxMeshDepth) + " levels";
    for (const auto& child : *children) {
        if (!child.second || child.second->typeId() != MapMetadata::staticTypeId())
            continue;
        const std::string problem =
            treeProblem(static_cast<const MapMetadata&>(*child.second), level + 1, world, child.first);
        if (!problem.empty())
            return problem;
    }
    return std::string();
}

// Matches name against a pattern where "*" is any run and "?" any one character.
bool matchesFilter(const std::string& name, const std::string& filter)
{
    size_t n = 0;
    size_t f = 0;
    size_t starF = std::string::npos;
    size_t starN = 0;
    while (n < name.size()) {
        if (f < filter.size() && (filter[f] == '?' || filter[f] == name[n])) {
            ++n;
            ++f;
        } else if (f < filter.size() && filter[f] == '*') {
            starF = f++;
            starN = n;
        } else if (starF != std::string::npos) {
            f = starF + 1;
            n = ++starN;
        } else {
            return false;
        }
    }
    while (f < filter.size() && filter[f] == '*')
        ++f;
    return f == filter.size();
}

void applyFilter(MapMetadata& tree, const std::string& filter)
{
    const auto children = tree.typedEntryAs<MapMetadata>(kMeshChildrenKey);
    if (!children)
        return;
    for (const auto& child : *children) {
        if (!child.second || child.second->typeId() != MapMetadata::staticTypeId())
            continue;
        auto& node = static_cast<MapMetadata&>(*child.second);
        if (!matchesFilter(child.first, filter))
            node.removeEntry(kMeshGeoKey);
        applyFilter(node, filter);
    }
}

} // namespace

std::shared_ptr<MapMetadata> loadMesh(const std::string& file, const std::string& filter, std::string* error)
{
    auto tree = std::make_shared<MapMetadata>();
    bool loaded = false;
    if (fileExtension(file) == ".geos")
        loaded = readArchiveMap(file, *tree, error);
    else
        loaded = loadAssimpMesh(file, *tree, error);
    if (loaded) {
        const std::string problem = treeProblem(*tree, 0, Imath::M44d(), std::string());
        loaded = problem.empty();
        if (!loaded)
            setError(error, cannotRead(file, problem));
    }
    if (!loaded)
        tree->clear();
    else
        applyFilter(*tree, filter);
    return tree;
}

bool saveMesh(const MapMetadata& tree, const std::string& file, std::string* error)
{
    const std::string problem = treeProblem(tree, 0, Imath::M44d(), std::string());
    if (!problem.empty()) {
        setError(error, "Cannot save \"" + file + "\": " + problem);
        return false;
    }
    return writeArchiveMap(tree, file, error);
}

} // namespace Zento
