#pragma once

#include "BaseCommand.h"

#include <Imath/ImathVec.h>

// Scales every named node: a body with a shape changes its "dimension", any
// other node its scale.
class MultiScaleCommand : public BaseCommand {
public:
    MultiScaleCommand(ZentoSceneGraph* graph, std::vector<std::string> names, std::vector<Imath::M44d> matrices,
                      std::vector<Imath::V3d> dimensions, const Imath::V3d& factors)
        : BaseCommand(graph), names(std::move(names)), matrices(std::move(matrices)),
          dimensions(std::move(dimensions)), factors(factors) {}

    void execute() override;
    void undo() override;
    void redo() override;
    const std::string& name() const override;

    std::vector<std::string> names;
    std::vector<Imath::M44d> matrices;    // local matrices at the press
    std::vector<Imath::V3d> dimensions;   // "dimension" of each node at the press
    Imath::V3d factors;

private:
    // Scales every node by factors from its state at the press.
    void scaleAll(const Imath::V3d& by);
};
