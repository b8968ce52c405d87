#include "SelectionCommand.h"

#include "ZentoSceneGraph.h"

void SelectionCommand::execute()
{
    previousSelection = graph->selectedPaths();
    redo();
}

void SelectionCommand::undo()
{
    graph->setSelection(previousSelection);
}

void SelectionCommand::redo()
{
    graph->setSelection(newSelection);
}

const std::string& SelectionCommand::name() const
{
    static const std::string name = "Select";
    return name;
}
