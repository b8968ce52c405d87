#include "DepthRange.h"

#include <QOpenGLContext>

void DepthRange::initialize(QOpenGLContext* context, QOpenGLFunctions_4_3_Core* gl)
{
    mGl = gl;
    mClipControl = nullptr;
    // A driver may hand out an address for a function it does not have: ask for the version first.
    const QSurfaceFormat format = context->format();
    if (format.version() >= qMakePair(4, 5) || context->hasExtension("GL_ARB_clip_control"))
        mClipControl = reinterpret_cast<ClipControl>(context->getProcAddress("glClipControl"));
}

Imath::M44d DepthRange::projection(const Imath::M44d& glProjection) const
{
    if (!reversed())
        return glProjection;
    // Clip z' = (w - z) / 2: near (z = -w) goes to 1, far (z = w) to 0, for
    // perspective and orthographic alike. Worked out in double before any
    // upload, so that nothing of the range is lost on the way.
    Imath::M44d toReversed;
    toReversed[2][2] = -0.5;
    toReversed[3][2] = 0.5;
    return glProjection * toReversed;
}

void DepthRange::begin() const
{
    if (reversed())
        mClipControl(GL_LOWER_LEFT, GL_ZERO_TO_ONE);
    mGl->glDepthFunc(reversed() ? GL_GREATER : GL_LESS);
}

void DepthRange::end() const
{
    if (reversed())
        mClipControl(GL_LOWER_LEFT, GL_NEGATIVE_ONE_TO_ONE);
    mGl->glDepthFunc(GL_LESS);
}
