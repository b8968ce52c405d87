#pragma once

#include "DepthRange.h"
#include "NodePath.h"

#include <Imath/ImathMatrix.h>
#include <Imath/ImathVec.h>

#include <QOpenGLFunctions_4_3_Core>

#include <map>
#include <vector>

class ZentoSceneGraph;
class ZentoSceneDelegate;

// The GPU side of the scene delegate's meshes and the passes that draw them.
// Each frame it uploads what the delegate's dirty bits name (a moved node
// costs a matrix, never its points) and draws the passes skeleton, rigid
// bodies, constraints, meshes, each shaded ("hull") or as edges ("wire"),
// with selected prims in the selection colour. Every call needs the GL
// context current.
class SceneRenderer {
public:
    // Counts since construction, for tests and benchmarks.
    struct Statistics {
        long geometryUploads = 0;
        long transformUploads = 0;
    };

    SceneRenderer() = default;
    ~SceneRenderer();
    SceneRenderer(const SceneRenderer&) = delete;
    SceneRenderer& operator=(const SceneRenderer&) = delete;

    // When the shaders do not build (the driver's log goes to the warning stream), nothing is drawn.
    // Projections go through depth, which must outlive the renderer.
    void initialize(QOpenGLFunctions_4_3_Core* gl, const DepthRange& depth);
    // Deletes every GL object; the next frame uploads everything again.
    void release();

    // Expects depth test and blending on, and the target bound. The
    // projection is the frustum's own, in OpenGL clip space.
    void render(ZentoSceneGraph& graph, const Imath::M44d& viewMatrix, const Imath::M44d& projectionMatrix);

    // Whether the path has a mesh on the GPU.
    bool hasUploadedMesh(const ZentoCore::NodePath& path) const { return mMeshes.count(path) != 0; }

    // Where the hull arrays keep their vertex attributes.
    enum HullAttribute : GLuint { kHullPosition = 0, kHullNormal = 1 };

    // One prim on the GPU, as other passes (picking) draw it too.
    struct GpuMesh {
        // Shaded: every corner of every triangle with the normal of its face.
        GLuint hullArray = 0;
        GLuint hullBuffer = 0;
        GLsizei hullVertexCount = 0;
        // Wire: the points, and the edges of every face as pairs of indices.
        GLuint wireArray = 0;
        GLuint pointBuffer = 0;
        GLuint edgeBuffer = 0;
        GLsizei edgeIndexCount = 0;
        Imath::M44f transform;
        Imath::V4f color{1.0f, 1.0f, 1.0f, 1.0f};
        bool visible = true;
    };
    // The meshes in path order, first brought in line with the delegate,
    // whose dirty bits are then clear.
    const std::map<ZentoCore::NodePath, GpuMesh>& upToDateMeshes(ZentoSceneDelegate& delegate);

    Statistics statistics;

private:
    // A visible prim of this frame: its mesh, the type bits of the nodes along
    // its path, and whether it is selected.
    struct Item {
        const GpuMesh* mesh;
        unsigned int ancestry;
        bool selected;
    };
    // One pass of the frame over the items.
    struct Pass {
        bool run;
        bool wire;
        unsigned int required;  // when not 0, a bit of these must be in the ancestry
        unsigned int forbidden; // no bit of these may be
    };

    void upload(GpuMesh& gpu, const ZentoCore::NodePath& path, const ZentoSceneDelegate& delegate,
                unsigned int dirtyBits);
    void uploadGeometry(GpuMesh& gpu, const ZentoCore::NodePath& path, const std::vector<Imath::V3f>& points,
                        const std::vector<int>& numVerts, const std::vector<int>& verts);
    void createBuffers(GpuMesh& gpu);
    void releaseMesh(GpuMesh& gpu);
    // The visible prims, and in typesPresent the type bits of every node.
    std::vector<Item> collectItems(const ZentoSceneGraph& graph, unsigned int& typesPresent) const;
    // The program, its camera and light uniforms, and the blending of a frame.
    void setFrameState(const Imath::M44d& viewMatrix, const Imath::M44d& projectionMatrix);
    void draw(const GpuMesh& mesh, bool wire, bool selected, const Imath::M44f& viewMatrix);

    QOpenGLFunctions_4_3_Core* mGl = nullptr;
    const DepthRange* mDepth = nullptr;
    GLuint mProgram = 0;
    std::map<ZentoCore::NodePath, GpuMesh> mMeshes;
};
