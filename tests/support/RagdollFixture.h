#pragma once

// Scenes for the tests and benchmarks: a ragdoll on a real skeleton, a skin
// of as many quads as asked for, and the turn that lays a body along a bone.

#include "CharacterImport.h"
#include "ConstraintNode.h"
#include "JointNode.h"
#include "MapMetadata.h"
#include "MeshNode.h"
#include "MetadataImpl.h"
#include "RigidBodyAttributes.h"
#include "RigidBodyConstraintAttributes.h"
#include "RigidBodyNode.h"
#include "TransformNode.h"
#include "ZentoSceneGraph.h"

#include <Imath/ImathEuler.h>
#include <Imath/ImathQuat.h>

#include <cmath>
#include <memory>
#include <string>
#include <vector>

namespace RagdollFixture {

// 31 joints of a walking man from the CMU motion capture library, about 17 units tall.
inline const std::string kSkeletonFile = "/usr/share/assimp/models/BVH/01_01.bvh";

struct Ragdoll {
    std::vector<std::shared_ptr<RigidBodyNode>> bodies;
    std::vector<std::shared_ptr<ConstraintNode>> constraints;
};

// The rotation that turns x onto the direction, as a node's Euler angles.
inline Imath::Eulerd alongX(const Imath::V3d& direction)
{
    Imath::Quatd turn;
    turn.setRotation(Imath::V3d(1.0, 0.0, 0.0), direction.normalized());
    Imath::Eulerd euler;
    euler.extract(turn.toMatrix33());
    return euler;
}

// A capsule along the bone from every joint to the mean of its joint
// children, and a D6 constraint at every such joint that hangs under another
// joint, as an artist builds a ragdoll on an imported skeleton.
inline Ragdoll addRagdoll(ZentoSceneGraph& graph)
{
    std::vector<std::shared_ptr<BaseNode>> joints;
    for (const auto& entry : graph.nodes)
        if (entry.second->typeId() == JointNode::kTypeId)
            joints.push_back(entry.second);
    Ragdoll ragdoll;
    for (const std::shared_ptr<BaseNode>& joint : joints) {
        Imath::V3d sum(0.0);
        int count = 0;
        for (const BaseNode* child : joint->children)
            if (child->typeId() == JointNode::kTypeId) {
                sum += child->translation;
                ++count;
            }
        if (!count)
            continue;
        const Imath::V3d bone = sum / count;
        const double length = bone.length();
        if (length < 1e-6)
            continue;
        const std::string name = joint->path.name();
        auto body = std::make_shared<RigidBodyNode>(joint->path.appendChild(name + "_RB"));
        body->translation = bone * 0.5;
        body->rotation = alongX(bone);
        body->color = RigidBodyNode::kColor;
        body->attributes.typedEntry<int>("type")->set(Zento::RigidBodyAttributes::Capsule); // along x
        body->attributes.typedEntry<Imath::V3d>("dimension")->set(Imath::V3d(0.1 * length, 0.25 * length, 0.0));
        graph.addNode(body, joint->path.string());
        ragdoll.bodies.push_back(body);
        if (!joint->parent || joint->parent->typeId() != JointNode::kTypeId)
            continue;
        auto constraint = std::make_shared<ConstraintNode>(joint->path.appendChild(name + "_RBC"));
        constraint->rotation = body->rotation;
        constraint->color = ConstraintNode::kColor;
        constraint->attributes.typedEntry<int>("constraintType")->set(Zento::RigidBodyConstraintAttributes::D6);
        graph.addNode(constraint, joint->path.string());
        ragdoll.constraints.push_back(constraint);
    }
    return ragdoll;
}

// The skeleton of kSkeletonFile with its ragdoll, at a joint size that suits its scale.
inline Ragdoll loadRagdoll(ZentoSceneGraph& graph)
{
    CharacterImport::loadSkeleton(graph, kSkeletonFile);
    Ragdoll ragdoll = addRagdoll(graph);
    graph.setDisplaySize(0.5);
    return ragdoll;
}

// Frees the three turns of every constraint of the ragdoll within limits, in
// degrees: a twist of +-twist about the bone and a swing cone of half angle swing.
inline void limitJoints(const Ragdoll& ragdoll, double twist, double swing)
{
    using Record = Zento::RigidBodyConstraintAttributes;
    for (const std::shared_ptr<ConstraintNode>& constraint : ragdoll.constraints) {
        ZentoCore::MapMetadata& attributes = constraint->attributes;
        for (const char* key : {"angularMotionX", "angularMotionY", "angularMotionZ"})
            attributes.typedEntry<int>(key)->set(Record::Limit);
        attributes.typedEntry<bool>("enableTwistLimit")->set(true);
        attributes.typedEntry<Imath::V3d>("twistLimit")->set(Imath::V3d(-twist, twist, 0.0));
        attributes.typedEntry<bool>("enableSwingLimit")->set(true);
        attributes.typedEntry<Imath::V3d>("swingLimit")->set(Imath::V3d(swing, swing, 0.0));
    }
}

// A copy of everything at and below the path root under the top-level name
// copy, moved by offset: one more character of a crowd. A node that hangs
// under nothing (the skeleton's root joint) is moved as well. A constraint
// that names its parent body below root names that body's copy.
inline Ragdoll copyRagdoll(ZentoSceneGraph& graph, const std::string& root, const std::string& copy,
                           const Imath::V3d& offset)
{
    const auto renamed = [&](const ZentoCore::NodePath& path) {
        return ZentoCore::NodePath(copy + path.string().substr(root.size()));
    };
    std::vector<std::shared_ptr<BaseNode>> sources;
    for (const auto& entry : graph.nodes) {
        const std::string& path = entry.first.string();
        if (path == root || path.rfind(root + "/", 0) == 0)
            sources.push_back(entry.second);
    }
    // The map sorts a parent before its children, so each copy finds its parent.
    Ragdoll ragdoll;
    for (const std::shared_ptr<BaseNode>& source : sources) {
        const ZentoCore::NodePath path = renamed(source->path);
        std::shared_ptr<BaseNode> node;
        switch (source->typeId()) {
        case JointNode::kTypeId: node = std::make_shared<JointNode>(path); break;
        case RigidBodyNode::kTypeId: {
            auto body = std::make_shared<RigidBodyNode>(path);
            ragdoll.bodies.push_back(body);
            node = body;
            break;
        }
        case ConstraintNode::kTypeId: {
            auto constraint = std::make_shared<ConstraintNode>(path);
            ragdoll.constraints.push_back(constraint);
            node = constraint;
            break;
        }
        default: node = std::make_shared<TransformNode>(path); break;
        }
        node->attributes = source->attributes;
        if (const auto parentBody = node->attributes.typedEntry<std::string>("parentRigidBody"))
            if (parentBody->get().rfind(root + "/", 0) == 0)
                parentBody->set(renamed(ZentoCore::NodePath(parentBody->get())).string());
        node->translation = source->translation + (source->parent ? Imath::V3d(0.0) : offset);
        node->rotation = source->rotation;
        node->scale = source->scale;
        node->pivot = source->pivot;
        node->color = source->color;
        node->displaySize = source->displaySize;
        graph.addNode(node, source->parent ? renamed(source->parent->path).string() : "");
    }
    return ragdoll;
}

// "/Skin/Body": an ellipsoid of rows x columns quads about a centre, in the
// default grey of a node.
inline std::shared_ptr<MeshNode> addSkin(ZentoSceneGraph& graph, const Imath::V3d& centre, const Imath::V3d& radii,
                                         int rows, int columns)
{
    auto geo = std::make_shared<ZentoCore::MetadataImpl<ZentoUtils::Mesh>>();
    ZentoUtils::Mesh& mesh = geo->get();
    for (int row = 0; row <= rows; ++row) {
        const double latitude = M_PI * row / rows;
        for (int column = 0; column < columns; ++column) {
            const double longitude = 2.0 * M_PI * column / columns;
            mesh.points.emplace_back(
                Imath::V3d(radii.x * std::sin(latitude) * std::cos(longitude), radii.y * std::cos(latitude),
                           radii.z * std::sin(latitude) * std::sin(longitude)));
        }
    }
    for (int row = 0; row < rows; ++row)
        for (int column = 0; column < columns; ++column) {
            const int next = (column + 1) % columns;
            mesh.indices.insert(mesh.indices.end(), {row * columns + column, (row + 1) * columns + column,
                                                     (row + 1) * columns + next, row * columns + next});
            mesh.counts.push_back(4);
        }
    auto geometry = std::make_shared<ZentoCore::MapMetadata>();
    geometry->insertEntry("geo", geo);
    if (!graph.node("/Skin"))
        graph.addNode(std::make_shared<TransformNode>(ZentoCore::NodePath("/Skin")), "");
    auto skin = std::make_shared<MeshNode>(ZentoCore::NodePath("/Skin/Body"));
    skin->geometryMap = geometry;
    skin->translation = centre;
    graph.addNode(skin, "/Skin");
    return skin;
}

} // namespace RagdollFixture
