#include "MultiScaleCommand.h"

#include "BaseNode.h"
#include "NodeTransforms.h"
#include "ZentoSceneGraph.h"

void MultiScaleCommand::execute()
{
    redo();
}

void MultiScaleCommand::scaleAll(const Imath::V3d& by)
{
    forEachNode(names, [&](size_t i, BaseNode& node) {
        if (!NodeTransforms::scaleFrom(node, matrices[i], dimensions[i], by))
            return true;
        graph->updateGeometry(node.path);
        return false;
    });
}

void MultiScaleCommand::redo()
{
    scaleAll(factors);
}

// Factors of one give back the state at the press.
void MultiScaleCommand::undo()
{
    scaleAll(Imath::V3d(1.0, 1.0, 1.0));
}

const std::string& MultiScaleCommand::name() const
{
    static const std::string name = "MultiScale";
    return name;
}
