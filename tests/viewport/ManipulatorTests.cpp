#include "GuiTestSupport.h"

#include "AttributeEditor.h"
#include "JointNode.h"
#include "ManipulatorGeometry.h"
#include "MultiMoveCommand.h"
#include "MultiRotateCommand.h"
#include "MultiScaleCommand.h"
#include "Outliner.h"
#include "RigidBodyAttributes.h"
#include "ZentoRagdollBuilder.h"

#include <QWindow>

#include <cmath>

using Zento::RigidBodyAttributes;

namespace {

// A viewport with a capsule along x at the origin, radius 0.5 and half
// length 1.5, framed by key F, and a tool. The scene graph's selection is
// cleared again once framed, so that neither the yellow highlight nor the
// node's own axes cover the handles; the manipulators keep theirs.
struct Handled {
    explicit Handled(Qt::Key tool) : shown(480, 360)
    {
        body = addBody(shown.graph, "/Body", Imath::V3d(0.0), RigidBodyAttributes::Capsule, Imath::V3d(0.5, 1.5, 0.0));
        shown.graph.setSelection({"/Body"});
        QTest::keyClick(&shown.viewport, Qt::Key_F);
        shown.graph.setSelection({});
        handle({"/Body"}, tool);
    }

    // Puts the handles of the tool on the nodes, and draws them once, as the
    // viewport does after every selection change.
    void handle(const std::vector<std::string>& names, Qt::Key tool)
    {
        shown.viewport.setSelection(names);
        QTest::keyClick(&shown.viewport, tool);
        shown.frame();
    }

    QPoint at(const Imath::V3d& world) const { return project(shown.viewport, world).toPoint(); }

    // One handle unit at a world point, as the handles measure it.
    double unit(const Imath::V3d& world) const
    {
        return ManipulatorGeometry::handleUnit(shown.viewport.frustum, shown.viewport.width(), shown.viewport.height(),
                                               world);
    }

    void hover(QPoint where)
    {
        QTest::mouseEvent(QTest::MouseMove, shown.viewport.windowHandle(), Qt::NoButton, Qt::NoModifier, where);
    }

    // Hovers the start, then drags from there with the left button.
    void dragHandle(QPoint from, QPoint to)
    {
        hover(from);
        drag(shown.viewport, Qt::LeftButton, Qt::NoModifier, from, to);
    }

    template <typename Command>
    std::shared_ptr<Command> takeCommand()
    {
        EXPECT_EQ(shown.viewport.pendingCommands.size(), 1u);
        return std::dynamic_pointer_cast<Command>(shown.viewport.takeCommand());
    }

    ShownViewport shown;
    std::shared_ptr<RigidBodyNode> body;
};

bool isPureRed(const QColor& c)
{
    return c.red() > 200 && c.green() < 60 && c.blue() < 60;
}

// The frame without the corner axes, which are red too.
QImage aboveCornerAxes(const QImage& image)
{
    return image.copy(0, 0, image.width(), image.height() * 8 / 10);
}

int yellowPixelsIn(const QImage& image, const QRect& box)
{
    return countPixels(image.copy(box), isYellow);
}

} // namespace

TEST(Manipulators, HoverFlagsTheHandleUnderTheCursorAndDrawsItYellow)
{
    Handled handled(Qt::Key_W);
    MoveManipulator& move = handled.shown.viewport.moveManipulator;
    const QPoint centre = handled.at(Imath::V3d(0.0));
    // Under the home camera's orientation the X arrow runs to the right, 90 pixels and the cone.
    const QPoint onX = centre + QPoint(50, 0);
    const QRect alongX(centre.x() + 15, centre.y() - 6, 95, 13);
    EXPECT_EQ(yellowPixelsIn(handled.shown.frame(), alongX), 0);

    handled.hover(onX);
    EXPECT_TRUE(move.axisX && move.isActive());
    EXPECT_FALSE(move.axisY || move.axisZ || move.planeYZ || move.planeXZ || move.planeXY || move.planeView);
    EXPECT_GT(yellowPixelsIn(handled.shown.frame(), alongX), 80) << "the line and the cone turn yellow";

    handled.hover(centre + QPoint(7, -7));
    EXPECT_TRUE(move.planeView);
    EXPECT_FALSE(move.axisX);
    handled.hover(QPoint(5, 5));
    EXPECT_FALSE(move.isActive());

    // A locked axis cannot be hit, and while one is locked neither can the centre square.
    move.lockX = true;
    handled.hover(onX);
    EXPECT_FALSE(move.isActive());
    handled.hover(centre);
    EXPECT_FALSE(move.planeView);
    move.lockX = false;

    // Nothing selected: no handle and no hit.
    handled.shown.viewport.setSelection({});
    handled.hover(onX);
    EXPECT_FALSE(move.isActive());
    EXPECT_EQ(countPixels(aboveCornerAxes(handled.shown.frame()), isPureRed), 0);
}

TEST(Manipulators, HandlesKeepTheirSizeOnScreenAsTheCameraDollies)
{
    Handled handled(Qt::Key_W);
    // Red: the X arrow from the pivot to the cone's tip, a little short of
    // 90 + 22.5 pixels in perspective, and the YZ square, edge-on at the pivot.
    const int width = pixelBounds(aboveCornerAxes(handled.shown.frame()), isPureRed).width();
    EXPECT_NEAR(width, 110, 3);
    for (const int notches : {3, -6}) {
        wheel(handled.shown.viewport, 120 * notches);
        EXPECT_NEAR(pixelBounds(aboveCornerAxes(handled.shown.frame()), isPureRed).width(), width, 2) << notches;
    }

    // What a user sees, with the capsule selected and the camera turned a little, for the report.
    handled.shown.graph.setSelection({"/Body"});
    drag(handled.shown.viewport, Qt::LeftButton, Qt::AltModifier, QPoint(100, 100), QPoint(140, 110));
    QTest::keyClick(&handled.shown.viewport, Qt::Key_F);
    for (const auto& tool : {std::make_pair(Qt::Key_W, "move"), std::make_pair(Qt::Key_E, "scale"),
                             std::make_pair(Qt::Key_R, "rotate")}) {
        QTest::keyClick(&handled.shown.viewport, tool.first);
        const QImage image = handled.shown.frame();
        EXPECT_GT(countPixels(aboveCornerAxes(image), isPureRed), 40) << tool.second;
        EXPECT_TRUE(image.save(QString(ZENTO_TEST_OUTPUT_DIR "/manipulator_%1.png").arg(tool.second)));
    }
}

TEST(Manipulators, ParentAndChildEachTakeTheWorldOffsetFromTheirStartMatrices)
{
    Handled handled(Qt::Key_W);
    ZentoSceneGraph& graph = handled.shown.graph;
    handled.body->rotation = Imath::Eulerd(0.0, M_PI / 2, 0.0);
    graph.updateMatrix(handled.body->path);
    const auto child = addBody(graph, "/Body/Child", Imath::V3d(0.0, 0.0, 2.0));
    const Imath::M44d childStart = child->localMatrix();
    handled.handle({"/Body/Child", "/Body"}, Qt::Key_W);
    const Imath::V3d pivot = handled.shown.viewport.moveManipulator.frame.translation();
    EXPECT_TRUE(pivot.equalWithAbsError(Imath::V3d(1.0, 0.0, 0.0), 1e-12)) << "the mean of the two positions";

    const QPoint on = handled.at(pivot) + QPoint(50, 0);
    handled.dragHandle(on, on + QPoint(30, 0));
    const auto move = handled.takeCommand<MultiMoveCommand>();
    ASSERT_TRUE(move);
    EXPECT_EQ(move->names, (std::vector<std::string>{"/Body", "/Body/Child"}));
    EXPECT_GT(move->delta.x, 0.1);
    EXPECT_EQ(move->delta.y, 0.0);
    EXPECT_EQ(move->delta.z, 0.0);
    // The parent moves by the offset; the child, from its own start matrix
    // under the parent as it is now, takes the same offset on top.
    EXPECT_TRUE(handled.body->worldMatrix().translation().equalWithAbsError(move->delta, 1e-9));
    const Imath::V3d carried = (childStart * handled.body->worldMatrix()).translation();
    EXPECT_TRUE(child->worldMatrix().translation().equalWithAbsError(carried + move->delta, 1e-9));
}

TEST(Manipulators, ARingTurnsEachNodeAboutItsAxisInPlace)
{
    Handled handled(Qt::Key_R);
    ZentoSceneGraph& graph = handled.shown.graph;
    addBody(graph, "/Left", Imath::V3d(-3.0, 0.0, 0.0));
    addBody(graph, "/Right", Imath::V3d(3.0, 1.0, -1.0));
    const std::vector<std::string> names = {"/Body", "/Left", "/Right"};
    handled.handle(names, Qt::Key_R);
    const RotateManipulator& rotate = handled.shown.viewport.rotateManipulator;
    const Imath::V3d pivot = rotate.frame.translation();
    // Points of the y ring, which lies flat, on its near side: 30 and 60 degrees from z towards x.
    const auto onRing = [&](double degrees) {
        const double angle = degrees * M_PI / 180.0;
        return handled.at(pivot + Imath::V3d(std::sin(angle), 0.0, std::cos(angle)) * rotate.radius);
    };
    handled.hover(onRing(30.0));
    EXPECT_TRUE(rotate.axisY);
    EXPECT_FALSE(rotate.axisX || rotate.axisZ || rotate.ringView);

    handled.dragHandle(onRing(30.0), onRing(60.0));
    ASSERT_TRUE(handled.takeCommand<MultiRotateCommand>());
    Imath::M44d quarterOfAHalf;
    quarterOfAHalf.setAxisAngle(Imath::V3d(0.0, 1.0, 0.0), M_PI / 6.0);
    const Imath::V3d positions[] = {{0.0, 0.0, 0.0}, {-3.0, 0.0, 0.0}, {3.0, 1.0, -1.0}};
    for (size_t i = 0; i < names.size(); ++i) {
        const Imath::M44d world = graph.node(names[i])->worldMatrix();
        EXPECT_TRUE(world.translation().equalWithAbsError(positions[i], 1e-12)) << names[i];
        for (int row = 0; row < 3; ++row)
            for (int column = 0; column < 3; ++column)
                EXPECT_NEAR(world[row][column], quarterOfAHalf[row][column], 0.03) << names[i];
    }
}

TEST(Manipulators, ScaleSizesACapsuleByItsAxisAndAJointByItsScale)
{
    Handled handled(Qt::Key_E);
    const auto dimension = [&] { return handled.body->attributes.typedEntry<Imath::V3d>("dimension")->value(); };
    const double u = handled.unit(Imath::V3d(0.0));
    const auto stretch = [&](const Imath::V3d& axis) {
        handled.dragHandle(handled.at(axis * u), handled.at(axis * 1.5 * u));
        EXPECT_TRUE(handled.takeCommand<MultiScaleCommand>());
    };
    // Along x, the capsule's own axis: the half length in y grows, the radius stays.
    stretch(Imath::V3d(1.0, 0.0, 0.0));
    EXPECT_NEAR(dimension().y, 1.5 * 1.5, 0.03);
    EXPECT_EQ(dimension().x, 0.5);
    // Across it: the radius.
    stretch(Imath::V3d(0.0, 1.0, 0.0));
    EXPECT_NEAR(dimension().x, 0.5 * 1.5, 0.01);
    EXPECT_NEAR(dimension().y, 1.5 * 1.5, 0.03);
    EXPECT_EQ(handled.body->scale, Imath::V3d(1.0, 1.0, 1.0));

    // The centre square reads horizontal pixels only: 90 to the right doubles.
    const Imath::V3d before = dimension();
    const QPoint centre = handled.at(Imath::V3d(0.0));
    handled.dragHandle(centre, centre + QPoint(90, -40));
    EXPECT_EQ(dimension(), before * 2.0);
    const auto uniform = handled.takeCommand<MultiScaleCommand>();
    ASSERT_TRUE(uniform);
    EXPECT_EQ(uniform->factors, Imath::V3d(2.0, 2.0, 2.0));

    // A joint has no shape to size: its scale changes.
    auto joint = std::make_shared<JointNode>(ZentoCore::NodePath("/Joint"));
    handled.shown.graph.addNode(joint, "");
    handled.handle({"/Joint"}, Qt::Key_E);
    stretch(Imath::V3d(1.0, 0.0, 0.0));
    EXPECT_NEAR(joint->scale.x, 1.5, 0.03);
    EXPECT_EQ(joint->scale.y, 1.0);
    EXPECT_EQ(joint->attributes.typedEntry<Imath::V3d>("dimension"), nullptr);
}

TEST(Manipulators, ANodeWithoutAPlaceShowsNoHandlesAndOneScaledToNothingKeepsThem)
{
    Handled handled(Qt::Key_W);
    const QPoint centre = handled.at(Imath::V3d(0.0));
    handled.body->translation.x = std::nan("");
    handled.shown.graph.updateMatrix(handled.body->path);
    handled.handle({"/Body"}, Qt::Key_W);
    for (const Qt::Key tool : {Qt::Key_W, Qt::Key_E, Qt::Key_R}) {
        QTest::keyClick(&handled.shown.viewport, tool);
        EXPECT_EQ(countPixels(aboveCornerAxes(handled.shown.frame()), isPureRed), 0) << tool;
        handled.dragHandle(centre + QPoint(50, 0), centre + QPoint(90, 0));
        handled.dragHandle(centre, centre + QPoint(40, 0));
        EXPECT_TRUE(handled.shown.viewport.pendingCommands.empty()) << tool;
    }

    // A scale of zero has no rotation: the handles keep the world axes, at the node.
    handled.body->translation = Imath::V3d(0.0);
    handled.body->scale = Imath::V3d(0.0);
    handled.shown.graph.updateMatrix(handled.body->path);
    handled.handle({"/Body"}, Qt::Key_E);
    EXPECT_EQ(handled.shown.viewport.scaleManipulator.frame, Imath::M44d());
    handled.dragHandle(centre, centre + QPoint(90, 0));
    EXPECT_TRUE(handled.takeCommand<MultiScaleCommand>());
    EXPECT_EQ(handled.body->attributes.typedEntry<Imath::V3d>("dimension")->value(), Imath::V3d(1.0, 3.0, 0.0));
}

TEST(ManipulatorWindow, AMoveIsLiveInTheEditorAndOneStepOfTheHistory)
{
    guiApplication();
    ZentoRagdollBuilder window;
    window.resize(1000, 700);
    ASSERT_TRUE(showExposed(window));
    const auto body = addBody(window.sceneGraph, "/Body", Imath::V3d(1.0, 2.0, 3.0));
    window.updateNodeList();
    window.outliner->selectNodes({"/Body"});
    QMetaObject::invokeMethod(window.outliner, "selectionUpdated");
    Viewport& viewport = *window.viewport;
    QTest::keyClick(&viewport, Qt::Key_W);
    // The editor's new rows narrow the viewport, in more than one step: the
    // pixels below hold once the layout has settled and a frame has taken its shape.
    for (QSize settled; settled != viewport.size();) {
        settled = viewport.size();
        QTest::qWait(50);
    }
    viewport.updateGL();
    const size_t steps = window.commandStack.commands.size();

    // Through the window system, at viewport pixels.
    const auto mouse = [&](QTest::MouseAction action, QPoint at) {
        QTest::mouseEvent(action, window.windowHandle(), action == QTest::MouseMove ? Qt::NoButton : Qt::LeftButton,
                          Qt::NoModifier, viewport.mapTo(&window, at));
    };
    const QPoint start = project(viewport, body->translation).toPoint();
    const QPoint on = start + QPoint(30, 0);
    mouse(QTest::MouseMove, on);
    mouse(QTest::MousePress, on);
    mouse(QTest::MouseMove, on + QPoint(40, 0));
    EXPECT_GT(body->translation.x, 1.1) << "the body moves with the mouse, before the release";
    EXPECT_EQ(body->translation.y, 2.0);
    EXPECT_EQ(body->translation.z, 3.0);
    EXPECT_NEAR(window.attributeEditor->translate().x, body->translation.x, 0.01);
    mouse(QTest::MouseRelease, on + QPoint(40, 0));
    EXPECT_NEAR(project(viewport, body->translation).x(), start.x() + 40, 1.0) << "it follows the cursor";
    ASSERT_EQ(window.commandStack.commands.size(), steps + 1);
    EXPECT_TRUE(std::dynamic_pointer_cast<MultiMoveCommand>(window.commandStack.commands.back()));
    EXPECT_TRUE(viewport.pendingCommands.empty());

    QKeyEvent undo(QEvent::KeyRelease, Qt::Key_Z, Qt::ControlModifier);
    QApplication::sendEvent(&window, &undo);
    EXPECT_TRUE(body->translation.equalWithAbsError(Imath::V3d(1.0, 2.0, 3.0), 1e-12));
    EXPECT_TRUE(viewport.moveManipulator.frame.translation().equalWithAbsError(body->translation, 1e-12))
        << "the handles go back with it";
}
