#include "FuzzSupport.h"

#include "Archive.h"
#include "JointNode.h"
#include "LoaderFiles.h"
#include "MathUtils.h"
#include "SceneFile.h"

#include <cstdio>
#include <cstdlib>
#include <map>
#include <set>
#include <unistd.h>

namespace FuzzSupport {

namespace {

// Aborts unless the scene is a tree: each node's parent and children are
// nodes of the graph that point back, no parent chain is longer than the
// scene, and no value of a node is not finite.
void checkScene(const ZentoSceneGraph& graph)
{
    for (const auto& entry : graph.nodes) {
        const BaseNode& node = *entry.second;
        if (node.path != entry.first)
            std::abort();
        if (node.parent) {
            const auto parent = graph.nodes.find(node.parent->path);
            if (parent == graph.nodes.end() || parent->second.get() != node.parent)
                std::abort(); // a parent that is no longer in the scene
        }
        for (const BaseNode* child : node.children) {
            const auto found = graph.nodes.find(child->path);
            if (found == graph.nodes.end() || found->second.get() != child || child->parent != &node)
                std::abort(); // a child that is gone or hangs elsewhere
        }
        size_t depth = 0;
        for (const BaseNode* above = node.parent; above; above = above->parent)
            if (++depth > graph.nodes.size())
                std::abort(); // a cycle of parents
        if (!ZentoCore::isFinite(node.worldMatrix()) || !ZentoCore::isFinite(node.pivot) || !node.attributes.isFinite()) {
            std::fprintf(stderr, "%s holds a number that is not finite\n", node.path.string().c_str());
            std::abort();
        }
    }
}

// The node objects by path: a refused file must leave exactly these.
std::map<std::string, const BaseNode*> nodesOf(const ZentoSceneGraph& graph)
{
    std::map<std::string, const BaseNode*> nodes;
    for (const auto& entry : graph.nodes)
        nodes[entry.first.string()] = entry.second.get();
    return nodes;
}

void addSkeleton(ZentoSceneGraph& graph)
{
    graph.createSolver();
    const char* joints[] = {"/Skeleton", "/Skeleton/Hips", "/Skeleton/Hips/Spine", "/Skeleton/Hips/Spine/Neck",
                            "/Skeleton/Hips/Leg"};
    for (const char* path : joints) {
        auto joint = std::make_shared<JointNode>(ZentoCore::NodePath(path));
        joint->translation = Imath::V3d(0.0, 0.25, 0.0);
        graph.addNode(joint, joint->path.parentPath().string());
    }
}

void useScene(ZentoSceneGraph& graph)
{
    checkScene(graph);
    const std::string file = temporaryFile(".zento");
    if (!SceneFile::save(graph, file))
        std::abort();
    ZentoSceneGraph reopened;
    std::string error;
    if (!SceneFile::load(reopened, file, &error)) {
        std::fprintf(stderr, "A saved scene does not open again: %s\n", error.c_str());
        std::abort(); // a scene that was held saves a file that opens again
    }
    for (const auto& entry : graph.nodes)
        if (!entry.second->parent) {
            graph.updateMatrix(entry.first);
            graph.updateVisibility(entry.first);
        }
    graph.removeNodes(graph.nodePaths());
    graph.createSolver();
    checkScene(graph);
}

} // namespace

std::string temporaryFile(const std::string& extension)
{
    // Removed when the run ends, as libFuzzer ends it after its time.
    static std::set<std::string> files;
    if (files.empty())
        std::atexit([] {
            for (const std::string& file : files)
                ::unlink(file.c_str());
        });
    return *files.insert("/dev/shm/zento-fuzz-" + std::to_string(::getpid()) + extension).first;
}

std::string payloadFile(const uint8_t* data, size_t size, const std::string& extension)
{
    ZentoCore::MapMetadata map;
    ZentoCore::Archive archive;
    archive.assignPayload(data, size);
    archive >> map;
    if (!archive.good())
        return std::string();
    const std::string file = temporaryFile(extension);
    if (!Zento::writeArchiveMap(map, file, nullptr, ZentoCore::Archive::Sync::None))
        std::abort(); // a map read from bytes always writes
    return file;
}

void loadOverScene(const std::string& file, const std::function<bool(ZentoSceneGraph&, const std::string&)>& load)
{
    ZentoSceneGraph graph;
    addSkeleton(graph);
    const std::map<std::string, const BaseNode*> before = nodesOf(graph);
    if (load(graph, file))
        useScene(graph);
    else if (nodesOf(graph) != before)
        std::abort();
}

} // namespace FuzzSupport
