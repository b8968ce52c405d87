#include "RigidBodyAttributes.h"

#include "AttributeRecordIO.h"

namespace Zento {

namespace {

// Each member with its key, in the order of the body's display list, then the
// pose. Serialising and deserialising both walk this one list.
template <typename Record, typename Visit>
void visitEntries(Record& record, Visit&& visit)
{
    visit("active", record.active);
    visit("state", record.state);
    visit("type", record.type);
    visit("dimension", record.dimension);
    visit("axis", record.axis);
    visit("useMass", record.useMass);
    visit("mass", record.mass);
    visit("density", record.density);
    visit("linearVelocity", record.linearVelocity);
    visit("angularVelocity", record.angularVelocity);
    visit("maxAngularVelocity", record.maxAngularVelocity);
    visit("linearDamping", record.linearDamping);
    visit("angularDamping", record.angularDamping);
    visit("staticFriction", record.staticFriction);
    visit("dynamicFriction", record.dynamicFriction);
    visit("restitution", record.restitution);
    visit("dynamicOnCollision", record.dynamicOnCollision);
    visit("collisionForceThreshold", record.collisionForceThreshold);
    visit("disableCollisionEvent", record.disableCollisionEvent);
    visit("stuckOnCollision", record.stuckOnCollision);
    visit("stuckOnCollisionBreakForce", record.stuckOnCollisionBreakForce);
    visit("collisionPool", record.collisionPool);
    visit("aggregate", record.aggregate);
    visit("heightFieldRows", record.heightFieldRows);
    visit("heightFieldColumns", record.heightFieldColumns);
    visit("heightFieldScale", record.heightFieldScale);
    visit("restOffset", record.restOffset);
    visit("contactOffset", record.contactOffset);
    visit("contactReportThreshold", record.contactReportThreshold);
    visit("massSpaceInertiaTensor", record.massSpaceInertiaTensor);
    visit("cMassLocalPose", record.cMassLocalPose);
    visit("sleepThreshold", record.sleepThreshold);
    visit("wakeCounter", record.wakeCounter);
    visit("stabilizationThreshold", record.stabilizationThreshold);
    visit("solverIteratorCount", record.solverIteratorCount);
    visit("storeImpactData", record.storeImpactData);
    visit("version", record.version);

    visit("transform", record.worldMatrix);
    visit("rotatePivot", record.rotatePivot);
    visit("scalePivot", record.scalePivot);
    visit("scalePivotTranslate", record.scalePivotTranslate);
    visit("rotatePivotTranslate", record.rotatePivotTranslate);
    visit("scale", record.scale);
    visit("translation", record.translation);
    visit("rotation", record.rotation);
}

bool inRange(int value, int count)
{
    return value >= 0 && value < count;
}

} // namespace

bool RigidBodyAttributes::serialise(ZentoCore::MapMetadata* map) const
{
    if (!map)
        return false;
    visitEntries(*this, AttributeWriter{*map, kNoAttributePrefix});
    return true;
}

bool RigidBodyAttributes::deserialise(const ZentoCore::MapMetadata* map)
{
    if (!map)
        return false;
    const auto stateEntry = map->typedEntry<int>("state");
    const auto typeEntry = map->typedEntry<int>("type");
    if (!stateEntry || !inRange(stateEntry->get(), StateCount) || !typeEntry || !inRange(typeEntry->get(), TypeCount))
        return false;

    const int previousAxis = axis;
    visitEntries(*this, AttributeReader{*map, kNoAttributePrefix});
    if (!inRange(axis, kAxisCount))
        axis = previousAxis;
    return true;
}

} // namespace Zento
