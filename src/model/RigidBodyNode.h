#pragma once

#include "BaseNode.h"

// One collision shape with its physical attributes, drawn as a solid. The
// attributes and their defaults come from the physics record
// Zento::RigidBodyAttributes, so node and solver always agree on them.
class RigidBodyNode : public BaseNode {
public:
    static constexpr int kTypeId = 4;
    // The colour a body is drawn in, RGBA 0..1.
    static inline const Imath::V4d kColor{125.0 / 255.0, 203.0 / 255.0, 212.0 / 255.0, 1.0};

    explicit RigidBodyNode(const ZentoCore::NodePath& path);

    int typeId() const override;
    const std::string& typeName() const override;
    bool skipsRendering() const override;
    // The shape of "type", sized by "dimension" and turned by "axis"; an empty
    // mesh for the mesh and height field types and for a missing "type".
    std::shared_ptr<ZentoCore::MapMetadata> geometry() override;
    bool geometryFollowsAttributes() const override;
};
