#include "OwnConstraint.h"

#include <LinearMath/btIDebugDraw.h>

namespace Zento {

void OwnConstraint::draw(btIDebugDraw& drawer) const
{
    drawer.drawLine(anchorA(), anchorB(), color());
}

} // namespace Zento
