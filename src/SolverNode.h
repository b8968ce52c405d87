#pragma once

#include "BaseNode.h"

class ZentoSceneGraph;

// The one node "/Solver": the settings of the physics scene as attributes.
// It draws nothing and travels with the scene file like any other node.
class SolverNode : public BaseNode {
public:
    static constexpr int kTypeId = 5;

    explicit SolverNode(const ZentoCore::NodePath& path);

    int typeId() const override;
    const std::string& typeName() const override;
    bool skipsRendering() const override;

    // Set by whoever puts the node into a graph; not owning.
    ZentoSceneGraph* sceneGraph = nullptr;
};
