#pragma once

#include "RagdollCheck.h"

#include <string>
#include <vector>

// The ragdoll check of one scene as zento-rig prints it: lines for a person,
// or one JSON object for a script.
namespace RigReport {

// The number with as many decimals, "1.75".
std::string fixed(double value, int decimals);

// "1 body", "2 bodies".
std::string counted(size_t count, const char* one, const char* many);

// "1 error, 2 warnings" and an indented line for each finding and for the
// drop test, each ended by a newline; dropTest null when none was run.
std::string text(const std::vector<RagdollCheck::Finding>& findings, const RagdollCheck::DropTest* dropTest);

// {"file": ..., "errors": n, "warnings": n, "findings": [{"severity", "kind", "nodes", "message"}],
//  "dropTest": {"finite", "secondsToRest", "worstLimitDegrees", "worstLimitConstraint", "worstSeparation",
//  "worstSeparationConstraint"}}, "dropTest" null when none was run; "secondsToRest" null when never at rest.
std::string json(const std::string& file, const std::vector<RagdollCheck::Finding>& findings,
                 const RagdollCheck::DropTest* dropTest);

// {"file": ..., "error": reason}: a scene that could not be checked.
std::string failure(const std::string& file, const std::string& reason);

// The objects of several scenes as one JSON array, in the order given.
std::string jsonArray(const std::vector<std::string>& objects);

} // namespace RigReport
