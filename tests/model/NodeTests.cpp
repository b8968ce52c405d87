#include "TransformNode.h"

#include <gtest/gtest.h>

#include <cmath>

using ZentoCore::NodePath;

namespace {

Imath::V3d transformed(const Imath::M44d& m, const Imath::V3d& point)
{
    Imath::V3d out;
    m.multVecMatrix(point, out);
    return out;
}

constexpr double kQuarterTurn = M_PI / 2.0;

} // namespace

TEST(Node, StartsWithTheDocumentedState)
{
    TransformNode node(NodePath("/Skeleton/Hips"));
    EXPECT_EQ(node.typeId(), 0);
    EXPECT_EQ(node.typeName(), "Transform");
    EXPECT_EQ(&node.typeName(), &TransformNode(NodePath("/x")).typeName()) << "one static name";
    EXPECT_FALSE(node.skipsRendering());
    EXPECT_EQ(node.geometry(), nullptr);
    EXPECT_FALSE(node.geometryFollowsChildren());
    EXPECT_FALSE(node.geometryFollowsAttributes());
    std::vector<GuideLine> lines;
    node.guideLines(lines);
    EXPECT_TRUE(lines.empty());
    EXPECT_EQ(node.path.name(), "Hips");
    EXPECT_EQ(node.rotation.order(), Imath::Eulerd::XYZ);
    EXPECT_EQ(node.color, Imath::V4d(0.65, 0.65, 0.65, 1.0));
    EXPECT_EQ(node.scale, Imath::V3d(1, 1, 1));
    EXPECT_TRUE(node.visible);
    EXPECT_TRUE(node.active);
    EXPECT_EQ(node.displaySize, 1.0);
    EXPECT_EQ(node.parent, nullptr);
    EXPECT_TRUE(node.attributes.empty());
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
