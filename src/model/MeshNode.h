#pragma once

#include "BaseNode.h"

// One imported skin mesh; it is shown and takes no part in the physics.
class MeshNode : public BaseNode {
public:
    static constexpr int kTypeId = 3;

    explicit MeshNode(const ZentoCore::NodePath& path);

    int typeId() const override;
    const std::string& typeName() const override;
    bool skipsRendering() const override;
    // The stored map itself, not a copy; null when none was set.
    std::shared_ptr<ZentoCore::MapMetadata> geometry() override;

    // A map with a "geo" entry holding the mesh, set by the import.
    std::shared_ptr<ZentoCore::MapMetadata> geometryMap;
};
