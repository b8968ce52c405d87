#include "Frustum.h"

#include "MathUtils.h"

#include <algorithm>
#include <cmath>

namespace ZentoCore {

namespace {

constexpr double kDegreesToRadians = M_PI / 180.0;

} // namespace

void Frustum::setRotation(const Imath::V3d& axis, double angleDegrees)
{
    Imath::Quatd rotation;
    rotation.setAxisAngle(axis.length() > 0.0 ? axis.normalized() : Imath::V3d(1.0, 0.0, 0.0),
                          angleDegrees * kDegreesToRadians);
    mRotation = rotation;
}

void Frustum::setPerspective(double fovYDegrees, double aspect, double nearDistance, double farDistance)
{
    mProjection = Projection::Perspective;
    const double halfHeight = std::tan(0.5 * fovYDegrees * kDegreesToRadians);
    const double halfWidth = halfHeight * aspect;
    mWindow = Imath::Box2d(Imath::V2d(-halfWidth, -halfHeight), Imath::V2d(halfWidth, halfHeight));
    mNearFar = Imath::V2d(nearDistance, farDistance);
}

Imath::M44d Frustum::computeViewInverse() const
{
    Imath::M44d translation;
    translation.setTranslation(mPosition);
    return mRotation.toMatrix44() * translation;
}

Imath::M44d Frustum::computeViewMatrix() const
{
    return matrixInverse(computeViewInverse());
}

Imath::M44d Frustum::computeProjectionMatrix() const
{
    const double n = mNearFar.x;
    const double f = mNearFar.y;
    double l = mWindow.min.x;
    double r = mWindow.max.x;
    double b = mWindow.min.y;
    double t = mWindow.max.y;
    Imath::M44d m;
    if (mProjection == Projection::Perspective) {
        l *= n;
        r *= n;
        b *= n;
        t *= n;
        m.makeIdentity();
        m[0][0] = 2.0 * n / (r - l);
        m[1][1] = 2.0 * n / (t - b);
        m[2][0] = (r + l) / (r - l);
        m[2][1] = (t + b) / (t - b);
        m[2][2] = -(f + n) / (f - n);
        m[2][3] = -1.0;
        m[3][2] = -2.0 * f * n / (f - n);
        m[3][3] = 0.0;
    } else {
        m[0][0] = 2.0 / (r - l);
        m[1][1] = 2.0 / (t - b);
        m[2][2] = -2.0 / (f - n);
        m[3][0] = -(r + l) / (r - l);
        m[3][1] = -(t + b) / (t - b);
        m[3][2] = -(f + n) / (f - n);
    }
    return m;
}

void Frustum::computeViewFrame(Imath::V3d& side, Imath::V3d& up, Imath::V3d& view) const
{
    const Imath::M44d rotation = mRotation.toMatrix44();
    rotation.multDirMatrix(Imath::V3d(1.0, 0.0, 0.0), side);
    rotation.multDirMatrix(Imath::V3d(0.0, 1.0, 0.0), up);
    rotation.multDirMatrix(Imath::V3d(0.0, 0.0, -1.0), view);
}

Imath::V3d Frustum::computeViewDirection() const
{
    Imath::V3d side, up, view;
    computeViewFrame(side, up, view);
    return view;
}

Imath::V3d Frustum::computeUpVector() const
{
    Imath::V3d side, up, view;
    computeViewFrame(side, up, view);
    return up;
}

Ray Frustum::computeRay(const Imath::V2d& windowPoint) const
{
    const Imath::V2d size = mWindow.max - mWindow.min;
    const Imath::V2d onWindow(mWindow.min.x + 0.5 * (windowPoint.x + 1.0) * size.x,
                              mWindow.min.y + 0.5 * (windowPoint.y + 1.0) * size.y);
    const Imath::M44d toWorld = computeViewInverse();
    Ray ray;
    if (mProjection == Projection::Perspective) {
        ray.origin = mPosition;
        toWorld.multDirMatrix(Imath::V3d(onWindow.x, onWindow.y, -1.0), ray.direction);
    } else {
        toWorld.multVecMatrix(Imath::V3d(onWindow.x, onWindow.y, 0.0), ray.origin);
        toWorld.multDirMatrix(Imath::V3d(0.0, 0.0, -1.0), ray.direction);
    }
    return ray;
}

void Frustum::fitToSphere(const Imath::V3d& centre, double radius, double slack)
{
    const double fitRadius = std::max(std::fabs(radius) + std::fabs(slack), 1e-9);
    const Imath::V2d halfSize = 0.5 * (mWindow.max - mWindow.min);
    const double smallerHalf = std::max(std::min(std::fabs(halfSize.x), std::fabs(halfSize.y)), 1e-9);
    const Imath::V2d windowCentre = 0.5 * (mWindow.min + mWindow.max);
    const Imath::M44d toWorld = computeViewInverse();

    // The distance along the view axis, and where the window's centre lies from
    // the camera at that distance: the sphere's centre is put there.
    double distance;
    Imath::V3d cameraToCentre;
    if (mProjection == Projection::Perspective) {
        // The sphere touches the nearer pair of window sides: sin(half angle) = r / distance.
        distance = fitRadius * std::sqrt(1.0 + 1.0 / (smallerHalf * smallerHalf));
        toWorld.multDirMatrix(Imath::V3d(windowCentre.x, windowCentre.y, -1.0) * distance, cameraToCentre);
    } else {
        const double grow = fitRadius / smallerHalf;
        mWindow = Imath::Box2d(windowCentre + (mWindow.min - windowCentre) * grow,
                               windowCentre + (mWindow.max - windowCentre) * grow);
        distance = 2.0 * fitRadius;
        toWorld.multDirMatrix(Imath::V3d(windowCentre.x, windowCentre.y, -distance), cameraToCentre);
    }
    mPosition = centre - cameraToCentre;
    mViewDistance = distance;
    mNearFar = Imath::V2d(std::max(distance - fitRadius, distance * 1e-6), distance + fitRadius);
}

} // namespace ZentoCore
