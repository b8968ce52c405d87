#include "ArrayMetadata.h"
#include "ConstraintNode.h"
#include "RigidBodyConstraintAttributes.h"
#include "TypedArrayMetadata.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cfloat>
#include <cmath>

using ZentoCore::ArrayMetadata;
using ZentoCore::MapMetadata;
using ZentoCore::Metadata;
using ZentoCore::MetadataImpl;
using ZentoCore::NodePath;
using ZentoCore::TypedArrayMetadata;
using ZentoUtils::Mesh;
using Record = Zento::RigidBodyConstraintAttributes;

namespace {

const std::vector<std::string> kDrivePrefixes = {"driveX_",     "driveY_",     "driveZ_",
                                                 "driveSwing_", "driveTwist_", "driveSlerp_"};

// The attribute editor's list as the user is to see it, written out here on its own.
std::vector<std::string> expectedDisplayList()
{
    std::vector<std::string> list = {
        "constraintType",
        "@Flags", "enableCollision", "driveLimitsAreForces", "improveSlerp", "disablePreprocessing",
        "enableExtendedLimits",
        "@Projection", "enableProjection", "projectionLinearTollerance", "projectionAngularTollerance",
        "@Breakable", "breakable", "breakForce",
        "@Limits", "enableLimit", "limit",
        "@Spring", "enableSpring", "stiffness", "damping", "restitution", "bounceThreshold",
        "@Distance Constraint", "enableMinDistance", "minDistance", "enableMaxDistance", "maxDistance", "tollerance",
        "@Revolute Constraint", "enableDrive", "enableFreeSpin", "driveVelocity", "driveForceLimit", "driveGearRatio",
        "@D6 Constraint", "linearMotionX", "linearMotionY", "linearMotionZ", "angularMotionX", "angularMotionY",
        "angularMotionZ",
        "@Limits",
        "@Distance Limits", "enableDistanceLimit", "distanceLimit",
        "@TwistLimits", "enableTwistLimit", "twistLimit",
        "@Swing Limits", "enableSwingLimit", "swingLimit",
        "@Pyramid Limits", "enablePyramidLimit", "pyramidYSwingLimit", "pyramidZSwingLimit",
        "@Linear Limits",
        "@Linear Limit X", "enableLinearXLimit", "linearXlimit",
        "@Spring", "enableXLimitSpring", "xLimitStiffnessSpring", "xLimitDampingSpring", "xLimitRestitutionSpring",
        "xLimitBounceThresholdSpring",
        "@Linear Limit Y", "enableLinearYLimit", "linearYlimit",
        "@Spring", "enableYLimitSpring", "yLimitStiffnessSpring", "yLimitDampingSpring", "yLimitRestitutionSpring",
        "yLimitBounceThresholdSpring",
        "@Linear Limit Z", "enableLinearZLimit", "linearZlimit",
        "@Spring", "enableZLimitSpring", "zLimitStiffnessSpring", "zLimitDampingSpring", "zLimitRestitutionSpring",
        "zLimitBounceThresholdSpring",
        "@Drive", "driveLinearVelocity", "driveAngularVelocity", "drivePose",
    };
    const std::vector<std::string> headers = {"@Drive X",     "@Drive Y",     "@Drive Z",
                                              "@Drive Swing", "@Drive Twist", "@Drive Slerp"};
    for (size_t drive = 0; drive < headers.size(); ++drive) {
        list.push_back(headers[drive]);
        for (const char* key :
             {"enable", "damping", "stiffness", "restitution", "bounceThreshold", "forceLimit", "isAcceleration"})
            list.push_back(kDrivePrefixes[drive] + key);
    }
    list.push_back("@Parent");
    list.push_back("parentRigidBody");
    return list;
}

// The value type of every attribute that is not a double.
unsigned int expectedTypeId(const std::string& key)
{
    const std::pair<unsigned int, std::vector<std::string>> types[] = {
        {MetadataImpl<bool>::staticTypeId(),
         {"enableCollision", "driveLimitsAreForces", "improveSlerp", "disablePreprocessing", "enableExtendedLimits",
          "enableProjection", "breakable", "enableLimit", "enableSpring", "enableMinDistance", "enableMaxDistance",
          "enableDrive", "enableFreeSpin", "enableDistanceLimit", "enableTwistLimit", "enableSwingLimit",
          "enablePyramidLimit", "enableLinearXLimit", "enableXLimitSpring", "enableLinearYLimit", "enableYLimitSpring",
          "enableLinearZLimit", "enableZLimitSpring"}},
        {MetadataImpl<int>::staticTypeId(),
         {"constraintType", "linearMotionX", "linearMotionY", "linearMotionZ", "angularMotionX", "angularMotionY",
          "angularMotionZ"}},
        {MetadataImpl<Imath::V3d>::staticTypeId(),
         {"limit", "twistLimit", "swingLimit", "pyramidYSwingLimit", "pyramidZSwingLimit", "driveLinearVelocity",
          "driveAngularVelocity"}},
        {MetadataImpl<Imath::V2d>::staticTypeId(), {"distanceLimit", "linearXlimit", "linearYlimit", "linearZlimit"}},
        {MetadataImpl<Imath::M44d>::staticTypeId(), {"drivePose"}},
        {MetadataImpl<std::string>::staticTypeId(), {"parentRigidBody"}},
    };
    for (const auto& [type, keys] : types)
        if (std::find(keys.begin(), keys.end(), key) != keys.end())
            return type;
    for (const std::string& prefix : kDrivePrefixes)
        if (key == prefix + "enable" || key == prefix + "isAcceleration")
            return MetadataImpl<bool>::staticTypeId();
    return MetadataImpl<double>::staticTypeId();
}

Mesh meshOf(ConstraintNode& node)
{
    const auto geometry = node.geometry();
    if (!geometry || !geometry->typedEntry<Mesh>("geo")) {
        ADD_FAILURE() << "no \"geo\" mesh";
        return Mesh();
    }
    return geometry->typedEntry<Mesh>("geo")->get();
}

std::vector<GuideLine> guideLinesOf(const ConstraintNode& node)
{
    std::vector<GuideLine> lines;
    node.guideLines(lines);
    return lines;
}

::testing::AssertionResult near(const Imath::V3f& actual, const Imath::V3f& expected)
{
    if (actual.equalWithAbsError(expected, 1e-5f))
        return ::testing::AssertionSuccess();
    return ::testing::AssertionFailure() << actual << " is not " << expected;
}

// The point at an angle in degrees on the circle of radius r about an axis.
Imath::V3f circlePoint(int axis, double r, double degrees)
{
    const double t = degrees * M_PI / 180.0;
    const float c = static_cast<float>(r * std::cos(t));
    const float s = static_cast<float>(r * std::sin(t));
    return axis == 0 ? Imath::V3f(0, c, s) : axis == 1 ? Imath::V3f(c, 0, s) : Imath::V3f(c, s, 0);
}

const Imath::V3f kOrigin(0, 0, 0);
constexpr size_t kSpherePoints = 19 * 19 * 2 * 3;
constexpr size_t kFanPoints = 20 * 3;
constexpr size_t kArcPoints = 1 + 22;

// The 20 triangles of a fan, from points[first] on: the last ends a step short of end.
void expectFan(const Mesh& mesh, size_t first, double r, double start, double end, int axis)
{
    ASSERT_GE(mesh.points.size(), first + kFanPoints);
    const double step = (end - start) / 21.0;
    for (size_t k = 0; k < 20; ++k) {
        SCOPED_TRACE(k);
        EXPECT_TRUE(near(mesh.points[first + 3 * k], kOrigin));
        EXPECT_TRUE(near(mesh.points[first + 3 * k + 1], circlePoint(axis, r, start + k * step)));
        EXPECT_TRUE(near(mesh.points[first + 3 * k + 2], circlePoint(axis, r, start + (k + 1) * step)));
    }
}

void expectArc(const GuideLine& line, const Imath::V3f& color, double r, double start, double end, int axis)
{
    EXPECT_EQ(line.color, color);
    ASSERT_EQ(line.points.size(), kArcPoints);
    EXPECT_TRUE(near(line.points[0], kOrigin));
    const double step = (end - start) / 21.0;
    for (size_t k = 0; k <= 21; ++k)
        EXPECT_TRUE(near(line.points[k + 1], circlePoint(axis, r, start + k * step))) << k;
    EXPECT_TRUE(near(line.points.back(), circlePoint(axis, r, end)));
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
    // The first cell's first corner lies on row 1; its last on row 0, the pole.
    EXPECT_TRUE(near(mesh.points[first + 5], Imath::V3f(0, static_cast<float>(-radius), 0)));
}

void expectBox(const Mesh& mesh, size_t first, const Imath::V3f& half)
{
    ASSERT_GE(mesh.points.size(), first + 8);
    EXPECT_EQ(mesh.points[first], -half);
    EXPECT_EQ(mesh.points[first + 2], Imath::V3f(half.x, -half.y, half.z));
    EXPECT_EQ(mesh.points[first + 6], half);
}

void setUp(ConstraintNode& node, int type, double displaySize)
{
    node.displaySize = displaySize;
    node.attributes.set("constraintType", type);
}

} // namespace

TEST(ConstraintNode, IsTypeSixAndRebuildsOnAttributeChanges)
{
    ConstraintNode node(NodePath("/Skeleton/Hips/Spine/Spine_RBC"));
    EXPECT_EQ(node.typeId(), 6);
    EXPECT_EQ(node.typeName(), "Constraint");
    EXPECT_EQ(&node.typeName(), &ConstraintNode(NodePath("/c")).typeName()) << "one static name";
    EXPECT_FALSE(node.skipsRendering());
    EXPECT_TRUE(node.geometryFollowsAttributes());
    EXPECT_FALSE(node.geometryFollowsChildren());
    EXPECT_NE(node.geometry(), node.geometry()) << "a new map on every call";
}

TEST(ConstraintNode, DisplayListNamesEveryAttributeWithItsType)
{
    const ConstraintNode node(NodePath("/c"));
    const auto list = node.attributeHints.typedEntryAs<TypedArrayMetadata<std::string>>("__list__");
    ASSERT_NE(list, nullptr);
    EXPECT_EQ(list->get(), expectedDisplayList());
    EXPECT_EQ(list->get().size(), 138u);

    size_t keys = 0;
    for (const std::string& item : list->get()) {
        if (item[0] == '@')
            continue;
        ++keys;
        const auto value = node.attributes.getEntry(item);
        ASSERT_NE(value, nullptr) << item;
        EXPECT_EQ(value->typeId(), expectedTypeId(item)) << item;
    }
    EXPECT_EQ(keys, 110u);
    EXPECT_EQ(node.attributes.size(), keys) << "nothing that the list does not show: no \"name\", no \"cDrive\"";
    EXPECT_EQ(node.attributes.typedEntry<std::string>("parentRigidBody")->get(), "");
}

TEST(ConstraintNode, EnumHintsShareOneMotionMap)
{
    const ConstraintNode node(NodePath("/c"));
    const auto optionsOf = [&](const char* key) {
        const auto hint = node.attributeHints.typedEntryAs<MapMetadata>(key);
        const auto options = hint ? hint->typedEntryAs<TypedArrayMetadata<std::string>>("enum") : nullptr;
        return options ? options->get() : std::vector<std::string>();
    };
    EXPECT_EQ(optionsOf("constraintType"),
              (std::vector<std::string>{"Fixed", "Distance", "Spherical", "Revolute", "Prismatic", "D6"}));

    const auto shared = node.attributeHints.getEntry("linearMotionX");
    for (const char* key :
         {"linearMotionX", "linearMotionY", "linearMotionZ", "angularMotionX", "angularMotionY", "angularMotionZ"}) {
        EXPECT_EQ(optionsOf(key), (std::vector<std::string>{"Locked", "Limit", "Free"})) << key;
        EXPECT_EQ(node.attributeHints.getEntry(key), shared) << key;
    }
    EXPECT_EQ(node.attributeHints.size(), 8u) << "the list and seven enum hints";
}

// Every shape case at display size 1 and 2.
class ConstraintShape : public ::testing::TestWithParam<double> {};

INSTANTIATE_TEST_SUITE_P(DisplaySizes, ConstraintShape, ::testing::Values(1.0, 2.0));

TEST_P(ConstraintShape, FixedDistanceAndPrismaticAreBoxes)
{
    const double s = GetParam();
    const float solid = static_cast<float>(1.2 * s);

    ConstraintNode fixed(NodePath("/c"));
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
    expectArc(lines[0], Imath::V3f(1, 0, 0), 3 * s, -30, 30, 1);

    // y about axis 0 in green first, then x about axis 1 in red: the other way round from a D6.
    node.attributes.set("limit", Imath::V3d(30, 180, 0));
    mesh = meshOf(node);
    ASSERT_EQ(mesh.points.size(), 2 * kFanPoints);
    expectFan(mesh, 0, 3 * s, -180, 180, 0);
    expectFan(mesh, kFanPoints, 3 * s, -30, 30, 1);
    lines = guideLinesOf(node);
    ASSERT_EQ(lines.size(), 2u);
    expectArc(lines[0], Imath::V3f(0, 1, 0), 3 * s, -180, 180, 0);
    expectArc(lines[1], Imath::V3f(1, 0, 0), 3 * s, -30, 30, 1);

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
    expectArc(lines[0], Imath::V3f(1, 0, 0), 3 * s, -180, 180, 0);

    node.attributes.set("enableLimit", true);
    node.attributes.set("limit", Imath::V3d(-40, 40, 0));
    mesh = meshOf(node);
    ASSERT_EQ(mesh.points.size(), kFanPoints);
    expectTriangles(mesh);
    expectFan(mesh, 0, 3 * s, -40, 40, 0);
    lines = guideLinesOf(node);
    ASSERT_EQ(lines.size(), 1u);
    expectArc(lines[0], Imath::V3f(1, 0, 0), 3 * s, -40, 40, 0);

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

TEST_P(ConstraintShape, D6DrawsASphereAndAFanPerAngularMotion)
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

    for (const char* key : {"angularMotionX", "angularMotionY", "angularMotionZ"})
        node.attributes.set(key, static_cast<int>(Record::Free));
    mesh = meshOf(node);
    ASSERT_EQ(mesh.points.size(), kSpherePoints + 3 * kFanPoints);
    expectTriangles(mesh);
    expectSphere(mesh, 0, 1.2 * s);
    auto lines = guideLinesOf(node);
    ASSERT_EQ(lines.size(), 3u);
    const Imath::V3f colors[3] = {{1, 0, 0}, {0, 1, 0}, {0, 0, 1}};
    for (int axis = 0; axis < 3; ++axis) {
        SCOPED_TRACE(axis);
        expectFan(mesh, kSpherePoints + axis * kFanPoints, 3 * s, -180, 180, axis);
        expectArc(lines[axis], colors[axis], 3 * s, -180, 180, axis);
    }

    // Locked, out of range or of another type: no fan on that axis.
    node.attributes.set("angularMotionX", static_cast<int>(Record::Locked));
    node.attributes.set("angularMotionY", 3);
    node.attributes.set("angularMotionZ", 2.0);
    EXPECT_EQ(meshOf(node).points.size(), kSpherePoints);
    EXPECT_TRUE(guideLinesOf(node).empty());
}

TEST_P(ConstraintShape, D6LimitsChooseTheirRanges)
{
    const double s = GetParam();
    ConstraintNode node(NodePath("/Skeleton/Hips/Spine/Spine_RBC"));
    setUp(node, Record::D6, s);
    for (const char* key : {"angularMotionX", "angularMotionY", "angularMotionZ"})
        node.attributes.set(key, static_cast<int>(Record::Limit));

    struct Expected {
        double start;
        double end;
    };
    const auto expectRanges = [&](Expected x, Expected y, Expected z) {
        const Mesh mesh = meshOf(node);
        const auto lines = guideLinesOf(node);
        ASSERT_EQ(mesh.points.size(), kSpherePoints + 3 * kFanPoints);
        ASSERT_EQ(lines.size(), 3u);
        const Expected ranges[3] = {x, y, z};
        for (int axis = 0; axis < 3; ++axis) {
            SCOPED_TRACE(axis);
            expectFan(mesh, kSpherePoints + axis * kFanPoints, 3 * s, ranges[axis].start, ranges[axis].end, axis);
            EXPECT_TRUE(near(lines[axis].points[1], circlePoint(axis, 3 * s, ranges[axis].start)));
            EXPECT_TRUE(near(lines[axis].points.back(), circlePoint(axis, 3 * s, ranges[axis].end)));
        }
    };

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
    for (int type : {6, -1, 1000}) {
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
    node.attributes.set("constraintType", 3.0);
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

namespace {

// Gives every value, nested ones included, another value that survives the
// trip through a float: halves and quarters.
void perturb(Metadata& value, int& counter)
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
    case MetadataImpl<Imath::V2d>::staticTypeId(): {
        auto& vector = static_cast<MetadataImpl<Imath::V2d>&>(value).get();
        vector = vector * 0.5 + Imath::V2d(offset, -offset);
        break;
    }
    case MetadataImpl<Imath::V3d>::staticTypeId(): {
        auto& vector = static_cast<MetadataImpl<Imath::V3d>&>(value).get();
        vector = vector * 0.5 + Imath::V3d(offset, -offset, 2 * offset);
        break;
    }
    case MetadataImpl<Imath::M44d>::staticTypeId():
        static_cast<MetadataImpl<Imath::M44d>&>(value).get().setTranslation(Imath::V3d(offset, 1, 2));
        break;
    case MetadataImpl<std::string>::staticTypeId():
        static_cast<MetadataImpl<std::string>&>(value).get() = "SpineToNeck";
        break;
    case ArrayMetadata::staticTypeId():
        for (const auto& element : static_cast<ArrayMetadata&>(value).get())
            perturb(*element, counter);
        break;
    case MapMetadata::staticTypeId():
        for (const auto& entry : static_cast<MapMetadata&>(value))
            perturb(*entry.second, counter);
        break;
    default:
        ADD_FAILURE() << "unexpected value type " << value.typeStr();
    }
}

// Every value of the one map differs from its counterpart in the other, down to each drive's fields.
void expectAllDiffer(const MapMetadata& changed, const MapMetadata& original)
{
    EXPECT_EQ(changed.getKeys(), original.getKeys());
    for (const auto& [key, value] : changed) {
        const auto other = original.getEntry(key);
        if (value->typeId() == ArrayMetadata::staticTypeId()) {
            const auto& elements = static_cast<const ArrayMetadata&>(*value).get();
            const auto& others = static_cast<const ArrayMetadata&>(*other).get();
            ASSERT_EQ(elements.size(), others.size());
            for (size_t i = 0; i < elements.size(); ++i)
                expectAllDiffer(static_cast<const MapMetadata&>(*elements[i]),
                                static_cast<const MapMetadata&>(*others[i]));
        } else {
            EXPECT_FALSE(value->isEqual(other.get(), 0.0)) << key;
        }
    }
}

} // namespace

TEST(RigidBodyConstraintAttributes, SerialiseWritesTheDrivesAsSixMaps)
{
    Record record;
    record.drives[Record::DriveTwist].damping = 4.5f;
    record.drives[Record::DriveTwist].enable = true;
    MapMetadata map;
    ASSERT_TRUE(record.serialise(&map));
    EXPECT_FALSE(record.serialise(nullptr));

    EXPECT_EQ(map.typedEntry<int>("constraintType")->get(), 0);
    EXPECT_EQ(map.typedEntry<std::string>("name")->get(), "");
    const auto drives = map.typedEntryAs<ArrayMetadata>("cDrive");
    ASSERT_NE(drives, nullptr);
    ASSERT_EQ(drives->get().size(), 6u);
    for (size_t index = 0; index < 6; ++index) {
        SCOPED_TRACE(index);
        ASSERT_EQ(drives->get()[index]->typeId(), MapMetadata::staticTypeId());
        const auto& drive = static_cast<const MapMetadata&>(*drives->get()[index]);
        EXPECT_EQ(drive.size(), 7u);
        for (const char* key : {"bounceThreshold", "damping", "forceLimit", "restitution", "stiffness"})
            EXPECT_NE(drive.typedEntry<double>(key), nullptr) << key;
        EXPECT_NE(drive.typedEntry<bool>("isAcceleration"), nullptr);
        EXPECT_EQ(drive.typedEntry<double>("damping")->get(), index == Record::DriveTwist ? 4.5 : 0.0);
        EXPECT_EQ(drive.typedEntry<bool>("enable")->get(), index == Record::DriveTwist);
    }

}

TEST(RigidBodyConstraintAttributes, RoundTripKeepsEveryValueAndAllSixDrives)
{
    MapMetadata original;
    ASSERT_TRUE(Record().serialise(&original));
    MapMetadata changed(original);
    int counter = 0;
    perturb(changed, counter);
    expectAllDiffer(changed, original);

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
    EXPECT_EQ(node.attributes.size(), 110u) << "no key of its own";
}
