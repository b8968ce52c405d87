#pragma once

#include "BaseCommand.h"
#include "MapMetadata.h"

// Changes values of one node's attributes. Redo merges the new values into
// the existing value objects; undo puts the whole earlier map back.
class ChangeAttributesCommand : public BaseCommand {
public:
    ChangeAttributesCommand(ZentoSceneGraph* graph, std::string nodeName, const ZentoCore::MapMetadata& attributes)
        : BaseCommand(graph), nodeName(std::move(nodeName)), newAttributes(attributes) {}

    void execute() override;
    void undo() override;
    void redo() override;
    const std::string& name() const override;

    std::string nodeName;
    ZentoCore::MapMetadata previousAttributes;
    ZentoCore::MapMetadata newAttributes;

private:
    void updateShape(const BaseNode& node) const;
};
