#pragma once

#include "BaseNode.h"
#include "ZentoPhysx.h"

#include <unordered_map>
#include <vector>

// The one node "/Solver": the settings of the physics scene as attributes,
// and the live simulation. start hands every active body and constraint to
// the physics, step writes the dynamic bodies' poses back into their nodes,
// stop puts the nodes back where they were. While it runs, a body can be
// dragged through a kinematic body joined to it.
class SolverNode : public BaseNode {
public:
    static constexpr int kTypeId = 5;
    static constexpr const char* kPath = "/Solver";
    // Frames of the physics per second: each step advances 1/kFrameRate
    // seconds, whatever the playback timer does.
    static constexpr double kFrameRate = 25.0;

    // A body node's local transform before the start.
    struct RestPose {
        Imath::V3d translation;
        Imath::Eulerd rotation;
    };

    explicit SolverNode(const ZentoCore::NodePath& path);

    int typeId() const override;
    const std::string& typeName() const override;
    bool skipsRendering() const override;

    // Hands every active body and constraint among the nodes to the physics.
    void start(const NodeMap& nodes);
    // Advances the physics by one frame and writes the poses back: the nodes
    // that moved, for the caller to push their matrices.
    std::vector<BaseNode*> step();
    // Writes every dynamic body's pose into its node as local translation and
    // rotation, the rotation in the order the node holds; returns those nodes.
    std::vector<BaseNode*> writeBack();
    // Puts the bodies back where they were at the start; returns those nodes.
    std::vector<BaseNode*> stop();
    // The physics record of a body node as the simulation takes it: its
    // attributes, with its world pose (scale, rotation and translation in
    // scene units) and pivots. False when the attributes make no record or
    // the world matrix gives no pose (a zero scale).
    static bool bodyRecord(const BaseNode& node, Zento::RigidBodyAttributes& record);

    // Joins a kinematic body at the world point to the body of the node.
    void grab(const BaseNode& body, const Imath::V3f& grabPoint);
    void drag(const Imath::V3f& point);
    void release();
    // The physics body of a node while the simulation runs, else null.
    Zento::RigidBody* bodyOf(const BaseNode& node);

    Zento::ZentoPhysx physics;
    // A body node handed to the physics, with its id there, its local pose
    // before the start and what the write-back needs of it, resolved once at
    // the start; kept until the next start.
    struct SimulatedBody {
        std::shared_ptr<BaseNode> node;
        unsigned long long id = 0;
        RestPose rest;
        // The body's world matrix is beforePose * pose * afterPose: its
        // scale and pivots, in scene units.
        Imath::M44f beforePose;
        Imath::M44f afterPose;
        // The inverse world matrix of the node's parent. Fixed through the
        // run unless an ancestor is itself a simulated body (parentMoves),
        // when each write-back takes it anew.
        Imath::M44f parentInverse;
        bool parentMoves = false;
    };
    std::vector<SimulatedBody> bodies;
    // A constraint node handed to the physics, with the joint made of it,
    // from the start until stop, which drops the joints with the physics.
    struct SimulatedConstraint {
        std::shared_ptr<BaseNode> node;
        Zento::RigidBodyConstraint* joint = nullptr;
    };
    std::vector<SimulatedConstraint> constraints;
    Zento::RigidBody* dragBodyHandle = nullptr;
    Zento::RigidBodyConstraint* dragConstraint = nullptr;

private:
    // The bodies' ids by aggregate number.
    std::unordered_map<int, std::vector<int>> addBodies(const NodeMap& nodes);
    void addConstraints(const NodeMap& nodes);
    void applySettings();
    // Fills what the write-back needs of each body.
    void resolveWriteBack();

    // Where each node of bodies stands in it.
    std::unordered_map<const BaseNode*, size_t> mBodyIndex;
};
