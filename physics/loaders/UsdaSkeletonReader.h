#pragma once

#include "Skeleton.h"

#include <string>
#include <vector>

namespace Zento {

// Reads the first Skeleton prim of a UsdSkel skeleton in USD's text form: the
// joint paths of "joints" ("Hips", "Hips/Spine", ...) and the pose of each
// joint from "restTransforms" (relative to the parent joint) or, without them,
// from "bindTransforms" (in the skeleton's space). A joint is named by the last
// element of its path; a joint whose parent path is no joint is a root. The
// joints come out in the file's order with their index as id. Any text is
// safe: on anything it cannot read, joints is empty and error tells why.
bool readUsdaSkeleton(const std::string& text, std::vector<ZentoCore::Joint>& joints, std::string* error);

} // namespace Zento
