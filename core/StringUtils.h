#pragma once

#include <string>
#include <vector>

namespace ZentoUtils {

// Appends to out the pieces of text between separators, empty pieces included
// ("/a/b" on '/' gives "", "a", "b"), so the last piece is a path's short name.
void splitString(const std::string& text, char separator, std::vector<std::string>& out);

} // namespace ZentoUtils
