#include "Metadata.h"

#include "ArrayMetadata.h"
#include "Archive.h"
#include "MapMetadata.h"
#include "MetadataImpl.h"
#include "TypedArrayMetadata.h"

#include <Imath/ImathEuler.h>
#include <Imath/ImathMatrix.h>
#include <Imath/ImathQuat.h>
#include <Imath/ImathVec.h>

namespace ZentoCore {

std::string Metadata::toString() const
{
    std::stringstream out;
    toString(out);
    return out.str();
}

bool sameValue(const Metadata* a, const Metadata* b, double tolerance)
{
    if (!a || !b)
        return a == b;
    return a->isEqual(b, tolerance);
}

std::shared_ptr<Metadata> createMetadata(unsigned int typeId)
{
    switch (typeId) {
    case kMapTypeId: return std::make_shared<MapMetadata>();
    case kArrayTypeId: return std::make_shared<ArrayMetadata>();
    case kStringArrayTypeId: return std::make_shared<TypedArrayMetadata<std::string>>();
    case kIntTypeId: return std::make_shared<MetadataImpl<int>>();
    case kDoubleTypeId: return std::make_shared<MetadataImpl<double>>();
    case kBoolTypeId: return std::make_shared<MetadataImpl<bool>>();
    case kStringTypeId: return std::make_shared<MetadataImpl<std::string>>();
    case kVec2dTypeId: return std::make_shared<MetadataImpl<Imath::V2d>>();
    case kVec3dTypeId: return std::make_shared<MetadataImpl<Imath::V3d>>();
    case kVec4dTypeId: return std::make_shared<MetadataImpl<Imath::V4d>>();
    case kQuatdTypeId: return std::make_shared<MetadataImpl<Imath::Quatd>>();
    case kEulerdTypeId: return std::make_shared<MetadataImpl<Imath::Eulerd>>();
    case kMatrix44dTypeId: return std::make_shared<MetadataImpl<Imath::M44d>>();
    case kMeshTypeId: return std::make_shared<MetadataImpl<ZentoUtils::Mesh>>();
    default: return nullptr;
    }
}

bool writeTypedValue(Archive& archive, const Metadata& value)
{
    archive.writeU32(value.typeId());
    return value.serialise(archive);
}

std::shared_ptr<Metadata> readTypedValue(Archive& archive)
{
    uint32_t typeId = 0;
    if (!archive.readU32(typeId))
        return nullptr;
    std::shared_ptr<Metadata> value = createMetadata(typeId);
    if (!value) {
        archive.fail();
        return nullptr;
    }
    if (!archive.enterNested())
        return nullptr;
    const bool ok = value->deserialise(archive);
    archive.leaveNested();
    if (!ok) {
        archive.fail();
        return nullptr;
    }
    return value;
}

} // namespace ZentoCore
