#include "ConstraintNode.h"

#include "RigidBodyConstraintAttributes.h"
#include "RigidBodyNode.h"
#include "Shapes.h"

#include <algorithm>
#include <cmath>
#include <optional>

using Record = Zento::RigidBodyConstraintAttributes;
using ZentoCore::MapMetadata;
using ZentoCore::MetadataImpl;
using ZentoUtils::Mesh;

namespace {

const char* const kDriveHeaders[Record::DriveCount] = {"@Drive X",     "@Drive Y",     "@Drive Z",
                                                       "@Drive Swing", "@Drive Twist", "@Drive Slerp"};
// A drive's attributes in the order in which they are shown.
const char* const kDriveKeys[] = {"enable",          "damping",    "stiffness",     "restitution",
                                  "bounceThreshold", "forceLimit", "isAcceleration"};
const char* const kMotionKeys[Record::AxisCount] = {"linearMotionX",  "linearMotionY",  "linearMotionZ",
                                                    "angularMotionX", "angularMotionY", "angularMotionZ"};

// Every group is shown for every type: the headers tell the user which
// settings a type reads.
std::vector<std::string> displayList()
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
        "@D6 Constraint", kMotionKeys[0], kMotionKeys[1], kMotionKeys[2], kMotionKeys[3], kMotionKeys[4],
        kMotionKeys[5],
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
    for (int drive = 0; drive < Record::DriveCount; ++drive) {
        list.push_back(kDriveHeaders[drive]);
        for (const char* key : kDriveKeys)
            list.push_back(std::string(Record::kDrivePrefixes[drive]) + key);
    }
    list.push_back("@Parent");
    list.push_back("parentRigidBody");
    return list;
}


// The angle ranges of fans and arcs are cut into this many steps.
constexpr int kSteps = 21;
// Ranges narrower than this draw nothing.
constexpr double kEmptyRange = 0.00001;
// Sizes in units of the display size: the Fixed box's half extent and the
// sphere's radius, and the radius of fans and arcs.
constexpr double kSolidSize = 1.2;
constexpr double kSweepRadius = 3.0;

struct Range {
    double start;
    double end;
};
constexpr Range kFullTurn{-180.0, 180.0};
constexpr Range kHalfTurn{-90.0, 90.0};

// One fan of the shape, and the arc over it among the guide lines.
struct Sweep {
    Range range;
    int axis;
    Imath::V3f color;
};

const Imath::V3f kRed(1.0f, 0.0f, 0.0f);
const Imath::V3f kGreen(0.0f, 1.0f, 0.0f);
const Imath::V3f kBlue(0.0f, 0.0f, 1.0f);

// What a constraint draws, at its display size.
struct Outline {
    std::vector<Imath::V3d> boxes; // half extents
    double sphereRadius = 0.0;     // no sphere at 0
    std::vector<Sweep> sweeps;
};

// A range that is too narrow or no finite number draws nothing.
bool isEmpty(const Range& range)
{
    const double width = range.end - range.start;
    return !std::isfinite(width) || std::abs(width) < kEmptyRange;
}

// The point at an angle in degrees on the circle of radius r about an axis.
Imath::V3f circlePoint(int axis, double r, double degrees)
{
    const double t = degrees * M_PI / 180.0;
    const float c = static_cast<float>(r * std::cos(t));
    const float s = static_cast<float>(r * std::sin(t));
    if (axis == 0)
        return {0.0f, c, s};
    if (axis == 1)
        return {c, 0.0f, s};
    return {c, s, 0.0f};
}

// The origin, then the points from start to end. Angles are counted in steps
// rather than summed, so that rounding can neither drop nor add the last one.
std::vector<Imath::V3f> arc(double r, const Range& range, int axis)
{
    std::vector<Imath::V3f> points;
    if (isEmpty(range))
        return points;
    points.emplace_back(0.0f, 0.0f, 0.0f);
    if (range.end < range.start)
        return points;
    const double step = (range.end - range.start) / kSteps;
    for (int k = 0; k <= kSteps; ++k)
        points.push_back(circlePoint(axis, r, range.start + k * step));
    return points;
}

// A triangle from the origin for each step whose start lies below end - step:
// the fan stops one step short of the arc's end.
void addFan(Mesh& mesh, double r, const Range& range, int axis)
{
    if (isEmpty(range) || range.end < range.start)
        return;
    const double step = (range.end - range.start) / kSteps;
    for (int k = 0; k + 1 < kSteps; ++k)
        Shapes::addTriangle(mesh, Imath::V3f(0.0f, 0.0f, 0.0f), circlePoint(axis, r, range.start + k * step),
                            circlePoint(axis, r, range.start + (k + 1) * step));
}


// The limit when its switch is on. A switch or limit that is missing or of
// another type is a limit that is off.
std::optional<Imath::V3d> enabledLimit(const MapMetadata& attributes, const char* enableKey, const char* limitKey)
{
    const auto enabled = attributes.typedEntry<bool>(enableKey);
    const auto limit = attributes.typedEntry<Imath::V3d>(limitKey);
    if (!enabled || !enabled->get() || !limit)
        return std::nullopt;
    return limit->get();
}

Range twistRange(const MapMetadata& attributes)
{
    const auto twist = enabledLimit(attributes, "enableTwistLimit", "twistLimit");
    if (twist && std::abs(twist->y - twist->x) >= 0.0001)
        return {std::min(twist->x, twist->y), std::max(twist->x, twist->y)};
    return kHalfTurn;
}

// Swing about y (the cone's x, the pyramid's y pair mirrored) or about z (the
// cone's y, the pyramid's z pair as it stands).
Range swingRange(const MapMetadata& attributes, int coneComponent, const char* pyramidKey, bool mirrored)
{
    if (const auto cone = enabledLimit(attributes, "enableSwingLimit", "swingLimit")) {
        const double angle = (*cone)[coneComponent];
        return angle > 0.0 && angle < 180.0 ? Range{-angle, angle} : kHalfTurn;
    }
    if (const auto pyramid = enabledLimit(attributes, "enablePyramidLimit", pyramidKey)) {
        const double low = std::min(pyramid->x, pyramid->y);
        const double high = std::max(pyramid->x, pyramid->y);
        return mirrored ? Range{-high, -low} : Range{low, high};
    }
    return kHalfTurn;
}

void addD6Sweeps(const MapMetadata& attributes, Outline& outline)
{
    const Imath::V3f colors[3] = {kRed, kGreen, kBlue};
    for (int axis = 0; axis < 3; ++axis) {
        const auto motion = attributes.typedEntry<int>(kMotionKeys[Record::AngularX + axis]);
        const int value = motion ? motion->get() : Record::Locked;
        if (value == Record::Free) {
            outline.sweeps.push_back({kFullTurn, axis, colors[axis]});
        } else if (value == Record::Limit) {
            const Range range = axis == 0   ? twistRange(attributes)
                                : axis == 1 ? swingRange(attributes, 0, "pyramidYSwingLimit", true)
                                            : swingRange(attributes, 1, "pyramidZSwingLimit", false);
            outline.sweeps.push_back({range, axis, colors[axis]});
        }
    }
}

Outline outlineOf(const MapMetadata& attributes, double size)
{
    // A record that cannot be read keeps its default type.
    Record record;
    record.deserialise(&attributes);

    Outline outline;
    const double solid = kSolidSize * size;
    const Imath::V3d fixedBox(solid, solid, solid);
    switch (record.constraintType) {
    case Record::Fixed:
        outline.boxes.push_back(fixedBox);
        break;
    case Record::Distance:
        outline.boxes.emplace_back(1.5 * solid, solid, solid);
        break;
    case Record::Spherical: {
        const auto limit = enabledLimit(attributes, "enableLimit", "limit");
        const auto inHalfTurn = [](double angle) { return angle >= 0.0 && angle <= 180.0; };
        if (!limit || !inHalfTurn(limit->x) || !inHalfTurn(limit->y)) {
            outline.sphereRadius = solid;
            break;
        }
        if (limit->y > 0.0)
            outline.sweeps.push_back({{-limit->y, limit->y}, 0, kGreen});
        if (limit->x > 0.0)
            outline.sweeps.push_back({{-limit->x, limit->x}, 1, kRed});
        if (outline.sweeps.empty())
            outline.boxes.push_back(fixedBox);
        break;
    }
    case Record::Revolute: {
        const auto limit = enabledLimit(attributes, "enableLimit", "limit");
        if (!limit)
            outline.sweeps.push_back({kFullTurn, 0, kRed});
        else if (std::abs(limit->y - limit->x) < kEmptyRange)
            outline.boxes.push_back(fixedBox);
        else
            outline.sweeps.push_back({{limit->x, limit->y}, 0, kRed});
        break;
    }
    case Record::Prismatic:
        outline.boxes.emplace_back(2.0 * size, solid, solid);
        outline.boxes.emplace_back(1.5 * size, 1.5 * size, 1.5 * size);
        break;
    case Record::D6:
        outline.sphereRadius = solid;
        addD6Sweeps(attributes, outline);
        break;
    default:
        // A type that names no joint: a sphere of one unit, whatever the display size.
        outline.sphereRadius = 1.0;
        break;
    }
    return outline;
}

} // namespace

ConstraintNode::ConstraintNode(const ZentoCore::NodePath& path) : BaseNode(path)
{
    const Record defaults;
    defaults.serialise(&attributes);
    // The node's name is its path, and its drives are the prefixed attributes
    // below: the record's own entries for them belong to the ragdoll file.
    attributes.removeEntry(Record::kNameKey);
    attributes.removeEntry(Record::kDrivesKey);
    for (int drive = 0; drive < Record::DriveCount; ++drive)
        defaults.drives[drive].serialise(attributes, Record::kDrivePrefixes[drive]);
    const MetadataImpl<std::string> noParentBody;
    attributes.addEntry("parentRigidBody", &noParentBody);

    setDisplayList(displayList());
    setEnumHint({"constraintType"}, {"Fixed", "Distance", "Spherical", "Revolute", "Prismatic", "D6"});
    setEnumHint(std::vector<std::string>(std::begin(kMotionKeys), std::end(kMotionKeys)), {"Locked", "Limit", "Free"});
}

int ConstraintNode::typeId() const
{
    return kTypeId;
}

const std::string& ConstraintNode::typeName() const
{
    static const std::string name = "Constraint";
    return name;
}

bool ConstraintNode::skipsRendering() const
{
    return false;
}

std::shared_ptr<MapMetadata> ConstraintNode::geometry()
{
    const Outline shape = outlineOf(attributes, displaySize);
    auto geo = std::make_shared<MetadataImpl<Mesh>>();
    Mesh& mesh = geo->get();
    for (const Imath::V3d& half : shape.boxes)
        Shapes::addBox(mesh, static_cast<float>(half.x), static_cast<float>(half.y), static_cast<float>(half.z));
    if (shape.sphereRadius > 0.0)
        Shapes::addSphere(mesh, shape.sphereRadius);
    for (const Sweep& sweep : shape.sweeps)
        addFan(mesh, kSweepRadius * displaySize, sweep.range, sweep.axis);

    auto map = std::make_shared<MapMetadata>();
    map->insertEntry("geo", geo);
    return map;
}

bool ConstraintNode::geometryFollowsAttributes() const
{
    return true;
}

void ConstraintNode::guideLines(std::vector<GuideLine>& lines) const
{
    for (const Sweep& sweep : outlineOf(attributes, displaySize).sweeps)
        lines.push_back({sweep.color, arc(kSweepRadius * displaySize, sweep.range, sweep.axis)});
}

namespace {

BaseNode* firstBodyChild(const BaseNode& node)
{
    for (BaseNode* child : node.children)
        if (child->typeId() == RigidBodyNode::kTypeId)
            return child;
    return nullptr;
}

} // namespace

BaseNode* ConstraintNode::childBody(const BaseNode& constraint)
{
    return constraint.parent ? firstBodyChild(*constraint.parent) : nullptr;
}

BaseNode* ConstraintNode::parentBody(const BaseNode& constraint, const NodeMap& nodes)
{
    const auto named = constraint.attributes.typedEntry<std::string>("parentRigidBody");
    if (named && !named->get().empty()) {
        const auto found = nodes.find(ZentoCore::NodePath(named->get()));
        if (found != nodes.end() && found->second->typeId() == RigidBodyNode::kTypeId)
            return found->second.get();
    }
    if (!constraint.parent)
        return nullptr;
    for (const BaseNode* joint = constraint.parent->parent; joint; joint = joint->parent)
        if (BaseNode* body = firstBodyChild(*joint))
            return body;
    return nullptr;
}
