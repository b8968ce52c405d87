#include "NodeTransforms.h"

#include "BaseNode.h"
#include "MathUtils.h"
#include "RigidBodyAttributes.h"

namespace NodeTransforms {

namespace {

using Zento::RigidBodyAttributes;

Imath::V3d scaleOf(const Imath::M44d& matrix)
{
    Imath::V3d scale, translation;
    Imath::Quatd rotation;
    ZentoCore::extractSRT(matrix, scale, rotation, translation);
    return scale;
}

// The axis along which the factors reach "dimension": a capsule's own, else y,
// which leaves each factor on its axis.
int sizingAxis(const BaseNode& node)
{
    const auto type = node.attributes.typedEntry<int>("type");
    const auto axis = node.attributes.typedEntry<int>("axis");
    if (type && axis && type->value() == RigidBodyAttributes::Capsule)
        return axis->value();
    return RigidBodyAttributes::AxisY;
}

} // namespace

Imath::M44d parentWorld(const BaseNode& node)
{
    return node.parent ? node.parent->worldMatrix() : Imath::M44d();
}

void moveTo(BaseNode& node, Imath::M44d world, const Imath::V3d& offset)
{
    world[3][0] += offset.x;
    world[3][1] += offset.y;
    world[3][2] += offset.z;
    const Imath::M44d local = world * ZentoCore::matrixInverse(parentWorld(node));
    node.translation = Imath::V3d(local[3][0], local[3][1], local[3][2]);
}

void setRotationFrom(BaseNode& node, const Imath::M44d& local)
{
    Imath::V3d scale, translation;
    Imath::Quatd orientation;
    ZentoCore::extractSRT(local, scale, orientation, translation);
    node.rotation.extract(orientation.toMatrix33());
}

void rotateFrom(BaseNode& node, const Imath::M44d& startLocal, const Imath::Quatd& rotation)
{
    const Imath::M44d parent = parentWorld(node);
    Imath::V3d scale, translation;
    Imath::Quatd orientation;
    ZentoCore::extractSRT(startLocal * parent, scale, orientation, translation);
    const Imath::M44d turned = orientation.toMatrix44() * rotation.toMatrix44();
    Imath::M44d result;
    for (int row = 0; row < 3; ++row)
        for (int column = 0; column < 3; ++column)
            result[row][column] = turned[row][column] * scale[row];
    result[3][0] = translation.x;
    result[3][1] = translation.y;
    result[3][2] = translation.z;
    setRotationFrom(node, result * ZentoCore::matrixInverse(parent));
}

Imath::V3d* shapeDimension(BaseNode& node)
{
    const auto type = node.attributes.typedEntry<int>("type");
    const auto size = node.attributes.typedEntry<Imath::V3d>("dimension");
    if (!type || type->value() == RigidBodyAttributes::Plane || type->value() < 0 || !size)
        return nullptr;
    return &size->get();
}

Imath::V3d scaledDimension(const Imath::V3d& d, const Imath::V3d& s, int capsuleAxis)
{
    switch (capsuleAxis) {
    case RigidBodyAttributes::AxisX: return Imath::V3d(d.x * s.y, d.y * s.x, d.z * s.z);
    case RigidBodyAttributes::AxisY: return Imath::V3d(d.x * s.x, d.y * s.y, d.z * s.z);
    case RigidBodyAttributes::AxisZ: return Imath::V3d(d.x * s.x, d.y * s.z, d.z * s.y);
    default: return d;
    }
}

bool scaleFrom(BaseNode& node, const Imath::M44d& startLocal, const Imath::V3d& startDimension,
               const Imath::V3d& factors)
{
    if (Imath::V3d* dimension = shapeDimension(node)) {
        *dimension = scaledDimension(startDimension, factors, sizingAxis(node));
        return true;
    }
    const Imath::V3d start = scaleOf(startLocal);
    node.scale = Imath::V3d(start.x * factors.x, start.y * factors.y, start.z * factors.z);
    return false;
}

} // namespace NodeTransforms
