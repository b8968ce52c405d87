#pragma once

#include "BaseNode.h"
#include "Frustum.h"
#include "ScenePicker.h"
#include "ZentoSceneDelegate.h"

#include <Imath/ImathVec.h>

#include <QPoint>

#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <unordered_map>
#include <vector>

class SolverNode;

// The one container of a scene: a flat map from path to node, with the tree
// kept in the nodes' own parent and children pointers. Code changes a node's
// fields and then calls the update operation that matches the change; the
// graph turns it into calls on the delegate. It watches nothing itself.
class ZentoSceneGraph {
public:
    using NodeMap = ::NodeMap;

    // The modes in which a pick reads its hits back; both give the same paths.
    enum HighlightMode : int { HighlightModeSelect = 0, HighlightModeLocate = 1, HighlightModeCount = 2 };

    // Null for an unknown path or a text that is no valid path.
    std::shared_ptr<BaseNode> node(const std::string& path) const;
    std::shared_ptr<BaseNode> nodeByPath(const ZentoCore::NodePath& path) const;
    // Every path, in path order.
    std::vector<std::string> nodePaths() const;

    // Stores the node under its path, replacing one already there, hangs it
    // under the parent (if found) and mirrors its geometry in the delegate.
    void addNode(const std::shared_ptr<BaseNode>& node, const std::string& parentPath);
    // A node to add, with the path of the node to hang it under.
    struct NewNode {
        std::shared_ptr<BaseNode> node;
        std::string parentPath; // empty for a node that hangs under nothing
    };
    // addNode for each, parents before their children in the list, in time
    // linear in the nodes: all are linked before any shape is built, and
    // world matrices are handed down. A node hidden by itself or below a
    // hidden node of the list is drawn hidden.
    void addNodes(const std::vector<NewNode>& nodes);
    // Puts the one solver node at "/Solver", as every scene has it.
    void createSolver();
    // The solver node that createSolver puts in, not yet in the scene.
    static std::shared_ptr<BaseNode> newSolver();
    // A ground plane at "/Ground", "/Ground1", ...: the new path, given twice.
    std::vector<std::string> createGround();
    // The ground plane that createGround would add, at the first free name,
    // not yet in the scene.
    std::shared_ptr<BaseNode> newGround() const;
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
    // The same for nodes in hand, with no lookup by path.
    void updateMatrix(const BaseNode& node);
    // The same for nodes moved again and again, such as the bodies of the
    // simulation: each subtree's records in the delegate are found once and
    // kept until the tree changes.
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

    // The paths of the prims under the rectangle from start to end, in
    // pixels of a view of viewport's size (x, y, width, height), y downwards,
    // the end pixel included and either corner first: each path once, nearest
    // first. What is drawn as wire or not at all cannot be picked: "/Skin"
    // with meshWireframe or without showMesh, rigid bodies and constraints by
    // their flags alike; joints always can. hitPoints, when given, gets the
    // world point of each hit. Empty without a picker, for a viewport without
    // area and for a mode that is none of HighlightMode's.
    std::vector<std::string> pick(const ZentoCore::Frustum& frustum, const Imath::V4d& viewport, QPoint start,
                                  QPoint end, int highlightMode, std::vector<Imath::V3f>* hitPoints);
    // Not owned; null takes it out.
    void setPicker(ScenePicker* picker) { mPicker = picker; }
    ScenePicker* picker() const { return mPicker; }

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

    // Held through a frame and through a pick.
    std::mutex renderMutex;

private:
    // A node of the subtree of a node of updateMatrices, with its parent's
    // place in the list (-1 for that node) and its record in the delegate,
    // if it has one.
    struct MovedMesh {
        const BaseNode* node;
        int parent;
        ZentoSceneDelegate::_Mesh* mesh;
    };
    // The subtrees by node of updateMatrices; dropped by any change of the tree.
    std::unordered_map<const BaseNode*, std::vector<MovedMesh>> mMovedMeshes;

    // What pick leaves out, by the wireframe and display flags.
    std::vector<ZentoCore::NodePath> pickExclusions() const;

    ZentoSceneDelegate mDelegate;
    ScenePicker* mPicker = nullptr;
    std::vector<std::string> mSelection;
};
