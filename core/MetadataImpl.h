#pragma once

#include "Metadata.h"
#include "Mesh.h"

#include <Imath/ImathEuler.h>
#include <Imath/ImathMatrix.h>
#include <Imath/ImathQuat.h>
#include <Imath/ImathVec.h>

#include <string>

namespace ZentoCore {

template <typename T>
struct MetadataTraits; // only the value types below exist

template <> struct MetadataTraits<bool> {
    static constexpr unsigned int id = kBoolTypeId;
    static constexpr const char* name = "bool";
};
template <> struct MetadataTraits<int> {
    static constexpr unsigned int id = kIntTypeId;
    static constexpr const char* name = "int";
};
template <> struct MetadataTraits<double> {
    static constexpr unsigned int id = kDoubleTypeId;
    static constexpr const char* name = "double";
};
template <> struct MetadataTraits<std::string> {
    static constexpr unsigned int id = kStringTypeId;
    static constexpr const char* name = "string";
};
template <> struct MetadataTraits<Imath::V2d> {
    static constexpr unsigned int id = kVec2dTypeId;
    static constexpr const char* name = "V2d";
};
template <> struct MetadataTraits<Imath::V3d> {
    static constexpr unsigned int id = kVec3dTypeId;
    static constexpr const char* name = "V3d";
};
template <> struct MetadataTraits<Imath::V4d> {
    static constexpr unsigned int id = kVec4dTypeId;
    static constexpr const char* name = "V4d";
};
template <> struct MetadataTraits<Imath::Quatd> {
    static constexpr unsigned int id = kQuatdTypeId;
    static constexpr const char* name = "Quatd";
};
template <> struct MetadataTraits<Imath::Eulerd> {
    static constexpr unsigned int id = kEulerdTypeId;
    static constexpr const char* name = "Eulerd";
};
template <> struct MetadataTraits<Imath::M44d> {
    static constexpr unsigned int id = kMatrix44dTypeId;
    static constexpr const char* name = "M44d";
};
template <> struct MetadataTraits<ZentoUtils::Mesh> {
    static constexpr unsigned int id = kMeshTypeId;
    static constexpr const char* name = "Mesh";
};

// One value of type T.
template <typename T>
class MetadataImpl : public Metadata {
public:
    MetadataImpl() : mValue() {}
    explicit MetadataImpl(const T& value) : mValue(value) {}

    static constexpr unsigned int staticTypeId() { return MetadataTraits<T>::id; }

    T& get() { return mValue; }
    const T& get() const { return mValue; }
    T value() const { return mValue; }
    void set(const T& value) { mValue = value; }

    std::string typeStr() const override;
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
    T mValue;
};

// Explicitly instantiated in MetadataImpl.cpp for every traits type.
extern template class MetadataImpl<bool>;
extern template class MetadataImpl<int>;
extern template class MetadataImpl<double>;
extern template class MetadataImpl<std::string>;
extern template class MetadataImpl<Imath::V2d>;
extern template class MetadataImpl<Imath::V3d>;
extern template class MetadataImpl<Imath::V4d>;
extern template class MetadataImpl<Imath::Quatd>;
extern template class MetadataImpl<Imath::Eulerd>;
extern template class MetadataImpl<Imath::M44d>;
extern template class MetadataImpl<ZentoUtils::Mesh>;

} // namespace ZentoCore
