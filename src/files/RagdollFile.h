#pragma once

#include <string>
#include <vector>

class ZentoSceneGraph;

// The .zentoragdoll file that the crowd runtime loads: bodies keyed by the
// short name of their joint and constraints by "ParentToChild", every matrix
// relative to a joint or a body, so that it applies to any skeleton with the
// same joint names.
namespace RagdollFile {

// Writes the bodies that sit on joints and the constraints between them; the
// scene is not changed. False when the file cannot be written.
bool exportRagdoll(const ZentoSceneGraph& graph, const std::string& file);

// The name without its namespace, what follows the last ':': "mixamorig:Hips"
// gives "Hips". Exporters of other tools put such prefixes on every joint.
std::string withoutNamespace(const std::string& name);

// The entries of a ragdoll file that found no place in the scene.
struct Unmatched {
    // The file's bodies whose joint name no node of the scene bears.
    std::vector<std::string> bodies;
    // The file's constraints whose child joint or parent body the scene lacks, by their names in the file.
    std::vector<std::string> constraints;
};

// Makes the bodies and constraints of the file that the scene lacks, on the
// joints of the same short names; what exists stays. A name that no node
// bears as it stands matches the node whose name is the same without
// namespace ("mixamorig:Hips" and "Hips"); the new nodes take the scene's
// names. Returns the new paths, bodies first; nothing, with the reason in
// error, for a file that cannot be read, is no ragdoll, or adds nothing to
// this scene. What found no place goes to unmatched.
std::vector<std::string> loadRagdoll(ZentoSceneGraph& graph, const std::string& file, std::string* error = nullptr,
                                     Unmatched* unmatched = nullptr);

} // namespace RagdollFile
