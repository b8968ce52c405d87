#pragma once

#include "Archive.h"
#include "MapMetadata.h"

#include <memory>
#include <string>
#include <vector>

namespace Zento {

// Keys of a mesh tree; MeshNode and the scene file read the same.
constexpr const char* kMeshChildrenKey = "children";
constexpr const char* kMeshGeoKey = "geo";
constexpr const char* kMeshPivotKey = "pivot";
constexpr const char* kMeshTranslationKey = "translation";
constexpr const char* kMeshRotationKey = "rotation";
constexpr const char* kMeshScaleKey = "scale";
// Beside "geo" of a skinned mesh, and only there: for each point of "geo",
// the name of the joint that weighs it most, as the skeleton of the same file
// names its joints; "" for a point that no joint weighs. Files without it
// are as good: a mesh that nothing weighs.
constexpr const char* kMeshSkinJointsKey = "skinJoints";

// Our own mesh file.
constexpr const char* kMeshExtension = ".geos";

// Every extension, with its dot, that loadMesh takes: ours, then the importer's.
std::vector<std::string> meshExtensions();

// Levels of nodes below the returned map that a ".geos" file can hold.
constexpr int kMaxMeshDepth = 31;

// Reads a mesh tree, by the file's extension: ".geos", our own format as
// saveMesh writes it, or anything else by the importer program, in a child
// process (FBX, glTF/GLB, Collada, OBJ, ...: see convertMesh of the importer).
//
// The map holds "children": a map from each child's name to a map of the same
// form, which holds the node's "translation", "rotation" (a quaternion) and
// "scale", its "children", and "geo" when the node holds meshes: all of them
// as one Mesh, in the node's own space.
//
// Only nodes whose name matches filter keep their "geo"; in filter "*" stands
// for any run of characters and "?" for any one, so "*" keeps all.
//
// Never null: a file that cannot be read, or that holds what no scene can (a
// number that is not finite, a world matrix that overflows), gives an empty
// map and, in error, the reason.
std::shared_ptr<ZentoCore::MapMetadata> loadMesh(const std::string& file, const std::string& filter = "*",
                                                 std::string* error = nullptr);

// Why a scene could not hold the tree: an invalid mesh, nodes deeper than
// kMaxMeshDepth, a number that is not finite or a world matrix that
// overflows; the empty text when it can.
std::string meshTreeProblem(const ZentoCore::MapMetadata& tree);

// Writes a ".geos" file atomically. False, and no file, for a tree that could
// not be read back: an invalid mesh, nodes deeper than kMaxMeshDepth, or what
// loadMesh refuses.
bool saveMesh(const ZentoCore::MapMetadata& tree, const std::string& file, std::string* error = nullptr,
              ZentoCore::Archive::Sync sync = ZentoCore::Archive::Sync::ToDisk);

} // namespace Zento
