#include "Shapes.h"

#include <cmath>

namespace Shapes {

void addTriangle(ZentoUtils::Mesh& mesh, const Imath::V3f& a, const Imath::V3f& b, const Imath::V3f& c)
{
    for (const Imath::V3f& corner : {a, b, c}) {
        mesh.indices.push_back(static_cast<int>(mesh.points.size()));
        mesh.points.push_back(corner);
    }
    mesh.counts.push_back(3);
}

void addGridTriangles(ZentoUtils::Mesh& mesh, const std::vector<Imath::V3f>& grid, int rows, int columns)
{
    const auto at = [&](int row, int column) { return grid[static_cast<size_t>(row * columns + column)]; };
    for (int r = 0; r + 1 < rows; ++r) {
        for (int c = 0; c + 1 < columns; ++c) {
            addTriangle(mesh, at(r + 1, c), at(r + 1, c + 1), at(r, c + 1));
            addTriangle(mesh, at(r + 1, c), at(r, c + 1), at(r, c));
        }
    }
}

namespace {

constexpr int kGridSize = 20;
// 1/19 rounded to float: the grid has always been built with this step.
constexpr double kGridStep = 0.05263157933950424;

} // namespace

void addCapsule(ZentoUtils::Mesh& mesh, double radius, double halfHeight, int axis)
{
    std::vector<Imath::V3f> grid;
    grid.reserve(kGridSize * kGridSize);
    for (int i = 0; i < kGridSize; ++i) {
        const double a = i * M_PI * kGridStep;
        const double s = std::sin(a - M_PI / 2.0);
        const double along = radius * s + (s < 0.0 ? -1.0 : 1.0) * halfHeight;
        for (int j = 0; j < kGridSize; ++j) {
            const double b = j * 2.0 * M_PI * kGridStep;
            Imath::V3d point;
            point[axis] = along;
            point[axis == 0 ? 1 : 0] = radius * std::cos(b) * std::sin(a);
            point[axis == 2 ? 1 : 2] = radius * std::sin(b) * std::sin(a);
            grid.emplace_back(point);
        }
    }
    addGridTriangles(mesh, grid, kGridSize, kGridSize);
}

void addSphere(ZentoUtils::Mesh& mesh, double radius)
{
    addCapsule(mesh, radius, 0.0, 1);
}

void addBox(ZentoUtils::Mesh& mesh, float x, float y, float z)
{
    const int first = static_cast<int>(mesh.points.size());
    mesh.points.insert(mesh.points.end(), {{-x, -y, -z}, {-x, -y, z}, {x, -y, z}, {x, -y, -z},
                                           {-x, y, -z}, {-x, y, z}, {x, y, z}, {x, y, -z}});
    struct Face {
        int corners[4];
        Imath::V3f normal;
    };
    static const Face faces[6] = {
        {{0, 1, 2, 3}, {0, -1, 0}}, {{0, 1, 5, 4}, {-1, 0, 0}}, {{1, 2, 6, 5}, {0, 0, 1}},
        {{2, 3, 7, 6}, {1, 0, 0}},  {{3, 0, 4, 7}, {0, 0, -1}}, {{4, 5, 6, 7}, {0, 1, 0}},
    };
    static const Imath::V2f faceUvs[4] = {{0, 0}, {0, 1}, {1, 1}, {1, 0}};
    for (const Face& face : faces) {
        for (int corner = 0; corner < 4; ++corner) {
            mesh.indices.push_back(first + face.corners[corner]);
            mesh.normals.push_back(face.normal);
            mesh.uvs.push_back(faceUvs[corner]);
        }
        mesh.counts.push_back(4);
    }
}

} // namespace Shapes
