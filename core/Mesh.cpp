#include "Mesh.h"

#include <cstdint>

namespace ZentoUtils {

// Branch-free loops, so that the compiler vectorises them: meshes are large.
bool Mesh::isValid() const
{
    bool negative = false;
    uint64_t corners = 0;
    for (int count : counts) {
        negative |= count < 0;
        corners += static_cast<uint32_t>(count);
    }
    if (negative || corners != indices.size())
        return false;
    const uint64_t pointCount = points.size();
    bool outside = false;
    for (int index : indices)
        outside |= (index < 0) | (static_cast<uint64_t>(static_cast<uint32_t>(index)) >= pointCount);
    return !outside && (normals.empty() || normals.size() == corners) && (uvs.empty() || uvs.size() == corners);
}

} // namespace ZentoUtils
