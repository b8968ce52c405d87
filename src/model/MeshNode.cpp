#include "MeshNode.h"

#include "MeshLoader.h"
#include "MetadataImpl.h"
#include "TypedArrayMetadata.h"

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

const ZentoUtils::Mesh* MeshNode::mesh() const
{
    const auto geo = geometryMap ? geometryMap->typedEntry<ZentoUtils::Mesh>(Zento::kMeshGeoKey) : nullptr;
    return geo ? &geo->get() : nullptr;
}

const std::vector<std::string>* MeshNode::skinJoints() const
{
    const ZentoUtils::Mesh* points = mesh();
    const auto names =
        points ? geometryMap->typedEntryAs<ZentoCore::TypedArrayMetadata<std::string>>(Zento::kMeshSkinJointsKey)
               : nullptr;
    return names && names->get().size() == points->points.size() ? &names->get() : nullptr;
}
