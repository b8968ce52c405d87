#include "ManipulatorGeometry.h"

#include <gtest/gtest.h>

#include <cmath>

using namespace ManipulatorGeometry;

namespace {

// A camera at (0, 0, 10) looking down -z with 90 degrees of view over a
// square of 200 pixels: 100 pixels cover 10 units at the origin's depth.
ZentoCore::Frustum squareCamera()
{
    ZentoCore::Frustum frustum;
    frustum.setPerspective(90.0, 1.0, 0.1, 100.0);
    frustum.setPosition(Imath::V3d(0.0, 0.0, 10.0));
    return frustum;
}

} // namespace

TEST(ManipulatorGeometry, ProjectionAndHandleUnitFollowThePinhole)
{
    const ZentoCore::Frustum camera = squareCamera();
    const Imath::V2d origin = projectToScreen(camera, 200, 200, Imath::V3d(0.0));
    EXPECT_NEAR(origin.x, 100.0, 1e-9);
    EXPECT_NEAR(origin.y, 100.0, 1e-9);
    // Half the way to the right edge, and up by a quarter, at the origin's depth.
    const Imath::V2d point = projectToScreen(camera, 200, 200, Imath::V3d(5.0, 2.5, 0.0));
    EXPECT_NEAR(point.x, 150.0, 1e-9);
    EXPECT_NEAR(point.y, 125.0, 1e-9);
    // Farther away, the same offset comes closer to the centre.
    EXPECT_NEAR(projectToScreen(camera, 200, 200, Imath::V3d(5.0, 0.0, -10.0)).x, 125.0, 1e-9);

    // 90 pixels to the right is the ray through x = 0.9 at depth 1; one unit is
    // the chord to the point as far along it as the origin is from the camera.
    const double chord = 2.0 * 10.0 * std::sin(std::atan(0.9) / 2.0);
    EXPECT_NEAR(handleUnit(camera, 200, 200, Imath::V3d(0.0)), chord, 1e-9);
    EXPECT_NEAR(handleUnit(camera, 200, 200, Imath::V3d(0.0, 0.0, -10.0)), 2.0 * chord, 1e-9)
        << "twice as far, twice as long: the same size on the screen";
}

TEST(ManipulatorGeometry, SegmentDistanceClampsToTheEnds)
{
    const Imath::V2d a(0.0, 0.0), b(10.0, 0.0);
    EXPECT_DOUBLE_EQ(distanceSquaredToSegment(a, b, Imath::V2d(5.0, 3.0)), 9.0);
    EXPECT_DOUBLE_EQ(distanceSquaredToSegment(a, b, Imath::V2d(13.0, 4.0)), 25.0) << "the foot lies past b";
    EXPECT_DOUBLE_EQ(distanceSquaredToSegment(a, b, Imath::V2d(-3.0, -4.0)), 25.0) << "the foot lies before a";
    // An axis seen end on projects to a single point.
    EXPECT_DOUBLE_EQ(distanceSquaredToSegment(a, a, Imath::V2d(3.0, 4.0)), 25.0);
}

TEST(ManipulatorGeometry, RayMeetsAPlaneInFrontAndNotParallelOrBehind)
{
    const Imath::V3d up(0.0, 1.0, 0.0);
    const RayPlaneHit hit = intersectRayPlane(Imath::V3d(7.0, 1.0, 7.0), up, Imath::V3d(1.0, 5.0, 2.0),
                                              Imath::V3d(0.0, -2.0, 1.0));
    ASSERT_TRUE(hit.hit);
    // Down 4 and along z by 2 per unit down: (1, 1, 4), sqrt(20) away over a direction of length sqrt(5).
    EXPECT_TRUE(hit.point.equalWithAbsError(Imath::V3d(1.0, 1.0, 4.0), 1e-12));
    EXPECT_NEAR(hit.distance, 2.0, 1e-12);
    EXPECT_EQ(hit.normal, up);

    EXPECT_FALSE(intersectRayPlane(Imath::V3d(0.0), up, Imath::V3d(0.0, 1.0, 0.0), Imath::V3d(1.0, -0.0001, 0.0)).hit)
        << "within 0.0001 of parallel";
    EXPECT_TRUE(intersectRayPlane(Imath::V3d(0.0), up, Imath::V3d(0.0, 1.0, 0.0), Imath::V3d(1.0, -0.001, 0.0)).hit);
    EXPECT_FALSE(intersectRayPlane(Imath::V3d(0.0), up, Imath::V3d(0.0, 1.0, 0.0), Imath::V3d(0.0, 1.0, 0.0)).hit)
        << "behind the origin";
    EXPECT_FALSE(intersectRayPlane(Imath::V3d(0.0), up, Imath::V3d(0.0, 1.0, 0.0), Imath::V3d(0.0)).hit);
    EXPECT_FALSE(intersectRayPlane(Imath::V3d(0.0), up, Imath::V3d(std::nan(""), 1.0, 0.0), Imath::V3d(0.0, -1.0, 0.0)).hit);
}

TEST(ManipulatorGeometry, UnitShapesHaveTheirVertexCountsAndSpans)
{
    const UnitShapes shapes = unitShapes();
    EXPECT_EQ(shapes.line.size(), 2u);
    EXPECT_EQ(shapes.plane.size(), 6u);
    EXPECT_EQ(shapes.planeOutline.size(), 4u);
    EXPECT_EQ(shapes.cone.size(), 18u);
    EXPECT_EQ(shapes.cube.size(), 36u);
    EXPECT_EQ(shapes.circle.size(), 65u);
    EXPECT_EQ(shapes.arc.size(), 90u);
    EXPECT_EQ(shapes.disc.size(), 67u);
    // The circle comes back to its start; the arc runs from -126 degrees in 89 steps of 2.8125.
    EXPECT_TRUE(shapes.circle.back().equalWithAbsError(shapes.circle.front(), 1e-6f));
    EXPECT_NEAR(std::atan2(shapes.arc.front().z, shapes.arc.front().x), -0.7 * M_PI, 1e-6);
    EXPECT_NEAR(std::atan2(shapes.arc.back().z, shapes.arc.back().x), -0.7 * M_PI + 89.0 * M_PI / 64.0, 1e-6);
}
