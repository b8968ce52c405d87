#pragma once

#include "BaseManipulator.h"

// Turns each selected node about its own position, about an axis of the
// frame or the view direction: three half rings that face the camera, an
// outer view ring and a translucent disc. A multi-selection is not orbited
// about the pivot. The result is one MultiRotateCommand.
class RotateManipulator : public BaseManipulator {
public:
    // Also sets radius, which the hover test reads.
    void draw(const ZentoCore::Frustum& frustum, int width, int height) override;
    // A ring is hit within a tenth of its radius, on the half that faces the camera.
    void hover(const ZentoCore::Frustum& frustum, int width, int height, const Imath::V3d& cursor,
               bool isScreenPosition) override;
    void press(const ZentoCore::Frustum& frustum, int width, int height, int x, int y) override;
    // Turns the nodes by the rotation from the press's point on the ring to this one's.
    void drag(const ZentoCore::Frustum& frustum, int width, int height, int x, int y) override;
    void release() override;
    std::shared_ptr<BaseCommand> command() override;

    // The outer ring, which turns about the view direction.
    bool& ringView = planeView;
    // From the pivot to the ring point of the press and of the last drag, at ring radius.
    Imath::V3d startDirection{1.0, 0.0, 0.0};
    Imath::V3d currentDirection{1.0, 0.0, 0.0};
    // One handle unit at the pivot, as the last frame drew it.
    double radius = 1.0;

private:
    // Where the ray through the pixel meets the plane of the ring in use, as
    // a vector from the pivot of ring radius; zero when it does not meet it.
    Imath::V3d directionOnRing(const ZentoCore::Frustum& frustum, int width, int height, int x, int y) const;
};
