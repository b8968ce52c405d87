#pragma once

#include "BaseManipulator.h"

// Scales the selected nodes along an axis, along the two axes of a plane or
// uniformly: the move handles with a cube at the tip of each axis, the axes
// stretching with the drag. A body sized by its shape changes its
// "dimension", any other node its scale (NodeTransforms::scaleFrom). The
// result is one MultiScaleCommand.
class ScaleManipulator : public BaseManipulator {
public:
    void draw(const ZentoCore::Frustum& frustum, int width, int height) override;
    // Also keeps the handle length for the press.
    void hover(const ZentoCore::Frustum& frustum, int width, int height, const Imath::V3d& cursor,
               bool isScreenPosition) override;
    void press(const ZentoCore::Frustum& frustum, int width, int height, int x, int y) override;
    // An axis or plane handle scales by how far the cursor's point on the
    // drag plane reaches along it against the handle's length at the press;
    // the centre square by the horizontal pixels from the press, 90 to the
    // right doubling. Negative past the centre.
    void drag(const ZentoCore::Frustum& frustum, int width, int height, int x, int y) override;
    // Also puts the factors back to one, so that the axes snap back.
    void release() override;
    std::shared_ptr<BaseCommand> command() override;

    // "dimension" of each node at the press, (1, 1, 1) for one without it.
    std::vector<Imath::V3d> startDimensions;
    // What takes a distance from the pivot to the handle's tip, and the press's hit moved there.
    Imath::V3d tipOffset{0.0, 0.0, 0.0};
    Imath::V3d startTip{0.0, 0.0, 0.0};
    // One handle unit times size, as the last hover measured it.
    double handleLength = 1.0;
    int pressX = 0;
    Imath::V3d scaleFactors{1.0, 1.0, 1.0};
};
