#include "AssimpScene.h"

#include "LoaderFiles.h"

#include <assimp/Importer.hpp>
#include <assimp/config.h>
#include <assimp/scene.h>

namespace Zento {

const aiScene* importScene(Assimp::Importer& importer, const std::string& file, std::string& error)
{
    error = fileProblem(file);
    if (!error.empty())
        return nullptr;
    importer.SetPropertyBool(AI_CONFIG_IMPORT_FBX_PRESERVE_PIVOTS, false);
    const aiScene* scene = importer.ReadFile(file, 0);
    if (!scene || !scene->mRootNode) {
        const std::string reason = importer.GetErrorString();
        error = cannotRead(file, reason.empty() ? "no scene in the file" : reason);
        return nullptr;
    }
    return scene;
}

Imath::M44d toImath(const aiMatrix4x4t<float>& m)
{
    return Imath::M44d(m.a1, m.b1, m.c1, m.d1, m.a2, m.b2, m.c2, m.d2, m.a3, m.b3, m.c3, m.d3, m.a4, m.b4, m.c4, m.d4);
}

Imath::M44d worldMatrix(const aiNode* node)
{
    Imath::M44d world;
    for (; node; node = node->mParent)
        world = world * toImath(node->mTransformation);
    return world;
}

} // namespace Zento
