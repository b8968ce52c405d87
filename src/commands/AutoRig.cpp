#include "AutoRig.h"

#include "Authoring.h"
#include "ChangeAttributesCommand.h"
#include "ConstraintNode.h"
#include "CreateNodesCommand.h"
#include "JointNode.h"
#include "MathUtils.h"
#include "MeshNode.h"
#include "MultiCommand.h"
#include "RigidBodyConstraintAttributes.h"
#include "RigidBodyNode.h"
#include "SolverNode.h"
#include "ZentoSceneGraph.h"

#include <Imath/ImathBox.h>
#include <Imath/ImathMatrixAlgo.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <numeric>
#include <unordered_map>
#include <unordered_set>

// How the skeleton becomes bodies. Every joint is either the owner of a body
// or merged into the body of an owner above it:
//
// - A joint that stands on its parent's spot (closer than kSameSpot of the
//   height) has no bone of its own and is merged into its parent's owner; its
//   children's bones then start at the owner. So motion capture's root "Hips",
//   whose LHipJoint, RHipJoint and LowerBack all sit at its origin, becomes one
//   pelvis fitted to the hips and the spine above them, instead of a body of
//   no size with three unjoined bodies under it, and "Spine1" with its neck
//   and shoulder joints becomes the chest across the shoulders.
// - A part of the skeleton that reaches less than kSmallPart of the height from
//   its first joint (a finger, a thumb, a toe, an end site, the stubby hands of
//   motion capture) is merged, whole, into its parent's owner, whose body
//   grows to take it in.
// - Every other joint owns a body, and its place is a point the body of its
//   parent's owner reaches.
//
// An owner's capsule lies along the principal axis of its own place and the
// points it reaches, from end to end, caps included; on a plain bone that is
// the bone. Its constraint holds on to the body of its parent's owner, which
// "parentRigidBody" names when a merged joint lies between them. Two jointed
// bodies are brought within 10 to 1 of each other's mass by thickening the
// lighter or thinning the heavier. The bodies collide with each other but for jointed pairs, so capsules
// of colliding pairs that would overlap in the bind pose are cut back or
// thinned until they do not.
namespace AutoRig {

namespace {

using Imath::V3d;
using Record = Zento::RigidBodyConstraintAttributes;
using ZentoCore::NodePath;

// Fractions of the skeleton's height: a joint nearer its parent stands on its
// spot (5 cm of a person); a part that reaches no farther is too small for a
// body of its own (10 cm: fingers, toes, the stubby hands of motion capture).
constexpr double kSameSpot = 0.03;
constexpr double kSmallPart = 0.06;

// Radii as fractions of the capsule's length, caps included: from the length
// alone, and the least and the most any fit may give (at the most the caps meet).
constexpr double kRadiusOfLength = 0.15;
constexpr double kLeastRadius = 0.08;
constexpr double kMostRadius = 0.5;
// Without a skin, no radius under this fraction of the height (5 cm of a
// person) where the length allows: short bones of the spine, neck and head
// would be sticks, and far lighter than the limbs they are jointed to.
constexpr double kLeastRadiusOfHeight = 0.03;

// A radius from the skin is this quantile of the distances of the body's skin
// points to its axis: below the median, so that loose clothing and stray
// points do not swell it and the capsule stays inside the skin. With fewer
// points the skin says too little, and the length decides.
constexpr double kSkinQuantile = 0.3;
constexpr size_t kLeastSkinPoints = 8;

// Jointed bodies whose masses differ more than this are hard on the solver:
// the lighter one is thickened, as far as its length allows, to come within it.
constexpr double kMostMassRatio = 9.5;

// Colliding capsules are thinned to this share of the gap between their axes.
constexpr double kClearance = 0.98;

// The limits every constraint starts with, degrees: a twist about the bone
// and a swing cone, which hold a ragdoll together when dropped and which an
// artist then opens or closes joint by joint.
constexpr double kTwistLimit = 30.0;
constexpr double kSwingLimit = 45.0;

// The ground plane is drawn this many skeleton heights to each side, and lies
// this share of the height (2 mm of a person) below the lowest body, so that
// no body starts in contact with it.
constexpr double kGroundSize = 1.0;
constexpr double kGroundClearance = 0.001;

struct RigJoint {
    BaseNode* node = nullptr;
    int parent = -1;
    // The world matrix, and the place it puts the joint at, scene units.
    Imath::M44d world;
    V3d place{0.0, 0.0, 0.0};
    // The joint whose body stands for this one; itself for an owner.
    int owner = -1;
    // For an owner: the world points its body reaches beyond its own place.
    std::vector<V3d> reaches;
};

// One body's capsule, world space and scene units.
struct Capsule {
    int joint = -1;
    // The capsule of the joint's parent's owner; -1 at the top.
    int parent = -1;
    // The ends of the capsule on its axis, caps included.
    V3d start{0.0, 0.0, 0.0};
    V3d end{0.0, 0.0, 0.0};
    double radius = 0.0;

    double length() const { return (end - start).length(); }
};

// The joints at and below root, parents first, with their world matrices
// handed down: joints below anything but a joint belong to something else.
std::vector<RigJoint> collectJoints(BaseNode& root)
{
    std::vector<RigJoint> joints;
    std::unordered_map<const BaseNode*, int> index;
    const Imath::M44d rootWorld = root.worldMatrix();
    joints.push_back({&root, -1, rootWorld, rootWorld.translation(), -1, {}});
    index[&root] = 0;
    for (BaseNode* node : root.descendants()) {
        const auto parent = index.find(node->parent);
        if (node->typeId() != JointNode::kTypeId || parent == index.end())
            continue;
        index[node] = static_cast<int>(joints.size());
        const Imath::M44d world = node->localMatrix() * joints[parent->second].world;
        joints.push_back({node, parent->second, world, world.translation(), -1, {}});
    }
    return joints;
}

// The extent of the joints along y, the up of the simulation; a skeleton
// that lies down (less than a quarter as high as it is long, as a file whose
// up is z) is measured along its longest side instead.
double heightOf(const std::vector<RigJoint>& joints)
{
    constexpr double kLyingDown = 0.25;
    Imath::Box3d box;
    for (const RigJoint& joint : joints)
        box.extendBy(joint.place);
    const V3d size = box.size();
    const double longest = std::max({size.x, size.y, size.z});
    return size.y >= kLyingDown * longest ? size.y : longest;
}

// How far the joints below each joint reach from it, at most: over its
// children, the bone to the child and the child's own reach. Exact for
// straight chains, never less than the truth, and found in one pass from the
// last joint back, since parents come first.
std::vector<double> reachOf(const std::vector<RigJoint>& joints)
{
    std::vector<double> reach(joints.size(), 0.0);
    for (size_t i = joints.size(); i-- > 1;) {
        const int parent = joints[i].parent;
        reach[parent] = std::max(reach[parent], (joints[i].place - joints[parent].place).length() + reach[i]);
    }
    return reach;
}

// Decides each joint's owner, parents first, as told at the top.
void assignOwners(std::vector<RigJoint>& joints, double height)
{
    const std::vector<double> reach = reachOf(joints);
    std::vector<bool> inSmallPart(joints.size(), false);
    joints[0].owner = 0;
    for (size_t i = 1; i < joints.size(); ++i) {
        RigJoint& joint = joints[i];
        const RigJoint& parent = joints[joint.parent];
        RigJoint& parentOwner = joints[parent.owner];
        const bool sameSpot = (joint.place - parent.place).length() < kSameSpot * height;
        inSmallPart[i] = inSmallPart[joint.parent] || (!sameSpot && reach[i] < kSmallPart * height);
        if (!sameSpot)
            parentOwner.reaches.push_back(joint.place);
        joint.owner = sameSpot || inSmallPart[i] ? parent.owner : static_cast<int>(i);
    }
}

// The unit axis along which the points spread most.
V3d principalAxis(const std::vector<V3d>& points, const V3d& centre)
{
    if (points.size() == 2)
        return (points[1] - points[0]).normalized();
    Imath::M33d scatter(0.0);
    for (const V3d& point : points) {
        const V3d d = point - centre;
        for (int row = 0; row < 3; ++row)
            for (int column = 0; column < 3; ++column)
                scatter[row][column] += d[row] * d[column];
    }
    V3d axis;
    Imath::maxEigenVector(scatter, axis);
    return axis.normalized();
}

// The capsule of an owner along the principal axis of its place and the points
// it reaches, from end to end, starting at the end nearer the joint. Its radius
// comes from the length, or from the spread of the points about the axis when
// that is larger (the pelvis between the hips), and is at least
// leastRadius where the length allows. False for an owner that reaches nothing.
bool fitOwner(const RigJoint& joint, double leastRadius, Capsule& capsule)
{
    if (joint.reaches.empty())
        return false;
    std::vector<V3d> points = {joint.place};
    points.insert(points.end(), joint.reaches.begin(), joint.reaches.end());
    V3d centre(0.0);
    for (const V3d& point : points)
        centre += point;
    centre /= double(points.size());
    const V3d axis = principalAxis(points, centre);
    double low = 0.0, high = 0.0, spread = 0.0;
    for (const V3d& point : points) {
        const double along = (point - centre) ^ axis;
        low = std::min(low, along);
        high = std::max(high, along);
    }
    for (const V3d& point : joint.reaches) {
        const V3d off = point - centre;
        spread += (off - axis * (off ^ axis)).length();
    }
    spread /= double(joint.reaches.size());
    capsule.start = centre + axis * low;
    capsule.end = centre + axis * high;
    if ((capsule.end - joint.place).length2() < (capsule.start - joint.place).length2())
        std::swap(capsule.start, capsule.end);
    const double length = high - low;
    if (!(length > 0.0))
        return false;
    capsule.radius = std::clamp(std::max({kRadiusOfLength * length, spread, leastRadius}), kLeastRadius * length,
                                kMostRadius * length);
    return true;
}

std::vector<Capsule> fitCapsules(const std::vector<RigJoint>& joints, double height)
{
    std::vector<Capsule> capsules;
    std::vector<int> capsuleOf(joints.size(), -1);
    for (size_t i = 0; i < joints.size(); ++i) {
        Capsule capsule;
        if (joints[i].owner != static_cast<int>(i) || !fitOwner(joints[i], kLeastRadiusOfHeight * height, capsule))
            continue;
        capsule.joint = static_cast<int>(i);
        // Parents come first, so the parent's owner has its capsule by now.
        for (int above = joints[i].parent; above >= 0 && capsule.parent < 0; above = joints[above].parent)
            capsule.parent = capsuleOf[joints[above].owner];
        capsuleOf[i] = static_cast<int>(capsules.size());
        capsules.push_back(capsule);
    }
    return capsules;
}

// Where along the segment from a to b (0 to 1) the point nearest p lies.
double nearestOnSegment(const V3d& p, const V3d& a, const V3d& b)
{
    const V3d ab = b - a;
    const double length2 = ab.length2();
    return length2 > 0.0 ? std::clamp((p - a) ^ ab / length2, 0.0, 1.0) : 0.0;
}

V3d pointAt(const Capsule& capsule, double t)
{
    return capsule.start + (capsule.end - capsule.start) * t;
}

double distanceToSegment(const V3d& p, const Capsule& capsule)
{
    return (p - pointAt(capsule, nearestOnSegment(p, capsule.start, capsule.end))).length();
}

// The nearest points of the axes of two capsules, as places along each (0 to
// 1), and their distance: the closest points of two segments, first as
// lines, then clamped to the segments. Parallel axes take a's start.
double nearestBetween(const Capsule& a, const Capsule& b, double& onA, double& onB)
{
    const V3d da = a.end - a.start, db = b.end - b.start, r = a.start - b.start;
    const double aa = da ^ da, bb = db ^ db, f = db ^ r;
    onA = 0.0;
    onB = 0.0;
    if (aa <= 0.0 && bb > 0.0) {
        onB = std::clamp(f / bb, 0.0, 1.0);
    } else if (aa > 0.0) {
        const double c = da ^ r;
        if (bb <= 0.0) {
            onA = std::clamp(-c / aa, 0.0, 1.0);
        } else {
            const double ab = da ^ db;
            const double denominator = aa * bb - ab * ab;
            onA = denominator > 0.0 ? std::clamp((ab * f - c * bb) / denominator, 0.0, 1.0) : 0.0;
            onB = (ab * onA + f) / bb;
            if (onB < 0.0) {
                onB = 0.0;
                onA = std::clamp(-c / aa, 0.0, 1.0);
            } else if (onB > 1.0) {
                onB = 1.0;
                onA = std::clamp((ab - c) / aa, 0.0, 1.0);
            }
        }
    }
    return (pointAt(a, onA) - pointAt(b, onB)).length();
}

// Pulls a capsule's start toward its end by a share of its radius; false when
// that would leave it shorter than its own caps.
bool shortenFromStart(Capsule& capsule, double share)
{
    const double length = capsule.length();
    const double step = share * capsule.radius;
    if (length - step < 2.0 * capsule.radius)
        return false;
    capsule.start += (capsule.end - capsule.start) * (step / length);
    return true;
}

// Thins a capsule by share, to no less than the least radius its length
// allows; false when it is that thin already.
bool thin(Capsule& capsule, double share)
{
    const double least = kLeastRadius * capsule.length();
    if (capsule.radius <= least)
        return false;
    capsule.radius = std::max(least, capsule.radius * share);
    return true;
}

// Proportional to a capsule's mass: its volume over pi.
double volumeOf(const Capsule& capsule)
{
    return capsule.radius * capsule.radius * (capsule.length() - 2.0 / 3.0 * capsule.radius);
}

// Brings each jointed pair within kMostMassRatio, a little at a time: the
// lighter body is thickened as far as its length allows (with mayThicken;
// once colliding bodies are apart, thickening could make them meet again),
// then the heavier thinned as far as its own allows. A body has several
// neighbours, so the pairs are gone over a few times.
void balanceMasses(std::vector<Capsule>& capsules, bool mayThicken)
{
    constexpr double kGrowth = 1.02;
    constexpr int kRounds = 4;
    for (int round = 0; round < kRounds; ++round)
        for (Capsule& capsule : capsules) {
            if (capsule.parent < 0)
                continue;
            Capsule& parent = capsules[capsule.parent];
            Capsule& lighter = volumeOf(capsule) < volumeOf(parent) ? capsule : parent;
            Capsule& heavier = &lighter == &capsule ? parent : capsule;
            const double most = mayThicken ? kMostRadius * lighter.length() : lighter.radius;
            while (volumeOf(heavier) > kMostMassRatio * volumeOf(lighter) && lighter.radius < most)
                lighter.radius = std::min(most, lighter.radius * kGrowth);
            while (volumeOf(heavier) > kMostMassRatio * volumeOf(lighter))
                if (!thin(heavier, 1.0 / kGrowth))
                    break;
        }
}

// Separates two colliding capsules that overlap, a little at a time.
// Capsules that fan out from one spot (a collar bone and the neck from the top
// of the chest) are cut back from there, each while it stays longer than its
// caps, so that they keep their thickness; others, and fans that cannot be cut
// back further, are thinned, both alike, toward clearing each other, but never
// under the least radius: such a pair of bones runs through each other, and
// the artist must see that rather than get a body of no size.
void separatePair(Capsule& a, Capsule& b)
{
    // Capsules whose bounding spheres do not meet cannot overlap.
    const double reach = 0.5 * (a.length() + b.length()) + a.radius + b.radius;
    if (((a.start + a.end) * 0.5 - (b.start + b.end) * 0.5).length2() > reach * reach)
        return;
    constexpr double kStep = 0.1;
    constexpr int kSteps = 100;
    for (int step = 0; step < kSteps; ++step) {
        double onA = 0.0, onB = 0.0;
        const double gap = nearestBetween(a, b, onA, onB);
        const double together = a.radius + b.radius;
        if (gap >= together)
            return;
        if (onA == 0.0 && onB == 0.0) {
            const bool shortened = shortenFromStart(a, kStep);
            if (shortenFromStart(b, kStep) || shortened)
                continue;
        }
        const double share = std::max(kClearance * gap / together, 1.0 - kStep);
        const bool thinned = thin(a, share);
        if (!thin(b, share) && !thinned)
            return;
    }
}

// The capsule that each skin point belongs to: the body of the joint that
// weighs it most when the mesh says, else the capsule whose axis is nearest.
class SkinAssignment {
public:
    SkinAssignment(const std::vector<RigJoint>& joints, const std::vector<Capsule>& capsules)
    {
        for (const Capsule& capsule : capsules) {
            const V3d axis = capsule.end - capsule.start;
            const double length2 = axis.length2();
            mAxes.push_back({capsule.start, axis, length2 > 0.0 ? 1.0 / length2 : 0.0});
        }
        std::vector<int> capsuleOfOwner(joints.size(), -1);
        for (size_t c = 0; c < capsules.size(); ++c)
            capsuleOfOwner[capsules[c].joint] = static_cast<int>(c);
        for (const RigJoint& joint : joints) {
            // An owner without a capsule (a lone root) takes no points.
            if (capsuleOfOwner[joint.owner] >= 0)
                mByName.emplace(joint.node->path.name(), capsuleOfOwner[joint.owner]);
        }
    }

    int capsuleOf(const V3d& point, const std::string* jointName) const
    {
        if (jointName) {
            const auto named = mByName.find(*jointName);
            if (named != mByName.end())
                return named->second;
        }
        // A skin of 100,000 points against every axis: squared distances,
        // with each axis's inverse length worked out once.
        int nearest = -1;
        double best = 0.0;
        for (size_t c = 0; c < mAxes.size(); ++c) {
            const Axis& axis = mAxes[c];
            const V3d offset = point - axis.start;
            const double t = std::clamp((offset ^ axis.direction) * axis.inverseLength2, 0.0, 1.0);
            const double d = (offset - axis.direction * t).length2();
            if (nearest < 0 || d < best) {
                nearest = static_cast<int>(c);
                best = d;
            }
        }
        return nearest;
    }

private:
    struct Axis {
        V3d start;
        V3d direction;
        double inverseLength2;
    };
    std::vector<Axis> mAxes;
    std::unordered_map<std::string, int> mByName;
};

// The meshes at and below each path, each once: an import's list of new
// paths names a mesh more than once, and its groups. False, with the reason,
// for a path with no node or no mesh.
bool skinMeshes(const ZentoSceneGraph& graph, const std::vector<std::string>& skin,
                std::vector<const MeshNode*>& meshes, std::string& reason)
{
    std::unordered_set<const BaseNode*> taken;
    for (const std::string& path : skin) {
        const std::shared_ptr<BaseNode> node = graph.node(path);
        if (!node) {
            reason = "there is no node at \"" + path + "\"";
            return false;
        }
        std::vector<BaseNode*> below = node->descendants();
        below.insert(below.begin(), node.get());
        bool any = false;
        for (const BaseNode* candidate : below) {
            if (candidate->typeId() != MeshNode::kTypeId)
                continue;
            any = true;
            if (taken.insert(candidate).second)
                meshes.push_back(static_cast<const MeshNode*>(candidate));
        }
        if (!any) {
            reason = "\"" + path + "\" holds no mesh";
            return false;
        }
    }
    return true;
}

// Sets each capsule's radius from the skin points it holds, as told at
// kSkinQuantile. False, with the reason, for a path that holds no mesh.
bool fitToSkin(const ZentoSceneGraph& graph, const std::vector<std::string>& skin,
               const std::vector<RigJoint>& joints, std::vector<Capsule>& capsules, std::string& reason)
{
    std::vector<const MeshNode*> meshes;
    if (!skinMeshes(graph, skin, meshes, reason))
        return false;
    std::vector<std::vector<double>> distances(capsules.size());
    const SkinAssignment assignment(joints, capsules);
    for (const MeshNode* skinMesh : meshes) {
        const MeshNode& mesh = *skinMesh;
        const ZentoUtils::Mesh* geo = mesh.mesh();
        if (!geo)
            continue;
        const std::vector<std::string>* names = mesh.skinJoints();
        const Imath::M44d world = mesh.worldMatrix();
        for (size_t p = 0; p < geo->points.size(); ++p) {
            V3d point;
            world.multVecMatrix(V3d(geo->points[p]), point);
            const int c = assignment.capsuleOf(point, names ? &(*names)[p] : nullptr);
            if (c < 0)
                continue;
            const Capsule& capsule = capsules[c];
            const V3d axis = capsule.end - capsule.start;
            const double along = (point - capsule.start) ^ axis;
            // Points beyond the ends lie about the joints, where skins bulge and fold.
            if (along < 0.0 || along > axis.length2())
                continue;
            distances[c].push_back(distanceToSegment(point, capsule));
        }
    }
    for (size_t c = 0; c < capsules.size(); ++c) {
        std::vector<double>& d = distances[c];
        if (d.size() < kLeastSkinPoints)
            continue;
        const auto quantile = d.begin() + static_cast<std::ptrdiff_t>(kSkinQuantile * double(d.size() - 1));
        std::nth_element(d.begin(), quantile, d.end());
        const double length = capsules[c].length();
        capsules[c].radius = std::clamp(*quantile, kLeastRadius * length, kMostRadius * length);
    }
    return true;
}

// Separates every pair of colliding capsules (all but a body and its
// parent's) that overlap. Only capsules whose spans along x meet can overlap:
// sorted by where their spans start, each is tried against those that start
// before its span ends, so that a wide skeleton costs little more than its
// bodies. Separating only shortens and thins, so the spans taken before it
// hold every capsule throughout.
void separateCapsules(std::vector<Capsule>& capsules)
{
    std::vector<double> low, high;
    for (const Capsule& capsule : capsules) {
        low.push_back(std::min(capsule.start.x, capsule.end.x) - capsule.radius);
        high.push_back(std::max(capsule.start.x, capsule.end.x) + capsule.radius);
    }
    std::vector<size_t> order(capsules.size());
    std::iota(order.begin(), order.end(), size_t(0));
    std::sort(order.begin(), order.end(), [&](size_t a, size_t b) { return low[a] < low[b]; });
    for (size_t k = 0; k < order.size(); ++k) {
        const size_t i = order[k];
        for (size_t m = k + 1; m < order.size() && low[order[m]] <= high[i]; ++m) {
            const size_t j = order[m];
            if (capsules[i].parent != static_cast<int>(j) && capsules[j].parent != static_cast<int>(i))
                separatePair(capsules[i], capsules[j]);
        }
    }
}

// The capsule in its joint's local space, for the body node below the joint.
Authoring::CapsuleFit localFit(const RigJoint& joint, const Capsule& capsule)
{
    const Imath::M44d toJoint = ZentoCore::matrixInverse(joint.world);
    V3d start, end;
    toJoint.multVecMatrix(capsule.start, start);
    toJoint.multVecMatrix(capsule.end, end);
    const V3d bone = end - start;
    // A joint's scale, if any, shrinks or grows lengths alike in every direction.
    const double toLocal = bone.length() / capsule.length();
    Authoring::CapsuleFit fit;
    fit.centre = (start + end) * 0.5;
    fit.rotation = Authoring::alongBone(bone);
    fit.radius = capsule.radius * toLocal;
    fit.halfHeight = std::max(0.0, bone.length() * 0.5 - fit.radius);
    return fit;
}

template <typename T>
void setAttribute(BaseNode& node, const std::string& key, const T& value)
{
    if (const auto entry = node.attributes.typedEntry<T>(key))
        entry->set(value);
}

void limitTurns(BaseNode& constraint)
{
    for (const char* key : {"angularMotionX", "angularMotionY", "angularMotionZ"})
        setAttribute(constraint, key, int(Record::Limit));
    setAttribute(constraint, "enableTwistLimit", true);
    setAttribute(constraint, "twistLimit", V3d(-kTwistLimit, kTwistLimit, 0.0));
    setAttribute(constraint, "enableSwingLimit", true);
    setAttribute(constraint, "swingLimit", V3d(kSwingLimit, kSwingLimit, 0.0));
}

// The bodies and constraints as nodes, bodies first; false, with the reason,
// when a joint holds one already or has a name no path can take.
bool makeRagdollNodes(const ZentoSceneGraph& graph, const std::vector<RigJoint>& joints,
                      const std::vector<Capsule>& capsules, std::vector<std::shared_ptr<BaseNode>>& made,
                      Result& result, std::string& reason)
{
    std::vector<std::shared_ptr<BaseNode>> bodies;
    std::vector<std::shared_ptr<BaseNode>> constraints;
    for (const Capsule& capsule : capsules) {
        const RigJoint& joint = joints[capsule.joint];
        const NodePath bodyAt = Authoring::bodyPath(joint.node->path);
        const NodePath constraintAt = Authoring::constraintPath(joint.node->path);
        if (bodyAt.isEmpty() || constraintAt.isEmpty()) {
            reason = "the joint \"" + joint.node->path.string() + "\" has a name that a body cannot take";
            return false;
        }
        if (graph.nodeByPath(bodyAt) || graph.nodeByPath(constraintAt)) {
            reason = "the joint \"" + joint.node->path.string() + "\" holds a body or constraint already";
            return false;
        }
        // A joint that flattens its space has no inverse to place a body in.
        const double volume = joint.world.determinant();
        const Authoring::CapsuleFit fit = localFit(joint, capsule);
        if (volume == 0.0 || !std::isfinite(volume) || !(fit.radius > 0.0)
            || !std::isfinite(fit.radius + fit.halfHeight + fit.centre.length())) {
            reason = "the joint \"" + joint.node->path.string() + "\" is scaled to nothing";
            return false;
        }
        const std::shared_ptr<RigidBodyNode> body = Authoring::capsuleBody(bodyAt, fit, Authoring::kNoAggregate);
        bodies.push_back(body);
        result.bodies.push_back(bodyAt.string());
        if (capsule.parent < 0)
            continue;
        const std::shared_ptr<ConstraintNode> constraint = Authoring::boneConstraint(constraintAt, *body);
        limitTurns(*constraint);
        const int holder = capsules[capsule.parent].joint;
        if (holder != joint.parent)
            setAttribute(*constraint, "parentRigidBody", Authoring::bodyPath(joints[holder].node->path).string());
        constraints.push_back(constraint);
        result.constraints.push_back(constraintAt.string());
    }
    made.insert(made.end(), bodies.begin(), bodies.end());
    made.insert(made.end(), constraints.begin(), constraints.end());
    std::sort(result.bodies.begin(), result.bodies.end());
    std::sort(result.constraints.begin(), result.constraints.end());
    for (size_t i = 0; i < joints.size(); ++i)
        if (joints[i].owner != static_cast<int>(i))
            result.mergedJoints.push_back(joints[i].node->path.string());
    std::sort(result.mergedJoints.begin(), result.mergedJoints.end());
    return true;
}

// The lowest point of the capsules along y.
double lowestOf(const std::vector<Capsule>& capsules)
{
    double lowest = capsules.front().start.y;
    for (const Capsule& capsule : capsules) {
        // The centres of the caps, a radius in from the ends.
        const double inset = std::min(capsule.radius / capsule.length(), 0.5);
        const double a = pointAt(capsule, inset).y, b = pointAt(capsule, 1.0 - inset).y;
        lowest = std::min(lowest, std::min(a, b) - capsule.radius);
    }
    return lowest;
}

// A ground plane just under lowest, below the root joint, and in result what
// it and the scene scale are.
std::shared_ptr<BaseNode> groundUnder(const ZentoSceneGraph& graph, const std::vector<RigJoint>& joints, double lowest,
                                      double height, const Settings& settings, Result& result)
{
    const V3d& root = joints.front().place;
    const std::shared_ptr<BaseNode> ground = graph.newGround();
    ground->translation = V3d(root.x, lowest - kGroundClearance * height, root.z);
    ground->scale = V3d(kGroundSize * height);
    result.ground = ground->path.string();
    result.skeletonHeight = height;
    result.sceneScale = settings.height / height;
    return ground;
}

// The joints at and below skeletonRoot, parents first, and their height in
// scene units; the reason why there is no skeleton there to work on, or the
// empty text.
std::string measureSkeleton(const ZentoSceneGraph& graph, const std::string& skeletonRoot, const Settings& settings,
                            std::vector<RigJoint>& joints, double& height)
{
    const std::shared_ptr<BaseNode> root = graph.node(skeletonRoot);
    if (!root || root->typeId() != JointNode::kTypeId)
        return "There is no joint at \"" + skeletonRoot + "\" to build a ragdoll on.";
    if (!(settings.height > 0.0) || !std::isfinite(settings.height))
        return "The height a skeleton is taken for must be a positive number of metres.";
    joints = collectJoints(*root);
    height = heightOf(joints);
    if (!(height > 0.0) || !std::isfinite(height))
        return "The skeleton at \"" + skeletonRoot + "\" has no bone: its joints stand at one point.";
    return {};
}

std::shared_ptr<BaseCommand> refuse(std::string* error, const std::string& reason)
{
    if (error)
        *error = reason;
    return nullptr;
}

// One command that makes the nodes and gives the solver the scene scale: a
// new solver among the nodes when the scene has none.
std::shared_ptr<BaseCommand> withSceneScale(ZentoSceneGraph& graph, std::vector<std::shared_ptr<BaseNode>> made,
                                            double sceneScale)
{
    auto group = std::make_shared<MultiCommand>(&graph);
    if (graph.solver()) {
        ZentoCore::MapMetadata scale;
        scale.set("sceneScale", sceneScale);
        group->addCommand(std::make_shared<CreateNodesCommand>(&graph, made));
        group->addCommand(std::make_shared<ChangeAttributesCommand>(&graph, SolverNode::kPath, scale));
    } else {
        const std::shared_ptr<BaseNode> solver = ZentoSceneGraph::newSolver();
        setAttribute(*solver, "sceneScale", sceneScale);
        made.push_back(solver);
        group->addCommand(std::make_shared<CreateNodesCommand>(&graph, made));
    }
    return group;
}

// The lowest point, along y in world space, of the shape a body is drawn with.
double lowestPointOf(BaseNode& body)
{
    const auto geo = body.geometry()->typedEntry<ZentoUtils::Mesh>("geo");
    const Imath::M44d world = body.worldMatrix();
    double lowest = std::numeric_limits<double>::infinity();
    if (geo)
        for (const Imath::V3f& point : geo->get().points) {
            V3d placed;
            world.multVecMatrix(V3d(point), placed);
            lowest = std::min(lowest, placed.y);
        }
    return lowest;
}

} // namespace

std::shared_ptr<BaseCommand> build(ZentoSceneGraph& graph, const std::string& skeletonRoot,
                                   const std::vector<std::string>& skin, Result& result, const Settings& settings,
                                   std::string* error)
{
    result = Result();
    std::vector<RigJoint> joints;
    double height = 0.0;
    const std::string problem = measureSkeleton(graph, skeletonRoot, settings, joints, height);
    if (!problem.empty())
        return refuse(error, problem);
    assignOwners(joints, height);
    std::vector<Capsule> capsules = fitCapsules(joints, height);
    if (capsules.empty())
        return refuse(error, "The skeleton at \"" + skeletonRoot + "\" has no bone to build a body on.");
    std::string reason;
    if (!fitToSkin(graph, skin, joints, capsules, reason))
        return refuse(error, "Cannot fit the ragdoll to the skin: " + reason + ".");
    balanceMasses(capsules, true);
    separateCapsules(capsules);
    balanceMasses(capsules, false);

    std::vector<std::shared_ptr<BaseNode>> made;
    if (!makeRagdollNodes(graph, joints, capsules, made, result, reason))
        return refuse(error, "Cannot build a ragdoll on \"" + skeletonRoot + "\": " + reason + ".");
    made.push_back(groundUnder(graph, joints, lowestOf(capsules), height, settings, result));
    return withSceneScale(graph, std::move(made), result.sceneScale);
}

std::vector<std::string> bodyJoints(ZentoSceneGraph& graph, const std::string& skeletonRoot)
{
    std::vector<RigJoint> joints;
    double height = 0.0;
    if (!measureSkeleton(graph, skeletonRoot, {}, joints, height).empty())
        return {};
    assignOwners(joints, height);
    std::vector<std::string> owners;
    for (const Capsule& capsule : fitCapsules(joints, height))
        owners.push_back(joints[capsule.joint].node->path.string());
    std::sort(owners.begin(), owners.end());
    return owners;
}

std::shared_ptr<BaseCommand> stage(ZentoSceneGraph& graph, const std::string& skeletonRoot, Result& result,
                                   const Settings& settings, std::string* error)
{
    result = Result();
    std::vector<RigJoint> joints;
    double height = 0.0;
    const std::string problem = measureSkeleton(graph, skeletonRoot, settings, joints, height);
    if (!problem.empty())
        return refuse(error, problem);
    double lowest = joints.front().place.y;
    for (const RigJoint& joint : joints)
        lowest = std::min(lowest, joint.place.y);
    for (BaseNode* node : joints.front().node->descendants())
        if (node->typeId() == RigidBodyNode::kTypeId)
            lowest = std::min(lowest, lowestPointOf(*node));
    const std::shared_ptr<BaseNode> ground = groundUnder(graph, joints, lowest, height, settings, result);
    return withSceneScale(graph, {ground}, result.sceneScale);
}

} // namespace AutoRig
