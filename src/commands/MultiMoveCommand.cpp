#include "MultiMoveCommand.h"

#include "BaseNode.h"
#include "NodeTransforms.h"

#include <set>

#include <set>

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
    // Undo goes from where the node is now, so a node named twice must go back once.
    std::set<const BaseNode*> movedBack;
    forEachNode(names, [&](size_t, BaseNode& node) {
        if (movedBack.insert(&node).second)
            NodeTransforms::moveTo(node, node.worldMatrix(), -delta);
        return true;
    });
}

const std::string& MultiMoveCommand::name() const
{
    static const std::string name = "MultiMove";
    return name;
}
