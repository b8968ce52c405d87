#include "ArrayMetadata.h"
#include "ConstraintNode.h"
#include "RigidBodyConstraintAttributes.h"
#include "SceneState.h"
#include "TestValues.h"

#include <gtest/gtest.h>

#include <Imath/ImathBox.h>

#include <cfloat>
#include <cmath>

using ZentoCore::ArrayMetadata;
using ZentoCore::MapMetadata;
using ZentoCore::Metadata;
using ZentoCore::MetadataImpl;
using ZentoCore::NodePath;
using ZentoUtils::Mesh;
using Record = Zento::RigidBodyConstraintAttributes;

namespace {

std::vector<GuideLine> guideLinesOf(const ConstraintNode& node)
{
    std::vector<GuideLine> lines;
    node.guideLines(lines);
    return lines;
}

const Imath::V3f kOrigin(0, 0, 0);
const Imath::V3f kRed(1, 0, 0);
const Imath::V3f kGreen(0, 1, 0);
// A D6 draws the sweep about each axis in that axis's colour.
const Imath::V3f kAxisColours[3] = {kRed, kGreen, {0, 0, 1}};
constexpr size_t kSpherePoints = 19 * 19 * 2 * 3;
constexpr size_t kFanPoints = 20 * 3;
constexpr size_t kArcPoints = 1 + 22;

// The rim of a sweep about an axis: finite points at radius r in the plane
// across the axis, from start to end in degrees, counted from the next axis
// towards the one after (y to z about x, x to z about y, x to y about z).
void expectRim(const std::vector<Imath::V3f>& rim, int axis, double r, double start, double end)
{
    ASSERT_FALSE(rim.empty());
    for (const Imath::V3f& point : rim) {
        ASSERT_TRUE(std::isfinite(point.length())) << point;
        EXPECT_NEAR(point[axis], 0.0f, 1e-5f) << point;
        EXPECT_NEAR(point.length(), r, 1e-5 * r) << point;
    }
    const int from = axis == 0 ? 1 : 0;
    const int to = axis == 2 ? 1 : 2;
    const auto degrees = [&](const Imath::V3f& point) { return std::atan2(point[to], point[from]) * 180.0 / M_PI; };
    EXPECT_NEAR(std::remainder(degrees(rim.front()) - start, 360.0), 0.0, 1e-3);
    EXPECT_NEAR(std::remainder(degrees(rim.back()) - end, 360.0), 0.0, 1e-3);
}

// The 20 triangles of a fan from points[first] on, each from the origin; the
// last ends a step of the arc's 21 short of its end.
void expectFan(const Mesh& mesh, size_t first, double r, double start, double end, int axis)
{
    ASSERT_GE(mesh.points.size(), first + kFanPoints);
    std::vector<Imath::V3f> rim;
    for (size_t corner = first; corner < first + kFanPoints; corner += 3) {
        EXPECT_EQ(mesh.points[corner], kOrigin);
        rim.insert(rim.end(), {mesh.points[corner + 1], mesh.points[corner + 2]});
    }
    expectRim(rim, axis, r, start, end - (end - start) / 21.0);
}

// The origin, then the rim from start to end.
void expectArc(const GuideLine& line, const Imath::V3f& color, double r, double start, double end, int axis)
{
    EXPECT_EQ(line.color, color);
    ASSERT_EQ(line.points.size(), kArcPoints);
    EXPECT_EQ(line.points[0], kOrigin);
    expectRim({line.points.begin() + 1, line.points.end()}, axis, r, start, end);
}

// Triangles only, every corner a vertex of its own.
void expectTriangles(const Mesh& mesh)
{
    EXPECT_EQ(mesh.counts, std::vector<int>(mesh.points.size() / 3, 3));
    for (size_t i = 0; i < mesh.indices.size(); ++i)
        ASSERT_EQ(mesh.indices[i], static_cast<int>(i));
    EXPECT_EQ(mesh.indices.size(), mesh.points.size());
}

void expectSphere(const Mesh& mesh, size_t first, double radius)
{
    ASSERT_GE(mesh.points.size(), first + kSpherePoints);
    for (size_t i = first; i < first + kSpherePoints; ++i)
        ASSERT_NEAR(mesh.points[i].length(), radius, 1e-5 * radius) << i;
}

// Eight corners at the half extents, from points[first] on.
void expectBox(const Mesh& mesh, size_t first, const Imath::V3f& half)
{
    ASSERT_GE(mesh.points.size(), first + 8);
    Imath::Box3f bounds;
    for (size_t i = first; i < first + 8; ++i) {
        const Imath::V3f& point = mesh.points[i];
        EXPECT_EQ(Imath::V3f(std::abs(point.x), std::abs(point.y), std::abs(point.z)), half) << i;
        bounds.extendBy(point);
    }
    EXPECT_EQ(bounds, Imath::Box3f(-half, half));
}

void setUp(ConstraintNode& node, int type, double displaySize)
{
    node.displaySize = displaySize;
    node.attributes.set("constraintType", type);
}

} // namespace

// Every shape case at display size 1 and 2.
class ConstraintShape : public ::testing::TestWithParam<double> {};

INSTANTIATE_TEST_SUITE_P(DisplaySizes, ConstraintShape, ::testing::Values(1.0, 2.0));

TEST_P(ConstraintShape, FixedDistanceAndPrismaticAreBoxes)
{
    const double s = GetParam();
    const float solid = static_cast<float>(1.2 * s);

    ConstraintNode fixed(NodePath("/c"));
    EXPECT_TRUE(fixed.geometryFollowsAttributes());
    fixed.displaySize = s;
    Mesh mesh = meshOf(fixed);
    EXPECT_EQ(mesh.points.size(), 8u) << "the default type is Fixed";
    EXPECT_EQ(mesh.counts, std::vector<int>(6, 4));
    expectBox(mesh, 0, Imath::V3f(solid));
    EXPECT_TRUE(mesh.isValid());

    ConstraintNode distance(NodePath("/Skeleton/Hips/Spine/Spine_RBC"));
    setUp(distance, Record::Distance, s);
    mesh = meshOf(distance);
    EXPECT_EQ(mesh.points.size(), 8u);
    expectBox(mesh, 0, Imath::V3f(static_cast<float>(1.8 * s), solid, solid));

    ConstraintNode prismatic(NodePath("/Skeleton/Hips/Spine/Spine_RBC"));
    setUp(prismatic, Record::Prismatic, s);
    mesh = meshOf(prismatic);
    EXPECT_EQ(mesh.points.size(), 16u);
    EXPECT_EQ(mesh.counts, std::vector<int>(12, 4));
    expectBox(mesh, 0, Imath::V3f(static_cast<float>(2 * s), solid, solid));
    expectBox(mesh, 8, Imath::V3f(static_cast<float>(1.5 * s)));
    EXPECT_EQ(mesh.indices[24], 8) << "the second box numbers its own points";
    EXPECT_TRUE(mesh.isValid());

    for (ConstraintNode* node : {&fixed, &distance, &prismatic})
        EXPECT_TRUE(guideLinesOf(*node).empty());
}

TEST_P(ConstraintShape, SphericalDrawsFansOverItsConeOrFallsBack)
{
    const double s = GetParam();
    ConstraintNode node(NodePath("/Skeleton/Hips/Spine/Spine_RBC"));
    setUp(node, Record::Spherical, s);
    node.attributes.set("enableLimit", true);

    node.attributes.set("limit", Imath::V3d(0, 0, 0));
    Mesh mesh = meshOf(node);
    EXPECT_EQ(mesh.points.size(), 8u);
    expectBox(mesh, 0, Imath::V3f(static_cast<float>(1.2 * s)));
    EXPECT_TRUE(guideLinesOf(node).empty());

    node.attributes.set("limit", Imath::V3d(30, 0, 0));
    mesh = meshOf(node);
    ASSERT_EQ(mesh.points.size(), kFanPoints);
    expectTriangles(mesh);
    expectFan(mesh, 0, 3 * s, -30, 30, 1);
    auto lines = guideLinesOf(node);
    ASSERT_EQ(lines.size(), 1u);
    expectArc(lines[0], kRed, 3 * s, -30, 30, 1);

    // y about axis 0 in green first, then x about axis 1 in red: the other way round from a D6.
    node.attributes.set("limit", Imath::V3d(30, 180, 0));
    mesh = meshOf(node);
    ASSERT_EQ(mesh.points.size(), 2 * kFanPoints);
    expectFan(mesh, 0, 3 * s, -180, 180, 0);
    expectFan(mesh, kFanPoints, 3 * s, -30, 30, 1);
    lines = guideLinesOf(node);
    ASSERT_EQ(lines.size(), 2u);
    expectArc(lines[0], kGreen, 3 * s, -180, 180, 0);
    expectArc(lines[1], kRed, 3 * s, -30, 30, 1);

    for (const Imath::V3d& outside : {Imath::V3d(200, 10, 0), Imath::V3d(-5, 10, 0), Imath::V3d(10, 180.5, 0)}) {
        node.attributes.set("limit", outside);
        mesh = meshOf(node);
        EXPECT_EQ(mesh.points.size(), kSpherePoints) << outside;
        expectSphere(mesh, 0, 1.2 * s);
        EXPECT_TRUE(guideLinesOf(node).empty()) << outside;
    }

    node.attributes.set("limit", Imath::V3d(30, 0, 0));
    node.attributes.set("enableLimit", false);
    EXPECT_EQ(meshOf(node).points.size(), kSpherePoints);
    EXPECT_TRUE(guideLinesOf(node).empty());
}

TEST_P(ConstraintShape, RevoluteFansFromLowerToUpper)
{
    const double s = GetParam();
    ConstraintNode node(NodePath("/Skeleton/Hips/Spine/Spine_RBC"));
    setUp(node, Record::Revolute, s);

    Mesh mesh = meshOf(node);
    ASSERT_EQ(mesh.points.size(), kFanPoints) << "the limit is off by default";
    expectFan(mesh, 0, 3 * s, -180, 180, 0);
    auto lines = guideLinesOf(node);
    ASSERT_EQ(lines.size(), 1u);
    expectArc(lines[0], kRed, 3 * s, -180, 180, 0);

    node.attributes.set("enableLimit", true);
    node.attributes.set("limit", Imath::V3d(-40, 40, 0));
    mesh = meshOf(node);
    ASSERT_EQ(mesh.points.size(), kFanPoints);
    expectTriangles(mesh);
    expectFan(mesh, 0, 3 * s, -40, 40, 0);
    lines = guideLinesOf(node);
    ASSERT_EQ(lines.size(), 1u);
    expectArc(lines[0], kRed, 3 * s, -40, 40, 0);

    // Reversed: a negative step adds no triangle, and the arc stops after the origin.
    node.attributes.set("limit", Imath::V3d(40, -40, 0));
    mesh = meshOf(node);
    EXPECT_TRUE(mesh.points.empty());
    EXPECT_TRUE(mesh.counts.empty());
    lines = guideLinesOf(node);
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0].points, std::vector<Imath::V3f>{kOrigin});

    node.attributes.set("limit", Imath::V3d(10, 10.000001, 0));
    mesh = meshOf(node);
    EXPECT_EQ(mesh.points.size(), 8u);
    expectBox(mesh, 0, Imath::V3f(static_cast<float>(1.2 * s)));
    EXPECT_TRUE(guideLinesOf(node).empty());

    // Not a number: nothing to draw, and nothing of it reaches the mesh.
    node.attributes.set("limit", Imath::V3d(std::nan(""), 40, 0));
    EXPECT_TRUE(meshOf(node).points.empty());
    lines = guideLinesOf(node);
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_TRUE(lines[0].points.empty());
}

TEST_P(ConstraintShape, D6DrawsASphereAndAFanPerFreeOrLimitedAngularMotion)
{
    const double s = GetParam();
    ConstraintNode node(NodePath("/Skeleton/Hips/Spine/Spine_RBC"));
    setUp(node, Record::D6, s);
    Mesh mesh = meshOf(node);
    EXPECT_EQ(mesh.points.size(), kSpherePoints) << "all motions locked: the sphere alone";
    expectSphere(mesh, 0, 1.2 * s);
    EXPECT_TRUE(guideLinesOf(node).empty());
    for (const char* key : {"linearMotionX", "linearMotionY", "linearMotionZ"})
        node.attributes.set(key, static_cast<int>(Record::Free));
    EXPECT_EQ(meshOf(node).points.size(), kSpherePoints) << "linear motions draw nothing";

    struct Expected {
        double start;
        double end;
    };
    const auto expectRanges = [&](Expected x, Expected y, Expected z) {
        const Mesh mesh = meshOf(node);
        const auto lines = guideLinesOf(node);
        ASSERT_EQ(mesh.points.size(), kSpherePoints + 3 * kFanPoints);
        expectTriangles(mesh);
        expectSphere(mesh, 0, 1.2 * s);
        ASSERT_EQ(lines.size(), 3u);
        const Expected ranges[3] = {x, y, z};
        for (int axis = 0; axis < 3; ++axis) {
            SCOPED_TRACE(axis);
            expectFan(mesh, kSpherePoints + axis * kFanPoints, 3 * s, ranges[axis].start, ranges[axis].end, axis);
            expectArc(lines[axis], kAxisColours[axis], 3 * s, ranges[axis].start, ranges[axis].end, axis);
        }
    };
    const auto setAngularMotions = [&](int x, int y, int z) {
        node.attributes.set("angularMotionX", x);
        node.attributes.set("angularMotionY", y);
        node.attributes.set("angularMotionZ", z);
    };
    setAngularMotions(Record::Free, Record::Free, Record::Free);
    {
        SCOPED_TRACE("free: a full turn each");
        expectRanges({-180, 180}, {-180, 180}, {-180, 180});
    }
    // Locked, out of range or a value of another type: no fan on that axis.
    setAngularMotions(Record::Locked, Record::MotionCount, Record::Locked);
    node.attributes.set("angularMotionZ", static_cast<double>(Record::Free));
    EXPECT_EQ(meshOf(node).points.size(), kSpherePoints);
    EXPECT_TRUE(guideLinesOf(node).empty());

    setAngularMotions(Record::Limit, Record::Limit, Record::Limit);
    {
        SCOPED_TRACE("no limit enabled: a quarter turn each way");
        expectRanges({-90, 90}, {-90, 90}, {-90, 90});
    }

    node.attributes.set("enableTwistLimit", true);
    node.attributes.set("twistLimit", Imath::V3d(10, -20, 0));
    node.attributes.set("enableSwingLimit", true);
    node.attributes.set("swingLimit", Imath::V3d(30, 200, 0));
    {
        SCOPED_TRACE("twist sorted; a cone angle outside 0 to 180 falls back");
        expectRanges({-20, 10}, {-30, 30}, {-90, 90});
    }

    node.attributes.set("twistLimit", Imath::V3d(5, 5.00005, 0));
    node.attributes.set("swingLimit", Imath::V3d(180, 45, 0));
    {
        SCOPED_TRACE("a twist narrower than 0.0001 and a cone of 180 fall back");
        expectRanges({-90, 90}, {-90, 90}, {-45, 45});
    }

    node.attributes.set("enableSwingLimit", false);
    node.attributes.set("enablePyramidLimit", true);
    node.attributes.set("pyramidYSwingLimit", Imath::V3d(-10, 20, 0));
    node.attributes.set("pyramidZSwingLimit", Imath::V3d(20, -10, 0));
    {
        SCOPED_TRACE("pyramid: y mirrored, z sorted");
        expectRanges({-90, 90}, {-20, 10}, {-10, 20});
    }

    node.attributes.set("enableSwingLimit", true);
    node.attributes.set("swingLimit", Imath::V2d(30, 30));
    {
        SCOPED_TRACE("a cone of another type is off, so the pyramid counts");
        expectRanges({-90, 90}, {-20, 10}, {-10, 20});
    }
}

TEST_P(ConstraintShape, UnknownTypeIsAUnitSphereAtAnySize)
{
    for (int type : {static_cast<int>(Record::TypeCount), -1, 1000}) {
        ConstraintNode node(NodePath("/Skeleton/Hips/Spine/Spine_RBC"));
        setUp(node, type, GetParam());
        const Mesh mesh = meshOf(node);
        EXPECT_EQ(mesh.points.size(), kSpherePoints) << type;
        expectSphere(mesh, 0, 1.0);
        EXPECT_TRUE(guideLinesOf(node).empty());
    }
}

TEST(ConstraintNode, WronglyTypedAttributesCountAsMissing)
{
    // No int type: the record's default type, Fixed, decides.
    ConstraintNode node(NodePath("/c"));
    node.attributes.set("constraintType", static_cast<double>(Record::Revolute));
    EXPECT_EQ(meshOf(node).points.size(), 8u);

    // A switch that is no bool, or a limit that is no Vec3, is a limit that is off.
    ConstraintNode revolute(NodePath("/Skeleton/Hips/Spine/Spine_RBC"));
    setUp(revolute, Record::Revolute, 1.0);
    revolute.attributes.set("limit", Imath::V3d(-40, 40, 0));
    revolute.attributes.set("enableLimit", 1);
    Mesh mesh = meshOf(revolute);
    ASSERT_EQ(mesh.points.size(), kFanPoints);
    expectFan(mesh, 0, 3, -180, 180, 0);

    revolute.attributes.set("enableLimit", true);
    revolute.attributes.set("limit", Imath::V2d(-40, 40));
    mesh = meshOf(revolute);
    ASSERT_EQ(mesh.points.size(), kFanPoints);
    expectFan(mesh, 0, 3, -180, 180, 0);

    ConstraintNode spherical(NodePath("/Skeleton/Hips/Spine/Spine_RBC"));
    setUp(spherical, Record::Spherical, 1.0);
    spherical.attributes.set("enableLimit", true);
    spherical.attributes.set("limit", std::string("30 30"));
    EXPECT_EQ(meshOf(spherical).points.size(), kSpherePoints);
    EXPECT_TRUE(guideLinesOf(spherical).empty());

    spherical.attributes.removeEntry("constraintType");
    EXPECT_EQ(meshOf(spherical).points.size(), 8u) << "a missing type is the default type";
}


TEST(RigidBodyConstraintAttributes, RoundTripKeepsEveryValueAndAllSixDrives)
{
    MapMetadata original;
    ASSERT_TRUE(Record().serialise(&original));
    MapMetadata changed(original);
    changeEveryValue(changed);
    expectEveryValueDiffers(changed, original);

    Record record;
    ASSERT_TRUE(record.deserialise(&changed));
    MapMetadata back;
    ASSERT_TRUE(record.serialise(&back));
    EXPECT_TRUE(back.isEqual(&changed, 0.0)) << back.toString() << "\n" << changed.toString();

    // Each drive in its own slot.
    EXPECT_EQ(record.name, "SpineToNeck");
    EXPECT_EQ(record.constraintType, Record::Distance);
    const auto& drives = changed.typedEntryAs<ArrayMetadata>("cDrive")->get();
    for (size_t index = 0; index < 6; ++index) {
        const auto& drive = static_cast<const MapMetadata&>(*drives[index]);
        EXPECT_EQ(record.drives[index].stiffness, drive.typedEntry<double>("stiffness")->get()) << index;
        EXPECT_EQ(record.drives[index].forceLimit, FLT_MAX / 2) << index;
        EXPECT_TRUE(record.drives[index].enable) << index;
    }
}

TEST(RigidBodyConstraintAttributes, DeserialiseNeedsATypeAndKeepsWhatIsMissingOrWrong)
{
    Record record;
    record.name = "kept";
    EXPECT_FALSE(record.deserialise(nullptr));
    EXPECT_FALSE(record.serialise(nullptr));

    MapMetadata map;
    const MetadataImpl<bool> breakable(true);
    map.addEntry("breakable", &breakable);
    EXPECT_FALSE(record.deserialise(&map)) << "no type";
    const MetadataImpl<double> typeAsDouble(3.0);
    map.addEntry("constraintType", &typeAsDouble);
    EXPECT_FALSE(record.deserialise(&map)) << "a type that is no int";
    EXPECT_FALSE(record.breakable) << "nothing read after a failure";

    const MetadataImpl<int> unknownType(9);
    map.addEntry("constraintType", &unknownType);
    const MetadataImpl<int> motion(7);
    map.addEntry("angularMotionY", &motion);
    const MetadataImpl<int> breakForceAsInt(5);
    map.addEntry("breakForce", &breakForceAsInt);
    record.motions[Record::AngularY] = Record::Free;
    EXPECT_TRUE(record.deserialise(&map));
    EXPECT_EQ(record.constraintType, 9) << "read, though it names no joint";
    EXPECT_TRUE(record.breakable);
    EXPECT_EQ(record.motions[Record::AngularY], Record::Free) << "a motion out of range is not taken";
    EXPECT_EQ(record.breakForce, Record().breakForce);
    EXPECT_EQ(record.name, "kept");

    // A short "cDrive" with a stray element: what is there and fits is read.
    Zento::DriveRecord first;
    first.stiffness = 10.0f;
    Zento::DriveRecord third;
    third.damping = 3.0f;
    MapMetadata firstMap;
    first.serialise(firstMap, "");
    MapMetadata thirdMap;
    third.serialise(thirdMap, "");
    ArrayMetadata drives;
    drives.append(firstMap);
    drives.append(MetadataImpl<std::string>("stray"));
    drives.append(thirdMap);
    map.addEntry("cDrive", &drives);
    record.drives[1].stiffness = 7.0f;
    EXPECT_TRUE(record.deserialise(&map));
    EXPECT_EQ(record.drives[0].stiffness, 10.0f);
    EXPECT_EQ(record.drives[1].stiffness, 7.0f);
    EXPECT_EQ(record.drives[2].damping, 3.0f);
    EXPECT_EQ(record.drives[5].forceLimit, FLT_MAX);

    // A node's attributes have no "cDrive": the solver reads them all the same.
    const ConstraintNode node(NodePath("/c"));
    EXPECT_TRUE(Record().deserialise(&node.attributes));
}

TEST(DriveRecord, ReadsAndWritesUnderAPrefixAndClampsToFloat)
{
    ConstraintNode node(NodePath("/c"));
    node.attributes.set("driveTwist_damping", 7.5);
    node.attributes.set("driveTwist_forceLimit", 1e300);
    node.attributes.set("driveTwist_stiffness", -1e300);
    node.attributes.set("driveTwist_enable", true);
    node.attributes.set("driveTwist_restitution", 2);

    Zento::DriveRecord drive;
    drive.restitution = 0.5f;
    drive.deserialise(node.attributes, "driveTwist_");
    EXPECT_EQ(drive.damping, 7.5f);
    EXPECT_EQ(drive.forceLimit, FLT_MAX);
    EXPECT_EQ(drive.stiffness, -FLT_MAX);
    EXPECT_TRUE(drive.enable);
    EXPECT_FALSE(drive.isAcceleration);
    EXPECT_EQ(drive.restitution, 0.5f) << "an int is no double";

    // Written back under another prefix, the values come with float precision.
    drive.bounceThreshold = 0.1f;
    drive.serialise(node.attributes, "driveSlerp_");
    EXPECT_EQ(node.attributes.typedEntry<double>("driveSlerp_damping")->get(), 7.5);
    EXPECT_EQ(node.attributes.typedEntry<double>("driveSlerp_bounceThreshold")->get(), static_cast<double>(0.1f));
    EXPECT_TRUE(node.attributes.typedEntry<bool>("driveSlerp_enable")->get());
    EXPECT_EQ(node.attributes.size(), ConstraintNode(NodePath("/c")).attributes.size()) << "no key of its own";
}
