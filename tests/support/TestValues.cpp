#include "TestValues.h"

#include "Archive.h"

#include <gtest/gtest.h>

#include <Imath/ImathQuat.h>

#include <cmath>
#include <fstream>
#include <limits>

using namespace ZentoCore;

ZentoUtils::Mesh makeTestMesh()
{
    ZentoUtils::Mesh mesh;
    mesh.points = {{0, 0, 0}, {1, 0, 0}, {1, 1, 0}, {0, 1, 0}, {0.5f, 2, -1e-7f}};
    mesh.counts = {3, 4};
    mesh.indices = {0, 1, 4, 0, 1, 2, 3};
    mesh.normals.assign(7, Imath::V3f(0, 0, 1));
    for (int i = 0; i < 7; ++i)
        mesh.uvs.emplace_back(0.125f * i, 1.0f - 0.0625f * i);
    return mesh;
}

Imath::Box3f boundsOf(const ZentoUtils::Mesh& mesh)
{
    Imath::Box3f bounds;
    for (const Imath::V3f& point : mesh.points)
        bounds.extendBy(point);
    return bounds;
}

MapMetadata makeMapOfEveryType()
{
    MapMetadata map;
    MetadataImpl<bool> flag(true);
    map.addEntry("bool", &flag);
    MetadataImpl<int> count(-123456789);
    map.addEntry("int", &count);
    MetadataImpl<double> scalar(0.1 + 0.2);
    map.addEntry("double", &scalar);
    MetadataImpl<std::string> text(std::string("mixamorig:Left Arm \xC3\xA9\n\0tail", 27));
    map.addEntry("string", &text);
    MetadataImpl<Imath::V2d> v2(Imath::V2d(-1.5, 1e300));
    map.addEntry("V2d", &v2);
    MetadataImpl<Imath::V3d> v3(Imath::V3d(1.0 / 3.0, -0.0, std::numeric_limits<double>::denorm_min()));
    map.addEntry("V3d", &v3);
    MetadataImpl<Imath::V4d> v4(Imath::V4d(125.0 / 255.0, 203.0 / 255.0, 212.0 / 255.0, 1.0));
    map.addEntry("V4d", &v4);
    MetadataImpl<Imath::Quatd> quat(Imath::Quatd(0.5, -0.5, 0.5, -0.5));
    map.addEntry("Quatd", &quat);
    MetadataImpl<Imath::Eulerd> euler(Imath::Eulerd(0.1, -0.2, 3.0, Imath::Eulerd::ZXY));
    map.addEntry("Eulerd", &euler);
    Imath::M44d matrix;
    for (int i = 0; i < 16; ++i)
        matrix[i / 4][i % 4] = std::sin(i + 1.0) * 100.0;
    MetadataImpl<Imath::M44d> m44(matrix);
    map.addEntry("M44d", &m44);
    MetadataImpl<ZentoUtils::Mesh> mesh(makeTestMesh());
    map.addEntry("Mesh", &mesh);
    TypedArrayMetadata<std::string> list({"@Group", "mass", "", "linearXlimit"});
    map.addEntry("StringArray", &list);
    ArrayMetadata array;
    array.append(count);
    array.append(text);
    map.addEntry("Array", &array);
    MapMetadata inner;
    inner.addEntry("inner", &scalar);
    map.addEntry("Map", &inner);
    return map;
}

MapMetadata makeNestedMap()
{
    MapMetadata root;
    ArrayMetadata drives;
    for (int i = 0; i < 6; ++i) {
        MapMetadata drive;
        MetadataImpl<double> stiffness(100.0 * i);
        drive.addEntry("stiffness", &stiffness);
        MetadataImpl<bool> acceleration(i % 2 == 0);
        drive.addEntry("isAcceleration", &acceleration);
        MapMetadata deeper;
        ArrayMetadata empty;
        deeper.addEntry("empty", &empty);
        drive.addEntry("deeper", &deeper);
        drives.append(drive);
    }
    root.addEntry("cDrive", &drives);
    MapMetadata emptyMap;
    root.addEntry("emptyMap", &emptyMap);
    return root;
}

bool writeArchive(const MapMetadata& map, const std::string& path)
{
    Archive archive(map.memSize(), 0);
    archive << map;
    return archive.writeToFile(path);
}

MapMetadata readArchive(const std::string& path)
{
    Archive archive;
    MapMetadata map;
    if (archive.readFromFile(path))
        archive >> map;
    return map;
}

namespace {

void changeValue(Metadata& value, int& counter)
{
    ++counter;
    const double offset = 0.25 * counter;
    switch (value.typeId()) {
    case MetadataImpl<bool>::staticTypeId(): {
        auto& flag = static_cast<MetadataImpl<bool>&>(value).get();
        flag = !flag;
        break;
    }
    case MetadataImpl<int>::staticTypeId(): {
        auto& number = static_cast<MetadataImpl<int>&>(value).get();
        number = (number + 1) % 3;
        break;
    }
    case MetadataImpl<double>::staticTypeId(): {
        auto& number = static_cast<MetadataImpl<double>&>(value).get();
        number = number * 0.5 + offset;
        break;
    }
    case MetadataImpl<Imath::V2d>::staticTypeId():
        static_cast<MetadataImpl<Imath::V2d>&>(value).get() = Imath::V2d(offset, -offset);
        break;
    case MetadataImpl<Imath::V3d>::staticTypeId():
        static_cast<MetadataImpl<Imath::V3d>&>(value).get() = Imath::V3d(offset, -offset, 2 * offset);
        break;
    case MetadataImpl<Imath::Quatd>::staticTypeId(): {
        auto& rotation = static_cast<MetadataImpl<Imath::Quatd>&>(value).get();
        rotation = rotation * Imath::Quatd(0.5, 0.5, -0.5, 0.5);
        break;
    }
    case MetadataImpl<Imath::M44d>::staticTypeId():
        static_cast<MetadataImpl<Imath::M44d>&>(value).get().setTranslation(Imath::V3d(offset, 1, 2));
        break;
    case MetadataImpl<std::string>::staticTypeId():
        static_cast<MetadataImpl<std::string>&>(value).get() += "SpineToNeck";
        break;
    case ArrayMetadata::staticTypeId():
        for (const auto& element : static_cast<ArrayMetadata&>(value).get())
            changeValue(*element, counter);
        break;
    case MapMetadata::staticTypeId():
        for (const auto& entry : static_cast<MapMetadata&>(value))
            changeValue(*entry.second, counter);
        break;
    default:
        ADD_FAILURE() << "unexpected value type " << value.typeStr();
    }
}

} // namespace

void changeEveryValue(MapMetadata& map)
{
    int counter = 0;
    changeValue(map, counter);
}

void expectEveryValueDiffers(const MapMetadata& changed, const MapMetadata& original)
{
    EXPECT_EQ(changed.getKeys(), original.getKeys());
    for (const auto& [key, value] : changed) {
        const auto other = original.getEntry(key);
        if (value->typeId() == ArrayMetadata::staticTypeId()) {
            const auto& elements = static_cast<const ArrayMetadata&>(*value).get();
            const auto& others = static_cast<const ArrayMetadata&>(*other).get();
            ASSERT_EQ(elements.size(), others.size()) << key;
            for (size_t i = 0; i < elements.size(); ++i)
                expectEveryValueDiffers(static_cast<const MapMetadata&>(*elements[i]),
                                        static_cast<const MapMetadata&>(*others[i]));
        } else {
            EXPECT_FALSE(value->isEqual(other.get(), 0.0)) << key;
        }
    }
}

std::vector<unsigned char> payloadOf(const ZentoCore::MapMetadata& map)
{
    ZentoCore::Archive archive(map.memSize(), 0);
    archive << map;
    return std::vector<unsigned char>(archive.data(), archive.data() + archive.size());
}

void writeBytes(const std::string& path, const std::vector<unsigned char>& bytes)
{
    std::ofstream out(path, std::ios::binary);
    out.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
}
