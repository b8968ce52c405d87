// Frame time of the viewport at 1280 x 720, from paintGL to the finished frame
// (glFinish), for an empty scene, a BVH skeleton with its capsules and
// constraints, the same with a skin of 200,000 triangles, and a frame of that
// scene in which only the transforms of 20 bodies changed. The reference is
// plain OpenGL in the same context: the same triangles, one flat-coloured
// indexed draw per mesh, straight into the widget's framebuffer. In the scene
// with the skin, the latency of the scene graph's pick for a click and for a
// marquee over the whole window, with its ratio to that scene's frame time.
// Prints one figure a line, the median of the timed runs.

#include "RagdollFixture.h"

#include "BenchViewport.h"
#include "FrameMemory.h"
#include "GlProgram.h"
#include "Viewport.h"
#include "ZentoSceneGraph.h"

#include <QApplication>
#include <QOpenGLContext>
#include <QOpenGLFunctions_4_3_Core>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <functional>
#include <string>
#include <vector>

namespace {

constexpr int kWidth = 1280;
constexpr int kHeight = 720;
constexpr int kWarmUpFrames = 3;
constexpr int kTimedFrames = 25;

double medianMilliseconds(const std::function<void()>& prepare, const std::function<void()>& frame)
{
    std::vector<double> times;
    for (int i = 0; i < kWarmUpFrames + kTimedFrames; ++i) {
        prepare();
        const auto start = std::chrono::steady_clock::now();
        frame();
        const double elapsed =
            std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
        if (i >= kWarmUpFrames)
            times.push_back(elapsed);
    }
    std::sort(times.begin(), times.end());
    return times[times.size() / 2];
}

const char* const kRawVertexSource = R"(#version 430 core
layout(location = 0) uniform mat4 toClip;
layout(location = 0) in vec3 position;
void main() { gl_Position = toClip * vec4(position, 1.0); }
)";

const char* const kRawFragmentSource = R"(#version 430 core
layout(location = 1) uniform vec4 color;
out vec4 fragColor;
void main() { fragColor = color; }
)";

// The reference: the delegate's meshes, fanned into triangles once, drawn with
// nothing else into the widget's framebuffer.
class RawRenderer {
public:
    RawRenderer(QOpenGLFunctions_4_3_Core* gl, const ZentoSceneDelegate& delegate)
        : mGl(gl), mProgram(buildGlProgram(gl, kRawVertexSource, kRawFragmentSource))
    {
        for (const auto& entry : delegate.meshes()) {
            const ZentoSceneDelegate::_Mesh& mesh = entry.second;
            std::vector<GLuint> triangles;
            size_t cursor = 0;
            for (const int count : mesh.numVerts) {
                for (int i = 2; i < count; ++i)
                    triangles.insert(triangles.end(), {GLuint(mesh.verts[cursor]), GLuint(mesh.verts[cursor + i - 1]),
                                                       GLuint(mesh.verts[cursor + i])});
                cursor += size_t(count);
            }
            Draw draw;
            draw.transform = Imath::M44f(mesh.transform);
            draw.color = Imath::V4f(mesh.color.x, mesh.color.y, mesh.color.z, mesh.opacity);
            draw.count = GLsizei(triangles.size());
            gl->glGenVertexArrays(1, &draw.vertexArray);
            gl->glGenBuffers(2, draw.buffers);
            gl->glBindVertexArray(draw.vertexArray);
            gl->glBindBuffer(GL_ARRAY_BUFFER, draw.buffers[0]);
            gl->glBufferData(GL_ARRAY_BUFFER, GLsizeiptr(mesh.points.size() * sizeof(Imath::V3f)), mesh.points.data(),
                             GL_STATIC_DRAW);
            gl->glEnableVertexAttribArray(0);
            gl->glVertexAttribPointer(0, 3, GL_FLOAT, GL_FALSE, sizeof(Imath::V3f), nullptr);
            gl->glBindBuffer(GL_ELEMENT_ARRAY_BUFFER, draw.buffers[1]);
            gl->glBufferData(GL_ELEMENT_ARRAY_BUFFER, GLsizeiptr(triangles.size() * sizeof(GLuint)), triangles.data(),
                             GL_STATIC_DRAW);
            gl->glBindVertexArray(0);
            mDraws.push_back(draw);
        }
    }

    ~RawRenderer()
    {
        for (Draw& draw : mDraws) {
            mGl->glDeleteVertexArrays(1, &draw.vertexArray);
            mGl->glDeleteBuffers(2, draw.buffers);
        }
        mGl->glDeleteProgram(mProgram);
    }

    void drawFinishedFrame(const Imath::M44d& viewProjection, GLuint framebuffer)
    {
        mGl->glBindFramebuffer(GL_FRAMEBUFFER, framebuffer);
        mGl->glViewport(0, 0, kWidth, kHeight);
        mGl->glEnable(GL_DEPTH_TEST);
        mGl->glClearColor(0.6f, 0.6f, 0.6f, 1.0f);
        mGl->glClear(GL_COLOR_BUFFER_BIT | GL_DEPTH_BUFFER_BIT);
        mGl->glUseProgram(mProgram);
        const Imath::M44f toClip(viewProjection);
        for (const Draw& draw : mDraws) {
            mGl->glUniformMatrix4fv(0, 1, GL_FALSE, (draw.transform * toClip).getValue());
            mGl->glUniform4f(1, draw.color.x, draw.color.y, draw.color.z, draw.color.w);
            mGl->glBindVertexArray(draw.vertexArray);
            mGl->glDrawElements(GL_TRIANGLES, draw.count, GL_UNSIGNED_INT, nullptr);
        }
        mGl->glBindVertexArray(0);
        mGl->glUseProgram(0);
        mGl->glFinish();
    }

private:
    struct Draw {
        GLuint vertexArray = 0;
        GLuint buffers[2] = {};
        GLsizei count = 0;
        Imath::M44f transform;
        Imath::V4f color;
    };

    QOpenGLFunctions_4_3_Core* mGl;
    GLuint mProgram;
    std::vector<Draw> mDraws;
};

struct SceneTimes {
    double frame;
    double rawGl;
};

// Our frame and the reference's, printed with their ratio.
SceneTimes measureScene(const char* name, BenchViewport& viewport, ZentoSceneGraph& graph)
{
    const double ours = medianMilliseconds([] {}, [&] { viewport.drawFinishedFrame(); });
    viewport.makeCurrent();
    double raw = 0.0;
    {
        RawRenderer reference(viewport.gl(), graph.delegate());
        const Imath::M44d viewProjection =
            viewport.frustum.computeViewMatrix() * viewport.frustum.computeProjectionMatrix();
        raw = medianMilliseconds([] {}, [&] {
            reference.drawFinishedFrame(viewProjection, viewport.defaultFramebufferObject());
        });
    }
    std::printf("frame_%s_ms %.2f\n", name, ours);
    std::printf("frame_%s_raw_gl_ms %.2f\n", name, raw);
    std::printf("frame_%s_ratio %.2f\n", name, ours / raw);
    return {ours, raw};
}

// A pick as the viewport makes it, over the rectangle of the whole window; the paths it found.
std::vector<std::string> pick(BenchViewport& viewport, ZentoSceneGraph& graph, QPoint start, QPoint end,
                              std::vector<Imath::V3f>* hitPoints)
{
    return graph.pick(viewport.frustum, Imath::V4d(0.0, 0.0, kWidth, kHeight), start, end,
                      ZentoSceneGraph::HighlightModeLocate, hitPoints);
}

} // namespace

int main(int argc, char* argv[])
{
    // As the program does: without it each llvmpipe frame faults its memory in anew.
    keepFrameMemory();
    QApplication application(argc, argv);
    ZentoSceneGraph graph;
    BenchViewport viewport;
    if (!viewport.showOn(graph, kWidth, kHeight, "render_bench"))
        return 1;

    measureScene("empty", viewport, graph);

    const RagdollFixture::Ragdoll ragdoll = RagdollFixture::loadRagdoll(graph);
    if (ragdoll.bodies.size() < 20) {
        std::fprintf(stderr, "render_bench: %s gave %zu bodies, not 20\n", RagdollFixture::kSkeletonFile.c_str(),
                     ragdoll.bodies.size());
        return 1;
    }
    viewport.frameAll();
    measureScene("ragdoll", viewport, graph);

    // 250 rows of 400 quads, each cut into two triangles.
    RagdollFixture::addSkin(graph, Imath::V3d(0.0, -4.0, 0.0), Imath::V3d(14.0, 15.0, 4.0), 250, 400);
    const SceneTimes skinned = measureScene("ragdoll_skin_200k", viewport, graph);
    const double raw = skinned.rawGl;

    // A click in the middle of the window, on the skin, and a marquee over all of it.
    const QPoint middle(kWidth / 2, kHeight / 2);
    std::vector<Imath::V3f> hitPoints;
    std::vector<std::string> clicked;
    const double click = medianMilliseconds([&] { hitPoints.clear(); },
                                            [&] { clicked = pick(viewport, graph, middle, middle, &hitPoints); });
    std::vector<std::string> everything;
    const double marquee = medianMilliseconds(
        [] {}, [&] { everything = pick(viewport, graph, QPoint(0, 0), QPoint(kWidth - 1, kHeight - 1), nullptr); });
    std::printf("pick_click_ms %.2f\n", click);
    std::printf("pick_click_ratio_to_frame %.2f\n", click / skinned.frame);
    std::printf("pick_marquee_whole_window_ms %.2f\n", marquee);
    std::printf("pick_marquee_whole_window_ratio_to_frame %.2f\n", marquee / skinned.frame);
    std::printf("pick_marquee_whole_window_paths %zu\n", everything.size());
    if (clicked.empty() || hitPoints.empty() || everything.size() <= clicked.size()) {
        std::fprintf(stderr, "render_bench: the click found %zu paths, the marquee %zu\n", clicked.size(),
                     everything.size());
        return 1;
    }

    const SceneRenderer::Statistics before = viewport.sceneRenderer().statistics;
    int frame = 0;
    const double moved = medianMilliseconds(
        [&] {
            const double offset = (++frame % 2) ? 0.05 : -0.05;
            for (size_t i = 0; i < 20; ++i) {
                ragdoll.bodies[i]->translation.x += offset;
                graph.updateMatrix(ragdoll.bodies[i]->path);
            }
        },
        [&] { viewport.drawFinishedFrame(); });
    const SceneRenderer::Statistics after = viewport.sceneRenderer().statistics;
    const int frames = kWarmUpFrames + kTimedFrames;
    std::printf("frame_20_bodies_moved_ms %.2f\n", moved);
    std::printf("frame_20_bodies_moved_ratio_to_raw_gl %.2f\n", moved / raw);
    std::printf("frame_20_bodies_moved_transform_uploads_per_frame %.1f\n",
                double(after.transformUploads - before.transformUploads) / frames);
    std::printf("frame_20_bodies_moved_geometry_uploads %ld\n", after.geometryUploads - before.geometryUploads);
    return after.geometryUploads == before.geometryUploads ? 0 : 1;
}
