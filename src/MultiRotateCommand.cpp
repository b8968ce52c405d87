#include "MultiRotateCommand.h"

#include "BaseNode.h"
#include "MathUtils.h"

void MultiRotateCommand::execute()
{
    redo();
}

void MultiRotateCommand::setRotationFrom(BaseNode& node, const Imath::M44d& local)
{
    Imath::V3d scale, translation;
    Imath::Quatd orientation;
    ZentoCore::extractSRT(local, scale, orientation, translation);
    node.rotation.extract(orientation.toMatrix33());
}

void MultiRotateCommand::redo()
{
    forEachNode(names, [&](size_t i, BaseNode& node) {
        const Imath::M44d parent = parentWorld(node);
        Imath::V3d scale, translation;
        Imath::Quatd orientation;
        ZentoCore::extractSRT(matrices[i] * parent, scale, orientation, translation);
        // The node's orientation first, then the world rotation.
        const Imath::M44d turned = orientation.toMatrix44() * rotation.toMatrix44();
        Imath::M44d result;
        for (int row = 0; row < 3; ++row)
            for (int column = 0; column < 3; ++column)
                result[row][column] = turned[row][column] * scale[row];
        result[3][0] = translation.x;
        result[3][1] = translation.y;
        result[3][2] = translation.z;
        setRotationFrom(node, result * ZentoCore::matrixInverse(parent));
        return true;
    });
}

void MultiRotateCommand::undo()
{
    forEachNode(names, [&](size_t i, BaseNode& node) {
        setRotationFrom(node, matrices[i]);
        return true;
    });
}

const std::string& MultiRotateCommand::name() const
{
    static const std::string name = "MultiRotate";
    return name;
}
