#include "JointNode.h"
#include "RigidBodyNode.h"
#include "SceneState.h"
#include "SolverNode.h"
#include "ZentoSceneGraph.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

using namespace ZentoCore;

namespace {

size_t triangleCount(const ZentoSceneDelegate& delegate, const std::string& path)
{
    const ZentoSceneDelegate::_Mesh* mesh = delegate.mesh(NodePath(path));
    return mesh ? mesh->numVerts.size() : 0;
}

} // namespace

TEST(JointNode, ALoneJointIsOneBallOf32Triangles)
{
    JointNode joint(NodePath("/Skeleton/Hips"));
    for (double size : {1.0, 2.0}) {
        joint.displaySize = size;
        const ZentoUtils::Mesh mesh = meshOf(joint);
        EXPECT_EQ(mesh.counts, std::vector<int>(32, 3));
        EXPECT_EQ(mesh.points.size(), 96u);
        EXPECT_TRUE(mesh.isValid());
        for (const Imath::V3f& point : mesh.points)
            EXPECT_NEAR(point.length(), 0.5 * size, 1e-6);
        // The poles of the ball are at -r and +r on y.
        float lowest = 0, highest = 0;
        for (const Imath::V3f& point : mesh.points) {
            lowest = std::min(lowest, point.y);
            highest = std::max(highest, point.y);
        }
        EXPECT_NEAR(lowest, -0.5 * size, 1e-6);
        EXPECT_NEAR(highest, 0.5 * size, 1e-6);
    }
}

TEST(JointNode, EachChildJointGetsABonePointingAtIt)
{
    ZentoSceneGraph graph;
    auto parent = addJoint(graph, "/Skeleton", Imath::V3d(0, 0, 0));
    addJoint(graph, "/Skeleton/Arm", Imath::V3d(3, 0, 0));
    addJoint(graph, "/Skeleton/Leg", Imath::V3d(0, -2, 0));

    // The first bone's 6 triangles come first, and its tip is at the first child.
    const auto tipAtArm = [](const ZentoUtils::Mesh& mesh) {
        return std::any_of(mesh.points.begin(), mesh.points.begin() + 18,
                           [](const Imath::V3f& point) { return (point - Imath::V3f(3, 0, 0)).length() < 1e-5f; });
    };
    const ZentoUtils::Mesh mesh = meshOf(*parent);
    // Per child: a bone of 6 triangles and a ball of 32.
    EXPECT_EQ(mesh.counts.size(), 2u * (6 + 32));
    EXPECT_TRUE(tipAtArm(mesh));
    EXPECT_EQ(triangleCount(graph.delegate(), "/Skeleton"), 76u) << "adding children rebuilt the parent in the delegate";

    // The display size changes base and ball, but the tip stays at the child.
    graph.setDisplaySize(2.0);
    const ZentoUtils::Mesh bigger = meshOf(*parent);
    EXPECT_TRUE(tipAtArm(bigger));
    EXPECT_NEAR(bigger.points[0].length(), std::sqrt(3.0) * 1.0, 1e-5) << "base corner at h = 0.5 * 2";
}

TEST(JointNode, OtherChildrenDrawNothingAndAZeroBoneStaysFinite)
{
    ZentoSceneGraph graph;
    auto joint = addJoint(graph, "/Skeleton", Imath::V3d(0, 0, 0));
    graph.addNode(std::make_shared<RigidBodyNode>(NodePath("/Skeleton/Skeleton_RB")), "/Skeleton");
    EXPECT_TRUE(meshOf(*joint).points.empty());

    addJoint(graph, "/Skeleton/Same", Imath::V3d(0, 0, 0));
    const ZentoUtils::Mesh mesh = meshOf(*joint);
    EXPECT_EQ(mesh.counts.size(), 6u + 32u);
    for (const Imath::V3f& point : mesh.points)
        EXPECT_TRUE(std::isfinite(point.x) && std::isfinite(point.y) && std::isfinite(point.z));
}

TEST(SceneGraph, LookupsAndTheTree)
{
    ZentoSceneGraph graph;
    auto root = addJoint(graph, "/Skeleton", Imath::V3d(0, 1, 0));
    auto child = addJoint(graph, "/Skeleton/mixamorig:Left Arm", Imath::V3d(1, 0, 0));
    EXPECT_EQ(graph.node("/Skeleton/mixamorig:Left Arm"), child);
    EXPECT_EQ(child->parent, root.get());
    EXPECT_EQ(root->children, std::vector<BaseNode*>{child.get()});
    EXPECT_EQ(graph.node("/Skeleton/"), nullptr);
    EXPECT_EQ(graph.node("Skeleton"), nullptr);
    EXPECT_EQ(graph.node(""), nullptr);
    EXPECT_EQ(graph.nodePaths(), (std::vector<std::string>{"/Skeleton", "/Skeleton/mixamorig:Left Arm"}));

    auto loose = std::make_shared<TransformNode>(NodePath("/Loose"));
    graph.addNode(loose, "");
    EXPECT_EQ(loose->parent, nullptr);
    EXPECT_EQ(graph.delegate().mesh(NodePath("/Loose")), nullptr) << "no geometry, no mesh";

    // The delegate holds the world matrix and the node's colour.
    const ZentoSceneDelegate::_Mesh* mesh = graph.delegate().mesh(NodePath("/Skeleton/mixamorig:Left Arm"));
    ASSERT_NE(mesh, nullptr);
    EXPECT_EQ(mesh->transform, child->worldMatrix());
    EXPECT_EQ(mesh->color, Imath::V3f(0.65f, 0.65f, 0.65f));
    EXPECT_EQ(mesh->opacity, 1.0f);

    graph.createSolver();
    auto solver = graph.node("/Solver");
    ASSERT_NE(solver, nullptr);
    EXPECT_EQ(solver->typeId(), SolverNode::kTypeId);
    EXPECT_FALSE(solver->active);
    graph.createSolver();
    EXPECT_EQ(graph.nodes.size(), 4u) << "one solver, however often";
}

TEST(SceneGraph, GroundsAreNumberedAndEachNameComesTwice)
{
    ZentoSceneGraph graph;
    EXPECT_EQ(graph.createGround(), (std::vector<std::string>{"/Ground", "/Ground"}));
    EXPECT_EQ(graph.createGround(), (std::vector<std::string>{"/Ground1", "/Ground1"}));
    EXPECT_EQ(graph.createGround(), (std::vector<std::string>{"/Ground2", "/Ground2"}));
    const auto ground = graph.node("/Ground1");
    ASSERT_NE(ground, nullptr);
    EXPECT_EQ(ground->typeId(), RigidBodyNode::kTypeId);
    EXPECT_EQ(ground->scale, Imath::V3d(10, 10, 10));
    EXPECT_EQ(ground->parent, nullptr);
}

TEST(SceneGraph, RemovingAParentAndItsChildReportsEachOnce)
{
    ZentoSceneGraph graph;
    auto root = addJoint(graph, "/Skeleton", Imath::V3d(0, 0, 0));
    auto arm = addJoint(graph, "/Skeleton/Arm", Imath::V3d(1, 0, 0));
    auto hand = addJoint(graph, "/Skeleton/Arm/Hand", Imath::V3d(1, 0, 0));
    addJoint(graph, "/Skeleton/Leg", Imath::V3d(0, -1, 0));
    EXPECT_EQ(triangleCount(graph.delegate(), "/Skeleton"), 76u);

    const auto removed = graph.removeNodes(std::vector<std::string>{"/Skeleton/Arm", "/Skeleton/Arm/Hand", "/Nothing"});
    EXPECT_EQ(removed.size(), 2u);
    EXPECT_EQ(removed.at("/Skeleton/Arm"), arm);
    EXPECT_EQ(removed.at("/Skeleton/Arm/Hand"), hand);
    EXPECT_EQ(graph.nodePaths(), (std::vector<std::string>{"/Skeleton", "/Skeleton/Leg"}));
    EXPECT_EQ(graph.delegate().mesh(NodePath("/Skeleton/Arm")), nullptr);
    EXPECT_EQ(graph.delegate().mesh(NodePath("/Skeleton/Arm/Hand")), nullptr);
    EXPECT_EQ(root->children, std::vector<BaseNode*>{graph.node("/Skeleton/Leg").get()});
    EXPECT_EQ(triangleCount(graph.delegate(), "/Skeleton"), 38u) << "the parent lost a bone";
    EXPECT_EQ(arm->parent, root.get()) << "kept for undo";

    EXPECT_EQ(graph.removeNode(NodePath("/Skeleton/Arm")), nullptr);
    EXPECT_TRUE(graph.removeNodes(std::vector<std::string>{"/Skeleton/Arm"}).empty());
}

TEST(SceneGraph, UpdateMatrixPushesTheSubtreeAndNeverGeometry)
{
    ZentoSceneGraph graph;
    auto root = addJoint(graph, "/Skeleton", Imath::V3d(0, 0, 0));
    auto arm = addJoint(graph, "/Skeleton/Arm", Imath::V3d(1, 0, 0));
    auto hand = addJoint(graph, "/Skeleton/Arm/Hand", Imath::V3d(1, 0, 0));
    graph.addNode(std::make_shared<TransformNode>(NodePath("/Skeleton/Arm/Hand/Empty")), "/Skeleton/Arm/Hand");
    auto tip = addJoint(graph, "/Skeleton/Arm/Hand/Empty/Tip", Imath::V3d(0, 1, 0));
    graph.delegate().clearDirtyBits();

    root->translation = Imath::V3d(0, 5, 0);
    root->rotation = Imath::Eulerd(0, 0, M_PI / 2, Imath::Eulerd::XYZ);
    graph.updateMatrix("/Skeleton");
    for (const auto& node : {root, arm, hand, tip}) {
        const ZentoSceneDelegate::_Mesh* mesh = graph.delegate().mesh(node->path);
        ASSERT_NE(mesh, nullptr);
        EXPECT_TRUE(mesh->transform.equalWithAbsError(node->worldMatrix(), 1e-12)) << node->path.string();
        EXPECT_EQ(mesh->dirtyBits, unsigned(ZentoSceneDelegate::DirtyTransform)) << "no points, no topology";
    }
    graph.updateMatrix("/Nothing");
}

TEST(SceneGraph, VisibilityCombinesWithTheStartingNodeOnly)
{
    ZentoSceneGraph graph;
    auto a = addJoint(graph, "/A", Imath::V3d(0, 0, 0));
    auto b = addJoint(graph, "/A/B", Imath::V3d(1, 0, 0));
    auto c = addJoint(graph, "/A/B/C", Imath::V3d(1, 0, 0));
    b->visible = false;
    graph.updateVisibility(a->path);
    EXPECT_TRUE(graph.delegate().GetVisible(a->path));
    EXPECT_FALSE(graph.delegate().GetVisible(b->path));
    EXPECT_TRUE(graph.delegate().GetVisible(c->path)) << "a hidden node between does not hide C";

    a->visible = false;
    graph.updateVisibility(a->path);
    EXPECT_FALSE(graph.delegate().GetVisible(c->path));
}

TEST(SceneGraph, SelectionKeepsTheGivenOrderOnce)
{
    ZentoSceneGraph graph;
    graph.setSelection({"/B", "/A", "/B", "not a path", "/C/D"});
    EXPECT_EQ(graph.selectedPaths(), (std::vector<std::string>{"/B", "/A", "/C/D"}));
    graph.setSelection({});
    EXPECT_TRUE(graph.selectedPaths().empty());
}

TEST(SceneDelegate, UnknownIdsAndEmptyExtents)
{
    ZentoSceneDelegate delegate;
    const NodePath id("/Nothing");
    EXPECT_FALSE(delegate.UpdateTransform(id, Imath::M44d()));
    EXPECT_FALSE(delegate.SetVisibility(id, false));
    EXPECT_TRUE(delegate.GetVisible(id)) << "no entry was created";
    EXPECT_EQ(delegate.GetTransform(id), Imath::M44d());
    const Imath::Box3d empty = delegate.GetExtent(id);
    EXPECT_GT(empty.min.x, empty.max.x) << "inverted, not a zero box";
    EXPECT_EQ(empty.min.x, double(std::numeric_limits<float>::max()));
    delegate.UpdateColor(id, Imath::V3f(1, 0, 0), 0.5f);
    delegate.UpdateMesh(id, Imath::M44d(), {}, {}, {});
    EXPECT_EQ(delegate.mesh(id), nullptr);

    Imath::M44d moved;
    moved.setTranslation(Imath::V3d(5, 0, 0));
    delegate.AddMesh(id, moved, {{-1, 2, 3}, {4, -5, 6}}, {2}, {0, 1});
    const Imath::Box3d extent = delegate.GetExtent(id);
    EXPECT_EQ(extent.min, Imath::V3d(-1, -5, 3)) << "local space: the transform is not applied";
    EXPECT_EQ(extent.max, Imath::V3d(4, 2, 6));
    delegate.AddMesh(NodePath("/Empty"), Imath::M44d(), {}, {}, {});
    EXPECT_GT(delegate.GetExtent(NodePath("/Empty")).min.x, 1e38);
    EXPECT_TRUE(delegate.SetVisibility(id, false));
    EXPECT_FALSE(delegate.GetVisible(id));

    delegate.RemoveMesh(id);
    EXPECT_EQ(delegate.GetTransform(id), Imath::M44d());
    EXPECT_TRUE(delegate.GetVisible(id));
}
