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

// Makes the bodies and constraints of the file that the scene lacks, on the
// joints of the same short names; what exists stays. Returns the new paths,
// bodies first; nothing, with the reason in error, for a file that cannot be
// read, is no ragdoll, or adds nothing to this scene.
std::vector<std::string> loadRagdoll(ZentoSceneGraph& graph, const std::string& file, std::string* error = nullptr);

} // namespace RagdollFile
