#include "GlProgram.h"

#include <QDebug>

#include <algorithm>
#include <string>

namespace {

// Shaders and programs keep their logs alike, each behind its own pair of calls.
using GetParameter = void (QOpenGLFunctions_4_3_Core::*)(GLuint, GLenum, GLint*);
using GetLog = void (QOpenGLFunctions_4_3_Core::*)(GLuint, GLsizei, GLsizei*, GLchar*);

// True when the status is set; otherwise the driver's log goes to the warning stream.
bool succeeded(QOpenGLFunctions_4_3_Core* gl, GLuint object, GLenum status, GetParameter getParameter,
               GetLog getLog, const char* failure)
{
    GLint value = GL_FALSE;
    (gl->*getParameter)(object, status, &value);
    if (value)
        return true;
    GLint length = 0;
    (gl->*getParameter)(object, GL_INFO_LOG_LENGTH, &length);
    std::string log(static_cast<size_t>(std::max(length, 1)), '\0');
    (gl->*getLog)(object, length, nullptr, &log[0]);
    qWarning("%s: %s", failure, log.c_str());
    return false;
}

GLuint compileShader(QOpenGLFunctions_4_3_Core* gl, GLenum type, const char* source)
{
    const GLuint shader = gl->glCreateShader(type);
    gl->glShaderSource(shader, 1, &source, nullptr);
    gl->glCompileShader(shader);
    if (succeeded(gl, shader, GL_COMPILE_STATUS, &QOpenGLFunctions_4_3_Core::glGetShaderiv,
                  &QOpenGLFunctions_4_3_Core::glGetShaderInfoLog, "shader does not compile"))
        return shader;
    gl->glDeleteShader(shader);
    return 0;
}

} // namespace

GLuint buildGlProgram(QOpenGLFunctions_4_3_Core* gl, const char* vertexSource, const char* fragmentSource)
{
    const GLuint vertex = compileShader(gl, GL_VERTEX_SHADER, vertexSource);
    const GLuint fragment = compileShader(gl, GL_FRAGMENT_SHADER, fragmentSource);
    GLuint program = 0;
    if (vertex && fragment) {
        program = gl->glCreateProgram();
        gl->glAttachShader(program, vertex);
        gl->glAttachShader(program, fragment);
        gl->glLinkProgram(program);
        if (!succeeded(gl, program, GL_LINK_STATUS, &QOpenGLFunctions_4_3_Core::glGetProgramiv,
                       &QOpenGLFunctions_4_3_Core::glGetProgramInfoLog, "program does not link")) {
            gl->glDeleteProgram(program);
            program = 0;
        }
    }
    // Deleting 0 is allowed; attached shaders go with the program.
    gl->glDeleteShader(vertex);
    gl->glDeleteShader(fragment);
    return program;
}
