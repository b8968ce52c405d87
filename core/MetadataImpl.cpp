#include "MetadataImpl.h"

#include "Archive.h"

#include <array>
#include <cmath>
#include <iomanip>
#include <limits>
#include <type_traits>

namespace ZentoCore {

namespace {

bool nearlyEqual(double a, double b, double tolerance)
{
    return a == b || (std::isnan(a) && std::isnan(b)) || std::fabs(a - b) <= tolerance;
}

void printDouble(std::stringstream& out, double value)
{
    out << std::setprecision(std::numeric_limits<double>::max_digits10) << value;
}

// The fixed-size floating point types, seen as a row of doubles.
template <typename T>
struct DoubleTuple {
    static constexpr size_t size = 0;
};

template <>
struct DoubleTuple<double> {
    static constexpr size_t size = 1;
    static std::array<double, 1> get(double v) { return {v}; }
    static void set(double& v, const std::array<double, 1>& d) { v = d[0]; }
};

template <>
struct DoubleTuple<Imath::V2d> {
    static constexpr size_t size = 2;
    static std::array<double, 2> get(const Imath::V2d& v) { return {v.x, v.y}; }
    static void set(Imath::V2d& v, const std::array<double, 2>& d) { v.setValue(d[0], d[1]); }
};

template <>
struct DoubleTuple<Imath::V3d> {
    static constexpr size_t size = 3;
    static std::array<double, 3> get(const Imath::V3d& v) { return {v.x, v.y, v.z}; }
    static void set(Imath::V3d& v, const std::array<double, 3>& d) { v.setValue(d[0], d[1], d[2]); }
};

template <>
struct DoubleTuple<Imath::V4d> {
    static constexpr size_t size = 4;
    static std::array<double, 4> get(const Imath::V4d& v) { return {v.x, v.y, v.z, v.w}; }
    static void set(Imath::V4d& v, const std::array<double, 4>& d) { v = Imath::V4d(d[0], d[1], d[2], d[3]); }
};

// Real part first, as Imath holds it.
template <>
struct DoubleTuple<Imath::Quatd> {
    static constexpr size_t size = 4;
    static std::array<double, 4> get(const Imath::Quatd& q) { return {q.r, q.v.x, q.v.y, q.v.z}; }
    static void set(Imath::Quatd& q, const std::array<double, 4>& d) { q = Imath::Quatd(d[0], d[1], d[2], d[3]); }
};

template <>
struct DoubleTuple<Imath::M44d> {
    static constexpr size_t size = 16;
    static std::array<double, 16> get(const Imath::M44d& m)
    {
        std::array<double, 16> d;
        for (size_t i = 0; i < 16; ++i)
            d[i] = m[i / 4][i % 4];
        return d;
    }
    static void set(Imath::M44d& m, const std::array<double, 16>& d)
    {
        for (size_t i = 0; i < 16; ++i)
            m[i / 4][i % 4] = d[i];
    }
};

// The angles about x, y and z (not in the order's i, j, k), then the order.
template <>
struct DoubleTuple<Imath::Eulerd> {
    static constexpr size_t size = 3;
    static std::array<double, 3> get(const Imath::Eulerd& e) { return {e.x, e.y, e.z}; }
    static void set(Imath::Eulerd& e, const std::array<double, 3>& d)
    {
        e.x = d[0];
        e.y = d[1];
        e.z = d[2];
    }
};

template <typename T>
constexpr bool isDoubleTuple = DoubleTuple<T>::size > 0;

template <typename T>
void writeVector(Archive& archive, const std::vector<T>& values, size_t componentSize)
{
    archive.writeU64(values.size());
    archive.writeElements(values.data(), componentSize, values.size() * (sizeof(T) / componentSize));
}

template <typename T>
bool readVector(Archive& archive, std::vector<T>& values, size_t componentSize)
{
    uint64_t count = 0;
    if (!archive.readCount(sizeof(T), count))
        return false;
    values.resize(count);
    return archive.readElements(values.data(), componentSize, count * (sizeof(T) / componentSize));
}

template <typename T>
bool allFinite(const std::vector<T>& values, size_t components)
{
    for (const T& value : values)
        for (size_t c = 0; c < components; ++c)
            if (!std::isfinite(value[c]))
                return false;
    return true;
}

template <typename T>
unsigned long long vectorSize(const std::vector<T>& values)
{
    return 8 + values.size() * sizeof(T);
}

template <typename T>
bool vectorsEqual(const std::vector<T>& a, const std::vector<T>& b, size_t components, double tolerance)
{
    if (a.size() != b.size())
        return false;
    for (size_t i = 0; i < a.size(); ++i)
        for (size_t c = 0; c < components; ++c)
            if (!nearlyEqual(a[i][c], b[i][c], tolerance))
                return false;
    return true;
}

// The value types that are not rows of doubles.

void writeValue(Archive& archive, bool value)
{
    archive.writeU8(value ? 1 : 0);
}

bool readValue(Archive& archive, bool& value)
{
    uint8_t byte = 0;
    if (!archive.readU8(byte) || byte > 1)
        return false;
    value = byte == 1;
    return true;
}

void writeValue(Archive& archive, int value)
{
    archive.writeI32(value);
}

bool readValue(Archive& archive, int& value)
{
    int32_t stored = 0;
    if (!archive.readI32(stored))
        return false;
    value = stored;
    return true;
}

void writeValue(Archive& archive, const std::string& value)
{
    archive.writeString(value);
}

bool readValue(Archive& archive, std::string& value)
{
    return archive.readString(value);
}

void writeValue(Archive& archive, const ZentoUtils::Mesh& mesh)
{
    writeVector(archive, mesh.points, 4);
    writeVector(archive, mesh.normals, 4);
    writeVector(archive, mesh.indices, 4);
    writeVector(archive, mesh.counts, 4);
    writeVector(archive, mesh.uvs, 4);
}

bool readValue(Archive& archive, ZentoUtils::Mesh& mesh)
{
    // An inconsistent mesh would send the renderer out of bounds: refuse it here.
    return readVector(archive, mesh.points, 4) && readVector(archive, mesh.normals, 4)
        && readVector(archive, mesh.indices, 4) && readVector(archive, mesh.counts, 4)
        && readVector(archive, mesh.uvs, 4) && mesh.isValid();
}

unsigned long long payloadSize(bool) { return 1; }
unsigned long long payloadSize(int) { return 4; }
unsigned long long payloadSize(const std::string& value) { return 8 + value.size(); }
unsigned long long payloadSize(const ZentoUtils::Mesh& mesh)
{
    return vectorSize(mesh.points) + vectorSize(mesh.normals) + vectorSize(mesh.indices)
        + vectorSize(mesh.counts) + vectorSize(mesh.uvs);
}

bool valuesEqual(bool a, bool b, double) { return a == b; }
bool valuesEqual(int a, int b, double) { return a == b; }
bool valuesEqual(const std::string& a, const std::string& b, double) { return a == b; }
bool valuesEqual(const ZentoUtils::Mesh& a, const ZentoUtils::Mesh& b, double tolerance)
{
    return a.indices == b.indices && a.counts == b.counts && vectorsEqual(a.points, b.points, 3, tolerance)
        && vectorsEqual(a.normals, b.normals, 3, tolerance) && vectorsEqual(a.uvs, b.uvs, 2, tolerance);
}

void printValue(std::stringstream& out, bool value) { out << (value ? "true" : "false"); }
void printValue(std::stringstream& out, int value) { out << value; }
void printValue(std::stringstream& out, const std::string& value) { out << std::quoted(value); }
void printValue(std::stringstream& out, const ZentoUtils::Mesh& mesh)
{
    out << "Mesh(points: " << mesh.points.size() << ", faces: " << mesh.counts.size() << ")";
}

// Checked as a number: a number that is no order must never be cast to one.
bool isEulerOrder(uint32_t order)
{
    using E = Imath::Eulerd;
    for (E::Order legal : {E::XYZ, E::XZY, E::YZX, E::YXZ, E::ZXY, E::ZYX, E::XZX, E::XYX, E::YXY, E::YZY,
                           E::ZYZ, E::ZXZ, E::XYZr, E::XZYr, E::YZXr, E::YXZr, E::ZXYr, E::ZYXr, E::XZXr,
                           E::XYXr, E::YXYr, E::YZYr, E::ZYZr, E::ZXZr})
        if (order == static_cast<uint32_t>(legal))
            return true;
    return false;
}

const char* eulerOrderName(Imath::Eulerd::Order order)
{
    switch (order) {
    case Imath::Eulerd::XYZ: return "XYZ";
    case Imath::Eulerd::XZY: return "XZY";
    case Imath::Eulerd::YZX: return "YZX";
    case Imath::Eulerd::YXZ: return "YXZ";
    case Imath::Eulerd::ZXY: return "ZXY";
    case Imath::Eulerd::ZYX: return "ZYX";
    default: return "other";
    }
}

} // namespace

template <typename T>
std::string MetadataImpl<T>::typeStr() const
{
    return MetadataTraits<T>::name;
}

template <typename T>
bool MetadataImpl<T>::copy(const Metadata* source)
{
    if (!source || source->typeId() != staticTypeId())
        return false;
    mValue = static_cast<const MetadataImpl<T>*>(source)->mValue;
    return true;
}

template <typename T>
std::shared_ptr<Metadata> MetadataImpl<T>::clone() const
{
    return std::make_shared<MetadataImpl<T>>(mValue);
}

template <typename T>
unsigned long long MetadataImpl<T>::memSize() const
{
    if constexpr (std::is_same_v<T, Imath::Eulerd>)
        return kTypeIdSize + 8 * DoubleTuple<T>::size + 4;
    else if constexpr (isDoubleTuple<T>)
        return kTypeIdSize + 8 * DoubleTuple<T>::size;
    else
        return kTypeIdSize + payloadSize(mValue);
}

template <typename T>
bool MetadataImpl<T>::isEqual(const Metadata* other, double tolerance) const
{
    if (!other || other->typeId() != staticTypeId())
        return false;
    const T& theirs = static_cast<const MetadataImpl<T>*>(other)->mValue;
    if constexpr (isDoubleTuple<T>) {
        if constexpr (std::is_same_v<T, Imath::Eulerd>)
            if (mValue.order() != theirs.order())
                return false;
        const auto mine = DoubleTuple<T>::get(mValue);
        const auto others = DoubleTuple<T>::get(theirs);
        for (size_t i = 0; i < mine.size(); ++i)
            if (!nearlyEqual(mine[i], others[i], tolerance))
                return false;
        return true;
    } else {
        return valuesEqual(mValue, theirs, tolerance);
    }
}

template <typename T>
bool MetadataImpl<T>::isFinite() const
{
    if constexpr (isDoubleTuple<T>) {
        for (double component : DoubleTuple<T>::get(mValue))
            if (!std::isfinite(component))
                return false;
        return true;
    } else if constexpr (std::is_same_v<T, ZentoUtils::Mesh>) {
        return allFinite(mValue.points, 3) && allFinite(mValue.normals, 3) && allFinite(mValue.uvs, 2);
    } else {
        return true;
    }
}

template <typename T>
bool MetadataImpl<T>::serialise(Archive& archive) const
{
    if constexpr (isDoubleTuple<T>) {
        const auto doubles = DoubleTuple<T>::get(mValue);
        archive.writeElements(doubles.data(), 8, doubles.size());
        if constexpr (std::is_same_v<T, Imath::Eulerd>)
            archive.writeU32(static_cast<uint32_t>(mValue.order()));
    } else {
        writeValue(archive, mValue);
    }
    return true;
}

template <typename T>
bool MetadataImpl<T>::deserialise(Archive& archive)
{
    T value{};
    if constexpr (isDoubleTuple<T>) {
        std::array<double, DoubleTuple<T>::size> doubles;
        if (!archive.readElements(doubles.data(), 8, doubles.size()))
            return false;
        if constexpr (std::is_same_v<T, Imath::Eulerd>) {
            uint32_t order = 0;
            if (!archive.readU32(order) || !isEulerOrder(order))
                return false;
            value.setOrder(static_cast<Imath::Eulerd::Order>(order));
        }
        DoubleTuple<T>::set(value, doubles);
    } else if (!readValue(archive, value)) {
        return false;
    }
    mValue = std::move(value);
    return true;
}

template <typename T>
void MetadataImpl<T>::toString(std::stringstream& out) const
{
    if constexpr (isDoubleTuple<T>) {
        const auto doubles = DoubleTuple<T>::get(mValue);
        if (doubles.size() > 1)
            out << "(";
        for (size_t i = 0; i < doubles.size(); ++i) {
            if (i > 0)
                out << ", ";
            printDouble(out, doubles[i]);
        }
        if (doubles.size() > 1)
            out << ")";
        if constexpr (std::is_same_v<T, Imath::Eulerd>)
            out << " " << eulerOrderName(mValue.order());
    } else {
        printValue(out, mValue);
    }
}

template class MetadataImpl<bool>;
template class MetadataImpl<int>;
template class MetadataImpl<double>;
template class MetadataImpl<std::string>;
template class MetadataImpl<Imath::V2d>;
template class MetadataImpl<Imath::V3d>;
template class MetadataImpl<Imath::V4d>;
template class MetadataImpl<Imath::Quatd>;
template class MetadataImpl<Imath::Eulerd>;
template class MetadataImpl<Imath::M44d>;
template class MetadataImpl<ZentoUtils::Mesh>;

} // namespace ZentoCore
