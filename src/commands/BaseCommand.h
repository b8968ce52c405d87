#pragma once

#include <Imath/ImathMatrix.h>

#include <functional>
#include <string>
#include <vector>

class BaseNode;
class ZentoSceneGraph;

// One undoable edit. A command names its nodes by path and looks them up on
// every run, so it stays valid when a node has gone and come back; a name
// that does not resolve is passed over in silence.
class BaseCommand {
public:
    explicit BaseCommand(ZentoSceneGraph* graph) : graph(graph) {}
    virtual ~BaseCommand() = default;

    BaseCommand(const BaseCommand&) = delete;
    BaseCommand& operator=(const BaseCommand&) = delete;

    // The first run, called once by CommandStack::push.
    virtual void execute() = 0;
    virtual void undo() = 0;
    virtual void redo() = 0;
    virtual const std::string& name() const = 0;

    ZentoSceneGraph* graph;

protected:
    // Calls action with the index and node of every name that resolves, in
    // order. Then, for each node whose action returned true, pushes the
    // matrices of its subtree and of its parent's subtree: each subtree once,
    // after all the changes, not once for every node in it.
    void forEachNode(const std::vector<std::string>& names,
                     const std::function<bool(size_t, BaseNode&)>& action) const;
};
