#include "MultiCommand.h"

void MultiCommand::addCommand(const std::shared_ptr<BaseCommand>& command)
{
    commands.push_back(command);
}

void MultiCommand::execute()
{
    for (const auto& command : commands)
        command->execute();
}

void MultiCommand::undo()
{
    for (const auto& command : commands)
        command->undo();
}

void MultiCommand::redo()
{
    for (const auto& command : commands)
        command->redo();
}

const std::string& MultiCommand::name() const
{
    static const std::string name = "Multi Command";
    return name;
}
