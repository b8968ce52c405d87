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
    // From the top down, each local matrix times its parent's world matrix,
    // as the graph hands world matrices down a branch: the same products in
    // the same order, so both give the very same numbers.
    std::vector<const BaseNode*> chain;
    for (const BaseNode* node = this; node; node = node->parent)
        chain.push_back(node);
    Imath::M44d world = chain.back()->localMatrix();
    for (auto node = chain.rbegin() + 1; node != chain.rend(); ++node)
        world = (*node)->localMatrix() * world;
    return world;
}

std::vector<BaseNode*> BaseNode::descendants() const
{
    std::vector<BaseNode*> found;
    std::vector<BaseNode*> pending(children.rbegin(), children.rend());
    while (!pending.empty()) {
        BaseNode* node = pending.back();
        pending.pop_back();
        found.push_back(node);
        pending.insert(pending.end(), node->children.rbegin(), node->children.rend());
    }
    return found;
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
