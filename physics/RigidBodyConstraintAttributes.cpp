#include "RigidBodyConstraintAttributes.h"

#include "ArrayMetadata.h"
#include "AttributeRecordIO.h"

namespace Zento {

namespace {

using Record = RigidBodyConstraintAttributes;

// Each member with its key, in the order of the node's display list.
// Serialising and deserialising both walk this one list; "constraintType" and
// the drives are handled apart.
template <typename R, typename Visit>
void visitEntries(R& record, Visit&& visit)
{
    visit(Record::kNameKey, record.name);

    visit("enableCollision", record.enableCollision);
    visit("driveLimitsAreForces", record.driveLimitsAreForces);
    visit("improveSlerp", record.improveSlerp);
    visit("disablePreprocessing", record.disablePreprocessing);
    visit("enableExtendedLimits", record.enableExtendedLimits);

    visit("enableProjection", record.enableProjection);
    visit("projectionLinearTollerance", record.projectionLinearTolerance);
    visit("projectionAngularTollerance", record.projectionAngularTolerance);

    visit("breakable", record.breakable);
    visit("breakForce", record.breakForce);

    visit("enableLimit", record.enableLimit);
    visit("limit", record.limit);

    visit("enableSpring", record.spring.enable);
    visit("stiffness", record.spring.stiffness);
    visit("damping", record.spring.damping);
    visit("restitution", record.spring.restitution);
    visit("bounceThreshold", record.spring.bounceThreshold);

    visit("enableMinDistance", record.enableMinDistance);
    visit("minDistance", record.minDistance);
    visit("enableMaxDistance", record.enableMaxDistance);
    visit("maxDistance", record.maxDistance);
    visit("tollerance", record.tolerance);

    visit("enableDrive", record.enableDrive);
    visit("enableFreeSpin", record.enableFreeSpin);
    visit("driveVelocity", record.driveVelocity);
    visit("driveForceLimit", record.driveForceLimit);
    visit("driveGearRatio", record.driveGearRatio);

    visit("linearMotionX", record.motions[Record::LinearX]);
    visit("linearMotionY", record.motions[Record::LinearY]);
    visit("linearMotionZ", record.motions[Record::LinearZ]);
    visit("angularMotionX", record.motions[Record::AngularX]);
    visit("angularMotionY", record.motions[Record::AngularY]);
    visit("angularMotionZ", record.motions[Record::AngularZ]);

    visit("enableDistanceLimit", record.enableDistanceLimit);
    visit("distanceLimit", record.distanceLimit);
    visit("enableTwistLimit", record.enableTwistLimit);
    visit("twistLimit", record.twistLimit);
    visit("enableSwingLimit", record.enableSwingLimit);
    visit("swingLimit", record.swingLimit);
    visit("enablePyramidLimit", record.enablePyramidLimit);
    visit("pyramidYSwingLimit", record.pyramidYSwingLimit);
    visit("pyramidZSwingLimit", record.pyramidZSwingLimit);

    static const char* const kAxes[3][2] = {{"X", "x"}, {"Y", "y"}, {"Z", "z"}};
    for (int axis = 0; axis < 3; ++axis) {
        auto& limit = record.linearLimits[axis];
        const std::string upper = kAxes[axis][0];
        const std::string lower = kAxes[axis][1];
        visit("enableLinear" + upper + "Limit", limit.enable);
        visit("linear" + upper + "limit", limit.range);
        visit("enable" + upper + "LimitSpring", limit.spring.enable);
        visit(lower + "LimitStiffnessSpring", limit.spring.stiffness);
        visit(lower + "LimitDampingSpring", limit.spring.damping);
        visit(lower + "LimitRestitutionSpring", limit.spring.restitution);
        visit(lower + "LimitBounceThresholdSpring", limit.spring.bounceThreshold);
    }

    visit("driveLinearVelocity", record.driveLinearVelocity);
    visit("driveAngularVelocity", record.driveAngularVelocity);
    visit("drivePose", record.drivePose);
}

template <typename D, typename Visit>
void visitDrive(D& drive, Visit&& visit)
{
    visit("stiffness", drive.stiffness);
    visit("damping", drive.damping);
    visit("restitution", drive.restitution);
    visit("bounceThreshold", drive.bounceThreshold);
    visit("forceLimit", drive.forceLimit);
    visit("isAcceleration", drive.isAcceleration);
    visit("enable", drive.enable);
}

} // namespace

void DriveRecord::serialise(ZentoCore::MapMetadata& map, const std::string& prefix) const
{
    visitDrive(*this, AttributeWriter{map, prefix});
}

void DriveRecord::deserialise(const ZentoCore::MapMetadata& map, const std::string& prefix)
{
    visitDrive(*this, AttributeReader{map, prefix});
}

bool RigidBodyConstraintAttributes::serialise(ZentoCore::MapMetadata* map) const
{
    if (!map)
        return false;
    map->set("constraintType", int(constraintType));
    visitEntries(*this, AttributeWriter{*map, kNoAttributePrefix});

    ZentoCore::ArrayMetadata driveMaps;
    for (const DriveRecord& drive : drives) {
        ZentoCore::MapMetadata driveMap;
        drive.serialise(driveMap, kNoAttributePrefix);
        driveMaps.append(driveMap);
    }
    map->addEntry(kDrivesKey, &driveMaps);
    return true;
}

bool RigidBodyConstraintAttributes::deserialise(const ZentoCore::MapMetadata* map)
{
    if (!map)
        return false;
    const auto type = map->typedEntry<int>("constraintType");
    if (!type)
        return false;
    constraintType = static_cast<unsigned short>(type->get());

    const std::array<int, AxisCount> previousMotions = motions;
    visitEntries(*this, AttributeReader{*map, kNoAttributePrefix});
    for (size_t axis = 0; axis < motions.size(); ++axis)
        if (motions[axis] < Locked || motions[axis] >= MotionCount)
            motions[axis] = previousMotions[axis];

    if (const auto driveMaps = map->typedEntryAs<ZentoCore::ArrayMetadata>(kDrivesKey)) {
        const auto& elements = driveMaps->get();
        for (size_t index = 0; index < drives.size() && index < elements.size(); ++index)
            if (elements[index] && elements[index]->typeId() == ZentoCore::MapMetadata::staticTypeId())
                drives[index].deserialise(static_cast<const ZentoCore::MapMetadata&>(*elements[index]), kNoAttributePrefix);
    }
    return true;
}

} // namespace Zento
