#pragma once

#include <string>
#include <unordered_map>
#include <unordered_set>

namespace ZentoCore {

// Names that no two siblings share, handed out in time linear in the names:
// each name remembers the number it got last, so a thousand siblings of one
// name do not try a thousand numbers each.
class UniqueNames {
public:
    UniqueNames() = default;
    // With names that are taken already, such as those of nodes in the scene.
    explicit UniqueNames(std::unordered_set<std::string> taken);

    // name itself when it is free, else name with the smallest number from 1
    // that makes it free; the result is taken from then on.
    std::string claim(const std::string& name);

private:
    std::unordered_set<std::string> mTaken;
    std::unordered_map<std::string, unsigned long> mLastNumber;
};

} // namespace ZentoCore
