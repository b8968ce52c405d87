#include "MeshLoader.h"

#include "LoaderFiles.h"

#include <assimp/Importer.hpp>
#include <assimp/scene.h>

namespace Zento {

namespace {

using ZentoCore::MapMetadata;
using ZentoUtils::Mesh;

std::string cannotRead(const std::string& file, const std::string& reason)
{
    return "Cannot read \"" + file + "\": " + reason;
}

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
    std::set<std::string> taken;
    for (unsigned int c = 0; c < node.mNumChildren; ++c) {
        auto child = nodeTree(scene, *node.mChildren[c], level + 1, reason);
        if (!child)
            return nullptr;
        children->insertEntry(uniqueName(pathElementName(node.mChildren[c]->mName.C_Str(), "node"), taken), child);
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

// What would stop a saved tree from being read back: an invalid mesh or too deep a nesting.
bool checkTree(const MapMetadata& tree, int level, std::string& reason)
{
    const auto geo = tree.typedEntry<Mesh>(kMeshGeoKey);
    if (geo && !geo->get().isValid()) {
        reason = "it holds a mesh whose faces do not fit its points";
        return false;
    }
    const auto children = tree.typedEntryAs<MapMetadata>(kMeshChildrenKey);
    if (!children)
        return true;
    if (level >= kMaxMeshDepth && !children->empty()) {
        reason = "its nodes nest deeper than " + std::to_string(kMaxMeshDepth) + " levels";
        return false;
    }
    for (const auto& child : *children)
        if (child.second && child.second->typeId() == MapMetadata::staticTypeId()
            && !checkTree(static_cast<const MapMetadata&>(*child.second), level + 1, reason))
            return false;
    return true;
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
    // Reading an archive checks meshes and nesting already.
    if (fileExtension(file) == ".geos")
        loaded = readArchiveMap(file, *tree, error);
    else
        loaded = loadAssimpMesh(file, *tree, error);
    if (!loaded)
        tree->clear();
    else
        applyFilter(*tree, filter);
    return tree;
}

bool saveMesh(const MapMetadata& tree, const std::string& file, std::string* error)
{
    std::string reason;
    if (!checkTree(tree, 0, reason)) {
        setError(error, "Cannot save \"" + file + "\": " + reason);
        return false;
    }
    return writeArchiveMap(tree, file, error);
}

} // namespace Zento
