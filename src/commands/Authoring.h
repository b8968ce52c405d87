#pragma once

#include "MapMetadata.h"
#include "TransformNode.h"

#include <Imath/ImathEuler.h>
#include <Imath/ImathVec.h>

#include <memory>
#include <string>
#include <vector>

class BaseCommand;
class ConstraintNode;
class CreateNodesCommand;
class MultiCommand;
class RigidBodyNode;
class ZentoSceneGraph;

// The edits of a ragdoll's author as operations of the model: each takes the
// selection (paths, in selection order), builds the nodes or changes it
// implies, and returns them as one command for the caller to push, or null
// when there is nothing to do. Nothing here touches the scene until the
// command runs, so the window and command-line tools share them, and each is
// tested without a window.
namespace Authoring {

// A capsule on a joint, in the joint's local space (scene units): its
// centre, the turn that lays its long axis (x) where it lies, its radius and
// the half height of its cylinder between the two caps.
struct CapsuleFit {
    Imath::V3d centre{0.0, 0.0, 0.0};
    Imath::Eulerd rotation{0.0, 0.0, 0.0, Imath::Eulerd::XYZ};
    double radius = 0.0;
    double halfHeight = 0.0;
};

// A capsule fitted to a joint from its children alone: half way from the
// joint to the mean of its children's local translations, as long as the
// box of the joint and its children along its longest side, unturned.
CapsuleFit fitCapsule(const BaseNode& joint);

// Where a joint keeps its body and its constraint: <joint>/<short name>_RB
// and <joint>/<short name>_RBC; the ragdoll file finds them by these names.
// The empty path for a name that cannot stand in a path.
ZentoCore::NodePath bodyPath(const ZentoCore::NodePath& joint);
ZentoCore::NodePath constraintPath(const ZentoCore::NodePath& joint);

// The "aggregate" of a body: bodies of kSelfCollisionOff do not collide with
// each other, those of kNoAggregate collide with every body.
constexpr int kSelfCollisionOff = 0;
constexpr int kNoAggregate = -1;

// A new dynamic capsule body at path, placed and sized by fit, in the body
// colour and the given aggregate (createRigidBodies: kSelfCollisionOff). Not
// in the scene.
std::shared_ptr<RigidBodyNode> capsuleBody(const ZentoCore::NodePath& path, const CapsuleFit& fit, int aggregate);

// A new D6 constraint at path whose twist axis (x) lies along the child
// body's local translation, every motion locked, as createConstraints makes
// it. Not in the scene.
std::shared_ptr<ConstraintNode> boneConstraint(const ZentoCore::NodePath& path, const BaseNode& childBody);

// The rotation that lays a constraint's x axis (its twist axis) along a
// body's local translation, in the default rotation order; the identity for
// a zero translation.
Imath::Eulerd alongBone(const Imath::V3d& localTranslation);

// A capsule body on each selected joint that has none yet, at <joint>/<name>_RB.
// Always a command, an empty one too when no joint qualifies, so that the
// selection is always replaced by the new paths.
std::shared_ptr<CreateNodesCommand> createRigidBodies(ZentoSceneGraph& graph,
                                                      const std::vector<std::string>& selection,
                                                      std::vector<std::string>& newPaths);

// A D6 constraint for each selected body whose joint and whose joint's parent
// are joints, at <joint>/<name>_RBC, unless that joint has one already. Null
// when none qualifies.
std::shared_ptr<CreateNodesCommand> createConstraints(ZentoSceneGraph& graph,
                                                      const std::vector<std::string>& selection,
                                                      std::vector<std::string>& newPaths);

// A constraint that ties the second of exactly two selected bodies to the
// first, whatever joints they are on. Null unless the selection is two bodies
// and the second one's joint has no constraint yet.
std::shared_ptr<CreateNodesCommand> createPropConstraint(ZentoSceneGraph& graph,
                                                         const std::vector<std::string>& selection,
                                                         std::vector<std::string>& newPaths);

// One node's attributes, to be pasted on nodes of the same type.
struct Clipboard {
    // The type id of the node copied from; a transform's at first.
    int typeId = TransformNode::kTypeId;
    ZentoCore::MapMetadata attributes;
};

// Takes the attributes of the first selected node; false, with the clipboard
// unchanged, when nothing is selected or the node is gone.
bool copyAttributes(const ZentoSceneGraph& graph, const std::vector<std::string>& selection, Clipboard& clipboard);

// Which of the clipboard's attributes a paste carries.
enum class PasteFilter {
    All,
    // All but the shape: keys that hold "dimension", "state", "type" or "axis" stay.
    Dynamics,
    // Only the drives: keys that hold "drive" or "Drive".
    Drives,
};
bool pastes(PasteFilter filter, const std::string& key);

// One attribute change for each selected node of the clipboard's type, as one
// step of the history. Null when no selected node has that type.
std::shared_ptr<MultiCommand> pasteAttributes(ZentoSceneGraph& graph, const std::vector<std::string>& selection,
                                              const Clipboard& clipboard, PasteFilter filter);

// Hides or shows every selected node, keeping its active flag, as one step.
// Null when none of the names has a node.
std::shared_ptr<MultiCommand> setVisible(ZentoSceneGraph& graph, const std::vector<std::string>& selection,
                                         bool visible);

} // namespace Authoring
