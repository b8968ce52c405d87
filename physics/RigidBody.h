#pragma once

#include "RigidBodyAttributes.h"

#include <Imath/ImathMatrix.h>
#include <Imath/ImathQuat.h>
#include <Imath/ImathVec.h>

class btRigidBody;

namespace Zento {

// One body of the physics scene as the solver sees it: a value in the
// scene's body table. The members are read and written directly; the
// simulated object behind it belongs to the scene, and a default body has
// none, so that it stands for the fixed world.
class RigidBody {
public:
    unsigned short state = RigidBodyAttributes::Static;
    // Where a kinematic body is to go on the next step, in scene units.
    Imath::V3f kinematicTarget{0.0f, 0.0f, 0.0f};
    Imath::V3f rotatePivot{0.0f, 0.0f, 0.0f};
    Imath::V3f scale{1.0f, 1.0f, 1.0f};
    Imath::V3f scalePivot{0.0f, 0.0f, 0.0f};
    Imath::V3f scalePivotTranslate{0.0f, 0.0f, 0.0f};
    Imath::V3f rotatePivotTranslate{0.0f, 0.0f, 0.0f};
    unsigned long long id = 0;
    int aggregate = -1;

    // The current world pose in scene units; the identity for a default body.
    void pose(Imath::V3f& t, Imath::Quatf& q) const;
    // The same pose as one matrix, rotation then translation.
    Imath::M44f poseMatrix() const;
    // A world frame in scene units expressed in this body's frame: where a
    // joint at that frame sits on the body.
    Imath::M44f frameInBody(const Imath::M44f& world) const;

    bool isSimulated() const { return mBody != nullptr; }
    // True while the engine keeps the body still: asleep, until something wakes it.
    bool isAsleep() const;

private:
    friend class ZentoPhysx;

    btRigidBody* mBody = nullptr;
    // The body's pose in the frame of its centre of mass, which is what the
    // engine moves; and the size of one scene unit in the engine's metres.
    Imath::V3f mMassOffset{0.0f, 0.0f, 0.0f};
    Imath::Quatf mMassRotation;
    float mSceneScale = 1.0f;
};

} // namespace Zento
