#include "ConstraintNode.h"
#include "JointNode.h"
#include "MeshNode.h"
#include "RigidBodyNode.h"
#include "SolverNode.h"
#include "TransformNode.h"
#include "TypedArrayMetadata.h"

#include <gtest/gtest.h>

#include <cmath>
#include <set>

using ZentoCore::NodePath;

namespace {

Imath::V3d transformed(const Imath::M44d& m, const Imath::V3d& point)
{
    Imath::V3d out;
    m.multVecMatrix(point, out);
    return out;
}

constexpr double kQuarterTurn = M_PI / 2.0;

// A node of every class, with the type id that its class declares.
std::vector<std::pair<int, std::shared_ptr<BaseNode>>> oneOfEachClass()
{
    const NodePath path("/n");
    return {{TransformNode::kTypeId, std::make_shared<TransformNode>(path)},
            {JointNode::kTypeId, std::make_shared<JointNode>(path)},
            {MeshNode::kTypeId, std::make_shared<MeshNode>(path)},
            {RigidBodyNode::kTypeId, std::make_shared<RigidBodyNode>(path)},
            {ConstraintNode::kTypeId, std::make_shared<ConstraintNode>(path)},
            {SolverNode::kTypeId, std::make_shared<SolverNode>(path)}};
}

} // namespace

TEST(NodeClasses, TypeIdsAndNamesAreDistinctAndEachClassReportsItsOwn)
{
    const auto classes = oneOfEachClass();
    std::set<int> ids;
    std::set<std::string> names;
    for (const auto& [typeId, node] : classes) {
        EXPECT_EQ(node->typeId(), typeId) << node->typeName();
        ids.insert(typeId);
        names.insert(node->typeName());
    }
    // Scene files name each node's class by its id.
    EXPECT_EQ(ids.size(), classes.size());
    EXPECT_EQ(names.size(), classes.size());
}

// The attribute editor walks "__list__", showing each item's attribute under
// the "@" group headers, and offers an enum hint's options for an int.
TEST(NodeClasses, HintsNameAttributesOfTheirNode)
{
    using StringList = ZentoCore::TypedArrayMetadata<std::string>;
    for (const auto& [typeId, node] : oneOfEachClass()) {
        SCOPED_TRACE(node->typeName());
        const bool solver = typeId == SolverNode::kTypeId;
        const auto list = node->attributeHints.typedEntryAs<StringList>("__list__");
        std::set<std::string> listed;
        std::vector<std::string> withoutAttribute;
        for (const std::string& item : list ? list->get() : std::vector<std::string>()) {
            ASSERT_FALSE(item.empty());
            if (item[0] == '@')
                continue;
            listed.insert(item);
            if (!node->attributes.getEntry(item))
                withoutAttribute.push_back(item);
        }
        // The solver lists "enableDynamic", which names nothing, and saves
        // "useGpu" without offering it.
        EXPECT_EQ(withoutAttribute, solver ? std::vector<std::string>{"enableDynamic"} : std::vector<std::string>());
        // A body's record also carries its pose, which the editor does not show.
        if (typeId != RigidBodyNode::kTypeId) {
            std::vector<std::string> unlisted;
            for (const std::string& key : node->attributes.getKeys())
                if (!listed.count(key))
                    unlisted.push_back(key);
            EXPECT_EQ(unlisted, solver ? std::vector<std::string>{"useGpu"} : std::vector<std::string>());
        }

        for (const std::string& key : node->attributeHints.getKeys()) {
            if (key == "__list__")
                continue;
            const auto hint = node->attributeHints.typedEntryAs<ZentoCore::MapMetadata>(key);
            const auto options = hint ? hint->typedEntryAs<StringList>("enum") : nullptr;
            ASSERT_NE(options, nullptr) << key;
            const auto value = node->attributes.typedEntry<int>(key);
            ASSERT_NE(value, nullptr) << key << " is no int attribute";
            EXPECT_GE(value->get(), 0) << key;
            EXPECT_LT(value->get(), static_cast<int>(options->get().size())) << key << ": the default is an option";
            EXPECT_TRUE(listed.count(key)) << key;
        }
    }
}

TEST(NodeClasses, NodesOwnTheirAttributeValues)
{
    // Values shared between nodes would let an edit of one show in the other.
    const auto first = oneOfEachClass();
    const auto second = oneOfEachClass();
    for (size_t i = 0; i < first.size(); ++i)
        for (const auto& [key, value] : first[i].second->attributes)
            EXPECT_NE(value, second[i].second->attributes.getEntry(key)) << first[i].second->typeName() << " " << key;
}

TEST(Node, LocalMatrixScalesThenRotatesThenTranslates)
{
    TransformNode node(NodePath("/n"));
    node.rotation = Imath::Eulerd(0, 0, kQuarterTurn, Imath::Eulerd::XYZ);
    node.translation = Imath::V3d(1, 0, 0);
    EXPECT_TRUE(transformed(node.localMatrix(), Imath::V3d(1, 0, 0)).equalWithAbsError(Imath::V3d(1, 1, 0), 1e-12))
        << "rotation first, then translation";

    node.scale = Imath::V3d(2, 3, 4);
    EXPECT_TRUE(transformed(node.localMatrix(), Imath::V3d(1, 1, 1)).equalWithAbsError(Imath::V3d(1 - 3, 2, 4), 1e-12));

    const Imath::M44d before = node.localMatrix();
    node.pivot = Imath::V3d(5, 6, 7);
    EXPECT_EQ(node.localMatrix(), before) << "the pivot takes no part";
}

TEST(Node, RotationOrderShapesTheMatrix)
{
    TransformNode xyz(NodePath("/xyz"));
    TransformNode zyx(NodePath("/zyx"));
    xyz.rotation = Imath::Eulerd(Imath::V3d(kQuarterTurn, kQuarterTurn, 0), Imath::Eulerd::XYZ, Imath::Eulerd::XYZLayout);
    zyx.rotation = Imath::Eulerd(Imath::V3d(kQuarterTurn, kQuarterTurn, 0), Imath::Eulerd::ZYX, Imath::Eulerd::XYZLayout);
    // About x first, then y: z goes to -y, which y leaves alone.
    EXPECT_TRUE(transformed(xyz.localMatrix(), Imath::V3d(0, 0, 1)).equalWithAbsError(Imath::V3d(0, -1, 0), 1e-12));
    // About y first, then x: z goes to x, which x leaves alone.
    EXPECT_TRUE(transformed(zyx.localMatrix(), Imath::V3d(0, 0, 1)).equalWithAbsError(Imath::V3d(1, 0, 0), 1e-12));
}

TEST(Node, WorldMatrixWalksTheParents)
{
    TransformNode root(NodePath("/root"));
    TransformNode arm(NodePath("/root/arm"));
    TransformNode hand(NodePath("/root/arm/hand"));
    arm.parent = &root;
    hand.parent = &arm;
    root.children = {&arm};
    arm.children = {&hand};

    root.translation = Imath::V3d(0, 10, 0);
    root.scale = Imath::V3d(2, 2, 2);
    arm.rotation = Imath::Eulerd(0, 0, kQuarterTurn, Imath::Eulerd::XYZ);
    arm.translation = Imath::V3d(1, 0, 0);
    hand.translation = Imath::V3d(1, 0, 0);

    EXPECT_EQ(root.worldMatrix(), root.localMatrix()) << "world is local at the root";
    EXPECT_EQ(hand.worldMatrix(), hand.localMatrix() * arm.localMatrix() * root.localMatrix());
    // hand origin: (1,0,0) in arm space -> rotated (0,1,0) + (1,0,0) -> scaled (2,2,0) + (0,10,0).
    EXPECT_TRUE(transformed(hand.worldMatrix(), Imath::V3d(0, 0, 0)).equalWithAbsError(Imath::V3d(2, 12, 0), 1e-12));

    // Nothing is cached: a parent's change shows at once.
    root.translation = Imath::V3d(0, 0, 0);
    EXPECT_TRUE(transformed(hand.worldMatrix(), Imath::V3d(0, 0, 0)).equalWithAbsError(Imath::V3d(2, 2, 0), 1e-12));
}
