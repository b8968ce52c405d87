#pragma once

#include <Imath/ImathMatrix.h>

#include <string>

struct aiNode;
struct aiScene;
template <typename T>
class aiMatrix4x4t;
namespace Assimp {
class Importer;
}

// What the importer's readers share: Assimp's settings and its matrices.
namespace Zento {

// Reads file with Assimp as both readers do: helper nodes of FBX pivots folded
// into their nodes, no post-processing. Null, with the importer's reason in
// error, when the file cannot be read.
const aiScene* importScene(Assimp::Importer& importer, const std::string& file, std::string& error);

// Assimp's matrices act on column vectors: transposed into the row-vector
// convention of the scene model.
Imath::M44d toImath(const aiMatrix4x4t<float>& m);

// The node's transform followed by those of all its ancestors: the node in
// the space of the file's root.
Imath::M44d worldMatrix(const aiNode* node);

} // namespace Zento
