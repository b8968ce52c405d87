#include "GuiTestSupport.h"

#include "AboutDialog.h"
#include "AttributeEditor.h"
#include "CreateNodesCommand.h"
#include "JointNode.h"
#include "Outliner.h"
#include "RigidBodyAttributes.h"
#include "StyleSheet.h"
#include "ZentoRagdollBuilder.h"

#include <QDir>
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

void releaseKey(ZentoRagdollBuilder& window, Qt::Key key, Qt::KeyboardModifiers modifiers = Qt::NoModifier)
{
    QKeyEvent event(QEvent::KeyRelease, key, modifiers);
    QApplication::sendEvent(&window, &event);
}

} // namespace

TEST(MainWindow, EveryActionIsReachableWithItsOwnShortcutAndAPicture)
{
    guiApplication();
    ZentoRagdollBuilder window;
    QList<QAction*> reachable;
    for (const QAction* menu : window.menuBar()->actions())
        reachable += menu->menu()->actions();
    for (const QToolBar* bar : window.findChildren<QToolBar*>())
        for (QAction* action : bar->actions()) {
            reachable += action;
            EXPECT_TRUE(action->isSeparator() || !action->icon().pixmap(16).isNull()) << action->text().toStdString();
        }
    QStringList shortcuts;
    for (const QAction* action : reachable) {
        if (action->isSeparator())
            continue;
        EXPECT_FALSE(action->text().isEmpty());
        const QString keys = action->shortcut().toString();
        EXPECT_TRUE(keys.isEmpty() || !shortcuts.contains(keys)) << keys.toStdString() << " twice";
        shortcuts << keys;
    }
    for (QAction* action : window.findChildren<QAction*>(QString(), Qt::FindDirectChildrenOnly))
        EXPECT_TRUE(reachable.contains(action)) << action->text().toStdString() << " is in no menu or bar";

    // The scene and clipboard entries answer the usual keys.
    EXPECT_EQ(window.ui.actionNew->shortcut(), QKeySequence("Ctrl+N"));
    EXPECT_EQ(window.ui.actionLoadScene->shortcut(), QKeySequence("Ctrl+O"));
    EXPECT_EQ(window.ui.actionSaveScene->shortcut(), QKeySequence("Ctrl+S"));
    EXPECT_EQ(window.ui.actionCopyAttributes->shortcut(), QKeySequence("Ctrl+C"));
    EXPECT_EQ(window.ui.actionPaste->shortcut(), QKeySequence("Ctrl+V"));
    // Every pass is shown at the start, and its entry in the View menu says so.
    for (const QAction* action : window.ui.menuView->actions())
        EXPECT_EQ(action->isChecked(), action->isCheckable()) << action->text().toStdString();

    // Every picture compiled in is a real, non-empty picture.
    const QStringList pictures = QDir(kPictures).entryList({"*.png"});
    EXPECT_FALSE(pictures.isEmpty());
    for (const QString& name : pictures) {
        const QImage picture(kPictures + name);
        EXPECT_GT(countPixels(picture, [](const QColor& c) { return c.alpha() > 0; }), picture.width())
            << name.toStdString();
    }
}

TEST(MainWindow, StatusBarCarriesTheJointSizeSpinBox)
{
    guiApplication();
    ZentoRagdollBuilder window;
    QDoubleSpinBox* spinBox = window.jointSizeSpinBox;
    EXPECT_EQ(spinBox->parent(), window.statusBar());
    EXPECT_EQ(spinBox->value(), 1.0);
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
    EXPECT_TRUE(window.selectAction->isChecked());
    releaseKey(window, Qt::Key_W);
    EXPECT_TRUE(window.translateAction->isChecked());
    EXPECT_FALSE(window.selectAction->isChecked()) << "one tool at a time";
    EXPECT_EQ(window.viewport->toolMode, Viewport::MoveTool);
    releaseKey(window, Qt::Key_E, Qt::ControlModifier);
    EXPECT_TRUE(window.scaleAction->isChecked());
    EXPECT_FALSE(window.translateAction->isChecked());
    EXPECT_EQ(window.viewport->toolMode, Viewport::ScaleTool);

    window.rotateAction->trigger();
    EXPECT_TRUE(window.rotateAction->isChecked());
    EXPECT_EQ(window.viewport->toolMode, Viewport::RotateTool);
    window.selectAction->trigger();
    EXPECT_EQ(window.viewport->toolMode, Viewport::SelectTool);

    // A key press alone does nothing: shortcuts act on release.
    QKeyEvent press(QEvent::KeyPress, Qt::Key_R, Qt::NoModifier);
    QApplication::sendEvent(&window, &press);
    EXPECT_EQ(window.viewport->toolMode, Viewport::SelectTool);
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
    EXPECT_EQ(window.attributeEditor->nameWidget->text(), "Hips");

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
    // Room for the viewport beside the attribute rows of a body.
    window.resize(1000, 700);
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
    EXPECT_EQ(window.attributeEditor->nameWidget->text(), "Body");
    EXPECT_EQ(bodyPixels(), 0);
    EXPECT_GT(countPixels(window.viewport->grabFramebuffer(), isYellow), filled * 8 / 10);

    releaseKey(window, Qt::Key_Z, Qt::ControlModifier);
    EXPECT_TRUE(window.sceneGraph.selectedPaths().empty());
    EXPECT_TRUE(window.outliner->selectedNames().empty());
    EXPECT_TRUE(window.attributeEditor->findChild<QLineEdit*>("nameWidget")->text().isEmpty());
    EXPECT_EQ(bodyPixels(), filled);
}
