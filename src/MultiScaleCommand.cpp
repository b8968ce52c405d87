#include "MultiScaleCommand.h"

#include "BaseNode.h"
#include "MathUtils.h"
#include "ZentoSceneGraph.h"

namespace {

constexpr int kCapsuleType = 3;

Imath::V3d scaleOf(const Imath::M44d& matrix)
{
    Imath::V3d scale, translation;
    Imath::Quatd rotation;
    ZentoCore::extractSRT(matrix, scale, rotation, translation);
    return scale;
}

// A capsule keeps its radius in x and half length in y, so the factor along its
// own axis goes to y, whichever axis it lies on.
Imath::V3d scaledDimension(const Imath::V3d& d, const Imath::V3d& s, int axis)
{
    switch (axis) {
    case 0: return Imath::V3d(d.x * s.y, d.y * s.x, d.z * s.z);
    case 1: return Imath::V3d(d.x * s.x, d.y * s.y, d.z * s.z);
    case 2: return Imath::V3d(d.x * s.x, d.y * s.z, d.z * s.y);
    default: return d;
    }
}

} // namespace

bool MultiScaleCommand::isSizedByShape(const BaseNode& node, Imath::V3d** dimension, int* axis)
{
    const auto type = node.attributes.typedEntry<int>("type");
    const auto size = node.attributes.typedEntry<Imath::V3d>("dimension");
    if (!type || type->value() < 1 || !size)
        return false;
    *dimension = &size->get();
    const auto axisEntry = node.attributes.typedEntry<int>("axis");
    *axis = (axisEntry && type->value() == kCapsuleType) ? static_cast<int16_t>(axisEntry->value()) : 1;
    return true;
}

void MultiScaleCommand::execute()
{
    redo();
}

void MultiScaleCommand::redo()
{
    forEachNode(names, [&](size_t i, BaseNode& node) {
        Imath::V3d* dimension = nullptr;
        int axis = 1;
        if (isSizedByShape(node, &dimension, &axis)) {
            *dimension = scaledDimension(dimensions[i], factors, axis);
            graph->updateGeometry(node.path);
            return false;
        }
        const Imath::V3d start = scaleOf(matrices[i]);
        node.scale = Imath::V3d(start.x * factors.x, start.y * factors.y, start.z * factors.z);
        return true;
    });
}

void MultiScaleCommand::undo()
{
    forEachNode(names, [&](size_t i, BaseNode& node) {
        Imath::V3d* dimension = nullptr;
        int axis = 1;
        if (isSizedByShape(node, &dimension, &axis)) {
            *dimension = dimensions[i];
            graph->updateGeometry(node.path);
            return false;
        }
        node.scale = scaleOf(matrices[i]);
        return true;
    });
}

const std::string& MultiScaleCommand::name() const
{
    static const std::string name = "MultiScale";
    return name;
}
