#pragma once

#include <cstddef>
#include <functional>
#include <string>

namespace ZentoCore {

// An absolute path naming a node, such as "/Skeleton/Hips".
//
// Valid texts start with "/", have no empty element and no trailing "/" (but
// for the root "/" itself) and no control characters; any other character may
// stand in a name, so "mixamorig:Hips" and "Left Arm" are names. An invalid
// text gives the empty path. Paths order element by element, so a parent sorts
// right before everything below it.
class NodePath {
public:
    NodePath() = default;
    explicit NodePath(const std::string& text);

    static NodePath absoluteRoot();
    static bool isValidText(const std::string& text);
    static bool isValidName(const std::string& name);

    const std::string& string() const { return mText; }
    // The last element; empty for the root and the empty path.
    std::string name() const;
    // The empty path for the root and the empty path.
    NodePath parentPath() const;
    // The empty path when name is not a valid element or this path is empty.
    NodePath appendChild(const std::string& name) const;

    bool isEmpty() const { return mText.empty(); }
    bool isAbsoluteRoot() const { return mText == "/"; }
    // True for the path itself and every path below it.
    bool hasPrefix(const NodePath& prefix) const;

    bool operator==(const NodePath& other) const { return mText == other.mText; }
    bool operator!=(const NodePath& other) const { return mText != other.mText; }
    bool operator<(const NodePath& other) const;

private:
    std::string mText;
};

} // namespace ZentoCore

template <>
struct std::hash<ZentoCore::NodePath> {
    size_t operator()(const ZentoCore::NodePath& path) const noexcept
    {
        return std::hash<std::string>()(path.string());
    }
};
