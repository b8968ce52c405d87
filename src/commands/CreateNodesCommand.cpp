#include "CreateNodesCommand.h"

#include "ZentoSceneGraph.h"

void CreateNodesCommand::execute()
{
    redo();
}

void CreateNodesCommand::undo()
{
    std::vector<std::string> paths;
    paths.reserve(nodes.size());
    for (const auto& node : nodes)
        paths.push_back(node->path.string());
    graph->removeNodes(paths);
}

void CreateNodesCommand::redo()
{
    for (const auto& node : nodes) {
        const std::string& path = node->path.string();
        const size_t slash = path.rfind('/');
        graph->addNode(node, slash == std::string::npos ? path : path.substr(0, slash));
    }
}

const std::string& CreateNodesCommand::name() const
{
    static const std::string name = "Create";
    return name;
}
