#pragma once

#include "Mesh.h"

#include <vector>

// Builders of the shapes that nodes draw. Every face gets vertices of its own,
// so flat shading needs no shared normals.
namespace Shapes {

// A grid of rows by columns points, row after row. Each cell with lower row r
// and column c becomes two triangles: (r+1, c), (r+1, c+1), (r, c+1) and
// (r+1, c), (r, c+1), (r, c).
void addGridTriangles(ZentoUtils::Mesh& mesh, const std::vector<Imath::V3f>& grid, int rows, int columns);

void addTriangle(ZentoUtils::Mesh& mesh, const Imath::V3f& a, const Imath::V3f& b, const Imath::V3f& c);

// The 20 by 20 grid sphere of bodies and constraints, about the y axis.
void addSphere(ZentoUtils::Mesh& mesh, double radius);

// The sphere grid with its lower and upper halves moved apart by the half
// height along the axis (0 x, 1 y, 2 z); with a half height of 0, the sphere.
void addCapsule(ZentoUtils::Mesh& mesh, double radius, double halfHeight, int axis);

// A box of half extents x, y, z about the origin: eight shared corners, six
// quads with a normal and uvs per corner.
void addBox(ZentoUtils::Mesh& mesh, float x, float y, float z);

} // namespace Shapes
