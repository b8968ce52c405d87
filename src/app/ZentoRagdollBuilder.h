#pragma once

#include "Authoring.h"
#include "CommandStack.h"
#include "Dialogs.h"
#include "FramePacer.h"
#include "ZentoSceneGraph.h"

#include <QMainWindow>
#include <QPointer>
#include <QTimer>

#include <memory>
#include <string>

class AttributeEditor;
class BaseCommand;
class Outliner;
class QAction;
class QActionGroup;
class QDockWidget;
class QDoubleSpinBox;
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
    AttributeEditor* attributeEditor = nullptr;
    ZentoSceneGraph sceneGraph;
    CommandStack commandStack;
    QDoubleSpinBox* jointSizeSpinBox = nullptr;
    // Fires as often as the event loop is free while "Simulate" is checked;
    // the pacer holds the frames to 30 a second.
    QTimer playbackTimer;
    FramePacer pacer;
    // The attributes of the last copy; it outlives a new scene.
    Authoring::Clipboard clipboard;
    // Where the window asks for file names and answers; tests put their own in.
    std::unique_ptr<Dialogs> dialogs;
    QToolBar* viewportToolBar = nullptr;
    QAction* selectAction = nullptr;
    QAction* translateAction = nullptr;
    QAction* rotateAction = nullptr;
    QAction* scaleAction = nullptr;
    // True while the key filter checks a tool action, so that the tool bar does not act again.
    bool syncingToolbar = false;

    // How long the status bar shows why an import brought nothing, in milliseconds.
    static constexpr int kImportMessageMilliseconds = 6000;

public slots:
    void openFile();
    void newFile();
    bool saveFile();
    void updatedBarMsg(int value);
    void viewSelectionUpdated();
    void outlineSelectionChanged();
    void updateSelection();
    void updateAttributeEditor(std::string nodeName);
    void refreshTransformAttributeEditor();
    void attributeEditorTransformUpdated();
    // Pushes the oldest command of a finished manipulator drag.
    void executeViewportCommand();
    void nodeStateUpdated();
    void nodeAttributesUpdated();
    void toolbarActionTriggered(QAction* action);
    void updateNodeList();
    void refreshViewport();
    void advanceFrameForPlayback();
    void jointSizeChanged(double size);
    void createRigidBody();
    void createConstraint();
    void createPropConstraint();
    void loadSkeleton();
    void loadMesh();
    void loadRagdoll();
    void exportRagdoll();
    void openAbout();
    void createGround();
    void copyAttributes();
    void pasteDynamicAttributes();
    void pasteDriveAtttributes();
    void pasteAttributes();
    void viewAttributesChanged();
    void hideSelected();
    void unhideSelected();
    void updateOutlineVisibility();

private:
    void fillMainToolBar();
    void createViewportToolBar();
    // The file the user picks to open, or empty when it does not exist (after Cancel).
    QString askExistingFile(const QString& title, const QString& filter);
    // The name to save under, with the extension added when missing; empty after Cancel.
    QString askSaveName(const QString& title, const QString& filter, const QString& extension);
    // Brings the new rows of an import into the outliner, or says in the status
    // bar why nothing came.
    void showImport(const std::vector<std::string>& paths, const std::string& error);
    // Pushes a command the model built, when it built one.
    bool push(const std::shared_ptr<BaseCommand>& command);
    // Selects what a creation made and brings every widget up to date.
    void showCreated(const std::vector<std::string>& paths);
    void paste(Authoring::PasteFilter filter);
    void setSelectedVisible(bool visible);
    void undoOrRedo(bool undo);
    void startPlayback(bool start);
    // The first selected name, where the attribute editor's edits go; empty for none.
    std::string editedNode() const;
};
