#include "Shapes.h"

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
