#pragma once

#include "NodePath.h"

#include <Imath/ImathMatrix.h>
#include <Imath/ImathVec.h>

#include <vector>

class ZentoSceneDelegate;

// Answers which prims lie under a rectangle of the screen. The model draws
// nothing itself: the viewport's renderer installs one of these in the scene
// graph, which asks it in pick.
class ScenePicker {
public:
    struct Request {
        Imath::M44d viewMatrix;
        // OpenGL clip space, narrowed so that the whole target is the rectangle.
        Imath::M44d projectionMatrix;
        // Samples across and up; a picker may take fewer when it cannot render that many.
        int width = 4;
        int height = 4;
        // Prims at or below these paths take no part.
        std::vector<ZentoCore::NodePath> excluded;
    };
    struct Hit {
        ZentoCore::NodePath path;
        Imath::V3f worldPoint;
    };

    ScenePicker() = default;
    ScenePicker(const ScenePicker&) = delete;
    ScenePicker& operator=(const ScenePicker&) = delete;
    virtual ~ScenePicker() = default;

    // The visible prims of the delegate, shaded, but for the excluded ones,
    // hide each other by depth. One hit for each prim seen, nearest first,
    // at the world point of its nearest sample.
    virtual std::vector<Hit> pickPrims(ZentoSceneDelegate& delegate, const Request& request) = 0;
};
