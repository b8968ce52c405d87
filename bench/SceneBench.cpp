// Pushing transforms through the scene graph: updateMatrix on the root of a
// 100-joint skeleton with a body and a constraint on every joint, and
// MultiMoveCommand::redo on 50 nodes. The reference is the bare arithmetic:
// the same world matrices computed by walking the same tree with Imath alone.
// Prints one figure a line, and the number of geometry rebuilds, which must be 0.

#include "ConstraintNode.h"
#include "JointNode.h"
#include "MultiMoveCommand.h"
#include "RigidBodyNode.h"
#include "ZentoSceneGraph.h"

#include <chrono>
#include <cstdio>
#include <functional>

using ZentoCore::NodePath;

namespace {

double nanosecondsPerCall(int calls, const std::function<void()>& work)
{
    double best = 1e300;
    for (int round = 0; round < 5; ++round) {
        const auto start = std::chrono::steady_clock::now();
        for (int i = 0; i < calls; ++i)
            work();
        const double elapsed = std::chrono::duration<double, std::nano>(std::chrono::steady_clock::now() - start).count();
        best = std::min(best, elapsed / calls);
    }
    return best;
}

// A spine of 100 joints that branches every tenth joint, each with a body and a constraint.
std::vector<std::string> buildSkeleton(ZentoSceneGraph& graph)
{
    std::vector<std::string> joints;
    NodePath parent = NodePath::absoluteRoot();
    for (int i = 0; i < 100; ++i) {
        const NodePath path = (i % 10 == 5 ? NodePath(joints[joints.size() - 3]) : parent).appendChild("J" + std::to_string(i));
        auto joint = std::make_shared<JointNode>(path);
        joint->translation = Imath::V3d(0.01 * i, 0.1, 0.0);
        joint->rotation = Imath::Eulerd(0.01 * i, 0.02, 0.0, Imath::Eulerd::XYZ);
        graph.addNode(joint, path.parentPath().string());
        graph.addNode(std::make_shared<RigidBodyNode>(path.appendChild(path.name() + "_RB")), path.string());
        graph.addNode(std::make_shared<ConstraintNode>(path.appendChild(path.name() + "_RBC")), path.string());
        joints.push_back(path.string());
        parent = path;
    }
    return joints;
}

void walk(const BaseNode& node, const Imath::M44d& world, std::vector<Imath::M44d>& out)
{
    out.push_back(world);
    for (const BaseNode* child : node.children)
        walk(*child, child->localMatrix() * world, out);
}

int geometryRebuilds(const ZentoSceneGraph& graph)
{
    int rebuilt = 0;
    for (const auto& entry : graph.delegate().meshes())
        if (entry.second.dirtyBits & (ZentoSceneDelegate::DirtyPoints | ZentoSceneDelegate::DirtyTopology))
            ++rebuilt;
    return rebuilt;
}

} // namespace

int main()
{
    ZentoSceneGraph graph;
    const std::vector<std::string> joints = buildSkeleton(graph);
    const auto root = graph.node(joints.front());
    graph.delegate().clearDirtyBits();

    const double updateMatrix = nanosecondsPerCall(2000, [&] { graph.updateMatrix(root->path); });
    std::vector<Imath::M44d> worlds;
    worlds.reserve(graph.nodes.size());
    const double bareWalk = nanosecondsPerCall(2000, [&] {
        worlds.clear();
        walk(*root, root->worldMatrix(), worlds);
    });

    std::vector<std::string> moved(joints.begin(), joints.begin() + 50);
    std::vector<Imath::M44d> matrices;
    for (const std::string& name : moved)
        matrices.push_back(graph.node(name)->localMatrix());
    MultiMoveCommand move(&graph, moved, matrices, Imath::V3d(0.1, 0.0, 0.0));
    const double multiMove = nanosecondsPerCall(200, [&] { move.redo(); });

    std::printf("scene_nodes %zu\n", graph.nodes.size());
    std::printf("updateMatrix_root_ns %.0f\n", updateMatrix);
    std::printf("bare_world_walk_ns %.0f\n", bareWalk);
    std::printf("updateMatrix_ratio %.2f\n", updateMatrix / bareWalk);
    std::printf("multiMove_redo_50_ns %.0f\n", multiMove);
    std::printf("geometry_rebuilds %d\n", geometryRebuilds(graph));
    return geometryRebuilds(graph) == 0 ? 0 : 1;
}
