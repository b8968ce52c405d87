#pragma once

#include "BaseCommand.h"

#include <memory>
#include <vector>

// The one linear history. Pushing after an undo releases the undone commands.
struct CommandStack {
    // Runs the command, then makes it the newest in effect.
    void push(const std::shared_ptr<BaseCommand>& command);
    void undo();
    void redo();

    int currentIndex = -1; // the last command in effect
    std::vector<std::shared_ptr<BaseCommand>> commands;
};
