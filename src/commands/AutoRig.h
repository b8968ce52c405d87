#pragma once

#include <memory>
#include <string>
#include <vector>

class BaseCommand;
class ZentoSceneGraph;

// A whole ragdoll made for an imported skeleton in one step, as an artist
// would make it by hand: a capsule on every joint that has a bone, a
// constraint to the parent's body with default limits, a ground under the
// feet and a solver whose scene scale makes the skeleton as tall as a person.
namespace AutoRig {

struct Settings {
    // Metres that the skeleton's height is taken for when choosing the scene scale.
    double height = 1.75;
};

struct Result {
    // The paths of the new bodies and constraints, in path order.
    std::vector<std::string> bodies;
    std::vector<std::string> constraints;
    // The joints that have no bone of their own, covered by the body of another joint.
    std::vector<std::string> mergedJoints;
    // The path of the ground under the feet.
    std::string ground;
    // The solver's "sceneScale": metres per scene unit.
    double sceneScale = 1.0;
    // The skeleton's height in the bind pose, scene units.
    double skeletonHeight = 0.0;
};

// Builds the ragdoll on the skeleton whose root joint is at skeletonRoot. With
// skin (the paths of mesh nodes, standing at the bind pose in the skeleton's
// space, or of groups holding them, such as "/Skin"; a mesh named twice counts
// once) each capsule's radius comes from the vertices that its bone
// influences most; without, from the bone's length. Returns the command that
// makes it all, for the caller to push or run, and in result what it will
// make; null, with the reason in error, when the skeleton has no bone.
std::shared_ptr<BaseCommand> build(ZentoSceneGraph& graph, const std::string& skeletonRoot,
                                   const std::vector<std::string>& skin, Result& result,
                                   const Settings& settings = {}, std::string* error = nullptr);

// The joints at and below skeletonRoot that build gives a body: those with a
// bone of their own, in path order; the others are merged into them. Empty
// when there is no joint at skeletonRoot or its joints stand at one point.
std::vector<std::string> bodyJoints(ZentoSceneGraph& graph, const std::string& skeletonRoot);

// What build adds besides the ragdoll, for one put on the skeleton by other
// means (a ragdoll file): a ground under the skeleton's lowest joint or body
// and a solver whose scene scale makes the skeleton settings.height tall.
// Returns the command that makes them, and in result the ground, the scale
// and the height; null, with the reason in error, when the skeleton has no
// height.
std::shared_ptr<BaseCommand> stage(ZentoSceneGraph& graph, const std::string& skeletonRoot, Result& result,
                                   const Settings& settings = {}, std::string* error = nullptr);

} // namespace AutoRig
