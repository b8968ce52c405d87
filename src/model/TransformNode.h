#pragma once

#include "BaseNode.h"

// A plain transform that draws nothing.
class TransformNode : public BaseNode {
public:
    static constexpr int kTypeId = 0;

    explicit TransformNode(const ZentoCore::NodePath& path);

    int typeId() const override;
    const std::string& typeName() const override;
    bool skipsRendering() const override;
};
