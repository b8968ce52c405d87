#pragma once

#include "BaseNode.h"

// A joint between two rigid bodies, in the frame of its own world matrix. Its
// attributes are those of the physics record plus the six drives and
// "parentRigidBody"; it draws a small solid for its type, fans over the angles
// that it allows, and arcs over the fans as guide lines.
class ConstraintNode : public BaseNode {
public:
    static constexpr int kTypeId = 6;
    // The colour a constraint is drawn in, RGBA 0..1.
    static inline const Imath::V4d kColor{1.0, 0.0, 0.0, 1.0};

    explicit ConstraintNode(const ZentoCore::NodePath& path);

    int typeId() const override;
    const std::string& typeName() const override;
    bool skipsRendering() const override;
    std::shared_ptr<ZentoCore::MapMetadata> geometry() override;
    bool geometryFollowsAttributes() const override;
    void guideLines(std::vector<GuideLine>& lines) const override;

    // The body that a constraint moves: the first body below the constraint's
    // own joint. Null when there is none.
    static BaseNode* childBody(const BaseNode& constraint);
    // The body that it holds on to: the body named by "parentRigidBody" (a
    // prop constraint), else the first body of the nearest joint above its
    // own. Null when there is none.
    static BaseNode* parentBody(const BaseNode& constraint, const NodeMap& nodes);
};
