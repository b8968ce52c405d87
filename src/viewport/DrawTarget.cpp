#include "DrawTarget.h"

#include <algorithm>

DrawTarget::~DrawTarget()
{
    release();
}

void DrawTarget::initialize(QOpenGLFunctions_4_3_Core* gl)
{
    mGl = gl;
}

void DrawTarget::release()
{
    if (!mGl || !mFramebuffer)
        return;
    mGl->glDeleteFramebuffers(1, &mFramebuffer);
    const GLuint renderbuffers[2] = {mColor, mDepth};
    mGl->glDeleteRenderbuffers(2, renderbuffers);
    mFramebuffer = mColor = mDepth = 0;
    mWidth = mHeight = 0;
}

void DrawTarget::setSize(int width, int height)
{
    width = std::max(width, 1);
    height = std::max(height, 1);
    if (!mGl || (mFramebuffer && width == mWidth && height == mHeight))
        return;
    release();
    mWidth = width;
    mHeight = height;
    mGl->glGenRenderbuffers(1, &mColor);
    mGl->glBindRenderbuffer(GL_RENDERBUFFER, mColor);
    mGl->glRenderbufferStorage(GL_RENDERBUFFER, mColorFormat, mWidth, mHeight);
    mGl->glGenRenderbuffers(1, &mDepth);
    mGl->glBindRenderbuffer(GL_RENDERBUFFER, mDepth);
    mGl->glRenderbufferStorage(GL_RENDERBUFFER, GL_DEPTH_COMPONENT32F, mWidth, mHeight);
    mGl->glBindRenderbuffer(GL_RENDERBUFFER, 0);

    GLint previous = 0;
    mGl->glGetIntegerv(GL_DRAW_FRAMEBUFFER_BINDING, &previous);
    mGl->glGenFramebuffers(1, &mFramebuffer);
    mGl->glBindFramebuffer(GL_FRAMEBUFFER, mFramebuffer);
    mGl->glFramebufferRenderbuffer(GL_FRAMEBUFFER, GL_COLOR_ATTACHMENT0, GL_RENDERBUFFER, mColor);
    mGl->glFramebufferRenderbuffer(GL_FRAMEBUFFER, GL_DEPTH_ATTACHMENT, GL_RENDERBUFFER, mDepth);
    mGl->glBindFramebuffer(GL_FRAMEBUFFER, GLuint(previous));
}

void DrawTarget::bind()
{
    mGl->glBindFramebuffer(GL_FRAMEBUFFER, mFramebuffer);
}

void DrawTarget::blitTo(GLuint framebuffer)
{
    mGl->glBindFramebuffer(GL_DRAW_FRAMEBUFFER, framebuffer);
    mGl->glBindFramebuffer(GL_READ_FRAMEBUFFER, mFramebuffer);
    mGl->glBlitFramebuffer(0, 0, mWidth, mHeight, 0, 0, mWidth, mHeight, GL_COLOR_BUFFER_BIT, GL_NEAREST);
    mGl->glBindFramebuffer(GL_FRAMEBUFFER, framebuffer);
}
