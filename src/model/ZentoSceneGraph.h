#pragma once

#include "BaseNode.h"
#include "ZentoSceneDelegate.h"

#include <map>
#include <memory>
#include <string>
#include <vector>

class SolverNode;

// The one container of a scene: a flat map from path to node, with the tree
// kept in the nodes' own parent and children pointers. Code changes a node's
// fields and then calls the update operation that matches the change; the
// graph turns it into calls on the delegate. It watches nothing itself.
class ZentoSceneGraph {
public:
    using NodeMap = ::NodeMap;

    // Null for an unknown path or a text that is no valid path.
    std::shared_ptr<BaseNode> node(const std::string& path) const;
    std::shared_ptr<BaseNode> nodeByPath(const ZentoCore::NodePath& path) const;
    // Every path, in path order.
    std::vector<std::string> nodePaths() const;

    // Stores the node under its path, replacing one already there, hangs it
    // under the parent (if found) and mirrors its geometry in the delegate.
    void addNode(const std::shared_ptr<BaseNode>& node, const std::string& parentPath);
    // Puts the one solver node at "/Solver", as every scene has it.
    void createSolver();
    // A ground plane at "/Ground", "/Ground1", ...: the new path, given twice.
    std::vector<std::string> createGround();
    // Takes the node out of the map and its parent's children; its own parent
    // and children pointers stay, since undo puts it back with them.
    std::shared_ptr<BaseNode> removeNode(const ZentoCore::NodePath& path);
    // Removes the nodes with all their descendants: each removed node once, by path.
    std::map<std::string, std::shared_ptr<BaseNode>> removeNodes(const std::vector<ZentoCore::NodePath>& paths);
    std::map<std::string, std::shared_ptr<BaseNode>> removeNodes(const std::vector<std::string>& paths);

    // Rebuilds the node's mesh in the delegate.
    void updateGeometry(const ZentoCore::NodePath& path);
    // Pushes the world matrix of the node and of its whole subtree; never touches geometry.
    void updateMatrix(const ZentoCore::NodePath& path);
    void updateMatrix(const std::string& path);
    // The same for nodes in hand, such as the bodies that the solver moved,
    // with no lookup by path.
    void updateMatrix(const BaseNode& node);
    void updateMatrices(const std::vector<BaseNode*>& nodes);
    // Pushes the visibility of the node, and of each descendant combined with
    // the starting node's own flag (not with the flags between).
    void updateVisibility(const ZentoCore::NodePath& path);
    // Sets every node's display size and rebuilds all geometry.
    void setDisplaySize(double size);

    // The simulation, run by the solver node at "/Solver". startSimulation
    // clears the selection and hands every active body and constraint to the
    // physics; each stepSimulation writes the dynamic bodies' poses back into
    // their nodes; stopSimulation puts the nodes back where they were. While it
    // runs, a body node can be grabbed at a world point, dragged and released.
    void startSimulation();
    void stopSimulation();
    void stepSimulation();
    // Passes over anything that is not a rigid body node.
    void grabBody(const std::string& path, const Imath::V3f& grabPoint);
    void dragBody(const Imath::V3f& point);
    void releaseBody();
    // The node at "/Solver"; null only in a scene that has lost its solver,
    // where the simulation does nothing.
    SolverNode* solver() const;

    // The selection, in the order it was given, each path once.
    std::vector<std::string> selectedPaths() const { return mSelection; }
    void setSelection(const std::vector<std::string>& paths);

    ZentoSceneDelegate& delegate() { return mDelegate; }
    const ZentoSceneDelegate& delegate() const { return mDelegate; }

    NodeMap nodes;

    bool meshWireframe = false;
    bool skeletonWireframe = false;
    bool rigidBodyWireframe = false;
    bool constraintWireframe = false;
    bool showMesh = true;
    bool showSkeleton = true;
    bool showRigidBodies = true;
    bool showConstraints = true;

    bool simulating = false;

private:
    ZentoSceneDelegate mDelegate;
    std::vector<std::string> mSelection;
};
