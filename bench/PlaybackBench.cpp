// Playback of the simulation in the main window, in a scene with a ragdoll on
// a real skeleton, a ground and a skin of 200,000 triangles: the frames per
// second that the window achieves (it paces itself to 30), beside the time of
// one frame of the same scene, simulated and drawn with no pacing, and of one
// frame only drawn. Prints one figure a line.

#include "RagdollFixture.h"

#include "FrameMemory.h"
#include "Viewport.h"
#include "ZentoRagdollBuilder.h"

#include <QApplication>
#include <QElapsedTimer>
#include <QToolBar>

#include <algorithm>
#include <cstdio>

namespace {

constexpr int kPlaybackMilliseconds = 4000;
constexpr int kDrawnFrames = 20;

// Runs the event loop for the time given and counts the simulated frames.
int playFor(QAction* simulate, int milliseconds, int& frames)
{
    frames = 0;
    simulate->trigger();
    QElapsedTimer clock;
    clock.start();
    while (clock.elapsed() < milliseconds)
        QApplication::processEvents();
    simulate->trigger();
    return int(clock.elapsed());
}

} // namespace

int main(int argc, char* argv[])
{
    keepFrameMemory();
    QApplication application(argc, argv);
    ZentoRagdollBuilder window;
    window.resize(1280, 800);
    window.show();
    QApplication::processEvents();
    if (!window.viewport->isValid()) {
        std::fprintf(stderr, "playback_bench: no OpenGL 4.3 core context (run it under a display, e.g. xvfb-run)\n");
        return 1;
    }
    ZentoSceneGraph& graph = window.sceneGraph;
    graph.createSolver();
    const RagdollFixture::Ragdoll ragdoll = RagdollFixture::loadRagdoll(graph);
    graph.createGround();
    RagdollFixture::addSkin(graph, Imath::V3d(20.0, 8.0, 0.0), Imath::V3d(6.0, 9.0, 3.0), 250, 400);
    window.viewport->frameAll();

    QAction* simulate = nullptr;
    for (QAction* action : window.ui.mainToolBar->actions())
        if (action->text() == "Simulate")
            simulate = action;

    QElapsedTimer clock;
    clock.start();
    for (int i = 0; i < kDrawnFrames; ++i)
        window.viewport->updateGL();
    const double drawn = double(clock.elapsed()) / kDrawnFrames;

    graph.startSimulation();
    clock.restart();
    for (int i = 0; i < kDrawnFrames; ++i)
        graph.stepSimulation();
    const double stepped = double(clock.elapsed()) / kDrawnFrames;
    graph.stopSimulation();

    int frames = 0;
    const auto sleep = window.pacer.sleep;
    window.pacer.sleep = [&](unsigned long milliseconds) { ++frames; sleep(milliseconds); };
    const int paced = playFor(simulate, kPlaybackMilliseconds, frames);
    const double fps = 1000.0 * frames / paced;

    window.pacer.sleep = [&](unsigned long) { ++frames; };
    const int unpaced = playFor(simulate, kPlaybackMilliseconds / 2, frames);
    const double frameTime = double(unpaced) / std::max(frames, 1);

    std::printf("playback_bodies %zu\n", ragdoll.bodies.size());
    std::printf("playback_fps %.1f\n", fps);
    std::printf("playback_target_fps 30\n");
    std::printf("simulated_and_drawn_frame_ms %.1f\n", frameTime);
    std::printf("drawn_frame_ms %.1f\n", drawn);
    std::printf("simulated_frame_ms %.1f\n", stepped);
    return 0;
}
