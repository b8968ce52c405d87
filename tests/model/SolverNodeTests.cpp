#include "SolverNode.h"

#include "TypedArrayMetadata.h"

#include <gtest/gtest.h>

#include <memory>
#include <set>
#include <string>
#include <vector>

using ZentoCore::MapMetadata;
using ZentoCore::Metadata;
using ZentoCore::MetadataImpl;
using ZentoCore::NodePath;
using ZentoCore::TypedArrayMetadata;

namespace {

struct ExpectedAttribute {
    std::string key;
    std::shared_ptr<Metadata> value;
};

template <typename T>
ExpectedAttribute expect(const std::string& key, const T& value)
{
    return {key, std::make_shared<MetadataImpl<T>>(value)};
}

// Every setting with the type and default that scene files and the simulation rely on.
std::vector<ExpectedAttribute> expectedAttributes()
{
    return {
        expect("useGpu", false),
        expect("enableDebugger", false),
        expect("debuggerHost", std::string("127.0.0.1")),
        expect("debuggerPort", 5425),
        expect("debuggerTimeout", 10),
        expect("subSamples", 10),
        expect("sceneScale", 1.0),
        expect("gravity", Imath::V3d(0.0, -9.81, 0.0)),
        expect("threads", -1),
        expect("frictionOffsetThresholdOverride", false),
        expect("frictionOffsetThreshold", 0.04),
        expect("ccdMaxSeparationOverride", false),
        expect("ccdMaxSeparation", 0.04),
        expect("solverOffsetSlopeOverride", false),
        expect("solverOffsetSlope", 0.0),
        expect("bounceThresholdVelocityOverride", false),
        expect("bounceThresholdVelocity", 2.0),
        expect("solverType", 0),
        expect("aggregateSelfCollision", true),
        expect("enableKineKineCollisionFilter", true),
        expect("enableStaticKineCollisionFilter", true),
    };
}

std::vector<std::string> displayList(const BaseNode& node)
{
    auto list = node.attributeHints.typedEntryAs<TypedArrayMetadata<std::string>>("__list__");
    return list ? list->get() : std::vector<std::string>();
}

} // namespace

TEST(SolverNode, IsTheSolverAndDrawsNothing)
{
    SolverNode node(NodePath("/Solver"));
    EXPECT_EQ(node.typeId(), 5);
    EXPECT_EQ(node.typeName(), "Solver");
    EXPECT_EQ(&node.typeName(), &SolverNode(NodePath("/Other")).typeName()) << "one static name";
    EXPECT_FALSE(node.skipsRendering());
    EXPECT_EQ(node.geometry(), nullptr);
    EXPECT_FALSE(node.geometryFollowsChildren());
    EXPECT_FALSE(node.geometryFollowsAttributes());
    std::vector<GuideLine> lines;
    node.guideLines(lines);
    EXPECT_TRUE(lines.empty());
}

TEST(SolverNode, EverySettingHasItsTypeAndDefault)
{
    SolverNode node(NodePath("/Solver"));
    const std::vector<ExpectedAttribute> expected = expectedAttributes();
    EXPECT_EQ(node.attributes.size(), expected.size()) << "nothing but settings in the saved map";
    for (const ExpectedAttribute& attribute : expected) {
        SCOPED_TRACE(attribute.key);
        const std::shared_ptr<Metadata> value = node.attributes.getEntry(attribute.key);
        ASSERT_NE(value, nullptr);
        EXPECT_EQ(value->typeId(), attribute.value->typeId());
        EXPECT_TRUE(value->isEqual(attribute.value.get(), 0.0)) << value->toString();
    }
}

TEST(SolverNode, DisplayListShowsTheSettingsInOrder)
{
    SolverNode node(NodePath("/Solver"));
    const std::vector<std::string> expectedList = {
        "enableDynamic",
        "subSamples",
        "sceneScale",
        "gravity",
        "threads",
        "solverType",
        "frictionOffsetThresholdOverride",
        "frictionOffsetThreshold",
        "ccdMaxSeparationOverride",
        "ccdMaxSeparation",
        "solverOffsetSlopeOverride",
        "solverOffsetSlope",
        "bounceThresholdVelocityOverride",
        "bounceThresholdVelocity",
        "enableKineKineCollisionFilter",
        "enableStaticKineCollisionFilter",
        "aggregateSelfCollision",
        "@Debug",
        "enableDebugger",
        "debuggerHost",
        "debuggerPort",
        "debuggerTimeout",
    };
    EXPECT_EQ(displayList(node), expectedList);

    // Walk the list as the attribute editor does: headers aside, only
    // "enableDynamic" finds no value, and only "useGpu" is never listed.
    std::set<std::string> unlisted;
    for (const std::string& key : node.attributes.getKeys())
        unlisted.insert(key);
    std::vector<std::string> withoutValue;
    for (const std::string& item : displayList(node)) {
        if (item.rfind('@', 0) == 0)
            continue;
        if (!node.attributes.getEntry(item))
            withoutValue.push_back(item);
        unlisted.erase(item);
    }
    EXPECT_EQ(withoutValue, std::vector<std::string>{"enableDynamic"});
    EXPECT_EQ(unlisted, std::set<std::string>{"useGpu"});
}

TEST(SolverNode, SolverTypeIsAnEnumOfPgsAndTgs)
{
    SolverNode node(NodePath("/Solver"));
    EXPECT_EQ(node.attributeHints.getKeys(), (std::vector<std::string>{"__list__", "solverType"}))
        << "no other attribute is an enumeration";

    auto hint = node.attributeHints.typedEntryAs<MapMetadata>("solverType");
    ASSERT_NE(hint, nullptr);
    EXPECT_EQ(hint->getKeys(), std::vector<std::string>{"enum"});
    auto options = hint->typedEntryAs<TypedArrayMetadata<std::string>>("enum");
    ASSERT_NE(options, nullptr);
    EXPECT_EQ(options->get(), (std::vector<std::string>{"PGS", "TGS"}));
    ASSERT_NE(node.attributes.typedEntry<int>("solverType"), nullptr) << "an enum holds the option's index";
}

TEST(SolverNode, NodesDoNotShareSettings)
{
    SolverNode first(NodePath("/Solver"));
    SolverNode second(NodePath("/Solver"));
    first.attributes.typedEntry<Imath::V3d>("gravity")->set(Imath::V3d(0.0, 0.0, -9.81));
    first.attributes.typedEntry<int>("solverType")->set(1);
    EXPECT_EQ(second.attributes.typedEntry<Imath::V3d>("gravity")->value(), Imath::V3d(0.0, -9.81, 0.0));
    EXPECT_EQ(second.attributes.typedEntry<int>("solverType")->value(), 0);
}
