#pragma once

#include "BaseCommand.h"

#include <vector>

// Replaces the whole selection.
class SelectionCommand : public BaseCommand {
public:
    SelectionCommand(ZentoSceneGraph* graph, std::vector<std::string> selection)
        : BaseCommand(graph), newSelection(std::move(selection)) {}

    void execute() override;
    void undo() override;
    void redo() override;
    const std::string& name() const override;

    std::vector<std::string> previousSelection;
    std::vector<std::string> newSelection;
};
