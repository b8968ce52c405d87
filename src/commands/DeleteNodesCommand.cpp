#include "DeleteNodesCommand.h"

#include "ZentoSceneGraph.h"

#include <algorithm>

DeleteNodesCommand::DeleteNodesCommand(ZentoSceneGraph* graph, const std::vector<std::string>& selected)
    : BaseCommand(graph)
{
    for (const std::string& name : selected) {
        if (std::find(names.begin(), names.end(), name) != names.end())
            continue;
        names.push_back(name);
        // A descendant already listed is listed again: undo adds it twice, harmlessly.
        if (const std::shared_ptr<BaseNode> node = graph->node(name))
            for (const BaseNode* descendant : node->descendants())
                names.push_back(descendant->path.string());
    }
    std::sort(names.begin(), names.end());
}

void DeleteNodesCommand::execute()
{
    redo();
}

void DeleteNodesCommand::redo()
{
    for (const auto& entry : graph->removeNodes(names)) {
        RemovedNode& record = removed[entry.first];
        BaseNode& node = *entry.second;
        record.node = entry.second;
        if (node.parent)
            record.parentName = node.parent->path.string();
        for (const BaseNode* child : node.children)
            record.childNames.push_back(child->path.string());
        node.parent = nullptr;
        node.children.clear();
    }
}

void DeleteNodesCommand::undo()
{
    for (const std::string& name : names) {
        const auto found = removed.find(name);
        if (found != removed.end())
            graph->addNode(found->second.node, found->second.parentName);
    }
    removed.clear();
}

const std::string& DeleteNodesCommand::name() const
{
    static const std::string name = "Delete";
    return name;
}
