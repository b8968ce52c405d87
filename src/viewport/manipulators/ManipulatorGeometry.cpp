#include "ManipulatorGeometry.h"

#include <algorithm>
#include <cmath>

using ZentoCore::Frustum;
using ZentoCore::Ray;

namespace ManipulatorGeometry {

namespace {

// Closer than this to parallel, a ray and a plane do not meet.
constexpr double kParallel = 0.0001;

// The loops below run in double with these steps and bounds, which give the
// shapes their exact vertex counts: 17 ring points of the cone, 65 of the
// circle (the last one on the first), 90 of the arc.
constexpr double kConeStep = 0.39269908169872414;
constexpr double kConeEnd = 6.675884388878311;
constexpr double kCircleStep = 0.09817477042468103;
constexpr double kCircleEnd = 6.283185307179586;
constexpr double kArcStart = -2.199114820062152;
constexpr double kArcStep = 0.04908738521234052;
constexpr double kArcEnd = 2.199114857512855;

Imath::V3f onCircle(double angle)
{
    return Imath::V3f(float(std::cos(angle)), 0.0f, float(std::sin(angle)));
}

std::vector<Imath::V3f> cubeTriangles()
{
    // Each face as two triangles of its four corners, in the order bottom, top, back, front, left, right.
    const float faces[6][4][3] = {
        {{-1, -1, -1}, {1, -1, -1}, {1, -1, 1}, {-1, -1, 1}}, {{-1, 1, -1}, {-1, 1, 1}, {1, 1, 1}, {1, 1, -1}},
        {{-1, -1, -1}, {-1, 1, -1}, {1, 1, -1}, {1, -1, -1}}, {{-1, -1, 1}, {1, -1, 1}, {1, 1, 1}, {-1, 1, 1}},
        {{-1, -1, -1}, {-1, -1, 1}, {-1, 1, 1}, {-1, 1, -1}}, {{1, -1, -1}, {1, 1, -1}, {1, 1, 1}, {1, -1, 1}},
    };
    std::vector<Imath::V3f> vertices;
    for (const auto& face : faces)
        for (const int corner : {0, 1, 2, 0, 2, 3})
            vertices.emplace_back(face[corner][0], face[corner][1], face[corner][2]);
    return vertices;
}

} // namespace

Imath::V2d projectToScreen(const Frustum& frustum, int width, int height, const Imath::V3d& point)
{
    const Imath::M44d toClip = frustum.computeViewMatrix() * frustum.computeProjectionMatrix();
    const Imath::V4d clip = Imath::V4d(point.x, point.y, point.z, 1.0) * toClip;
    return Imath::V2d((clip.x / clip.w + 1.0) * width * 0.5, (clip.y / clip.w + 1.0) * height * 0.5);
}

Ray rayThroughPixel(const Frustum& frustum, int width, int height, double x, double y)
{
    return frustum.computeRay(Imath::V2d(2.0 * x / width - 1.0, 2.0 * y / height - 1.0));
}

double distanceSquaredToSegment(const Imath::V2d& a, const Imath::V2d& b, const Imath::V2d& p)
{
    const Imath::V2d ab = b - a;
    const double lengthSquared = ab.length2();
    const double t = lengthSquared > 0.0 ? std::clamp((p - a).dot(ab) / lengthSquared, 0.0, 1.0) : 0.0;
    return (a + ab * t - p).length2();
}

RayPlaneHit intersectRayPlane(const Imath::V3d& planePoint, const Imath::V3d& planeNormal,
                              const Imath::V3d& rayOrigin, const Imath::V3d& rayDirection)
{
    RayPlaneHit result;
    const double length = rayDirection.length();
    const Imath::V3d direction = length != 0.0 ? rayDirection / length : rayDirection;
    const double d = planeNormal.dot(direction);
    // Written so that a NaN anywhere gives no hit.
    if (!(std::fabs(d) > kParallel))
        return result;
    const double t = (planePoint - rayOrigin).dot(planeNormal) / d;
    if (!(t > 0.0))
        return result;
    result.point = rayOrigin + direction * t;
    result.normal = planeNormal;
    result.distance = (result.point - rayOrigin).length() / length;
    result.hit = true;
    return result;
}

double screenConstantLength(const Frustum& frustum, int width, int height, const Imath::V3d& position, double pixels)
{
    const Imath::V2d pixel = projectToScreen(frustum, width, height, position);
    const Ray ray = rayThroughPixel(frustum, width, height, pixel.x + pixels, pixel.y);
    const double distance = (ray.origin - position).length();
    return (ray.pointAt(distance / ray.direction.length()) - position).length();
}

double handleUnit(const Frustum& frustum, int width, int height, const Imath::V3d& position)
{
    return screenConstantLength(frustum, width, height, position, kHandlePixels);
}

Imath::Quatd rotationBetween(const Imath::V3d& from, const Imath::V3d& to)
{
    Imath::Quatd rotation;
    if (from.length2() > 0.0 && to.length2() > 0.0)
        rotation.setRotation(from, to);
    return rotation;
}

Imath::M44d orientedFrame(const Imath::V3d& normal, const Imath::V3d& tangent)
{
    const Imath::M44d turnY = rotationBetween(Imath::V3d(0.0, 1.0, 0.0), normal).toMatrix44();
    const Imath::V3d y(turnY[1][0], turnY[1][1], turnY[1][2]);
    const Imath::V3d x = tangent - y * tangent.dot(y);
    if (!(x.length2() > 0.0))
        return turnY;
    const Imath::V3d unitX = x.normalized();
    const Imath::V3d z = unitX.cross(y);
    return Imath::M44d(unitX.x, unitX.y, unitX.z, 0.0, y.x, y.y, y.z, 0.0, z.x, z.y, z.z, 0.0, 0.0, 0.0, 0.0, 1.0);
}

UnitShapes unitShapes()
{
    UnitShapes shapes;
    shapes.line = {{0, 0, 0}, {1, 0, 0}};
    shapes.plane = {{-1, 0, -1}, {1, 0, -1}, {1, 0, 1}, {-1, 0, -1}, {1, 0, 1}, {-1, 0, 1}};
    shapes.planeOutline = {{-1, 0, -1}, {1, 0, -1}, {1, 0, 1}, {-1, 0, 1}};
    shapes.cone.emplace_back(0.0f, 1.0f, 0.0f);
    for (double a = 0.0; a <= kConeEnd; a += kConeStep)
        shapes.cone.emplace_back(float(std::sin(a)), 0.0f, float(std::cos(a)));
    shapes.cube = cubeTriangles();
    for (double a = 0.0; a <= kCircleEnd; a += kCircleStep)
        shapes.circle.push_back(onCircle(a));
    for (double a = kArcStart; a <= kArcEnd; a += kArcStep)
        shapes.arc.push_back(onCircle(a));
    shapes.disc.emplace_back(0.0f, 0.0f, 0.0f);
    shapes.disc.insert(shapes.disc.end(), shapes.circle.begin(), shapes.circle.end());
    shapes.disc.push_back(shapes.circle.front());
    return shapes;
}

} // namespace ManipulatorGeometry
