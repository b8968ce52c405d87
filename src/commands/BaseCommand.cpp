#include "BaseCommand.h"

#include "BaseNode.h"
#include "ZentoSceneGraph.h"

#include <algorithm>

void BaseCommand::forEachNode(const std::vector<std::string>& names,
                              const std::function<bool(size_t, BaseNode&)>& action) const
{
    std::vector<ZentoCore::NodePath> changed;
    for (size_t i = 0; i < names.size(); ++i) {
        const std::shared_ptr<BaseNode> node = graph->node(names[i]);
        if (!node || !action(i, *node))
            continue;
        changed.push_back(node->path);
        if (node->parent)
            changed.push_back(node->parent->path);
    }
    // In path order a subtree follows its root without a gap.
    std::sort(changed.begin(), changed.end());
    ZentoCore::NodePath pushed;
    for (const ZentoCore::NodePath& path : changed) {
        if (!pushed.isEmpty() && path.hasPrefix(pushed))
            continue;
        graph->updateMatrix(path);
        pushed = path;
    }
}
