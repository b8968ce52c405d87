#pragma once

#include "Viewport.h"

#include <QOpenGLContext>
#include <QOpenGLFunctions_4_3_Core>

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
};
