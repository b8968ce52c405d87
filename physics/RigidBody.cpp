#include "RigidBody.h"

#include "BulletConversions.h"
#include "MathUtils.h"

#include <btBulletDynamicsCommon.h>

namespace Zento {

void RigidBody::pose(Imath::V3f& t, Imath::Quatf& q) const
{
    if (!mBody) {
        t = Imath::V3f(0.0f, 0.0f, 0.0f);
        q = Imath::Quatf();
        return;
    }
    const btTransform& mass = mBody->getWorldTransform();
    const Imath::Quatf massRotation = fromBullet(mass.getRotation());
    // Imath composes row vectors: the offset is turned by the mass frame and
    // the rotations apply the body's own first.
    const Imath::V3f offset = mMassOffset * massRotation.toMatrix33();
    t = (fromBullet(mass.getOrigin()) + offset) / mSceneScale;
    q = massRotation * mMassRotation;
}

Imath::M44f RigidBody::poseMatrix() const
{
    Imath::V3f t;
    Imath::Quatf q;
    pose(t, q);
    return ZentoCore::poseMatrix(q, t);
}

Imath::M44f RigidBody::frameInBody(const Imath::M44f& world) const
{
    return world * ZentoCore::matrixInverse(poseMatrix());
}

bool RigidBody::isAsleep() const
{
    return mBody && mBody->getActivationState() == ISLAND_SLEEPING;
}

} // namespace Zento
