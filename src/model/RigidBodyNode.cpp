#include "RigidBodyNode.h"

#include "RigidBodyAttributes.h"
#include "Shapes.h"

#include <cmath>

using Imath::V3f;
using Zento::RigidBodyAttributes;

namespace {


// Two units wide whatever the dimension: a plane is sized by the node's scale.
// The corners of the z plane do not run round the quad, so it crosses itself;
// scene files have always drawn it so.
void addPlane(ZentoUtils::Mesh& mesh, int axis)
{
    static const V3f corners[RigidBodyAttributes::kAxisCount][4] = {
        {{0, -1, -1}, {0, -1, 1}, {0, 1, 1}, {0, 1, -1}},
        {{-1, 0, -1}, {-1, 0, 1}, {1, 0, 1}, {1, 0, -1}},
        {{-1, 1, 0}, {-1, -1, 0}, {1, 1, 0}, {1, -1, 0}},
    };
    static const V3f normals[RigidBodyAttributes::kAxisCount] = {{1, 0, 0}, {0, 1, 0}, {0, 0, 1}};
    mesh.points.assign(std::begin(corners[axis]), std::end(corners[axis]));
    mesh.normals.assign(4, normals[axis]);
    mesh.indices = {0, 1, 2, 3};
    mesh.counts = {4};
    mesh.uvs = {{0, 0}, {0, 1}, {1, 1}, {1, 0}};
}

} // namespace

RigidBodyNode::RigidBodyNode(const ZentoCore::NodePath& path) : BaseNode(path)
{
    RigidBodyAttributes().serialise(&attributes);

    setDisplayList({
        "active",
        "state",
        "type",
        "dimension",
        "axis",
        "@Dynamic",
        "useMass",
        "mass",
        "density",
        "linearVelocity",
        "angularVelocity",
        "maxAngularVelocity",
        "linearDamping",
        "angularDamping",
        "staticFriction",
        "dynamicFriction",
        "restitution",
        "dynamicOnCollision",
        "collisionForceThreshold",
        "disableCollisionEvent",
        "stuckOnCollision",
        "stuckOnCollisionBreakForce",
        "collisionPool",
        "aggregate",
        "@HeightField",
        "heightFieldRows",
        "heightFieldColumns",
        "heightFieldScale",
        "@Rest",
        "restOffset",
        "@Contacts",
        "contactOffset",
        "contactReportThreshold",
        "@Tensor",
        "massSpaceInertiaTensor",
        "cMassLocalPose",
        "@Sleep",
        "sleepThreshold",
        "wakeCounter",
        "@Other",
        "stabilizationThreshold",
        "solverIteratorCount",
        "storeImpactData",
        "version",
    });
    setEnumHint({"state"}, {"Static", "Dynamic", "Kinematic"});
    setEnumHint({"type"}, {"Plane", "Sphere", "Box", "Capsule", "ConvexMesh", "TriangleMesh", "HeightField"});
    setEnumHint({"axis"}, {"X", "Y", "Z"});
}

int RigidBodyNode::typeId() const
{
    return kTypeId;
}

const std::string& RigidBodyNode::typeName() const
{
    static const std::string name = "RigidBody";
    return name;
}

bool RigidBodyNode::skipsRendering() const
{
    return false;
}

std::shared_ptr<ZentoCore::MapMetadata> RigidBodyNode::geometry()
{
    auto geometry = std::make_shared<ZentoCore::MapMetadata>();
    auto geo = std::make_shared<ZentoCore::MetadataImpl<ZentoUtils::Mesh>>();
    geometry->insertEntry("geo", geo);
    ZentoUtils::Mesh& mesh = geo->get();

    const auto typeEntry = attributes.typedEntry<int>("type");
    const auto dimensionEntry = attributes.typedEntry<Imath::V3d>("dimension");
    const auto axisEntry = attributes.typedEntry<int>("axis");
    const Imath::V3d d = dimensionEntry ? dimensionEntry->get() : Imath::V3d(1.0, 1.0, 1.0);
    // An axis out of range is as good as none.
    const int axis = axisEntry && axisEntry->get() >= 0 && axisEntry->get() < RigidBodyAttributes::kAxisCount
                         ? axisEntry->get()
                         : 0;

    switch (typeEntry ? typeEntry->get() : -1) {
    case RigidBodyAttributes::Plane:
        addPlane(mesh, axis);
        break;
    case RigidBodyAttributes::Sphere:
        // The sphere grid runs its poles along y.
        Shapes::addSphere(mesh, d.x);
        break;
    case RigidBodyAttributes::Box:
        Shapes::addBox(mesh, static_cast<float>(d.x), static_cast<float>(d.y), static_cast<float>(d.z));
        break;
    case RigidBodyAttributes::Capsule:
        Shapes::addCapsule(mesh, d.x, d.y, axis);
        break;
    default:
        // The mesh and height field shapes, and unknown types, draw nothing.
        break;
    }
    return geometry;
}

bool RigidBodyNode::geometryFollowsAttributes() const
{
    return true;
}
