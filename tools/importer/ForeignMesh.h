#pragma once

#include <string>

namespace Zento {

// Reads the meshes of a file with Assimp and writes them as a ".geos" file:
// the file's node tree with each node's transform, and in "geo" the polygons
// of the node's meshes as one mesh in the node's own space. A skinned mesh
// comes at its bind pose, in the space of the skeleton that convertSkeleton
// gives for the same file, so that the skin stands where its joints are. Names are the
// file's, but for "/" and control characters, which become "_", and siblings
// of the same name, which get a number. The file's root node appears as a
// child of its own only when it holds meshes or moves its children. False,
// with the reason naming file in error, when the file cannot be read or its
// meshes cannot be held.
bool convertMesh(const std::string& file, const std::string& output, std::string& error);

} // namespace Zento
