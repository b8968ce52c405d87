#pragma once

#include <string>
#include <vector>

class ZentoSceneGraph;

// Brings a character into the scene: a skeleton file as joints below
// "/Skeleton", a mesh file as meshes and groups below "/Skin". Neither is a
// command: an import cannot be undone. Both return the new paths for the
// outliner ("/Skeleton", "/Skin" and mesh paths more than once), and nothing,
// with the reason in error, for a file that cannot be read or that the scene
// cannot hold; the scene is then left as it was.
//
// An import adds and never replaces. A second skeleton or skin goes beside
// the first: a root joint or top mesh whose name is taken below "/Skeleton"
// or "/Skin" gets the smallest free number ("Hips1"), as a second ground
// becomes "/Ground1". Nothing of the artist's scene is lost, the bodies on the
// first skeleton keep their joints, and the one not wanted can be deleted;
// refusing instead would make the artist delete work first to bring in a
// prop or a second character.
namespace CharacterImport {

std::vector<std::string> loadSkeleton(ZentoSceneGraph& graph, const std::string& file, std::string* error = nullptr);
std::vector<std::string> loadMesh(ZentoSceneGraph& graph, const std::string& file, std::string* error = nullptr);

// The files that each reads, as the patterns of a file dialog's filter: "*.zentoskel *.usda ...".
std::string skeletonFilePatterns();
std::string meshFilePatterns();

} // namespace CharacterImport
