#include "SceneState.h"

#include "MeshNode.h"

#include <gtest/gtest.h>

#include <algorithm>

SceneState capture(const ZentoSceneGraph& graph)
{
    SceneState state;
    state.selection = graph.selectedPaths();
    for (const auto& entry : graph.nodes) {
        const BaseNode& node = *entry.second;
        NodeState& s = state.nodes[entry.first.string()];
        s.object = entry.second.get();
        s.typeId = node.typeId();
        s.translation = node.translation;
        s.scale = node.scale;
        s.pivot = node.pivot;
        s.rotation = node.rotation.toMatrix44();
        s.order = node.rotation.order();
        s.color = node.color;
        s.visible = node.visible;
        s.active = node.active;
        s.attributes = node.attributes;
        s.parent = node.parent ? node.parent->path.string() : "";
        for (const BaseNode* child : node.children)
            s.children.push_back(child->path.string());
        std::sort(s.children.begin(), s.children.end());
        if (const ZentoSceneDelegate::_Mesh* mesh = graph.delegate().mesh(entry.first)) {
            s.hasMesh = true;
            s.meshTransform = mesh->transform;
            s.meshPoints = mesh->points.size();
        }
    }
    return state;
}

void expectSameScene(const SceneState& expected, const SceneState& actual, const std::string& when, bool sameObjects,
                     double tolerance)
{
    EXPECT_EQ(actual.selection, expected.selection) << when;
    ASSERT_EQ(actual.nodes.size(), expected.nodes.size()) << when;
    for (const auto& entry : expected.nodes) {
        const auto found = actual.nodes.find(entry.first);
        ASSERT_NE(found, actual.nodes.end()) << when << ": " << entry.first;
        const NodeState& e = entry.second;
        const NodeState& a = found->second;
        const std::string where = when + ": " + entry.first;
        if (sameObjects) {
            EXPECT_EQ(a.object, e.object) << where << " is the same object";
        }
        EXPECT_EQ(a.typeId, e.typeId) << where;
        EXPECT_TRUE(a.translation.equalWithAbsError(e.translation, tolerance)) << where << " " << a.translation << " " << e.translation;
        EXPECT_TRUE(a.scale.equalWithAbsError(e.scale, tolerance)) << where;
        EXPECT_TRUE(a.pivot.equalWithAbsError(e.pivot, 1e-12)) << where;
        EXPECT_TRUE(a.rotation.equalWithAbsError(e.rotation, tolerance)) << where;
        EXPECT_EQ(a.order, e.order) << where;
        EXPECT_EQ(a.color, e.color) << where;
        EXPECT_EQ(a.visible, e.visible) << where;
        EXPECT_EQ(a.active, e.active) << where;
        EXPECT_TRUE(a.attributes.isEqual(&e.attributes, tolerance)) << where << " " << a.attributes.toString();
        EXPECT_EQ(a.parent, e.parent) << where;
        EXPECT_EQ(a.children, e.children) << where;
        EXPECT_EQ(a.hasMesh, e.hasMesh) << where;
        EXPECT_EQ(a.meshPoints, e.meshPoints) << where;
        EXPECT_TRUE(a.meshTransform.equalWithAbsError(e.meshTransform, tolerance)) << where;
    }
}

std::shared_ptr<JointNode> addJoint(ZentoSceneGraph& graph, const std::string& path, const Imath::V3d& translation,
                                    const Imath::Eulerd& rotation)
{
    auto joint = std::make_shared<JointNode>(ZentoCore::NodePath(path));
    joint->translation = translation;
    joint->rotation = rotation;
    graph.addNode(joint, ZentoCore::NodePath(path).parentPath().string());
    return joint;
}

ZentoUtils::Mesh meshOf(BaseNode& node)
{
    const auto geometry = node.geometry();
    const auto geo = geometry ? geometry->typedEntry<ZentoUtils::Mesh>("geo") : nullptr;
    if (!geo) {
        ADD_FAILURE() << node.path.string() << " has no \"geo\" mesh";
        return ZentoUtils::Mesh();
    }
    return geo->get();
}

void addQuadSkin(ZentoSceneGraph& graph)
{
    graph.addNode(std::make_shared<TransformNode>(ZentoCore::NodePath("/Skin")), "");
    auto skin = std::make_shared<MeshNode>(ZentoCore::NodePath("/Skin/Body"));
    skin->geometryMap = std::make_shared<ZentoCore::MapMetadata>();
    auto geo = std::make_shared<ZentoCore::MetadataImpl<ZentoUtils::Mesh>>();
    geo->get().points = {{0, 0, 0}, {1, 0, 0}, {1, 1, 0}, {0, 1, 0}};
    geo->get().indices = {0, 1, 2, 3};
    geo->get().counts = {4};
    skin->geometryMap->insertEntry("geo", geo);
    graph.addNode(skin, "/Skin");
}

std::vector<std::string> pathsOfType(const ZentoSceneGraph& graph, int typeId)
{
    std::vector<std::string> paths;
    for (const auto& entry : graph.nodes)
        if (entry.second->typeId() == typeId)
            paths.push_back(entry.first.string());
    return paths;
}
