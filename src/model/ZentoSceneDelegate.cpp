#include "ZentoSceneDelegate.h"

#include <limits>

using ZentoCore::NodePath;

void ZentoSceneDelegate::AddMesh(const NodePath& id, const Imath::M44d& transform, std::vector<Imath::V3f> points,
                                 std::vector<int> numVerts, std::vector<int> verts, bool guide)
{
    _Mesh& mesh = _meshes[id];
    mesh = _Mesh();
    mesh.transform = transform;
    mesh.points = std::move(points);
    mesh.numVerts = std::move(numVerts);
    mesh.verts = std::move(verts);
    mesh.guide = guide;
    _visibilities[id] = true;
}

void ZentoSceneDelegate::RemoveMesh(const NodePath& id)
{
    _meshes.erase(id);
    _visibilities.erase(id);
}

void ZentoSceneDelegate::UpdateMesh(const NodePath& id, const Imath::M44d& transform, std::vector<Imath::V3f> points,
                                    std::vector<int> numVerts, std::vector<int> verts)
{
    const auto found = _meshes.find(id);
    if (found == _meshes.end())
        return;
    _Mesh& mesh = found->second;
    mesh.transform = transform;
    mesh.points = std::move(points);
    mesh.numVerts = std::move(numVerts);
    mesh.verts = std::move(verts);
    mesh.dirtyBits |= DirtyTransform | DirtyPoints | DirtyTopology;
}

bool ZentoSceneDelegate::UpdateTransform(const NodePath& id, const Imath::M44d& transform)
{
    _Mesh* found = FindMesh(id);
    if (!found)
        return false;
    UpdateTransform(*found, transform);
    return true;
}

void ZentoSceneDelegate::UpdateTransform(_Mesh& mesh, const Imath::M44d& transform)
{
    mesh.transform = transform;
    mesh.dirtyBits |= DirtyTransform;
}

void ZentoSceneDelegate::UpdateColor(const NodePath& id, const Imath::V3f& color, float opacity)
{
    const auto found = _meshes.find(id);
    if (found == _meshes.end())
        return;
    found->second.color = color;
    found->second.opacity = opacity;
    found->second.dirtyBits |= DirtyColor;
}

bool ZentoSceneDelegate::SetVisibility(const NodePath& id, bool visible)
{
    const auto found = _visibilities.find(id);
    if (found == _visibilities.end())
        return false;
    found->second = visible;
    const auto mesh = _meshes.find(id);
    if (mesh != _meshes.end())
        mesh->second.dirtyBits |= DirtyVisibility;
    return true;
}

Imath::Box3d ZentoSceneDelegate::GetExtent(const NodePath& id) const
{
    // The float limits, widened to double, as the range of an empty mesh.
    const double huge = std::numeric_limits<float>::max();
    Imath::Box3d extent(Imath::V3d(huge), Imath::V3d(-huge));
    if (const _Mesh* found = mesh(id))
        for (const Imath::V3f& point : found->points)
            extent.extendBy(Imath::V3d(point));
    return extent;
}

Imath::M44d ZentoSceneDelegate::GetTransform(const NodePath& id) const
{
    const _Mesh* found = mesh(id);
    return found ? found->transform : Imath::M44d();
}

bool ZentoSceneDelegate::GetVisible(const NodePath& id) const
{
    const auto found = _visibilities.find(id);
    return found == _visibilities.end() || found->second;
}

const ZentoSceneDelegate::_Mesh* ZentoSceneDelegate::mesh(const NodePath& id) const
{
    const auto found = _meshes.find(id);
    return found == _meshes.end() ? nullptr : &found->second;
}

ZentoSceneDelegate::_Mesh* ZentoSceneDelegate::FindMesh(const NodePath& id)
{
    const auto found = _meshes.find(id);
    return found == _meshes.end() ? nullptr : &found->second;
}

void ZentoSceneDelegate::clearDirtyBits()
{
    for (auto& entry : _meshes)
        entry.second.dirtyBits = 0;
}
