#include "RagdollCheck.h"

#include "ConstraintNode.h"
#include "JointMeasure.h"
#include "RigidBodyConstraint.h"
#include "RigidBodyNode.h"
#include "SolverNode.h"
#include "ZentoSceneGraph.h"

#include <BulletDynamics/ConstraintSolver/btTypedConstraint.h>

#include <algorithm>
#include <cmath>
#include <iomanip>
#include <memory>
#include <set>
#include <sstream>
#include <unordered_map>

using Zento::RigidBodyAttributes;
using Zento::ZentoPhysx;

namespace RagdollCheck {

namespace {

// A body thinner than this, in metres, is tiny. No part of a person-sized
// ragdoll is (a finger is some 15 mm across), so it is most likely a slip of
// dimension or scale; and a body that thin weighs next to nothing and hardly
// resists turning, so the joints and contacts that hold it meet masses
// hundreds of times its own, which the solver's iterations do not settle:
// it jitters, and at speed it passes through what it should hit.
constexpr double kTinyThickness = 0.005;
// Jointed bodies whose masses differ more than this jitter and stretch their joints.
constexpr double kMostMassRatio = 10.0;
// A limited turn narrower than this each way, in degrees, jitters against its bounds.
constexpr double kNarrowLimitDegrees = 5.0;
// How far past its limits a joint may stand in the bind pose and still count
// as within them: the rounding of the frames in single precision, degrees and metres.
constexpr double kPoseToleranceDegrees = 0.1;
constexpr double kPoseToleranceMetres = 1e-4;
// Shapes that overlap less deeply than this, in metres, merely touch.
constexpr double kOverlapDepth = 0.001;
// Thresholds of the drop test's findings: degrees past a limit, metres apart.
constexpr double kDropLimitDegrees = 15.0;
constexpr double kDropMostSeparation = 0.02;
// The drop test never simulates longer than this, in seconds, whatever it is asked.
constexpr double kMaxDropSeconds = 120.0;

constexpr double kDegreesPerRadian = 180.0 / M_PI;

std::string shortName(const BaseNode& node)
{
    return node.path.name();
}

std::string number(double value, int decimals)
{
    std::ostringstream text;
    text << std::fixed << std::setprecision(decimals) << value;
    return text.str();
}

Finding finding(Severity severity, const char* kind, std::vector<std::string> nodes, std::string message)
{
    return {severity, kind, std::move(nodes), std::move(message)};
}

bool isBody(const BaseNode& node)
{
    return node.typeId() == RigidBodyNode::kTypeId;
}

int bodyType(const BaseNode& node)
{
    const auto type = node.attributes.typedEntry<int>("type");
    return type ? type->get() : -1;
}

bool isPlane(const BaseNode& node)
{
    return isBody(node) && bodyType(node) == RigidBodyAttributes::Plane;
}

double sceneScale(const ZentoSceneGraph& graph)
{
    const SolverNode* solver = graph.solver();
    const auto scale = solver ? solver->attributes.typedEntry<double>("sceneScale") : nullptr;
    // The physics keeps its scale of 1 for one it cannot use.
    const double value = scale ? scale->get() : 1.0;
    return std::isfinite(value) && value > 0.0 && std::isfinite(1.0 / value) ? value : 1.0;
}

// A solver with the scene's settings (the defaults when the scene has none),
// outside the scene, started on its nodes: the physics exactly as a run
// builds it, while neither the nodes nor the scene's own solver are touched.
std::unique_ptr<SolverNode> startedSolver(const ZentoSceneGraph& graph)
{
    auto solver = std::make_unique<SolverNode>(ZentoCore::NodePath(SolverNode::kPath));
    if (const SolverNode* own = graph.solver())
        solver->attributes = own->attributes;
    // The debug drawing would only cost time.
    solver->attributes.set("enableDebugger", false);
    solver->start(graph.nodes);
    return solver;
}

// ---- Values that are not finite ----

bool finite(const Imath::V3d& v)
{
    return std::isfinite(v.x) && std::isfinite(v.y) && std::isfinite(v.z);
}

bool finite(const Imath::M44d& m)
{
    for (int row = 0; row < 4; ++row)
        for (int column = 0; column < 4; ++column)
            if (!std::isfinite(m[row][column]))
                return false;
    return true;
}

bool finiteTransform(const BaseNode& node)
{
    const Imath::V3d turn(node.rotation.x, node.rotation.y, node.rotation.z);
    return finite(node.translation) && finite(turn) && finite(node.scale) && finite(node.pivot);
}

void checkFinite(const BaseNode& node, std::vector<Finding>& findings)
{
    std::vector<std::string> what;
    if (!finiteTransform(node))
        what.push_back("its transform");
    std::vector<std::string> keys;
    for (const auto& entry : node.attributes)
        if (entry.second && !entry.second->isFinite())
            keys.push_back("\"" + entry.first + "\"");
    if (!keys.empty()) {
        std::string list = keys.front();
        for (size_t index = 1; index < keys.size(); ++index)
            list += ", " + keys[index];
        what.push_back((keys.size() == 1 ? "the attribute " : "the attributes ") + list);
    }
    if (what.empty())
        return;
    const std::string where = what.size() == 1 ? what[0] : what[0] + " and " + what[1];
    findings.push_back(finding(Severity::Error, kNonFinite, {node.path.string()},
                               shortName(node) + " has a value that is not a finite number in " + where +
                                   ": the simulation leaves out what it cannot place, and the export carries it."));
}

// ---- Bodies ----

void checkSize(const BaseNode& node, double scale, std::vector<Finding>& findings)
{
    const int type = bodyType(node);
    if (type != RigidBodyAttributes::Sphere && type != RigidBodyAttributes::Box && type != RigidBodyAttributes::Capsule)
        return;
    RigidBodyAttributes record;
    if (!SolverNode::bodyRecord(node, record)) {
        // A body whose record reads but whose world matrix gives no pose has
        // a scale of zero somewhere above or on it; a broken matrix is
        // reported as not finite.
        RigidBodyAttributes plain;
        if (plain.deserialise(&node.attributes) && finite(node.worldMatrix()) && finiteTransform(node))
            findings.push_back(finding(Severity::Error, kTinyBody, {node.path.string()},
                                       shortName(node) + " is scaled to nothing: the simulation leaves it out."));
        return;
    }
    const std::optional<ZentoPhysx::BodyMeasure> measured = ZentoPhysx::measure(record, scale);
    if (!measured)
        return;
    if (measured->raisedToMinimum) {
        findings.push_back(finding(Severity::Error, kTinyBody, {node.path.string()},
                                   shortName(node) + " has a size of zero: the simulation makes it a speck of " +
                                       number(ZentoPhysx::kMinimumSize * 1000.0, 1) +
                                        " mm that weighs next to nothing and that any contact flings away."));
    } else if (measured->thickness < kTinyThickness) {
        findings.push_back(finding(Severity::Warning, kTinyBody, {node.path.string()},
                                   shortName(node) + " is only " + number(measured->thickness * 1000.0, 2) +
                                       " mm thick: so light a body jitters on its joints and passes through "
                                       "what it hits; check its dimension and the scene scale."));
    }
}

// ---- Constraints ----

// The mass that the simulation gives a dynamic body node, kilograms; empty
// for a body that does not move or has no mass.
std::optional<double> dynamicMass(const BaseNode& body, double scale)
{
    RigidBodyAttributes record;
    if (!SolverNode::bodyRecord(body, record) || record.state != RigidBodyAttributes::Dynamic)
        return std::nullopt;
    const std::optional<ZentoPhysx::BodyMeasure> measured = ZentoPhysx::measure(record, scale);
    if (!measured || !(measured->mass > 0.0))
        return std::nullopt;
    return measured->mass;
}

void checkMasses(const BaseNode& constraint, const BaseNode& parent, const BaseNode& child, double scale,
                 std::vector<Finding>& findings)
{
    const std::optional<double> parentMass = dynamicMass(parent, scale);
    const std::optional<double> childMass = dynamicMass(child, scale);
    if (!parentMass || !childMass)
        return;
    const double ratio = std::max(*parentMass, *childMass) / std::min(*parentMass, *childMass);
    if (!(ratio > kMostMassRatio))
        return;
    findings.push_back(finding(Severity::Warning, kMassRatio,
                               {constraint.path.string(), parent.path.string(), child.path.string()},
                               shortName(constraint) + " joins " + shortName(parent) + " (" + number(*parentMass, 3) +
                                   " kg) to " + shortName(child) + " (" + number(*childMass, 3) + " kg), " +
                                   number(ratio, 1) + " to 1: a joint between masses so far apart stretches and "
                                                      "jitters; bring them within 10 to 1."));
}

void checkJoins(const BaseNode& constraint, const NodeMap& nodes, double scale, std::vector<Finding>& findings)
{
    const BaseNode* child = ConstraintNode::childBody(constraint);
    const BaseNode* parent = ConstraintNode::parentBody(constraint, nodes);
    const std::string path = constraint.path.string();
    if (!child) {
        findings.push_back(finding(Severity::Error, kUnjoinedConstraint, {path},
                                   shortName(constraint) + " has no body on its joint to move: it joins nothing "
                                                           "and the simulation leaves it out."));
        return;
    }
    if (!parent) {
        findings.push_back(finding(Severity::Error, kUnjoinedConstraint, {path, child->path.string()},
                                   shortName(constraint) + " finds no body on any joint above " + shortName(*child) +
                                       " to hold on to: the simulation leaves it out and " + shortName(*child) +
                                       " falls apart from the rest."));
        return;
    }
    if (parent == child) {
        findings.push_back(finding(Severity::Error, kSelfConstraint, {path, child->path.string()},
                                   shortName(constraint) + " joins " + shortName(*child) +
                                       " to itself: it holds nothing and the simulation leaves it out."));
        return;
    }
    checkMasses(constraint, *parent, *child, scale, findings);
}

// Limits and the bind pose, on the joints as the simulation builds them:
// the joint's two frames coincide in the bind pose, so a bind pose outside
// the limits is a range that leaves out the rest pose.
void checkLimits(const SolverNode& solver, std::vector<Finding>& findings)
{
    for (const SolverNode::SimulatedConstraint& simulated : solver.constraints) {
        const BaseNode& node = *simulated.node;
        btTypedConstraint& joint = simulated.joint->joint();
        const std::string name = shortName(node);
        if (const std::optional<double> narrowest = Zento::JointMeasure::narrowestLimit(joint)) {
            const double degrees = *narrowest * kDegreesPerRadian;
            if (degrees < kNarrowLimitDegrees)
                findings.push_back(finding(
                    Severity::Warning, kNarrowLimit, {node.path.string()},
                    name + " lets a limited turn move only " + number(degrees, 2) +
                        " degrees each way: limits under 5 degrees jitter; lock that turn or widen its limit."));
        }
        const Zento::JointMeasure::Error error = Zento::JointMeasure::error(joint);
        const double degrees = error.angle * kDegreesPerRadian;
        if (degrees > kPoseToleranceDegrees)
            findings.push_back(finding(Severity::Error, kPoseOutsideLimits, {node.path.string()},
                                       name + " has its bind pose " + number(degrees, 1) +
                                           " degrees outside its limits: the simulation snaps the bodies into "
                                           "the limits at the first step."));
        else if (error.separation > kPoseToleranceMetres)
            findings.push_back(finding(Severity::Error, kPoseOutsideLimits, {node.path.string()},
                                       name + " has its bind pose " + number(error.separation * 100.0, 1) +
                                           " cm outside its linear limits: the simulation snaps the bodies into "
                                           "the limits at the first step."));
    }
}

// Bodies that the collision filter lets touch and that overlap in the bind
// pose; grounds are left to the drop test.
void checkOverlaps(SolverNode& solver, std::vector<Finding>& findings)
{
    std::unordered_map<unsigned long long, const BaseNode*> nodeById;
    for (const SolverNode::SimulatedBody& body : solver.bodies)
        nodeById[body.id] = body.node.get();
    for (const ZentoPhysx::Overlap& overlap : solver.physics.overlappingBodies(kOverlapDepth)) {
        const auto first = nodeById.find(overlap.first);
        const auto second = nodeById.find(overlap.second);
        if (first == nodeById.end() || second == nodeById.end() || isPlane(*first->second) ||
            isPlane(*second->second))
            continue;
        const BaseNode* a = first->second;
        const BaseNode* b = second->second;
        if (b->path < a->path)
            std::swap(a, b);
        findings.push_back(finding(Severity::Warning, kBindPoseOverlap, {a->path.string(), b->path.string()},
                                   shortName(*a) + " and " + shortName(*b) + " overlap by " +
                                       number(overlap.depth * 100.0, 1) +
                                       " cm in the bind pose and collide with each other: they push apart at the "
                                       "first step; shrink them, or put them in aggregate 0."));
    }
}

// ---- Drop test ----

Imath::V3f rotated(const Imath::V3f& v, const Imath::Quatf& q)
{
    return v * q.toMatrix33();
}

// The unit direction against gravity; y without gravity.
Imath::V3f upwards(const SolverNode& solver)
{
    const auto gravity = solver.attributes.typedEntry<Imath::V3d>("gravity");
    const Imath::V3f down = gravity ? Imath::V3f(gravity->get()) : Imath::V3f(0.0f);
    const float length = down.length();
    if (!std::isfinite(length) || length == 0.0f)
        return Imath::V3f(0.0f, 1.0f, 0.0f);
    return -down / length;
}

// A ground plane facing up through the point, in every collision pool that a
// body of the run uses, since bodies collide only within their pool.
void addGround(SolverNode& solver, const Imath::V3f& up, const Imath::V3f& point)
{
    std::set<int> pools;
    for (const SolverNode::SimulatedBody& body : solver.bodies) {
        const auto pool = body.node->attributes.typedEntry<int>("collisionPool");
        pools.insert(pool ? pool->get() : RigidBodyAttributes().collisionPool);
    }
    RigidBodyAttributes ground;
    ground.type = RigidBodyAttributes::Plane;
    ground.state = RigidBodyAttributes::Static;
    ground.axis = RigidBodyAttributes::AxisY;
    ground.rotation.setRotation(Imath::V3f(0.0f, 1.0f, 0.0f), up);
    ground.translation = point;
    ZentoUtils::Mesh mesh;
    for (int pool : pools) {
        ground.collisionPool = pool;
        solver.physics.addRigidBody("__dropGround__", ground, &mesh, false);
    }
}

// Lifts the ragdoll so that its lowest point stands height metres above the
// scene's first ground, or puts a ground that far below it.
void placeAboveGround(SolverNode& solver, double height, double scale)
{
    const float lift = static_cast<float>(std::max(0.0, std::isfinite(height) ? height : 0.0) / scale);
    for (const SolverNode::SimulatedBody& body : solver.bodies) {
        RigidBodyAttributes record;
        if (!isPlane(*body.node) || !SolverNode::bodyRecord(*body.node, record))
            continue;
        Imath::V3f normal(0.0f);
        normal[record.axis] = 1.0f;
        const Imath::V3f up = rotated(normal, record.rotation.normalized());
        const std::optional<float> lowest = solver.physics.lowestPoint(up);
        if (lowest)
            solver.physics.moveBodies(up * (up.dot(record.translation) + lift - *lowest));
        return;
    }
    const Imath::V3f up = upwards(solver);
    if (const std::optional<float> lowest = solver.physics.lowestPoint(up))
        addGround(solver, up, up * (*lowest - lift));
}

bool allAsleep(ZentoPhysx& physics)
{
    for (const auto& entry : physics.rigidBodies())
        if (entry.second.state == RigidBodyAttributes::Dynamic && !entry.second.isAsleep())
            return false;
    return true;
}

void measureJoints(const SolverNode& solver, DropTest& test)
{
    for (const SolverNode::SimulatedConstraint& simulated : solver.constraints) {
        btTypedConstraint& joint = simulated.joint->joint();
        // A broken joint holds nothing any more.
        if (!joint.isEnabled())
            continue;
        const Zento::JointMeasure::Error error = Zento::JointMeasure::error(joint);
        const double degrees = error.angle * kDegreesPerRadian;
        if (degrees > test.worstLimitDegrees) {
            test.worstLimitDegrees = degrees;
            test.worstLimitConstraint = simulated.node->path.string();
        }
        if (error.separation > test.worstSeparation) {
            test.worstSeparation = error.separation;
            test.worstSeparationConstraint = simulated.node->path.string();
        }
    }
}

} // namespace

std::vector<Finding> check(const ZentoSceneGraph& graph)
{
    std::vector<Finding> findings;
    const double scale = sceneScale(graph);
    for (const auto& entry : graph.nodes) {
        const BaseNode& node = *entry.second;
        checkFinite(node, findings);
        if (isBody(node))
            checkSize(node, scale, findings);
        else if (node.typeId() == ConstraintNode::kTypeId)
            checkJoins(node, graph.nodes, scale, findings);
    }
    std::unique_ptr<SolverNode> solver = startedSolver(graph);
    checkLimits(*solver, findings);
    checkOverlaps(*solver, findings);
    solver->physics.release();
    std::stable_sort(findings.begin(), findings.end(), [](const Finding& a, const Finding& b) {
        return a.nodes.front() < b.nodes.front();
    });
    return findings;
}

DropTest dropTest(ZentoSceneGraph& graph, const DropTestSettings& settings)
{
    DropTest test;
    std::unique_ptr<SolverNode> solver = startedSolver(graph);
    ZentoPhysx& physics = solver->physics;
    placeAboveGround(*solver, settings.height, sceneScale(graph));
    const double seconds = std::clamp(std::isfinite(settings.seconds) ? settings.seconds : 0.0, 0.0, kMaxDropSeconds);
    const int frames = static_cast<int>(std::ceil(seconds * SolverNode::kFrameRate));
    // The release is the first frame measured: a bind pose outside the limits counts.
    measureJoints(*solver, test);
    for (int frame = 1; frame <= frames; ++frame) {
        physics.stepPhysics();
        measureJoints(*solver, test);
        test.finite = test.finite && physics.frozenBodies().empty();
        // Nothing moves a ragdoll at rest again: the rest of the test would measure the same.
        if (allAsleep(physics)) {
            test.secondsToRest = frame / SolverNode::kFrameRate;
            break;
        }
    }
    solver->physics.release();
    return test;
}

std::vector<Finding> findings(const DropTest& test)
{
    std::vector<Finding> found;
    if (!test.finite)
        found.push_back(finding(Severity::Error, kDropNonFinite, {},
                                "In the drop test a body's pose or speed stopped being a finite number: the "
                                "simulation froze it; look for tiny bodies, extreme masses and drives."));
    if (test.secondsToRest < 0.0)
        found.push_back(finding(Severity::Warning, kDropUnsettled, {},
                                "In the drop test the ragdoll did not come to rest: something keeps it moving, "
                                "such as jittering limits, overlapping bodies or drives."));
    if (test.worstLimitDegrees > kDropLimitDegrees) {
        const std::string name = ZentoCore::NodePath(test.worstLimitConstraint).name();
        found.push_back(finding(Severity::Warning, kDropLimit, {test.worstLimitConstraint},
                                "In the drop test " + name + " went " + number(test.worstLimitDegrees, 1) +
                                    " degrees past its limits: its bodies are too light for what pulls on them, "
                                    "or its bind pose is outside the limits."));
    }
    if (test.worstSeparation > kDropMostSeparation) {
        const std::string name = ZentoCore::NodePath(test.worstSeparationConstraint).name();
        found.push_back(finding(Severity::Warning, kDropSeparation, {test.worstSeparationConstraint},
                                "In the drop test the bodies of " + name + " came " +
                                    number(test.worstSeparation * 100.0, 1) +
                                    " cm apart: the joint stretches; check the masses it joins and its limits."));
    }
    return found;
}

bool hasError(const std::vector<Finding>& findings)
{
    return std::any_of(findings.begin(), findings.end(),
                       [](const Finding& finding) { return finding.severity == Severity::Error; });
}

} // namespace RagdollCheck
