#include "MultiMoveCommand.h"

#include "BaseNode.h"
#include "MathUtils.h"

void MultiMoveCommand::execute()
{
    redo();
}

void MultiMoveCommand::moveTo(BaseNode& node, Imath::M44d world, const Imath::V3d& offset)
{
    world[3][0] += offset.x;
    world[3][1] += offset.y;
    world[3][2] += offset.z;
    const Imath::M44d local = world * ZentoCore::matrixInverse(parentWorld(node));
    node.translation = Imath::V3d(local[3][0], local[3][1], local[3][2]);
}

void MultiMoveCommand::redo()
{
    forEachNode(names, [&](size_t i, BaseNode& node) {
        moveTo(node, matrices[i] * parentWorld(node), delta);
        return true;
    });
}

void MultiMoveCommand::undo()
{
    forEachNode(names, [&](size_t, BaseNode& node) {
        moveTo(node, node.worldMatrix(), -delta);
        return true;
    });
}

const std::string& MultiMoveCommand::name() const
{
    static const std::string name = "MultiMove";
    return name;
}
