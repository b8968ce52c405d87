#pragma once

#include "Metadata.h"

#include <vector>

namespace ZentoCore {

// An ordered list of values of any types, such as the six drive maps of a constraint.
class ArrayMetadata : public Metadata {
public:
    ArrayMetadata() = default;
    ArrayMetadata(const ArrayMetadata& other);
    ArrayMetadata& operator=(const ArrayMetadata& other);

    static constexpr unsigned int staticTypeId() { return kArrayTypeId; }

    // Stores a clone of the value; a null value is not stored.
    void append(const Metadata& value);
    std::vector<std::shared_ptr<Metadata>>& get() { return mValues; }
    const std::vector<std::shared_ptr<Metadata>>& get() const { return mValues; }

    std::string typeStr() const override { return "Array"; }
    unsigned int typeId() const override { return staticTypeId(); }
    bool copy(const Metadata* source) override;
    std::shared_ptr<Metadata> clone() const override;
    unsigned long long memSize() const override;
    bool isEqual(const Metadata* other, double tolerance) const override;
    bool isFinite() const override;
    bool isArray() const override { return true; }
    bool serialise(Archive& archive) const override;
    bool deserialise(Archive& archive) override;
    void toString(std::stringstream& out) const override;
    using Metadata::toString;

private:
    std::vector<std::shared_ptr<Metadata>> mValues;
};

} // namespace ZentoCore
