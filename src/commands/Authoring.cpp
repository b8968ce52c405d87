#include "Authoring.h"

#include "ChangeAttributesCommand.h"
#include "ChangeStateCommand.h"
#include "ConstraintNode.h"
#include "CreateNodesCommand.h"
#include "JointNode.h"
#include "MultiCommand.h"
#include "RigidBodyAttributes.h"
#include "RigidBodyConstraintAttributes.h"
#include "RigidBodyNode.h"
#include "ZentoSceneGraph.h"

#include <Imath/ImathQuat.h>

#include <algorithm>

using ZentoCore::NodePath;
using Zento::RigidBodyAttributes;
using Zento::RigidBodyConstraintAttributes;

namespace Authoring {

namespace {

bool isJoint(const BaseNode* node)
{
    return node && node->typeId() == JointNode::kTypeId;
}

bool isBody(const BaseNode* node)
{
    return node && node->typeId() == RigidBodyNode::kTypeId;
}

template <typename T>
void setAttribute(BaseNode& node, const std::string& key, const T& value)
{
    if (const auto entry = node.attributes.typedEntry<T>(key))
        entry->set(value);
}

} // namespace

NodePath bodyPath(const NodePath& joint)
{
    return joint.appendChild(joint.name() + "_RB");
}

NodePath constraintPath(const NodePath& joint)
{
    return joint.appendChild(joint.name() + "_RBC");
}

std::shared_ptr<RigidBodyNode> capsuleBody(const NodePath& path, const CapsuleFit& fit, int aggregate)
{
    auto body = std::make_shared<RigidBodyNode>(path);
    body->translation = fit.centre;
    body->rotation = fit.rotation;
    body->color = RigidBodyNode::kColor;
    if (const auto dimension = body->attributes.typedEntry<Imath::V3d>("dimension")) {
        dimension->get().x = fit.radius;
        dimension->get().y = fit.halfHeight;
    }
    setAttribute(*body, "type", int(RigidBodyAttributes::Capsule));
    setAttribute(*body, "state", int(RigidBodyAttributes::Dynamic));
    setAttribute(*body, "aggregate", aggregate);
    return body;
}

std::shared_ptr<ConstraintNode> boneConstraint(const NodePath& path, const BaseNode& childBody)
{
    auto constraint = std::make_shared<ConstraintNode>(path);
    constraint->color = ConstraintNode::kColor;
    setAttribute(*constraint, "constraintType", int(RigidBodyConstraintAttributes::D6));
    constraint->rotation = alongBone(childBody.translation);
    return constraint;
}

CapsuleFit fitCapsule(const BaseNode& joint)
{
    // The box starts at the joint's own origin, so that it always lies inside.
    Imath::V3d sum(0.0), low(0.0), high(0.0);
    for (const BaseNode* child : joint.children) {
        const Imath::V3d& t = child->translation;
        sum += t;
        for (int axis = 0; axis < 3; ++axis) {
            low[axis] = std::min(low[axis], t[axis]);
            high[axis] = std::max(high[axis], t[axis]);
        }
    }
    const Imath::V3d mean = joint.children.empty() ? sum : sum / double(joint.children.size());
    const Imath::V3d size = high - low;
    int major = 0;
    for (int axis = 1; axis < 3; ++axis)
        if (size[axis] > size[major])
            major = axis;
    const double length = size[major] * 0.5;
    CapsuleFit fit;
    fit.centre = mean * 0.5;
    fit.radius = length * 0.3;
    fit.halfHeight = length - fit.radius;
    return fit;
}

Imath::Eulerd alongBone(const Imath::V3d& localTranslation)
{
    Imath::Eulerd rotation;
    if (localTranslation.length() == 0.0)
        return rotation;
    Imath::Quatd turn;
    turn.setRotation(Imath::V3d(1.0, 0.0, 0.0), localTranslation.normalized());
    rotation.extract(turn.toMatrix33());
    return rotation;
}

std::shared_ptr<CreateNodesCommand> createRigidBodies(ZentoSceneGraph& graph, const std::vector<std::string>& selection,
                                                      std::vector<std::string>& newPaths)
{
    if (selection.empty())
        return nullptr;
    std::vector<std::shared_ptr<BaseNode>> made;
    for (const std::string& name : selection) {
        const std::shared_ptr<BaseNode> joint = graph.node(name);
        if (!isJoint(joint.get()))
            continue;
        const NodePath path = bodyPath(joint->path);
        if (path.isEmpty() || graph.nodeByPath(path))
            continue;
        newPaths.push_back(path.string());
        made.push_back(capsuleBody(path, fitCapsule(*joint), kSelfCollisionOff));
    }
    return std::make_shared<CreateNodesCommand>(&graph, made);
}

std::shared_ptr<CreateNodesCommand> createConstraints(ZentoSceneGraph& graph, const std::vector<std::string>& selection,
                                                      std::vector<std::string>& newPaths)
{
    std::vector<std::shared_ptr<BaseNode>> made;
    for (const std::string& name : selection) {
        const std::shared_ptr<BaseNode> body = graph.node(name);
        if (!isBody(body.get()) || !isJoint(body->parent) || !isJoint(body->parent->parent))
            continue;
        const NodePath path = constraintPath(body->parent->path);
        // A joint holds one constraint: a second one of the same path would
        // replace the first in the scene while its joint still lists it.
        if (path.isEmpty() || graph.nodeByPath(path) || graph.nodeByPath(body->path.appendChild(path.name())))
            continue;
        newPaths.push_back(path.string());
        made.push_back(boneConstraint(path, *body));
    }
    if (made.empty())
        return nullptr;
    return std::make_shared<CreateNodesCommand>(&graph, made);
}

std::shared_ptr<CreateNodesCommand> createPropConstraint(ZentoSceneGraph& graph, const std::vector<std::string>& selection,
                                                         std::vector<std::string>& newPaths)
{
    if (selection.size() != 2)
        return nullptr;
    const std::shared_ptr<BaseNode> holder = graph.node(selection[0]);
    const std::shared_ptr<BaseNode> held = graph.node(selection[1]);
    // A body at the top, such as a ground, has no joint to hang a constraint on.
    if (!isBody(holder.get()) || !isBody(held.get()) || !held->parent)
        return nullptr;
    const NodePath path = constraintPath(held->parent->path);
    if (path.isEmpty() || graph.nodeByPath(path))
        return nullptr;
    std::shared_ptr<ConstraintNode> constraint = boneConstraint(path, *held);
    setAttribute(*constraint, "parentRigidBody", holder->path.string());
    newPaths.push_back(path.string());
    return std::make_shared<CreateNodesCommand>(&graph, std::vector<std::shared_ptr<BaseNode>>{constraint});
}

bool copyAttributes(const ZentoSceneGraph& graph, const std::vector<std::string>& selection, Clipboard& clipboard)
{
    const std::shared_ptr<BaseNode> node = selection.empty() ? nullptr : graph.node(selection.front());
    if (!node)
        return false;
    clipboard.typeId = node->typeId();
    clipboard.attributes = node->attributes;
    return true;
}

bool pastes(PasteFilter filter, const std::string& key)
{
    const auto holds = [&key](const char* part) { return key.find(part) != std::string::npos; };
    switch (filter) {
    case PasteFilter::All: return true;
    case PasteFilter::Dynamics: return !holds("dimension") && !holds("state") && !holds("type") && !holds("axis");
    case PasteFilter::Drives: return holds("drive") || holds("Drive");
    }
    return false;
}

std::shared_ptr<MultiCommand> pasteAttributes(ZentoSceneGraph& graph, const std::vector<std::string>& selection,
                                              const Clipboard& clipboard, PasteFilter filter)
{
    ZentoCore::MapMetadata pasted;
    for (const auto& entry : clipboard.attributes)
        if (pastes(filter, entry.first))
            pasted.addEntry(entry.first, entry.second, true);
    auto group = std::make_shared<MultiCommand>(&graph);
    for (const std::string& name : selection) {
        const std::shared_ptr<BaseNode> node = graph.node(name);
        if (node && node->typeId() == clipboard.typeId)
            group->addCommand(std::make_shared<ChangeAttributesCommand>(&graph, name, pasted));
    }
    return group->commands.empty() ? nullptr : group;
}

std::shared_ptr<MultiCommand> setVisible(ZentoSceneGraph& graph, const std::vector<std::string>& selection, bool visible)
{
    auto group = std::make_shared<MultiCommand>(&graph);
    for (const std::string& name : selection)
        if (const std::shared_ptr<BaseNode> node = graph.node(name))
            group->addCommand(std::make_shared<ChangeStateCommand>(&graph, name, node->active, visible));
    return group->commands.empty() ? nullptr : group;
}

} // namespace Authoring
