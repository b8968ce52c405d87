#include "ArrayMetadata.h"

#include "Archive.h"

namespace ZentoCore {

ArrayMetadata::ArrayMetadata(const ArrayMetadata& other) : Metadata(other)
{
    copy(&other);
}

ArrayMetadata& ArrayMetadata::operator=(const ArrayMetadata& other)
{
    if (this != &other)
        copy(&other);
    return *this;
}

void ArrayMetadata::append(const Metadata& value)
{
    mValues.push_back(value.clone());
}

bool ArrayMetadata::copy(const Metadata* source)
{
    if (!source || source->typeId() != staticTypeId())
        return false;
    std::vector<std::shared_ptr<Metadata>> copied;
    for (const auto& value : static_cast<const ArrayMetadata*>(source)->mValues)
        if (value)
            copied.push_back(value->clone());
    mValues = std::move(copied);
    return true;
}

std::shared_ptr<Metadata> ArrayMetadata::clone() const
{
    return std::make_shared<ArrayMetadata>(*this);
}

unsigned long long ArrayMetadata::memSize() const
{
    unsigned long long size = kTypeIdSize + 8;
    for (const auto& value : mValues)
        if (value)
            size += value->memSize();
    return size;
}

bool ArrayMetadata::isFinite() const
{
    for (const std::shared_ptr<Metadata>& value : mValues)
        if (value && !value->isFinite())
            return false;
    return true;
}

bool ArrayMetadata::isEqual(const Metadata* other, double tolerance) const
{
    if (!other || other->typeId() != staticTypeId())
        return false;
    const auto& theirs = static_cast<const ArrayMetadata*>(other)->mValues;
    if (theirs.size() != mValues.size())
        return false;
    for (size_t i = 0; i < mValues.size(); ++i)
        if (!sameValue(mValues[i].get(), theirs[i].get(), tolerance))
            return false;
    return true;
}

// Null elements hold nothing to read back, so they are not written.
bool ArrayMetadata::serialise(Archive& archive) const
{
    uint64_t count = 0;
    for (const auto& value : mValues)
        count += value ? 1 : 0;
    archive.writeU64(count);
    bool ok = true;
    for (const auto& value : mValues)
        if (value)
            ok = writeTypedValue(archive, *value) && ok;
    return ok;
}

bool ArrayMetadata::deserialise(Archive& archive)
{
    uint64_t count = 0;
    if (!archive.readCount(kTypeIdSize, count))
        return false;
    std::vector<std::shared_ptr<Metadata>> read;
    read.reserve(count);
    for (uint64_t i = 0; i < count; ++i) {
        std::shared_ptr<Metadata> value = readTypedValue(archive);
        if (!value)
            return false;
        read.push_back(std::move(value));
    }
    mValues = std::move(read);
    return true;
}

void ArrayMetadata::toString(std::stringstream& out) const
{
    out << "[";
    for (size_t i = 0; i < mValues.size(); ++i) {
        out << (i > 0 ? ", " : "");
        if (mValues[i])
            mValues[i]->toString(out);
        else
            out << "null";
    }
    out << "]";
}

} // namespace ZentoCore
