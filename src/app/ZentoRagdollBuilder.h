#pragma once

#include "CommandStack.h"
#include "ZentoSceneGraph.h"

#include <QMainWindow>
#include <QPointer>

#include <string>

class Outliner;
class QAction;
class QActionGroup;
class QDockWidget;
class QDoubleSpinBox;
class QLineEdit;
class QMenu;
class QMenuBar;
class QStatusBar;
class QToolBar;
class Viewport;

// The form of the main window: its actions, menus and bars, built in code.
struct Ui_ZentoRagdollBuilderClass {
    QAction* actionNew = nullptr;
    QAction* actionLoadScene = nullptr;
    QAction* actionSaveScene = nullptr;
    QAction* actionCopyAttributes = nullptr;
    QAction* actionPaste = nullptr;
    QAction* actionPasteDynamicAttributes = nullptr;
    QAction* actionPasteDriveAtttributes = nullptr;
    QAction* actionAbout = nullptr;
    QAction* actionCreateRigidBody = nullptr;
    QAction* actionCreateConstraint = nullptr;
    QAction* actionCreatePropConstraint = nullptr;
    QAction* actionLoadSkeleton = nullptr;
    QAction* actionLoadMesh = nullptr;
    QAction* actionLoadRagdoll = nullptr;
    QAction* actionExportRagdoll = nullptr;
    QAction* actionCreateGround = nullptr;
    QAction* actionViewMesh = nullptr;
    QAction* actionViewRigidBodies = nullptr;
    QAction* actionViewConstraints = nullptr;
    QAction* actionViewSkeleton = nullptr;
    QAction* actionHideSelected = nullptr;
    QAction* actionUnhideSelected = nullptr;
    QWidget* centralWidget = nullptr;
    QMenuBar* menuBar = nullptr;
    QMenu* menuFile = nullptr;
    QMenu* menuEdit = nullptr;
    QMenu* menuHelp = nullptr;
    QMenu* menuCreate = nullptr;
    QMenu* menuLoad = nullptr;
    QMenu* menuExport = nullptr;
    QMenu* menuView = nullptr;
    QToolBar* mainToolBar = nullptr;
    QStatusBar* statusBar = nullptr;

    void setupUi(QMainWindow* window);
    void retranslateUi(QMainWindow* window);
};

// The one main window. It owns the scene and the history, and passes every
// change between viewport, outliner and attribute editor, which never call
// each other.
class ZentoRagdollBuilder : public QMainWindow {
    Q_OBJECT

public:
    explicit ZentoRagdollBuilder(QWidget* parent = nullptr);
    ~ZentoRagdollBuilder() override;

    bool eventFilter(QObject* watched, QEvent* event) override;

    Ui_ZentoRagdollBuilderClass ui;
    // Guarded, since replacing the central widget deletes it.
    QPointer<Viewport> viewport;
    Outliner* outliner = nullptr;
    // An empty dock until the attribute rows come; it shows the node's name.
    QDockWidget* attributeEditor = nullptr;
    ZentoSceneGraph sceneGraph;
    CommandStack commandStack;
    QDoubleSpinBox* jointSizeSpinBox = nullptr;
    QToolBar* viewportToolBar = nullptr;
    QAction* selectAction = nullptr;
    QAction* translateAction = nullptr;
    QAction* rotateAction = nullptr;
    QAction* scaleAction = nullptr;
    // True while the key filter checks a tool action, so that the tool bar does not act again.
    bool syncingToolbar = false;

private slots:
    void updatedBarMsg(int value);
    void outlineSelectionChanged();
    void updateSelection();
    void updateAttributeEditor(std::string nodeName);
    void toolbarActionTriggered(QAction* action);
    void updateNodeList();
    void jointSizeChanged(double size);
    void openAbout();
    void viewAttributesChanged();
    void updateOutlineVisibility();

private:
    void fillMainToolBar();
    void createViewportToolBar();

    QLineEdit* mAttributeNodeName = nullptr;
};
