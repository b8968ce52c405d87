#include "ZentoSceneGraph.h"

#include "ConstraintNode.h"
#include "RigidBodyAttributes.h"
#include "RigidBodyNode.h"
#include "SolverNode.h"

#include <QDebug>

#include <algorithm>
#include <cstdlib>
#include <limits>
#include <unordered_map>
#include <unordered_set>

using ZentoCore::Frustum;
using ZentoCore::MapMetadata;
using ZentoCore::NodePath;

namespace {

// The node's shape as the delegate takes it; empty when its map has no "geo".
struct MeshArrays {
    std::vector<Imath::V3f> points;
    std::vector<int> counts;
    std::vector<int> indices;
};

MeshArrays meshArrays(const MapMetadata& geometry)
{
    MeshArrays arrays;
    if (const auto geo = geometry.typedEntry<ZentoUtils::Mesh>("geo")) {
        arrays.points = geo->get().points;
        arrays.counts = geo->get().counts;
        arrays.indices = geo->get().indices;
    }
    return arrays;
}

} // namespace

std::shared_ptr<BaseNode> ZentoSceneGraph::node(const std::string& path) const
{
    return nodeByPath(NodePath(path));
}

std::shared_ptr<BaseNode> ZentoSceneGraph::nodeByPath(const NodePath& path) const
{
    const auto found = nodes.find(path);
    return found == nodes.end() ? nullptr : found->second;
}

std::vector<std::string> ZentoSceneGraph::nodePaths() const
{
    std::vector<std::string> paths;
    paths.reserve(nodes.size());
    for (const auto& entry : nodes)
        paths.push_back(entry.first.string());
    return paths;
}

void ZentoSceneGraph::addNode(const std::shared_ptr<BaseNode>& node, const std::string& parentPath)
{
    addNodes({{node, parentPath}});
}

void ZentoSceneGraph::addNodes(const std::vector<NewNode>& added)
{
    mMovedMeshes.clear();
    // Everything is linked first, so that a shape that follows its children
    // is built once, with all of them. Sets of children stand in for a search
    // of each parent's list, which would make wide trees quadratic.
    std::unordered_map<BaseNode*, std::unordered_set<const BaseNode*>> childSets;
    std::unordered_set<BaseNode*> parentsToRebuild;
    for (const NewNode& entry : added) {
        nodes[entry.node->path] = entry.node;
        const std::shared_ptr<BaseNode> parent = node(entry.parentPath);
        if (!parent)
            continue;
        entry.node->parent = parent.get();
        auto children = childSets.find(parent.get());
        if (children == childSets.end())
            children = childSets.emplace(parent.get(), std::unordered_set<const BaseNode*>(parent->children.begin(),
                                                                                            parent->children.end()))
                           .first;
        // Adding the same node twice must not list it twice among the children.
        if (children->second.insert(entry.node.get()).second)
            parent->children.push_back(entry.node.get());
        if (parent->geometryFollowsChildren())
            parentsToRebuild.insert(parent.get());
    }
    // World matrices are handed down from parent to child, so each ancestor
    // is walked once, whatever the depth.
    std::unordered_map<const BaseNode*, Imath::M44d> worlds;
    const auto worldOf = [&](const BaseNode* node) {
        const auto known = worlds.find(node);
        return known != worlds.end() ? known->second : worlds.emplace(node, node->worldMatrix()).first->second;
    };
    std::unordered_set<const BaseNode*> hidden;
    for (const NewNode& entry : added) {
        BaseNode& node = *entry.node;
        const Imath::M44d world = node.parent ? node.localMatrix() * worldOf(node.parent) : node.localMatrix();
        worlds[&node] = world;
        if (!node.visible || (node.parent && hidden.count(node.parent)))
            hidden.insert(&node);
        parentsToRebuild.erase(&node);
        if (node.skipsRendering())
            continue;
        const std::shared_ptr<MapMetadata> geometry = node.geometry();
        if (!geometry)
            continue;
        MeshArrays arrays = meshArrays(*geometry);
        mDelegate.AddMesh(node.path, world, std::move(arrays.points), std::move(arrays.counts),
                          std::move(arrays.indices));
        mDelegate.UpdateColor(node.path, Imath::V3f(Imath::V3d(node.color.x, node.color.y, node.color.z)),
                              static_cast<float>(node.color.w));
        // A hidden node that comes back, by undo or from a file, stays hidden, and so does its branch.
        if (hidden.count(&node))
            mDelegate.SetVisibility(node.path, false);
    }
    for (BaseNode* parent : parentsToRebuild)
        updateGeometry(parent->path);
}

void ZentoSceneGraph::createSolver()
{
    const std::shared_ptr<BaseNode> solver = newSolver();
    nodes[solver->path] = solver;
}

std::shared_ptr<BaseNode> ZentoSceneGraph::newSolver()
{
    auto solver = std::make_shared<SolverNode>(NodePath(SolverNode::kPath));
    solver->active = false;
    return solver;
}

std::vector<std::string> ZentoSceneGraph::createGround()
{
    const std::shared_ptr<BaseNode> ground = newGround();
    const std::string name = ground->path.string();
    addNode(ground, "");
    return {name, name};
}

std::shared_ptr<BaseNode> ZentoSceneGraph::newGround() const
{
    std::string name = "/Ground";
    for (int number = 1; node(name); ++number)
        name = "/Ground" + std::to_string(number);
    auto ground = std::make_shared<RigidBodyNode>(NodePath(name));
    if (const auto type = ground->attributes.typedEntry<int>("type"))
        type->set(Zento::RigidBodyAttributes::Plane);
    if (const auto axis = ground->attributes.typedEntry<int>("axis"))
        axis->set(Zento::RigidBodyAttributes::AxisY);
    // The plane is two units wide: the scale sizes it.
    ground->scale = Imath::V3d(10.0, 10.0, 10.0);
    return ground;
}

std::shared_ptr<BaseNode> ZentoSceneGraph::removeNode(const NodePath& path)
{
    const auto found = nodes.find(path);
    if (found == nodes.end())
        return nullptr;
    mMovedMeshes.clear();
    std::shared_ptr<BaseNode> node = found->second;
    if (BaseNode* parent = node->parent) {
        auto& siblings = parent->children;
        const auto self = std::find(siblings.begin(), siblings.end(), node.get());
        if (self != siblings.end())
            siblings.erase(self);
    }
    nodes.erase(found);
    mDelegate.RemoveMesh(path);
    return node;
}

std::map<std::string, std::shared_ptr<BaseNode>> ZentoSceneGraph::removeNodes(const std::vector<NodePath>& paths)
{
    std::map<std::string, std::shared_ptr<BaseNode>> removed;
    std::vector<NodePath> parents;
    for (const NodePath& path : paths) {
        const std::shared_ptr<BaseNode> node = removeNode(path);
        if (!node)
            continue;
        removed[path.string()] = node;
        for (BaseNode* descendant : node->descendants())
            if (const std::shared_ptr<BaseNode> gone = removeNode(descendant->path))
                removed[gone->path.string()] = gone;
        if (node->parent)
            parents.push_back(node->parent->path);
    }
    // A parent removed in the same call is simply not found.
    for (const NodePath& parent : parents)
        updateGeometry(parent);
    return removed;
}

std::map<std::string, std::shared_ptr<BaseNode>> ZentoSceneGraph::removeNodes(const std::vector<std::string>& paths)
{
    std::vector<NodePath> nodePaths;
    nodePaths.reserve(paths.size());
    for (const std::string& path : paths)
        nodePaths.emplace_back(path);
    return removeNodes(nodePaths);
}

void ZentoSceneGraph::updateGeometry(const NodePath& path)
{
    const std::shared_ptr<BaseNode> node = nodeByPath(path);
    if (!node)
        return;
    const std::shared_ptr<MapMetadata> geometry = node->geometry();
    if (!geometry)
        return;
    MeshArrays arrays = meshArrays(*geometry);
    mDelegate.UpdateMesh(path, node->worldMatrix(), std::move(arrays.points), std::move(arrays.counts),
                         std::move(arrays.indices));
}

namespace {

// The world matrix is handed down, so each ancestor is walked once per call,
// on a stack of its own, so that no depth exhausts the call stack.
void pushSubtreeTransforms(ZentoSceneDelegate& delegate, const BaseNode& top, const Imath::M44d& topWorld)
{
    std::vector<std::pair<const BaseNode*, Imath::M44d>> pending{{&top, topWorld}};
    while (!pending.empty()) {
        const BaseNode* node = pending.back().first;
        const Imath::M44d world = pending.back().second;
        pending.pop_back();
        delegate.UpdateTransform(node->path, world);
        for (const BaseNode* child : node->children)
            pending.emplace_back(child, child->localMatrix() * world);
    }
}

} // namespace

void ZentoSceneGraph::updateMatrix(const NodePath& path)
{
    if (const std::shared_ptr<BaseNode> node = nodeByPath(path))
        updateMatrix(*node);
}

void ZentoSceneGraph::updateMatrix(const BaseNode& node)
{
    pushSubtreeTransforms(mDelegate, node, node.worldMatrix());
}


void ZentoSceneGraph::updateMatrix(const std::string& path)
{
    updateMatrix(NodePath(path));
}

void ZentoSceneGraph::updateVisibility(const NodePath& path)
{
    const std::shared_ptr<BaseNode> node = nodeByPath(path);
    if (!node)
        return;
    mDelegate.SetVisibility(path, node->visible);
    for (const BaseNode* descendant : node->descendants())
        mDelegate.SetVisibility(descendant->path, descendant->visible && node->visible);
}

void ZentoSceneGraph::setDisplaySize(double size)
{
    for (auto& entry : nodes)
        entry.second->displaySize = size;
    for (auto& entry : nodes)
        updateGeometry(entry.first);
}

void ZentoSceneGraph::setSelection(const std::vector<std::string>& paths)
{
    mSelection.clear();
    for (const std::string& path : paths) {
        if (NodePath(path).isEmpty())
            continue;
        if (std::find(mSelection.begin(), mSelection.end(), path) == mSelection.end())
            mSelection.push_back(path);
    }
}

SolverNode* ZentoSceneGraph::solver() const
{
    const auto found = nodes.find(NodePath(SolverNode::kPath));
    if (found == nodes.end() || found->second->typeId() != SolverNode::kTypeId)
        return nullptr;
    return static_cast<SolverNode*>(found->second.get());
}

void ZentoSceneGraph::startSimulation()
{
    qDebug() << "Start sim";
    mMovedMeshes.clear();
    setSelection({});
    if (SolverNode* simulation = solver())
        simulation->start(nodes);
    simulating = true;
}

void ZentoSceneGraph::stopSimulation()
{
    qDebug() << "Stop sim";
    if (SolverNode* simulation = solver())
        updateMatrices(simulation->stop());
    simulating = false;
}

void ZentoSceneGraph::stepSimulation()
{
    if (SolverNode* simulation = solver())
        updateMatrices(simulation->step());
}

void ZentoSceneGraph::updateMatrices(const std::vector<BaseNode*>& moved)
{
    std::vector<Imath::M44d> worlds;
    for (const BaseNode* node : moved) {
        std::vector<MovedMesh>& subtree = mMovedMeshes[node];
        if (subtree.empty()) {
            subtree.push_back({node, -1, mDelegate.FindMesh(node->path)});
            for (size_t index = 0; index < subtree.size(); ++index)
                for (const BaseNode* child : subtree[index].node->children)
                    subtree.push_back({child, static_cast<int>(index), mDelegate.FindMesh(child->path)});
        }
        worlds.resize(subtree.size());
        for (size_t index = 0; index < subtree.size(); ++index) {
            const MovedMesh& entry = subtree[index];
            worlds[index] = entry.parent < 0 ? entry.node->worldMatrix()
                                             : entry.node->localMatrix() * worlds[size_t(entry.parent)];
            if (entry.mesh)
                ZentoSceneDelegate::UpdateTransform(*entry.mesh, worlds[index]);
        }
    }
}

void ZentoSceneGraph::grabBody(const std::string& path, const Imath::V3f& grabPoint)
{
    const std::shared_ptr<BaseNode> body = node(path);
    SolverNode* simulation = solver();
    if (body && body->typeId() == RigidBodyNode::kTypeId && simulation)
        simulation->grab(*body, grabPoint);
}

void ZentoSceneGraph::dragBody(const Imath::V3f& point)
{
    if (SolverNode* simulation = solver())
        simulation->drag(point);
}

void ZentoSceneGraph::releaseBody()
{
    if (SolverNode* simulation = solver())
        simulation->release();
}

namespace {

// The pick's samples along one side: the rectangle's pixels, and at least 4.
int pickResolution(int from, int to)
{
    const long long span = std::llabs(static_cast<long long>(from) - to);
    return static_cast<int>(std::min<long long>(std::max(4LL, span), std::numeric_limits<int>::max()));
}

// The frustum's projection narrowed to the rectangle from start to end in a
// view of width by height pixels, y downwards. The second corner lies one
// pixel on, so that a click covers its own pixel. The corners are not sorted:
// a rectangle dragged leftwards or upwards inverts the window, which still
// covers the same pixels.
Imath::M44d narrowedProjection(const Frustum& frustum, int width, int height, QPoint start, QPoint end)
{
    const double x0 = 2.0 * start.x() / width - 1.0;
    const double y0 = 1.0 - 2.0 * start.y() / height;
    const double x1 = (2.0 * end.x() + 2.0) / width - 1.0;
    const double y1 = 1.0 - (2.0 * end.y() + 2.0) / height;
    const Imath::V2d minimum = frustum.window().min;
    const Imath::V2d size = frustum.window().max - minimum;
    Frustum narrowed = frustum;
    narrowed.setWindow(Imath::Box2d(
        Imath::V2d(minimum.x + size.x * (x0 + 1.0) / 2.0, minimum.y + size.y * (y0 + 1.0) / 2.0),
        Imath::V2d(minimum.x + size.x * (x1 + 1.0) / 2.0, minimum.y + size.y * (y1 + 1.0) / 2.0)));
    return narrowed.computeProjectionMatrix();
}

// A viewport side as a pixel count; 0 for one without area, or not finite, or too large.
int viewportSide(double side)
{
    return side >= 1.0 && side <= std::numeric_limits<int>::max() ? static_cast<int>(side) : 0;
}

} // namespace

std::vector<ZentoCore::NodePath> ZentoSceneGraph::pickExclusions() const
{
    std::vector<NodePath> excluded;
    if (meshWireframe || !showMesh)
        excluded.emplace_back("/Skin");
    const bool bodiesOut = rigidBodyWireframe || !showRigidBodies;
    const bool constraintsOut = constraintWireframe || !showConstraints;
    for (const auto& entry : nodes) {
        const int type = entry.second->typeId();
        if ((bodiesOut && type == RigidBodyNode::kTypeId) || (constraintsOut && type == ConstraintNode::kTypeId))
            excluded.push_back(entry.first);
    }
    return excluded;
}

std::vector<std::string> ZentoSceneGraph::pick(const Frustum& frustum, const Imath::V4d& viewport, QPoint start,
                                               QPoint end, int highlightMode, std::vector<Imath::V3f>* hitPoints)
{
    const std::lock_guard<std::mutex> lock(renderMutex);
    const int width = viewportSide(viewport[2]);
    const int height = viewportSide(viewport[3]);
    std::vector<std::string> paths;
    if (!mPicker || !width || !height || highlightMode < 0 || highlightMode >= HighlightModeCount)
        return paths;

    ScenePicker::Request request;
    request.viewMatrix = frustum.computeViewMatrix();
    request.projectionMatrix = narrowedProjection(frustum, width, height, start, end);
    request.width = pickResolution(start.x(), end.x());
    request.height = pickResolution(start.y(), end.y());
    request.excluded = pickExclusions();
    for (const ScenePicker::Hit& hit : mPicker->pickPrims(mDelegate, request)) {
        paths.push_back(hit.path.string());
        if (hitPoints)
            hitPoints->push_back(hit.worldPoint);
    }
    return paths;
}
