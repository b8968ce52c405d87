#pragma once

#include "JointNode.h"
#include "ZentoSceneGraph.h"

#include <map>
#include <string>
#include <vector>

// Everything of a scene that a user can see or that a file keeps, node by
// node, for comparing a scene with itself after undo, redo or a file round trip.
struct NodeState {
    BaseNode* object = nullptr;
    int typeId = 0;
    Imath::V3d translation, scale, pivot;
    Imath::M44d rotation;
    Imath::Eulerd::Order order = Imath::Eulerd::XYZ;
    Imath::V4d color;
    bool visible = true, active = true;
    ZentoCore::MapMetadata attributes;
    std::string parent;
    std::vector<std::string> children; // sorted: undo of a delete may re-add them in another order
    Imath::M44d meshTransform;
    bool hasMesh = false;
    size_t meshPoints = 0;
};

struct SceneState {
    std::map<std::string, NodeState> nodes;
    std::vector<std::string> selection;
};

SceneState capture(const ZentoSceneGraph& graph);

// Same nodes with the same fields: matrices and numbers within tolerance,
// node objects identical when sameObjects is set (undo and redo keep them;
// a file makes new ones).
void expectSameScene(const SceneState& expected, const SceneState& actual, const std::string& when,
                     bool sameObjects = true, double tolerance = 1e-9);

// A joint at path, below the node of its parent path (or at the top).
std::shared_ptr<JointNode> addJoint(ZentoSceneGraph& graph, const std::string& path, const Imath::V3d& translation,
                                    const Imath::Eulerd& rotation = Imath::Eulerd());

// The "geo" mesh of a node's geometry; empty, with a failure, when there is none.
ZentoUtils::Mesh meshOf(BaseNode& node);

// The paths of the nodes of a type, in path order.
std::vector<std::string> pathsOfType(const ZentoSceneGraph& graph, int typeId);

// "/Skin/Body": one quad, below a "/Skin" group made for it.
void addQuadSkin(ZentoSceneGraph& graph);
