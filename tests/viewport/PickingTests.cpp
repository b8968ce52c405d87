#include "GuiTestSupport.h"
#include "RagdollFixture.h"

#include "ConstraintNode.h"
#include "JointNode.h"
#include "MathUtils.h"
#include "RigidBodyAttributes.h"
#include "SolverNode.h"

#include <QSignalSpy>

#include <algorithm>
#include <limits>

using ZentoCore::NodePath;
using Zento::RigidBodyAttributes;
using Names = std::vector<std::string>;

namespace {

// A marquee dragged with the select tool; what it asks the selection to become.
Names marquee(ShownViewport& shown, QPointF from, QPointF to, Qt::KeyboardModifiers modifiers = Qt::NoModifier)
{
    drag(shown.viewport, Qt::LeftButton, modifiers, from.toPoint(), to.toPoint());
    return shown.viewport.pickedNames;
}

// A click is a marquee whose corners coincide.
Names click(ShownViewport& shown, QPointF at, Qt::KeyboardModifiers modifiers = Qt::NoModifier)
{
    return marquee(shown, at, at, modifiers);
}

Names sorted(Names names)
{
    std::sort(names.begin(), names.end());
    return names;
}

} // namespace

TEST(Picking, AClickPicksThePrimUnderItAndAClickOnNothingAsksForNothing)
{
    ShownViewport shown;
    addBody(shown.graph, "/Body", Imath::V3d(0.0));
    shown.viewport.frameAll();
    QSignalSpy updates(&shown.viewport, SIGNAL(selectionUpdated()));
    EXPECT_EQ(click(shown, project(shown.viewport, Imath::V3d(0.0))), Names{"/Body"});
    EXPECT_EQ(updates.count(), 1);

    // Beside it: an empty selection is asked for, through the signal all the same.
    shown.graph.setSelection({"/Body"});
    EXPECT_EQ(click(shown, QPointF(5, 5)), Names{});
    EXPECT_EQ(updates.count(), 2);
    // With Control, nothing under the click keeps the selection.
    EXPECT_EQ(click(shown, QPointF(5, 5), Qt::ControlModifier), Names{"/Body"});
    EXPECT_EQ(updates.count(), 3);
}

TEST(Picking, AMarqueePicksTheJointsInsideAndShiftTogglesControlRemovesBothAdd)
{
    ShownViewport shown;
    for (int i = 0; i < 3; ++i) {
        auto joint = std::make_shared<JointNode>(NodePath("/J" + std::to_string(i)));
        joint->translation = Imath::V3d(3.0 * (i - 1), 0.0, 0.0);
        shown.graph.addNode(joint, "");
    }
    shown.viewport.frameAll();
    const QPointF margin(15, 15);
    const QPointF first = project(shown.viewport, Imath::V3d(-3.0, 0.0, 0.0)) - margin;
    const QPointF second = project(shown.viewport, Imath::V3d(0.0)) - margin;
    const QPointF last = project(shown.viewport, Imath::V3d(3.0, 0.0, 0.0)) + margin;
    const Names all{"/J0", "/J1", "/J2"};
    EXPECT_EQ(sorted(marquee(shown, first, last)), all);
    // Dragged from the bottom right to the top left, and with the skeleton's display off: joints all the same.
    shown.graph.showSkeleton = false;
    EXPECT_EQ(sorted(marquee(shown, last, first)), all);
    shown.graph.showSkeleton = true;

    // The last two against a selection of the first two; the results are sets in string order.
    shown.graph.setSelection({"/J1", "/J0"});
    EXPECT_EQ(marquee(shown, second, last, Qt::ShiftModifier), (Names{"/J0", "/J2"}));
    EXPECT_EQ(marquee(shown, second, last, Qt::ControlModifier), (Names{"/J0"}));
    EXPECT_EQ(marquee(shown, second, last, Qt::ControlModifier | Qt::ShiftModifier), all);
}

TEST(Picking, WhatIsHiddenOrDrawnAsWireIsNotPickedAndAClickGoesThroughIt)
{
    ShownViewport shown;
    // Straight down the view from the front: a hidden body, a body, a constraint, and the skin behind them.
    const auto hidden =
        addBody(shown.graph, "/Hidden", Imath::V3d(0.0, 0.0, 3.0), RigidBodyAttributes::Sphere, Imath::V3d(0.3));
    hidden->visible = false;
    shown.graph.updateVisibility(hidden->path);
    addBody(shown.graph, "/Body", Imath::V3d(0.0, 0.0, 2.0), RigidBodyAttributes::Sphere, Imath::V3d(0.3));
    auto constraint = std::make_shared<ConstraintNode>(NodePath("/Constraint"));
    constraint->translation = Imath::V3d(0.0, 0.0, 1.0);
    shown.graph.addNode(constraint, "");
    RagdollFixture::addSkin(shown.graph, Imath::V3d(0.0), Imath::V3d(2.0), 8, 12);
    shown.viewport.frustum.setPosition(Imath::V3d(0.0, 0.0, 20.0));
    shown.viewport.frustum.setRotation(Imath::Quatd());
    const QPointF middle = project(shown.viewport, Imath::V3d(0.0));

    const struct {
        bool ZentoSceneGraph::*flag;
        bool value;
        Names picked;
    } steps[] = {
        {&ZentoSceneGraph::showMesh, true, {"/Body"}},
        {&ZentoSceneGraph::rigidBodyWireframe, true, {"/Constraint"}},
        {&ZentoSceneGraph::constraintWireframe, true, {"/Skin/Body"}},
        {&ZentoSceneGraph::meshWireframe, true, {}},
        {&ZentoSceneGraph::rigidBodyWireframe, false, {"/Body"}},
        {&ZentoSceneGraph::showRigidBodies, false, {}},
        {&ZentoSceneGraph::constraintWireframe, false, {"/Constraint"}},
        {&ZentoSceneGraph::showConstraints, false, {}},
        {&ZentoSceneGraph::meshWireframe, false, {"/Skin/Body"}},
        {&ZentoSceneGraph::showMesh, false, {}},
    };
    for (const auto& step : steps) {
        shown.graph.*step.flag = step.value;
        EXPECT_EQ(click(shown, middle), step.picked) << &step - steps;
    }
}

TEST(Picking, InASimulationAPressGrabsTheBodyAtItsSurfaceAndTheGrabbedPointFollowsTheCursor)
{
    ShownViewport shown;
    // A box seen from the front and above: a hit lies on its top or its front face.
    const auto box = addBody(shown.graph, "/Box", Imath::V3d(0.0), RigidBodyAttributes::Box, Imath::V3d(1.0));
    shown.viewport.frameAll();
    shown.graph.startSimulation();
    const SolverNode& solver = *shown.graph.solver();
    const Viewport& viewport = shown.viewport;
    QWindow* window = shown.viewport.windowHandle();
    const QPoint centre = project(viewport, Imath::V3d(0.0)).toPoint();

    for (const QPoint at : {centre, centre + QPoint(25, 0), centre + QPoint(-20, 30)}) {
        QTest::mouseEvent(QTest::MousePress, window, Qt::LeftButton, Qt::NoModifier, at);
        ASSERT_TRUE(viewport.grabbing);
        EXPECT_NE(solver.dragBodyHandle, nullptr);
        const Imath::V3d hit(viewport.grabPoint);
        EXPECT_NEAR(std::max({std::fabs(hit.x), std::fabs(hit.y), std::fabs(hit.z)}), 1.0, 1e-3) << hit;
        // Under the cursor: within the pixel pressed.
        const QPointF seen = project(viewport, hit);
        EXPECT_NEAR(seen.x(), at.x() + 0.5, 0.5);
        EXPECT_NEAR(seen.y(), at.y() + 0.5, 0.5);
        QTest::mouseEvent(QTest::MouseRelease, window, Qt::LeftButton, Qt::NoModifier, at);
        EXPECT_FALSE(viewport.grabbing);
        EXPECT_EQ(solver.dragBodyHandle, nullptr);
    }

    // Pressed at the middle and dragged up and to the right, while the simulation runs.
    QTest::mouseEvent(QTest::MousePress, window, Qt::LeftButton, Qt::NoModifier, centre);
    const Imath::V3d onBox = Imath::V3d(viewport.grabPoint) * ZentoCore::matrixInverse(box->worldMatrix());
    const QPoint cursor = centre + QPoint(30, -40);
    QTest::mouseEvent(QTest::MouseMove, window, Qt::NoButton, Qt::NoModifier, cursor);
    for (int frame = 0; frame < 50; ++frame)
        shown.graph.stepSimulation();
    const QPointF held = project(viewport, onBox * box->worldMatrix());
    EXPECT_NEAR(held.x(), cursor.x() + 0.5, 4.0);
    EXPECT_NEAR(held.y(), cursor.y() + 0.5, 4.0);
    QTest::mouseEvent(QTest::MouseRelease, window, Qt::LeftButton, Qt::NoModifier, cursor);
    EXPECT_EQ(solver.dragBodyHandle, nullptr);
    shown.graph.stopSimulation();
}

TEST(Picking, OutlandishRectanglesViewportsAndModesGiveAnAnswerOrNothing)
{
    ShownViewport shown;
    addBody(shown.graph, "/Body", Imath::V3d(0.0));
    shown.viewport.frameAll();
    const ZentoCore::Frustum& frustum = shown.viewport.frustum;
    const Imath::V4d view(0.0, 0.0, 320.0, 240.0);
    const QPoint middle = project(shown.viewport, Imath::V3d(0.0)).toPoint();
    const int mode = ZentoSceneGraph::HighlightModeLocate;
    ASSERT_EQ(shown.graph.pick(frustum, view, middle, middle, mode, nullptr), Names{"/Body"});

    // From one end of the coordinates to the other: sampled coarsely, so the body may be missed.
    const int least = std::numeric_limits<int>::min();
    const int most = std::numeric_limits<int>::max();
    for (const auto& corners : {std::make_pair(QPoint(least, least), QPoint(most, most)),
                                std::make_pair(QPoint(most, 0), QPoint(least, 0))}) {
        const Names picked = shown.graph.pick(frustum, view, corners.first, corners.second, mode, nullptr);
        EXPECT_TRUE(picked.empty() || picked == Names{"/Body"});
    }
    for (const double side : {std::numeric_limits<double>::quiet_NaN(), 0.0, -320.0, 1e300})
        EXPECT_EQ(shown.graph.pick(frustum, Imath::V4d(0.0, 0.0, side, 240.0), middle, middle, mode, nullptr), Names{});
    for (const int badMode : {-1, int(ZentoSceneGraph::HighlightModeCount)})
        EXPECT_EQ(shown.graph.pick(frustum, view, middle, middle, badMode, nullptr), Names{}) << badMode;
}
