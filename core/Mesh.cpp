#include "Mesh.h"

namespace ZentoUtils {

bool Mesh::isValid() const
{
    size_t corners = 0;
    for (int count : counts) {
        if (count < 0)
            return false;
        corners += static_cast<size_t>(count);
    }
    if (corners != indices.size())
        return false;
    for (int index : indices)
        if (index < 0 || static_cast<size_t>(index) >= points.size())
            return false;
    return (normals.empty() || normals.size() == corners) && (uvs.empty() || uvs.size() == corners);
}

} // namespace ZentoUtils
