#include "GuiTestSupport.h"

#include "RigidBodyAttributes.h"
#include "RigidBodyNode.h"

#include <Imath/ImathBoxAlgo.h>

#include <QWindow>

#include <cmath>

using ZentoCore::NodePath;
using Zento::RigidBodyAttributes;

namespace {

constexpr double kTolerance = 1e-6;

void expectNear(const Imath::V3d& actual, const Imath::V3d& expected, double tolerance = 1e-6)
{
    EXPECT_NEAR(actual.x, expected.x, tolerance);
    EXPECT_NEAR(actual.y, expected.y, tolerance);
    EXPECT_NEAR(actual.z, expected.z, tolerance);
}

bool isWhite(const QColor& c)
{
    return c.red() > 250 && c.green() > 250 && c.blue() > 250;
}

// A ball of radius 1 off the origin, whose pixels show where the camera puts a known point.
const Imath::V3d kMarker(8.0, 0.0, 4.0);

void addMarker(ZentoSceneGraph& graph)
{
    addBody(graph, "/Marker", kMarker, RigidBodyAttributes::Sphere, Imath::V3d(1.0, 1.0, 1.0));
}

// Where a point lands, in pixels with y downwards, for a pinhole camera of 45
// degrees at eye that looks at centre with no roll: worked out without the
// viewport's frustum, as the expectation of what the viewport draws.
QPointF lookAtPixel(const Imath::V3d& eye, const Imath::V3d& centre, const Imath::V3d& point, QSize size)
{
    const Imath::V3d forward = (centre - eye).normalized();
    const Imath::V3d side = forward.cross(Imath::V3d(0.0, 1.0, 0.0)).normalized();
    const Imath::V3d up = side.cross(forward);
    const Imath::V3d v = point - eye;
    const double halfHeight = v.dot(forward) * std::tan(22.5 * M_PI / 180.0);
    const double halfWidth = halfHeight * size.width() / size.height();
    return QPointF((v.dot(side) / halfWidth + 1.0) * 0.5 * size.width(),
                   (1.0 - v.dot(up) / halfHeight) * 0.5 * size.height());
}

// The marker's pixels sit where the camera at eye, looking at centre, shows it.
void expectMarkerSeenFrom(ShownViewport& shown, const Imath::V3d& eye, const Imath::V3d& centre)
{
    const QPointF seen = pixelCentroid(shown.frame(), isBodyLike);
    const QPointF expected = lookAtPixel(eye, centre, kMarker, shown.viewport.size());
    EXPECT_NEAR(seen.x(), expected.x(), 1.0);
    EXPECT_NEAR(seen.y(), expected.y(), 1.0);
}

} // namespace

TEST(Viewport, HomeLooksDownAtTheOriginFromFortyUpAndFortyBack)
{
    ShownViewport shown;
    addMarker(shown.graph);
    shown.viewport.frustum.setPosition(Imath::V3d(7.0, 7.0, 7.0));
    QTest::keyClick(&shown.viewport, Qt::Key_H);
    const ZentoCore::Frustum& frustum = shown.viewport.frustum;
    expectNear(frustum.position(), Imath::V3d(0.0, 40.0, 40.0));
    EXPECT_NEAR(frustum.viewDistance(), std::sqrt(3200.0), kTolerance);
    expectNear(frustum.computeViewDirection(), Imath::V3d(0.0, -1.0, -1.0).normalized());
    EXPECT_NEAR(frustum.nearFar().x, 0.01, kTolerance);
    EXPECT_NEAR(frustum.nearFar().y, 100000.0, kTolerance);
    const QPointF origin = project(shown.viewport, Imath::V3d(0.0));
    EXPECT_NEAR(origin.x(), 160.0, 1e-6);
    EXPECT_NEAR(origin.y(), 120.0, 1e-6);
    // Further back on the ground is higher up on the screen.
    EXPECT_LT(project(shown.viewport, Imath::V3d(0.0, 0.0, -10.0)).y(), 120.0);
    expectMarkerSeenFrom(shown, Imath::V3d(0.0, 40.0, 40.0), Imath::V3d(0.0));
}

TEST(Viewport, AltLeftDragOrbitsAboutTheCentreOfInterest)
{
    ShownViewport shown;
    addMarker(shown.graph);
    shown.frame();
    // A quarter of the width to the right is a quarter turn about y, clockwise seen from above.
    drag(shown.viewport, Qt::LeftButton, Qt::AltModifier, QPoint(100, 100), QPoint(180, 100));
    const ZentoCore::Frustum& frustum = shown.viewport.frustum;
    expectNear(frustum.position(), Imath::V3d(-40.0, 40.0, 0.0), 1e-6);
    EXPECT_NEAR(frustum.viewDistance(), std::sqrt(3200.0), kTolerance);
    const QPointF origin = project(shown.viewport, Imath::V3d(0.0));
    EXPECT_NEAR(origin.x(), 160.0, 1e-6);
    EXPECT_NEAR(origin.y(), 120.0, 1e-6);
    // Up stays up: the camera does not roll.
    EXPECT_NEAR(frustum.computeUpVector().z, 0.0, 1e-9);
    expectMarkerSeenFrom(shown, Imath::V3d(-40.0, 40.0, 0.0), Imath::V3d(0.0));

    // Dragging down by a sixteenth of the height pitches 22.5 degrees about the camera's side.
    drag(shown.viewport, Qt::LeftButton, Qt::AltModifier, QPoint(100, 100), QPoint(100, 115));
    const double angle = (45.0 + 22.5) * M_PI / 180.0;
    const Imath::V3d eye(-std::sqrt(3200.0) * std::cos(angle), std::sqrt(3200.0) * std::sin(angle), 0.0);
    expectNear(frustum.position(), eye, 1e-6);
    expectMarkerSeenFrom(shown, eye, Imath::V3d(0.0));
}

TEST(Viewport, AltMiddleDragPansByTheViewDistanceOverTheHeight)
{
    ShownViewport shown;
    addMarker(shown.graph);
    shown.frame();
    const Imath::V3d start = shown.viewport.frustum.position();
    const double distance = shown.viewport.frustum.viewDistance();
    const Imath::V3d up = shown.viewport.frustum.computeUpVector();
    drag(shown.viewport, Qt::MiddleButton, Qt::AltModifier, QPoint(100, 100), QPoint(100, 140));

    expectNear(shown.viewport.frustum.position(), start + up * (40.0 * distance / 240.0));
    // The scene follows the mouse down: 40 pixels of the plane at the view distance.
    const QPointF origin = project(shown.viewport, Imath::V3d(0.0));
    EXPECT_NEAR(origin.x(), 160.0, 1e-6);
    EXPECT_NEAR(origin.y(), 120.0 + 40.0 / (2.0 * std::tan(22.5 * M_PI / 180.0)), 1e-6);
    const Imath::V3d shift = up * (40.0 * distance / 240.0);
    expectMarkerSeenFrom(shown, start + shift, shift);
}

TEST(Viewport, DollyMovesTowardsTheCentreAndStepsAwaySlowlyWhenClose)
{
    ShownViewport shown;
    addMarker(shown.graph);
    shown.frame();
    const double distance = shown.viewport.frustum.viewDistance();
    wheel(shown.viewport, 120);
    EXPECT_NEAR(shown.viewport.frustum.viewDistance(), distance * 0.76, 1e-9);
    expectNear(shown.viewport.frustum.position(), Imath::V3d(0.0, 40.0, 40.0) * 0.76, 1e-9);
    expectMarkerSeenFrom(shown, Imath::V3d(0.0, 40.0, 40.0) * 0.76, Imath::V3d(0.0));

    // Alt and the right button: right is in, and up-right by the same amount is nothing.
    drag(shown.viewport, Qt::RightButton, Qt::AltModifier, QPoint(100, 100), QPoint(150, 100));
    EXPECT_NEAR(shown.viewport.frustum.viewDistance(), distance * 0.76 * 0.9, 1e-9);
    drag(shown.viewport, Qt::RightButton, Qt::AltModifier, QPoint(100, 100), QPoint(130, 70));
    EXPECT_NEAR(shown.viewport.frustum.viewDistance(), distance * 0.76 * 0.9, 1e-9);

    shown.viewport.frustum.setViewDistance(1.0);
    wheel(shown.viewport, -120);
    EXPECT_NEAR(shown.viewport.frustum.viewDistance(), 1.004, 1e-9);
    wheel(shown.viewport, 120);
    EXPECT_NEAR(shown.viewport.frustum.viewDistance(), 1.004 * 0.76, 1e-9);
}

TEST(Viewport, KeyFFramesTheSelectionOrTheBoxAboutTheOrigin)
{
    ShownViewport shown;
    const auto body = addBody(shown.graph, "/Body", Imath::V3d(5.0, 1.0, 3.0));
    shown.frame();

    QTest::keyClick(&shown.viewport, Qt::Key_F);
    // Nothing selected: the box from -5 to 5.
    EXPECT_NEAR((shown.viewport.frustum.position() + shown.viewport.frustum.computeViewDirection() *
                                                         shown.viewport.frustum.viewDistance())
                    .length(),
                0.0, 1e-9);
    EXPECT_NEAR(shown.viewport.frustum.nearFar().x, 0.01, kTolerance);

    shown.graph.setSelection({"/Body"});
    QTest::keyClick(&shown.viewport, Qt::Key_F);
    const Imath::Box3d bounds = Imath::transform(shown.graph.delegate().GetExtent(body->path), body->worldMatrix());
    const QPointF centre = project(shown.viewport, bounds.center());
    EXPECT_NEAR(centre.x(), 160.0, 1e-6);
    EXPECT_NEAR(centre.y(), 120.0, 1e-6);
    // The capsule, 0.6 long, is in the middle and spans a good part of the view across.
    shown.graph.setSelection({});
    const QImage image = shown.frame();
    const QPointF seen = pixelCentroid(image, isBodyLike);
    EXPECT_NEAR(seen.x(), 160.0, 2.0);
    EXPECT_NEAR(seen.y(), 120.0, 2.0);
    EXPECT_GT(pixelBounds(image, isBodyLike).width(), image.height() * 3 / 10);
}

TEST(Viewport, ToolKeysGoByCodeAlone)
{
    ShownViewport shown;
    const std::pair<Qt::Key, int> keys[] = {{Qt::Key_W, Viewport::MoveTool},  {Qt::Key_R, Viewport::RotateTool},
                                            {Qt::Key_E, Viewport::ScaleTool}, {Qt::Key_T, Viewport::NoTool},
                                            {Qt::Key_Q, Viewport::SelectTool}, {Qt::Key_1, Viewport::SelectTool}};
    for (const auto& key : keys) {
        QTest::keyClick(&shown.viewport, key.first);
        EXPECT_EQ(shown.viewport.toolMode, key.second) << key.first;
    }
    QTest::keyClick(&shown.viewport, Qt::Key_W, Qt::ShiftModifier);
    EXPECT_EQ(shown.viewport.toolMode, Viewport::MoveTool);
}

TEST(Viewport, TheMarqueeIsAWhiteRectangleWhileTheSelectToolDrags)
{
    ShownViewport shown;
    QWindow* window = shown.viewport.windowHandle();
    QTest::mouseEvent(QTest::MousePress, window, Qt::RightButton, Qt::NoModifier, QPoint(40, 30));
    QTest::mouseEvent(QTest::MouseMove, window, Qt::NoButton, Qt::NoModifier, QPoint(200, 150));
    EXPECT_TRUE(shown.viewport.marqueeActive);
    EXPECT_EQ(shown.viewport.marqueeStart, QPoint(40, 30));
    EXPECT_EQ(shown.viewport.marqueeEnd, QPoint(200, 150));
    QImage image = shown.frame();
    int onTop = 0, onLeft = 0;
    for (int x = 50; x < 190; ++x)
        for (int y = 28; y <= 32; ++y)
            onTop += isWhite(image.pixelColor(x, y)) ? 1 : 0;
    for (int y = 40; y < 140; ++y)
        for (int x = 38; x <= 42; ++x)
            onLeft += isWhite(image.pixelColor(x, y)) ? 1 : 0;
    EXPECT_GE(onTop, 140);
    EXPECT_GE(onLeft, 100);

    QTest::mouseEvent(QTest::MouseRelease, window, Qt::RightButton, Qt::NoModifier, QPoint(200, 150));
    EXPECT_FALSE(shown.viewport.marqueeActive);
    EXPECT_EQ(shown.viewport.marqueeStart, QPoint(0, 0));
    EXPECT_EQ(countPixels(shown.frame(), isWhite), 0);

    // With no tool a drag draws nothing.
    QTest::keyClick(&shown.viewport, Qt::Key_T);
    QTest::mouseEvent(QTest::MousePress, window, Qt::LeftButton, Qt::NoModifier, QPoint(40, 30));
    QTest::mouseEvent(QTest::MouseMove, window, Qt::NoButton, Qt::NoModifier, QPoint(200, 150));
    EXPECT_FALSE(shown.viewport.marqueeActive);
    EXPECT_EQ(countPixels(shown.frame(), isWhite), 0);
    QTest::mouseEvent(QTest::MouseRelease, window, Qt::LeftButton, Qt::NoModifier, QPoint(200, 150));
}

TEST(Viewport, NoDollyStepTakesTheCameraPastItsCentre)
{
    ShownViewport shown;
    addBody(shown.graph, "/Body", Imath::V3d(0.0));
    shown.frame();
    const ZentoCore::Frustum& frustum = shown.viewport.frustum;
    const Imath::V3d view = frustum.computeViewDirection();
    const auto expectInFrontOfTheBody = [&](const char* step) {
        EXPECT_GT(frustum.viewDistance(), 0.0) << step;
        expectNear(frustum.position() + frustum.computeViewDirection() * frustum.viewDistance(), Imath::V3d(0.0),
                   1e-9);
        expectNear(frustum.computeViewDirection(), view);
        EXPECT_GT(countPixels(shown.frame(), isBodyLike), 0) << step;
    };
    // A fast flick of the wheel arrives as one event of many notches.
    wheel(shown.viewport, 120 * 40);
    expectInFrontOfTheBody("wheel burst");
    // A long Alt+right drag step: dx + dy of 510 pixels.
    drag(shown.viewport, Qt::RightButton, Qt::AltModifier, QPoint(10, 10), QPoint(300, 230));
    expectInFrontOfTheBody("drag step");
}
