#include "ForeignSkeleton.h"

#include "AssimpScene.h"
#include "LoaderFiles.h"
#include "SkeletonLoader.h"

#include <assimp/Importer.hpp>
#include <assimp/scene.h>

#include <unordered_set>

namespace Zento {

namespace {

using ZentoCore::Joint;

// The lowest node that is an ancestor of, or is, every node given.
const aiNode* lowestCommonAncestor(const std::vector<const aiNode*>& nodes)
{
    const aiNode* common = nodes.front();
    for (const aiNode* node : nodes) {
        std::unordered_set<const aiNode*> above;
        for (const aiNode* n = node; n; n = n->mParent)
            above.insert(n);
        while (common && above.count(common) == 0)
            common = common->mParent;
    }
    return common;
}

// The joints depth first, children in the file's order, so every parent
// comes first; one more than a skeleton can hold at most.
std::vector<Joint> foreignJoints(const aiScene& scene)
{
    // The joints: bone nodes and every node between them and their common
    // ancestor, which is the root.
    std::vector<const aiNode*> bones;
    for (unsigned int m = 0; m < scene.mNumMeshes; ++m)
        for (unsigned int b = 0; b < scene.mMeshes[m]->mNumBones; ++b)
            if (const aiNode* node = scene.mRootNode->FindNode(scene.mMeshes[m]->mBones[b]->mName))
                bones.push_back(node);
    const aiNode* root = bones.empty() ? scene.mRootNode : lowestCommonAncestor(bones);
    std::unordered_set<const aiNode*> kept;
    for (const aiNode* node : bones)
        while (node && node != root && kept.insert(node).second)
            node = node->mParent;
    kept.insert(root);
    const auto isJoint = [&](const aiNode* node) { return bones.empty() || kept.count(node) != 0; };

    std::vector<Joint> joints;
    std::vector<std::pair<const aiNode*, int>> pending{{root, -1}};
    while (!pending.empty() && joints.size() <= ZentoCore::Skeleton::kMaxJoints) {
        const aiNode* node = pending.back().first;
        Joint joint;
        joint.parent = pending.back().second;
        pending.pop_back();
        joint.name = node->mName.C_Str();
        joint.id = static_cast<int>(joints.size());
        splitMatrix(node == root ? worldMatrix(node) : toImath(node->mTransformation), joint.translation,
                    joint.rotation, joint.scale);
        for (unsigned int c = node->mNumChildren; c-- > 0;)
            if (isJoint(node->mChildren[c]))
                pending.emplace_back(node->mChildren[c], joint.id);
        joints.push_back(std::move(joint));
    }
    return joints;
}

} // namespace

bool convertSkeleton(const std::string& file, const std::string& output, std::string& error)
{
    Assimp::Importer importer;
    const aiScene* scene = importScene(importer, file, error);
    if (!scene)
        return false;
    const ZentoCore::Skeleton skeleton = skeletonFromJoints(foreignJoints(*scene), file, &error);
    return skeleton.numJoints() > 0 && saveSkeleton(skeleton, output, &error, ZentoCore::Archive::Sync::None);
}

} // namespace Zento
