#include "RigidBodyAttributes.h"

#include "MapMetadata.h"

#include <type_traits>

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

// The value that a member is stored as: the attribute layer knows only int,
// double and the double precision Imath types.
template <typename T>
const T& stored(const T& member)
{
    return member;
}
int stored(unsigned short member)
{
    return member;
}
Imath::V3d stored(const Imath::V3f& member)
{
    return Imath::V3d(member);
}
Imath::M44d stored(const Imath::M44f& member)
{
    return Imath::M44d(member);
}
Imath::Quatd stored(const Imath::Quatf& member)
{
    return Imath::Quatd(member);
}

template <typename T>
using StoredType = std::decay_t<decltype(stored(std::declval<const T&>()))>;

template <typename T>
void load(const T& value, T& member)
{
    member = value;
}
// Only "state" and "type" are of this type, and deserialise checks their range first.
void load(int value, unsigned short& member)
{
    member = static_cast<unsigned short>(value);
}
void load(const Imath::V3d& value, Imath::V3f& member)
{
    member = Imath::V3f(value);
}
void load(const Imath::M44d& value, Imath::M44f& member)
{
    member = Imath::M44f(value);
}
void load(const Imath::Quatd& value, Imath::Quatf& member)
{
    member = Imath::Quatf(value);
}

struct Writer {
    ZentoCore::MapMetadata& map;

    template <typename T>
    void operator()(const char* key, const T& member) const
    {
        const ZentoCore::MetadataImpl<StoredType<T>> entry(stored(member));
        map.addEntry(key, &entry);
    }
};

struct Reader {
    const ZentoCore::MapMetadata& map;

    template <typename T>
    void operator()(const char* key, T& member) const
    {
        if (const auto entry = map.typedEntry<StoredType<T>>(key))
            load(entry->get(), member);
    }
};

bool inRange(int value, int count)
{
    return value >= 0 && value < count;
}

} // namespace

bool RigidBodyAttributes::serialise(ZentoCore::MapMetadata* map) const
{
    if (!map)
        return false;
    visitEntries(*this, Writer{*map});
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
    visitEntries(*this, Reader{*map});
    if (!inRange(axis, kAxisCount))
        axis = previousAxis;
    return true;
}

} // namespace Zento
