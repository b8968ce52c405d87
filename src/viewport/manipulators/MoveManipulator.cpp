#include "MoveManipulator.h"

#include "ManipulatorGeometry.h"
#include "MultiMoveCommand.h"

using ZentoCore::Frustum;
using namespace ManipulatorGeometry;

void MoveManipulator::draw(const Frustum& frustum, int width, int height)
{
    drawArrows(frustum, width, height, Imath::V3d(1.0, 1.0, 1.0),
               [this](const Imath::V3d& tip, const Imath::V3d& axis, double u) {
                   drawCone(tip, axis, u / 20.0, u * 0.25);
               });
}

void MoveManipulator::hover(const Frustum& frustum, int width, int height, const Imath::V3d& cursor,
                            bool isScreenPosition)
{
    hoverHandles(frustum, width, height, cursor, isScreenPosition);
}

bool MoveManipulator::hitDragPlane(const Frustum& frustum, int width, int height, int x, int y,
                                   Imath::V3d& hit) const
{
    const ZentoCore::Ray ray = rayThroughPixel(frustum, width, height, x, y);
    const Imath::V3d R = ray.direction.normalized();
    const int normal = dragPlaneAxis(R, axes());
    const RayPlaneHit met = intersectRayPlane(position(), normal < 0 ? -R : axes()[normal], ray.origin,
                                              ray.direction);
    hit = met.point;
    return met.hit;
}

void MoveManipulator::press(const Frustum& frustum, int width, int height, int x, int y)
{
    if (names.empty() || !isActive())
        return;
    // Taken whether or not the ray meets the plane, so that a press that
    // misses gives a command of no move rather than one from an old press.
    startPosition = position();
    pressHit = hitDragPlane(frustum, width, height, x, y, startHit);
    storeStartMatrices();
}

void MoveManipulator::drag(const Frustum& frustum, int width, int height, int x, int y)
{
    if (names.empty() || !isActive() || !pressHit)
        return;
    Imath::V3d hit;
    if (!hitDragPlane(frustum, width, height, x, y, hit))
        return;
    const Imath::V3d d = hit - startHit;
    const std::array<Imath::V3d, 3> A = axes();
    Imath::V3d moved = startPosition;
    if (axisX || axisY || axisZ) {
        const Imath::V3d& axis = A[activeAxis()];
        moved += axis * d.dot(axis);
    } else {
        // A plane handle moves along the two axes in its plane, the centre
        // square along all three; for them the plane does not depend on the ray.
        const int normal = dragPlaneAxis(Imath::V3d(0.0), A);
        for (int i = 0; i < 3; ++i)
            if (i != normal)
                moved += A[i] * d.dot(A[i]);
    }
    setPosition(moved);
    command()->redo();
}

void MoveManipulator::release()
{
    clearFlags();
    dragging = false;
}

std::shared_ptr<BaseCommand> MoveManipulator::command()
{
    return std::make_shared<MultiMoveCommand>(graph, names, startMatrices, position() - startPosition);
}
