#pragma once

#include <Imath/ImathBox.h>
#include <Imath/ImathMatrix.h>
#include <Imath/ImathQuat.h>
#include <Imath/ImathVec.h>

namespace ZentoCore {

// A half line: origin + t * direction for t >= 0. direction need not be unit length.
struct Ray {
    Imath::V3d origin;
    Imath::V3d direction;

    Imath::V3d pointAt(double t) const { return origin + direction * t; }
};

// A pinhole camera. It looks down its local -Z with +Y up; the window is the
// rectangle that it sees on the plane at distance 1 before it. Matrices are in
// the row-vector convention, clip space as OpenGL has it.
class Frustum {
public:
    enum class Projection { Perspective, Orthographic };

    const Imath::V3d& position() const { return mPosition; }
    void setPosition(const Imath::V3d& position) { mPosition = position; }

    const Imath::Quatd& rotation() const { return mRotation; }
    void setRotation(const Imath::Quatd& rotation) { mRotation = rotation.normalized(); }
    void setRotation(const Imath::V3d& axis, double angleDegrees);

    const Imath::Box2d& window() const { return mWindow; }
    // Kept as given: a window whose corners are swapped stays so.
    void setWindow(const Imath::Box2d& window) { mWindow = window; }

    const Imath::V2d& nearFar() const { return mNearFar; }
    void setNearFar(double nearDistance, double farDistance) { mNearFar = Imath::V2d(nearDistance, farDistance); }

    double viewDistance() const { return mViewDistance; }
    void setViewDistance(double distance) { mViewDistance = distance; }

    Projection projection() const { return mProjection; }
    void setProjection(Projection projection) { mProjection = projection; }

    // A symmetric perspective window of the vertical field of view and aspect (width / height).
    void setPerspective(double fovYDegrees, double aspect, double nearDistance, double farDistance);

    Imath::M44d computeViewMatrix() const;
    Imath::M44d computeViewInverse() const;
    Imath::M44d computeProjectionMatrix() const;
    void computeViewFrame(Imath::V3d& side, Imath::V3d& up, Imath::V3d& view) const;
    Imath::V3d computeViewDirection() const;
    Imath::V3d computeUpVector() const;

    // The ray from the camera through a window point given in normalised
    // coordinates, (-1, -1) at the window's minimum and (1, 1) at its maximum.
    Ray computeRay(const Imath::V2d& windowPoint) const;

    // Moves the camera back along its view direction until the sphere, grown
    // by slack, lies wholly inside the view; near and far enclose it.
    void fitToSphere(const Imath::V3d& centre, double radius, double slack);

private:
    Imath::V3d mPosition{0.0, 0.0, 0.0};
    Imath::Quatd mRotation; // identity
    Imath::Box2d mWindow{Imath::V2d(-1.0, -1.0), Imath::V2d(1.0, 1.0)};
    Imath::V2d mNearFar{1.0, 10.0};
    double mViewDistance = 5.0;
    Projection mProjection = Projection::Perspective;
};

} // namespace ZentoCore
