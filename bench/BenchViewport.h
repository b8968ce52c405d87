#pragma once

#include "Viewport.h"
#include "ZentoSceneGraph.h"

#include <QApplication>
#include <QOpenGLContext>
#include <QOpenGLFunctions_4_3_Core>

#include <cstdio>

// The viewport with its frame drawn on demand, for the benchmarks that time frames.
class BenchViewport : public Viewport {
public:
    // paintGL as the widget runs it, finished on the GPU.
    void drawFinishedFrame()
    {
        makeCurrent();
        paintGL();
        gl()->glFinish();
    }

    QOpenGLFunctions_4_3_Core* gl() { return context()->versionFunctions<QOpenGLFunctions_4_3_Core>(); }

    // Shows the viewport on the graph at the size given; false, with the
    // reason on standard error, when there is no OpenGL 4.3 core context.
    bool showOn(ZentoSceneGraph& graph, int width, int height, const char* program)
    {
        setSceneGraph(&graph);
        resize(width, height);
        show();
        QApplication::processEvents();
        if (isValid() && gl())
            return true;
        std::fprintf(stderr, "%s: no OpenGL 4.3 core context (run it under a display, e.g. xvfb-run)\n", program);
        return false;
    }
};
