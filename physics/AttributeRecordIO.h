#pragma once

// How the attribute records (bodies, constraints, drives) meet an attribute
// map: each record walks its members with their keys once, and these two
// visitors write or read every member. The attribute layer knows only bool,
// int, double, text and the double precision Imath types, so narrower members
// are widened on the way in and narrowed on the way out.

#include "MapMetadata.h"

#include <Imath/ImathMatrix.h>
#include <Imath/ImathQuat.h>
#include <Imath/ImathVec.h>

#include <algorithm>
#include <cfloat>
#include <string>
#include <type_traits>

namespace Zento {

template <typename T>
const T& stored(const T& member)
{
    return member;
}
inline int stored(unsigned short member)
{
    return member;
}
inline double stored(float member)
{
    return member;
}
inline Imath::V3d stored(const Imath::V3f& member)
{
    return Imath::V3d(member);
}
inline Imath::M44d stored(const Imath::M44f& member)
{
    return Imath::M44d(member);
}
inline Imath::Quatd stored(const Imath::Quatf& member)
{
    return Imath::Quatd(member);
}

// The attribute type that a member of type T is stored as.
template <typename T>
using StoredType = std::decay_t<decltype(stored(std::declval<const T&>()))>;

template <typename T>
void load(const T& value, T& member)
{
    member = value;
}
// Only enum members are of this type, and their records check the range first.
inline void load(int value, unsigned short& member)
{
    member = static_cast<unsigned short>(value);
}
// A double beyond the float range would be undefined as a float.
inline void load(double value, float& member)
{
    member = static_cast<float>(std::clamp(value, -static_cast<double>(FLT_MAX), static_cast<double>(FLT_MAX)));
}
inline void load(const Imath::V3d& value, Imath::V3f& member)
{
    member = Imath::V3f(value);
}
inline void load(const Imath::M44d& value, Imath::M44f& member)
{
    member = Imath::M44f(value);
}
inline void load(const Imath::Quatd& value, Imath::Quatf& member)
{
    member = Imath::Quatf(value);
}

// Writes each visited member under prefix + key, replacing what was there.
struct AttributeWriter {
    ZentoCore::MapMetadata& map;
    const std::string& prefix;

    template <typename T>
    void operator()(const std::string& key, const T& member) const
    {
        map.set(prefix + key, StoredType<T>(stored(member)));
    }
};

// Reads each visited member from prefix + key; a missing or wrongly typed
// entry leaves the member as it is.
struct AttributeReader {
    const ZentoCore::MapMetadata& map;
    const std::string& prefix;

    template <typename T>
    void operator()(const std::string& key, T& member) const
    {
        if (const auto entry = map.typedEntry<StoredType<T>>(prefix + key))
            load(entry->get(), member);
    }
};

// The prefix of a record that has its map to itself.
inline const std::string kNoAttributePrefix;

} // namespace Zento
