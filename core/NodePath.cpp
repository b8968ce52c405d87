#include "NodePath.h"

#include <algorithm>
#include <cstdint>
#include <cstring>

namespace ZentoCore {

namespace {

bool isControl(char c)
{
    const auto byte = static_cast<unsigned char>(c);
    return byte < 0x20 || byte == 0x7F;
}

// The separator sorts before every character a name can hold.
int orderKey(char c)
{
    return c == '/' ? 0 : static_cast<unsigned char>(c) + 1;
}

} // namespace

NodePath::NodePath(const std::string& text)
{
    if (isValidText(text))
        mText = text;
}

NodePath NodePath::absoluteRoot()
{
    return NodePath("/");
}

bool NodePath::isValidText(const std::string& text)
{
    if (text.empty() || text[0] != '/')
        return false;
    if (text.size() == 1)
        return true;
    if (text.back() == '/')
        return false;
    for (size_t i = 1; i < text.size(); ++i) {
        if (isControl(text[i]))
            return false;
        if (text[i] == '/' && text[i - 1] == '/')
            return false;
    }
    return true;
}

bool NodePath::isValidName(const std::string& name)
{
    if (name.empty())
        return false;
    for (char c : name)
        if (c == '/' || isControl(c))
            return false;
    return true;
}

std::string NodePath::name() const
{
    if (mText.size() <= 1)
        return std::string();
    return mText.substr(mText.rfind('/') + 1);
}

NodePath NodePath::parentPath() const
{
    if (mText.size() <= 1)
        return NodePath();
    const size_t slash = mText.rfind('/');
    return NodePath(slash == 0 ? std::string("/") : mText.substr(0, slash));
}

NodePath NodePath::appendChild(const std::string& name) const
{
    if (isEmpty() || !isValidName(name))
        return NodePath();
    NodePath child;
    child.mText = isAbsoluteRoot() ? "/" + name : mText + "/" + name;
    return child;
}

bool NodePath::hasPrefix(const NodePath& prefix) const
{
    if (prefix.isEmpty() || isEmpty())
        return false;
    if (prefix.isAbsoluteRoot() || prefix.mText == mText)
        return true;
    return mText.size() > prefix.mText.size() && mText.compare(0, prefix.mText.size(), prefix.mText) == 0
        && mText[prefix.mText.size()] == '/';
}

// Paths in one scene share long prefixes, and the graph and the delegate
// compare them on every lookup: the common prefix is skipped eight bytes at a time.
bool NodePath::operator<(const NodePath& other) const
{
    const std::string& a = mText;
    const std::string& b = other.mText;
    const size_t common = std::min(a.size(), b.size());
    size_t i = 0;
    for (; i + sizeof(uint64_t) <= common; i += sizeof(uint64_t)) {
        uint64_t wordA, wordB;
        std::memcpy(&wordA, a.data() + i, sizeof(wordA));
        std::memcpy(&wordB, b.data() + i, sizeof(wordB));
        if (wordA != wordB)
            break;
    }
    for (; i < common; ++i)
        if (a[i] != b[i])
            return orderKey(a[i]) < orderKey(b[i]);
    return a.size() < b.size();
}

} // namespace ZentoCore
