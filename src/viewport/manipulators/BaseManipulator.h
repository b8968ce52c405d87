#pragma once

#include "DepthRange.h"
#include "Frustum.h"

#include <Imath/ImathMatrix.h>
#include <Imath/ImathQuat.h>
#include <Imath/ImathVec.h>

#include <QOpenGLFunctions_4_3_Core>

#include <array>
#include <functional>
#include <memory>
#include <string>
#include <vector>

class BaseCommand;
class ZentoSceneGraph;

// An on-screen handle that moves, rotates or scales the selected nodes. The
// base holds what the three share: the GL program and the unit shapes, the
// primitives drawn from them, the selection with its pivot and frame, the
// seven handle flags, and the hover test and drawing of the centre square and
// plane handles that the move and scale handles have in common. A drag
// changes the nodes live by running its own command, so that pushing the
// command at the release changes nothing on the screen.
//
// Pixels have their origin at the bottom left; width and height are the
// viewport's. Drawing needs the GL context current.
class BaseManipulator {
public:
    BaseManipulator() = default;
    virtual ~BaseManipulator();
    BaseManipulator(const BaseManipulator&) = delete;
    BaseManipulator& operator=(const BaseManipulator&) = delete;

    // Builds the program and the shape buffers. Projections go through depth,
    // which must outlive the manipulator. When the program does not build
    // (the driver's log goes to the warning stream), no handle is drawn.
    void initialize(QOpenGLFunctions_4_3_Core* gl, const DepthRange& depth);
    // Deletes the GL objects; needs the context current.
    void releaseGl();

    // Nothing is drawn for an empty selection; the depth test is left off.
    virtual void draw(const ZentoCore::Frustum& frustum, int width, int height) = 0;
    // Sets the flag of the handle under the cursor, a pixel when
    // isScreenPosition is set and else a world point.
    virtual void hover(const ZentoCore::Frustum& frustum, int width, int height, const Imath::V3d& cursor,
                       bool isScreenPosition) = 0;
    virtual void press(const ZentoCore::Frustum& frustum, int width, int height, int x, int y) = 0;
    virtual void drag(const ZentoCore::Frustum& frustum, int width, int height, int x, int y) = 0;
    // Ends the drag: clears the flags and dragging.
    virtual void release() = 0;
    // The drag so far as one command on the nodes and start matrices of the press.
    virtual std::shared_ptr<BaseCommand> command() = 0;

    // Whether a handle is under the cursor or in use.
    bool isActive() const;
    // Forgets the handle under the cursor.
    void clearFlags();
    // Keeps the names of active nodes, sorted, and places the frame on them.
    void setSelection(const std::vector<std::string>& selection);
    // One node: its position and orientation without scale. More: the mean
    // of their positions with the world axes.
    void updateFrame();

    ZentoSceneGraph* graph = nullptr;
    // Multiplier of handle length.
    double size = 1.0;
    GLint projMatrixLocation = -1;
    GLint viewMatrixLocation = -1;
    GLint positionLocation = -1;
    GLint colorLocation = -1;
    GLint transformLocation = -1;
    GLuint program = 0;
    GLuint lineBuffer = 0;
    GLuint planeBuffer = 0;
    GLuint planeOutlineBuffer = 0;
    GLuint coneBuffer = 0;
    GLuint cubeBuffer = 0;
    GLuint circleBuffer = 0;
    GLuint arcBuffer = 0;
    GLuint discBuffer = 0;
    // Set by the viewport at a press on a live handle; release clears it.
    bool dragging = false;

    // Rows 0 to 2 are the X, Y and Z axes, row 3 the pivot.
    Imath::M44d frame;
    // The handle under the cursor or in use; at most one is set. The rotate
    // handle has rings for the three axes and the view (planeView, which it
    // calls ringView), and no planes.
    bool axisX = false;
    bool axisY = false;
    bool axisZ = false;
    bool planeYZ = false;
    bool planeXZ = false;
    bool planeXY = false;
    bool planeView = false;
    // The world axes instead of the frame's; a locked axis is grey and cannot
    // be hit, and while any is locked neither can the centre square.
    bool worldAxes = false;
    bool lockX = false;
    bool lockY = false;
    bool lockZ = false;
    // The nodes handled, and their local matrices at the press.
    std::vector<std::string> names;
    std::vector<Imath::M44d> startMatrices;

protected:
    static inline const Imath::V3d kYellow{1.0, 1.0, 0.0};

    Imath::V3d position() const { return Imath::V3d(frame[3][0], frame[3][1], frame[3][2]); }
    // Writes row 3 of the frame alone.
    void setPosition(const Imath::V3d& pivot);
    // The frame's rows, or the world axes.
    std::array<Imath::V3d, 3> axes() const;
    // 2 for Z, 1 for Y, else 0.
    int activeAxis() const;
    // The flag and the lock of an axis by index.
    bool& axisFlag(int axis);
    bool locked(int axis) const;
    // Grey when locked, yellow when the flag is set, else the axis colour.
    Imath::V3d handleColor(int axis) const;
    // Keeps the local matrix of each name at the press (identity for one that is gone).
    void storeStartMatrices();

    // Of the planes through the pivot, the one an axis or plane handle drags
    // in, as an index of the axes tested: an axis drags in a plane that holds
    // it, the one that faces the view at least halfway (the dot product of
    // its normal and the unit ray R), else the other. -1 for the centre
    // square, whose plane faces the ray.
    int dragPlaneAxis(const Imath::V3d& R, const std::array<Imath::V3d, 3>& testAxes) const;

    // The hover test of the move and scale handles: the centre square
    // within 10 pixels, an arrow within 5 pixels of its line up to the tip,
    // a plane handle inside the screen rectangle of its square; the first
    // match in that order wins. Returns the handle unit at the pivot, or 0
    // when nothing can be hovered: no selection, or a pivot that the camera
    // cannot place on the screen.
    double hoverHandles(const ZentoCore::Frustum& frustum, int width, int height, const Imath::V3d& cursor,
                        bool isScreenPosition);
    // The yellow centre square facing the camera and the three plane
    // handles, filled when their flag is set.
    void drawCentreAndPlanes(const ZentoCore::Frustum& frustum, double unit);
    // The whole draw of a handle of arrows: the centre and plane handles,
    // then along each axis a line of lengths[axis] times size handle units
    // and drawTip at its end, given the tip, the axis and the handle unit.
    void drawArrows(const ZentoCore::Frustum& frustum, int width, int height, const Imath::V3d& lengths,
                    const std::function<void(const Imath::V3d& tip, const Imath::V3d& axis, double unit)>& drawTip);

    // The prologue of every draw: false with nothing to draw (no selection,
    // no program, a frame that is not finite). Otherwise the depth test is
    // off and the program in use with the camera's matrices; endDraw unbinds.
    bool beginDraw(const ZentoCore::Frustum& frustum);
    void endDraw();

    void setColor(const Imath::V3d& rgb);
    void setColor(const Imath::V4d& rgba);
    void drawLine(const Imath::V3d& from, const Imath::V3d& to);
    void drawCone(const Imath::V3d& base, const Imath::V3d& direction, double radius, double height);
    void drawCircle(const Imath::V3d& center, const Imath::V3d& normal, double radius);
    void drawDisc(const Imath::V3d& center, const Imath::V3d& normal, double radius);
    // The arc lies in the plane of normal, turned so that its x goes to facing.
    void drawArc(const Imath::V3d& center, const Imath::V3d& normal, const Imath::V3d& facing, double radius);
    void drawPlane(const Imath::V3d& center, const Imath::V3d& tangent, const Imath::V3d& normal, double halfWidth,
                   double halfHeight, bool filled);
    void drawCube(const Imath::V3d& center, const Imath::Quatd& rotation, const Imath::V3d& scale);

    // Whether the last press met its drag plane; a drag that did not start on it does nothing.
    bool pressHit = false;

private:
    void drawShape(GLuint buffer, GLenum mode, GLsizei count, const Imath::M44d& transform);

    QOpenGLFunctions_4_3_Core* mGl = nullptr;
    const DepthRange* mDepth = nullptr;
    GLuint mVertexArray = 0;
};
