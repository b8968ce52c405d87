#include "SolverNode.h"


namespace {

template <typename T>
void addAttribute(ZentoCore::MapMetadata& attributes, const std::string& key, const T& value)
{
    const ZentoCore::MetadataImpl<T> entry(value);
    attributes.addEntry(key, &entry);
}


} // namespace

SolverNode::SolverNode(const ZentoCore::NodePath& path) : BaseNode(path)
{
    addAttribute(attributes, "useGpu", false);
    addAttribute(attributes, "enableDebugger", false);
    addAttribute(attributes, "debuggerHost", std::string("127.0.0.1"));
    addAttribute(attributes, "debuggerPort", 5425);
    addAttribute(attributes, "debuggerTimeout", 10);
    addAttribute(attributes, "subSamples", 10);
    addAttribute(attributes, "sceneScale", 1.0);
    addAttribute(attributes, "gravity", Imath::V3d(0.0, -9.81, 0.0));
    addAttribute(attributes, "threads", -1);
    // Each tolerance is passed to the physics only while its "Override" flag
    // is set; otherwise the engine keeps its own default.
    addAttribute(attributes, "frictionOffsetThresholdOverride", false);
    addAttribute(attributes, "frictionOffsetThreshold", 0.04);
    addAttribute(attributes, "ccdMaxSeparationOverride", false);
    addAttribute(attributes, "ccdMaxSeparation", 0.04);
    addAttribute(attributes, "solverOffsetSlopeOverride", false);
    addAttribute(attributes, "solverOffsetSlope", 0.0);
    addAttribute(attributes, "bounceThresholdVelocityOverride", false);
    addAttribute(attributes, "bounceThresholdVelocity", 2.0);
    addAttribute(attributes, "solverType", 0);
    addAttribute(attributes, "aggregateSelfCollision", true);
    addAttribute(attributes, "enableKineKineCollisionFilter", true);
    addAttribute(attributes, "enableStaticKineCollisionFilter", true);

    // "enableDynamic" names no attribute, so the editor shows nothing for it;
    // "useGpu" is saved with the scene but not offered in the editor.
    setDisplayList({
        "enableDynamic",
        "subSamples",
        "sceneScale",
        "gravity",
        "threads",
        "solverType",
        "frictionOffsetThresholdOverride",
        "frictionOffsetThreshold",
        "ccdMaxSeparationOverride",
        "ccdMaxSeparation",
        "solverOffsetSlopeOverride",
        "solverOffsetSlope",
        "bounceThresholdVelocityOverride",
        "bounceThresholdVelocity",
        "enableKineKineCollisionFilter",
        "enableStaticKineCollisionFilter",
        "aggregateSelfCollision",
        "@Debug",
        "enableDebugger",
        "debuggerHost",
        "debuggerPort",
        "debuggerTimeout",
    });
    setEnumHint({"solverType"}, {"PGS", "TGS"});
}

int SolverNode::typeId() const
{
    return kTypeId;
}

const std::string& SolverNode::typeName() const
{
    static const std::string name = "Solver";
    return name;
}

bool SolverNode::skipsRendering() const
{
    return false;
}
