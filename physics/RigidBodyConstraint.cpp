#include "RigidBodyConstraint.h"

#include <btBulletDynamicsCommon.h>

namespace Zento {

RigidBodyConstraint::RigidBodyConstraint(std::string name, unsigned short constraintType,
                                         unsigned long long parentId, unsigned long long childId,
                                         std::unique_ptr<btTypedConstraint> joint)
    : name(std::move(name)), constraintType(constraintType), parentId(parentId), childId(childId),
      mJoint(std::move(joint))
{
}

RigidBodyConstraint::~RigidBodyConstraint() = default;

bool RigidBodyConstraint::isBroken() const
{
    return !mJoint->isEnabled();
}

} // namespace Zento
