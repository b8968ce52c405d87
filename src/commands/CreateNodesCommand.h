#pragma once

#include "BaseCommand.h"

#include <memory>
#include <vector>

// Adds nodes made by the caller; keeps them, so redo brings back the same objects.
class CreateNodesCommand : public BaseCommand {
public:
    CreateNodesCommand(ZentoSceneGraph* graph, std::vector<std::shared_ptr<BaseNode>> nodes)
        : BaseCommand(graph), nodes(std::move(nodes)) {}

    void execute() override;
    void undo() override;
    void redo() override;
    const std::string& name() const override;

    std::vector<std::shared_ptr<BaseNode>> nodes;
};
