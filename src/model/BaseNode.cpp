#include "BaseNode.h"

#include "TypedArrayMetadata.h"

BaseNode::BaseNode(const ZentoCore::NodePath& path) : path(path) {}

BaseNode::~BaseNode() = default;

std::shared_ptr<ZentoCore::MapMetadata> BaseNode::geometry()
{
    return nullptr;
}

bool BaseNode::geometryFollowsChildren() const
{
    return false;
}

bool BaseNode::geometryFollowsAttributes() const
{
    return false;
}

void BaseNode::guideLines(std::vector<GuideLine>&) const {}

Imath::M44d BaseNode::localMatrix() const
{
    Imath::M44d scaling;
    scaling.setScale(scale);
    Imath::M44d moving;
    moving.setTranslation(translation);
    return scaling * rotation.toMatrix44() * moving;
}

Imath::M44d BaseNode::worldMatrix() const
{
    Imath::M44d world = localMatrix();
    for (const BaseNode* ancestor = parent; ancestor; ancestor = ancestor->parent)
        world = world * ancestor->localMatrix();
    return world;
}

void BaseNode::setDisplayList(std::vector<std::string> items)
{
    const ZentoCore::TypedArrayMetadata<std::string> list(std::move(items));
    attributeHints.addEntry("__list__", &list);
}

void BaseNode::setEnumHint(const std::vector<std::string>& keys, std::vector<std::string> options)
{
    auto hint = std::make_shared<ZentoCore::MapMetadata>();
    const ZentoCore::TypedArrayMetadata<std::string> list(std::move(options));
    hint->addEntry("enum", &list);
    for (const std::string& key : keys)
        attributeHints.insertEntry(key, hint);
}
