#pragma once

#include "BaseNode.h"
#include "Mesh.h"

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

    // The mesh of "geo", in the node's own space; null when there is none.
    const ZentoUtils::Mesh* mesh() const;
    // For each point of mesh(), the short name of the joint that weighs it
    // most ("" for a point no joint weighs), as a skinned import gives it;
    // null when the mesh carries none or a list that does not match its points.
    const std::vector<std::string>* skinJoints() const;

    // A map with a "geo" entry holding the mesh, set by the import, and a
    // "skinJoints" list for a skinned mesh.
    std::shared_ptr<ZentoCore::MapMetadata> geometryMap;
};
