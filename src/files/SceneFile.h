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
// when it cannot be read or is no scene file, the result is false and the
// scene is left exactly as it was.
bool load(ZentoSceneGraph& graph, const std::string& file);

} // namespace SceneFile
