#include "CommandStack.h"

void CommandStack::push(const std::shared_ptr<BaseCommand>& command)
{
    command->execute();
    ++currentIndex;
    commands.resize(static_cast<size_t>(currentIndex));
    commands.push_back(command);
}

void CommandStack::undo()
{
    if (currentIndex == -1)
        return;
    if (currentIndex < static_cast<int>(commands.size()))
        commands[static_cast<size_t>(currentIndex)]->undo();
    --currentIndex;
}

void CommandStack::redo()
{
    const int next = currentIndex + 1;
    if (next >= static_cast<int>(commands.size()))
        return;
    currentIndex = next;
    commands[static_cast<size_t>(next)]->redo();
}
