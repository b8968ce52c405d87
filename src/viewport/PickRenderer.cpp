#include "PickRenderer.h"

#include "GlProgram.h"
#include "MathUtils.h"

#include <QOpenGLWidget>

#include <algorithm>
#include <string>

using ZentoCore::NodePath;

namespace {

enum : GLint { kModelViewProjection = 0, kId = 1 };

// The scene renderer's hull arrays, drawn as they are: the position stays where they keep it.
const std::string kVertexSource = "#version 430 core\n"
                                  "layout(location = 0) uniform mat4 modelViewProjection;\n"
                                  "layout(location = " +
                                  std::to_string(SceneRenderer::kHullPosition) +
                                  ") in vec3 position;\n"
                                  "void main() { gl_Position = modelViewProjection * vec4(position, 1.0); }\n";

const char* const kFragmentSource = R"(#version 430 core
layout(location = 1) uniform uint id;
out uint pickedId;
void main() { pickedId = id; }
)";

// More samples a side than this, and the rectangle is rendered at a lower
// resolution: a marquee dragged far beyond the window must not ask for
// gigabytes.
constexpr int kMaximumSide = 4096;
// Cleared into the id buffer: no prim.
constexpr GLuint kNoPrim = 0;

} // namespace

PickRenderer::PickRenderer(QOpenGLWidget& widget, SceneRenderer& meshes, const DepthRange& depth)
    : mWidget(widget), mMeshes(meshes), mDepth(depth)
{
}

PickRenderer::~PickRenderer()
{
    release();
}

void PickRenderer::initialize(QOpenGLFunctions_4_3_Core* gl)
{
    mGl = gl;
    mTarget.initialize(gl);
    mProgram = buildGlProgram(gl, kVertexSource.c_str(), kFragmentSource);
    GLint largest = 0;
    gl->glGetIntegerv(GL_MAX_RENDERBUFFER_SIZE, &largest);
    mMaximumSide = std::max(1, std::min(largest, kMaximumSide));
}

void PickRenderer::release()
{
    if (!mGl)
        return;
    mTarget.release();
    mGl->glDeleteProgram(mProgram);
    mProgram = 0;
    mGl = nullptr;
}

std::vector<ScenePicker::Hit> PickRenderer::pickPrims(ZentoSceneDelegate& delegate, const Request& request)
{
    if (!mProgram)
        return {};
    mWidget.makeCurrent();
    const auto& meshes = mMeshes.upToDateMeshes(delegate);
    const int width = std::clamp(request.width, 1, mMaximumSide);
    const int height = std::clamp(request.height, 1, mMaximumSide);
    mTarget.setSize(width, height);
    mTarget.bind();
    mGl->glViewport(0, 0, width, height);
    mDepth.begin();
    mGl->glEnable(GL_DEPTH_TEST);
    mGl->glDisable(GL_BLEND);
    const GLuint noPrim = kNoPrim;
    const GLfloat farDepth = mDepth.farDepth();
    mGl->glClearBufferuiv(GL_COLOR, 0, &noPrim);
    mGl->glClearBufferfv(GL_DEPTH, 0, &farDepth);

    const Imath::M44d viewProjection = request.viewMatrix * mDepth.projection(request.projectionMatrix);
    const std::vector<const NodePath*> drawn = drawIds(meshes, viewProjection, request.excluded);

    std::vector<GLuint> ids(size_t(width) * size_t(height));
    std::vector<GLfloat> depths(ids.size());
    mGl->glPixelStorei(GL_PACK_ALIGNMENT, 4);
    mGl->glReadPixels(0, 0, width, height, GL_RED_INTEGER, GL_UNSIGNED_INT, ids.data());
    mGl->glReadPixels(0, 0, width, height, GL_DEPTH_COMPONENT, GL_FLOAT, depths.data());
    mDepth.end();
    mGl->glBindFramebuffer(GL_FRAMEBUFFER, mWidget.defaultFramebufferObject());
    return resolve(drawn, ids, depths, viewProjection);
}

std::vector<const NodePath*> PickRenderer::drawIds(const std::map<NodePath, SceneRenderer::GpuMesh>& meshes,
                                                   const Imath::M44d& viewProjection,
                                                   const std::vector<NodePath>& excluded)
{
    mGl->glUseProgram(mProgram);
    std::vector<const NodePath*> drawn;
    for (const auto& entry : meshes) {
        const SceneRenderer::GpuMesh& mesh = entry.second;
        const bool left = std::any_of(excluded.begin(), excluded.end(),
                                      [&](const NodePath& prefix) { return entry.first.hasPrefix(prefix); });
        if (left || !mesh.visible || !mesh.hullVertexCount)
            continue;
        drawn.push_back(&entry.first);
        const Imath::M44f toClip(Imath::M44d(mesh.transform) * viewProjection);
        mGl->glUniformMatrix4fv(kModelViewProjection, 1, GL_FALSE, toClip.getValue());
        mGl->glUniform1ui(kId, GLuint(drawn.size()));
        mGl->glBindVertexArray(mesh.hullArray);
        mGl->glDrawArrays(GL_TRIANGLES, 0, mesh.hullVertexCount);
    }
    mGl->glBindVertexArray(0);
    mGl->glUseProgram(0);
    return drawn;
}

std::vector<ScenePicker::Hit> PickRenderer::resolve(const std::vector<const NodePath*>& drawn,
                                                    const std::vector<GLuint>& ids, const std::vector<GLfloat>& depths,
                                                    const Imath::M44d& viewProjection) const
{
    // The nearest sample of each prim, and the prims in the order first seen.
    const size_t unseen = ids.size();
    std::vector<size_t> nearest(drawn.size(), unseen);
    std::vector<size_t> prims;
    for (size_t sample = 0; sample < ids.size(); ++sample) {
        const GLuint id = ids[sample];
        if (id == kNoPrim || id > drawn.size())
            continue;
        size_t& best = nearest[id - 1];
        if (best == unseen)
            prims.push_back(id - 1);
        if (best == unseen || mDepth.nearer(depths[sample], depths[best]))
            best = sample;
    }
    std::stable_sort(prims.begin(), prims.end(), [&](size_t a, size_t b) {
        return mDepth.nearer(depths[nearest[a]], depths[nearest[b]]);
    });

    // Each sample's centre, in the target's normalised coordinates, back through the matrices it was drawn with.
    const int width = mTarget.width();
    const int height = mTarget.height();
    const Imath::M44d toWorld = ZentoCore::matrixInverse(viewProjection);
    std::vector<Hit> hits;
    hits.reserve(prims.size());
    for (const size_t prim : prims) {
        const size_t sample = nearest[prim];
        const double x = (double(sample % size_t(width)) + 0.5) / width * 2.0 - 1.0;
        const double y = (double(sample / size_t(width)) + 0.5) / height * 2.0 - 1.0;
        const Imath::V4d world = Imath::V4d(x, y, mDepth.ndcDepth(depths[sample]), 1.0) * toWorld;
        hits.push_back({*drawn[prim], Imath::V3f(float(world.x / world.w), float(world.y / world.w),
                                                 float(world.z / world.w))});
    }
    return hits;
}
