#pragma once

#include <memory>
#include <sstream>
#include <string>

namespace ZentoCore {

class Archive;

// Type ids are file format and the attribute editor dispatches on them:
// never renumber one.
enum MetadataTypeIds : unsigned int {
    kMapTypeId = 1,
    kArrayTypeId = 2,
    kIntTypeId = 3,
    kDoubleTypeId = 4,
    kVec3dTypeId = 5,
    kVec4dTypeId = 6,
    kMatrix44dTypeId = 7,
    kQuatdTypeId = 8,
    kEulerdTypeId = 9,
    kStringTypeId = 10,
    kStringArrayTypeId = 11,
    kBoolTypeId = 13,
    kMeshTypeId = 20,
    kVec2dTypeId = 27,
};

// A dynamically typed value. Owned through std::shared_ptr once it sits in a map.
class Metadata {
public:
    virtual ~Metadata() = default;

    virtual std::string typeStr() const = 0;
    virtual unsigned int typeId() const = 0;

    // Overwrites this value with the source's; false (and no change) when the
    // source is null or of another concrete type.
    virtual bool copy(const Metadata* source) = 0;
    virtual std::shared_ptr<Metadata> clone() const = 0;

    // An upper bound of the bytes that serialise() writes, type id included.
    virtual unsigned long long memSize() const = 0;

    // Same concrete type and the same value; floating point parts may differ by tolerance.
    virtual bool isEqual(const Metadata* other, double tolerance) const = 0;
    virtual bool isArray() const { return false; }
    // Every floating point number in the value, nested ones included, is
    // finite: neither NaN nor infinite. True for values without any.
    virtual bool isFinite() const { return true; }

    // Payload only: the type id is written and read by the container.
    virtual bool serialise(Archive& archive) const = 0;
    virtual bool deserialise(Archive& archive) = 0;

    virtual void toString(std::stringstream& out) const = 0;

    std::string toString() const;

protected:
    Metadata() = default;
    Metadata(const Metadata&) = default;
    Metadata& operator=(const Metadata&) = default;
};

// Equal values, or both null.
bool sameValue(const Metadata* a, const Metadata* b, double tolerance);

// A new, default-valued value of the given type id; null for an unknown id.
std::shared_ptr<Metadata> createMetadata(unsigned int typeId);

// A value with its type id in front, as maps and arrays store their entries.
bool writeTypedValue(Archive& archive, const Metadata& value);
std::shared_ptr<Metadata> readTypedValue(Archive& archive);

// Bytes that writeTypedValue adds before the payload.
constexpr unsigned long long kTypeIdSize = 4;

} // namespace ZentoCore
