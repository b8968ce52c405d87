#include "ForeignMesh.h"

#include "AssimpScene.h"
#include "LoaderFiles.h"
#include "MeshLoader.h"
#include "SkeletonLoader.h"
#include "TypedArrayMetadata.h"
#include "UniqueNames.h"

#include <assimp/Importer.hpp>
#include <assimp/scene.h>

namespace Zento {

namespace {

using ZentoCore::MapMetadata;
using ZentoUtils::Mesh;

// The points and normals of a mesh, one per vertex, in its node's space,
// and the name of the joint that weighs each vertex most.
struct Vertices {
    std::vector<Imath::V3f> points;
    std::vector<Imath::V3f> normals; // empty when the mesh has none
    std::vector<std::string> joints; // "" for a vertex no bone weighs; empty for a mesh without bones
};

// A skinned mesh is placed at its bind pose, in the space of the skeleton
// that the file gives: each vertex at the sum over its bones of the weight
// times the vertex times the bone's offset (inverse bind) matrix times the
// bone node's world matrix, which puts the skin where its bones were bound,
// and then into its node's space (toNode). The weights are taken as shares
// of their sum, as skinning in the tools that write these files does: files
// whose weights add up to 0.95 or to 1.4 would otherwise shrink or swell the
// skin. A vertex that no bone weighs, as every vertex of an unskinned mesh,
// stays where its node puts it. Each vertex's joint is named as the skeleton
// of the same file names it, so that the two meet.
Vertices placedVertices(const aiScene& scene, const aiMesh& mesh, const Imath::M44d& toNode)
{
    Vertices out;
    const unsigned int count = mesh.mNumVertices;
    for (unsigned int v = 0; v < count; ++v)
        out.points.emplace_back(mesh.mVertices[v].x, mesh.mVertices[v].y, mesh.mVertices[v].z);
    if (mesh.mNormals)
        for (unsigned int v = 0; v < count; ++v)
            out.normals.emplace_back(mesh.mNormals[v].x, mesh.mNormals[v].y, mesh.mNormals[v].z);
    if (mesh.mNumBones == 0)
        return out;
    std::vector<Imath::V3d> points(count, Imath::V3d(0.0));
    std::vector<Imath::V3d> normals(count, Imath::V3d(0.0));
    std::vector<double> weights(count, 0.0);
    std::vector<double> heaviest(count, 0.0);
    out.joints.assign(count, std::string());
    for (unsigned int b = 0; b < mesh.mNumBones; ++b) {
        const aiBone& bone = *mesh.mBones[b];
        const aiNode* joint = scene.mRootNode->FindNode(bone.mName);
        if (!joint)
            continue; // a bone of no node: it moves nothing
        const std::string jointName = pathElementName(bone.mName.C_Str(), kJointFallbackName);
        const Imath::M44d bind = toImath(bone.mOffsetMatrix) * worldMatrix(joint);
        for (unsigned int w = 0; w < bone.mNumWeights; ++w) {
            const unsigned int v = bone.mWeights[w].mVertexId;
            if (v >= count)
                continue;
            const double weight = bone.mWeights[w].mWeight;
            Imath::V3d placed;
            bind.multVecMatrix(Imath::V3d(out.points[v]), placed);
            points[v] += weight * placed;
            if (mesh.mNormals) {
                bind.multDirMatrix(Imath::V3d(out.normals[v]), placed);
                normals[v] += weight * placed;
            }
            weights[v] += weight;
            if (weight > heaviest[v]) {
                heaviest[v] = weight;
                out.joints[v] = jointName;
            }
        }
    }
    for (unsigned int v = 0; v < count; ++v) {
        if (weights[v] == 0.0)
            continue;
        Imath::V3d inNode;
        toNode.multVecMatrix(points[v] / weights[v], inNode);
        out.points[v] = Imath::V3f(inNode);
        if (mesh.mNormals) {
            toNode.multDirMatrix(normals[v], inNode);
            out.normals[v] = Imath::V3f(inNode.normalized());
        }
    }
    return out;
}

bool isSkinned(const aiScene& scene, const aiNode& node)
{
    for (unsigned int m = 0; m < node.mNumMeshes; ++m)
        if (scene.mMeshes[node.mMeshes[m]]->mNumBones > 0)
            return true;
    return false;
}

// Appends the polygons of an Assimp mesh. Points and lines are no surface and
// are left out, as is any face with an index past the mesh's vertices.
void appendMesh(const aiMesh& in, const Vertices& vertices, bool withNormals, bool withUvs, Mesh& out)
{
    const int base = static_cast<int>(out.points.size());
    out.points.insert(out.points.end(), vertices.points.begin(), vertices.points.end());
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
                out.normals.push_back(vertices.normals[v]);
            if (withUvs)
                out.uvs.emplace_back(uvs[v].x, uvs[v].y);
        }
    }
}

// All meshes of a node as one; normals and uvs only when every mesh has them,
// so that they stay one per face corner; for a skinned node, in skinJoints,
// each point's joint. False, with the reason, for a skin that cannot be
// brought into its node's space.
bool nodeMesh(const aiScene& scene, const aiNode& node, Mesh& out, std::vector<std::string>& skinJoints,
              std::string& reason)
{
    Imath::M44d toNode;
    if (isSkinned(scene, node)) {
        const Imath::M44d world = worldMatrix(&node);
        if (world.determinant() == 0.0) {
            reason = "the skinned mesh of \"" + std::string(node.mName.C_Str())
                + "\" hangs under a node that scales it to nothing";
            return false;
        }
        toNode = world.inverse();
    }
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
    out.points.reserve(points);
    out.counts.reserve(faces);
    out.indices.reserve(corners);
    if (withNormals)
        out.normals.reserve(corners);
    if (withUvs)
        out.uvs.reserve(corners);
    const bool skinned = isSkinned(scene, node);
    for (unsigned int m = 0; m < node.mNumMeshes; ++m) {
        const aiMesh& mesh = *scene.mMeshes[node.mMeshes[m]];
        const Vertices vertices = placedVertices(scene, mesh, toNode);
        appendMesh(mesh, vertices, withNormals, withUvs, out);
        if (skinned)
            skinJoints.insert(skinJoints.end(), vertices.joints.begin(), vertices.joints.end());
        if (skinned && vertices.joints.empty())
            skinJoints.resize(out.points.size());
    }
    return true;
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
        auto skinJoints = std::make_shared<ZentoCore::TypedArrayMetadata<std::string>>();
        if (!nodeMesh(scene, node, geo->get(), skinJoints->get(), reason))
            return nullptr;
        tree->insertEntry(kMeshGeoKey, geo);
        if (!skinJoints->get().empty())
            tree->insertEntry(kMeshSkinJointsKey, skinJoints);
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
