#include "ZentoRagdollBuilder.h"

#include "AboutDialog.h"
#include "DeleteNodesCommand.h"
#include "Outliner.h"
#include "SelectionCommand.h"
#include "Viewport.h"

#include <QActionGroup>
#include <QApplication>
#include <QDebug>
#include <QDockWidget>
#include <QDoubleSpinBox>
#include <QKeyEvent>
#include <QLabel>
#include <QLineEdit>
#include <QMenuBar>
#include <QStatusBar>
#include <QToolBar>
#include <QVBoxLayout>

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
    menuFile->setTitle(translate("File"));
    menuEdit->setTitle(translate("Edit"));
    menuHelp->setTitle(translate("Help"));
    menuCreate->setTitle(translate("Create"));
    menuLoad->setTitle(translate("Load"));
    menuExport->setTitle(translate("Export"));
    menuView->setTitle(translate("View"));
}

ZentoRagdollBuilder::ZentoRagdollBuilder(QWidget* parent) : QMainWindow(parent)
{
    ui.setupUi(this);

    viewport = new Viewport(this);
    viewport->setSceneGraph(&sceneGraph);

    outliner = new Outliner(this);
    addDockWidget(Qt::LeftDockWidgetArea, outliner);
    attributeEditor = new QDockWidget("Attributes", this);
    attributeEditor->setObjectName("AttributeEditor");
    attributeEditor->setFeatures(QDockWidget::DockWidgetMovable | QDockWidget::DockWidgetFloatable);
    auto* attributePanel = new QWidget(attributeEditor);
    auto* attributeLayout = new QVBoxLayout(attributePanel);
    mAttributeNodeName = new QLineEdit(attributePanel);
    mAttributeNodeName->setObjectName("nameWidget");
    mAttributeNodeName->setReadOnly(true);
    attributeLayout->addWidget(mAttributeNodeName);
    attributeLayout->addStretch();
    attributeEditor->setWidget(attributePanel);
    addDockWidget(Qt::RightDockWidgetArea, attributeEditor);

    installEventFilter(this);
    setCentralWidget(viewport);
    ui.centralWidget = viewport;

    connect(viewport, SIGNAL(drawCompletedTime(int)), this, SLOT(updatedBarMsg(int)));
    connect(outliner, SIGNAL(selectionUpdated()), this, SLOT(outlineSelectionChanged()));
    connect(ui.actionAbout, SIGNAL(triggered()), this, SLOT(openAbout()));
    for (QAction* view : {ui.actionViewMesh, ui.actionViewRigidBodies, ui.actionViewConstraints, ui.actionViewSkeleton})
        connect(view, SIGNAL(triggered()), this, SLOT(viewAttributesChanged()));

    ui.mainToolBar->setMovable(false);
    fillMainToolBar();
    connect(ui.mainToolBar, SIGNAL(actionTriggered(QAction*)), this, SLOT(toolbarActionTriggered(QAction*)));

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

    if ((key == Qt::Key_Z || key == Qt::Key_Y) && modifiers == Qt::ControlModifier) {
        if (key == Qt::Key_Z)
            commandStack.undo();
        else
            commandStack.redo();
        updateSelection();
        updateNodeList();
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
    if ((key == Qt::Key_Delete || key == Qt::Key_Cancel) && (viewport->underMouse() || outliner->underMouse())) {
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

void ZentoRagdollBuilder::updatedBarMsg(int value)
{
    statusBar()->showMessage(QString::number(value) + " ms");
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
    viewport->updateGL();
    if (selection.empty())
        mAttributeNodeName->clear();
    else
        updateAttributeEditor(selection.front());
}

void ZentoRagdollBuilder::updateAttributeEditor(std::string nodeName)
{
    if (const std::shared_ptr<BaseNode> node = sceneGraph.node(nodeName))
        mAttributeNodeName->setText(QString::fromStdString(node->path.string()));
    else
        mAttributeNodeName->clear();
}

void ZentoRagdollBuilder::toolbarActionTriggered(QAction* action)
{
    qDebug() << action->text();
    if (syncingToolbar)
        return;
    for (const WireframeSwitch& wireframe : kWireframeSwitches) {
        if (action->text() == wireframe.text) {
            sceneGraph.*wireframe.flag = action->isChecked();
            viewport->updateGL();
        }
    }
    for (const ToolKey& tool : kToolKeys) {
        if (action->text() == tool.text) {
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
