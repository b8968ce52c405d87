#include "ChangeStateCommand.h"

#include "ZentoSceneGraph.h"

void ChangeStateCommand::execute()
{
    if (const std::shared_ptr<BaseNode> node = graph->node(nodeName)) {
        previousActive = node->active;
        previousVisible = node->visible;
    }
    redo();
}

void ChangeStateCommand::undo()
{
    apply(previousActive, previousVisible);
}

void ChangeStateCommand::redo()
{
    apply(newActive, newVisible);
}

void ChangeStateCommand::apply(bool active, bool visible)
{
    const std::shared_ptr<BaseNode> node = graph->node(nodeName);
    if (!node)
        return;
    node->active = active;
    node->visible = visible;
    graph->updateVisibility(node->path);
}

const std::string& ChangeStateCommand::name() const
{
    static const std::string name = "Change State";
    return name;
}
