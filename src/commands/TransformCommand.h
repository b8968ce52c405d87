#pragma once

#include "BaseCommand.h"

#include <Imath/ImathEuler.h>
#include <Imath/ImathVec.h>

// Sets one node's translation, rotation (with its order), scale and pivot.
class TransformCommand : public BaseCommand {
public:
    TransformCommand(ZentoSceneGraph* graph, std::string nodeName, const Imath::V3d& translation,
                     const Imath::Eulerd& rotation, const Imath::V3d& scale, const Imath::V3d& pivot);

    void execute() override;
    void undo() override;
    void redo() override;
    const std::string& name() const override;

    std::string nodeName;
    Imath::V3d previousTranslation{0.0, 0.0, 0.0};
    Imath::V3d newTranslation;
    Imath::Eulerd previousRotation;
    Imath::Eulerd newRotation;
    Imath::V3d previousScale{1.0, 1.0, 1.0};
    Imath::V3d newScale;
    Imath::V3d previousPivot{0.0, 0.0, 0.0};
    Imath::V3d newPivot;

private:
    void apply(const Imath::V3d& translation, const Imath::Eulerd& rotation, const Imath::V3d& scale,
               const Imath::V3d& pivot);
};
