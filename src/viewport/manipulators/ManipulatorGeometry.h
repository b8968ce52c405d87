#pragma once

#include "Frustum.h"

#include <Imath/ImathMatrix.h>
#include <Imath/ImathQuat.h>
#include <Imath/ImathVec.h>

#include <vector>

// The screen and ray geometry of the viewport's handles, free of OpenGL so
// that it runs without a display. Pixels have their origin at the bottom left
// of a view of width x height; frustum pixels are the widget's.
namespace ManipulatorGeometry {

// How many pixels one handle unit covers on the screen.
constexpr double kHandlePixels = 90.0;

// Where a world point lands, in pixels. A point on the camera's plane gives
// non-finite pixels, which no hit test accepts.
Imath::V2d projectToScreen(const ZentoCore::Frustum& frustum, int width, int height, const Imath::V3d& point);

// The ray from the camera through a pixel.
ZentoCore::Ray rayThroughPixel(const ZentoCore::Frustum& frustum, int width, int height, double x, double y);

// The squared distance from p to the segment ab, clamped to its end points;
// a segment of no length is its one point.
double distanceSquaredToSegment(const Imath::V2d& a, const Imath::V2d& b, const Imath::V2d& p);

struct RayPlaneHit {
    Imath::V3d point{0.0, 0.0, 0.0};
    Imath::V3d normal{0.0, 0.0, 0.0};
    // Distance from the ray's origin to the point, over the length of the given direction.
    double distance = 0.0;
    bool hit = false;
};

// No hit for a ray within 0.0001 of parallel to the plane (normal dot unit
// direction), nor for a plane behind the ray's origin.
RayPlaneHit intersectRayPlane(const Imath::V3d& planePoint, const Imath::V3d& planeNormal,
                              const Imath::V3d& rayOrigin, const Imath::V3d& rayDirection);

// The world length that covers the given pixels on the screen at the depth of
// position: a sphere chord from position to the point as far from the camera
// on the ray that many pixels to the right.
double screenConstantLength(const ZentoCore::Frustum& frustum, int width, int height, const Imath::V3d& position,
                            double pixels);

// One handle unit: the world length of kHandlePixels at the depth of position.
double handleUnit(const ZentoCore::Frustum& frustum, int width, int height, const Imath::V3d& position);

// The shortest rotation taking one direction onto another, by Imath's rule
// (which turns opposite directions about some perpendicular axis); the
// identity when either is of no length, where the rule gives no rotation.
Imath::Quatd rotationBetween(const Imath::V3d& from, const Imath::V3d& to);

// The rotation that takes y onto normal and x onto tangent laid into the
// plane of normal. A tangent along the normal leaves the shortest turn of y alone.
Imath::M44d orientedFrame(const Imath::V3d& normal, const Imath::V3d& tangent);

// The unit shapes from which every handle is drawn, three floats a vertex.
struct UnitShapes {
    std::vector<Imath::V3f> line;         // (0,0,0) to (1,0,0)
    std::vector<Imath::V3f> plane;        // two triangles of the square from -1 to 1 in XZ
    std::vector<Imath::V3f> planeOutline; // its four corners
    std::vector<Imath::V3f> cone;         // apex (0,1,0), then the base ring
    std::vector<Imath::V3f> cube;         // twelve triangles of the cube from -1 to 1
    std::vector<Imath::V3f> circle;       // the unit circle in XZ, its first point again at the end
    std::vector<Imath::V3f> arc;          // from -126 degrees to about 124 degrees in XZ
    std::vector<Imath::V3f> disc;         // centre, then the circle, then its first point
};

UnitShapes unitShapes();

} // namespace ManipulatorGeometry
