#include "ZentoSceneGraph.h"

#include "ConstraintNode.h"
#include "RigidBodyAttributes.h"
#include "RigidBodyNode.h"
#include "SolverNode.h"

#include <QDebug>

#include <algorithm>
#include <cstdlib>
#include <limits>

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

void collectDescendants(const BaseNode& node, std::vector<BaseNode*>& out)
{
    for (BaseNode* child : node.children) {
        out.push_back(child);
        collectDescendants(*child, out);
    }
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
    mMovedMeshes.clear();
    nodes[node->path] = node;
    if (const std::shared_ptr<BaseNode> parent = this->node(parentPath)) {
        node->parent = parent.get();
        // Adding the same node twice must not list it twice among the children.
        auto& siblings = parent->children;
        if (std::find(siblings.begin(), siblings.end(), node.get()) == siblings.end())
            siblings.push_back(node.get());
        if (parent->geometryFollowsChildren())
            updateGeometry(parent->path);
    }
    if (node->skipsRendering())
        return;
    const std::shared_ptr<MapMetadata> geometry = node->geometry();
    if (!geometry)
        return;
    MeshArrays arrays = meshArrays(*geometry);
    mDelegate.AddMesh(node->path, node->worldMatrix(), std::move(arrays.points), std::move(arrays.counts),
                      std::move(arrays.indices));
    mDelegate.UpdateColor(node->path, Imath::V3f(Imath::V3d(node->color.x, node->color.y, node->color.z)),
                          static_cast<float>(node->color.w));
    // A hidden node that comes back, by undo or from a file, stays hidden.
    if (!node->visible)
        mDelegate.SetVisibility(node->path, false);
}

void ZentoSceneGraph::createSolver()
{
    auto solver = std::make_shared<SolverNode>(NodePath("/Solver"));
    solver->active = false;
    nodes[solver->path] = solver;
}

std::vector<std::string> ZentoSceneGraph::createGround()
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
    std::vector<std::string> result = {name};
    addNode(ground, "");
    result.push_back(name);
    return result;
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
        std::vector<BaseNode*> descendants;
        collectDescendants(*node, descendants);
        for (BaseNode* descendant : descendants)
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

// The world matrix is handed down, so each ancestor is walked once per call.
void pushSubtreeTransforms(ZentoSceneDelegate& delegate, const BaseNode& node, const Imath::M44d& world)
{
    delegate.UpdateTransform(node.path, world);
    for (const BaseNode* child : node.children)
        pushSubtreeTransforms(delegate, *child, child->localMatrix() * world);
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
    std::vector<BaseNode*> descendants;
    collectDescendants(*node, descendants);
    for (const BaseNode* descendant : descendants)
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
    const auto found = nodes.find(NodePath("/Solver"));
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
