#pragma once

#include "BaseNode.h"
#include "ZentoPhysx.h"

#include <map>
#include <unordered_map>
#include <vector>

class ZentoSceneGraph;

// The one node "/Solver": the settings of the physics scene as attributes,
// and the live simulation. start hands every active body and constraint to
// the physics, step writes the dynamic bodies' poses back into their nodes,
// stop puts the nodes back where they were. While it runs, a body can be
// dragged through a kinematic body joined to it.
class SolverNode : public BaseNode {
public:
    static constexpr int kTypeId = 5;

    // A body node's local transform before the start.
    struct RestPose {
        Imath::V3d translation;
        Imath::Eulerd rotation;
    };

    explicit SolverNode(const ZentoCore::NodePath& path);

    int typeId() const override;
    const std::string& typeName() const override;
    bool skipsRendering() const override;

    void start();
    // Advances the physics by one frame and writes the poses back.
    void step();
    // Writes every dynamic body's pose into its node as local translation and
    // rotation, the rotation in the order the node holds, and pushes the
    // node's matrix to the delegate.
    void writeBack();
    void stop();
    // Joins a kinematic body at the world point to the body of the node.
    void grab(const std::shared_ptr<BaseNode>& body, const Imath::V3f& grabPoint);
    void drag(const Imath::V3f& point);
    void release();

    Zento::ZentoPhysx physics;
    // Set by whoever puts the node into a graph; not owning.
    ZentoSceneGraph* sceneGraph = nullptr;
    // A body node's path text to its id in the physics; kept until the next
    // start overwrites it.
    std::map<std::string, unsigned long long> bodyIds;
    std::map<std::string, RestPose> restPoses;
    Zento::RigidBody* dragBodyHandle = nullptr;
    Zento::RigidBodyConstraint* dragConstraint = nullptr;

private:
    // The bodies' ids by aggregate number.
    std::unordered_map<int, std::vector<int>> addBodies();
    void addConstraints();
    // The body of a node in the physics, or null when it has none.
    Zento::RigidBody* bodyOf(const std::string& path);
};
