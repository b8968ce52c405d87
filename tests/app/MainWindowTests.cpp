#include "GuiTestSupport.h"

#include "AboutDialog.h"
#include "CreateNodesCommand.h"
#include "JointNode.h"
#include "Outliner.h"
#include "RigidBodyAttributes.h"
#include "StyleSheet.h"
#include "ZentoRagdollBuilder.h"

#include <QDockWidget>
#include <QDoubleSpinBox>
#include <QFile>
#include <QLabel>
#include <QLineEdit>
#include <QMenuBar>
#include <QStatusBar>
#include <QTextBrowser>
#include <QToolBar>
#include <QTreeWidget>

#include <gtest/gtest.h>

using ZentoCore::NodePath;
using Zento::RigidBodyAttributes;

namespace {

const QString kPictures = ":/ZentoRagdollBuilder/Resources/";

// Texts of a menu's or a bar's entries, "-" for a separator.
QStringList entryTexts(const QList<QAction*>& actions)
{
    QStringList texts;
    for (const QAction* action : actions)
        texts << (action->isSeparator() ? QString("-") : action->text());
    return texts;
}

void releaseKey(ZentoRagdollBuilder& window, Qt::Key key, Qt::KeyboardModifiers modifiers = Qt::NoModifier)
{
    QKeyEvent event(QEvent::KeyRelease, key, modifiers);
    QApplication::sendEvent(&window, &event);
}

} // namespace

TEST(MainWindow, OpensWithItsTitleSizeAndEmptyStyle)
{
    guiApplication();
    ZentoRagdollBuilder window;
    EXPECT_EQ(window.windowTitle(), "Zento Ragdoll Builder");
    EXPECT_EQ(window.objectName(), "ZentoRagdollBuilderClass");
    EXPECT_EQ(window.size(), QSize(600, 400));
    EXPECT_FALSE(window.windowIcon().isNull());
    EXPECT_EQ(window.centralWidget(), window.viewport.data());
    EXPECT_EQ(window.viewport->sceneGraph(), &window.sceneGraph);
    EXPECT_EQ(window.dockWidgetArea(window.outliner), Qt::LeftDockWidgetArea);
    EXPECT_EQ(window.dockWidgetArea(window.attributeEditor), Qt::RightDockWidgetArea);
    EXPECT_EQ(window.attributeEditor->windowTitle(), "Attributes");
}

TEST(MainWindow, HasEveryActionWithItsNameTextAndShortcut)
{
    guiApplication();
    ZentoRagdollBuilder window;
    const struct {
        QAction* action;
        const char* name;
        const char* text;
        const char* shortcut;
        bool checkable;
    } expected[] = {
        {window.ui.actionNew, "actionNew", "New", "Ctrl+N", false},
        {window.ui.actionLoadScene, "actionLoadScene", "Load Scene", "Ctrl+O", false},
        {window.ui.actionSaveScene, "actionSaveScene", "Save Scene", "Ctrl+S", false},
        {window.ui.actionCopyAttributes, "actionCopyAttributes", "Copy Attributes", "Ctrl+C", false},
        {window.ui.actionPaste, "actionPaste", "Paste Attributes", "Ctrl+V", false},
        {window.ui.actionPasteDynamicAttributes, "actionPasteDynamicAttributes", "Paste Dynamic Attributes", "", false},
        {window.ui.actionPasteDriveAtttributes, "actionPasteDriveAtttributes", "Paste Drive Atttributes", "", false},
        {window.ui.actionAbout, "actionAbout", "About", "", false},
        {window.ui.actionCreateRigidBody, "actionCreateRigidBody", "Rigid Body", "", false},
        {window.ui.actionCreateConstraint, "actionCreateConstraint", "Constraint", "", false},
        {window.ui.actionCreatePropConstraint, "actionCreatePropConstraint", "Prop Constraint", "", false},
        {window.ui.actionLoadSkeleton, "actionLoadSkeleton", "Load Skeleton", "", false},
        {window.ui.actionLoadMesh, "actionLoadMesh", "Load Mesh", "", false},
        {window.ui.actionLoadRagdoll, "actionLoadRagdoll", "Load Ragdoll", "", false},
        {window.ui.actionExportRagdoll, "actionExportRagdoll", "Export Ragdoll", "", false},
        {window.ui.actionCreateGround, "actionCreateGround", "Ground", "", false},
        {window.ui.actionViewMesh, "actionViewMesh", "Mesh", "", true},
        {window.ui.actionViewRigidBodies, "actionViewRigidBodies", "Rigid Bodies", "", true},
        {window.ui.actionViewConstraints, "actionViewConstraints", "Constraints", "", true},
        {window.ui.actionViewSkeleton, "actionViewSkeleton", "Skeleton", "", true},
        {window.ui.actionHideSelected, "actionHideSelected", "Hide Selected", "", false},
        {window.ui.actionUnhideSelected, "actionUnhideSelected", "Unhide Selected", "", false},
    };
    for (const auto& entry : expected) {
        ASSERT_NE(entry.action, nullptr) << entry.name;
        EXPECT_EQ(entry.action->parent(), &window);
        EXPECT_EQ(entry.action->objectName(), entry.name);
        EXPECT_EQ(entry.action->text(), entry.text);
        EXPECT_EQ(entry.action->shortcut(), QKeySequence(entry.shortcut)) << entry.name;
        EXPECT_EQ(entry.action->isCheckable(), entry.checkable) << entry.name;
        EXPECT_EQ(entry.action->isChecked(), entry.checkable) << entry.name;
    }
}

TEST(MainWindow, MenusStandInOrderWithTheirEntries)
{
    guiApplication();
    ZentoRagdollBuilder window;
    EXPECT_EQ(window.menuBar(), window.ui.menuBar);
    EXPECT_EQ(entryTexts(window.menuBar()->actions()),
              QStringList({"File", "Edit", "Create", "Load", "Export", "View", "Help"}));
    EXPECT_EQ(entryTexts(window.ui.menuFile->actions()), QStringList({"New", "Load Scene", "Save Scene"}));
    EXPECT_EQ(entryTexts(window.ui.menuEdit->actions()),
              QStringList({"Copy Attributes", "Paste Dynamic Attributes", "Paste Drive Atttributes",
                           "Paste Attributes"}));
    EXPECT_EQ(entryTexts(window.ui.menuCreate->actions()),
              QStringList({"Rigid Body", "Constraint", "Prop Constraint", "Ground"}));
    EXPECT_EQ(entryTexts(window.ui.menuLoad->actions()), QStringList({"Load Skeleton", "Load Mesh", "Load Ragdoll"}));
    EXPECT_EQ(entryTexts(window.ui.menuExport->actions()), QStringList({"Export Ragdoll"}));
    EXPECT_EQ(entryTexts(window.ui.menuView->actions()),
              QStringList({"Mesh", "Rigid Bodies", "Constraints", "Skeleton", "-", "Hide Selected", "Unhide Selected"}));
    EXPECT_EQ(entryTexts(window.ui.menuHelp->actions()), QStringList({"About"}));
}

TEST(MainWindow, ToolBarsHoldTheirOwnActionsWithPicturesInOrder)
{
    guiApplication();
    ZentoRagdollBuilder window;
    QToolBar* main = window.ui.mainToolBar;
    EXPECT_EQ(main->objectName(), "mainToolBar");
    EXPECT_EQ(window.toolBarArea(main), Qt::TopToolBarArea);
    EXPECT_FALSE(main->isMovable());
    EXPECT_EQ(entryTexts(main->actions()),
              QStringList({"New Scene", "Load Scene", "Save Scene", "-", "Load Skeleton", "Load Mesh", "Load Ragdoll",
                           "-", "Export ragdoll", "-", "Create RigidBody", "Create Constraint",
                           "Create Prop Constraint", "Create Ground", "-", "Wireframe Mesh", "Wireframe Rigid Body",
                           "Wireframe Constraint", "-", "Simulate"}));
    const QStringList checkable = {"Wireframe Mesh", "Wireframe Rigid Body", "Wireframe Constraint", "Simulate"};
    for (const QAction* action : main->actions()) {
        if (action->isSeparator())
            continue;
        // The bar's own actions: the menus' actions are others.
        EXPECT_NE(action->parent(), nullptr);
        EXPECT_NE(action, window.ui.actionLoadScene);
        EXPECT_EQ(action->isCheckable(), checkable.contains(action->text())) << action->text().toStdString();
        EXPECT_FALSE(action->isChecked());
        EXPECT_FALSE(action->icon().isNull()) << action->text().toStdString();
    }

    QToolBar* tools = window.viewportToolBar;
    EXPECT_EQ(tools->windowTitle(), "ViewportToolBar");
    EXPECT_EQ(window.toolBarArea(tools), Qt::LeftToolBarArea);
    EXPECT_FALSE(tools->isMovable());
    EXPECT_FALSE(tools->isFloatable());
    EXPECT_EQ(entryTexts(tools->actions()), QStringList({"Select (Q)", "Translate (W)", "Scale (E)", "Rotate (R)"}));
    EXPECT_TRUE(window.selectAction->isChecked());
    ASSERT_NE(window.selectAction->actionGroup(), nullptr);
    EXPECT_TRUE(window.selectAction->actionGroup()->isExclusive());
    EXPECT_EQ(window.selectAction->actionGroup()->actions(),
              QList<QAction*>({window.selectAction, window.translateAction, window.rotateAction, window.scaleAction}));

    // Every picture of the bars and the dialog is a real, non-empty picture.
    for (const char* name :
         {"new_scene", "load_scene", "save_scene", "load_skeleton", "load_mesh", "load_ragdoll", "export_ragdoll",
          "create_rigid_body", "create_constraint", "create_prop_constraint", "create_ground", "mesh_wireframe",
          "rigidbody_wireframe", "constraint_wireframe", "simulate", "select", "translate", "scale", "rotate",
          "logo_new", "abouts", "NVIDIA_PhysX_Logo"}) {
        const QImage picture(kPictures + name + ".png");
        EXPECT_FALSE(picture.isNull()) << name;
        EXPECT_GT(countPixels(picture, [](const QColor& c) { return c.alpha() > 0; }), picture.width()) << name;
    }
}

TEST(MainWindow, StatusBarCarriesTheJointSizeSpinBox)
{
    guiApplication();
    ZentoRagdollBuilder window;
    QDoubleSpinBox* spinBox = window.jointSizeSpinBox;
    EXPECT_EQ(spinBox->parent(), window.statusBar());
    EXPECT_EQ(spinBox->minimum(), 0.0);
    EXPECT_EQ(spinBox->maximum(), 10000.0);
    EXPECT_EQ(spinBox->value(), 1.0);
    EXPECT_EQ(spinBox->decimals(), QDoubleSpinBox().decimals());
    const QList<QLabel*> labels = window.statusBar()->findChildren<QLabel*>();
    EXPECT_TRUE(std::any_of(labels.begin(), labels.end(), [](QLabel* l) { return l->text() == "Joint Size:"; }));

    auto joint = std::make_shared<JointNode>(NodePath("/Hips"));
    window.sceneGraph.addNode(joint, "");
    spinBox->setValue(2.5);
    EXPECT_EQ(joint->displaySize, 2.5);
    EXPECT_NEAR(window.sceneGraph.delegate().GetExtent(joint->path).max.y, 0.5 * 2.5, 1e-6);
}

TEST(MainWindow, ToolKeysAndToolActionsChooseTheViewportTool)
{
    guiApplication();
    ZentoRagdollBuilder window;
    releaseKey(window, Qt::Key_W);
    EXPECT_TRUE(window.translateAction->isChecked());
    EXPECT_EQ(window.viewport->toolMode, 1);
    releaseKey(window, Qt::Key_E, Qt::ControlModifier);
    EXPECT_TRUE(window.scaleAction->isChecked());
    EXPECT_EQ(window.viewport->toolMode, 3);

    window.rotateAction->trigger();
    EXPECT_TRUE(window.rotateAction->isChecked());
    EXPECT_EQ(window.viewport->toolMode, 2);
    window.selectAction->trigger();
    EXPECT_EQ(window.viewport->toolMode, 0);

    // A key press alone does nothing: shortcuts act on release.
    QKeyEvent press(QEvent::KeyPress, Qt::Key_R, Qt::NoModifier);
    QApplication::sendEvent(&window, &press);
    EXPECT_EQ(window.viewport->toolMode, 0);
}

TEST(MainWindow, NodeListUndoAndRedoKeepTheOutlinerInStep)
{
    guiApplication();
    ZentoRagdollBuilder window;
    auto hips = std::make_shared<JointNode>(NodePath("/Skeleton/Hips"));
    window.commandStack.push(std::make_shared<CreateNodesCommand>(
        &window.sceneGraph, std::vector<std::shared_ptr<BaseNode>>{hips}));
    window.sceneGraph.setSelection({"/Skeleton/Hips"});
    ASSERT_TRUE(QMetaObject::invokeMethod(&window, "updateNodeList"));
    ASSERT_TRUE(QMetaObject::invokeMethod(&window, "updateSelection"));
    EXPECT_NE(std::find(window.outliner->names.begin(), window.outliner->names.end(), "/Skeleton/Hips"),
              window.outliner->names.end());
    EXPECT_EQ(window.outliner->selectedNames(), std::vector<std::string>{"/Skeleton/Hips"});
    EXPECT_EQ(window.attributeEditor->findChild<QLineEdit*>("nameWidget")->text(), "/Skeleton/Hips");

    hips->visible = false;
    releaseKey(window, Qt::Key_Z, Qt::ControlModifier);
    EXPECT_EQ(window.sceneGraph.node("/Skeleton/Hips"), nullptr);
    EXPECT_EQ(std::find(window.outliner->names.begin(), window.outliner->names.end(), "/Skeleton/Hips"),
              window.outliner->names.end());

    releaseKey(window, Qt::Key_Y, Qt::ControlModifier);
    ASSERT_NE(window.sceneGraph.node("/Skeleton/Hips"), nullptr);
    QTreeWidgetItem* skeleton = window.outliner->treeWidget->topLevelItem(0);
    ASSERT_NE(skeleton, nullptr);
    // The hidden node's row is greyed after the redo.
    ASSERT_EQ(skeleton->childCount(), 1);
    EXPECT_EQ(skeleton->child(0)->foreground(0).color(), QColor(110, 110, 110));
}

TEST(MainWindow, AboutDialogShowsTheProductAndItsCredits)
{
    guiApplication();
    AboutDialog dialog;
    EXPECT_EQ(dialog.windowTitle(), "About Zento Ragdoll Builder");
    EXPECT_EQ(dialog.size(), QSize(449, 374));
    EXPECT_TRUE(dialog.isModal());
    const QString credits = dialog.findChild<QTextBrowser*>()->toPlainText();
    for (const char* library : {"Qt", "Bullet", "Assimp", "Imath"})
        EXPECT_TRUE(credits.contains(library)) << library;
    int pictures = 0;
    for (const QLabel* label : dialog.findChildren<QLabel*>())
        pictures += label->pixmap(Qt::ReturnByValue).isNull() ? 0 : 1;
    EXPECT_EQ(pictures, 3);
}

TEST(MainWindow, TheDarkStyleSheetIsARealResourceAndPaintsTheWindow)
{
    QApplication& app = guiApplication();
    const QString styleSheet = loadStyleSheet();
    ASSERT_FALSE(styleSheet.isEmpty());
    EXPECT_TRUE(styleSheet.contains("QMainWindow"));
    // The pictures that the sheet names are compiled in too.
    EXPECT_TRUE(QFile::exists(":/qss_icons/dark/rc/checkbox_checked.png"));

    ZentoRagdollBuilder window;
    ASSERT_TRUE(showExposed(window));
    QWidget* tree = window.outliner->treeWidget;
    const QImage plain = tree->grab().toImage();
    app.setStyleSheet(styleSheet);
    QApplication::processEvents();
    const QImage styled = tree->grab().toImage();
    app.setStyleSheet(QString());

    const QColor before = plain.pixelColor(plain.width() / 2, plain.height() / 2);
    const QColor after = styled.pixelColor(styled.width() / 2, styled.height() / 2);
    EXPECT_LT(after.lightness(), 80) << "dark background, got " << after.name().toStdString();
    EXPECT_GT(before.lightness(), after.lightness());
}

TEST(MainWindow, ViewSwitchesWireframeButtonsAndTheOutlinerReachTheViewport)
{
    guiApplication();
    ZentoRagdollBuilder window;
    ASSERT_TRUE(showExposed(window));
    const auto body = addBody(window.sceneGraph, "/Body", Imath::V3d(0.0, 0.0, 0.0));
    body->attributes.typedEntry<int>("type")->set(RigidBodyAttributes::Box); // few edges
    window.sceneGraph.updateGeometry(body->path);
    ASSERT_TRUE(QMetaObject::invokeMethod(&window, "updateNodeList"));
    window.viewport->frameAll();
    const auto bodyPixels = [&] { return countPixels(window.viewport->grabFramebuffer(), isBodyLike); };
    const int filled = bodyPixels();
    EXPECT_GT(filled, 300);

    // "Rigid Bodies" in the View menu is a switch of the rigid body pass.
    window.ui.actionViewRigidBodies->trigger();
    EXPECT_FALSE(window.sceneGraph.showRigidBodies);
    EXPECT_EQ(bodyPixels(), 0);
    window.ui.actionViewRigidBodies->trigger();
    EXPECT_TRUE(window.sceneGraph.showRigidBodies);
    EXPECT_EQ(bodyPixels(), filled);

    // The tool bar's "Wireframe Rigid Body" leaves the edges.
    const QList<QAction*> tools = window.ui.mainToolBar->actions();
    const auto wireframe = std::find_if(tools.begin(), tools.end(),
                                        [](QAction* action) { return action->text() == "Wireframe Rigid Body"; });
    ASSERT_NE(wireframe, tools.end());
    (*wireframe)->trigger();
    EXPECT_TRUE(window.sceneGraph.rigidBodyWireframe);
    EXPECT_FALSE(window.sceneGraph.meshWireframe);
    const int edges = bodyPixels();
    EXPECT_GT(edges, 0);
    EXPECT_LT(edges, filled / 2);
    (*wireframe)->trigger();
    EXPECT_EQ(bodyPixels(), filled);

    // A click in the outliner selects through the history, and the body turns yellow.
    QTreeWidgetItem* row = window.outliner->treeWidget->findItems("Body", Qt::MatchExactly).value(0);
    ASSERT_NE(row, nullptr);
    row->setSelected(true);
    EXPECT_EQ(window.sceneGraph.selectedPaths(), std::vector<std::string>{"/Body"});
    EXPECT_EQ(window.attributeEditor->findChild<QLineEdit*>("nameWidget")->text(), "/Body");
    EXPECT_EQ(bodyPixels(), 0);
    EXPECT_GT(countPixels(window.viewport->grabFramebuffer(), isYellow), filled * 8 / 10);

    releaseKey(window, Qt::Key_Z, Qt::ControlModifier);
    EXPECT_TRUE(window.sceneGraph.selectedPaths().empty());
    EXPECT_TRUE(window.outliner->selectedNames().empty());
    EXPECT_TRUE(window.attributeEditor->findChild<QLineEdit*>("nameWidget")->text().isEmpty());
    EXPECT_EQ(bodyPixels(), filled);
}
