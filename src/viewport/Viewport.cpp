#include "Viewport.h"

#include "SolverNode.h"
#include "ZentoSceneGraph.h"

#include <Imath/ImathBoxAlgo.h>
#include <Imath/ImathMatrixAlgo.h>

#include <QKeyEvent>
#include <QMouseEvent>
#include <QOpenGLContext>
#include <QWheelEvent>

#include <algorithm>
#include <cmath>
#include <iterator>
#include <mutex>
#include <set>

using ZentoCore::Frustum;
using ZentoCore::NodePath;

namespace {

constexpr double kNear = 0.01;
constexpr double kFar = 100000.0;
// A step towards the centre covers at most nine tenths of the way: a wheel
// burst or a long drag step (500 pixels and more) would otherwise give a
// factor of zero or below and put the camera on or past its centre.
constexpr double kMinimumDollyFactor = 0.1;
// The mode in which the viewport's picks read their hits; any gives the same paths.
constexpr int kPickHighlightMode = ZentoSceneGraph::HighlightModeLocate;
// A cursor ray this close to parallel with the grab plane leaves the grabbed body where it is.
constexpr double kParallelToGrabPlane = 0.0001;

QSurfaceFormat viewportFormat()
{
    QSurfaceFormat format;
    format.setVersion(4, 3);
    format.setProfile(QSurfaceFormat::CoreProfile);
    // Not forward compatible, so that lines wider than one pixel stay allowed.
    format.setOption(QSurfaceFormat::DeprecatedFunctions);
    return format;
}

// What a marquee asks the selection to become: the picks in their order
// alone, or, with Shift and Control, the picks and the selection combined
// as sets, in plain string order. Shift toggles, Control removes, both add.
std::vector<std::string> combinedSelection(const std::vector<std::string>& picked,
                                           const std::vector<std::string>& selected, Qt::KeyboardModifiers modifiers)
{
    const bool shift = modifiers & Qt::ShiftModifier;
    const bool control = modifiers & Qt::ControlModifier;
    if (!shift && !control)
        return picked;
    const std::set<std::string> picks(picked.begin(), picked.end());
    const std::set<std::string> selection(selected.begin(), selected.end());
    std::vector<std::string> result;
    const auto out = std::back_inserter(result);
    if (shift && control)
        std::set_union(selection.begin(), selection.end(), picks.begin(), picks.end(), out);
    else if (shift)
        std::set_symmetric_difference(selection.begin(), selection.end(), picks.begin(), picks.end(), out);
    else
        std::set_difference(selection.begin(), selection.end(), picks.begin(), picks.end(), out);
    return result;
}

} // namespace

Viewport::Viewport(QWidget* parent) : QOpenGLWidget(parent)
{
    setFormat(viewportFormat());
    setAccessibleName("Viewport");
    setMouseTracking(true);
    // Here rather than with the GL set-up, which runs again for each new
    // context: moving the widget to another window must not move the camera.
    homeCamera();
}

Viewport::~Viewport()
{
    if (context())
        disconnect(context(), nullptr, this, nullptr);
    setSceneGraph(nullptr);
    releaseGl();
}

void Viewport::releaseGl()
{
    if (!mGl)
        return;
    makeCurrent();
    mSceneRenderer.release();
    mOverlays.release();
    for (BaseManipulator* manipulator : manipulators())
        manipulator->releaseGl();
    mPicker.release();
    mDrawTarget.release();
    doneCurrent();
    mGl = nullptr;
}

void Viewport::setSceneGraph(ZentoSceneGraph* graph)
{
    if (mSceneGraph && mSceneGraph->picker() == &mPicker)
        mSceneGraph->setPicker(nullptr);
    mSceneGraph = graph;
    if (graph)
        graph->setPicker(&mPicker);
    // A new scene starts with nothing handled.
    for (BaseManipulator* manipulator : manipulators()) {
        manipulator->graph = graph;
        manipulator->names.clear();
    }
}

void Viewport::setSelection(const std::vector<std::string>& names)
{
    finishDrag();
    for (BaseManipulator* manipulator : manipulators())
        manipulator->setSelection(names);
}

std::shared_ptr<BaseCommand> Viewport::takeCommand()
{
    if (pendingCommands.empty())
        return nullptr;
    std::shared_ptr<BaseCommand> command = pendingCommands.front();
    pendingCommands.pop_front();
    return command;
}

std::array<BaseManipulator*, 3> Viewport::manipulators()
{
    return {&moveManipulator, &scaleManipulator, &rotateManipulator};
}

BaseManipulator* Viewport::toolManipulator()
{
    switch (toolMode) {
    case MoveTool:
        return &moveManipulator;
    case RotateTool:
        return &rotateManipulator;
    case ScaleTool:
        return &scaleManipulator;
    default:
        return nullptr;
    }
}

void Viewport::finishDrag()
{
    bool finished = false;
    for (BaseManipulator* manipulator : manipulators()) {
        if (!manipulator->dragging)
            continue;
        if (std::shared_ptr<BaseCommand> command = manipulator->command()) {
            pendingCommands.push_back(command);
            emit executeCommand();
        }
        manipulator->release();
        finished = true;
    }
    // The pivot follows the nodes.
    if (finished)
        for (BaseManipulator* manipulator : manipulators())
            manipulator->updateFrame();
}

void Viewport::updateGL()
{
    repaint();
}

void Viewport::setDefaultPerspective()
{
    const float aspect = float(std::max(width(), 1)) / float(std::max(height(), 1));
    frustum.setPerspective(45.0, aspect, kNear, kFar);
}

void Viewport::homeCamera()
{
    frustum = Frustum();
    frustum.setNearFar(kNear, kFar);
    frustum.setPosition(Imath::V3d(0.0, 40.0, 40.0));
    frustum.setRotation(Imath::V3d(1.0, 0.0, 0.0), -45.0);
    frustum.setViewDistance(std::sqrt(3200.0));
    setDefaultPerspective();
}

void Viewport::frameAll()
{
    homeCamera();
    frameBounds(mSceneGraph ? mSceneGraph->nodePaths() : std::vector<std::string>());
}

void Viewport::frameBounds(const std::vector<std::string>& paths)
{
    Imath::Box3d bounds;
    if (mSceneGraph) {
        const ZentoSceneDelegate& delegate = mSceneGraph->delegate();
        for (const std::string& text : paths) {
            const NodePath path(text);
            const Imath::Box3d extent = delegate.GetExtent(path);
            if (!extent.isEmpty())
                bounds.extendBy(Imath::transform(extent, delegate.GetTransform(path)));
        }
    }
    // Nothing with geometry (the solver alone has none) frames the box of 10 about the origin.
    if (bounds.isEmpty())
        bounds = Imath::Box3d(Imath::V3d(-5.0), Imath::V3d(5.0));
    // The whole diagonal as the radius leaves generous room around.
    const double radius = (bounds.max - bounds.min).length() * 1.1;
    frustum.fitToSphere(bounds.center(), radius, 0.0);
    frustum.setNearFar(kNear, kFar);
}

void Viewport::keyPressEvent(QKeyEvent* event)
{
    switch (event->key()) {
    case Qt::Key_Q:
        toolMode = SelectTool;
        break;
    case Qt::Key_W:
        toolMode = MoveTool;
        break;
    case Qt::Key_R:
        toolMode = RotateTool;
        break;
    case Qt::Key_E:
        toolMode = ScaleTool;
        break;
    case Qt::Key_T:
        toolMode = NoTool;
        break;
    case Qt::Key_F:
        frameBounds(mSceneGraph ? mSceneGraph->selectedPaths() : std::vector<std::string>());
        break;
    case Qt::Key_H:
        homeCamera();
        break;
    default:
        break;
    }
    // A handle hovered under the old tool must not come alive in the next
    // press, which runs through the other manipulators too.
    for (BaseManipulator* manipulator : manipulators())
        if (!manipulator->dragging)
            manipulator->clearFlags();
    update();
}

void Viewport::mousePressEvent(QMouseEvent* event)
{
    pressPosition = event->pos();
    marqueeActive = false;
    mOrbiting = mPanning = mDollying = false;
    if (event->modifiers() & Qt::AltModifier) {
        mOrbiting = event->button() == Qt::LeftButton;
        mDollying = event->button() == Qt::RightButton;
        mPanning = event->button() == Qt::MiddleButton;
        mLastMouseX = event->x();
        mLastMouseY = event->y();
        return;
    }
    // While the simulation runs, no tool takes a press: it only tries to grab.
    if (mSceneGraph && mSceneGraph->simulating) {
        grab(event->pos());
        return;
    }
    if (toolMode == SelectTool) {
        marqueeActive = true;
        marqueeStart = marqueeEnd = event->pos();
        return;
    }
    // From the tool's manipulator on, in the order move, scale, rotate: a
    // manipulator that is not hovered only takes its start values.
    const std::array<BaseManipulator*, 3> all = manipulators();
    for (auto it = std::find(all.begin(), all.end(), toolManipulator()); it != all.end(); ++it) {
        if ((*it)->isActive())
            (*it)->dragging = true;
        (*it)->press(frustum, width(), height(), event->x(), height() - event->y());
    }
}

void Viewport::mouseMoveEvent(QMouseEvent* event)
{
    if (event->modifiers() & Qt::AltModifier) {
        const int dx = event->x() - mLastMouseX;
        const int dy = event->y() - mLastMouseY;
        if (mOrbiting) {
            orbit(dx, dy);
        } else if (mPanning) {
            Imath::V3d side, up, view;
            frustum.computeViewFrame(side, up, view);
            const double distance = frustum.viewDistance();
            const double h = std::max(height(), 1);
            frustum.setPosition(frustum.position() + up * (dy * distance / h) + side * (-dx * distance / h));
        } else if (mDollying) {
            dolly(dx + dy);
        }
        mLastMouseX = event->x();
        mLastMouseY = event->y();
    } else if (!(mSceneGraph && mSceneGraph->simulating)) {
        const int x = event->x();
        const int y = height() - event->y();
        if (toolMode == SelectTool && marqueeActive) {
            marqueeEnd = event->pos();
        } else if (BaseManipulator* manipulator = toolManipulator()) {
            if (!manipulator->dragging) {
                manipulator->hover(frustum, width(), height(), Imath::V3d(x, y, 0.0), true);
            } else {
                manipulator->drag(frustum, width(), height(), x, y);
                emit transformUpdated();
            }
        }
    } else if (grabbing) {
        dragGrabbed(event->pos());
    }
    update();
}

void Viewport::mouseReleaseEvent(QMouseEvent* event)
{
    if (event->modifiers() & Qt::AltModifier) {
        mOrbiting = mPanning = mDollying = false;
    } else {
        // A simulation stopped during a drag leaves nothing held either.
        grabbing = false;
        if (mSceneGraph && mSceneGraph->simulating)
            mSceneGraph->releaseBody();
        finishDrag();
        if (marqueeActive)
            resolveMarquee(event->modifiers());
        marqueeActive = false;
    }
    marqueeStart = marqueeEnd = QPoint(0, 0);
    update();
}

Imath::V4d Viewport::pickViewport() const
{
    return Imath::V4d(0.0, 0.0, width(), height());
}

void Viewport::resolveMarquee(Qt::KeyboardModifiers modifiers)
{
    if (!mSceneGraph)
        return;
    const std::vector<std::string> picked =
        mSceneGraph->pick(frustum, pickViewport(), marqueeStart, marqueeEnd, kPickHighlightMode, nullptr);
    pickedNames = combinedSelection(picked, mSceneGraph->selectedPaths(), modifiers);
    emit selectionUpdated();
}

void Viewport::grab(const QPoint& position)
{
    marqueeStart = marqueeEnd = position;
    std::vector<Imath::V3f> hitPoints;
    const std::vector<std::string> names =
        mSceneGraph->pick(frustum, pickViewport(), position, position, kPickHighlightMode, &hitPoints);
    if (names.empty() || hitPoints.empty())
        return;
    // Whatever was hit counts as held; the graph grabs only rigid bodies.
    grabPoint = hitPoints.front();
    grabbing = true;
    mSceneGraph->grabBody(names.front(), grabPoint);
}

void Viewport::dragGrabbed(const QPoint& position)
{
    const double w = std::max(width(), 1);
    const double h = std::max(height(), 1);
    const ZentoCore::Ray ray =
        frustum.computeRay(Imath::V2d(2.0 * position.x() / w - 1.0, 2.0 * (h - position.y()) / h - 1.0));
    Imath::V3d direction = ray.direction;
    if (direction.length() != 0.0)
        direction.normalize();
    const Imath::V3d normal = -frustum.computeViewDirection();
    const double denominator = direction.dot(normal);
    if (std::fabs(denominator) <= kParallelToGrabPlane)
        return;
    const double t = (Imath::V3d(grabPoint) - ray.origin).dot(normal) / denominator;
    // Behind the camera: the body stays where it is, and the drag goes on.
    if (t <= 0.0)
        return;
    mSceneGraph->dragBody(Imath::V3f(ray.pointAt(t)));
}

void Viewport::wheelEvent(QWheelEvent* event)
{
    dolly(event->angleDelta().y());
    update();
}

void Viewport::orbit(int dx, int dy)
{
    Imath::V3d side, up, view;
    frustum.computeViewFrame(side, up, view);
    const Imath::V3d centre = frustum.position() + view * frustum.viewDistance();
    const double degreesToRadians = M_PI / 180.0;
    Imath::M44d yaw;
    yaw.setAxisAngle(Imath::V3d(0.0, 1.0, 0.0), (-double(dx) / std::max(width(), 1)) * 360.0 * degreesToRadians);
    Imath::M44d pitch;
    pitch.setAxisAngle(side, (-double(dy) / std::max(height(), 1)) * 360.0 * degreesToRadians);

    // Turn the camera's frame about the centre: pitch first, then yaw.
    Imath::M44d camera = frustum.computeViewInverse();
    camera[3][0] -= centre.x;
    camera[3][1] -= centre.y;
    camera[3][2] -= centre.z;
    camera = camera * pitch * yaw;
    frustum.setRotation(Imath::extractQuat(camera));
    frustum.setPosition(camera.translation() + centre);
}

void Viewport::dolly(double amount)
{
    const double distance = frustum.viewDistance();
    double newDistance = distance;
    if (frustum.projection() == Frustum::Projection::Perspective) {
        const double factor = std::max(amount * -0.002 + 1.0, kMinimumDollyFactor);
        // Close to the centre a step away is capped; a step towards it stays proportional.
        if (factor > 1.0 && distance < 2.0)
            newDistance = distance + std::min(factor - 1.0, distance / 10.0 / 25.0);
        else
            newDistance = distance * factor;
    }
    frustum.setPosition(frustum.position() + frustum.computeViewDirection() * (distance - newDistance));
    frustum.setViewDistance(newDistance);
}

void Viewport::initializeGL()
{
    mGl = context()->versionFunctions<QOpenGLFunctions_4_3_Core>();
    if (!mGl || !mGl->initializeOpenGLFunctions()) {
        qWarning("The viewport needs OpenGL 4.3 core; it stays empty.");
        mGl = nullptr;
        return;
    }
    // A context that goes away (the widget moved to another window) takes our objects with it.
    connect(context(), &QOpenGLContext::aboutToBeDestroyed, this, &Viewport::releaseGl, Qt::UniqueConnection);
    mDepthRange.initialize(context(), mGl);
    mSceneRenderer.initialize(mGl, mDepthRange);
    mOverlays.initialize(mGl, mDepthRange);
    for (BaseManipulator* manipulator : manipulators())
        manipulator->initialize(mGl, mDepthRange);
    mPicker.initialize(mGl);
    mDrawTarget.initialize(mGl);
    if (mSceneGraph && !mSceneGraph->node("/Solver"))
        mSceneGraph->createSolver();
}

QSize Viewport::pixelSize() const
{
    const qreal ratio = devicePixelRatioF();
    return QSize(std::max(1, int(width() * ratio)), std::max(1, int(height() * ratio)));
}

void Viewport::resizeGL(int, int)
{
    if (!mGl)
        return;
    const QSize pixels = pixelSize();
    mGl->glViewport(0, 0, pixels.width(), pixels.height());
    setDefaultPerspective();
    mDrawTarget.setSize(pixels.width(), pixels.height());
}

void Viewport::paintGL()
{
    if (!mGl)
        return;
    // A pick cannot come between the frame's steps.
    std::unique_lock<std::mutex> frameLock;
    if (mSceneGraph)
        frameLock = std::unique_lock<std::mutex>(mSceneGraph->renderMutex);
    const GLuint widgetFramebuffer = defaultFramebufferObject();
    // Also here: a new context (the widget moved to another window) comes without a resize.
    const QSize pixels = pixelSize();
    const int pixelWidth = pixels.width();
    const int pixelHeight = pixels.height();

    mGl->glClearColor(0.0f, 0.0f, 0.0f, 1.0f);
    mGl->glClear(GL_COLOR_BUFFER_BIT | GL_DEPTH_BUFFER_BIT);

    mDrawTarget.setSize(pixelWidth, pixelHeight);
    mDrawTarget.bind();
    mGl->glViewport(0, 0, pixelWidth, pixelHeight);
    mDepthRange.begin();
    mGl->glEnable(GL_DEPTH_TEST);
    const GLfloat background[4] = {0.6f, 0.6f, 0.6f, 1.0f};
    const GLfloat farDepth = mDepthRange.farDepth();
    mGl->glClearBufferfv(GL_COLOR, 0, background);
    mGl->glClearBufferfv(GL_DEPTH, 0, &farDepth);
    mGl->glEnable(GL_BLEND);
    mGl->glBlendFunc(GL_SRC_ALPHA, GL_ONE_MINUS_SRC_ALPHA);

    if (mSceneGraph)
        mSceneRenderer.render(*mSceneGraph, frustum.computeViewMatrix(), frustum.computeProjectionMatrix());

    mGl->glDisable(GL_DEPTH_TEST);
    if (mSceneGraph)
        for (const std::string& path : mSceneGraph->selectedPaths())
            if (const std::shared_ptr<BaseNode> node = mSceneGraph->node(path))
                mOverlays.drawNodeOverlay(*node, frustum, width(), height());
    // Over the bodies, so that the joint frames inside them show.
    if (mSceneGraph && mSceneGraph->simulating)
        if (const SolverNode* solver = mSceneGraph->solver())
            mOverlays.drawDebugLines(solver->physics.debugLines(), frustum);

    mGl->glEnable(GL_DEPTH_TEST);
    if (marqueeActive)
        mOverlays.drawMarquee(marqueeStart, marqueeEnd, width(), height());

    mGl->glEnable(GL_BLEND);
    mGl->glBlendFunc(GL_SRC_ALPHA, GL_ONE_MINUS_SRC_ALPHA);
    mOverlays.drawGrid(frustum);
    if (BaseManipulator* manipulator = toolManipulator())
        manipulator->draw(frustum, width(), height());
    mOverlays.drawCornerAxes(frustum, pixelHeight);
    mDepthRange.end();

    mDrawTarget.blitTo(widgetFramebuffer);

#ifndef NDEBUG
    mFrameGlErrors = 0;
    for (GLenum error = mGl->glGetError(); error != GL_NO_ERROR && mFrameGlErrors < 16; error = mGl->glGetError()) {
        ++mFrameGlErrors;
        qWarning("OpenGL error 0x%x left by a viewport frame", error);
    }
#endif
}
