#pragma once

#include <BulletDynamics/ConstraintSolver/btTypedConstraint.h>

#include <optional>

namespace Zento {

// Bounds on the separation of two anchors, one on each body, measured along a
// direction: the rows that a joint adds to the solver to keep it within them.
// A hard bound takes part once the separation comes within the tolerance of
// it, so that the bodies may close in on it during the step but not pass it.
// A bound with a spring acts only once passed, and then pulls back with the
// spring's force instead of stopping the bodies.
struct SeparationBounds {
    struct Spring {
        // Force per metre beyond the bound, and per metre per second.
        btScalar stiffness = 0;
        btScalar damping = 0;
    };

    std::optional<btScalar> minimum;
    std::optional<btScalar> maximum;
    btScalar tolerance = 0;
    std::optional<Spring> spring;

    // How many rows the bounds need at this separation: 0, 1 or 2.
    int rowCount(btScalar separation) const;

    // Where the anchors are along the direction.
    struct Motion {
        btScalar separation;
        // A unit vector in world space.
        btVector3 direction;
        // From the centre of mass of the first body to the anchor on the
        // second, and of the second body to its own anchor.
        btVector3 armA;
        btVector3 armB;
    };

    // Fills rowCount rows from `row` on.
    void fillRows(btTypedConstraint::btConstraintInfo2& info, int row, const Motion& motion, const btRigidBody& a,
                  const btRigidBody& b) const;
};

} // namespace Zento
