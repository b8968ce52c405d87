#pragma once

#include "Metadata.h"

#include <string>
#include <vector>

namespace ZentoCore {

template <typename T>
class TypedArrayMetadata; // only the string list exists

// A list of strings: display lists and enum options.
template <>
class TypedArrayMetadata<std::string> : public Metadata {
public:
    TypedArrayMetadata() = default;
    explicit TypedArrayMetadata(std::vector<std::string> values) : mValues(std::move(values)) {}

    static constexpr unsigned int staticTypeId() { return kStringArrayTypeId; }

    std::vector<std::string>& get() { return mValues; }
    const std::vector<std::string>& get() const { return mValues; }

    std::string typeStr() const override { return "StringArray"; }
    unsigned int typeId() const override { return staticTypeId(); }
    bool copy(const Metadata* source) override;
    std::shared_ptr<Metadata> clone() const override;
    unsigned long long memSize() const override;
    bool isEqual(const Metadata* other, double tolerance) const override;
    bool isArray() const override { return true; }
    bool serialise(Archive& archive) const override;
    bool deserialise(Archive& archive) override;
    void toString(std::stringstream& out) const override;
    using Metadata::toString;

private:
    std::vector<std::string> mValues;
};

} // namespace ZentoCore
