#include "RotateManipulator.h"

#include "ManipulatorGeometry.h"
#include "MultiRotateCommand.h"

#include <cmath>

using ZentoCore::Frustum;
using namespace ManipulatorGeometry;

namespace {

const Imath::V4d kDiscColor(0.5, 0.5, 0.5, 0.6000000238418579);
const Imath::V3d kViewRingColor(0.5, 0.5, 1.0);
// The view ring lies outside the axis rings by this factor.
constexpr double kViewRing = 1.1;
// A ring is hit within this share of its radius.
constexpr double kRingTolerance = 0.1;
// The far half of an axis ring, which is not drawn, does not react: the
// cursor's point must not lie much behind the pivot as seen from the camera.
constexpr double kFarSide = -0.3;

} // namespace

void RotateManipulator::draw(const Frustum& frustum, int width, int height)
{
    if (!beginDraw(frustum))
        return;
    const Imath::V3d P = position();
    const Imath::V2d pixel = projectToScreen(frustum, width, height, P);
    // The ray by which the handle unit is measured gives the direction from the camera.
    const Imath::V3d D =
        rayThroughPixel(frustum, width, height, pixel.x + kHandlePixels, pixel.y).direction.normalized();
    radius = handleUnit(frustum, width, height, P) * size;
    setColor(kDiscColor);
    drawDisc(P, -D, radius * 0.95);
    setColor(ringView ? kYellow : kViewRingColor);
    drawCircle(P, -D, radius * kViewRing);
    const std::array<Imath::V3d, 3> A = axes();
    for (int axis = 0; axis < 3; ++axis) {
        setColor(handleColor(axis));
        // The direction to the camera, laid into the ring's plane.
        const Imath::V3d facing = -(D - A[axis] * (D.dot(A[axis]) / A[axis].dot(A[axis])));
        drawArc(P, A[axis], facing, radius);
    }
    endDraw();
}

void RotateManipulator::hover(const Frustum& frustum, int width, int height, const Imath::V3d& cursor,
                              bool isScreenPosition)
{
    clearFlags();
    if (names.empty())
        return;
    const Imath::V2d at = isScreenPosition ? Imath::V2d(cursor.x, cursor.y)
                                           : projectToScreen(frustum, width, height, cursor);
    const ZentoCore::Ray ray = rayThroughPixel(frustum, width, height, at.x, at.y);
    const Imath::V3d R = ray.direction.normalized();
    const Imath::V3d P = position();
    const std::array<Imath::V3d, 3> A = axes();
    for (int axis = 0; axis < 3; ++axis) {
        const RayPlaneHit hit = intersectRayPlane(P, A[axis].normalized(), ray.origin, ray.direction);
        if (!hit.hit || locked(axis))
            continue;
        const Imath::V3d v = hit.point - P;
        if ((-R).dot(v.normalized()) > kFarSide && std::fabs(v.length() - radius) < radius * kRingTolerance) {
            axisFlag(axis) = true;
            return;
        }
    }
    const RayPlaneHit hit = intersectRayPlane(P, R, ray.origin, ray.direction);
    if (hit.hit && !lockZ &&
        std::fabs((hit.point - P).length() - radius * kViewRing) < radius * kRingTolerance)
        ringView = true;
}

Imath::V3d RotateManipulator::directionOnRing(const Frustum& frustum, int width, int height, int x, int y) const
{
    if (names.empty())
        return Imath::V3d(0.0);
    const ZentoCore::Ray ray = rayThroughPixel(frustum, width, height, x, y);
    const Imath::V3d normal = ringView ? -ray.direction.normalized() : axes()[activeAxis()];
    const RayPlaneHit hit = intersectRayPlane(position(), normal, ray.origin, ray.direction);
    if (!hit.hit)
        return Imath::V3d(0.0);
    return (hit.point - position()).normalized() * radius;
}

void RotateManipulator::press(const Frustum& frustum, int width, int height, int x, int y)
{
    if (names.empty())
        return;
    startDirection = currentDirection = Imath::V3d(1.0, 0.0, 0.0);
    if (isActive())
        startDirection = currentDirection = directionOnRing(frustum, width, height, x, y);
    storeStartMatrices();
}

void RotateManipulator::drag(const Frustum& frustum, int width, int height, int x, int y)
{
    if (names.empty() || !isActive())
        return;
    // A ring plane seen edge-on gives no point: the turn stays as it was
    // rather than jumping back to none.
    const Imath::V3d direction = directionOnRing(frustum, width, height, x, y);
    if (direction.length2() == 0.0)
        return;
    currentDirection = direction;
    command()->redo();
}

void RotateManipulator::release()
{
    clearFlags();
    dragging = false;
    startDirection = currentDirection = Imath::V3d(1.0, 0.0, 0.0);
    updateFrame();
}

std::shared_ptr<BaseCommand> RotateManipulator::command()
{
    return std::make_shared<MultiRotateCommand>(graph, names, startMatrices,
                                                rotationBetween(startDirection, currentDirection));
}
