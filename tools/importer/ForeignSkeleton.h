#pragma once

#include <string>

namespace Zento {

// Reads a skeleton with Assimp and writes it as a ".zentoskel" file. The
// joints are the nodes that skin bones name with their ancestors up to the
// lowest node above all of them, which is the root and carries its world
// pose; a file with no skin gives its whole node tree. The rest pose is the
// nodes' own transforms. False, with the reason naming file in error, when
// the file cannot be read or its skeleton cannot be held.
bool convertSkeleton(const std::string& file, const std::string& output, std::string& error);

} // namespace Zento
