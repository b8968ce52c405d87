#include "GuiTestSupport.h"
#include "ScriptedDialogs.h"

#include "ConstraintNode.h"
#include "JointNode.h"
#include "Outliner.h"
#include "SceneState.h"
#include "TemporaryDirectory.h"
#include "ZentoRagdollBuilder.h"

#include <Imath/ImathBoxAlgo.h>

#include <QStatusBar>
#include <QToolBar>
#include <QTreeWidget>

#include <gtest/gtest.h>

namespace {

const QString kSkeleton = "/usr/share/assimp/models/BVH/01_01.bvh";
const QString kSkin = "/usr/share/assimp/models/FBX/huesitos.fbx";

// The window on the screen, answering its questions from a script.
struct ShownWindow {
    ShownWindow()
    {
        auto owned = std::make_unique<ScriptedDialogs>();
        dialogs = owned.get();
        window.dialogs = std::move(owned);
        window.resize(1000, 700);
        EXPECT_TRUE(showExposed(window));
        // Frames come as fast as the test asks; each counts.
        window.pacer.sleep = [this](unsigned long) { ++frames; };
    }

    std::vector<std::string> pathsOfType(int typeId) const { return ::pathsOfType(window.sceneGraph, typeId); }

    // Selects the rows as a click in the outliner would, one step of the history.
    void selectInOutliner(const std::vector<std::string>& paths)
    {
        window.outliner->selectNodes(paths);
        QMetaObject::invokeMethod(window.outliner, "selectionUpdated");
    }

    QAction* toolBarAction(const QString& text) const
    {
        for (QAction* action : window.ui.mainToolBar->actions())
            if (action->text() == text)
                return action;
        ADD_FAILURE() << text.toStdString();
        return nullptr;
    }

    void clickToolBar(const QString& text)
    {
        QTest::mouseClick(window.ui.mainToolBar->widgetForAction(toolBarAction(text)), Qt::LeftButton);
    }

    // Lets the key go with the mouse over the widget: some shortcuts look where it is.
    void releaseKey(Qt::Key key, Qt::KeyboardModifiers modifiers, QWidget* under)
    {
        QTest::mouseMove(under, under->rect().center());
        ASSERT_TRUE(QTest::qWaitFor([under] { return under->underMouse(); }, 30000)) << "the pointer never got there";
        QKeyEvent event(QEvent::KeyRelease, key, modifiers);
        QApplication::sendEvent(&window, &event);
    }

    QApplication& application = guiApplication();
    ZentoRagdollBuilder window;
    ScriptedDialogs* dialogs = nullptr;
    int frames = 0;
};

double lowestBody(const ZentoSceneGraph& graph, const std::vector<std::string>& bodies)
{
    double lowest = 1e30;
    for (const std::string& path : bodies)
        lowest = std::min(lowest, graph.node(path)->worldMatrix().translation().y);
    return lowest;
}

// The world box of the meshes at and below the path.
Imath::Box3d worldBounds(const ZentoSceneGraph& graph, const std::string& root)
{
    Imath::Box3d bounds;
    for (const auto& entry : graph.nodes)
        if (entry.first.hasPrefix(ZentoCore::NodePath(root)) && !graph.delegate().GetExtent(entry.first).isEmpty())
            bounds.extendBy(Imath::transform(graph.delegate().GetExtent(entry.first), graph.delegate().GetTransform(entry.first)));
    return bounds;
}

double meanHeight(const ZentoSceneGraph& graph, const std::vector<std::string>& bodies)
{
    double sum = 0.0;
    for (const std::string& path : bodies)
        sum += graph.node(path)->worldMatrix().translation().y;
    return sum / double(bodies.size());
}

} // namespace

TEST(AuthoringWindow, TheWholeJobOnARealSkeletonAndSkin)
{
    ShownWindow shown;
    ZentoRagdollBuilder& window = shown.window;
    TemporaryDirectory dir;
    const QString scene = QString::fromStdString(dir.file("doll.zento"));
    const QString ragdoll = QString::fromStdString(dir.file("doll"));

    shown.dialogs->files = {kSkeleton, kSkin};
    window.ui.actionLoadSkeleton->trigger();
    window.ui.actionLoadMesh->trigger();
    const std::vector<std::string> joints = shown.pathsOfType(JointNode::kTypeId);
    ASSERT_EQ(joints.size(), 38u) << "31 joints and 7 end sites";
    ASSERT_FALSE(window.sceneGraph.node("/Skin")->children.empty()) << "the skin came in";
    // A ground, put under the feet as the artist would.
    window.ui.actionCreateGround->trigger();
    EXPECT_EQ(window.sceneGraph.selectedPaths(), std::vector<std::string>{"/Ground"});
    double feet = 1e30;
    for (const std::string& joint : joints)
        feet = std::min(feet, window.sceneGraph.node(joint)->worldMatrix().translation().y);
    window.sceneGraph.node("/Ground")->translation.y = feet - 1.0;
    window.sceneGraph.updateMatrix("/Ground");
    // The skin is of another size: scaled to the skeleton and stood beside it.
    const Imath::Box3d skin = worldBounds(window.sceneGraph, "/Skin");
    const Imath::Box3d skeleton = worldBounds(window.sceneGraph, "/Skeleton");
    const double fit = (skeleton.max.y - skeleton.min.y) / (skin.max.y - skin.min.y);
    const auto skinRoot = window.sceneGraph.node("/Skin");
    skinRoot->scale = Imath::V3d(fit);
    skinRoot->translation = Imath::V3d(skeleton.max.x + 2.0 - skin.min.x * fit, feet - 1.0 - skin.min.y * fit,
                                       skeleton.center().z - skin.center().z * fit);
    window.sceneGraph.updateMatrix("/Skin");

    // Bodies on every joint, then constraints on every body: four steps.
    shown.selectInOutliner(joints);
    shown.clickToolBar("Create RigidBody");
    const std::vector<std::string> bodies = window.sceneGraph.selectedPaths();
    EXPECT_EQ(bodies.size(), joints.size()) << "each joint, the tips too";
    window.ui.actionCreateConstraint->trigger();
    const std::vector<std::string> constraints = shown.pathsOfType(ConstraintNode::kTypeId);
    std::vector<std::string> selected = window.sceneGraph.selectedPaths();
    std::sort(selected.begin(), selected.end());
    EXPECT_EQ(selected, constraints);
    EXPECT_EQ(constraints.size(), joints.size() - 1) << "every joint but the root";
    ASSERT_EQ(window.commandStack.commands.size(), 3u) << "a selection and two creations";

    // Ctrl+Z all the way back and Ctrl+Y all the way forward.
    const SceneState authored = capture(window.sceneGraph);
    for (int step = 0; step < 3; ++step)
        shown.releaseKey(Qt::Key_Z, Qt::ControlModifier, window.viewport);
    EXPECT_EQ(shown.pathsOfType(RigidBodyNode::kTypeId), std::vector<std::string>{"/Ground"});
    EXPECT_EQ(window.sceneGraph.selectedPaths(), std::vector<std::string>{"/Ground"}) << "as before the first step";
    for (int step = 0; step < 3; ++step)
        shown.releaseKey(Qt::Key_Y, Qt::ControlModifier, window.viewport);
    EXPECT_EQ(window.sceneGraph.selectedPaths(), joints) << "creations leave the selection to their caller";
    window.sceneGraph.setSelection(authored.selection);
    expectSameScene(authored, capture(window.sceneGraph), "after undo and redo");

    // Sixty frames of the simulation: the ragdoll falls and lies on the ground.
    const double standing = meanHeight(window.sceneGraph, bodies);
    shown.clickToolBar("Simulate");
    EXPECT_TRUE(window.sceneGraph.simulating);
    EXPECT_TRUE(QTest::qWaitFor([&] { return shown.frames >= 10; }, 60000));

    // A falling body grabbed with the mouse follows it up: the first body
    // whose centre shows it in front of everything else.
    Viewport& viewport = *window.viewport;
    std::shared_ptr<BaseNode> held;
    QPoint press;
    for (const std::string& body : bodies) {
        press = project(viewport, window.sceneGraph.node(body)->worldMatrix().translation()).toPoint();
        const std::vector<std::string> hit = window.sceneGraph.pick(
            viewport.frustum, Imath::V4d(0, 0, viewport.width(), viewport.height()), press, press, 1, nullptr);
        if (!hit.empty() && hit.front() == body) {
            held = window.sceneGraph.node(body);
            break;
        }
    }
    ASSERT_NE(held, nullptr);
    QTest::mousePress(&viewport, Qt::LeftButton, Qt::NoModifier, press);
    ASSERT_TRUE(viewport.grabbing) << "a click on a body in a running simulation holds it";
    const double grabbedAt = held->worldMatrix().translation().y;
    for (int step = 1; step <= 20; ++step) {
        QMouseEvent move(QEvent::MouseMove, press - QPoint(0, 4 * step), Qt::NoButton, Qt::LeftButton, Qt::NoModifier);
        QApplication::sendEvent(&viewport, &move);
        const int frame = shown.frames;
        ASSERT_TRUE(QTest::qWaitFor([&] { return shown.frames > frame; }, 10000));
    }
    EXPECT_GT(held->worldMatrix().translation().y, grabbedAt + 1.0) << "followed the cursor up";
    QTest::mouseRelease(&viewport, Qt::LeftButton, Qt::NoModifier, press - QPoint(0, 80));
    EXPECT_FALSE(viewport.grabbing);
    EXPECT_TRUE(QTest::qWaitFor([&] { return shown.frames >= 90; }, 60000));
    EXPECT_LT(meanHeight(window.sceneGraph, bodies), standing - 2.0) << "fell";
    EXPECT_GT(lowestBody(window.sceneGraph, bodies), feet - 1.5) << "and lies on the ground";
    EXPECT_TRUE(window.outliner->selectedNames().empty()) << "nothing stays selected while it runs";
    window.viewport->frameAll();
    const QString picture = QString(ZENTO_TEST_OUTPUT_DIR) + "/ragdoll_on_the_ground.png";
    EXPECT_TRUE(window.grab().save(picture)) << picture.toStdString();
    shown.clickToolBar("Simulate");
    EXPECT_FALSE(window.sceneGraph.simulating);
    SceneState unselected = authored;
    unselected.selection.clear();
    expectSameScene(unselected, capture(window.sceneGraph), "every body back", true, 0.0);

    // Save, clear, load: everything back.
    shown.dialogs->files = {scene};
    ASSERT_TRUE(window.saveFile());
    shown.dialogs->answers = {false};
    window.ui.actionNew->trigger();
    EXPECT_EQ(window.sceneGraph.nodePaths(), std::vector<std::string>{"/Solver"});
    EXPECT_EQ(window.outliner->names, std::vector<std::string>{"/Solver"});
    shown.dialogs->files = {scene};
    window.ui.actionLoadScene->trigger();
    EXPECT_EQ(window.sceneGraph.nodes.size(), authored.nodes.size());
    EXPECT_EQ(window.outliner->names.size(), window.sceneGraph.nodes.size());

    // Export; a new scene with the skeleton alone takes the ragdoll back.
    shown.dialogs->files = {ragdoll};
    window.ui.actionExportRagdoll->trigger();
    EXPECT_TRUE(QFileInfo::exists(ragdoll + ".zentoragdoll")) << "the extension added";
    shown.dialogs->answers = {false};
    shown.clickToolBar("New Scene");
    shown.dialogs->files = {kSkeleton, ragdoll + ".zentoragdoll"};
    window.ui.actionLoadSkeleton->trigger();
    window.ui.actionLoadRagdoll->trigger();
    EXPECT_EQ(shown.pathsOfType(RigidBodyNode::kTypeId).size(), bodies.size()) << "the bodies, and no ground";
    EXPECT_EQ(shown.pathsOfType(ConstraintNode::kTypeId), constraints);
    EXPECT_EQ(shown.dialogs->log.filter("Saved: The file has been saved.").size(), 2);
}

TEST(AuthoringWindow, ANewSceneAsksFirstAndACancelledSaveKeepsEverything)
{
    ShownWindow shown;
    ZentoRagdollBuilder& window = shown.window;
    window.createGround();
    shown.dialogs->answers = {true}; // Yes, save: then Cancel in the save dialog.
    window.newFile();
    EXPECT_NE(window.sceneGraph.node("/Ground"), nullptr);
    EXPECT_EQ(shown.dialogs->log, QStringList({"Warning: Scene not saved: Save changes to current scene", "Save Scene"}));

    TemporaryDirectory dir;
    shown.dialogs->files = {QString::fromStdString(dir.file("gone.zento")), QString::fromStdString(dir.path())};
    window.openFile();
    EXPECT_NE(window.sceneGraph.node("/Ground"), nullptr) << "a name that does not exist does nothing";
    window.openFile();
    EXPECT_NE(window.sceneGraph.node("/Ground"), nullptr) << "a directory is no scene";
    EXPECT_EQ(shown.dialogs->log.last(), "Error: Unable to open the scene!\n\"" + QString::fromStdString(dir.path())
                                             + "\" is a directory, not a file");
}

TEST(AuthoringWindow, AClickInTheViewportSelectsThroughTheHistory)
{
    ShownWindow shown;
    ZentoRagdollBuilder& window = shown.window;
    const auto body = addBody(window.sceneGraph, "/Body", Imath::V3d(0, 0, 0));
    window.updateNodeList();
    Viewport& viewport = *window.viewport;
    const QPoint at = project(viewport, Imath::V3d(0, 0, 0)).toPoint();
    QTest::mouseClick(&viewport, Qt::LeftButton, Qt::NoModifier, at);
    EXPECT_EQ(window.sceneGraph.selectedPaths(), std::vector<std::string>{"/Body"});
    EXPECT_EQ(window.outliner->selectedNames(), std::vector<std::string>{"/Body"});
    QTest::mouseClick(&viewport, Qt::LeftButton, Qt::NoModifier, QPoint(2, 2));
    EXPECT_TRUE(window.sceneGraph.selectedPaths().empty());
    EXPECT_EQ(window.commandStack.commands.size(), 2u) << "each click is one step";
    shown.releaseKey(Qt::Key_Z, Qt::ControlModifier, &viewport);
    EXPECT_EQ(window.sceneGraph.selectedPaths(), std::vector<std::string>{"/Body"});
}

TEST(AuthoringWindow, AnImportThatBringsNothingSaysWhyInTheStatusBar)
{
    ShownWindow shown;
    ZentoRagdollBuilder& window = shown.window;
    shown.dialogs->files = {"/usr/share/assimp/models/FBX/box.fbx", kSkeleton};
    window.loadRagdoll();
    const QString message = window.statusBar()->currentMessage();
    EXPECT_TRUE(message.contains("box.fbx")) << message.toStdString();
    window.loadSkeleton();
    const size_t nodes = window.sceneGraph.nodes.size();
    shown.dialogs->files = {kSkeleton};
    window.loadRagdoll();
    EXPECT_FALSE(window.statusBar()->currentMessage().isEmpty());
    EXPECT_EQ(window.sceneGraph.nodes.size(), nodes);
    EXPECT_TRUE(shown.dialogs->log.filter("Error").isEmpty()) << "no message box";
}

TEST(AuthoringWindow, ShortcutsHideCopyAndPasteWhereTheMouseIs)
{
    ShownWindow shown;
    ZentoRagdollBuilder& window = shown.window;
    window.createGround();
    window.createGround();
    const auto ground = window.sceneGraph.node("/Ground");
    const auto second = window.sceneGraph.node("/Ground1");
    ground->attributes.typedEntry<double>("restitution")->set(0.75);

    shown.selectInOutliner({"/Ground"});
    shown.releaseKey(Qt::Key_H, Qt::ControlModifier, window.outliner);
    EXPECT_FALSE(ground->visible);
    shown.releaseKey(Qt::Key_H, Qt::ShiftModifier, window.outliner);
    EXPECT_TRUE(ground->visible);

    shown.releaseKey(Qt::Key_C, Qt::ControlModifier, window.viewport);
    shown.selectInOutliner({"/Ground1"});
    const size_t steps = window.commandStack.commands.size();
    shown.releaseKey(Qt::Key_V, Qt::ControlModifier, window.ui.mainToolBar);
    EXPECT_EQ(window.commandStack.commands.size(), steps) << "not over the viewport or the outliner";
    shown.releaseKey(Qt::Key_V, Qt::ControlModifier, window.viewport);
    EXPECT_EQ(second->attributes.typedEntry<double>("restitution")->get(), 0.75);
    EXPECT_EQ(window.commandStack.commands.size(), steps + 1) << "one step";

    // Letters are shortcuts: typed in the outliner they must not search its rows.
    window.outliner->treeWidget->setFocus();
    QTest::keyClick(window.outliner->treeWidget, Qt::Key_G);
    EXPECT_EQ(window.outliner->selectedNames(), std::vector<std::string>{"/Ground1"});
}

TEST(AuthoringWindow, PlaybackSleepsTheRestOfAThirtiethOfASecond)
{
    FramePacer pacer;
    std::int64_t clock = 0;
    std::vector<unsigned long> sleeps;
    pacer.now = [&] { return clock; };
    pacer.sleep = [&](unsigned long milliseconds) {
        sleeps.push_back(milliseconds);
        clock += std::int64_t(milliseconds) * 1000000;
    };
    pacer.start();
    clock += 10 * 1000000 + 999999; // a frame of 10.999 ms counts as 10
    pacer.pace();
    clock += 40 * 1000000; // a late frame: no sleep, and no catching up after it
    pacer.pace();
    clock += 1000000;
    pacer.pace();
    EXPECT_EQ(sleeps, (std::vector<unsigned long>{23, 0, 32}));
}

TEST(AuthoringWindow, BarsAndDialogsHaveNames)
{
    guiApplication();
    ZentoRagdollBuilder window;
    EXPECT_FALSE(window.ui.mainToolBar->windowTitle().isEmpty()) << "the tool bars' menu shows it";
    EXPECT_FALSE(window.viewportToolBar->windowTitle().isEmpty());
}
