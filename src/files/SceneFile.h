#pragma once

#include <string>

class ZentoSceneGraph;

// The .zento scene file: one map with "version" and an entry per node under
// its full path, holding its type, attributes, parent, transform, colour and
// state (and a mesh node's mesh).
namespace SceneFile {

// False when the file cannot be written; an existing file is then left as it was.
bool save(const ZentoSceneGraph& graph, const std::string& file);

// Replaces the whole scene. The file is read and checked as a whole first:
// when it cannot be read, is no scene file or describes what a scene cannot
// hold (a number that is not finite, a world matrix that overflows, a parent
// that is not the parent of the node's path, a node at "/Solver" that is not
// the solver), the result is false, error names the file and the reason, and
// the scene is left exactly as it was.
bool load(ZentoSceneGraph& graph, const std::string& file, std::string* error = nullptr);

} // namespace SceneFile
