#pragma once

#include <Imath/ImathVec.h>

#include <vector>

namespace ZentoUtils {

// A polygon mesh: faces one after the other in indices, with their corner counts.
class Mesh {
public:
    Mesh() = default;
    virtual ~Mesh() = default;
    // Declared, since the virtual destructor would otherwise turn every move into a copy.
    Mesh(const Mesh&) = default;
    Mesh(Mesh&&) noexcept = default;
    Mesh& operator=(const Mesh&) = default;
    Mesh& operator=(Mesh&&) noexcept = default;

    std::vector<Imath::V3f> points;
    std::vector<Imath::V3f> normals; // one per face corner; may be empty
    std::vector<int> indices;        // vertex index of each face corner
    std::vector<int> counts;         // number of corners of each face
    std::vector<Imath::V2f> uvs;     // one per face corner; may be empty

    // True when counts and indices agree and every index names a point.
    bool isValid() const;
};

} // namespace ZentoUtils
