#pragma once

#include "RigidBodyNode.h"
#include "Viewport.h"
#include "ZentoSceneGraph.h"

#include <QApplication>
#include <QImage>
#include <QTest>
#include <QWheelEvent>
#include <QWindow>

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>

// The one QApplication of the test program, made by whichever GUI test runs first.
inline QApplication& guiApplication()
{
    if (!QCoreApplication::instance()) {
        static int argc = 1;
        static char name[] = "gui_tests";
        static char* argv[] = {name, nullptr};
        static QApplication application(argc, argv);
    }
    return *qApp;
}

// Shows the widget and waits until the display has exposed it. The wait is
// long: under the sanitizers, with other tests running beside, a first window
// can take seconds.
inline bool showExposed(QWidget& widget)
{
    widget.show();
    return QTest::qWaitForWindowExposed(&widget, 30000);
}

// A viewport on the screen with a scene of its own. The graph is declared
// first, so that the viewport goes first, as in the main window.
struct ShownViewport {
    explicit ShownViewport(int width = 320, int height = 240)
    {
        viewport.setSceneGraph(&graph);
        viewport.resize(width, height);
        EXPECT_TRUE(showExposed(viewport));
        // The first frame initialises GL, which puts the camera at home: tests move it afterwards.
        viewport.grabFramebuffer();
        EXPECT_TRUE(viewport.isValid());
    }

    // A frame drawn now and read back from the widget's framebuffer.
    QImage frame()
    {
        const QImage image = viewport.grabFramebuffer();
        EXPECT_EQ(viewport.frameGlErrors(), 0);
        return image;
    }

    QApplication& application = guiApplication();
    ZentoSceneGraph graph;
    Viewport viewport;
};

inline int countPixels(const QImage& image, const std::function<bool(const QColor&)>& test)
{
    int count = 0;
    for (int y = 0; y < image.height(); ++y)
        for (int x = 0; x < image.width(); ++x)
            count += test(image.pixelColor(x, y)) ? 1 : 0;
    return count;
}

// The mean position of the pixels that pass the test; (-1, -1) when none does.
inline QPointF pixelCentroid(const QImage& image, const std::function<bool(const QColor&)>& test)
{
    double sumX = 0.0, sumY = 0.0;
    int count = 0;
    for (int y = 0; y < image.height(); ++y)
        for (int x = 0; x < image.width(); ++x)
            if (test(image.pixelColor(x, y))) {
                sumX += x + 0.5;
                sumY += y + 0.5;
                ++count;
            }
    return count ? QPointF(sumX / count, sumY / count) : QPointF(-1.0, -1.0);
}

// The smallest rectangle that holds every pixel that passes the test; empty when none does.
inline QRect pixelBounds(const QImage& image, const std::function<bool(const QColor&)>& test)
{
    QRect bounds;
    for (int y = 0; y < image.height(); ++y)
        for (int x = 0; x < image.width(); ++x)
            if (test(image.pixelColor(x, y)))
                bounds |= QRect(x, y, 1, 1);
    return bounds;
}

inline bool isGrey(const QColor& color, int level, int tolerance = 3)
{
    return std::abs(color.red() - level) <= tolerance && std::abs(color.green() - level) <= tolerance &&
           std::abs(color.blue() - level) <= tolerance;
}

// A body's cyan (125, 203, 212), shaded or not: green and blue well above red,
// in proportion, so that faces lit by the ambient term alone count too.
inline bool isBodyLike(const QColor& c)
{
    return c.green() > c.red() + 10 && c.blue() > c.red() + 10 && c.green() >= 1.3 * c.red() &&
           c.blue() >= 1.1 * c.red();
}

inline bool isYellow(const QColor& c)
{
    return c.red() > 200 && c.green() > 200 && c.blue() < 90;
}

// Shaded or not: red well above green and blue.
inline bool isRed(const QColor& c)
{
    return c.red() > c.green() + 60 && c.red() > c.blue() + 60;
}

// A rigid body in the colour that bodies are made with, below the parent of its path.
inline std::shared_ptr<RigidBodyNode> addBody(ZentoSceneGraph& graph, const std::string& path, const Imath::V3d& at)
{
    auto body = std::make_shared<RigidBodyNode>(ZentoCore::NodePath(path));
    body->color = RigidBodyNode::kColor;
    body->translation = at;
    graph.addNode(body, ZentoCore::NodePath(path).parentPath().string());
    return body;
}

// The same with a shape of its own: a type of RigidBodyAttributes and its dimension.
inline std::shared_ptr<RigidBodyNode> addBody(ZentoSceneGraph& graph, const std::string& path, const Imath::V3d& at,
                                              int type, const Imath::V3d& dimension)
{
    const auto body = addBody(graph, path, at);
    body->attributes.typedEntry<int>("type")->set(type);
    body->attributes.typedEntry<Imath::V3d>("dimension")->set(dimension);
    graph.updateGeometry(body->path);
    return body;
}

// Where a world point lands on the widget, in pixels with y downwards.
inline QPointF project(const Viewport& viewport, const Imath::V3d& point)
{
    const Imath::M44d toClip = viewport.frustum.computeViewMatrix() * viewport.frustum.computeProjectionMatrix();
    const Imath::V4d clip = Imath::V4d(point.x, point.y, point.z, 1.0) * toClip;
    return QPointF((clip.x / clip.w + 1.0) * 0.5 * viewport.width(),
                   (1.0 - clip.y / clip.w) * 0.5 * viewport.height());
}

// A drag through the window system, with the modifiers held on every event.
inline void drag(Viewport& viewport, Qt::MouseButton button, Qt::KeyboardModifiers modifiers, QPoint from, QPoint to)
{
    QWindow* window = viewport.windowHandle();
    QTest::mouseEvent(QTest::MousePress, window, button, modifiers, from);
    QTest::mouseEvent(QTest::MouseMove, window, Qt::NoButton, modifiers, to);
    QTest::mouseEvent(QTest::MouseRelease, window, button, modifiers, to);
}

// One turn of the mouse wheel over the middle of the viewport; 120 is one notch away from the user.
inline void wheel(Viewport& viewport, int delta)
{
    const QPointF at(viewport.width() / 2, viewport.height() / 2);
    QWheelEvent event(at, viewport.mapToGlobal(at.toPoint()), QPoint(), QPoint(0, delta), Qt::NoButton,
                      Qt::NoModifier, Qt::NoScrollPhase, false);
    QApplication::sendEvent(&viewport, &event);
}
