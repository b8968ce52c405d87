#include "Frustum.h"

#include <gtest/gtest.h>

#include <cmath>

using namespace ZentoCore;

namespace {

// Normalised device coordinates of a world point, as OpenGL computes them.
Imath::V3d toNdc(const Frustum& frustum, const Imath::V3d& world)
{
    const Imath::M44d viewProjection = frustum.computeViewMatrix() * frustum.computeProjectionMatrix();
    const Imath::V4d clip = Imath::V4d(world.x, world.y, world.z, 1.0) * viewProjection;
    return Imath::V3d(clip.x, clip.y, clip.z) / clip.w;
}

double distanceToRay(const Ray& ray, const Imath::V3d& point)
{
    const Imath::V3d direction = ray.direction.normalized();
    const Imath::V3d offset = point - ray.origin;
    return (offset - direction * (offset ^ direction)).length();
}

// The camera that the viewport puts at home.
Frustum homeCamera(double aspect)
{
    Frustum frustum;
    frustum.setPosition(Imath::V3d(0, 40, 40));
    frustum.setRotation(Imath::V3d(1, 0, 0), -45.0);
    frustum.setViewDistance(std::sqrt(3200.0));
    frustum.setPerspective(45.0, aspect, 0.01, 100000.0);
    return frustum;
}

} // namespace

TEST(Frustum, DefaultsAndPerspectiveWindow)
{
    Frustum frustum;
    EXPECT_EQ(frustum.window().min, Imath::V2d(-1, -1));
    EXPECT_EQ(frustum.window().max, Imath::V2d(1, 1));
    EXPECT_TRUE(frustum.computeViewDirection().equalWithAbsError(Imath::V3d(0, 0, -1), 1e-15));

    frustum.setPerspective(90.0, 2.0, 0.5, 50.0);
    EXPECT_NEAR(frustum.window().max.y, 1.0, 1e-12);
    EXPECT_NEAR(frustum.window().max.x, 2.0, 1e-12);
    EXPECT_EQ(frustum.nearFar(), Imath::V2d(0.5, 50.0));

    // Points on the near and far planes land on the depth range's ends.
    EXPECT_NEAR(toNdc(frustum, Imath::V3d(0, 0, -0.5)).z, -1.0, 1e-12);
    EXPECT_NEAR(toNdc(frustum, Imath::V3d(0, 0, -50.0)).z, 1.0, 1e-9);
    // The window's corner at depth 1 is the corner of the view.
    EXPECT_TRUE(toNdc(frustum, Imath::V3d(2, 1, -1)).equalWithAbsError(Imath::V3d(1, 1, toNdc(frustum, Imath::V3d(0, 0, -1)).z), 1e-12));
}

TEST(Frustum, APointProjectedToPixelsAndBackThroughARayLandsOnItself)
{
    const int width = 800;
    const int height = 600;
    Frustum frustum = homeCamera(double(width) / height);
    frustum.setRotation(Imath::Quatd(0.9, 0.1, -0.3, 0.05));
    frustum.setPosition(Imath::V3d(3, -2, 30));
    for (const Imath::V3d& point : {Imath::V3d(0, 0, 0), Imath::V3d(5, 2, -3), Imath::V3d(-7, 4, 10)}) {
        const Imath::V3d ndc = toNdc(frustum, point);
        const double pixelX = (ndc.x + 1.0) * 0.5 * width;
        const double pixelY = (ndc.y + 1.0) * 0.5 * height;
        const Ray ray = frustum.computeRay(Imath::V2d(2.0 * pixelX / width - 1.0, 2.0 * pixelY / height - 1.0));
        EXPECT_EQ(ray.origin, frustum.position());
        EXPECT_LT(distanceToRay(ray, point), 1e-9) << point;
        EXPECT_GT((point - ray.origin) ^ ray.direction, 0.0) << "in front of the camera";
    }

    Frustum orthographic = frustum;
    orthographic.setProjection(Frustum::Projection::Orthographic);
    orthographic.setWindow(Imath::Box2d(Imath::V2d(-20, -15), Imath::V2d(20, 15)));
    const Imath::V3d point(5, 2, -3);
    const Imath::V3d ndc = toNdc(orthographic, point);
    const Ray ray = orthographic.computeRay(Imath::V2d(ndc.x, ndc.y));
    EXPECT_LT(distanceToRay(ray, point), 1e-9);
    EXPECT_TRUE(ray.direction.normalized().equalWithAbsError(orthographic.computeViewDirection(), 1e-12));
}

TEST(Frustum, ANarrowedWindowMapsItsCornersToTheClipCorners)
{
    Frustum frustum = homeCamera(4.0 / 3.0);
    const Imath::Box2d full = frustum.window();
    const Imath::V2d size = full.max - full.min;
    // The quarter at the top right, as picking narrows it.
    Frustum narrowed = frustum;
    narrowed.setWindow(Imath::Box2d(full.min + size * 0.5, full.max));
    const Ray corner = frustum.computeRay(Imath::V2d(0.5, 0.5));
    const Imath::V3d point = corner.pointAt(20.0);
    EXPECT_TRUE(Imath::V2d(toNdc(narrowed, point).x, toNdc(narrowed, point).y).equalWithAbsError(Imath::V2d(0, 0), 1e-9));
    EXPECT_EQ(narrowed.window().min, full.min + size * 0.5);
}

TEST(Frustum, FitToSpherePutsTheWholeSphereInView)
{
    for (double aspect : {0.5, 1.0, 2.5}) {
        for (double slack : {0.0, 2.0}) {
            Frustum frustum = homeCamera(aspect);
            const Imath::V3d centre(10, -3, 4);
            const double radius = 6.0;
            frustum.fitToSphere(centre, radius, slack);
            EXPECT_TRUE(frustum.computeViewDirection().equalWithAbsError(Imath::V3d(0, -1, -1).normalized(), 1e-12))
                << "the direction stays";
            double largest = 0.0;
            for (int i = 0; i < 2000; ++i) {
                // Points spread over the sphere.
                const double z = 1.0 - 2.0 * (i + 0.5) / 2000.0;
                const double angle = i * 2.399963229728653;
                const double ring = std::sqrt(1.0 - z * z);
                const Imath::V3d onSphere = centre + Imath::V3d(ring * std::cos(angle), ring * std::sin(angle), z) * radius;
                const Imath::V3d ndc = toNdc(frustum, onSphere);
                EXPECT_LE(std::fabs(ndc.x), 1.0 + 1e-9);
                EXPECT_LE(std::fabs(ndc.y), 1.0 + 1e-9);
                EXPECT_GE(ndc.z, -1.0 - 1e-9);
                EXPECT_LE(ndc.z, 1.0 + 1e-9);
                largest = std::max({largest, std::fabs(ndc.x), std::fabs(ndc.y)});
            }
            if (slack == 0.0) {
                EXPECT_GT(largest, 0.9) << "fits snugly, not from far away";
            }
            EXPECT_NEAR(frustum.viewDistance(), (frustum.position() - centre).length(), 1e-9);
        }
    }
}
