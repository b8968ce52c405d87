#pragma once

#include <Imath/ImathMatrix.h>

#include <QOpenGLFunctions_4_3_Core>

class QOpenGLContext;

// How the viewport stores depth. With near 0.01 and far 100000 an ordinary
// depth buffer keeps too little precision at the distances an artist works
// at, and back faces win the depth test in patches. So depth runs reversed,
// 1 at near and 0 at far, into a 32-bit floating-point buffer, where the
// float's exponent makes up for the projection's crowding towards near. That
// needs clip control (OpenGL 4.5 or ARB_clip_control); without it the
// ordinary range stays, with the same buffer. Every projection that is
// uploaded, and every depth that is read back, goes through here.
class DepthRange {
public:
    // Looks clip control up in the context; needs it current.
    void initialize(QOpenGLContext* context, QOpenGLFunctions_4_3_Core* gl);

    bool reversed() const { return mClipControl != nullptr; }
    // What to upload for a frustum's OpenGL projection.
    Imath::M44d projection(const Imath::M44d& glProjection) const;
    // The depth to clear to: the far end.
    float farDepth() const { return reversed() ? 0.0f : 1.0f; }
    // Whether a stored depth lies nearer the camera than another.
    bool nearer(float depth, float than) const { return reversed() ? depth > than : depth < than; }
    // The normalised device depth, for projection(), of a stored depth.
    double ndcDepth(float depth) const { return reversed() ? depth : 2.0 * depth - 1.0; }

    // Sets clip control and the depth test's comparison for a pass; end()
    // gives the context back as Qt left it.
    void begin() const;
    void end() const;

private:
    using ClipControl = void(QOPENGLF_APIENTRYP)(GLenum origin, GLenum depth);

    QOpenGLFunctions_4_3_Core* mGl = nullptr;
    ClipControl mClipControl = nullptr;
};
