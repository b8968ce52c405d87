#pragma once

#include "BaseCommand.h"

#include <map>
#include <memory>
#include <vector>

// Removes nodes with all their descendants and keeps the objects, so undo
// brings back the very same nodes, attributes and all.
class DeleteNodesCommand : public BaseCommand {
public:
    struct RemovedNode {
        std::shared_ptr<BaseNode> node;
        std::string parentName;              // empty for a node at the top level
        std::vector<std::string> childNames; // as they were at removal
    };

    DeleteNodesCommand(ZentoSceneGraph* graph, const std::vector<std::string>& selected);

    void execute() override;
    void undo() override;
    void redo() override;
    const std::string& name() const override;

    // Every node to remove, sorted byte-wise so that a parent comes before everything below it.
    std::vector<std::string> names;
    std::map<std::string, RemovedNode> removed;
};
