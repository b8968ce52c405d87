#pragma once

#include "BaseCommand.h"

#include <Imath/ImathQuat.h>

// Turns every named node by one world-space rotation about its own position,
// writing only the rotation, in the node's own rotation order.
class MultiRotateCommand : public BaseCommand {
public:
    MultiRotateCommand(ZentoSceneGraph* graph, std::vector<std::string> names, std::vector<Imath::M44d> matrices,
                       const Imath::Quatd& rotation)
        : BaseCommand(graph), names(std::move(names)), matrices(std::move(matrices)), rotation(rotation) {}

    void execute() override;
    void undo() override;
    void redo() override;
    const std::string& name() const override;

    std::vector<std::string> names;
    std::vector<Imath::M44d> matrices; // local matrices at the press
    Imath::Quatd rotation;
};
