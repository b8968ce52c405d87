#include "MeshNode.h"

MeshNode::MeshNode(const ZentoCore::NodePath& path) : BaseNode(path) {}

int MeshNode::typeId() const
{
    return kTypeId;
}

const std::string& MeshNode::typeName() const
{
    static const std::string name = "Mesh";
    return name;
}

bool MeshNode::skipsRendering() const
{
    return false;
}

std::shared_ptr<ZentoCore::MapMetadata> MeshNode::geometry()
{
    return geometryMap;
}
