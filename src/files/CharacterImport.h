#pragma once

#include <string>
#include <vector>

class ZentoSceneGraph;

// Brings a character into the scene: a skeleton file as joints below
// "/Skeleton", a mesh file as meshes and groups below "/Skin". Neither is a
// command: an import cannot be undone. Both return the new paths for the
// outliner ("/Skeleton", "/Skin" and mesh paths more than once), and nothing,
// with the reason in error, for a file that cannot be read.
namespace CharacterImport {

std::vector<std::string> loadSkeleton(ZentoSceneGraph& graph, const std::string& file, std::string* error = nullptr);
std::vector<std::string> loadMesh(ZentoSceneGraph& graph, const std::string& file, std::string* error = nullptr);

} // namespace CharacterImport
