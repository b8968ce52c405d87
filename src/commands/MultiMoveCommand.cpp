#include "MultiMoveCommand.h"

#include "BaseNode.h"
#include "NodeTransforms.h"

void MultiMoveCommand::execute()
{
    redo();
}

void MultiMoveCommand::redo()
{
    forEachNode(names, [&](size_t i, BaseNode& node) {
        NodeTransforms::moveTo(node, matrices[i] * NodeTransforms::parentWorld(node), delta);
        return true;
    });
}

void MultiMoveCommand::undo()
{
    forEachNode(names, [&](size_t, BaseNode& node) {
        NodeTransforms::moveTo(node, node.worldMatrix(), -delta);
        return true;
    });
}

const std::string& MultiMoveCommand::name() const
{
    static const std::string name = "MultiMove";
    return name;
}
