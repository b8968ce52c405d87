#include "BaseManipulator.h"

#include "BaseNode.h"
#include "GlProgram.h"
#include "ManipulatorGeometry.h"
#include "MathUtils.h"
#include "ZentoSceneGraph.h"

#include <Imath/ImathBox.h>

#include <algorithm>
#include <cmath>

using ZentoCore::Frustum;
using namespace ManipulatorGeometry;

namespace {

const char* const kVertexSource = R"(#version 430
layout(location = 0) uniform mat4 viewMatrix;
layout(location = 1) uniform mat4 projMatrix;
layout(location = 2) uniform mat4 transform;
layout(location = 3) in vec3 position;
void main() {
	gl_Position = projMatrix * viewMatrix * transform * vec4(position, 1.0f);
}
)";

const char* const kFragmentSource = R"(#version 430
layout(location = 4) uniform vec4 color;
out vec4 fragColor;
void main(void)
{
	fragColor = color;
}
)";

// How much of each shape a primitive draws. The circle stops two points
// short and the loop closes the gap; the arc runs from -126 to about 48
// degrees; the cube's triangle list goes through a fan.
constexpr GLsizei kLineCount = 2;
constexpr GLsizei kPlaneCount = 6;
constexpr GLsizei kPlaneOutlineCount = 4;
constexpr GLsizei kConeCount = 18;
constexpr GLsizei kCubeCount = 36;
constexpr GLsizei kCircleCount = 63;
constexpr GLsizei kArcCount = 63;
constexpr GLsizei kDiscCount = 66;

// The cursor hits the centre square within this many pixels in x and in y.
constexpr double kCentrePixels = 10.0;
// ... an arrow within the root of this many pixels of its line.
constexpr double kArrowPixelsSquared = 25.0;

const Imath::V3d kAxisColors[3] = {{1.0, 0.0, 0.0}, {0.0, 1.0, 0.0}, {0.0, 0.0, 1.0}};
const Imath::V3d kLockedColor(0.5, 0.5, 0.5);

constexpr bool BaseManipulator::*kAxisFlags[3] = {&BaseManipulator::axisX, &BaseManipulator::axisY,
                                                   &BaseManipulator::axisZ};
constexpr bool BaseManipulator::*kLocks[3] = {&BaseManipulator::lockX, &BaseManipulator::lockY,
                                               &BaseManipulator::lockZ};

// A plane handle: its flag, the two axes it spans, its normal (whose colour it
// takes), and the axis its square's x follows.
struct PlaneHandle {
    bool BaseManipulator::*flag;
    int axisA;
    int axisB;
    int normal;
    int tangent;
};

const PlaneHandle kPlaneHandles[3] = {
    {&BaseManipulator::planeYZ, 1, 2, 0, 1},
    {&BaseManipulator::planeXZ, 0, 2, 1, 2},
    {&BaseManipulator::planeXY, 0, 1, 2, 0},
};

GLuint staticBuffer(QOpenGLFunctions_4_3_Core* gl, const std::vector<Imath::V3f>& vertices)
{
    GLuint buffer = 0;
    gl->glGenBuffers(1, &buffer);
    gl->glBindBuffer(GL_ARRAY_BUFFER, buffer);
    gl->glBufferData(GL_ARRAY_BUFFER, GLsizeiptr(vertices.size() * sizeof(Imath::V3f)), vertices.data(),
                     GL_STATIC_DRAW);
    gl->glBindBuffer(GL_ARRAY_BUFFER, 0);
    return buffer;
}

void setMatrix(QOpenGLFunctions_4_3_Core* gl, GLint location, const Imath::M44d& matrix)
{
    gl->glUniformMatrix4fv(location, 1, GL_FALSE, Imath::M44f(matrix).getValue());
}

bool isFinite(const Imath::M44d& matrix)
{
    for (int row = 0; row < 4; ++row)
        for (int column = 0; column < 4; ++column)
            if (!std::isfinite(matrix[row][column]))
                return false;
    return true;
}

// Scale, then the rotation, then the move to position.
Imath::M44d placed(const Imath::V3d& scale, const Imath::M44d& rotation, const Imath::V3d& position)
{
    Imath::M44d scaling;
    scaling.setScale(scale);
    Imath::M44d translation;
    translation.setTranslation(position);
    return scaling * rotation * translation;
}

} // namespace

BaseManipulator::~BaseManipulator()
{
    releaseGl();
}

void BaseManipulator::initialize(QOpenGLFunctions_4_3_Core* gl, const DepthRange& depth)
{
    mGl = gl;
    mDepth = &depth;
    if (!program) {
        program = buildGlProgram(gl, kVertexSource, kFragmentSource);
        if (program) {
            projMatrixLocation = gl->glGetUniformLocation(program, "projMatrix");
            viewMatrixLocation = gl->glGetUniformLocation(program, "viewMatrix");
            transformLocation = gl->glGetUniformLocation(program, "transform");
            colorLocation = gl->glGetUniformLocation(program, "color");
            positionLocation = gl->glGetAttribLocation(program, "position");
        }
    }
    gl->glGenVertexArrays(1, &mVertexArray);
    const UnitShapes shapes = unitShapes();
    lineBuffer = staticBuffer(gl, shapes.line);
    planeBuffer = staticBuffer(gl, shapes.plane);
    planeOutlineBuffer = staticBuffer(gl, shapes.planeOutline);
    coneBuffer = staticBuffer(gl, shapes.cone);
    cubeBuffer = staticBuffer(gl, shapes.cube);
    circleBuffer = staticBuffer(gl, shapes.circle);
    arcBuffer = staticBuffer(gl, shapes.arc);
    discBuffer = staticBuffer(gl, shapes.disc);
}

void BaseManipulator::releaseGl()
{
    if (!mGl)
        return;
    const GLuint buffers[8] = {lineBuffer, planeBuffer,  planeOutlineBuffer, coneBuffer,
                               cubeBuffer, circleBuffer, arcBuffer,          discBuffer};
    mGl->glDeleteBuffers(8, buffers);
    mGl->glDeleteVertexArrays(1, &mVertexArray);
    mGl->glDeleteProgram(program);
    lineBuffer = planeBuffer = planeOutlineBuffer = coneBuffer = cubeBuffer = circleBuffer = arcBuffer =
        discBuffer = 0;
    mVertexArray = program = 0;
    mGl = nullptr;
}

bool BaseManipulator::isActive() const
{
    return axisX || axisY || axisZ || planeYZ || planeXZ || planeXY || planeView;
}

void BaseManipulator::clearFlags()
{
    axisX = axisY = axisZ = planeYZ = planeXZ = planeXY = planeView = false;
}

void BaseManipulator::setSelection(const std::vector<std::string>& selection)
{
    std::vector<std::string> sorted = selection;
    std::sort(sorted.begin(), sorted.end());
    names.clear();
    // Inactive nodes cannot be handled.
    for (const std::string& name : sorted) {
        const std::shared_ptr<BaseNode> node = graph ? graph->node(name) : nullptr;
        if (node && node->active)
            names.push_back(name);
    }
    updateFrame();
}

void BaseManipulator::updateFrame()
{
    if (names.empty())
        return;
    Imath::V3d sum(0.0);
    for (const std::string& name : names) {
        const std::shared_ptr<BaseNode> node = graph->node(name);
        // A name that has gone still counts in the mean.
        if (!node)
            continue;
        const Imath::M44d world = node->worldMatrix();
        Imath::V3d scale, translation;
        // A zero scale has no rotation to give: the frame keeps the world axes.
        Imath::Quatd rotation;
        ZentoCore::extractSRT(world, scale, rotation, translation);
        const Imath::V3d origin(world[3][0], world[3][1], world[3][2]);
        frame = rotation.toMatrix44();
        setPosition(origin);
        sum += origin;
        // One node: the handles follow its own axes.
        if (names.size() == 1)
            return;
    }
    if (names.size() == 1)
        return;
    frame.makeIdentity();
    setPosition(sum / double(names.size()));
}

void BaseManipulator::setPosition(const Imath::V3d& pivot)
{
    frame[3][0] = pivot.x;
    frame[3][1] = pivot.y;
    frame[3][2] = pivot.z;
}

void BaseManipulator::storeStartMatrices()
{
    startMatrices.assign(names.size(), Imath::M44d());
    for (size_t i = 0; i < names.size(); ++i)
        if (const std::shared_ptr<BaseNode> node = graph->node(names[i]))
            startMatrices[i] = node->localMatrix();
}

std::array<Imath::V3d, 3> BaseManipulator::axes() const
{
    if (worldAxes)
        return {Imath::V3d(1.0, 0.0, 0.0), Imath::V3d(0.0, 1.0, 0.0), Imath::V3d(0.0, 0.0, 1.0)};
    return {Imath::V3d(frame[0][0], frame[0][1], frame[0][2]), Imath::V3d(frame[1][0], frame[1][1], frame[1][2]),
            Imath::V3d(frame[2][0], frame[2][1], frame[2][2])};
}

int BaseManipulator::activeAxis() const
{
    return axisZ ? 2 : axisY ? 1 : 0;
}

bool& BaseManipulator::axisFlag(int axis)
{
    return this->*kAxisFlags[axis];
}

bool BaseManipulator::locked(int axis) const
{
    return this->*kLocks[axis];
}

Imath::V3d BaseManipulator::handleColor(int axis) const
{
    if (locked(axis))
        return kLockedColor;
    return this->*kAxisFlags[axis] ? kYellow : kAxisColors[axis];
}

int BaseManipulator::dragPlaneAxis(const Imath::V3d& R, const std::array<Imath::V3d, 3>& testAxes) const
{
    // For each axis: the normal it prefers, and the one it takes when the view meets that one edge-on.
    const int preferred[3] = {1, 0, 1};
    const int fallback[3] = {2, 2, 0};
    for (int axis = 0; axis < 3; ++axis)
        if (this->*kAxisFlags[axis])
            return std::fabs(R.dot(testAxes[preferred[axis]])) < 0.5 ? fallback[axis] : preferred[axis];
    for (const PlaneHandle& handle : kPlaneHandles)
        if (this->*handle.flag)
            return handle.normal;
    return -1;
}

double BaseManipulator::hoverHandles(const Frustum& frustum, int width, int height, const Imath::V3d& cursor,
                                     bool isScreenPosition)
{
    clearFlags();
    if (names.empty())
        return 0.0;
    const Imath::V3d P = position();
    const double u = handleUnit(frustum, width, height, P);
    if (!std::isfinite(u) || !(u > 0.0))
        return 0.0;
    const Imath::V2d at = isScreenPosition ? Imath::V2d(cursor.x, cursor.y)
                                           : projectToScreen(frustum, width, height, cursor);
    const Imath::V2d centre = projectToScreen(frustum, width, height, P);
    if (std::fabs(at.x - centre.x) <= kCentrePixels && std::fabs(at.y - centre.y) <= kCentrePixels && !lockX &&
        !lockY && !lockZ) {
        planeView = true;
        return u;
    }
    const std::array<Imath::V3d, 3> A = axes();
    // The arrows reach to the tip of their cones.
    const double reach = u * size + u * 0.25;
    for (int axis = 0; axis < 3; ++axis) {
        const Imath::V2d tip = projectToScreen(frustum, width, height, P + A[axis] * reach);
        if (distanceSquaredToSegment(centre, tip, at) < kArrowPixelsSquared && !locked(axis)) {
            axisFlag(axis) = true;
            return u;
        }
    }
    const double hi = u / 10.0 + 0.75 * size * u;
    const double lo = 0.75 * size * u - u / 10.0;
    for (const PlaneHandle& handle : kPlaneHandles) {
        Imath::Box2d square;
        for (const double a : {hi, lo})
            for (const double b : {hi, lo})
                square.extendBy(projectToScreen(frustum, width, height, P + A[handle.axisA] * a + A[handle.axisB] * b));
        if (square.intersects(at)) {
            this->*handle.flag = true;
            return u;
        }
    }
    return u;
}

void BaseManipulator::drawArrows(const Frustum& frustum, int width, int height, const Imath::V3d& lengths,
                                 const std::function<void(const Imath::V3d&, const Imath::V3d&, double)>& drawTip)
{
    if (!beginDraw(frustum))
        return;
    const Imath::V3d P = position();
    const double u = handleUnit(frustum, width, height, P);
    drawCentreAndPlanes(frustum, u);
    const std::array<Imath::V3d, 3> A = axes();
    for (int axis = 0; axis < 3; ++axis) {
        setColor(handleColor(axis));
        const Imath::V3d tip = P + A[axis] * lengths[axis] * size * u;
        drawLine(P, tip);
        drawTip(tip, A[axis], u);
    }
    endDraw();
}

void BaseManipulator::drawCentreAndPlanes(const Frustum& frustum, double unit)
{
    const Imath::V3d P = position();
    const double offset = unit * size * 3.0 * 0.25;
    const double half = unit / 10.0;
    Imath::V3d side, up, view;
    frustum.computeViewFrame(side, up, view);
    setColor(kYellow);
    drawPlane(P, up, -view, half, half, planeView);
    const std::array<Imath::V3d, 3> A = axes();
    for (const PlaneHandle& handle : kPlaneHandles) {
        const bool active = this->*handle.flag;
        setColor(active ? kYellow : kAxisColors[handle.normal]);
        drawPlane(P + (A[handle.axisA] + A[handle.axisB]) * offset, A[handle.tangent], A[handle.normal], half, half,
                  active);
    }
}

bool BaseManipulator::beginDraw(const Frustum& frustum)
{
    if (names.empty() || !program || !isFinite(frame))
        return false;
    mGl->glDisable(GL_DEPTH_TEST);
    mGl->glLineWidth(1.0f);
    mGl->glUseProgram(program);
    setMatrix(mGl, viewMatrixLocation, frustum.computeViewMatrix());
    setMatrix(mGl, projMatrixLocation, mDepth->projection(frustum.computeProjectionMatrix()));
    mGl->glBindVertexArray(mVertexArray);
    return true;
}

void BaseManipulator::endDraw()
{
    mGl->glBindBuffer(GL_ARRAY_BUFFER, 0);
    mGl->glBindVertexArray(0);
    mGl->glUseProgram(0);
}

void BaseManipulator::drawShape(GLuint buffer, GLenum mode, GLsizei count, const Imath::M44d& transform)
{
    setMatrix(mGl, transformLocation, transform);
    mGl->glBindBuffer(GL_ARRAY_BUFFER, buffer);
    mGl->glVertexAttribPointer(GLuint(positionLocation), 3, GL_FLOAT, GL_FALSE, 12, nullptr);
    mGl->glEnableVertexAttribArray(GLuint(positionLocation));
    mGl->glDrawArrays(mode, 0, count);
}

void BaseManipulator::setColor(const Imath::V3d& rgb)
{
    setColor(Imath::V4d(rgb.x, rgb.y, rgb.z, 1.0));
}

void BaseManipulator::setColor(const Imath::V4d& rgba)
{
    mGl->glUniform4f(colorLocation, float(rgba.x), float(rgba.y), float(rgba.z), float(rgba.w));
}

void BaseManipulator::drawLine(const Imath::V3d& from, const Imath::V3d& to)
{
    const Imath::V3d direction = to - from;
    drawShape(lineBuffer, GL_LINES, kLineCount,
              placed(Imath::V3d(direction.length()),
                     rotationBetween(Imath::V3d(1.0, 0.0, 0.0), direction).toMatrix44(), from));
}

void BaseManipulator::drawCone(const Imath::V3d& base, const Imath::V3d& direction, double radius, double height)
{
    drawShape(coneBuffer, GL_TRIANGLE_FAN, kConeCount,
              placed(Imath::V3d(radius, height, radius),
                     rotationBetween(Imath::V3d(0.0, 1.0, 0.0), direction).toMatrix44(), base));
}

void BaseManipulator::drawCircle(const Imath::V3d& center, const Imath::V3d& normal, double radius)
{
    drawShape(circleBuffer, GL_LINE_LOOP, kCircleCount,
              placed(Imath::V3d(radius), rotationBetween(Imath::V3d(0.0, 1.0, 0.0), normal).toMatrix44(), center));
}

void BaseManipulator::drawDisc(const Imath::V3d& center, const Imath::V3d& normal, double radius)
{
    drawShape(discBuffer, GL_TRIANGLE_FAN, kDiscCount,
              placed(Imath::V3d(radius), rotationBetween(Imath::V3d(0.0, 1.0, 0.0), normal).toMatrix44(), center));
}

void BaseManipulator::drawArc(const Imath::V3d& center, const Imath::V3d& normal, const Imath::V3d& facing,
                              double radius)
{
    drawShape(arcBuffer, GL_LINE_STRIP, kArcCount, placed(Imath::V3d(radius), orientedFrame(normal, facing), center));
}

void BaseManipulator::drawPlane(const Imath::V3d& center, const Imath::V3d& tangent, const Imath::V3d& normal,
                                double halfWidth, double halfHeight, bool filled)
{
    const Imath::M44d transform =
        placed(Imath::V3d(halfWidth, 1.0, halfHeight), orientedFrame(normal, tangent), center);
    if (filled)
        drawShape(planeBuffer, GL_TRIANGLES, kPlaneCount, transform);
    else
        drawShape(planeOutlineBuffer, GL_LINE_LOOP, kPlaneOutlineCount, transform);
}

void BaseManipulator::drawCube(const Imath::V3d& center, const Imath::Quatd& rotation, const Imath::V3d& scale)
{
    drawShape(cubeBuffer, GL_TRIANGLE_FAN, kCubeCount, placed(scale, rotation.toMatrix44(), center));
}
