#pragma once

#include <Imath/ImathMatrix.h>

#include <memory>
#include <string>

class btTypedConstraint;

namespace Zento {

// One joint of the physics scene between two bodies of the body table. The
// scene owns it; removing either body removes it.
class RigidBodyConstraint {
public:
    RigidBodyConstraint(std::string name, unsigned short constraintType, unsigned long long parentId,
                        unsigned long long childId, std::unique_ptr<btTypedConstraint> joint);
    ~RigidBodyConstraint();

    RigidBodyConstraint(const RigidBodyConstraint&) = delete;
    RigidBodyConstraint& operator=(const RigidBodyConstraint&) = delete;

    // True once a breakable joint has met a force above its "breakForce".
    bool isBroken() const;

    btTypedConstraint& joint() const { return *mJoint; }

    const std::string name;
    const unsigned short constraintType;
    // Ids in the body table; 0 stands for the fixed world.
    const unsigned long long parentId;
    const unsigned long long childId;

private:
    std::unique_ptr<btTypedConstraint> mJoint;
};

} // namespace Zento
