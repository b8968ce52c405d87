#include "JointNode.h"

#include "Shapes.h"

#include <Imath/ImathQuat.h>

#include <algorithm>
#include <cmath>
#include <limits>

using namespace ZentoCore;

namespace {

void addBall(ZentoUtils::Mesh& mesh, double displaySize)
{
    constexpr int kSide = 5;
    const double radius = 0.5 * displaySize;
    std::vector<Imath::V3f> grid;
    for (int i = 0; i < kSide; ++i) {
        const double a = i * M_PI * 0.25;
        for (int j = 0; j < kSide; ++j) {
            const double b = j * 2.0 * M_PI * 0.25;
            grid.emplace_back(float(radius * std::cos(b) * std::sin(a)), float(radius * std::sin(a - M_PI / 2.0)),
                              float(radius * std::sin(b) * std::sin(a)));
        }
    }
    Shapes::addGridTriangles(mesh, grid, kSide, kSide);
}

// Imath's length guard: tiny vectors are scaled before the square root.
double guardedLength(const Imath::V3f& v)
{
    const Imath::V3d d(v);
    const double squared = d ^ d;
    if (squared >= 2.0 * std::numeric_limits<double>::min())
        return std::sqrt(squared);
    const double largest = std::max({std::fabs(d.x), std::fabs(d.y), std::fabs(d.z)});
    if (largest == 0.0)
        return 0.0;
    const Imath::V3d scaled = d / largest;
    return largest * std::sqrt(scaled ^ scaled);
}

// A four-sided pyramid from a square base at height h to the child's position.
void addBone(ZentoUtils::Mesh& mesh, const Imath::V3f& toChild, double displaySize)
{
    const float h = float(0.5 * displaySize);
    const float length = float(guardedLength(toChild));
    Imath::Quatf turn;
    turn.setRotation(Imath::V3f(0.0f, 1.0f, 0.0f), toChild);
    const Imath::M44f rotation = turn.toMatrix44();
    const auto place = [&](const Imath::V3f& point) {
        Imath::V3f placed;
        rotation.multVecMatrix(point, placed);
        return placed;
    };
    const Imath::V3f base[4] = {place({h, h, h}), place({h, h, -h}), place({-h, h, -h}), place({-h, h, h})};
    const Imath::V3f tip = place({0.0f, length, 0.0f});
    for (int side = 0; side < 4; ++side)
        Shapes::addTriangle(mesh, base[side], base[(side + 1) % 4], tip);
    Shapes::addTriangle(mesh, base[1], base[0], base[3]);
    Shapes::addTriangle(mesh, base[1], base[3], base[2]);
}

} // namespace

JointNode::JointNode(const NodePath& path) : TransformNode(path)
{
    MetadataImpl<int> jointId(-1);
    attributes.addEntry("jointId", &jointId);
    setDisplayList({"jointId"});
}

int JointNode::typeId() const
{
    return kTypeId;
}

const std::string& JointNode::typeName() const
{
    static const std::string name = "Joint";
    return name;
}

std::shared_ptr<MapMetadata> JointNode::geometry()
{
    auto geo = std::make_shared<MetadataImpl<ZentoUtils::Mesh>>();
    ZentoUtils::Mesh& mesh = geo->get();
    if (children.empty())
        addBall(mesh, displaySize);
    for (const BaseNode* child : children) {
        if (child->typeId() != kTypeId)
            continue;
        addBone(mesh, Imath::V3f(child->translation), displaySize);
        addBall(mesh, displaySize);
    }
    auto geometry = std::make_shared<MapMetadata>();
    geometry->insertEntry("geo", geo);
    return geometry;
}

bool JointNode::geometryFollowsChildren() const
{
    return true;
}
