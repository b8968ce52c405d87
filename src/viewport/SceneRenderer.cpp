#include "SceneRenderer.h"

#include "ConstraintNode.h"
#include "GlProgram.h"
#include "JointNode.h"
#include "MeshNode.h"
#include "RigidBodyNode.h"
#include "TransformNode.h"
#include "ZentoSceneGraph.h"

#include <QDebug>

#include <cstddef>
#include <set>

using ZentoCore::NodePath;

namespace {

// Uniform locations of the mesh program.
enum : GLint {
    kModelViewMatrix = 0,
    kProjectionMatrix = 1,
    kNormalMatrix = 2,
    kColor = 3,
    kLit = 4,
    kLightDirections = 5, // and 6
};

const char* const kVertexSource = R"(#version 430 core
layout(location = 0) uniform mat4 modelViewMatrix;
layout(location = 1) uniform mat4 projMatrix;
layout(location = 2) uniform mat3 normalMatrix;
layout(location = 0) in vec3 position;
layout(location = 1) in vec3 normal;
out vec3 viewPosition;
out vec3 viewNormal;
void main()
{
    vec4 eye = modelViewMatrix * vec4(position, 1.0);
    viewPosition = eye.xyz;
    viewNormal = normalMatrix * normal;
    gl_Position = projMatrix * eye;
}
)";

// The normal is turned to the viewer, so that both sides are lit.
const char* const kFragmentSource = R"(#version 430 core
layout(location = 3) uniform vec4 color;
layout(location = 4) uniform bool lit;
layout(location = 5) uniform vec3 lightDirections[2];
in vec3 viewPosition;
in vec3 viewNormal;
out vec4 fragColor;
const vec3 lightColors[2] = vec3[2](vec3(0.5, 0.5, 0.5), vec3(0.7, 0.5, 0.3));
const vec3 ambient = vec3(0.2);
void main()
{
    if (!lit) {
        fragColor = color;
        return;
    }
    vec3 normal = viewNormal;
    if (dot(normal, viewPosition) > 0.0)
        normal = -normal;
    // A face without area has no normal of its own: it faces the viewer.
    float magnitude = length(normal);
    normal = magnitude > 0.0 ? normal / magnitude : -normalize(viewPosition);
    vec3 light = ambient;
    for (int i = 0; i < 2; ++i)
        light += lightColors[i] * max(dot(normal, lightDirections[i]), 0.0);
    fragColor = vec4(color.rgb * light, color.a);
}
)";

// Directions towards the two directional lights "/light1" and "/light2", in world space.
const Imath::V3d kTowardsLights[2] = {Imath::V3d(1.0, 0.5, 1.0), Imath::V3d(0.3, -0.2, 1.0)};
const Imath::V3f kSelectionColor(1.0f, 1.0f, 0.0f);

// One bit per node type id, so that a path's ancestry is a mask.
constexpr unsigned int typeBit(int typeId)
{
    return typeId >= 0 && typeId < 31 ? 1u << typeId : 1u << 31;
}

constexpr unsigned int kMeshBit = typeBit(MeshNode::kTypeId);
constexpr unsigned int kRigidBodyBit = typeBit(RigidBodyNode::kTypeId);
constexpr unsigned int kConstraintBit = typeBit(ConstraintNode::kTypeId);
constexpr unsigned int kSkeletonBits = typeBit(TransformNode::kTypeId) | typeBit(JointNode::kTypeId);

// The triangles of the shaded form, each corner with the normal of its face,
// and the edges of the wire form as pairs of point indices.
struct HullVertex {
    Imath::V3f position;
    Imath::V3f normal;
};
struct Triangulation {
    std::vector<HullVertex> hull;
    std::vector<GLuint> edges;
};

// Faces are fanned into triangles. A face with an index outside the points is
// left out, and a count that runs past the index list ends the walk: both are
// named on the warning stream.
Triangulation triangulate(const NodePath& path, const std::vector<Imath::V3f>& points,
                          const std::vector<int>& numVerts, const std::vector<int>& verts);

// Newell's normal of a polygon: right for non-planar faces too, and zero for
// a face without area.
Imath::V3f faceNormal(const std::vector<Imath::V3f>& points, const int* face, int count)
{
    Imath::V3f normal(0.0f);
    for (int i = 0; i < count; ++i) {
        const Imath::V3f& a = points[size_t(face[i])];
        const Imath::V3f& b = points[size_t(face[(i + 1) % count])];
        normal += Imath::V3f((a.y - b.y) * (a.z + b.z), (a.z - b.z) * (a.x + b.x), (a.x - b.x) * (a.y + b.y));
    }
    const float length = normal.length();
    return length > 0.0f ? normal / length : Imath::V3f(0.0f);
}

// The upper 3 x 3 of a matrix's inverse transpose: it carries normals as the matrix carries points.
Imath::M33f normalMatrix(const Imath::M44f& m)
{
    const Imath::M33f upper(m[0][0], m[0][1], m[0][2], m[1][0], m[1][1], m[1][2], m[2][0], m[2][1], m[2][2]);
    return upper.inverse().transposed();
}

} // namespace

SceneRenderer::~SceneRenderer()
{
    release();
}

void SceneRenderer::initialize(QOpenGLFunctions_4_3_Core* gl, const DepthRange& depth)
{
    mGl = gl;
    mDepth = &depth;
    if (!mProgram)
        mProgram = buildGlProgram(gl, kVertexSource, kFragmentSource);
}

void SceneRenderer::release()
{
    if (!mGl)
        return;
    for (auto& entry : mMeshes)
        releaseMesh(entry.second);
    mMeshes.clear();
    mGl->glDeleteProgram(mProgram);
    mProgram = 0;
    mGl = nullptr;
}

void SceneRenderer::releaseMesh(GpuMesh& gpu)
{
    const GLuint arrays[2] = {gpu.hullArray, gpu.wireArray};
    mGl->glDeleteVertexArrays(2, arrays);
    const GLuint buffers[3] = {gpu.hullBuffer, gpu.pointBuffer, gpu.edgeBuffer};
    mGl->glDeleteBuffers(3, buffers);
    gpu = GpuMesh();
}

const std::map<NodePath, SceneRenderer::GpuMesh>& SceneRenderer::upToDateMeshes(ZentoSceneDelegate& delegate)
{
    // Both maps are in path order: one merge walk finds the new, the changed and the gone.
    auto gpu = mMeshes.begin();
    for (const auto& entry : delegate.meshes()) {
        const NodePath& path = entry.first;
        while (gpu != mMeshes.end() && gpu->first < path) {
            releaseMesh(gpu->second);
            gpu = mMeshes.erase(gpu);
        }
        if (gpu != mMeshes.end() && gpu->first == path) {
            if (entry.second.dirtyBits)
                upload(gpu->second, path, delegate, entry.second.dirtyBits);
            ++gpu;
        } else {
            // Not on the GPU yet, or lost with a context: everything goes up whatever the bits say.
            auto added = mMeshes.emplace_hint(gpu, path, GpuMesh());
            upload(added->second, path, delegate, ZentoSceneDelegate::AllDirty);
        }
    }
    while (gpu != mMeshes.end()) {
        releaseMesh(gpu->second);
        gpu = mMeshes.erase(gpu);
    }
    delegate.clearDirtyBits();
    return mMeshes;
}

void SceneRenderer::upload(GpuMesh& gpu, const NodePath& path, const ZentoSceneDelegate& delegate,
                           unsigned int dirtyBits)
{
    const ZentoSceneDelegate::_Mesh& mesh = *delegate.mesh(path);
    if (dirtyBits & (ZentoSceneDelegate::DirtyPoints | ZentoSceneDelegate::DirtyTopology)) {
        uploadGeometry(gpu, path, mesh.points, mesh.numVerts, mesh.verts);
        ++statistics.geometryUploads;
    }
    if (dirtyBits & ZentoSceneDelegate::DirtyTransform) {
        gpu.transform = Imath::M44f(mesh.transform);
        ++statistics.transformUploads;
    }
    if (dirtyBits & ZentoSceneDelegate::DirtyColor)
        gpu.color = Imath::V4f(mesh.color.x, mesh.color.y, mesh.color.z, mesh.opacity);
    if (dirtyBits & ZentoSceneDelegate::DirtyVisibility)
        gpu.visible = delegate.GetVisible(path);
}

namespace {

Triangulation triangulate(const NodePath& path, const std::vector<Imath::V3f>& points,
                          const std::vector<int>& numVerts, const std::vector<int>& verts)
{
    Triangulation made;
    made.hull.reserve(verts.size() * 3);
    made.edges.reserve(verts.size() * 2);
    size_t cursor = 0;
    size_t malformed = 0;
    for (size_t faceIndex = 0; faceIndex < numVerts.size(); ++faceIndex) {
        const int count = numVerts[faceIndex];
        if (count < 0 || cursor + static_cast<size_t>(count) > verts.size()) {
            malformed += numVerts.size() - faceIndex;
            break;
        }
        const int* face = verts.data() + cursor;
        cursor += static_cast<size_t>(count);
        bool valid = true;
        for (int i = 0; i < count; ++i)
            valid = valid && face[i] >= 0 && static_cast<size_t>(face[i]) < points.size();
        if (!valid) {
            ++malformed;
            continue;
        }
        const Imath::V3f normal = faceNormal(points, face, count);
        for (int i = 2; i < count; ++i)
            for (const int corner : {face[0], face[i - 1], face[i]})
                made.hull.push_back({points[size_t(corner)], normal});
        for (int i = 0; count > 1 && i < count; ++i)
            made.edges.insert(made.edges.end(), {GLuint(face[i]), GLuint(face[(i + 1) % count])});
    }
    if (malformed)
        qWarning("mesh %s: %zu of its %zu faces name points it does not have and are not drawn",
                 path.string().c_str(), malformed, numVerts.size());
    return made;
}

} // namespace

void SceneRenderer::uploadGeometry(GpuMesh& gpu, const NodePath& path, const std::vector<Imath::V3f>& points,
                                   const std::vector<int>& numVerts, const std::vector<int>& verts)
{
    const Triangulation shape = triangulate(path, points, numVerts, verts);
    if (!gpu.hullArray)
        createBuffers(gpu);

    mGl->glBindVertexArray(gpu.hullArray);
    mGl->glBindBuffer(GL_ARRAY_BUFFER, gpu.hullBuffer);
    mGl->glBufferData(GL_ARRAY_BUFFER, GLsizeiptr(shape.hull.size() * sizeof(HullVertex)), shape.hull.data(),
                      GL_STATIC_DRAW);
    mGl->glEnableVertexAttribArray(kHullPosition);
    mGl->glVertexAttribPointer(kHullPosition, 3, GL_FLOAT, GL_FALSE, sizeof(HullVertex), nullptr);
    mGl->glEnableVertexAttribArray(kHullNormal);
    mGl->glVertexAttribPointer(kHullNormal, 3, GL_FLOAT, GL_FALSE, sizeof(HullVertex),
                               reinterpret_cast<const void*>(offsetof(HullVertex, normal)));

    mGl->glBindVertexArray(gpu.wireArray);
    mGl->glBindBuffer(GL_ARRAY_BUFFER, gpu.pointBuffer);
    mGl->glBufferData(GL_ARRAY_BUFFER, GLsizeiptr(points.size() * sizeof(Imath::V3f)), points.data(), GL_STATIC_DRAW);
    mGl->glEnableVertexAttribArray(kHullPosition);
    mGl->glVertexAttribPointer(kHullPosition, 3, GL_FLOAT, GL_FALSE, sizeof(Imath::V3f), nullptr);
    mGl->glBindBuffer(GL_ELEMENT_ARRAY_BUFFER, gpu.edgeBuffer);
    mGl->glBufferData(GL_ELEMENT_ARRAY_BUFFER, GLsizeiptr(shape.edges.size() * sizeof(GLuint)), shape.edges.data(),
                      GL_STATIC_DRAW);
    mGl->glBindVertexArray(0);
    mGl->glBindBuffer(GL_ARRAY_BUFFER, 0);
    gpu.hullVertexCount = GLsizei(shape.hull.size());
    gpu.edgeIndexCount = GLsizei(shape.edges.size());
}

void SceneRenderer::createBuffers(GpuMesh& gpu)
{
    GLuint arrays[2] = {};
    mGl->glGenVertexArrays(2, arrays);
    gpu.hullArray = arrays[0];
    gpu.wireArray = arrays[1];
    GLuint buffers[3] = {};
    mGl->glGenBuffers(3, buffers);
    gpu.hullBuffer = buffers[0];
    gpu.pointBuffer = buffers[1];
    gpu.edgeBuffer = buffers[2];
}

void SceneRenderer::render(ZentoSceneGraph& graph, const Imath::M44d& viewMatrix, const Imath::M44d& projectionMatrix)
{
    if (!mProgram)
        return;
    upToDateMeshes(graph.delegate());
    unsigned int typesPresent = 0;
    const std::vector<Item> items = collectItems(graph, typesPresent);
    const Pass passes[] = {
        {graph.showSkeleton && (typesPresent & ~kSkeletonBits), graph.skeletonWireframe, 0, ~kSkeletonBits},
        {graph.showRigidBodies && (typesPresent & kRigidBodyBit), graph.rigidBodyWireframe, kRigidBodyBit, 0},
        {graph.showConstraints && (typesPresent & kConstraintBit), graph.constraintWireframe, kConstraintBit, 0},
        {graph.showMesh && (typesPresent & kMeshBit), graph.meshWireframe, kMeshBit, 0},
    };

    setFrameState(viewMatrix, projectionMatrix);
    const Imath::M44f view(viewMatrix);
    for (const Pass& pass : passes) {
        if (!pass.run)
            continue;
        for (const Item& item : items)
            if ((!pass.required || (item.ancestry & pass.required)) && !(item.ancestry & pass.forbidden))
                draw(*item.mesh, pass.wire, item.selected, view);
    }
    mGl->glEnable(GL_BLEND);
    mGl->glBindVertexArray(0);
    mGl->glUseProgram(0);
}

std::vector<SceneRenderer::Item> SceneRenderer::collectItems(const ZentoSceneGraph& graph,
                                                             unsigned int& typesPresent) const
{
    // Which pass takes a prim is decided anew each frame from the node types
    // along its path: a body's pass takes everything at or below a body, the
    // skeleton's everything that has no other type above it.
    typesPresent = 0;
    for (const auto& entry : graph.nodes)
        typesPresent |= typeBit(entry.second->typeId());
    const std::vector<std::string> selection = graph.selectedPaths();
    const std::set<std::string> selected(selection.begin(), selection.end());

    std::vector<Item> items;
    items.reserve(mMeshes.size());
    for (const auto& entry : mMeshes) {
        if (!entry.second.visible)
            continue;
        unsigned int ancestry = 0;
        for (NodePath path = entry.first; !path.isEmpty(); path = path.parentPath()) {
            const auto node = graph.nodes.find(path);
            if (node != graph.nodes.end())
                ancestry |= typeBit(node->second->typeId());
        }
        items.push_back({&entry.second, ancestry, selected.count(entry.first.string()) != 0});
    }
    return items;
}

void SceneRenderer::setFrameState(const Imath::M44d& viewMatrix, const Imath::M44d& projectionMatrix)
{
    mGl->glUseProgram(mProgram);
    // Row vectors in Imath read as column vectors in GLSL: no transposing.
    const Imath::M44f projection(mDepth->projection(projectionMatrix));
    mGl->glUniformMatrix4fv(kProjectionMatrix, 1, GL_FALSE, projection.getValue());
    for (int i = 0; i < 2; ++i) {
        Imath::V3d direction;
        viewMatrix.multDirMatrix(kTowardsLights[i], direction);
        direction.normalize();
        mGl->glUniform3f(kLightDirections + i, float(direction.x), float(direction.y), float(direction.z));
    }
    mGl->glBlendFuncSeparate(GL_SRC_ALPHA, GL_ONE_MINUS_SRC_ALPHA, GL_ONE, GL_ZERO);
    mGl->glDisable(GL_CULL_FACE);
}

void SceneRenderer::draw(const GpuMesh& mesh, bool wire, bool selected, const Imath::M44f& viewMatrix)
{
    const GLsizei count = wire ? mesh.edgeIndexCount : mesh.hullVertexCount;
    if (!count)
        return;
    // The highlight replaces the colour after shading, as a flat yellow; the prim's opacity stays.
    const Imath::V4f color =
        selected ? Imath::V4f(kSelectionColor.x, kSelectionColor.y, kSelectionColor.z, mesh.color.w) : mesh.color;
    const bool lit = !wire && !selected;
    const Imath::M44f modelView = mesh.transform * viewMatrix;
    mGl->glUniformMatrix4fv(kModelViewMatrix, 1, GL_FALSE, modelView.getValue());
    mGl->glUniform4f(kColor, color.x, color.y, color.z, color.w);
    mGl->glUniform1i(kLit, lit);
    if (lit)
        mGl->glUniformMatrix3fv(kNormalMatrix, 1, GL_FALSE, normalMatrix(modelView).getValue());
    // An opaque prim covers what lies behind: blending would give the same pixels at a cost.
    if (color.w < 1.0f)
        mGl->glEnable(GL_BLEND);
    else
        mGl->glDisable(GL_BLEND);
    if (wire) {
        mGl->glBindVertexArray(mesh.wireArray);
        mGl->glDrawElements(GL_LINES, count, GL_UNSIGNED_INT, nullptr);
    } else {
        mGl->glBindVertexArray(mesh.hullArray);
        mGl->glDrawArrays(GL_TRIANGLES, 0, count);
    }
}
