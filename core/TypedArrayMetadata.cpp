#include "TypedArrayMetadata.h"

#include "Archive.h"

#include <iomanip>

namespace ZentoCore {

bool TypedArrayMetadata<std::string>::copy(const Metadata* source)
{
    if (!source || source->typeId() != staticTypeId())
        return false;
    mValues = static_cast<const TypedArrayMetadata*>(source)->mValues;
    return true;
}

std::shared_ptr<Metadata> TypedArrayMetadata<std::string>::clone() const
{
    return std::make_shared<TypedArrayMetadata>(mValues);
}

unsigned long long TypedArrayMetadata<std::string>::memSize() const
{
    unsigned long long size = kTypeIdSize + 8;
    for (const std::string& value : mValues)
        size += 8 + value.size();
    return size;
}

bool TypedArrayMetadata<std::string>::isEqual(const Metadata* other, double) const
{
    return other && other->typeId() == staticTypeId() && static_cast<const TypedArrayMetadata*>(other)->mValues == mValues;
}

bool TypedArrayMetadata<std::string>::serialise(Archive& archive) const
{
    archive.writeU64(mValues.size());
    for (const std::string& value : mValues)
        archive.writeString(value);
    return true;
}

bool TypedArrayMetadata<std::string>::deserialise(Archive& archive)
{
    uint64_t count = 0;
    if (!archive.readCount(8, count))
        return false;
    std::vector<std::string> read;
    for (uint64_t i = 0; i < count; ++i) {
        std::string value;
        if (!archive.readString(value))
            return false;
        read.push_back(std::move(value));
    }
    mValues = std::move(read);
    return true;
}

void TypedArrayMetadata<std::string>::toString(std::stringstream& out) const
{
    out << "[";
    for (size_t i = 0; i < mValues.size(); ++i)
        out << (i > 0 ? ", " : "") << std::quoted(mValues[i]);
    out << "]";
}

} // namespace ZentoCore
