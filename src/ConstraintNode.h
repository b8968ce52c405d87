#pragma once

#include "BaseNode.h"

// A joint between two rigid bodies, in the frame of its own world matrix. Its
// attributes are those of the physics record plus the six drives and
// "parentRigidBody"; it draws a small solid for its type, fans over the angles
// that it allows, and arcs over the fans as guide lines.
class ConstraintNode : public BaseNode {
public:
    static constexpr int kTypeId = 6;

    explicit ConstraintNode(const ZentoCore::NodePath& path);

    int typeId() const override;
    const std::string& typeName() const override;
    bool skipsRendering() const override;
    std::shared_ptr<ZentoCore::MapMetadata> geometry() override;
    bool geometryFollowsAttributes() const override;
    void guideLines(std::vector<GuideLine>& lines) const override;
};
