#pragma once

#include <Imath/ImathVec.h>

namespace Zento {

// A line of the physics engine's debug drawing: contacts, joint frames and
// limits. Ends and colour in scene units and RGB 0..1.
struct DebugLine {
    Imath::V3f from;
    Imath::V3f to;
    Imath::V3f color;
};

} // namespace Zento
