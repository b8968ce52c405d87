#pragma once

#include "RigidBodyConstraintAttributes.h"

#include <LinearMath/btTransform.h>

#include <memory>

class btRigidBody;
class btTypedConstraint;

namespace Zento {

// Makes the Bullet joint of a constraint record between two bodies. The
// frames are given relative to the bodies' centres of mass, in the engine's
// metres; the frame's x axis is the joint's twist axis. Angles are degrees in
// the record.
class JointBuilder {
public:
    // sceneScale turns the record's lengths into metres; stepTime is one
    // sub-step, over which forces turn into the impulses Bullet works with.
    JointBuilder(float sceneScale, double stepTime);

    // True for a joint whose drive moves its bodies: a spring toward a pose
    // or a motor toward a velocity.
    static bool isDriven(btTypedConstraint& joint);

    // Null for a type that names no joint.
    std::unique_ptr<btTypedConstraint> build(const RigidBodyConstraintAttributes& record, btRigidBody& parent,
                                             const btTransform& parentFrame, btRigidBody& child,
                                             const btTransform& childFrame) const;

private:
    using Record = RigidBodyConstraintAttributes;

    std::unique_ptr<btTypedConstraint> distance(const Record& a, btRigidBody& parent, const btTransform& parentFrame,
                                                btRigidBody& child, const btTransform& childFrame) const;
    std::unique_ptr<btTypedConstraint> spherical(const Record& a, btRigidBody& parent, const btTransform& parentFrame,
                                                 btRigidBody& child, const btTransform& childFrame) const;
    std::unique_ptr<btTypedConstraint> revolute(const Record& a, btRigidBody& parent, const btTransform& parentFrame,
                                                btRigidBody& child, const btTransform& childFrame) const;
    std::unique_ptr<btTypedConstraint> prismatic(const Record& a, btRigidBody& parent, const btTransform& parentFrame,
                                                 btRigidBody& child, const btTransform& childFrame) const;
    std::unique_ptr<btTypedConstraint> d6(const Record& a, btRigidBody& parent, btTransform parentFrame,
                                          btRigidBody& child, btTransform childFrame) const;

    float mScale;
    double mStepTime;
};

} // namespace Zento
