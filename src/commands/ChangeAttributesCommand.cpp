#include "ChangeAttributesCommand.h"

#include "ZentoSceneGraph.h"

void ChangeAttributesCommand::execute()
{
    if (const std::shared_ptr<BaseNode> node = graph->node(nodeName))
        previousAttributes = node->attributes;
    redo();
}

void ChangeAttributesCommand::redo()
{
    const std::shared_ptr<BaseNode> node = graph->node(nodeName);
    if (!node)
        return;
    // The value objects keep their identity and type; a key the node lacks is not added.
    for (const auto& entry : newAttributes)
        if (const std::shared_ptr<ZentoCore::Metadata> target = node->attributes.getEntry(entry.first))
            target->copy(entry.second.get());
    updateShape(*node);
}

void ChangeAttributesCommand::undo()
{
    const std::shared_ptr<BaseNode> node = graph->node(nodeName);
    if (!node)
        return;
    node->attributes = previousAttributes;
    updateShape(*node);
}

void ChangeAttributesCommand::updateShape(const BaseNode& node) const
{
    if (node.geometryFollowsAttributes())
        graph->updateGeometry(node.path);
}

const std::string& ChangeAttributesCommand::name() const
{
    static const std::string name = "Change Attributes";
    return name;
}
