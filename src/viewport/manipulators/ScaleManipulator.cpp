#include "ScaleManipulator.h"

#include "BaseNode.h"
#include "ManipulatorGeometry.h"
#include "MultiScaleCommand.h"
#include "ZentoSceneGraph.h"

#include <cmath>
#include <limits>

using ZentoCore::Frustum;
using namespace ManipulatorGeometry;

namespace {

const std::array<Imath::V3d, 3> kWorldAxes = {Imath::V3d(1.0, 0.0, 0.0), Imath::V3d(0.0, 1.0, 0.0),
                                              Imath::V3d(0.0, 0.0, 1.0)};

} // namespace

void ScaleManipulator::draw(const Frustum& frustum, int width, int height)
{
    drawArrows(frustum, width, height, scaleFactors, [this](const Imath::V3d& tip, const Imath::V3d& axis, double u) {
        drawCube(tip, rotationBetween(Imath::V3d(1.0, 0.0, 0.0), axis), Imath::V3d(u / 15.0));
    });
}

void ScaleManipulator::hover(const Frustum& frustum, int width, int height, const Imath::V3d& cursor,
                             bool isScreenPosition)
{
    if (const double u = hoverHandles(frustum, width, height, cursor, isScreenPosition))
        handleLength = u * size;
}

void ScaleManipulator::press(const Frustum& frustum, int width, int height, int x, int y)
{
    if (names.empty())
        return;
    pressX = x;
    pressHit = false;
    if (isActive()) {
        const ZentoCore::Ray ray = rayThroughPixel(frustum, width, height, x, y);
        const Imath::V3d R = ray.direction.normalized();
        const int normal = dragPlaneAxis(R, kWorldAxes);
        const Imath::V3d P = position();
        const RayPlaneHit hit = intersectRayPlane(P, normal < 0 ? -R : kWorldAxes[normal], ray.origin, ray.direction);
        if (hit.hit) {
            const Imath::V3d v = hit.point - P;
            tipOffset = v.normalized() * (handleLength - v.length());
            startTip = hit.point + tipOffset;
            pressHit = true;
        }
    }
    storeStartMatrices();
    startDimensions.assign(names.size(), Imath::V3d(1.0, 1.0, 1.0));
    for (size_t i = 0; i < names.size(); ++i)
        if (const std::shared_ptr<BaseNode> node = graph->node(names[i]))
            if (const auto dimension = node->attributes.typedEntry<Imath::V3d>("dimension"))
                startDimensions[i] = dimension->value();
}

void ScaleManipulator::drag(const Frustum& frustum, int width, int height, int x, int y)
{
    if (names.empty() || !isActive() || !pressHit)
        return;
    const ZentoCore::Ray ray = rayThroughPixel(frustum, width, height, x, y);
    const Imath::V3d R = ray.direction.normalized();
    const Imath::V3d P = position();
    // The plane is chosen by the world axes and then laid along the frame's
    // (which are the world axes for a multi-selection).
    const std::array<Imath::V3d, 3> A = axes();
    const int normal = dragPlaneAxis(R, kWorldAxes);
    const RayPlaneHit hit = intersectRayPlane(P, normal < 0 ? -R : A[normal], ray.origin, ray.direction);
    if (!hit.hit)
        return;
    // How far the hit reaches along the direction, against the handle's
    // length at the press; a press on the pivot itself leaves no length to
    // compare with, and no factor.
    const double pressLength = (startTip - P).length();
    const auto reachFactor = [&](const Imath::V3d& direction) {
        if (!(pressLength > 0.0))
            return std::numeric_limits<double>::quiet_NaN();
        const Imath::V3d proj = direction * ((hit.point - P).dot(direction) / direction.dot(direction));
        const double f = (proj + tipOffset).length() / pressLength;
        return proj.dot(direction) < 0.0 ? -f : f;
    };
    Imath::V3d factors = scaleFactors;
    if (axisX || axisY || axisZ) {
        const int axis = activeAxis();
        factors[axis] = reachFactor(A[axis].normalized());
    } else if (planeView) {
        factors = Imath::V3d((x - pressX) / (size * kHandlePixels) + 1.0);
    } else {
        const int a = normal == 0 ? 1 : 0;
        const int b = normal == 2 ? 1 : 2;
        factors[a] = factors[b] = reachFactor((A[a] + A[b]).normalized());
    }
    // No factor, or a frame or size that is not finite, changes nothing.
    if (!std::isfinite(factors.x) || !std::isfinite(factors.y) || !std::isfinite(factors.z))
        return;
    scaleFactors = factors;
    command()->redo();
}

void ScaleManipulator::release()
{
    clearFlags();
    dragging = false;
    scaleFactors = Imath::V3d(1.0, 1.0, 1.0);
}

std::shared_ptr<BaseCommand> ScaleManipulator::command()
{
    return std::make_shared<MultiScaleCommand>(graph, names, startMatrices, startDimensions, scaleFactors);
}
