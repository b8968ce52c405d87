#include "TestValues.h"

#include <gtest/gtest.h>

using namespace ZentoCore;

TEST(MapMetadata, TypedEntryIsNullForMissingKeyWrongTypeAndNullValue)
{
    MapMetadata map;
    MetadataImpl<int> count(3);
    map.addEntry("count", &count);
    map.insertEntry("nothing", nullptr);

    ASSERT_NE(map.typedEntry<int>("count"), nullptr);
    EXPECT_EQ(map.typedEntry<int>("count")->value(), 3);
    EXPECT_EQ(map.typedEntry<int>("missing"), nullptr);
    EXPECT_EQ(map.typedEntry<double>("count"), nullptr) << "an int is never converted to a double";
    EXPECT_EQ(map.typedEntry<bool>("count"), nullptr);
    EXPECT_EQ(map.typedEntry<int>("nothing"), nullptr);
    EXPECT_EQ(map.typedEntryAs<MapMetadata>("count"), nullptr);
}

TEST(MapMetadata, AddEntryStoresACopyAndReplacesAnExistingKey)
{
    MapMetadata map;
    MetadataImpl<double> mass(1.0);
    map.addEntry("mass", &mass);
    mass.set(5.0);
    EXPECT_EQ(map.typedEntry<double>("mass")->value(), 1.0) << "the stack value was copied";

    MetadataImpl<double> heavier(2.0);
    map.addEntry("mass", &heavier);
    EXPECT_EQ(map.size(), 1u);
    EXPECT_EQ(map.typedEntry<double>("mass")->value(), 2.0);

    std::shared_ptr<Metadata> shared = std::make_shared<MetadataImpl<int>>(7);
    map.addEntry("shared", shared, true);
    std::static_pointer_cast<MetadataImpl<int>>(shared)->set(8);
    EXPECT_EQ(map.typedEntry<int>("shared")->value(), 7);
}

TEST(MapMetadata, InsertEntrySharesTheObject)
{
    MapMetadata geometry;
    auto mesh = std::make_shared<MetadataImpl<ZentoUtils::Mesh>>();
    geometry.insertEntry("geo", mesh);
    mesh->get().points.push_back(Imath::V3f(1, 2, 3));
    ASSERT_NE(geometry.typedEntry<ZentoUtils::Mesh>("geo"), nullptr);
    EXPECT_EQ(geometry.typedEntry<ZentoUtils::Mesh>("geo")->get().points.size(), 1u);
}

TEST(MapMetadata, CopiesAreDeepAtEveryLevel)
{
    MapMetadata source = makeNestedMap();
    MapMetadata constructed(source);
    MapMetadata assigned;
    assigned = source;
    auto cloned = source.clone();

    // Change a value three levels down in the source through copy().
    auto drives = source.typedEntryAs<ArrayMetadata>("cDrive");
    auto firstDrive = std::static_pointer_cast<MapMetadata>(drives->get()[0]);
    MetadataImpl<double> changed(-1.0);
    ASSERT_TRUE(firstDrive->getEntry("stiffness")->copy(&changed));

    const std::vector<const Metadata*> copies = {&constructed, &assigned, cloned.get()};
    for (const Metadata* copy : copies) {
        EXPECT_FALSE(copy->isEqual(&source, 0.0));
        EXPECT_TRUE(copy->isEqual(&constructed, 0.0));
    }
}

TEST(MapMetadata, KeysComeSortedWhateverTheOrderOfFilling)
{
    MapMetadata map;
    MetadataImpl<int> value(0);
    for (const char* key : {"zeta", "Alpha", "alpha", "@Group", "_b", "a"})
        map.addEntry(key, &value);
    const std::vector<std::string> expected = {"@Group", "Alpha", "_b", "a", "alpha", "zeta"};
    EXPECT_EQ(map.getKeys(), expected);
    std::vector<std::string> iterated;
    for (const auto& entry : map)
        iterated.push_back(entry.first);
    EXPECT_EQ(iterated, expected);
}

TEST(Metadata, CopyRefusesAnotherTypeAndLeavesTheValue)
{
    MetadataImpl<double> target(1.0);
    MetadataImpl<int> other(2);
    EXPECT_FALSE(target.copy(&other));
    EXPECT_FALSE(target.copy(nullptr));
    EXPECT_EQ(target.value(), 1.0);

    MapMetadata map = makeMapOfEveryType();
    ArrayMetadata array;
    EXPECT_FALSE(map.copy(&array));
    EXPECT_EQ(map.size(), makeMapOfEveryType().size());
}

TEST(Metadata, CreateByTypeIdGivesEveryClassAndNothingElse)
{
    MapMetadata map = makeMapOfEveryType();
    for (const auto& entry : map) {
        auto created = createMetadata(entry.second->typeId());
        ASSERT_NE(created, nullptr) << entry.first;
        EXPECT_EQ(created->typeId(), entry.second->typeId());
        EXPECT_EQ(created->typeStr(), entry.first);
    }
    for (unsigned int unknown : {0u, 12u, 14u, 26u, 28u, 0xFFFFFFFFu})
        EXPECT_EQ(createMetadata(unknown), nullptr) << unknown;
}

TEST(Metadata, IsEqualHonoursToleranceTypeAndEulerOrder)
{
    MetadataImpl<Imath::V3d> a(Imath::V3d(1, 2, 3));
    MetadataImpl<Imath::V3d> b(Imath::V3d(1, 2, 3.0005));
    EXPECT_TRUE(a.isEqual(&b, 1e-3));
    EXPECT_FALSE(a.isEqual(&b, 1e-4));

    MetadataImpl<int> three(3);
    MetadataImpl<double> threeDouble(3.0);
    EXPECT_FALSE(three.isEqual(&threeDouble, 1.0));
    EXPECT_FALSE(three.isEqual(nullptr, 1.0));

    MetadataImpl<Imath::Eulerd> xyz(Imath::Eulerd(0.1, 0.2, 0.3, Imath::Eulerd::XYZ));
    Imath::Eulerd sameAngles(Imath::Eulerd::ZYX);
    sameAngles.x = 0.1;
    sameAngles.y = 0.2;
    sameAngles.z = 0.3;
    MetadataImpl<Imath::Eulerd> zyx(sameAngles);
    EXPECT_FALSE(xyz.isEqual(&zyx, 1.0)) << "the rotation order is part of the value";

    MetadataImpl<ZentoUtils::Mesh> mesh(makeTestMesh());
    ZentoUtils::Mesh moved = makeTestMesh();
    moved.points[4].z += 1e-3f;
    MetadataImpl<ZentoUtils::Mesh> movedMesh(moved);
    EXPECT_TRUE(mesh.isEqual(&movedMesh, 1e-2));
    EXPECT_FALSE(mesh.isEqual(&movedMesh, 1e-4));
}

TEST(Metadata, ToStringShowsTheValue)
{
    EXPECT_EQ(MetadataImpl<int>(-4).toString(), "-4");
    EXPECT_EQ(MetadataImpl<bool>(true).toString(), "true");
    EXPECT_EQ(MetadataImpl<double>(0.5).toString(), "0.5");
    EXPECT_EQ(MetadataImpl<Imath::V3d>(Imath::V3d(1, -2, 0.25)).toString(), "(1, -2, 0.25)");
    EXPECT_EQ(MetadataImpl<std::string>(std::string("a \"b\"")).toString(), "\"a \\\"b\\\"\"");
    EXPECT_EQ(MetadataImpl<Imath::Eulerd>(Imath::Eulerd(0, 0, 1, Imath::Eulerd::XYZ)).toString(), "(0, 0, 1) XYZ");
    EXPECT_EQ(MetadataImpl<ZentoUtils::Mesh>(makeTestMesh()).toString(), "Mesh(points: 5, faces: 2)");
    // Seventeen digits: the text reads back as the same double.
    EXPECT_EQ(std::stod(MetadataImpl<double>(0.1 + 0.2).toString()), 0.1 + 0.2);

    MapMetadata nested = makeNestedMap();
    const std::string text = nested.toString();
    EXPECT_EQ(text.rfind("{\"cDrive\": [{\"deeper\": {\"empty\": []}", 0), 0u) << text;
    EXPECT_NE(text.find("\"emptyMap\": {}"), std::string::npos) << text;
    EXPECT_EQ(TypedArrayMetadata<std::string>({"a", "@B"}).toString(), "[\"a\", \"@B\"]");
}

TEST(Mesh, ValidityChecksCountsIndicesAndCornerData)
{
    EXPECT_TRUE(makeTestMesh().isValid());
    EXPECT_TRUE(ZentoUtils::Mesh().isValid());

    ZentoUtils::Mesh outOfRange = makeTestMesh();
    outOfRange.indices[2] = 5;
    EXPECT_FALSE(outOfRange.isValid());

    ZentoUtils::Mesh negative = makeTestMesh();
    negative.indices[0] = -1;
    EXPECT_FALSE(negative.isValid());

    ZentoUtils::Mesh shortCounts = makeTestMesh();
    shortCounts.counts = {3};
    EXPECT_FALSE(shortCounts.isValid());

    ZentoUtils::Mesh fewNormals = makeTestMesh();
    fewNormals.normals.pop_back();
    EXPECT_FALSE(fewNormals.isValid());
}
