#pragma once

#include <QOpenGLFunctions_4_3_Core>

// Compiles and links a vertex and a fragment shader. 0 on any failure, after
// the driver's log has gone to the warning stream.
GLuint buildGlProgram(QOpenGLFunctions_4_3_Core* gl, const char* vertexSource, const char* fragmentSource);
