#include "ForeignMesh.h"

#include "AssimpScene.h"
#include "LoaderFiles.h"
#include "MeshLoader.h"
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
    size_t faces = 0;
    size_t corners = 0;
    for (unsigned int m = 0; m < node.mNumMeshes; ++m) {
        const aiMesh& mesh = *scene.mMeshes[node.mMeshes[m]];
        withNormals &= mesh.mNormals != nullptr;
        withUvs &= mesh.mTextureCoords[0] != nullptr;
        points += mesh.mNumVertices;
        faces += mesh.mNumFaces;
        for (unsigned int f = 0; f < mesh.mNumFaces; ++f)
            corners += mesh.mFaces[f].mNumIndices;
    }
    Mesh out;
    out.points.reserve(points);
    out.counts.reserve(faces);
    out.indices.reserve(corners);
    if (withNormals)
        out.normals.reserve(corners);
    if (withUvs)
        out.uvs.reserve(corners);
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
    if (hasUsableMeshes(scene, node)) {
        // Filled where it stays: a mesh can be large.
        auto geo = std::make_shared<ZentoCore::MetadataImpl<Mesh>>();
        geo->get() = nodeMesh(scene, node);
        tree->insertEntry(kMeshGeoKey, geo);
    }
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

} // namespace

bool convertMesh(const std::string& file, const std::string& output, std::string& error)
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
        error = cannotRead(file, reason);
        return false;
    }
    MapMetadata tree;
    if (rootIsGroup) {
        tree.insertEntry(kMeshChildrenKey, rootTree->getEntry(kMeshChildrenKey));
    } else {
        auto children = std::make_shared<MapMetadata>();
        children->insertEntry(pathElementName(root.mName.C_Str(), "node"), rootTree);
        tree.insertEntry(kMeshChildrenKey, children);
    }
    // Checked here, so that the message names the file and not the output.
    reason = meshTreeProblem(tree);
    if (!reason.empty()) {
        error = cannotRead(file, reason);
        return false;
    }
    return writeArchiveMap(tree, output, &error, ZentoCore::Archive::Sync::None);
}

} // namespace Zento
