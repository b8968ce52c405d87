#include "NodePath.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <set>
#include <unordered_set>

using ZentoCore::NodePath;

TEST(NodePath, NamesMayHoldAnyPrintableCharacter)
{
    for (const char* text : {"/", "/Skeleton", "/Skeleton/mixamorig:Hips", "/Skeleton/Left Arm/Hand_RB",
                             "/a.b/c-d/\xC3\xA9t\xC3\xA9", "/Ground1"}) {
        const NodePath path(text);
        EXPECT_FALSE(path.isEmpty()) << text;
        EXPECT_EQ(path.string(), text);
    }
    EXPECT_EQ(NodePath("/Skeleton/mixamorig:Hips").name(), "mixamorig:Hips");
}

TEST(NodePath, MalformedTextsGiveTheEmptyPath)
{
    for (const char* text : {"", "Skeleton", "Skeleton/Hips", "/a//b", "/a/", "//", "/a\tb", "/a\nb", "/a\x7f"}) {
        EXPECT_TRUE(NodePath(text).isEmpty()) << "\"" << text << "\"";
        EXPECT_FALSE(NodePath::isValidText(text));
    }
    EXPECT_TRUE(NodePath(std::string("/a\0b", 4)).isEmpty());
}

TEST(NodePath, NameParentAndChild)
{
    const NodePath hand("/Skeleton/Arm/Hand");
    EXPECT_EQ(hand.name(), "Hand");
    EXPECT_EQ(hand.parentPath(), NodePath("/Skeleton/Arm"));
    EXPECT_EQ(NodePath("/Skeleton").parentPath(), NodePath::absoluteRoot());
    EXPECT_TRUE(NodePath::absoluteRoot().parentPath().isEmpty());
    EXPECT_TRUE(NodePath().parentPath().isEmpty());
    EXPECT_EQ(NodePath::absoluteRoot().name(), "");

    EXPECT_EQ(NodePath::absoluteRoot().appendChild("Skin"), NodePath("/Skin"));
    EXPECT_EQ(hand.appendChild("Hand_RB").string(), "/Skeleton/Arm/Hand/Hand_RB");
    EXPECT_TRUE(hand.appendChild("").isEmpty());
    EXPECT_TRUE(hand.appendChild("a/b").isEmpty());
    EXPECT_TRUE(NodePath().appendChild("a").isEmpty());
}

TEST(NodePath, PrefixIsWholeElements)
{
    const NodePath arm("/Skeleton/Arm");
    EXPECT_TRUE(NodePath("/Skeleton/Arm/Hand").hasPrefix(arm));
    EXPECT_TRUE(arm.hasPrefix(arm));
    EXPECT_FALSE(NodePath("/Skeleton/Arm2/Hand").hasPrefix(arm));
    EXPECT_FALSE(NodePath("/Skeleton").hasPrefix(arm));
    EXPECT_TRUE(arm.hasPrefix(NodePath::absoluteRoot()));
    EXPECT_FALSE(arm.hasPrefix(NodePath()));
}

TEST(NodePath, AParentSortsRightBeforeEverythingBelowIt)
{
    std::vector<NodePath> paths;
    for (const char* text : {"/a b", "/a/b", "/a", "/a-c", "/a/b/c", "/a0", "/a/a", "/", "/B", "/a b/c"})
        paths.emplace_back(text);
    std::sort(paths.begin(), paths.end());
    std::vector<std::string> sorted;
    for (const NodePath& path : paths)
        sorted.push_back(path.string());
    const std::vector<std::string> expected = {"/", "/B", "/a", "/a/a", "/a/b", "/a/b/c", "/a b", "/a b/c", "/a-c", "/a0"};
    EXPECT_EQ(sorted, expected);

    // Every subtree is one run in the order.
    for (size_t i = 0; i < paths.size(); ++i)
        for (size_t j = i + 1; j < paths.size(); ++j)
            for (size_t k = j + 1; k < paths.size(); ++k)
                if (paths[k].hasPrefix(paths[i])) {
                    EXPECT_TRUE(paths[j].hasPrefix(paths[i])) << paths[j].string() << " inside " << paths[i].string();
                }
}

TEST(NodePath, HashAndEqualityFollowTheText)
{
    std::unordered_set<NodePath> set = {NodePath("/a"), NodePath("/a"), NodePath("/b")};
    EXPECT_EQ(set.size(), 2u);
    EXPECT_NE(NodePath("/a"), NodePath("/a/b").parentPath().appendChild("c"));
    EXPECT_FALSE(NodePath("/a") < NodePath("/a"));
}
