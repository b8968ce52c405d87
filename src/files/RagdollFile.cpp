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

#include <cmath>

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

// The first node of any type, in path order, with that short name.
std::shared_ptr<BaseNode> nodeByShortName(const ZentoSceneGraph& graph, const std::string& name)
{
    for (const auto& entry : graph.nodes)
        if (entry.first.name() == name)
            return entry.second;
    return nullptr;
}

// Copies the entry's values into the node's attributes of the same keys; other keys are dropped.
void copyAttributes(const MapMetadata& entry, BaseNode& node)
{
    for (const auto& value : entry)
        if (const std::shared_ptr<Metadata> attribute = node.attributes.getEntry(value.first))
            attribute->copy(value.second.get());
}

bool isFinite(const Imath::V3d& v)
{
    return std::isfinite(v.x) && std::isfinite(v.y) && std::isfinite(v.z);
}

// Gives the node the scale, rotation and translation of its local matrix, the
// shear dropped; false, with the node unchanged, for a degenerate or
// non-finite matrix, which a damaged file can hold.
bool placeAt(BaseNode& node, const Imath::M44d& local)
{
    Imath::M44d matrix = local;
    Imath::V3d scale, shear, translation;
    Imath::Eulerd rotation = node.rotation;
    if (!ZentoCore::extractSHRT(matrix, scale, shear, rotation, translation) || !isFinite(scale)
        || !isFinite(translation) || !isFinite(rotation.toXYZVector()))
        return false;
    node.scale = scale;
    node.rotation = rotation;
    node.translation = translation;
    return true;
}

// The body of the joint of that short name, placed by the file's world
// "transform"; null, with nothing added, when the joint is missing, already
// has that body, or the transform gives no pose.
std::shared_ptr<BaseNode> makeBody(ZentoSceneGraph& graph, const std::string& jointName, const MapMetadata& values)
{
    const std::shared_ptr<BaseNode> joint = nodeByShortName(graph, jointName);
    const auto transform = values.typedEntry<Imath::M44d>("transform");
    if (!joint || !transform)
        return nullptr;
    const NodePath path = joint->path.appendChild(jointName + "_RB");
    if (path.isEmpty() || graph.nodeByPath(path))
        return nullptr;
    auto body = std::make_shared<RigidBodyNode>(path);
    copyAttributes(values, *body);
    if (!placeAt(*body, transform->get() * matrixInverse(joint->worldMatrix())))
        return nullptr;
    if (const auto pivot = values.typedEntry<Imath::V3d>("rotatePivotTranslate"))
        body->pivot = pivot->get();
    body->color = RigidBodyNode::kColor;
    graph.addNode(body, joint->path.string());
    return body;
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

// The constraint of the file's "children" joint, placed by its "matrix" in the
// frame of the "parent" joint's body; null, with nothing added, when a joint
// or the parent body is missing, the constraint exists, or there is no pose.
std::shared_ptr<BaseNode> makeConstraint(ZentoSceneGraph& graph, const MapMetadata& values)
{
    const auto parentName = values.typedEntry<std::string>("parent");
    const auto childName = values.typedEntry<std::string>("children");
    const auto matrix = values.typedEntry<Imath::M44d>("matrix");
    if (!parentName || !childName || !matrix)
        return nullptr;
    const std::shared_ptr<BaseNode> child = nodeByShortName(graph, childName->get());
    const std::shared_ptr<BaseNode> parent = nodeByShortName(graph, parentName->get());
    if (!child || !parent)
        return nullptr;
    const NodePath path = child->path.appendChild(childName->get() + "_RBC");
    if (path.isEmpty() || graph.nodeByPath(path))
        return nullptr;
    const std::shared_ptr<BaseNode> parentBody = graph.nodeByPath(parent->path.appendChild(parent->path.name() + "_RB"));
    if (!parentBody)
        return nullptr;
    auto constraint = std::make_shared<ConstraintNode>(path);
    copyAttributes(values, *constraint);
    if (!placeAt(*constraint, matrix->get() * parentBody->worldMatrix() * matrixInverse(child->worldMatrix())))
        return nullptr;
    constraint->color = ConstraintNode::kColor;
    // A plain text search, not a walk of the tree, as files have always been read.
    const bool isProp = child->path.string().find(parent->path.string()) == std::string::npos;
    if (isProp)
        if (const auto named = constraint->attributes.typedEntry<std::string>("parentRigidBody"))
            named->set(parentBody->path.string());
    copyDrives(values, *constraint);
    graph.addNode(constraint, child->path.string());
    return constraint;
}

} // namespace

namespace RagdollFile {

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

std::vector<std::string> loadRagdoll(ZentoSceneGraph& graph, const std::string& file, std::string* error)
{
    std::vector<std::string> made;
    MapMetadata top;
    if (!Zento::readArchiveMap(file, top, error))
        return made;
    const auto bodies = top.typedEntryAs<MapMetadata>("rigidBodies");
    if (!bodies) {
        Zento::setError(error, "\"" + file + "\" is no ragdoll file: it holds no rigid bodies");
        return made;
    }
    for (const auto& entry : *bodies)
        if (const auto values = bodies->typedEntryAs<MapMetadata>(entry.first))
            if (const std::shared_ptr<BaseNode> body = makeBody(graph, entry.first, *values))
                made.push_back(body->path.string());
    if (const auto constraints = top.typedEntryAs<MapMetadata>("constraints"))
        for (const auto& entry : *constraints)
            if (const auto values = constraints->typedEntryAs<MapMetadata>(entry.first))
                if (const std::shared_ptr<BaseNode> constraint = makeConstraint(graph, *values))
                    made.push_back(constraint->path.string());
    if (made.empty())
        Zento::setError(error, "Nothing of \"" + file + "\" was added: no joint of the scene bears the name of one "
                               "of its bodies, or each has its body already");
    return made;
}

} // namespace RagdollFile
