#include "MapMetadata.h"

#include "Archive.h"

#include <iomanip>

namespace ZentoCore {

MapMetadata::MapMetadata(const MapMetadata& other) : Metadata(other)
{
    copy(&other);
}

MapMetadata& MapMetadata::operator=(const MapMetadata& other)
{
    if (this != &other)
        copy(&other);
    return *this;
}

void MapMetadata::addEntry(const std::string& key, const Metadata* value)
{
    mEntries[key] = value ? value->clone() : nullptr;
}

void MapMetadata::addEntry(const std::string& key, const std::shared_ptr<Metadata>& value, bool deepCopy)
{
    mEntries[key] = (deepCopy && value) ? value->clone() : value;
}

void MapMetadata::insertEntry(const std::string& key, std::shared_ptr<Metadata> value)
{
    mEntries[key] = std::move(value);
}

bool MapMetadata::removeEntry(const std::string& key)
{
    return mEntries.erase(key) > 0;
}

std::shared_ptr<Metadata> MapMetadata::getEntry(const std::string& key) const
{
    const auto found = mEntries.find(key);
    return found == mEntries.end() ? nullptr : found->second;
}

std::vector<std::string> MapMetadata::getKeys() const
{
    std::vector<std::string> keys;
    keys.reserve(mEntries.size());
    for (const auto& entry : mEntries)
        keys.push_back(entry.first);
    return keys;
}

bool MapMetadata::copy(const Metadata* source)
{
    if (!source || source->typeId() != staticTypeId())
        return false;
    Entries copied;
    for (const auto& entry : static_cast<const MapMetadata*>(source)->mEntries)
        copied.emplace(entry.first, entry.second ? entry.second->clone() : nullptr);
    mEntries = std::move(copied);
    return true;
}

std::shared_ptr<Metadata> MapMetadata::clone() const
{
    return std::make_shared<MapMetadata>(*this);
}

unsigned long long MapMetadata::memSize() const
{
    unsigned long long size = kTypeIdSize + 8;
    for (const auto& entry : mEntries)
        if (entry.second)
            size += 8 + entry.first.size() + entry.second->memSize();
    return size;
}

// Recursive: an archive holds values no deeper than Archive::kMaxNesting.
bool MapMetadata::isFinite() const
{
    for (const auto& entry : mEntries)
        if (entry.second && !entry.second->isFinite())
            return false;
    return true;
}

bool MapMetadata::isEqual(const Metadata* other, double tolerance) const
{
    if (!other || other->typeId() != staticTypeId())
        return false;
    const Entries& theirs = static_cast<const MapMetadata*>(other)->mEntries;
    if (theirs.size() != mEntries.size())
        return false;
    for (auto mine = mEntries.begin(), their = theirs.begin(); mine != mEntries.end(); ++mine, ++their)
        if (mine->first != their->first || !sameValue(mine->second.get(), their->second.get(), tolerance))
            return false;
    return true;
}

// Null entries hold nothing to read back, so they are not written.
bool MapMetadata::serialise(Archive& archive) const
{
    uint64_t count = 0;
    for (const auto& entry : mEntries)
        count += entry.second ? 1 : 0;
    archive.writeU64(count);
    bool ok = true;
    for (const auto& entry : mEntries) {
        if (!entry.second)
            continue;
        archive.writeString(entry.first);
        ok = writeTypedValue(archive, *entry.second) && ok;
    }
    return ok;
}

bool MapMetadata::deserialise(Archive& archive)
{
    // Every entry takes at least a key length and a type id.
    uint64_t count = 0;
    if (!archive.readCount(8 + kTypeIdSize, count))
        return false;
    Entries read;
    for (uint64_t i = 0; i < count; ++i) {
        std::string key;
        if (!archive.readString(key))
            return false;
        std::shared_ptr<Metadata> value = readTypedValue(archive);
        if (!value)
            return false;
        read[key] = std::move(value);
    }
    mEntries = std::move(read);
    return true;
}

void MapMetadata::toString(std::stringstream& out) const
{
    out << "{";
    bool first = true;
    for (const auto& entry : mEntries) {
        out << (first ? "" : ", ") << std::quoted(entry.first) << ": ";
        if (entry.second)
            entry.second->toString(out);
        else
            out << "null";
        first = false;
    }
    out << "}";
}

} // namespace ZentoCore
