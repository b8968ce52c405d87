#pragma once

#include "BaseCommand.h"

#include <Imath/ImathVec.h>

// Moves every named node by one world-space offset, from its local matrix at the press.
class MultiMoveCommand : public BaseCommand {
public:
    MultiMoveCommand(ZentoSceneGraph* graph, std::vector<std::string> names, std::vector<Imath::M44d> matrices,
                     const Imath::V3d& delta)
        : BaseCommand(graph), names(std::move(names)), matrices(std::move(matrices)), delta(delta) {}

    void execute() override;
    // Goes through the node's current matrix, where redo starts from the stored one.
    void undo() override;
    void redo() override;
    const std::string& name() const override;

    std::vector<std::string> names;
    std::vector<Imath::M44d> matrices; // local matrices at the press
    Imath::V3d delta;
};
