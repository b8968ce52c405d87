#include "ZentoRagdollBuilder.h"

#include "AboutDialog.h"
#include "AttributeEditor.h"
#include "ChangeAttributesCommand.h"
#include "ChangeStateCommand.h"
#include "CharacterImport.h"
#include "CreateNodesCommand.h"
#include "DeleteNodesCommand.h"
#include "MultiCommand.h"
#include "Outliner.h"
#include "RagdollFile.h"
#include "SceneFile.h"
#include "SelectionCommand.h"
#include "TransformCommand.h"
#include "Viewport.h"

#include <QActionGroup>
#include <QApplication>
#include <QDebug>
#include <QDockWidget>
#include <QDoubleSpinBox>
#include <QFileInfo>
#include <QKeyEvent>
#include <QLabel>
#include <QMenuBar>
#include <QStatusBar>
#include <QToolBar>

#include <algorithm>
#include <unordered_set>

namespace {

const QString kIconPath = ":/ZentoRagdollBuilder/Resources/";

struct ActionEntry {
    QAction* Ui_ZentoRagdollBuilderClass::*member;
    const char* objectName;
    const char* text;
    const char* shortcut; // empty for none
    bool checkable;       // the View switches: checkable and checked
};

const ActionEntry kActions[] = {
    {&Ui_ZentoRagdollBuilderClass::actionNew, "actionNew", "New", "Ctrl+N", false},
    {&Ui_ZentoRagdollBuilderClass::actionLoadScene, "actionLoadScene", "Load Scene", "Ctrl+O", false},
    {&Ui_ZentoRagdollBuilderClass::actionSaveScene, "actionSaveScene", "Save Scene", "Ctrl+S", false},
    {&Ui_ZentoRagdollBuilderClass::actionCopyAttributes, "actionCopyAttributes", "Copy Attributes", "Ctrl+C", false},
    {&Ui_ZentoRagdollBuilderClass::actionPaste, "actionPaste", "Paste Attributes", "Ctrl+V", false},
    {&Ui_ZentoRagdollBuilderClass::actionPasteDynamicAttributes, "actionPasteDynamicAttributes",
     "Paste Dynamic Attributes", "", false},
    {&Ui_ZentoRagdollBuilderClass::actionPasteDriveAtttributes, "actionPasteDriveAtttributes",
     "Paste Drive Atttributes", "", false},
    {&Ui_ZentoRagdollBuilderClass::actionAbout, "actionAbout", "About", "", false},
    {&Ui_ZentoRagdollBuilderClass::actionCreateRigidBody, "actionCreateRigidBody", "Rigid Body", "", false},
    {&Ui_ZentoRagdollBuilderClass::actionCreateConstraint, "actionCreateConstraint", "Constraint", "", false},
    {&Ui_ZentoRagdollBuilderClass::actionCreatePropConstraint, "actionCreatePropConstraint", "Prop Constraint", "",
     false},
    {&Ui_ZentoRagdollBuilderClass::actionLoadSkeleton, "actionLoadSkeleton", "Load Skeleton", "", false},
    {&Ui_ZentoRagdollBuilderClass::actionLoadMesh, "actionLoadMesh", "Load Mesh", "", false},
    {&Ui_ZentoRagdollBuilderClass::actionLoadRagdoll, "actionLoadRagdoll", "Load Ragdoll", "", false},
    {&Ui_ZentoRagdollBuilderClass::actionExportRagdoll, "actionExportRagdoll", "Export Ragdoll", "", false},
    {&Ui_ZentoRagdollBuilderClass::actionCreateGround, "actionCreateGround", "Ground", "", false},
    {&Ui_ZentoRagdollBuilderClass::actionViewMesh, "actionViewMesh", "Mesh", "", true},
    {&Ui_ZentoRagdollBuilderClass::actionViewRigidBodies, "actionViewRigidBodies", "Rigid Bodies", "", true},
    {&Ui_ZentoRagdollBuilderClass::actionViewConstraints, "actionViewConstraints", "Constraints", "", true},
    {&Ui_ZentoRagdollBuilderClass::actionViewSkeleton, "actionViewSkeleton", "Skeleton", "", true},
    {&Ui_ZentoRagdollBuilderClass::actionHideSelected, "actionHideSelected", "Hide Selected", "", false},
    {&Ui_ZentoRagdollBuilderClass::actionUnhideSelected, "actionUnhideSelected", "Unhide Selected", "", false},
};

QString translate(const char* text)
{
    return QCoreApplication::translate("ZentoRagdollBuilderClass", text, nullptr);
}

// The main tool bar in order; an entry without text is a separator.
struct ToolEntry {
    const char* text;
    const char* icon;
    bool checkable;
};

const ToolEntry kMainTools[] = {
    {"New Scene", "new_scene.png", false},
    {"Load Scene", "load_scene.png", false},
    {"Save Scene", "save_scene.png", false},
    {nullptr, nullptr, false},
    {"Load Skeleton", "load_skeleton.png", false},
    {"Load Mesh", "load_mesh.png", false},
    {"Load Ragdoll", "load_ragdoll.png", false},
    {nullptr, nullptr, false},
    {"Export ragdoll", "export_ragdoll.png", false},
    {nullptr, nullptr, false},
    {"Create RigidBody", "create_rigid_body.png", false},
    {"Create Constraint", "create_constraint.png", false},
    {"Create Prop Constraint", "create_prop_constraint.png", false},
    {"Create Ground", "create_ground.png", false},
    {nullptr, nullptr, false},
    {"Wireframe Mesh", "mesh_wireframe.png", true},
    {"Wireframe Rigid Body", "rigidbody_wireframe.png", true},
    {"Wireframe Constraint", "constraint_wireframe.png", true},
    {nullptr, nullptr, false},
    {"Simulate", "simulate.png", true},
};

// The tool actions and the key that the viewport takes for each.
struct ToolKey {
    const char* text;
    Qt::Key key;
};

const ToolKey kToolKeys[] = {
    {"Select (Q)", Qt::Key_Q},
    {"Translate (W)", Qt::Key_W},
    {"Rotate (R)", Qt::Key_R},
    {"Scale (E)", Qt::Key_E},
};

// The tool bar's switches between shaded and wire drawing of one type of node.
struct WireframeSwitch {
    const char* text;
    bool ZentoSceneGraph::*flag;
};

const WireframeSwitch kWireframeSwitches[] = {
    {"Wireframe Mesh", &ZentoSceneGraph::meshWireframe},
    {"Wireframe Rigid Body", &ZentoSceneGraph::rigidBodyWireframe},
    {"Wireframe Constraint", &ZentoSceneGraph::constraintWireframe},
};

bool isToolKey(int key)
{
    static const int keys[] = {Qt::Key_1, Qt::Key_2, Qt::Key_3, Qt::Key_4, Qt::Key_E,
                               Qt::Key_F, Qt::Key_H, Qt::Key_Q, Qt::Key_R, Qt::Key_W};
    return std::find(std::begin(keys), std::end(keys), key) != std::end(keys);
}

} // namespace

void Ui_ZentoRagdollBuilderClass::setupUi(QMainWindow* window)
{
    if (window->objectName().isEmpty())
        window->setObjectName("ZentoRagdollBuilderClass");
    window->resize(600, 400);
    window->setWindowIcon(QIcon(kIconPath + "logo_new.png"));
    window->setStyleSheet(QString());
    for (const ActionEntry& entry : kActions) {
        QAction* action = new QAction(window);
        action->setObjectName(entry.objectName);
        if (entry.checkable) {
            action->setCheckable(true);
            action->setChecked(true);
        }
        this->*entry.member = action;
    }
    centralWidget = new QWidget(window);
    centralWidget->setObjectName("centralWidget");
    window->setCentralWidget(centralWidget);
    menuBar = new QMenuBar(window);
    menuBar->setObjectName("menuBar");
    menuBar->setGeometry(QRect(0, 0, 600, 21));
    const auto makeMenu = [this](const char* name) {
        QMenu* menu = new QMenu(menuBar);
        menu->setObjectName(name);
        return menu;
    };
    menuFile = makeMenu("menuFile");
    menuEdit = makeMenu("menuEdit");
    menuHelp = makeMenu("menuHelp");
    menuCreate = makeMenu("menuCreate");
    menuLoad = makeMenu("menuLoad");
    menuExport = makeMenu("menuExport");
    menuView = makeMenu("menuView");
    window->setMenuBar(menuBar);
    mainToolBar = new QToolBar(window);
    mainToolBar->setObjectName("mainToolBar");
    mainToolBar->setAccessibleName("Main tool bar");
    window->addToolBar(Qt::TopToolBarArea, mainToolBar);
    statusBar = new QStatusBar(window);
    statusBar->setObjectName("statusBar");
    window->setStatusBar(statusBar);

    for (QMenu* menu : {menuFile, menuEdit, menuCreate, menuLoad, menuExport, menuView, menuHelp})
        menuBar->addAction(menu->menuAction());
    menuFile->addActions({actionNew, actionLoadScene, actionSaveScene});
    menuEdit->addActions({actionCopyAttributes, actionPasteDynamicAttributes, actionPasteDriveAtttributes, actionPaste});
    menuCreate->addActions({actionCreateRigidBody, actionCreateConstraint, actionCreatePropConstraint,
                            actionCreateGround});
    menuLoad->addActions({actionLoadSkeleton, actionLoadMesh, actionLoadRagdoll});
    menuExport->addAction(actionExportRagdoll);
    menuView->addActions({actionViewMesh, actionViewRigidBodies, actionViewConstraints, actionViewSkeleton});
    menuView->addSeparator();
    menuView->addActions({actionHideSelected, actionUnhideSelected});
    menuHelp->addAction(actionAbout);

    retranslateUi(window);
    QMetaObject::connectSlotsByName(window);
}

void Ui_ZentoRagdollBuilderClass::retranslateUi(QMainWindow* window)
{
    window->setWindowTitle(translate("Zento Ragdoll Builder"));
    for (const ActionEntry& entry : kActions) {
        QAction* action = this->*entry.member;
        action->setText(translate(entry.text));
        if (*entry.shortcut)
            action->setShortcut(QKeySequence(translate(entry.shortcut)));
    }
    // The title names the bar in the tool bars' context menu.
    mainToolBar->setWindowTitle(translate("Main Tool Bar"));
    menuFile->setTitle(translate("File"));
    menuEdit->setTitle(translate("Edit"));
    menuHelp->setTitle(translate("Help"));
    menuCreate->setTitle(translate("Create"));
    menuLoad->setTitle(translate("Load"));
    menuExport->setTitle(translate("Export"));
    menuView->setTitle(translate("View"));
}

ZentoRagdollBuilder::ZentoRagdollBuilder(QWidget* parent) : QMainWindow(parent), dialogs(std::make_unique<Dialogs>())
{
    ui.setupUi(this);

    viewport = new Viewport(this);
    viewport->setSceneGraph(&sceneGraph);

    outliner = new Outliner(this);
    addDockWidget(Qt::LeftDockWidgetArea, outliner);
    attributeEditor = new AttributeEditor(this);
    addDockWidget(Qt::RightDockWidgetArea, attributeEditor);

    installEventFilter(this);
    setCentralWidget(viewport);
    ui.centralWidget = viewport;

    connect(ui.actionNew, SIGNAL(triggered()), this, SLOT(newFile()));
    connect(ui.actionLoadScene, SIGNAL(triggered()), this, SLOT(openFile()));
    connect(ui.actionSaveScene, SIGNAL(triggered()), this, SLOT(saveFile()));
    connect(viewport, SIGNAL(drawCompletedTime(int)), this, SLOT(updatedBarMsg(int)));
    connect(viewport, SIGNAL(selectionUpdated()), this, SLOT(viewSelectionUpdated()));
    connect(viewport, SIGNAL(transformUpdated()), this, SLOT(refreshTransformAttributeEditor()));
    connect(viewport, SIGNAL(executeCommand()), this, SLOT(executeViewportCommand()));
    connect(outliner, SIGNAL(selectionUpdated()), this, SLOT(outlineSelectionChanged()));
    connect(attributeEditor, SIGNAL(updateTransform()), this, SLOT(attributeEditorTransformUpdated()));
    connect(attributeEditor, SIGNAL(updateState()), this, SLOT(nodeStateUpdated()));
    connect(attributeEditor, SIGNAL(updateAttributes()), this, SLOT(nodeAttributesUpdated()));
    connect(ui.actionCreateRigidBody, SIGNAL(triggered()), this, SLOT(createRigidBody()));
    connect(ui.actionCreateConstraint, SIGNAL(triggered()), this, SLOT(createConstraint()));
    connect(ui.actionCreatePropConstraint, SIGNAL(triggered()), this, SLOT(createPropConstraint()));
    connect(ui.actionLoadSkeleton, SIGNAL(triggered()), this, SLOT(loadSkeleton()));
    connect(ui.actionLoadMesh, SIGNAL(triggered()), this, SLOT(loadMesh()));
    connect(ui.actionLoadRagdoll, SIGNAL(triggered()), this, SLOT(loadRagdoll()));
    connect(ui.actionExportRagdoll, SIGNAL(triggered()), this, SLOT(exportRagdoll()));
    connect(ui.actionAbout, SIGNAL(triggered()), this, SLOT(openAbout()));
    connect(ui.actionCreateGround, SIGNAL(triggered()), this, SLOT(createGround()));
    connect(ui.actionCopyAttributes, SIGNAL(triggered()), this, SLOT(copyAttributes()));
    connect(ui.actionPasteDynamicAttributes, SIGNAL(triggered()), this, SLOT(pasteDynamicAttributes()));
    connect(ui.actionPasteDriveAtttributes, SIGNAL(triggered()), this, SLOT(pasteDriveAtttributes()));
    connect(ui.actionPaste, SIGNAL(triggered()), this, SLOT(pasteAttributes()));
    for (QAction* view : {ui.actionViewMesh, ui.actionViewRigidBodies, ui.actionViewConstraints, ui.actionViewSkeleton})
        connect(view, SIGNAL(triggered()), this, SLOT(viewAttributesChanged()));
    connect(ui.actionHideSelected, SIGNAL(triggered()), this, SLOT(hideSelected()));
    connect(ui.actionUnhideSelected, SIGNAL(triggered()), this, SLOT(unhideSelected()));

    ui.mainToolBar->setMovable(false);
    fillMainToolBar();
    playbackTimer.setInterval(0);
    connect(ui.mainToolBar, SIGNAL(actionTriggered(QAction*)), this, SLOT(toolbarActionTriggered(QAction*)));
    connect(&playbackTimer, &QTimer::timeout, this, &ZentoRagdollBuilder::advanceFrameForPlayback);

    updateNodeList();

    statusBar()->addPermanentWidget(new QLabel("Joint Size:", statusBar()));
    jointSizeSpinBox = new QDoubleSpinBox(statusBar());
    jointSizeSpinBox->setMinimum(0.0);
    jointSizeSpinBox->setMaximum(10000.0);
    jointSizeSpinBox->setValue(1.0);
    statusBar()->addPermanentWidget(jointSizeSpinBox);
    connect(jointSizeSpinBox, SIGNAL(valueChanged(double)), this, SLOT(jointSizeChanged(double)));

    createViewportToolBar();
}

ZentoRagdollBuilder::~ZentoRagdollBuilder()
{
    // The viewport's GL objects go first, while the scene they mirror still lives.
    delete viewport.data();
}

void ZentoRagdollBuilder::fillMainToolBar()
{
    for (const ToolEntry& entry : kMainTools) {
        if (!entry.text) {
            ui.mainToolBar->addSeparator();
            continue;
        }
        QAction* action = new QAction(QIcon(kIconPath + entry.icon), entry.text, this);
        action->setCheckable(entry.checkable);
        ui.mainToolBar->addAction(action);
    }
}

void ZentoRagdollBuilder::createViewportToolBar()
{
    viewportToolBar = new QToolBar("ViewportToolBar", this);
    addToolBar(Qt::LeftToolBarArea, viewportToolBar);
    viewportToolBar->setMovable(false);
    viewportToolBar->setFloatable(false);
    auto* group = new QActionGroup(this);
    group->setExclusive(true);
    const auto makeTool = [&](const char* text, const char* icon) {
        QAction* action = new QAction(QIcon(kIconPath + icon), text, group);
        action->setCheckable(true);
        return action;
    };
    selectAction = makeTool("Select (Q)", "select.png");
    translateAction = makeTool("Translate (W)", "translate.png");
    rotateAction = makeTool("Rotate (R)", "rotate.png");
    scaleAction = makeTool("Scale (E)", "scale.png");
    selectAction->setChecked(true);
    viewportToolBar->addActions({selectAction, translateAction, scaleAction, rotateAction});
    syncingToolbar = false;
    connect(viewportToolBar, SIGNAL(actionTriggered(QAction*)), this, SLOT(toolbarActionTriggered(QAction*)));
}

bool ZentoRagdollBuilder::eventFilter(QObject* watched, QEvent* event)
{
    if (event->type() != QEvent::KeyRelease)
        return QObject::eventFilter(watched, event);
    auto* keyEvent = static_cast<QKeyEvent*>(event);
    const int key = keyEvent->key();
    const Qt::KeyboardModifiers modifiers = keyEvent->modifiers();
    const bool overScene = viewport->underMouse() || outliner->underMouse();

    if ((key == Qt::Key_Z || key == Qt::Key_Y) && modifiers == Qt::ControlModifier) {
        undoOrRedo(key == Qt::Key_Z);
        return true;
    }
    if (key == Qt::Key_H && (modifiers == Qt::ControlModifier || modifiers == Qt::ShiftModifier)) {
        setSelectedVisible(modifiers == Qt::ShiftModifier);
        updateOutlineVisibility();
        return true;
    }
    if (isToolKey(key) && !attributeEditor->underMouse()) {
        syncingToolbar = true;
        if (key == Qt::Key_Q)
            selectAction->setChecked(true);
        else if (key == Qt::Key_W)
            translateAction->setChecked(true);
        else if (key == Qt::Key_E)
            scaleAction->setChecked(true);
        else if (key == Qt::Key_R)
            rotateAction->setChecked(true);
        syncingToolbar = false;
        viewport->keyPressEvent(keyEvent);
        return true;
    }
    if ((key == Qt::Key_C || key == Qt::Key_V) && modifiers == Qt::ControlModifier && overScene) {
        if (key == Qt::Key_C)
            copyAttributes();
        else
            pasteAttributes();
        return true;
    }
    if ((key == Qt::Key_Delete || key == Qt::Key_Cancel) && overScene) {
        const std::vector<std::string> selected = sceneGraph.selectedPaths();
        if (!selected.empty()) {
            commandStack.push(std::make_shared<DeleteNodesCommand>(&sceneGraph, selected));
            updateNodeList();
            viewport->updateGL();
        }
        return true;
    }
    return QObject::eventFilter(watched, event);
}

void ZentoRagdollBuilder::undoOrRedo(bool undo)
{
    if (undo)
        commandStack.undo();
    else
        commandStack.redo();
    updateSelection();
    updateNodeList();
    updateOutlineVisibility();
}

QString ZentoRagdollBuilder::askExistingFile(const QString& title, const QString& filter)
{
    const QString file = dialogs->openFileName(this, title, filter);
    return QFileInfo::exists(file) ? file : QString();
}

QString ZentoRagdollBuilder::askSaveName(const QString& title, const QString& filter, const QString& extension)
{
    QString file = dialogs->saveFileName(this, title, filter);
    // Case-sensitive: "ragdoll.ZENTO" gets the extension all the same.
    if (!file.isEmpty() && !file.endsWith(extension))
        file += extension;
    return file;
}

void ZentoRagdollBuilder::newFile()
{
    if (dialogs->askYesNo(this, tr("Warning: Scene not saved"), tr("Save changes to current scene")) && !saveFile())
        return;
    sceneGraph.removeNodes(sceneGraph.nodePaths());
    sceneGraph.createSolver();
    updateNodeList();
    updateSelection();
    viewport->homeCamera();
    viewport->updateGL();
}

void ZentoRagdollBuilder::openFile()
{
    const QString file = askExistingFile(tr("Open Zento Scene"), tr("Zento (*.zento)"));
    if (file.isEmpty())
        return;
    std::string error;
    if (!SceneFile::load(sceneGraph, file.toStdString(), &error))
        dialogs->critical(this, tr("Error"), tr("Unable to open the scene!") + "\n" + QString::fromStdString(error));
    updateNodeList();
    viewport->frameAll();
    viewport->updateGL();
}

bool ZentoRagdollBuilder::saveFile()
{
    const QString file = askSaveName(tr("Save Scene"), tr("Zento (*.zento)"), ".zento");
    if (file.isEmpty())
        return false;
    if (!SceneFile::save(sceneGraph, file.toStdString())) {
        dialogs->critical(this, tr("Error"), tr("Scene not saved!"));
        return false;
    }
    dialogs->information(this, tr("Saved"), tr("The file has been saved."));
    return true;
}

void ZentoRagdollBuilder::showImport(const std::vector<std::string>& paths, const std::string& error)
{
    if (paths.empty())
        statusBar()->showMessage(QString::fromStdString(error), kImportMessageMilliseconds);
    outliner->addNodes(paths);
    viewport->updateGL();
}

void ZentoRagdollBuilder::loadSkeleton()
{
    const QString file = askExistingFile(
        tr("Open Zento Skeleton"),
        tr("Zento Skeleton (%1)").arg(QString::fromStdString(CharacterImport::skeletonFilePatterns())));
    if (file.isEmpty())
        return;
    std::string error;
    showImport(CharacterImport::loadSkeleton(sceneGraph, file.toStdString(), &error), error);
}

void ZentoRagdollBuilder::loadMesh()
{
    const QString file = askExistingFile(
        tr("Open Zento Mesh"), tr("Zento Mesh (%1)").arg(QString::fromStdString(CharacterImport::meshFilePatterns())));
    if (file.isEmpty())
        return;
    std::string error;
    showImport(CharacterImport::loadMesh(sceneGraph, file.toStdString(), &error), error);
}

void ZentoRagdollBuilder::loadRagdoll()
{
    const QString file = askExistingFile(tr("Open Zento Ragdoll"), tr("Zento Ragdoll (*.zentoragdoll)"));
    if (file.isEmpty())
        return;
    std::string error;
    showImport(RagdollFile::loadRagdoll(sceneGraph, file.toStdString(), &error), error);
}

void ZentoRagdollBuilder::exportRagdoll()
{
    const QString file =
        askSaveName(tr("Save Zento Ragdoll"), tr("Zento Ragdoll (*.zentoragdoll)"), ".zentoragdoll");
    if (file.isEmpty())
        return;
    if (RagdollFile::exportRagdoll(sceneGraph, file.toStdString()))
        dialogs->information(this, tr("Saved"), tr("The file has been saved."));
    else
        dialogs->critical(this, tr("Error"), tr("Zento ragdoll not saved!"));
}

bool ZentoRagdollBuilder::push(const std::shared_ptr<BaseCommand>& command)
{
    if (!command)
        return false;
    commandStack.push(command);
    return true;
}

void ZentoRagdollBuilder::showCreated(const std::vector<std::string>& paths)
{
    sceneGraph.setSelection(paths);
    updateNodeList();
    updateSelection();
    viewport->updateGL();
}

void ZentoRagdollBuilder::createRigidBody()
{
    std::vector<std::string> made;
    // An empty command too: the selection is replaced whenever something was selected.
    if (push(Authoring::createRigidBodies(sceneGraph, sceneGraph.selectedPaths(), made)))
        showCreated(made);
}

void ZentoRagdollBuilder::createConstraint()
{
    std::vector<std::string> made;
    if (push(Authoring::createConstraints(sceneGraph, sceneGraph.selectedPaths(), made)))
        showCreated(made);
}

void ZentoRagdollBuilder::createPropConstraint()
{
    std::vector<std::string> made;
    if (push(Authoring::createPropConstraint(sceneGraph, sceneGraph.selectedPaths(), made)))
        showCreated(made);
}

void ZentoRagdollBuilder::createGround()
{
    const std::vector<std::string> names = sceneGraph.createGround();
    outliner->addNodes(names);
    sceneGraph.setSelection(names);
    updateSelection();
    viewport->updateGL();
}

void ZentoRagdollBuilder::copyAttributes()
{
    Authoring::copyAttributes(sceneGraph, sceneGraph.selectedPaths(), clipboard);
}

void ZentoRagdollBuilder::paste(Authoring::PasteFilter filter)
{
    push(Authoring::pasteAttributes(sceneGraph, sceneGraph.selectedPaths(), clipboard, filter));
    updateSelection();
    viewport->updateGL();
}

void ZentoRagdollBuilder::pasteAttributes()
{
    paste(Authoring::PasteFilter::All);
}

void ZentoRagdollBuilder::pasteDynamicAttributes()
{
    paste(Authoring::PasteFilter::Dynamics);
}

void ZentoRagdollBuilder::pasteDriveAtttributes()
{
    paste(Authoring::PasteFilter::Drives);
}

void ZentoRagdollBuilder::setSelectedVisible(bool visible)
{
    push(Authoring::setVisible(sceneGraph, sceneGraph.selectedPaths(), visible));
    updateOutlineVisibility();
    viewport->updateGL();
}

void ZentoRagdollBuilder::hideSelected()
{
    setSelectedVisible(false);
}

void ZentoRagdollBuilder::unhideSelected()
{
    setSelectedVisible(true);
}

void ZentoRagdollBuilder::startPlayback(bool start)
{
    if (start) {
        sceneGraph.startSimulation();
        // The simulation clears the selection: the docks should not show the old one.
        updateSelection();
        pacer.start();
        playbackTimer.start();
    } else {
        playbackTimer.stop();
        sceneGraph.stopSimulation();
    }
    viewport->updateGL();
}

void ZentoRagdollBuilder::advanceFrameForPlayback()
{
    pacer.pace();
    sceneGraph.stepSimulation();
    viewport->updateGL();
}

void ZentoRagdollBuilder::refreshViewport()
{
    viewport->updateGL();
}

void ZentoRagdollBuilder::updatedBarMsg(int value)
{
    statusBar()->showMessage(QString::number(value) + " ms");
}

void ZentoRagdollBuilder::viewSelectionUpdated()
{
    commandStack.push(std::make_shared<SelectionCommand>(&sceneGraph, viewport->pickedNames));
    updateSelection();
}

void ZentoRagdollBuilder::outlineSelectionChanged()
{
    commandStack.push(std::make_shared<SelectionCommand>(&sceneGraph, outliner->selectedNames()));
    updateSelection();
}

void ZentoRagdollBuilder::updateSelection()
{
    const std::vector<std::string> selection = sceneGraph.selectedPaths();
    outliner->selectNodes(selection);
    viewport->setSelection(selection);
    viewport->updateGL();
    if (selection.empty())
        attributeEditor->clear();
    else
        updateAttributeEditor(selection.front());
}

void ZentoRagdollBuilder::updateAttributeEditor(std::string nodeName)
{
    if (const std::shared_ptr<BaseNode> node = sceneGraph.node(nodeName))
        attributeEditor->setNode(*node);
    else
        attributeEditor->clear();
}

std::string ZentoRagdollBuilder::editedNode() const
{
    const std::vector<std::string> selection = sceneGraph.selectedPaths();
    return selection.empty() ? std::string() : selection.front();
}

void ZentoRagdollBuilder::refreshTransformAttributeEditor()
{
    if (const std::shared_ptr<BaseNode> node = sceneGraph.node(editedNode()))
        attributeEditor->refreshTransform(*node);
}

void ZentoRagdollBuilder::attributeEditorTransformUpdated()
{
    const std::string name = editedNode();
    if (name.empty())
        return;
    commandStack.push(std::make_shared<TransformCommand>(&sceneGraph, name, attributeEditor->translate(),
                                                         attributeEditor->rotate(), attributeEditor->scale(),
                                                         attributeEditor->pivot()));
    // The handles follow the node to its new place.
    viewport->setSelection(sceneGraph.selectedPaths());
    viewport->updateGL();
}

void ZentoRagdollBuilder::executeViewportCommand()
{
    push(viewport->takeCommand());
}

void ZentoRagdollBuilder::nodeStateUpdated()
{
    const std::string name = editedNode();
    if (name.empty())
        return;
    commandStack.push(std::make_shared<ChangeStateCommand>(&sceneGraph, name, attributeEditor->isActiveChecked(),
                                                           attributeEditor->isVisibleChecked()));
    updateOutlineVisibility();
    viewport->updateGL();
}

void ZentoRagdollBuilder::nodeAttributesUpdated()
{
    const std::string name = editedNode();
    if (name.empty())
        return;
    commandStack.push(std::make_shared<ChangeAttributesCommand>(&sceneGraph, name, attributeEditor->attributes()));
    viewport->updateGL();
}

void ZentoRagdollBuilder::toolbarActionTriggered(QAction* action)
{
    qDebug() << action->text();
    if (syncingToolbar)
        return;
    // The main tool bar's own actions, by their text.
    static const std::pair<const char*, void (ZentoRagdollBuilder::*)()> kButtons[] = {
        {"New Scene", &ZentoRagdollBuilder::newFile},
        {"Load Scene", &ZentoRagdollBuilder::openFile},
        {"Load Skeleton", &ZentoRagdollBuilder::loadSkeleton},
        {"Load Mesh", &ZentoRagdollBuilder::loadMesh},
        {"Load Ragdoll", &ZentoRagdollBuilder::loadRagdoll},
        {"Export ragdoll", &ZentoRagdollBuilder::exportRagdoll},
        {"Create RigidBody", &ZentoRagdollBuilder::createRigidBody},
        {"Create Constraint", &ZentoRagdollBuilder::createConstraint},
        {"Create Prop Constraint", &ZentoRagdollBuilder::createPropConstraint},
        {"Create Ground", &ZentoRagdollBuilder::createGround},
    };
    const QString text = action->text();
    for (const auto& button : kButtons)
        if (text == button.first)
            (this->*button.second)();
    if (text == "Save Scene")
        saveFile();
    if (text == "Simulate")
        startPlayback(action->isChecked());
    for (const WireframeSwitch& wireframe : kWireframeSwitches) {
        if (text == wireframe.text) {
            sceneGraph.*wireframe.flag = action->isChecked();
            viewport->updateGL();
        }
    }
    for (const ToolKey& tool : kToolKeys) {
        if (text == tool.text) {
            QKeyEvent keyEvent(QEvent::KeyRelease, tool.key, Qt::NoModifier, QString(), false, 1);
            viewport->keyPressEvent(&keyEvent);
        }
    }
}

void ZentoRagdollBuilder::updateNodeList()
{
    const std::vector<std::string> scenePaths = sceneGraph.nodePaths();
    const std::unordered_set<std::string> inScene(scenePaths.begin(), scenePaths.end());
    const std::unordered_set<std::string> listed(outliner->names.begin(), outliner->names.end());
    std::vector<std::string> gone;
    for (const std::string& name : outliner->names)
        if (!inScene.count(name))
            gone.push_back(name);
    outliner->removeNodes(gone);
    std::vector<std::string> added;
    for (const std::string& path : scenePaths)
        if (!listed.count(path))
            added.push_back(path);
    outliner->addNodes(added);
}

void ZentoRagdollBuilder::jointSizeChanged(double size)
{
    sceneGraph.setDisplaySize(size);
    viewport->updateGL();
}

void ZentoRagdollBuilder::openAbout()
{
    // Parented to the window, which deletes it at the end.
    auto* dialog = new AboutDialog(this);
    dialog->exec();
}

void ZentoRagdollBuilder::viewAttributesChanged()
{
    sceneGraph.showMesh = ui.actionViewMesh->isChecked();
    sceneGraph.showRigidBodies = ui.actionViewRigidBodies->isChecked();
    sceneGraph.showConstraints = ui.actionViewConstraints->isChecked();
    sceneGraph.showSkeleton = ui.actionViewSkeleton->isChecked();
    viewport->updateGL();
}

void ZentoRagdollBuilder::updateOutlineVisibility()
{
    std::vector<std::string> hidden;
    for (const auto& entry : sceneGraph.nodes)
        if (!entry.second->visible)
            hidden.push_back(entry.first.string());
    outliner->markHidden(hidden);
}
