#include "MultiRotateCommand.h"

#include "BaseNode.h"
#include "NodeTransforms.h"

void MultiRotateCommand::execute()
{
    redo();
}

void MultiRotateCommand::redo()
{
    forEachNode(names, [&](size_t i, BaseNode& node) {
        NodeTransforms::rotateFrom(node, matrices[i], rotation);
        return true;
    });
}

void MultiRotateCommand::undo()
{
    forEachNode(names, [&](size_t i, BaseNode& node) {
        NodeTransforms::setRotationFrom(node, matrices[i]);
        return true;
    });
}

const std::string& MultiRotateCommand::name() const
{
    static const std::string name = "MultiRotate";
    return name;
}
