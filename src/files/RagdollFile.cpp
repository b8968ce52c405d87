#include "RagdollFile.h"

#include "Archive.h"
#include "LoaderFiles.h"
#include "ArrayMetadata.h"
#include "ConstraintNode.h"
#include "MathUtils.h"
#include "RigidBodyAttributes.h"
#include "RigidBodyConstraintAttributes.h"
#include "RigidBodyNode.h"
#include "ZentoSceneGraph.h"

#include <unordered_map>

using namespace ZentoCore;

namespace {

std::shared_ptr<MapMetadata> bodyEntry(const BaseNode& body)
{
    Zento::RigidBodyAttributes record;
    record.deserialise(&body.attributes);
    Imath::M44d world = body.worldMatrix();
    Imath::V3d scale, shear, translation;
    Imath::Eulerd rotation; // XYZ
    ZentoCore::extractSHRT(world, scale, shear, rotation, translation);
    const Imath::Quatd orientation = rotation.toQuat();
    record.rotation = Imath::Quatf(float(orientation.r), Imath::V3f(orientation.v));
    // The runtime reads these two crossed, and every file ever written has them so.
    record.translation = Imath::V3f(scale);
    record.scale = Imath::V3f(translation);
    record.rotatePivot = record.scalePivot = record.scalePivotTranslate = record.rotatePivotTranslate = Imath::V3f(0.0f);
    record.worldMatrix = Imath::M44f(world);
    auto entry = std::make_shared<MapMetadata>();
    record.serialise(entry.get());
    entry->set("jointOffset", body.parent->worldMatrix() * matrixInverse(body.worldMatrix()));
    return entry;
}

// Null, and the constraint left out, when it has no child body or no parent body.
std::shared_ptr<MapMetadata> constraintEntry(const ZentoSceneGraph& graph, const BaseNode& constraint, std::string& name)
{
    Zento::RigidBodyConstraintAttributes record;
    record.deserialise(&constraint.attributes);
    for (int drive = 0; drive < Zento::RigidBodyConstraintAttributes::DriveCount; ++drive)
        record.drives[drive].deserialise(constraint.attributes, Zento::RigidBodyConstraintAttributes::kDrivePrefixes[drive]);
    const BaseNode* childBody = ConstraintNode::childBody(constraint);
    const BaseNode* parentBody = childBody ? ConstraintNode::parentBody(constraint, graph.nodes) : nullptr;
    if (!parentBody || !parentBody->parent)
        return nullptr;
    const std::string parentName = parentBody->parent->path.name();
    const std::string childName = childBody->parent->path.name();
    record.name = parentName + "To" + childName;
    name = record.name;
    auto entry = std::make_shared<MapMetadata>();
    record.serialise(entry.get());
    entry->set("parent", parentName);
    entry->set("children", childName);
    entry->set("matrix", constraint.worldMatrix() * matrixInverse(parentBody->worldMatrix()));
    return entry;
}

// Copies the entry's values into the node's attributes of the same keys; other keys are dropped.
void copyAttributes(const MapMetadata& entry, BaseNode& node)
{
    for (const auto& value : entry)
        if (const std::shared_ptr<Metadata> attribute = node.attributes.getEntry(value.first))
            attribute->copy(value.second.get());
}

// Gives the node the scale, rotation and translation of its local matrix, the
// shear dropped; false, with the node unchanged, for a degenerate matrix or
// one that overflows.
bool placeAt(BaseNode& node, const Imath::M44d& local)
{
    Imath::M44d matrix = local;
    Imath::V3d scale, shear, translation;
    Imath::Eulerd rotation = node.rotation;
    if (!isFinite(matrix) || !ZentoCore::extractSHRT(matrix, scale, shear, rotation, translation) || !isFinite(scale)
        || !isFinite(translation) || !isFinite(rotation.toXYZVector()))
        return false;
    node.scale = scale;
    node.rotation = rotation;
    node.translation = translation;
    return true;
}

// The file keeps the six drives as an array of maps without prefixes; the
// node keeps them as prefixed attributes.
void copyDrives(const MapMetadata& values, BaseNode& constraint)
{
    const auto drives = values.typedEntryAs<ArrayMetadata>("cDrive");
    if (!drives)
        return;
    for (int i = 0; i < Zento::RigidBodyConstraintAttributes::DriveCount && i < int(drives->get().size()); ++i) {
        const std::shared_ptr<Metadata>& element = drives->get()[size_t(i)];
        if (!element || element->typeId() != MapMetadata::staticTypeId())
            continue;
        Zento::DriveRecord drive;
        drive.deserialise(static_cast<const MapMetadata&>(*element), "");
        drive.serialise(constraint.attributes, Zento::RigidBodyConstraintAttributes::kDrivePrefixes[i]);
    }
}

// The nodes that one file adds, made in full before any goes into the scene,
// so that a file refused half way leaves the scene as it was.
class Import {
public:
    explicit Import(const ZentoSceneGraph& graph) : mGraph(graph)
    {
        // The first node of any type, in path order, answers for its short
        // name, and for the name without its namespace when no node bears
        // that name as it stands.
        for (const auto& entry : graph.nodes) {
            mByShortName.emplace(entry.first.name(), entry.second);
            mByBareName.emplace(RagdollFile::withoutNamespace(entry.first.name()), entry.second);
        }
    }

    // The body of the joint of that short name, placed by the file's world
    // "transform". Nothing is made when the joint is missing, already has
    // that body, or the entry has no transform; false when the transform
    // gives no pose.
    bool addBody(const std::string& jointName, const MapMetadata& values)
    {
        const std::shared_ptr<BaseNode> joint = byShortName(jointName);
        const auto transform = values.typedEntry<Imath::M44d>("transform");
        if (!joint || !transform) {
            mUnmatched.bodies.push_back(jointName);
            return true;
        }
        const NodePath path = joint->path.appendChild(joint->path.name() + "_RB");
        if (path.isEmpty() || find(path))
            return true;
        auto body = std::make_shared<RigidBodyNode>(path);
        copyAttributes(values, *body);
        if (!placeAt(*body, transform->get() * matrixInverse(joint->worldMatrix())))
            return false;
        if (const auto pivot = values.typedEntry<Imath::V3d>("rotatePivotTranslate"))
            body->pivot = pivot->get();
        body->color = RigidBodyNode::kColor;
        add(body, *joint);
        return true;
    }

    // The constraint of the file's "children" joint, placed by its "matrix"
    // in the frame of the "parent" joint's body. Nothing is made when a joint
    // or the parent body is missing or the constraint exists; false when the
    // matrix gives no pose.
    bool addConstraint(const std::string& name, const MapMetadata& values)
    {
        const auto parentName = values.typedEntry<std::string>("parent");
        const auto childName = values.typedEntry<std::string>("children");
        const auto matrix = values.typedEntry<Imath::M44d>("matrix");
        const std::shared_ptr<BaseNode> child = childName ? byShortName(childName->get()) : nullptr;
        const std::shared_ptr<BaseNode> parent = parentName ? byShortName(parentName->get()) : nullptr;
        const std::shared_ptr<BaseNode> parentBody =
            parent ? find(parent->path.appendChild(parent->path.name() + "_RB")) : nullptr;
        if (!matrix || !child || !parentBody) {
            mUnmatched.constraints.push_back(name);
            return true;
        }
        const NodePath path = child->path.appendChild(child->path.name() + "_RBC");
        if (path.isEmpty() || find(path))
            return true;
        auto constraint = std::make_shared<ConstraintNode>(path);
        copyAttributes(values, *constraint);
        if (!placeAt(*constraint, matrix->get() * worldOf(*parentBody) * matrixInverse(child->worldMatrix())))
            return false;
        constraint->color = ConstraintNode::kColor;
        // A plain text search, not a walk of the tree, as files have always been read.
        const bool isProp = child->path.string().find(parent->path.string()) == std::string::npos;
        if (isProp)
            if (const auto named = constraint->attributes.typedEntry<std::string>("parentRigidBody"))
                named->set(parentBody->path.string());
        copyDrives(values, *constraint);
        add(constraint, *child);
        return true;
    }

    const std::vector<ZentoSceneGraph::NewNode>& nodes() const { return mNodes; }
    const RagdollFile::Unmatched& unmatched() const { return mUnmatched; }

private:
    std::shared_ptr<BaseNode> byShortName(const std::string& name) const
    {
        const auto found = mByShortName.find(name);
        if (found != mByShortName.end())
            return found->second;
        const auto bare = mByBareName.find(RagdollFile::withoutNamespace(name));
        return bare == mByBareName.end() ? nullptr : bare->second;
    }

    // A node of the scene or one made by this import.
    std::shared_ptr<BaseNode> find(const NodePath& path) const
    {
        const auto made = mMade.find(path);
        return made != mMade.end() ? made->second.node : mGraph.nodeByPath(path);
    }

    // A node made here hangs under its parent only once it is added.
    Imath::M44d worldOf(const BaseNode& node) const
    {
        const auto made = mMade.find(node.path);
        return made != mMade.end() ? node.localMatrix() * made->second.parent->worldMatrix() : node.worldMatrix();
    }

    void add(const std::shared_ptr<BaseNode>& node, const BaseNode& parent)
    {
        mMade.emplace(node->path, Made{node, &parent});
        mNodes.push_back({node, parent.path.string()});
    }

    struct Made {
        std::shared_ptr<BaseNode> node;
        const BaseNode* parent;
    };

    const ZentoSceneGraph& mGraph;
    std::unordered_map<std::string, std::shared_ptr<BaseNode>> mByShortName;
    std::unordered_map<std::string, std::shared_ptr<BaseNode>> mByBareName;
    RagdollFile::Unmatched mUnmatched;
    std::unordered_map<NodePath, Made> mMade;
    std::vector<ZentoSceneGraph::NewNode> mNodes;
};

} // namespace

namespace RagdollFile {

std::string withoutNamespace(const std::string& name)
{
    const size_t colon = name.rfind(':');
    return colon == std::string::npos ? name : name.substr(colon + 1);
}

bool exportRagdoll(const ZentoSceneGraph& graph, const std::string& file)
{
    auto bodies = std::make_shared<MapMetadata>();
    auto constraints = std::make_shared<MapMetadata>();
    for (const auto& entry : graph.nodes) {
        const BaseNode& node = *entry.second;
        // A body with no joint, such as a ground, has no place in a ragdoll.
        if (node.typeId() == RigidBodyNode::kTypeId && node.parent)
            bodies->insertEntry(node.parent->path.name(), bodyEntry(node));
    }
    for (const auto& entry : graph.nodes) {
        const BaseNode& node = *entry.second;
        if (node.typeId() != ConstraintNode::kTypeId || !node.parent)
            continue;
        std::string name;
        if (const std::shared_ptr<MapMetadata> constraint = constraintEntry(graph, node, name))
            constraints->insertEntry(name, constraint);
    }
    MapMetadata top;
    top.insertEntry("rigidBodies", bodies);
    top.insertEntry("constraints", constraints);
    Archive archive(top.memSize(), 0);
    archive << top;
    return archive.good() && archive.writeToFile(file);
}

std::vector<std::string> loadRagdoll(ZentoSceneGraph& graph, const std::string& file, std::string* error,
                                     Unmatched* unmatched)
{
    MapMetadata top;
    if (!Zento::readArchiveMap(file, top, error))
        return {};
    const auto bodies = top.typedEntryAs<MapMetadata>("rigidBodies");
    if (!bodies) {
        Zento::setError(error, Zento::cannotRead(file, "it is no ragdoll file: it holds no rigid bodies"));
        return {};
    }
    const auto constraints = top.typedEntryAs<MapMetadata>("constraints");
    // Checked as a whole first: a number that is not finite would reach the
    // nodes and the physics through any attribute.
    for (const auto& list : {std::make_pair(bodies, "body"), std::make_pair(constraints, "constraint")})
        if (list.first)
            for (const auto& entry : *list.first)
                if (entry.second && !entry.second->isFinite()) {
                    Zento::setError(error, Zento::cannotRead(file, std::string("the ") + list.second + " \"" + entry.first
                                                                       + "\" holds a number that is not finite"));
                    return {};
                }
    Import import(graph);
    for (const auto& entry : *bodies)
        if (const auto values = bodies->typedEntryAs<MapMetadata>(entry.first))
            if (!import.addBody(entry.first, *values)) {
                Zento::setError(error, Zento::cannotRead(file, "the transform of the body \"" + entry.first
                                                                   + "\" gives no pose: it is degenerate or lies too far away"));
                return {};
            }
    if (constraints)
        for (const auto& entry : *constraints)
            if (const auto values = constraints->typedEntryAs<MapMetadata>(entry.first))
                if (!import.addConstraint(entry.first, *values)) {
                    Zento::setError(error, Zento::cannotRead(file, "the matrix of the constraint \"" + entry.first
                                                                       + "\" gives no pose: it is degenerate or lies too far away"));
                    return {};
                }
    if (unmatched)
        *unmatched = import.unmatched();
    std::vector<std::string> made;
    for (const ZentoSceneGraph::NewNode& entry : import.nodes())
        made.push_back(entry.node->path.string());
    if (made.empty())
        Zento::setError(error, "Nothing of \"" + file + "\" was added: no joint of the scene bears the name of one "
                               "of its bodies, or each has its body already");
    graph.addNodes(import.nodes());
    return made;
}

} // namespace RagdollFile
