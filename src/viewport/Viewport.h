#pragma once

#include "DepthRange.h"
#include "DrawTarget.h"
#include "Frustum.h"
#include "MoveManipulator.h"
#include "OverlayRenderer.h"
#include "PickRenderer.h"
#include "RotateManipulator.h"
#include "ScaleManipulator.h"
#include "SceneRenderer.h"

#include <Imath/ImathVec.h>

#include <QOpenGLWidget>
#include <QPoint>

#include <array>
#include <cstdint>
#include <deque>
#include <memory>
#include <string>
#include <vector>

class BaseCommand;
class ZentoSceneGraph;

// The central widget: draws the scene through its renderers and turns keys and
// mouse drags into camera moves, tool changes, the marquee, manipulator drags
// and, while the simulation runs, the dragging of bodies by hand. It changes
// the selection only through the main window, which it tells by signals; a
// manipulator drag changes its nodes live and leaves its command in
// pendingCommands for the main window to push. It installs its picker in the
// scene graph it is given.
class Viewport : public QOpenGLWidget {
    Q_OBJECT

public:
    enum ToolMode : int16_t { SelectTool = 0, MoveTool = 1, RotateTool = 2, ScaleTool = 3, NoTool = 4 };

    explicit Viewport(QWidget* parent = nullptr);
    ~Viewport() override;

    // Also hands it to the manipulators.
    void setSceneGraph(ZentoSceneGraph* graph);
    ZentoSceneGraph* sceneGraph() const { return mSceneGraph; }
    // Places the manipulators on the nodes. A drag in progress ends first,
    // with its command, so that it never outlives the nodes it started on.
    void setSelection(const std::vector<std::string>& names);
    // The oldest finished drag's command, taken out of pendingCommands; null when there is none.
    std::shared_ptr<BaseCommand> takeCommand();
    // The camera at (0, 40, 40) looking down 45 degrees at the origin.
    void homeCamera();
    // Home, then the whole scene in view.
    void frameAll();
    // Draws a frame now.
    void updateGL();

    // Public: the main window hands the tool bar's tool actions in here.
    void keyPressEvent(QKeyEvent* event) override;

    const SceneRenderer& sceneRenderer() const { return mSceneRenderer; }
    // GL errors left by the last frame; checked in debug builds only.
    int frameGlErrors() const { return mFrameGlErrors; }

    QPoint pressPosition;
    QPoint marqueeStart;
    QPoint marqueeEnd;
    ZentoCore::Frustum frustum;
    bool marqueeActive = false;
    int16_t toolMode = SelectTool;
    // The selection that the last marquee asks for, read by the main window on selectionUpdated().
    std::vector<std::string> pickedNames;
    // While the simulation runs: the world point at which a body was grabbed, and whether one is held.
    Imath::V3f grabPoint{0.0f, 0.0f, 0.0f};
    bool grabbing = false;
    MoveManipulator moveManipulator;
    ScaleManipulator scaleManipulator;
    RotateManipulator rotateManipulator;
    // Commands of finished drags, oldest first.
    std::deque<std::shared_ptr<BaseCommand>> pendingCommands;

signals:
    void drawCompletedTime(int milliseconds);
    void selectionUpdated();
    void transformUpdated();
    void executeCommand();

protected:
    void mousePressEvent(QMouseEvent* event) override;
    void mouseReleaseEvent(QMouseEvent* event) override;
    void mouseMoveEvent(QMouseEvent* event) override;
    void wheelEvent(QWheelEvent* event) override;
    void initializeGL() override;
    void resizeGL(int width, int height) override;
    void paintGL() override;

private:
    void releaseGl();
    // Frames the world bounds of the paths' meshes, or a box of 10 about the
    // origin when they have none.
    void frameBounds(const std::vector<std::string>& paths);
    // The pick of the marquee, combined with the selection by the modifiers.
    void resolveMarquee(Qt::KeyboardModifiers modifiers);
    // Grabs whatever lies under the press.
    void grab(const QPoint& position);
    // Moves the grab to the cursor, in the plane through grabPoint that faces the camera.
    void dragGrabbed(const QPoint& position);
    // (0, 0, width, height) in widget pixels, as marquee corners and mouse positions are.
    Imath::V4d pickViewport() const;
    // Move, scale, rotate: the order of presses and releases.
    std::array<BaseManipulator*, 3> manipulators();
    // The manipulator of the tool mode; null for the select tool and no tool.
    BaseManipulator* toolManipulator();
    // Queues the command of each manipulator that drags and releases it.
    void finishDrag();
    void orbit(int dx, int dy);
    void dolly(double amount);
    void setDefaultPerspective();
    // The widget's size in framebuffer pixels.
    QSize pixelSize() const;

    ZentoSceneGraph* mSceneGraph = nullptr;
    int mLastMouseX = 0;
    int mLastMouseY = 0;
    bool mOrbiting = false;
    bool mPanning = false;
    bool mDollying = false;
    QOpenGLFunctions_4_3_Core* mGl = nullptr;
    DepthRange mDepthRange;
    SceneRenderer mSceneRenderer;
    OverlayRenderer mOverlays;
    PickRenderer mPicker{*this, mSceneRenderer, mDepthRange};
    DrawTarget mDrawTarget;
    int mFrameGlErrors = 0;
};
