#pragma once

#include "Skeleton.h"

#include <string>

namespace Zento {

// Reads a skeleton, by the file's extension:
// - ".zentoskel": our own format, as saveSkeleton writes it;
// - ".usda": a UsdSkel skeleton in USD's text form;
// - ".usd", ".usdc": refused, the binary form of USD cannot be read here;
// - anything else through Assimp (FBX, glTF/GLB, Collada, BVH, ...). The
//   joints are the nodes that skin bones name with their ancestors up to the
//   lowest node above all of them, which is the root and carries its world
//   pose; a file with no skin gives its whole node tree. The rest pose is the
//   nodes' own transforms.
// Joint names are the file's, but for "/" and control characters, which
// become "_", and siblings of the same name, which get a number.
// A file that cannot be read, or whose poses no scene can hold (a number that
// is not finite, a world matrix that overflows), gives an empty skeleton and,
// in error, the reason.
ZentoCore::Skeleton loadSkeleton(const std::string& file, std::string* error = nullptr);

// Writes a ".zentoskel" file atomically: a failed save leaves an existing file as it was.
bool saveSkeleton(const ZentoCore::Skeleton& skeleton, const std::string& file, std::string* error = nullptr);

} // namespace Zento
