#pragma once

#include <optional>

class btTypedConstraint;

namespace Zento {

// How a Bullet joint stands against what it allows, measured as its own
// solver measures it (the Euler angles of a D6 joint, the hinge angle, the
// swing of a cone), at the bodies' current poses. The ragdoll check and its
// drop test read joints through these, so that they judge a joint by the
// very rule that holds it.
namespace JointMeasure {

struct Error {
    // How far the joint has turned past its limits, the worst of its turns,
    // radians; a locked turn counts as a limit of no width.
    double angle = 0.0;
    // How far the anchors have come apart beyond what the joint allows, in
    // metres: for a joint whose anchors are held together, their distance.
    double separation = 0.0;
};

Error error(btTypedConstraint& joint);

// Half the width of the narrowest limited turn of the joint (neither locked
// nor free), radians: how far it can turn each way from the middle of its
// range. Empty for a joint without such a limit.
std::optional<double> narrowestLimit(btTypedConstraint& joint);

} // namespace JointMeasure

} // namespace Zento
