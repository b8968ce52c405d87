#pragma once

#include "BaseManipulator.h"

// Moves the selected nodes along an axis, in an axis plane or in the plane
// that faces the camera: arrows with cones, three small squares and the
// centre square. The result is one MultiMoveCommand of the world offset.
class MoveManipulator : public BaseManipulator {
public:
    void draw(const ZentoCore::Frustum& frustum, int width, int height) override;
    void hover(const ZentoCore::Frustum& frustum, int width, int height, const Imath::V3d& cursor,
               bool isScreenPosition) override;
    void press(const ZentoCore::Frustum& frustum, int width, int height, int x, int y) override;
    // Moves the pivot by the handle's share of the way from the press's hit
    // to this event's, on a plane through the pivot, and the nodes with it.
    void drag(const ZentoCore::Frustum& frustum, int width, int height, int x, int y) override;
    void release() override;
    // The move from the pivot at the press to where it is now.
    std::shared_ptr<BaseCommand> command() override;

    // Where the press met the drag plane, and the pivot then.
    Imath::V3d startHit{0.0, 0.0, 0.0};
    Imath::V3d startPosition{0.0, 0.0, 0.0};

private:
    // The plane of the handle in use through the pivot, met by the ray through the pixel.
    bool hitDragPlane(const ZentoCore::Frustum& frustum, int width, int height, int x, int y,
                      Imath::V3d& hit) const;
};
