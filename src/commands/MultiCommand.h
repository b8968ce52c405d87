#pragma once

#include "BaseCommand.h"

#include <memory>
#include <vector>

// A group of commands on different nodes. All three directions walk the
// children in insertion order: undo too, as the children do not depend on each other.
class MultiCommand : public BaseCommand {
public:
    explicit MultiCommand(ZentoSceneGraph* graph) : BaseCommand(graph) {}

    void addCommand(const std::shared_ptr<BaseCommand>& command);

    void execute() override;
    void undo() override;
    void redo() override;
    const std::string& name() const override;

    std::vector<std::shared_ptr<BaseCommand>> commands;
};
