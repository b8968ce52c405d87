#include "TransformCommand.h"

#include "ZentoSceneGraph.h"

TransformCommand::TransformCommand(ZentoSceneGraph* graph, std::string nodeName, const Imath::V3d& translation,
                                   const Imath::Eulerd& rotation, const Imath::V3d& scale, const Imath::V3d& pivot)
    : BaseCommand(graph), nodeName(std::move(nodeName)), newTranslation(translation), newRotation(rotation),
      newScale(scale), newPivot(pivot)
{
}

void TransformCommand::execute()
{
    if (const std::shared_ptr<BaseNode> node = graph->node(nodeName)) {
        previousTranslation = node->translation;
        previousRotation = node->rotation;
        previousScale = node->scale;
        previousPivot = node->pivot;
    }
    redo();
}

void TransformCommand::undo()
{
    apply(previousTranslation, previousRotation, previousScale, previousPivot);
}

void TransformCommand::redo()
{
    apply(newTranslation, newRotation, newScale, newPivot);
}

void TransformCommand::apply(const Imath::V3d& translation, const Imath::Eulerd& rotation, const Imath::V3d& scale,
                             const Imath::V3d& pivot)
{
    const std::shared_ptr<BaseNode> node = graph->node(nodeName);
    if (!node)
        return;
    node->translation = translation;
    node->rotation = rotation;
    node->scale = scale;
    node->pivot = pivot;
    graph->updateMatrix(node->path);
}

const std::string& TransformCommand::name() const
{
    static const std::string name = "Transform";
    return name;
}
