#pragma once

#include <QOpenGLFunctions_4_3_Core>

// An offscreen framebuffer: one colour buffer of the format given and a
// 32-bit floating-point depth buffer (see DepthRange), no multisampling. A
// frame is composed in one (RGBA) before it is blitted to the widget; a pick
// renders prim ids into another.
class DrawTarget {
public:
    explicit DrawTarget(GLenum colorFormat = GL_RGBA8) : mColorFormat(colorFormat) {}
    ~DrawTarget();
    DrawTarget(const DrawTarget&) = delete;
    DrawTarget& operator=(const DrawTarget&) = delete;

    void initialize(QOpenGLFunctions_4_3_Core* gl);
    // Deletes the GL objects; needs the context current.
    void release();
    // Makes storage of that size unless it has it already; a size below 1 is taken as 1.
    void setSize(int width, int height);

    void bind();
    // Copies the whole colour buffer into the framebuffer given, pixel for pixel,
    // and leaves that framebuffer bound for reading and drawing.
    void blitTo(GLuint framebuffer);

    int width() const { return mWidth; }
    int height() const { return mHeight; }

private:
    QOpenGLFunctions_4_3_Core* mGl = nullptr;
    GLenum mColorFormat;
    GLuint mFramebuffer = 0;
    GLuint mColor = 0;
    GLuint mDepth = 0;
    int mWidth = 0;
    int mHeight = 0;
};
