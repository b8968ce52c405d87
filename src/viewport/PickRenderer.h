#pragma once

#include "DepthRange.h"
#include "DrawTarget.h"
#include "SceneRenderer.h"
#include "ScenePicker.h"

#include <QOpenGLFunctions_4_3_Core>

class QOpenGLWidget;

// The scene graph's picker on the viewport's context. It draws the shaded
// form of the pickable prims, straight from the scene renderer's GPU meshes,
// with an id per prim into a small offscreen target that covers the pick
// rectangle, reads ids and depths back and turns the nearest sample of each
// prim into a world point. It makes the widget's context current itself, so
// that the graph can pick from anywhere on the GUI thread.
class PickRenderer : public ScenePicker {
public:
    // All three must outlive the picker.
    PickRenderer(QOpenGLWidget& widget, SceneRenderer& meshes, const DepthRange& depth);
    ~PickRenderer() override;

    // With the context current. Until then, or when the shaders do not build,
    // every pick is empty.
    void initialize(QOpenGLFunctions_4_3_Core* gl);
    // Deletes the GL objects; needs the context current.
    void release();

    std::vector<Hit> pickPrims(ZentoSceneDelegate& delegate, const Request& request) override;

private:
    // Draws each pickable prim with its id, from 1; returns the prims in the order of their ids.
    std::vector<const ZentoCore::NodePath*> drawIds(const std::map<ZentoCore::NodePath, SceneRenderer::GpuMesh>& meshes,
                                                    const Imath::M44d& viewProjection,
                                                    const std::vector<ZentoCore::NodePath>& excluded);
    // The nearest sample of each prim seen, nearest first, as a world point.
    std::vector<Hit> resolve(const std::vector<const ZentoCore::NodePath*>& drawn, const std::vector<GLuint>& ids,
                             const std::vector<GLfloat>& depths, const Imath::M44d& viewProjection) const;

    QOpenGLWidget& mWidget;
    SceneRenderer& mMeshes;
    const DepthRange& mDepth;
    QOpenGLFunctions_4_3_Core* mGl = nullptr;
    GLuint mProgram = 0;
    DrawTarget mTarget{GL_R32UI};
    int mMaximumSide = 0;
};
