#pragma once

#include "BaseCommand.h"

// Sets one node's active and visible flags.
class ChangeStateCommand : public BaseCommand {
public:
    ChangeStateCommand(ZentoSceneGraph* graph, std::string nodeName, bool active, bool visible)
        : BaseCommand(graph), nodeName(std::move(nodeName)), newVisible(visible), newActive(active) {}

    void execute() override;
    void undo() override;
    void redo() override;
    const std::string& name() const override;

    std::string nodeName;
    bool previousVisible = true;
    bool newVisible;
    bool previousActive = true;
    bool newActive;

private:
    void apply(bool active, bool visible);
};
