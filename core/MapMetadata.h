#pragma once

#include "MetadataImpl.h"

#include <map>
#include <vector>

namespace ZentoCore {

// Values by key, sorted by key in byte order. Copies are deep.
class MapMetadata : public Metadata {
public:
    using Entries = std::map<std::string, std::shared_ptr<Metadata>>;

    MapMetadata() = default;
    MapMetadata(const MapMetadata& other);
    MapMetadata& operator=(const MapMetadata& other);
    MapMetadata(MapMetadata&&) = default;
    MapMetadata& operator=(MapMetadata&&) = default;

    static constexpr unsigned int staticTypeId() { return kMapTypeId; }

    // Stores a clone: the caller keeps the argument, which may live on the stack.
    void addEntry(const std::string& key, const Metadata* value);
    // Stores a clone when deepCopy is set, else the object itself.
    void addEntry(const std::string& key, const std::shared_ptr<Metadata>& value, bool deepCopy);
    // Stores that very object, shared with the caller.
    void insertEntry(const std::string& key, std::shared_ptr<Metadata> value);
    // Stores a plain value as a MetadataImpl<T>, replacing the entry of that key.
    template <typename T>
    void set(const std::string& key, const T& value)
    {
        insertEntry(key, std::make_shared<MetadataImpl<T>>(value));
    }
    bool removeEntry(const std::string& key);
    void clear() { mEntries.clear(); }

    std::shared_ptr<Metadata> getEntry(const std::string& key) const;
    std::vector<std::string> getKeys() const;
    size_t size() const { return mEntries.size(); }
    bool empty() const { return mEntries.empty(); }

    // Null when the key is absent, its value null, or of another type than T.
    template <typename T>
    std::shared_ptr<MetadataImpl<T>> typedEntry(const std::string& key) const
    {
        return typedEntryAs<MetadataImpl<T>>(key);
    }

    // The same for the container types (MapMetadata, ArrayMetadata, ...).
    template <typename M>
    std::shared_ptr<M> typedEntryAs(const std::string& key) const
    {
        std::shared_ptr<Metadata> entry = getEntry(key);
        if (!entry || entry->typeId() != M::staticTypeId())
            return nullptr;
        return std::static_pointer_cast<M>(entry);
    }

    Entries::const_iterator begin() const { return mEntries.begin(); }
    Entries::const_iterator end() const { return mEntries.end(); }

    std::string typeStr() const override { return "Map"; }
    unsigned int typeId() const override { return staticTypeId(); }
    bool copy(const Metadata* source) override;
    std::shared_ptr<Metadata> clone() const override;
    unsigned long long memSize() const override;
    bool isEqual(const Metadata* other, double tolerance) const override;
    bool isFinite() const override;
    bool serialise(Archive& archive) const override;
    bool deserialise(Archive& archive) override;
    void toString(std::stringstream& out) const override;
    using Metadata::toString;

private:
    Entries mEntries;
};

} // namespace ZentoCore
