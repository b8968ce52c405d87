#include "GuiTestSupport.h"
#include "RagdollFixture.h"

#include "ConstraintNode.h"
#include "JointNode.h"
#include "RigidBodyAttributes.h"
#include "RigidBodyConstraintAttributes.h"
#include "SolverNode.h"

#include <algorithm>
#include <cmath>

#include <gtest/gtest.h>

#include <QString>
#include <QStringList>

using ZentoCore::NodePath;
using Zento::RigidBodyAttributes;
using Zento::RigidBodyConstraintAttributes;

namespace {

const QColor kBodyColour(125, 203, 212);

bool isExactBodyColour(const QColor& c)
{
    return std::abs(c.red() - kBodyColour.red()) <= 2 && std::abs(c.green() - kBodyColour.green()) <= 2 &&
           std::abs(c.blue() - kBodyColour.blue()) <= 2;
}

bool isNear(const QColor& actual, const Imath::V3d& expected, int tolerance = 2)
{
    return std::abs(actual.red() - expected.x) <= tolerance && std::abs(actual.green() - expected.y) <= tolerance &&
           std::abs(actual.blue() - expected.z) <= tolerance;
}

std::string describe(const QColor& c)
{
    return "(" + std::to_string(c.red()) + ", " + std::to_string(c.green()) + ", " + std::to_string(c.blue()) + ")";
}

int differingPixels(const QImage& a, const QImage& b)
{
    int count = 0;
    for (int y = 0; y < a.height(); ++y)
        for (int x = 0; x < a.width(); ++x)
            count += a.pixel(x, y) != b.pixel(x, y) ? 1 : 0;
    return count;
}

// The frame without the corner axes, a square of a tenth of the height at the bottom left.
QImage withoutCornerAxes(QImage image)
{
    const int side = image.height() / 10;
    for (int y = image.height() - side; y < image.height(); ++y)
        for (int x = 0; x < side; ++x)
            image.setPixelColor(x, y, Qt::black);
    return image;
}

// What a face of the colour shows, in 0..255, when its normal (towards the
// viewer) is n: the ambient term and the two directional lights "/light1" and
// "/light2" with their diffuse colours.
Imath::V3d litColour(const Imath::V3d& colour, const Imath::V3d& n)
{
    const Imath::V3d towardsLights[2] = {Imath::V3d(1.0, 0.5, 1.0).normalized(),
                                         Imath::V3d(0.3, -0.2, 1.0).normalized()};
    const Imath::V3d diffuse[2] = {Imath::V3d(0.5, 0.5, 0.5), Imath::V3d(0.7, 0.5, 0.3)};
    Imath::V3d light(0.2);
    for (int i = 0; i < 2; ++i)
        light += diffuse[i] * std::max(n.dot(towardsLights[i]), 0.0);
    const Imath::V3d lit(colour.x * light.x, colour.y * light.y, colour.z * light.z);
    return Imath::V3d(std::min(lit.x, 1.0), std::min(lit.y, 1.0), std::min(lit.z, 1.0)) * 255.0;
}

// A square of side 2 in the plane z = 0 about the origin, straight in the delegate, with no node.
const NodePath kPane("/Pane");

void addPane(ZentoSceneGraph& graph, const Imath::V3f& colour, float opacity = 1.0f)
{
    graph.delegate().AddMesh(kPane, Imath::M44d(), {{-1, -1, 0}, {1, -1, 0}, {1, 1, 0}, {-1, 1, 0}}, {4},
                             {0, 1, 2, 3});
    graph.delegate().UpdateColor(kPane, colour, opacity);
}

// The camera 5 units from the origin, looking at it.
void lookAtOrigin(Viewport& viewport, const Imath::V3d& from, const Imath::V3d& axis, double degrees)
{
    viewport.frustum.setPosition(from);
    viewport.frustum.setRotation(axis, degrees);
    viewport.frustum.setViewDistance(5.0);
}

// Collects the warnings that the code under test writes.
struct WarningLog {
    WarningLog() { previous = qInstallMessageHandler(&WarningLog::record); }
    ~WarningLog()
    {
        qInstallMessageHandler(previous);
        messages().clear();
    }
    static QStringList& messages()
    {
        static QStringList list;
        return list;
    }
    static void record(QtMsgType type, const QMessageLogContext&, const QString& message)
    {
        if (type == QtWarningMsg)
            messages() << message;
    }
    QtMessageHandler previous = nullptr;
};

} // namespace

TEST(Renderer, AnEmptySceneIsTheGreyBackgroundWithGridAndCornerAxes)
{
    ShownViewport shown;
    const QImage image = shown.frame();
    ASSERT_EQ(image.size(), QSize(320, 240));

    // Above the far edge of the grid: the flat 0.6 grey.
    EXPECT_TRUE(isGrey(image.pixelColor(160, 4), 153)) << describe(image.pixelColor(160, 4));
    // Home looks at the origin, where the grid's middle lines cross.
    int gridAtCentre = 0;
    for (int y = 118; y <= 122; ++y)
        for (int x = 158; x <= 162; ++x)
            gridAtCentre += isGrey(image.pixelColor(x, y), 102) ? 1 : 0;
    EXPECT_GE(gridAtCentre, 3);
    // 22 lines of 0.4 grey across the middle of the view.
    EXPECT_GT(countPixels(image, [](const QColor& c) { return isGrey(c, 102); }), 1000);

    // The corner axes: a square of a tenth of the height at the bottom left, with the red x axis in it.
    int red = 0, elsewhereRed = 0;
    for (int y = 0; y < image.height(); ++y)
        for (int x = 0; x < image.width(); ++x)
            (x < 24 && y >= 240 - 24 ? red : elsewhereRed) += isRed(image.pixelColor(x, y)) ? 1 : 0;
    EXPECT_GT(red, 5);
    EXPECT_EQ(elsewhereRed, 0);
}

TEST(Renderer, ABodyAtTheOriginIsShadedInItsColourAndGoesWhenHidden)
{
    ShownViewport shown;
    const auto body = addBody(shown.graph, "/Body", Imath::V3d(0.0, 0.0, 0.0));
    shown.viewport.frameAll();

    QImage image = shown.frame();
    EXPECT_TRUE(isBodyLike(image.pixelColor(160, 120))) << describe(image.pixelColor(160, 120));
    const int filled = countPixels(image, isBodyLike);
    EXPECT_GT(filled, 600);
    // Lit, so not all of it is the flat colour.
    EXPECT_GT(countPixels(image, [](const QColor& c) { return isBodyLike(c) && !isExactBodyColour(c); }),
              filled / 2);

    body->visible = false;
    shown.graph.updateVisibility(body->path);
    EXPECT_EQ(countPixels(shown.frame(), isBodyLike), 0);
    body->visible = true;
    shown.graph.updateVisibility(body->path);
    EXPECT_EQ(countPixels(shown.frame(), isBodyLike), filled);
}

TEST(Renderer, HullShadingIsTwoDirectionalLightsAndAmbientOnFlatFacesLitOnBothSides)
{
    ShownViewport shown;
    const Imath::V3d colour(0.5, 0.5, 0.5);
    addPane(shown.graph, Imath::V3f(colour));
    // A point of the pane off the grid's lines through the origin.
    const QPoint inside(130, 80);

    lookAtOrigin(shown.viewport, Imath::V3d(0.0, 0.0, 5.0), Imath::V3d(0.0, 1.0, 0.0), 0.0);
    QColor seen = shown.frame().pixelColor(inside);
    EXPECT_TRUE(isNear(seen, litColour(colour, Imath::V3d(0.0, 0.0, 1.0)))) << describe(seen);

    // From behind, the other side faces the viewer and the lights stand behind it.
    lookAtOrigin(shown.viewport, Imath::V3d(0.0, 0.0, -5.0), Imath::V3d(0.0, 1.0, 0.0), 180.0);
    seen = shown.frame().pixelColor(inside);
    EXPECT_TRUE(isNear(seen, litColour(colour, Imath::V3d(0.0, 0.0, -1.0)))) << describe(seen);

    // Turned to face up and seen from above: the lights are in world space, not the camera's.
    Imath::M44d faceUp;
    faceUp.setAxisAngle(Imath::V3d(1.0, 0.0, 0.0), -M_PI / 2.0);
    shown.graph.delegate().UpdateTransform(kPane, faceUp);
    lookAtOrigin(shown.viewport, Imath::V3d(0.0, 5.0, 0.0), Imath::V3d(1.0, 0.0, 0.0), -90.0);
    seen = shown.frame().pixelColor(inside);
    EXPECT_TRUE(isNear(seen, litColour(colour, Imath::V3d(0.0, 1.0, 0.0)))) << describe(seen);
}

TEST(Renderer, OpacityBlendsAPrimOverWhatLiesBehind)
{
    ShownViewport shown;
    addPane(shown.graph, Imath::V3f(0.9f, 0.1f, 0.1f));
    lookAtOrigin(shown.viewport, Imath::V3d(0.0, 0.0, 5.0), Imath::V3d(0.0, 1.0, 0.0), 0.0);
    const QPoint inside(130, 80);
    const QColor opaque = shown.frame().pixelColor(inside);
    shown.graph.delegate().SetVisibility(kPane, false);
    const QColor behind = shown.frame().pixelColor(inside);
    EXPECT_TRUE(isGrey(behind, 153)) << describe(behind);

    shown.graph.delegate().SetVisibility(kPane, true);
    shown.graph.delegate().UpdateColor(kPane, Imath::V3f(0.9f, 0.1f, 0.1f), 0.25f);
    const QColor blended = shown.frame().pixelColor(inside);
    const Imath::V3d expected = Imath::V3d(opaque.red(), opaque.green(), opaque.blue()) * 0.25 +
                                Imath::V3d(behind.red(), behind.green(), behind.blue()) * 0.75;
    EXPECT_TRUE(isNear(blended, expected)) << describe(blended);
}

TEST(Renderer, ASelectedNodeTurnsYellowWithItsAxes)
{
    ShownViewport shown;
    addBody(shown.graph, "/Body", Imath::V3d(0.0, 0.0, 0.0));
    shown.viewport.frameAll();
    const int filled = countPixels(shown.frame(), isBodyLike);

    shown.graph.setSelection({"/Body"});
    const QImage image = shown.frame();
    EXPECT_EQ(countPixels(image, isBodyLike), 0);
    EXPECT_GT(countPixels(image, isYellow), filled * 8 / 10);
    // The node's red x axis is drawn over it, starting at its origin in the middle.
    int redNearCentre = 0;
    for (int x = 160; x < 220; ++x)
        for (int y = 110; y < 130; ++y)
            redNearCentre += isRed(image.pixelColor(x, y)) ? 1 : 0;
    EXPECT_GT(redNearCentre, 10);
}

TEST(Renderer, ASelectedConstraintShowsItsGuideLinesWhereItStands)
{
    ShownViewport shown(640, 480);
    // A D6 constraint free about y: a full fan about y, and its green arc among the guide lines.
    auto constraint = std::make_shared<ConstraintNode>(NodePath("/Constraint"));
    constraint->color = ConstraintNode::kColor;
    constraint->attributes.typedEntry<int>("constraintType")->set(RigidBodyConstraintAttributes::D6);
    constraint->attributes.typedEntry<int>("angularMotionY")->set(RigidBodyConstraintAttributes::Free);
    shown.graph.addNode(constraint, "");
    shown.viewport.frameAll();
    const auto isGreen = [](const QColor& c) { return c.green() > c.red() + 60 && c.green() > c.blue() + 60; };
    // Beyond the node's own axes, which end about 34 pixels from its origin.
    const auto greenAwayFrom = [&](const QImage& image, const QPointF& origin) {
        int count = 0;
        for (int y = 0; y < image.height(); ++y)
            for (int x = 0; x < image.width(); ++x)
                if (isGreen(image.pixelColor(x, y)) && std::hypot(x + 0.5 - origin.x(), y + 0.5 - origin.y()) > 45.0)
                    ++count;
        return count;
    };
    const QPointF centre = project(shown.viewport, Imath::V3d(0.0));
    EXPECT_EQ(greenAwayFrom(withoutCornerAxes(shown.frame()), centre), 0);

    shown.graph.setSelection({"/Constraint"});
    const QImage selected = withoutCornerAxes(shown.frame());
    EXPECT_GT(greenAwayFrom(selected, centre), 150);
    EXPECT_GT(countPixels(selected, isYellow), 1000);

    // The lines follow the node.
    constraint->translation = Imath::V3d(1.0, 0.0, 0.0);
    shown.graph.updateMatrix(constraint->path);
    const QImage moved = withoutCornerAxes(shown.frame());
    const QPointF shifted = project(shown.viewport, Imath::V3d(1.0, 0.0, 0.0));
    EXPECT_NEAR(pixelCentroid(moved, isGreen).x() - pixelCentroid(selected, isGreen).x(), shifted.x() - centre.x(),
                3.0);
}

TEST(Renderer, EachPassDrawsItsTypesAndItsSwitchesChangeOnlyThem)
{
    ShownViewport shown(640, 480);
    // In a row along x: a joint in green, a box body, a constraint in red and a skin in blue.
    auto joint = std::make_shared<JointNode>(NodePath("/Skeleton"));
    joint->translation = Imath::V3d(-4.0, 0.0, 0.0);
    joint->color = Imath::V4d(0.0, 1.0, 0.0, 1.0);
    shown.graph.addNode(joint, "");
    const auto body = addBody(shown.graph, "/Body", Imath::V3d(-1.5, 0.0, 0.0));
    body->attributes.typedEntry<int>("type")->set(RigidBodyAttributes::Box);
    body->attributes.typedEntry<Imath::V3d>("dimension")->set(Imath::V3d(0.6, 0.6, 0.6));
    shown.graph.updateGeometry(body->path);
    auto constraint = std::make_shared<ConstraintNode>(NodePath("/Constraint"));
    constraint->color = ConstraintNode::kColor;
    constraint->translation = Imath::V3d(1.5, 0.0, 0.0);
    shown.graph.addNode(constraint, "");
    const auto skin = RagdollFixture::addSkin(shown.graph, Imath::V3d(4.0, 0.0, 0.0), Imath::V3d(0.8), 6, 8);
    shown.graph.delegate().UpdateColor(skin->path, Imath::V3f(0.0f, 0.0f, 1.0f), 1.0f);
    shown.viewport.frustum.fitToSphere(Imath::V3d(0.0), 5.0, 0.0);

    // Pure colours keep their zero channels however they are lit.
    using ColourTest = bool (*)(const QColor&);
    const ColourTest isJoint = [](const QColor& c) { return c.red() < 20 && c.blue() < 20 && c.green() > 30; };
    const ColourTest isConstraint = [](const QColor& c) { return c.green() < 20 && c.blue() < 20 && c.red() > 30; };
    const ColourTest isSkin = [](const QColor& c) { return c.red() < 20 && c.green() < 20 && c.blue() > 30; };
    const struct {
        const char* name;
        ColourTest test;
        QColor flat;
        bool ZentoSceneGraph::*shown;
        bool ZentoSceneGraph::*wireframe;
    } passes[] = {
        {"skeleton", isJoint, QColor(0, 255, 0), &ZentoSceneGraph::showSkeleton, &ZentoSceneGraph::skeletonWireframe},
        {"rigid bodies", isBodyLike, kBodyColour, &ZentoSceneGraph::showRigidBodies,
         &ZentoSceneGraph::rigidBodyWireframe},
        {"constraints", isConstraint, QColor(255, 0, 0), &ZentoSceneGraph::showConstraints,
         &ZentoSceneGraph::constraintWireframe},
        {"meshes", isSkin, QColor(0, 0, 255), &ZentoSceneGraph::showMesh, &ZentoSceneGraph::meshWireframe},
    };

    const QImage all = withoutCornerAxes(shown.frame());
    int counts[4];
    double left = 0.0;
    for (int i = 0; i < 4; ++i) {
        counts[i] = countPixels(all, passes[i].test);
        EXPECT_GT(counts[i], 800) << passes[i].name;
        // Each in its place, from left to right.
        const double x = pixelCentroid(all, passes[i].test).x();
        EXPECT_GT(x, left) << passes[i].name;
        left = x;
    }

    // Each switch changes its own pass only: off leaves nothing of it, wire leaves
    // fewer pixels, all in the flat colour of the prim.
    for (const auto& pass : passes) {
        for (bool ZentoSceneGraph::*flag : {pass.shown, pass.wireframe}) {
            const bool wire = flag == pass.wireframe;
            shown.graph.*flag = !(shown.graph.*flag);
            const QImage changed = withoutCornerAxes(shown.frame());
            shown.graph.*flag = !(shown.graph.*flag);
            for (int i = 0; i < 4; ++i) {
                const int count = countPixels(changed, passes[i].test);
                if (&passes[i] != &pass) {
                    EXPECT_EQ(count, counts[i]) << pass.name << " changed " << passes[i].name;
                } else if (!wire) {
                    EXPECT_EQ(count, 0) << pass.name << " switched off";
                } else {
                    EXPECT_GT(count, 50) << pass.name << " as wire";
                    EXPECT_LT(count, counts[i]) << pass.name << " as wire";
                    const QColor flat = pass.flat;
                    EXPECT_EQ(countPixels(changed, [&](const QColor& c) { return pass.test(c) && c != flat; }), 0)
                        << pass.name << " as wire";
                }
            }
        }
    }
}

TEST(Renderer, AMovedNodeUploadsItsMatrixOnlyAndARemovedOneLeavesTheGpu)
{
    ShownViewport shown;
    const auto body = addBody(shown.graph, "/Body", Imath::V3d(0.0, 0.0, 0.0));
    shown.viewport.frameAll();
    const double before = pixelCentroid(shown.frame(), isBodyLike).x();
    const SceneRenderer::Statistics uploaded = shown.viewport.sceneRenderer().statistics;
    EXPECT_TRUE(shown.viewport.sceneRenderer().hasUploadedMesh(body->path));

    body->translation = Imath::V3d(0.1, 0.0, 0.0);
    shown.graph.updateMatrix(body->path);
    const double after = pixelCentroid(shown.frame(), isBodyLike).x();
    const SceneRenderer::Statistics now = shown.viewport.sceneRenderer().statistics;
    EXPECT_EQ(now.geometryUploads, uploaded.geometryUploads);
    EXPECT_EQ(now.transformUploads, uploaded.transformUploads + 1);
    EXPECT_GT(after, before + 5.0);

    // A frame with nothing changed uploads nothing.
    shown.frame();
    EXPECT_EQ(shown.viewport.sceneRenderer().statistics.transformUploads, now.transformUploads);

    shown.graph.removeNodes(std::vector<std::string>{"/Body"});
    EXPECT_EQ(countPixels(shown.frame(), isBodyLike), 0);
    EXPECT_FALSE(shown.viewport.sceneRenderer().hasUploadedMesh(body->path));
}

TEST(Renderer, AViewportThatChangesWindowsDrawsItsSceneAgainInTheNewContext)
{
    ShownViewport shown;
    const auto body = addBody(shown.graph, "/Body", Imath::V3d(0.0, 0.0, 0.0));
    shown.viewport.frameAll();
    const int filled = countPixels(shown.frame(), isBodyLike);
    ASSERT_GT(filled, 600);

    // A widget moved to another window gets a new context: the old one's objects go
    // with it, and the meshes are uploaded anew from the delegate, whose bits are clean.
    const long uploads = shown.viewport.sceneRenderer().statistics.geometryUploads;
    QWidget host;
    host.resize(320, 240);
    shown.viewport.setParent(&host);
    shown.viewport.move(0, 0);
    ASSERT_TRUE(showExposed(host));
    EXPECT_EQ(countPixels(shown.frame(), isBodyLike), filled);
    EXPECT_EQ(shown.viewport.sceneRenderer().statistics.geometryUploads, uploads + 1);
    EXPECT_TRUE(shown.viewport.sceneRenderer().hasUploadedMesh(body->path));
    shown.viewport.setParent(nullptr);
}

TEST(Renderer, MalformedFacesAreLeftOutWithAWarningAndTheRestIsDrawn)
{
    ShownViewport shown;
    lookAtOrigin(shown.viewport, Imath::V3d(0.0, 0.0, 5.0), Imath::V3d(0.0, 1.0, 0.0), 0.0);
    const std::vector<Imath::V3f> points = {{-1, -1, 0}, {1, -1, 0}, {0, 1, 0}};
    const NodePath good("/Good");
    shown.graph.delegate().AddMesh(good, Imath::M44d(), points, {3}, {0, 1, 2});
    shown.graph.delegate().UpdateColor(good, Imath::V3f(1, 0, 0), 1.0f);
    const int triangle = countPixels(withoutCornerAxes(shown.frame()), isRed);
    EXPECT_GT(triangle, 3000);
    shown.graph.delegate().RemoveMesh(good);

    // The good triangle, one with an index past the points, one with a negative
    // index, and a count that runs past the indices.
    const WarningLog log;
    const NodePath broken("/Broken");
    shown.graph.delegate().AddMesh(broken, Imath::M44d(), points, {3, 3, 3, 5}, {0, 1, 2, 0, 1, 7, 2, -1, 0, 0, 1});
    shown.graph.delegate().UpdateColor(broken, Imath::V3f(1, 0, 0), 1.0f);
    EXPECT_EQ(countPixels(withoutCornerAxes(shown.frame()), isRed), triangle);
    ASSERT_EQ(WarningLog::messages().size(), 1);
    EXPECT_TRUE(WarningLog::messages().front().contains("/Broken")) << WarningLog::messages().front().toStdString();
    EXPECT_TRUE(WarningLog::messages().front().contains("3 of its 4 faces"))
        << WarningLog::messages().front().toStdString();
}

TEST(Renderer, AnImportedSkeletonWithBodiesAndConstraintsIsDrawnToAScreenshot)
{
    ShownViewport shown(640, 480);
    const RagdollFixture::Ragdoll ragdoll = RagdollFixture::loadRagdoll(shown.graph);
    ASSERT_GE(ragdoll.bodies.size(), 20u);
    ASSERT_GE(ragdoll.constraints.size(), 15u);
    // Framing leaves generous room; three notches of the wheel come closer.
    shown.viewport.frameAll();
    for (int notch = 0; notch < 3; ++notch)
        wheel(shown.viewport, 120);
    const auto thigh = std::find_if(ragdoll.bodies.begin(), ragdoll.bodies.end(),
                                    [](const auto& body) { return body->path.name() == "LeftUpLeg_RB"; });
    ASSERT_NE(thigh, ragdoll.bodies.end());
    shown.graph.setSelection({(*thigh)->path.string()});
    const QImage image = shown.frame();
    const std::string file = std::string(ZENTO_TEST_OUTPUT_DIR) + "/viewport-ragdoll.png";
    EXPECT_TRUE(image.save(QString::fromStdString(file))) << file;

    const QImage scene = withoutCornerAxes(image);
    EXPECT_GT(countPixels(scene, isBodyLike), 2000);
    EXPECT_GT(countPixels(scene, isRed), 300);
    EXPECT_GT(countPixels(scene, isYellow), 100);
    // The joints and bones show between the bodies.
    shown.graph.showSkeleton = false;
    const QImage withoutSkeleton = withoutCornerAxes(shown.frame());
    EXPECT_GT(differingPixels(scene, withoutSkeleton), 300);

    // Framed: every body's origin lies inside the view, and the figure spans a good part of its height.
    for (const auto& body : ragdoll.bodies) {
        const QPointF at = project(shown.viewport, Imath::V3d(0.0) * body->worldMatrix());
        EXPECT_TRUE(QRectF(0, 0, 640, 480).contains(at)) << body->path.string();
    }
    EXPECT_GT(pixelBounds(scene, isBodyLike).height(), scene.height() / 3);
}

TEST(Renderer, ThePhysicsDebugDrawingShowsOverTheSceneOnlyWhileTheSimulationRuns)
{
    ShownViewport shown;
    // A box resting on a static floor; at a tenth of a metre to the unit, the
    // engine's contact normals are a unit long, over the box.
    shown.graph.createSolver();
    SolverNode& solver = *shown.graph.solver();
    solver.attributes.typedEntry<double>("sceneScale")->set(0.1);
    const auto floor = addBody(shown.graph, "/Floor", Imath::V3d(0.0, -0.5, 0.0));
    floor->attributes.typedEntry<int>("state")->set(RigidBodyAttributes::Static);
    floor->attributes.typedEntry<int>("type")->set(RigidBodyAttributes::Box);
    floor->attributes.typedEntry<Imath::V3d>("dimension")->set(Imath::V3d(3.0, 0.5, 3.0));
    const auto box = addBody(shown.graph, "/Box", Imath::V3d(0.0, 0.5, 0.0));
    box->attributes.typedEntry<int>("type")->set(RigidBodyAttributes::Box);
    box->attributes.typedEntry<Imath::V3d>("dimension")->set(Imath::V3d(0.5, 0.5, 0.5));
    for (const auto& body : {floor, box})
        shown.graph.updateGeometry(body->path);
    shown.viewport.frameAll();
    const QImage atRest = shown.frame();

    // The same run with the debugger off and on: the engine is deterministic,
    // so whatever differs is its drawing.
    const auto runFrame = [&](bool debugger) {
        solver.attributes.typedEntry<bool>("enableDebugger")->set(debugger);
        shown.graph.startSimulation();
        for (int frame = 0; frame < 10; ++frame)
            shown.graph.stepSimulation();
        return shown.frame();
    };
    const QImage plain = runFrame(false);
    EXPECT_TRUE(solver.physics.debugLines().empty());
    shown.graph.stopSimulation();
    const QImage drawn = runFrame(true);
    EXPECT_FALSE(solver.physics.debugLines().empty());
    for (const Zento::DebugLine& line : solver.physics.debugLines())
        EXPECT_NEAR((line.to - line.from).length(), 1.0f, 1e-3f) << "in scene units";
    EXPECT_GT(differingPixels(plain, drawn), 20);

    shown.graph.stopSimulation();
    EXPECT_EQ(differingPixels(atRest, shown.frame()), 0) << "the lines go with the simulation";
}

TEST(Renderer, OfTwoPanesCloseTogetherOnlyTheFrontOneShowsFromAfar)
{
    ShownViewport shown;
    // The two sides of a thin box, 0.002 apart, seen at 45 degrees from 40 units:
    // an ordinary distance at which the depth must still tell them apart.
    const auto addSide = [&](const std::string& path, float z, const Imath::V3f& colour) {
        const NodePath side(path);
        shown.graph.delegate().AddMesh(side, Imath::M44d(), {{-8, 0, z}, {8, 0, z}, {8, 12, z}, {-8, 12, z}}, {4},
                                       {0, 1, 2, 3});
        shown.graph.delegate().UpdateColor(side, colour, 1.0f);
    };
    // The back one comes first in path order, so that it is drawn first and a tie keeps it.
    addSide("/Back", -0.001f, Imath::V3f(0.0f, 0.0f, 1.0f));
    addSide("/Front", 0.001f, Imath::V3f(1.0f, 0.0f, 0.0f));
    shown.viewport.frustum.setPosition(Imath::V3d(0.0, 1.0, 1.0) * (40.0 / std::sqrt(2.0)));
    const QImage image = withoutCornerAxes(shown.frame());
    EXPECT_GT(countPixels(image, isRed), 5000);
    EXPECT_EQ(countPixels(image, [](const QColor& c) { return c.blue() > c.red() + 60 && c.blue() > c.green() + 60; }),
              0);
}
