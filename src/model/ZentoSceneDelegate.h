#pragma once

#include "NodePath.h"

#include <Imath/ImathBox.h>
#include <Imath/ImathMatrix.h>
#include <Imath/ImathVec.h>

#include <map>
#include <vector>

// The retained mirror of what the scene graph wants drawn: one mesh record per
// node with geometry. The graph pushes every change in; the renderer uploads
// what the dirty bits name and clears them.
class ZentoSceneDelegate {
public:
    enum DirtyBits : unsigned int {
        DirtyTransform = 1u << 0,
        DirtyPoints = 1u << 1,
        DirtyTopology = 1u << 2,
        DirtyColor = 1u << 3,
        DirtyVisibility = 1u << 4,
        AllDirty = DirtyTransform | DirtyPoints | DirtyTopology | DirtyColor | DirtyVisibility,
    };

    struct _Mesh {
        Imath::M44d transform;
        std::vector<Imath::V3f> points; // in the mesh's local space
        std::vector<int> numVerts;      // vertices per face
        std::vector<int> verts;         // face-vertex indices
        Imath::V3f color{1.0f, 1.0f, 1.0f};
        float opacity = 1.0f;
        bool guide = false;
        unsigned int dirtyBits = AllDirty;
    };

    using Meshes = std::map<ZentoCore::NodePath, _Mesh>;

    // Inserts or replaces the record; a new record is visible and wholly dirty.
    void AddMesh(const ZentoCore::NodePath& id, const Imath::M44d& transform, std::vector<Imath::V3f> points,
                 std::vector<int> numVerts, std::vector<int> verts, bool guide = false);
    void RemoveMesh(const ZentoCore::NodePath& id);
    // Nothing happens for an unknown id.
    void UpdateMesh(const ZentoCore::NodePath& id, const Imath::M44d& transform, std::vector<Imath::V3f> points,
                    std::vector<int> numVerts, std::vector<int> verts);
    // False for an unknown id. Marks the transform only: points and topology stay clean.
    bool UpdateTransform(const ZentoCore::NodePath& id, const Imath::M44d& transform);
    // The same for a record in hand, found once by FindMesh.
    static void UpdateTransform(_Mesh& mesh, const Imath::M44d& transform);
    // Nothing happens for an unknown id.
    void UpdateColor(const ZentoCore::NodePath& id, const Imath::V3f& color, float opacity);
    // False for an id that has no visibility entry, which is then not created.
    bool SetVisibility(const ZentoCore::NodePath& id, bool visible);

    // The local-space bounds of the points; the inverted range (max float
    // minimum, lowest float maximum) for an unknown id or a mesh without points.
    Imath::Box3d GetExtent(const ZentoCore::NodePath& id) const;
    // The identity for an unknown id.
    Imath::M44d GetTransform(const ZentoCore::NodePath& id) const;
    // True for an unknown id.
    bool GetVisible(const ZentoCore::NodePath& id) const;

    const Meshes& meshes() const { return _meshes; }
    // Null for an unknown id.
    const _Mesh* mesh(const ZentoCore::NodePath& id) const;
    // The record to update again and again without a lookup; null for an
    // unknown id. It stays valid until RemoveMesh of its id.
    _Mesh* FindMesh(const ZentoCore::NodePath& id);
    // Called by the renderer once it has uploaded what was dirty.
    void clearDirtyBits();

private:
    Meshes _meshes;
    std::map<ZentoCore::NodePath, bool> _visibilities;
};
