#include "TransformNode.h"

TransformNode::TransformNode(const ZentoCore::NodePath& path) : BaseNode(path) {}

int TransformNode::typeId() const
{
    return kTypeId;
}

const std::string& TransformNode::typeName() const
{
    static const std::string name = "Transform";
    return name;
}

bool TransformNode::skipsRendering() const
{
    return false;
}
