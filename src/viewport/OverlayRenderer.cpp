#include "OverlayRenderer.h"

#include "BaseNode.h"
#include "GlProgram.h"
#include "ManipulatorGeometry.h"
#include "MathUtils.h"

#include <vector>

using ZentoCore::Frustum;

namespace {

enum : GLint { kViewMatrix = 0, kProjectionMatrix = 1, kPosition = 2, kColor = 3 };

const char* const kOverlayVertexSource = R"(#version 430
layout(location = 0) uniform mat4 viewMatrix;
layout(location = 1) uniform mat4 projMatrix;
layout(location = 2) in vec3 position;
layout(location = 3) in vec3 color;
out vec3 ocolor;
void main() {
	gl_Position = projMatrix * viewMatrix * vec4(position, 1.0f);
	ocolor = color;
}
)";

const char* const kOverlayFragmentSource = R"(#version 430
in vec3 ocolor;
out vec4 fragColor;
void main(void)
{
	fragColor = vec4(ocolor, 1.0);
}
)";

const char* const kMarqueeVertexSource = R"(#version 430
layout(location = 0) in vec2 position;
void main() {
	gl_Position = vec4(position, 0.0, 1.0);
}
)";

const char* const kMarqueeFragmentSource = R"(#version 430
out vec4 fragColor;
void main() {
	fragColor = vec4(1.0);
}
)";

// Position x, y, z and colour r, g, b.
struct OverlayVertex {
    Imath::V3f position;
    Imath::V3f color;
};

const OverlayVertex kAxisVertices[6] = {
    {{0, 0, 0}, {1, 0, 0}}, {{1, 0, 0}, {1, 0, 0}}, {{0, 0, 0}, {0, 1, 0}},
    {{0, 1, 0}, {0, 1, 0}}, {{0, 0, 0}, {0, 0, 1}}, {{0, 0, 1}, {0, 0, 1}},
};

constexpr GLsizei kGridVertexCount = 44;

std::vector<OverlayVertex> gridVertices()
{
    const Imath::V3f grey(0.4f, 0.4f, 0.4f);
    std::vector<OverlayVertex> vertices;
    for (int i = 0; i <= 10; ++i) {
        vertices.push_back({{float(2 * i - 10), 0, -10}, grey});
        vertices.push_back({{float(2 * i - 10), 0, 10}, grey});
    }
    for (int i = 0; i <= 10; ++i) {
        vertices.push_back({{-10, 0, float(2 * i - 10)}, grey});
        vertices.push_back({{10, 0, float(2 * i - 10)}, grey});
    }
    return vertices;
}

GLuint staticBuffer(QOpenGLFunctions_4_3_Core* gl, const void* data, GLsizeiptr bytes)
{
    GLuint buffer = 0;
    gl->glGenBuffers(1, &buffer);
    gl->glBindBuffer(GL_ARRAY_BUFFER, buffer);
    gl->glBufferData(GL_ARRAY_BUFFER, bytes, data, GL_STATIC_DRAW);
    gl->glBindBuffer(GL_ARRAY_BUFFER, 0);
    return buffer;
}

void setMatrix(QOpenGLFunctions_4_3_Core* gl, GLint location, const Imath::M44d& matrix)
{
    gl->glUniformMatrix4fv(location, 1, GL_FALSE, Imath::M44f(matrix).getValue());
}

} // namespace

OverlayRenderer::~OverlayRenderer()
{
    release();
}

void OverlayRenderer::initialize(QOpenGLFunctions_4_3_Core* gl, const DepthRange& depth)
{
    mGl = gl;
    mDepth = &depth;
    gl->glGenVertexArrays(1, &mVertexArray);
    if (!mOverlayProgram)
        mOverlayProgram = buildGlProgram(gl, kOverlayVertexSource, kOverlayFragmentSource);
    mAxisBuffer = staticBuffer(gl, kAxisVertices, sizeof(kAxisVertices));
    const std::vector<OverlayVertex> grid = gridVertices();
    mGridBuffer = staticBuffer(gl, grid.data(), GLsizeiptr(grid.size() * sizeof(OverlayVertex)));
    gl->glGenBuffers(1, &mGuideBuffer);
    gl->glGenBuffers(1, &mMarqueeBuffer);
    mMarqueeProgram = buildGlProgram(gl, kMarqueeVertexSource, kMarqueeFragmentSource);
}

void OverlayRenderer::release()
{
    if (!mGl)
        return;
    const GLuint buffers[4] = {mAxisBuffer, mGridBuffer, mGuideBuffer, mMarqueeBuffer};
    mGl->glDeleteBuffers(4, buffers);
    mGl->glDeleteVertexArrays(1, &mVertexArray);
    mGl->glDeleteProgram(mOverlayProgram);
    mGl->glDeleteProgram(mMarqueeProgram);
    mAxisBuffer = mGridBuffer = mGuideBuffer = mMarqueeBuffer = 0;
    mVertexArray = mOverlayProgram = mMarqueeProgram = 0;
    mGl = nullptr;
}

void OverlayRenderer::useOverlayProgram(const Imath::M44d& viewMatrix, const Imath::M44d& projectionMatrix)
{
    mGl->glUseProgram(mOverlayProgram);
    setMatrix(mGl, kViewMatrix, viewMatrix);
    setMatrix(mGl, kProjectionMatrix, mDepth->projection(projectionMatrix));
}

void OverlayRenderer::drawColoredLines(GLuint buffer, GLenum mode, GLsizei count)
{
    mGl->glBindVertexArray(mVertexArray);
    mGl->glBindBuffer(GL_ARRAY_BUFFER, buffer);
    mGl->glEnableVertexAttribArray(kPosition);
    mGl->glVertexAttribPointer(kPosition, 3, GL_FLOAT, GL_FALSE, sizeof(OverlayVertex), nullptr);
    mGl->glEnableVertexAttribArray(kColor);
    mGl->glVertexAttribPointer(kColor, 3, GL_FLOAT, GL_FALSE, sizeof(OverlayVertex),
                               reinterpret_cast<const void*>(sizeof(Imath::V3f)));
    mGl->glDrawArrays(mode, 0, count);
    mGl->glBindBuffer(GL_ARRAY_BUFFER, 0);
    mGl->glBindVertexArray(0);
}

void OverlayRenderer::drawGrid(const Frustum& frustum)
{
    if (!mOverlayProgram)
        return;
    useOverlayProgram(frustum.computeViewMatrix(), frustum.computeProjectionMatrix());
    drawColoredLines(mGridBuffer, GL_LINES, kGridVertexCount);
    mGl->glUseProgram(0);
}

void OverlayRenderer::drawNodeOverlay(const BaseNode& node, const Frustum& frustum, int width, int height)
{
    if (!mOverlayProgram || width <= 0 || height <= 0)
        return;
    const Imath::M44d world = node.worldMatrix();
    Imath::V3d scale, origin;
    Imath::Quatd rotation;
    ZentoCore::extractSRT(world, scale, rotation, origin);

    // The world length of 45 pixels at the node's depth keeps the axes the same size on screen.
    const double length = ManipulatorGeometry::screenConstantLength(frustum, width, height, origin, 45.0);

    Imath::M44d axes = rotation.toMatrix44();
    for (int row = 0; row < 3; ++row)
        for (int column = 0; column < 3; ++column)
            axes[row][column] *= 0.75 * length;
    axes[3][0] = origin.x;
    axes[3][1] = origin.y;
    axes[3][2] = origin.z;

    const Imath::M44d view = frustum.computeViewMatrix();
    const Imath::M44d projection = frustum.computeProjectionMatrix();
    mGl->glLineWidth(1.0f);
    useOverlayProgram(axes * view, projection);
    drawColoredLines(mAxisBuffer, GL_LINES, 6);

    setMatrix(mGl, kViewMatrix, world * view);
    std::vector<GuideLine> lines;
    node.guideLines(lines);
    std::vector<OverlayVertex> vertices;
    for (const GuideLine& line : lines) {
        if (line.points.empty())
            continue;
        vertices.clear();
        for (const Imath::V3f& point : line.points)
            vertices.push_back({point, line.color});
        mGl->glBindBuffer(GL_ARRAY_BUFFER, mGuideBuffer);
        mGl->glBufferData(GL_ARRAY_BUFFER, GLsizeiptr(vertices.size() * sizeof(OverlayVertex)), vertices.data(),
                          GL_DYNAMIC_DRAW);
        drawColoredLines(mGuideBuffer, GL_LINE_LOOP, GLsizei(vertices.size()));
    }
    mGl->glUseProgram(0);
}

void OverlayRenderer::drawDebugLines(const std::vector<Zento::DebugLine>& lines, const Frustum& frustum)
{
    if (!mOverlayProgram || lines.empty())
        return;
    std::vector<OverlayVertex> vertices;
    vertices.reserve(2 * lines.size());
    for (const Zento::DebugLine& line : lines) {
        vertices.push_back({line.from, line.color});
        vertices.push_back({line.to, line.color});
    }
    mGl->glLineWidth(1.0f);
    useOverlayProgram(frustum.computeViewMatrix(), frustum.computeProjectionMatrix());
    mGl->glBindBuffer(GL_ARRAY_BUFFER, mGuideBuffer);
    mGl->glBufferData(GL_ARRAY_BUFFER, GLsizeiptr(vertices.size() * sizeof(OverlayVertex)), vertices.data(),
                      GL_DYNAMIC_DRAW);
    drawColoredLines(mGuideBuffer, GL_LINES, GLsizei(vertices.size()));
    mGl->glUseProgram(0);
}

void OverlayRenderer::drawMarquee(const QPoint& start, const QPoint& end, int width, int height)
{
    if (!mMarqueeProgram || width <= 0 || height <= 0)
        return;
    mGl->glDisable(GL_DEPTH_TEST);
    mGl->glUseProgram(mMarqueeProgram);
    const float ax = 2.0f * start.x() / width - 1.0f;
    const float ay = 1.0f - 2.0f * start.y() / height;
    const float bx = 2.0f * end.x() / width - 1.0f;
    const float by = 1.0f - 2.0f * end.y() / height;
    const float corners[10] = {ax, ay, bx, ay, bx, by, ax, by, ax, ay};
    mGl->glBindVertexArray(mVertexArray);
    mGl->glBindBuffer(GL_ARRAY_BUFFER, mMarqueeBuffer);
    mGl->glBufferData(GL_ARRAY_BUFFER, sizeof(corners), corners, GL_STATIC_DRAW);
    mGl->glEnableVertexAttribArray(0);
    mGl->glVertexAttribPointer(0, 2, GL_FLOAT, GL_FALSE, 0, nullptr);
    mGl->glDrawArrays(GL_LINE_STRIP, 0, 5);
    mGl->glDisableVertexAttribArray(0);
    mGl->glBindBuffer(GL_ARRAY_BUFFER, 0);
    mGl->glBindVertexArray(0);
    mGl->glUseProgram(0);
    mGl->glEnable(GL_DEPTH_TEST);
}

void OverlayRenderer::drawCornerAxes(const Frustum& frustum, int height)
{
    if (!mOverlayProgram)
        return;
    mGl->glViewport(0, 0, height / 10, height / 10);
    mGl->glDisable(GL_DEPTH_TEST);
    mGl->glLineWidth(2.0f);
    // Only the orientation counts: the copy looks at the origin from 3 units away.
    Frustum corner = frustum;
    corner.setPerspective(45.0, 1.0, 0.01, 10.0);
    corner.setPosition(-frustum.computeViewDirection() * 3.0);
    corner.setViewDistance(3.0);
    useOverlayProgram(corner.computeViewMatrix(), corner.computeProjectionMatrix());
    drawColoredLines(mAxisBuffer, GL_LINES, 6);
    mGl->glUseProgram(0);
}
