#pragma once

#include "DebugLine.h"
#include "DepthRange.h"
#include "Frustum.h"

#include <QOpenGLFunctions_4_3_Core>
#include <QPoint>

class BaseNode;

// The direct GL drawing over the scene: the ground grid, the axes and guide
// lines of selected nodes, the physics engine's debug drawing, the marquee
// rectangle and the corner axes. Every
// call needs the GL context current.
class OverlayRenderer {
public:
    OverlayRenderer() = default;
    ~OverlayRenderer();
    OverlayRenderer(const OverlayRenderer&) = delete;
    OverlayRenderer& operator=(const OverlayRenderer&) = delete;

    // Projections go through depth, which must outlive the renderer.
    void initialize(QOpenGLFunctions_4_3_Core* gl, const DepthRange& depth);
    void release();

    // When the line program failed to build, the grid, the node overlay and the corner axes are skipped.
    void drawGrid(const ZentoCore::Frustum& frustum);
    // Axes of a constant size on screen at the node's origin, and its guide
    // lines. Width and height are the viewport's, in the frustum's pixels.
    void drawNodeOverlay(const BaseNode& node, const ZentoCore::Frustum& frustum, int width, int height);
    // World-space lines of the running simulation, in their own colours.
    void drawDebugLines(const std::vector<Zento::DebugLine>& lines, const ZentoCore::Frustum& frustum);
    // Corners in widget pixels, y downwards.
    void drawMarquee(const QPoint& start, const QPoint& end, int width, int height);
    // A square of a tenth of the height in the bottom left corner, showing the
    // camera's orientation. Leaves that small viewport set.
    void drawCornerAxes(const ZentoCore::Frustum& frustum, int height);

private:
    void useOverlayProgram(const Imath::M44d& viewMatrix, const Imath::M44d& projectionMatrix);
    // Draws buffer's interleaved position and colour vertices.
    void drawColoredLines(GLuint buffer, GLenum mode, GLsizei count);

    QOpenGLFunctions_4_3_Core* mGl = nullptr;
    const DepthRange* mDepth = nullptr;
    GLuint mVertexArray = 0;
    GLuint mOverlayProgram = 0;
    GLuint mAxisBuffer = 0;
    GLuint mGridBuffer = 0;
    GLuint mGuideBuffer = 0;
    GLuint mMarqueeProgram = 0;
    GLuint mMarqueeBuffer = 0;
};
