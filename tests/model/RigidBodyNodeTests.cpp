#include "RigidBodyAttributes.h"
#include "RigidBodyNode.h"
#include "SceneState.h"
#include "TestValues.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <utility>

using ZentoCore::MapMetadata;
using ZentoCore::Metadata;
using ZentoCore::MetadataImpl;
using ZentoCore::NodePath;
using ZentoUtils::Mesh;
using Zento::RigidBodyAttributes;

namespace {

Mesh shape(int type, const Imath::V3d& dimension, int axis = 0)
{
    RigidBodyNode node(NodePath("/Skeleton/Hips/Hips_RB"));
    node.attributes.set("type", type);
    node.attributes.set("dimension", dimension);
    node.attributes.set("axis", axis);
    return meshOf(node);
}

MapMetadata serialised(const RigidBodyAttributes& record)
{
    MapMetadata map;
    EXPECT_TRUE(record.serialise(&map));
    return map;
}

} // namespace

TEST(RigidBodyNode, ANewBodyIsADynamicCapsuleWithTheSolversDefaults)
{
    RigidBodyNode node(NodePath("/Skeleton/Hips/Hips_RB"));
    EXPECT_TRUE(node.geometryFollowsAttributes());
    const MapMetadata defaults = serialised(RigidBodyAttributes());
    EXPECT_TRUE(node.attributes.isEqual(&defaults, 0.0))
        << "node and solver see the same keys and defaults";

    // What the builder and the solver rely on.
    EXPECT_EQ(node.attributes.typedEntry<int>("aggregate")->get(), -1) << "in no aggregate";
    EXPECT_EQ(node.attributes.typedEntry<int>("state")->get(), RigidBodyAttributes::Dynamic);
    EXPECT_EQ(node.attributes.typedEntry<int>("type")->get(), RigidBodyAttributes::Capsule);
    EXPECT_TRUE(node.attributes.typedEntry<bool>("active")->get());
    EXPECT_EQ(meshOf(node).counts.size(), 722u) << "a new body shows its capsule";
}

TEST(RigidBodyNodeGeometry, SphereIsAGridOfTrianglesAtTheRadius)
{
    const Mesh sphere = shape(RigidBodyAttributes::Sphere, Imath::V3d(0.7, 5.0, 9.0));
    EXPECT_TRUE(sphere.isValid());
    ASSERT_EQ(sphere.points.size(), 2166u);
    ASSERT_EQ(sphere.counts.size(), 722u);
    EXPECT_TRUE(std::all_of(sphere.counts.begin(), sphere.counts.end(), [](int count) { return count == 3; }));
    for (size_t i = 0; i < sphere.indices.size(); ++i)
        ASSERT_EQ(sphere.indices[i], static_cast<int>(i)) << "no shared vertex";
    for (const Imath::V3f& point : sphere.points)
        ASSERT_NEAR(point.length(), 0.7f, 1e-6f) << "only x of the dimension counts";
    const Imath::Box3f bounds = boundsOf(sphere);
    EXPECT_NEAR(bounds.min.y, -0.7f, 1e-6f) << "poles along y";
    EXPECT_NEAR(bounds.max.y, 0.7f, 1e-6f);
}

TEST(RigidBodyNodeGeometry, CapsuleWithoutHalfHeightIsTheSphere)
{
    const Mesh sphere = shape(RigidBodyAttributes::Sphere, Imath::V3d(0.7, 0.0, 0.0));
    const Mesh capsule = shape(RigidBodyAttributes::Capsule, Imath::V3d(0.7, 0.0, 0.0), RigidBodyAttributes::AxisY);
    EXPECT_EQ(capsule.points, sphere.points);
    EXPECT_EQ(capsule.indices, sphere.indices);
    EXPECT_EQ(capsule.counts, sphere.counts);
}

TEST(RigidBodyNodeGeometry, CapsuleSpansRadiusAndHalfHeightAlongItsAxis)
{
    const Imath::V3d d(0.3, 1.2, 5.0);
    for (int axis = 0; axis < 3; ++axis) {
        const Mesh capsule = shape(RigidBodyAttributes::Capsule, d, axis);
        EXPECT_TRUE(capsule.isValid());
        EXPECT_EQ(capsule.points.size(), 2166u);
        const Imath::Box3f bounds = boundsOf(capsule);
        EXPECT_NEAR(bounds.min[axis], -(d.x + d.y), 1e-6) << "axis " << axis;
        EXPECT_NEAR(bounds.max[axis], d.x + d.y, 1e-6) << "axis " << axis;
        for (int across = 0; across < 3; ++across) {
            if (across == axis)
                continue;
            EXPECT_GE(bounds.min[across], -d.x - 1e-6) << "axis " << axis << " across " << across;
            EXPECT_LE(bounds.max[across], d.x + 1e-6) << "axis " << axis << " across " << across;
            EXPECT_GT(bounds.max[across], 0.9 * d.x) << "axis " << axis << " across " << across;
        }
        // Every point lies at the radius from the segment between the caps' centres.
        for (const Imath::V3f& point : capsule.points) {
            Imath::V3f nearest(0.0f, 0.0f, 0.0f);
            nearest[axis] = std::clamp(point[axis], -static_cast<float>(d.y), static_cast<float>(d.y));
            ASSERT_NEAR((point - nearest).length(), d.x, 1e-6) << "axis " << axis;
        }
    }
}

TEST(RigidBodyNodeGeometry, PlaneIsOneQuadTwoUnitsWideFacingAlongTheAxis)
{
    for (int axis = RigidBodyAttributes::AxisX; axis < RigidBodyAttributes::kAxisCount; ++axis) {
        const Mesh plane = shape(RigidBodyAttributes::Plane, Imath::V3d(5.0, 6.0, 7.0), axis);
        EXPECT_TRUE(plane.isValid());
        EXPECT_EQ(plane.counts, std::vector<int>{4});
        EXPECT_EQ(plane.uvs.size(), 4u);
        Imath::V3f normal(0, 0, 0);
        normal[axis] = 1;
        EXPECT_EQ(plane.normals, std::vector<Imath::V3f>(4, normal)) << "axis " << axis;
        const Imath::V3f corner = Imath::V3f(1, 1, 1) - normal;
        EXPECT_EQ(boundsOf(plane), Imath::Box3f(-corner, corner)) << "whatever the dimension, axis " << axis;
    }
}

TEST(RigidBodyNodeGeometry, BoxHasEightCornersAtTheHalfExtents)
{
    const Mesh box = shape(RigidBodyAttributes::Box, Imath::V3d(0.5, 1.5, 2.5));
    EXPECT_TRUE(box.isValid());
    ASSERT_EQ(box.points.size(), 8u);
    EXPECT_EQ(box.counts, std::vector<int>(6, 4));
    for (const Imath::V3f& point : box.points)
        EXPECT_EQ(Imath::V3f(std::abs(point.x), std::abs(point.y), std::abs(point.z)), Imath::V3f(0.5f, 1.5f, 2.5f));
    EXPECT_EQ(boundsOf(box), Imath::Box3f(Imath::V3f(-0.5f, -1.5f, -2.5f), Imath::V3f(0.5f, 1.5f, 2.5f)));
}

TEST(RigidBodyNodeGeometry, MeshAndHeightFieldTypesDrawNothing)
{
    for (const int type : std::initializer_list<int>{RigidBodyAttributes::ConvexMesh, RigidBodyAttributes::TriangleMesh,
                                                    RigidBodyAttributes::HeightField, RigidBodyAttributes::TypeCount, -1}) {
        RigidBodyNode node(NodePath("/Body"));
        node.attributes.set("type", type);
        const std::shared_ptr<MapMetadata> geometry = node.geometry();
        ASSERT_NE(geometry, nullptr) << "type " << type;
        const auto geo = geometry->typedEntry<Mesh>("geo");
        ASSERT_NE(geo, nullptr) << "type " << type;
        EXPECT_TRUE(geo->get().points.empty()) << "type " << type;
        EXPECT_TRUE(geo->get().counts.empty()) << "type " << type;
    }
}

TEST(RigidBodyNodeGeometry, WronglyTypedAttributesCountAsMissing)
{
    RigidBodyNode sphere(NodePath("/Sphere"));
    sphere.attributes.set("type", static_cast<int>(RigidBodyAttributes::Sphere));
    sphere.attributes.set("dimension", 0.25);
    for (const Imath::V3f& point : meshOf(sphere).points)
        ASSERT_NEAR(point.length(), 1.0f, 1e-6f) << "no dimension: a radius of 1";

    const Mesh xPlane = shape(RigidBodyAttributes::Plane, Imath::V3d(1, 1, 1), RigidBodyAttributes::AxisX);
    for (const auto& axis : {std::shared_ptr<Metadata>(std::make_shared<MetadataImpl<double>>(2.0)),
                             std::shared_ptr<Metadata>(std::make_shared<MetadataImpl<int>>(3))}) {
        RigidBodyNode plane(NodePath("/Plane"));
        plane.attributes.set("type", static_cast<int>(RigidBodyAttributes::Plane));
        plane.attributes.addEntry("axis", axis.get());
        EXPECT_EQ(meshOf(plane).points, xPlane.points) << "axis " << axis->toString() << " is taken as X";
    }

    RigidBodyNode noType(NodePath("/NoType"));
    noType.attributes.set("type", 1.0);
    EXPECT_TRUE(meshOf(noType).points.empty()) << "a double is no type";
}

TEST(RigidBodyAttributes, RoundTripKeepsEveryValue)
{
    const MapMetadata defaults = serialised(RigidBodyAttributes());
    MapMetadata changed(defaults);
    changeEveryValue(changed);
    expectEveryValueDiffers(changed, defaults);

    RigidBodyAttributes record;
    ASSERT_TRUE(record.deserialise(&changed));
    EXPECT_EQ(record.state, changed.typedEntry<int>("state")->get());
    EXPECT_EQ(record.type, changed.typedEntry<int>("type")->get());
    EXPECT_EQ(record.mass, changed.typedEntry<double>("mass")->get());
    EXPECT_EQ(record.dimension, Imath::V3f(changed.typedEntry<Imath::V3d>("dimension")->get()));
    EXPECT_EQ(record.worldMatrix, Imath::M44f(changed.typedEntry<Imath::M44d>("transform")->get()));

    const MapMetadata again = serialised(record);
    EXPECT_TRUE(again.isEqual(&changed, 0.0)) << again.toString() << "\n" << changed.toString();
}

TEST(RigidBodyAttributes, DeserialiseNeedsAValidStateAndType)
{
    const MapMetadata defaults = serialised(RigidBodyAttributes());
    RigidBodyAttributes record;
    EXPECT_FALSE(record.deserialise(nullptr));
    EXPECT_FALSE(record.serialise(nullptr));

    const std::pair<const char*, std::shared_ptr<Metadata>> broken[] = {
        {"state", nullptr},
        {"type", nullptr},
        {"state", std::make_shared<MetadataImpl<double>>(1.0)},
        {"type", std::make_shared<MetadataImpl<bool>>(true)},
        {"state", std::make_shared<MetadataImpl<int>>(RigidBodyAttributes::StateCount)},
        {"type", std::make_shared<MetadataImpl<int>>(RigidBodyAttributes::TypeCount)},
        {"type", std::make_shared<MetadataImpl<int>>(-1)},
    };
    for (const auto& [key, value] : broken) {
        MapMetadata map = defaults;
        map.removeEntry(key);
        if (value)
            map.addEntry(key, value.get());
        map.set("mass", 80.0);
        EXPECT_FALSE(record.deserialise(&map)) << key << " " << (value ? value->toString() : "missing");
        EXPECT_EQ(record.mass, 1.0) << "nothing read from a map that fails";
    }

    MapMetadata lenient;
    lenient.set("state", static_cast<int>(RigidBodyAttributes::Static));
    lenient.set("type", static_cast<int>(RigidBodyAttributes::Sphere));
    lenient.set("mass", 80);
    lenient.set("axis", static_cast<int>(RigidBodyAttributes::kAxisCount));
    lenient.set("dimension", 2.0);
    ASSERT_TRUE(record.deserialise(&lenient));
    EXPECT_EQ(record.state, RigidBodyAttributes::Static);
    EXPECT_EQ(record.type, RigidBodyAttributes::Sphere);
    record.state = RigidBodyAttributes().state;
    record.type = RigidBodyAttributes().type;
    EXPECT_TRUE(serialised(record).isEqual(&defaults, 0.0))
        << "wrongly typed entries and an axis out of range leave the defaults";
}
