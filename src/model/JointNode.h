#pragma once

#include "TransformNode.h"

// One joint of an imported skeleton, drawn as a ball with a pointed bone to
// each child joint.
class JointNode : public TransformNode {
public:
    static constexpr int kTypeId = 1;

    explicit JointNode(const ZentoCore::NodePath& path);

    int typeId() const override;
    const std::string& typeName() const override;
    std::shared_ptr<ZentoCore::MapMetadata> geometry() override;
    bool geometryFollowsChildren() const override;
};
