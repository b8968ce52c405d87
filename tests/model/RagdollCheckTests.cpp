#include "RagdollCheck.h"

#include "Authoring.h"
#include "ConstraintNode.h"
#include "CreateNodesCommand.h"
#include "RagdollFixture.h"
#include "RigidBodyAttributes.h"
#include "RigidBodyConstraintAttributes.h"
#include "RigidBodyNode.h"
#include "SceneState.h"
#include "SolverNode.h"
#include "ZentoSceneGraph.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <iostream>
#include <limits>

using Imath::V3d;
using RagdollCheck::Finding;
using RagdollCheck::Severity;
using ZentoCore::NodePath;
using Zento::RigidBodyAttributes;
using Record = Zento::RigidBodyConstraintAttributes;

namespace {

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

template <typename T>
void set(BaseNode& node, const std::string& key, const T& value)
{
    ASSERT_NE(node.attributes.typedEntry<T>(key), nullptr) << key;
    node.attributes.typedEntry<T>(key)->set(value);
}

void run(const std::shared_ptr<BaseCommand>& command)
{
    ASSERT_NE(command, nullptr);
    command->execute();
}

std::vector<Finding> ofKind(const std::vector<Finding>& findings, const std::string& kind)
{
    std::vector<Finding> found;
    std::copy_if(findings.begin(), findings.end(), std::back_inserter(found),
                 [&](const Finding& finding) { return finding.kind == kind; });
    return found;
}

std::string describe(const std::vector<Finding>& findings)
{
    std::string text;
    for (const Finding& finding : findings)
        text += std::string(finding.severity == Severity::Error ? "error " : "warning ") + finding.kind + ": " +
                finding.message + "\n";
    return text;
}

// A scene with its solver at a scale in metres per unit.
void makeSolver(ZentoSceneGraph& graph, double sceneScale)
{
    graph.createSolver();
    set(*graph.solver(), "sceneScale", sceneScale);
}

// A person of a chain of joints in metres: hips, spine, chest and head, a leg
// and a foot; bodies and locked constraints on them as the author makes them.
struct Chain {
    std::vector<std::string> bodies;
    std::vector<std::string> constraints;
};

Chain addChain(ZentoSceneGraph& graph)
{
    addJoint(graph, "/Skeleton/Hips", V3d(0, 1, 0));
    addJoint(graph, "/Skeleton/Hips/Spine", V3d(0, 0.3, 0));
    addJoint(graph, "/Skeleton/Hips/Spine/Chest", V3d(0, 0.3, 0));
    addJoint(graph, "/Skeleton/Hips/Spine/Chest/Head", V3d(0, 0.3, 0));
    Chain chain;
    run(Authoring::createRigidBodies(graph, {"/Skeleton/Hips", "/Skeleton/Hips/Spine", "/Skeleton/Hips/Spine/Chest"},
                                     chain.bodies));
    run(Authoring::createConstraints(graph, chain.bodies, chain.constraints));
    return chain;
}

// The walking man of the fixture at 1.7 m, with a body on his hips so that
// his legs and back hang together, every joint free within limits, the
// bodies in aggregate 0 as the author's are and, with evenMasses, of 3 kg
// each, on a ground.
RagdollFixture::Ragdoll addGoodRagdoll(ZentoSceneGraph& graph, bool evenMasses = true)
{
    makeSolver(graph, 0.1);
    RagdollFixture::Ragdoll ragdoll = RagdollFixture::loadRagdoll(graph);
    auto hips = std::make_shared<RigidBodyNode>(NodePath("/Skeleton/Hips/Hips_RB"));
    set(*hips, "type", int(RigidBodyAttributes::Sphere));
    set(*hips, "dimension", V3d(1.0, 1.0, 1.0));
    graph.addNode(hips, "/Skeleton/Hips");
    ragdoll.bodies.push_back(hips);
    RagdollFixture::limitJoints(ragdoll, 30.0, 45.0);
    for (const auto& body : ragdoll.bodies) {
        set(*body, "aggregate", 0);
        RigidBodyAttributes record;
        EXPECT_TRUE(SolverNode::bodyRecord(*body, record));
        const auto measured = Zento::ZentoPhysx::measure(record, 0.1);
        EXPECT_TRUE(measured && measured->mass > 0.0);
        if (measured && evenMasses)
            set(*body, "density", record.density * 3.0 / measured->mass);
    }
    graph.createGround();
    return ragdoll;
}

// Every node's world matrix by path.
std::map<std::string, Imath::M44d> worldMatrices(const ZentoSceneGraph& graph)
{
    std::map<std::string, Imath::M44d> matrices;
    for (const auto& entry : graph.nodes)
        matrices[entry.first.string()] = entry.second->worldMatrix();
    return matrices;
}

std::shared_ptr<RigidBodyNode> addSphere(ZentoSceneGraph& graph, const std::string& path, const V3d& at,
                                         double radius)
{
    auto body = std::make_shared<RigidBodyNode>(NodePath(path));
    body->translation = at;
    body->attributes.typedEntry<int>("type")->set(RigidBodyAttributes::Sphere);
    body->attributes.typedEntry<V3d>("dimension")->set(V3d(radius, radius, radius));
    graph.addNode(body, NodePath(path).parentPath().string());
    return body;
}

} // namespace

TEST(RagdollCheck, AGoodRagdollHasNoFindings)
{
    ZentoSceneGraph graph;
    addGoodRagdoll(graph);
    const std::vector<Finding> findings = RagdollCheck::check(graph);
    EXPECT_TRUE(findings.empty()) << describe(findings);
}

TEST(RagdollCheck, TheFixturesOwnMassesAreWarnedOfAndNothingElse)
{
    // Its capsules weigh as their bones are long: hands and hip joints are
    // light beside the arms and legs.
    ZentoSceneGraph graph;
    addGoodRagdoll(graph, false);
    const std::vector<Finding> findings = RagdollCheck::check(graph);
    EXPECT_FALSE(RagdollCheck::hasError(findings)) << describe(findings);
    EXPECT_EQ(ofKind(findings, RagdollCheck::kMassRatio).size(), findings.size()) << describe(findings);
    std::vector<std::string> constraints;
    for (const Finding& finding : findings)
        constraints.push_back(NodePath(finding.nodes.front()).name());
    for (const char* expected : {"LThumb_RBC", "LeftFoot_RBC", "RightUpLeg_RBC", "LowerBack_RBC"})
        EXPECT_NE(std::find(constraints.begin(), constraints.end(), expected), constraints.end()) << expected;
}

TEST(RagdollCheck, TheFixtureWithoutAHipsBodyFallsIntoThreeUnjoinedPieces)
{
    ZentoSceneGraph graph;
    makeSolver(graph, 0.1);
    RagdollFixture::loadRagdoll(graph);
    const std::vector<Finding> findings = RagdollCheck::check(graph);
    const std::vector<Finding> unjoined = ofKind(findings, RagdollCheck::kUnjoinedConstraint);
    std::vector<std::string> names;
    for (const Finding& finding : unjoined) {
        EXPECT_EQ(finding.severity, Severity::Error);
        names.push_back(NodePath(finding.nodes.front()).name());
    }
    std::sort(names.begin(), names.end());
    EXPECT_EQ(names, (std::vector<std::string>{"LHipJoint_RBC", "LowerBack_RBC", "RHipJoint_RBC"}))
        << describe(findings);
    EXPECT_TRUE(RagdollCheck::hasError(findings));
}

TEST(RagdollCheck, BodiesOfZeroOrTinySizeAreFound)
{
    ZentoSceneGraph graph;
    makeSolver(graph, 1.0);
    // A joint whose only child sits at its own origin: the author's capsule has no size.
    addJoint(graph, "/Skeleton/Root", V3d(0, 1, 0));
    addJoint(graph, "/Skeleton/Root/Same", V3d(0, 0, 0));
    std::vector<std::string> made;
    run(Authoring::createRigidBodies(graph, {"/Skeleton/Root"}, made));
    // 4 mm across at a scale of one metre a unit; the same at a scale of 2.5 is 10 mm.
    addSphere(graph, "/Pebble", V3d(3, 0, 0), 0.002);

    std::vector<Finding> findings = RagdollCheck::check(graph);
    std::vector<Finding> sizes = ofKind(findings, RagdollCheck::kTinyBody);
    ASSERT_EQ(sizes.size(), 2u) << describe(findings);
    EXPECT_EQ(sizes[0].nodes, std::vector<std::string>{"/Pebble"});
    EXPECT_EQ(sizes[0].severity, Severity::Warning);
    EXPECT_NE(sizes[0].message.find("Pebble"), std::string::npos) << sizes[0].message;
    EXPECT_EQ(sizes[1].nodes, std::vector<std::string>{"/Skeleton/Root/Root_RB"});
    EXPECT_EQ(sizes[1].severity, Severity::Error);

    set(*graph.solver(), "sceneScale", 2.5);
    sizes = ofKind(RagdollCheck::check(graph), RagdollCheck::kTinyBody);
    ASSERT_EQ(sizes.size(), 1u) << "the scene scale makes the pebble 10 mm";
    EXPECT_EQ(sizes[0].nodes.front(), "/Skeleton/Root/Root_RB");

    // A zero scale makes any body nothing.
    graph.node("/Pebble")->scale = V3d(0, 1, 1);
    sizes = ofKind(RagdollCheck::check(graph), RagdollCheck::kTinyBody);
    ASSERT_EQ(sizes.size(), 2u);
    EXPECT_EQ(sizes[0].severity, Severity::Error);
}

TEST(RagdollCheck, ConstraintsThatJoinNothingOrABodyToItselfAreErrors)
{
    ZentoSceneGraph graph;
    makeSolver(graph, 1.0);
    const Chain chain = addChain(graph);
    EXPECT_TRUE(ofKind(RagdollCheck::check(graph), RagdollCheck::kUnjoinedConstraint).empty());

    // A constraint on a joint without a body of its own.
    auto lonely = std::make_shared<ConstraintNode>(NodePath("/Skeleton/Hips/Spine/Chest/Head/Head_RBC"));
    graph.addNode(lonely, "/Skeleton/Hips/Spine/Chest/Head");
    // A prop constraint that holds the hips by the hips.
    const std::string hips = chain.bodies[0];
    std::vector<std::string> made;
    run(Authoring::createPropConstraint(graph, {hips, hips}, made));
    ASSERT_EQ(made, std::vector<std::string>{"/Skeleton/Hips/Hips_RBC"});

    const std::vector<Finding> findings = RagdollCheck::check(graph);
    const std::vector<Finding> unjoined = ofKind(findings, RagdollCheck::kUnjoinedConstraint);
    ASSERT_EQ(unjoined.size(), 1u) << describe(findings);
    EXPECT_EQ(unjoined[0].nodes.front(), lonely->path.string());
    EXPECT_EQ(unjoined[0].severity, Severity::Error);
    const std::vector<Finding> self = ofKind(findings, RagdollCheck::kSelfConstraint);
    ASSERT_EQ(self.size(), 1u) << describe(findings);
    EXPECT_EQ(self[0].nodes, (std::vector<std::string>{made[0], hips}));
    EXPECT_EQ(self[0].severity, Severity::Error);
}

TEST(RagdollCheck, JointedMassesMoreThanTenToOneApartAreWarned)
{
    ZentoSceneGraph graph;
    makeSolver(graph, 1.0);
    const Chain chain = addChain(graph);
    for (const std::string& body : chain.bodies)
        set(*graph.node(body), "dimension", V3d(0.05, 0.1, 0.0));
    EXPECT_TRUE(ofKind(RagdollCheck::check(graph), RagdollCheck::kMassRatio).empty());

    // Eleven times as dense: the ratio is the simulation's, density times volume.
    set(*graph.node("/Skeleton/Hips/Spine/Spine_RB"), "density", 11000.0);
    std::vector<Finding> ratios = ofKind(RagdollCheck::check(graph), RagdollCheck::kMassRatio);
    ASSERT_EQ(ratios.size(), 2u) << "both joints on the spine";
    EXPECT_EQ(ratios[0].severity, Severity::Warning);
    EXPECT_EQ(ratios[0].nodes.front(), "/Skeleton/Hips/Spine/Chest/Chest_RBC");
    EXPECT_EQ(ratios[1].nodes.front(), "/Skeleton/Hips/Spine/Spine_RBC");

    // With "useMass" the mass is as given.
    set(*graph.node("/Skeleton/Hips/Spine/Spine_RB"), "useMass", true);
    set(*graph.node("/Skeleton/Hips/Spine/Spine_RB"), "mass", 5.0);
    ratios = ofKind(RagdollCheck::check(graph), RagdollCheck::kMassRatio);
    EXPECT_TRUE(ratios.empty()) << describe(ratios);
}

TEST(RagdollCheck, NarrowLimitsAndBindPosesOutsideTheLimitsAreFound)
{
    ZentoSceneGraph graph;
    makeSolver(graph, 1.0);
    const Chain chain = addChain(graph);
    BaseNode& spine = *graph.node(chain.constraints[0]);
    BaseNode& chest = *graph.node(chain.constraints[1]);
    // Locked turns, as the author makes them, are no narrow limits.
    EXPECT_TRUE(ofKind(RagdollCheck::check(graph), RagdollCheck::kNarrowLimit).empty());
    EXPECT_TRUE(ofKind(RagdollCheck::check(graph), RagdollCheck::kPoseOutsideLimits).empty());

    // A swing of 3 degrees each way, the rest at the middle; a twist of 4
    // degrees each way that starts 10 degrees off the bind pose.
    set(spine, "angularMotionY", int(Record::Limit));
    set(spine, "enableSwingLimit", true);
    set(spine, "swingLimit", V3d(3.0, 40.0, 0.0));
    set(chest, "angularMotionX", int(Record::Limit));
    set(chest, "enableTwistLimit", true);
    set(chest, "twistLimit", V3d(10.0, 18.0, 0.0));

    std::vector<Finding> findings = RagdollCheck::check(graph);
    std::vector<Finding> narrow = ofKind(findings, RagdollCheck::kNarrowLimit);
    ASSERT_EQ(narrow.size(), 2u) << describe(findings);
    EXPECT_EQ(narrow[0].nodes.front(), chest.path.string());
    EXPECT_EQ(narrow[1].nodes.front(), spine.path.string());
    EXPECT_EQ(narrow[0].severity, Severity::Warning);
    std::vector<Finding> outside = ofKind(findings, RagdollCheck::kPoseOutsideLimits);
    ASSERT_EQ(outside.size(), 1u) << describe(findings);
    EXPECT_EQ(outside[0].nodes.front(), chest.path.string());
    EXPECT_EQ(outside[0].severity, Severity::Error);
    EXPECT_NE(outside[0].message.find("10.0 degrees"), std::string::npos) << outside[0].message;

    // A range that starts at the bind pose holds it; a wide one is no narrow limit.
    set(chest, "twistLimit", V3d(0.0, 60.0, 0.0));
    findings = RagdollCheck::check(graph);
    EXPECT_TRUE(ofKind(findings, RagdollCheck::kPoseOutsideLimits).empty()) << describe(findings);
    EXPECT_EQ(ofKind(findings, RagdollCheck::kNarrowLimit).size(), 1u) << describe(findings);

    // A hinge limited to 20..40 degrees leaves out its bind pose too.
    set(chest, "constraintType", int(Record::Revolute));
    set(chest, "enableLimit", true);
    set(chest, "limit", V3d(20.0, 40.0, 0.0));
    outside = ofKind(RagdollCheck::check(graph), RagdollCheck::kPoseOutsideLimits);
    ASSERT_EQ(outside.size(), 1u);
    EXPECT_EQ(outside[0].nodes.front(), chest.path.string());

    // A spherical joint's cone of 2 degrees is narrow; a distance joint that
    // keeps its anchors 10 cm apart at least starts 10 cm outside.
    set(chest, "constraintType", int(Record::Spherical));
    set(chest, "limit", V3d(2.0, 30.0, 0.0));
    findings = RagdollCheck::check(graph);
    EXPECT_EQ(ofKind(findings, RagdollCheck::kNarrowLimit).size(), 2u) << describe(findings);
    EXPECT_TRUE(ofKind(findings, RagdollCheck::kPoseOutsideLimits).empty()) << describe(findings);
    set(chest, "constraintType", int(Record::Distance));
    set(chest, "enableMinDistance", true);
    set(chest, "minDistance", 0.1);
    set(chest, "maxDistance", 0.5);
    outside = ofKind(RagdollCheck::check(graph), RagdollCheck::kPoseOutsideLimits);
    ASSERT_EQ(outside.size(), 1u);
    EXPECT_NE(outside[0].message.find("10.0 cm"), std::string::npos) << outside[0].message;

    // So does a slider kept 5 to 20 cm out; a fixed joint holds its bind pose.
    set(chest, "constraintType", int(Record::Prismatic));
    set(chest, "limit", V3d(0.05, 0.2, 0.0));
    outside = ofKind(RagdollCheck::check(graph), RagdollCheck::kPoseOutsideLimits);
    ASSERT_EQ(outside.size(), 1u);
    EXPECT_NE(outside[0].message.find("5.0 cm"), std::string::npos) << outside[0].message;
    set(chest, "constraintType", int(Record::Fixed));
    findings = RagdollCheck::check(graph);
    EXPECT_TRUE(ofKind(findings, RagdollCheck::kPoseOutsideLimits).empty()) << describe(findings);
}

TEST(RagdollCheck, OverlapsCountOnlyBetweenBodiesThatCollide)
{
    ZentoSceneGraph graph;
    makeSolver(graph, 1.0);
    const Chain chain = addChain(graph);
    // The author's bodies are in aggregate 0: they never collide with each other.
    EXPECT_TRUE(ofKind(RagdollCheck::check(graph), RagdollCheck::kBindPoseOverlap).empty());
    for (const std::string& body : chain.bodies)
        set(*graph.node(body), "aggregate", -1);
    // Jointed pairs without "enableCollision" do not collide either; hips and
    // chest, which no joint ties, do.
    std::vector<Finding> findings = RagdollCheck::check(graph);
    std::vector<Finding> overlaps = ofKind(findings, RagdollCheck::kBindPoseOverlap);
    for (const Finding& overlap : overlaps)
        EXPECT_EQ(overlap.severity, Severity::Warning);
    const size_t unjointed = overlaps.size();

    auto a = addSphere(graph, "/A", V3d(5, 0, 0), 0.5);
    auto b = addSphere(graph, "/B", V3d(5.6, 0, 0), 0.5);
    overlaps = ofKind(RagdollCheck::check(graph), RagdollCheck::kBindPoseOverlap);
    ASSERT_EQ(overlaps.size(), unjointed + 1);
    EXPECT_EQ(overlaps.front().nodes, (std::vector<std::string>{"/A", "/B"}));
    EXPECT_NE(overlaps.front().message.find("40.0 cm"), std::string::npos) << overlaps.front().message;

    set(*b, "collisionPool", 1);
    EXPECT_EQ(ofKind(RagdollCheck::check(graph), RagdollCheck::kBindPoseOverlap).size(), unjointed)
        << "other pools never touch";
    set(*b, "collisionPool", 0);
    set(*a, "aggregate", 0);
    set(*b, "aggregate", 0);
    EXPECT_EQ(ofKind(RagdollCheck::check(graph), RagdollCheck::kBindPoseOverlap).size(), unjointed)
        << "aggregate 0 has no self collision";
    set(*b, "aggregate", 3);
    EXPECT_EQ(ofKind(RagdollCheck::check(graph), RagdollCheck::kBindPoseOverlap).size(), unjointed + 1);

    // A joint between the two without "enableCollision" keeps them apart; with it, they collide.
    set(*a, "aggregate", -1);
    set(*b, "aggregate", -1);
    auto holder = std::make_shared<TransformNode>(NodePath("/Holder"));
    graph.addNode(holder, "");
    graph.addNode(std::make_shared<JointNode>(NodePath("/Holder/J")), "/Holder");
    auto held = addSphere(graph, "/Holder/J/Held", V3d(5.6, 0, 3), 0.5);
    auto holding = addSphere(graph, "/Holding", V3d(5, 0, 3), 0.5);
    std::vector<std::string> made;
    run(Authoring::createPropConstraint(graph, {"/Holding", "/Holder/J/Held"}, made));
    overlaps = ofKind(RagdollCheck::check(graph), RagdollCheck::kBindPoseOverlap);
    EXPECT_EQ(overlaps.size(), unjointed + 1) << describe(overlaps);
    set(*graph.node(made[0]), "enableCollision", true);
    overlaps = ofKind(RagdollCheck::check(graph), RagdollCheck::kBindPoseOverlap);
    EXPECT_EQ(overlaps.size(), unjointed + 2) << describe(overlaps);
}

TEST(RagdollCheck, ValuesThatAreNotFiniteAreErrorsAndCrashNothing)
{
    ZentoSceneGraph graph;
    makeSolver(graph, 1.0);
    const Chain chain = addChain(graph);
    BaseNode& spine = *graph.node(chain.bodies[1]);
    set(spine, "dimension", V3d(kNaN, 0.1, 0.1));
    set(spine, "density", std::numeric_limits<double>::infinity());
    graph.node("/Skeleton/Hips/Spine/Chest")->translation.y = kNaN;

    const std::vector<Finding> findings = RagdollCheck::check(graph);
    const std::vector<Finding> broken = ofKind(findings, RagdollCheck::kNonFinite);
    ASSERT_EQ(broken.size(), 2u) << describe(findings);
    EXPECT_EQ(broken[0].nodes.front(), "/Skeleton/Hips/Spine/Chest");
    EXPECT_NE(broken[0].message.find("transform"), std::string::npos) << broken[0].message;
    EXPECT_EQ(broken[1].nodes.front(), chain.bodies[1]);
    EXPECT_NE(broken[1].message.find("\"density\", \"dimension\""), std::string::npos) << broken[1].message;
    EXPECT_TRUE(RagdollCheck::hasError(findings));

    const RagdollCheck::DropTest test = RagdollCheck::dropTest(graph, {1.0, 1.0});
    EXPECT_TRUE(std::isfinite(test.worstLimitDegrees));
    EXPECT_TRUE(std::isfinite(test.worstSeparation));
}

TEST(RagdollCheck, EmptyScenesAndScenesWithoutASolverCrashNothing)
{
    ZentoSceneGraph empty;
    EXPECT_TRUE(RagdollCheck::check(empty).empty());
    RagdollCheck::DropTest test = RagdollCheck::dropTest(empty);
    EXPECT_TRUE(test.finite);
    EXPECT_EQ(test.secondsToRest, 0.04) << "nothing to move rests at the first frame";
    EXPECT_TRUE(RagdollCheck::findings(test).empty());

    ZentoSceneGraph graph;
    addChain(graph);
    ASSERT_EQ(graph.solver(), nullptr);
    const std::vector<Finding> findings = RagdollCheck::check(graph);
    EXPECT_FALSE(RagdollCheck::hasError(findings)) << describe(findings);
    const auto before = worldMatrices(graph);
    test = RagdollCheck::dropTest(graph, {0.5, 3.0});
    EXPECT_TRUE(test.finite);
    EXPECT_GT(test.secondsToRest, 0.0) << "the default solver drops it onto a ground of its own";
    EXPECT_EQ(worldMatrices(graph), before);
    EXPECT_EQ(graph.node("/Ground"), nullptr) << "the temporary ground is no node";

    // Settings that make no sense simulate nothing rather than forever.
    test = RagdollCheck::dropTest(graph, {kNaN, kNaN});
    EXPECT_TRUE(test.finite);
    EXPECT_LT(test.secondsToRest, 0.0);
}

TEST(RagdollDropTest, AGoodRagdollSettlesAndLeavesTheSceneAsItWas)
{
    ZentoSceneGraph graph;
    addGoodRagdoll(graph);
    const SceneState before = capture(graph);
    const auto matrices = worldMatrices(graph);
    const size_t count = graph.nodes.size();

    const RagdollCheck::DropTest test = RagdollCheck::dropTest(graph, {1.0, 5.0});
    std::cout << "rest " << test.secondsToRest << " s, limit " << test.worstLimitDegrees << " deg at "
              << test.worstLimitConstraint << ", separation " << test.worstSeparation << " m at "
              << test.worstSeparationConstraint << "\n";
    EXPECT_TRUE(test.finite);
    // Falling a metre takes 0.45 s; the rest must come after that.
    EXPECT_GT(test.secondsToRest, 0.45);
    EXPECT_LT(test.secondsToRest, 5.0);
    EXPECT_LT(test.worstLimitDegrees, 15.0);
    EXPECT_LT(test.worstSeparation, 0.02);
    EXPECT_TRUE(RagdollCheck::findings(test).empty()) << describe(RagdollCheck::findings(test));

    EXPECT_EQ(graph.nodes.size(), count);
    EXPECT_EQ(worldMatrices(graph), matrices);
    expectSameScene(before, capture(graph), "after the drop test", true, 0.0);
}

TEST(RagdollDropTest, ABindPoseOutsideNarrowLimitsShowsInTheFigures)
{
    ZentoSceneGraph graph;
    const RagdollFixture::Ragdoll ragdoll = addGoodRagdoll(graph);
    const RagdollCheck::DropTest good = RagdollCheck::dropTest(graph, {1.0, 2.0});
    // Twists of half a degree, 20 degrees off the bind pose.
    for (const auto& constraint : ragdoll.constraints)
        set(*constraint, "twistLimit", V3d(20.0, 20.5, 0.0));
    const std::vector<Finding> findings = RagdollCheck::check(graph);
    EXPECT_EQ(ofKind(findings, RagdollCheck::kPoseOutsideLimits).size(), ragdoll.constraints.size());
    EXPECT_EQ(ofKind(findings, RagdollCheck::kNarrowLimit).size(), ragdoll.constraints.size());

    const RagdollCheck::DropTest bad = RagdollCheck::dropTest(graph, {1.0, 2.0});
    EXPECT_TRUE(bad.finite);
    EXPECT_GT(bad.worstLimitDegrees, 19.0);
    EXPECT_GT(bad.worstLimitDegrees, 5.0 * good.worstLimitDegrees);
    const std::vector<Finding> drop = RagdollCheck::findings(bad);
    ASSERT_FALSE(ofKind(drop, RagdollCheck::kDropLimit).empty()) << describe(drop);
    EXPECT_EQ(ofKind(drop, RagdollCheck::kDropLimit)[0].nodes.front(), bad.worstLimitConstraint);
    EXPECT_FALSE(RagdollCheck::hasError(drop)) << "past limits is a warning";
}

TEST(RagdollDropTest, TheRagdollFallsFromTheHeightAboveTheScenesGround)
{
    // One ball a metre across, far above the ground and placed at each
    // height above it: it cannot rest before it lands.
    ZentoSceneGraph graph;
    makeSolver(graph, 1.0);
    graph.createGround();
    addSphere(graph, "/Ball", V3d(0, 40, 0), 0.5);
    const RagdollCheck::DropTest low = RagdollCheck::dropTest(graph, {0.05, 10.0});
    const RagdollCheck::DropTest high = RagdollCheck::dropTest(graph, {5.0, 10.0});
    // Nothing rests before it lands: a fall of 5 m takes a second.
    const double fallTime = std::sqrt(2.0 * 5.0 / 9.81);
    EXPECT_GT(low.secondsToRest, 0.0);
    EXPECT_LT(low.secondsToRest, fallTime);
    EXPECT_GT(high.secondsToRest, fallTime);
    // The ground moved to 40 units below the ball: the ball far above it falls as far.
    graph.node("/Ground")->translation.y = -40.0;
    const RagdollCheck::DropTest moved = RagdollCheck::dropTest(graph, {5.0, 10.0});
    EXPECT_NEAR(moved.secondsToRest, high.secondsToRest, 0.2);
}

TEST(RagdollDropTest, ThePhysicsFindsTheLowestPointAndLiftsAllButTheGround)
{
    // A capsule of radius 0.1 and half height 0.3 along x, turned 45 degrees
    // about z, its centre 2 units up, at half a metre a unit.
    ZentoSceneGraph graph;
    makeSolver(graph, 0.5);
    graph.createGround();
    auto capsule = std::make_shared<RigidBodyNode>(NodePath("/Capsule"));
    capsule->translation = V3d(1, 2, 0);
    capsule->rotation = Imath::Eulerd(0.0, 0.0, M_PI / 4.0);
    set(*capsule, "type", int(RigidBodyAttributes::Capsule));
    set(*capsule, "dimension", V3d(0.1, 0.3, 0.0));
    graph.addNode(capsule, "");
    graph.startSimulation();
    Zento::ZentoPhysx& physics = graph.solver()->physics;
    const double lowest = 2.0 - 0.3 * std::sqrt(0.5) - 0.1;
    ASSERT_TRUE(physics.lowestPoint(Imath::V3f(0, 1, 0)));
    EXPECT_NEAR(*physics.lowestPoint(Imath::V3f(0, 1, 0)), lowest, 1e-5) << "the ground is no body to lift";
    EXPECT_NEAR(*physics.lowestPoint(Imath::V3f(0, -1, 0)), -(2.0 + 0.3 * std::sqrt(0.5) + 0.1), 1e-5);
    physics.moveBodies(Imath::V3f(0, 3, 0));
    EXPECT_NEAR(*physics.lowestPoint(Imath::V3f(0, 1, 0)), lowest + 3.0, 1e-5);
    physics.stepPhysics();
    Imath::V3f t;
    Imath::Quatf q;
    graph.solver()->bodyOf(*capsule)->pose(t, q);
    EXPECT_NEAR(t.y, 5.0, 0.05) << "the body falls from where it was lifted to";
    for (const auto& entry : physics.rigidBodies())
        if (entry.second.state == RigidBodyAttributes::Static) {
            entry.second.pose(t, q);
            EXPECT_EQ(t, Imath::V3f(0, 0, 0)) << "the ground stays";
        }
    graph.stopSimulation();
}

TEST(RagdollDropTest, FiguresBecomeFindingsPastTheirThresholds)
{
    RagdollCheck::DropTest test;
    test.secondsToRest = 1.5;
    test.worstLimitDegrees = 14.9;
    test.worstLimitConstraint = "/Skeleton/Hips/Spine/Spine_RBC";
    test.worstSeparation = 0.019;
    test.worstSeparationConstraint = "/Skeleton/Hips/Leg/Leg_RBC";
    EXPECT_TRUE(RagdollCheck::findings(test).empty());

    test.finite = false;
    test.secondsToRest = -1.0;
    test.worstLimitDegrees = 15.1;
    test.worstSeparation = 0.021;
    const std::vector<Finding> found = RagdollCheck::findings(test);
    ASSERT_EQ(found.size(), 4u) << describe(found);
    EXPECT_EQ(found[0].kind, RagdollCheck::kDropNonFinite);
    EXPECT_EQ(found[0].severity, Severity::Error);
    EXPECT_EQ(found[1].kind, RagdollCheck::kDropUnsettled);
    EXPECT_EQ(found[1].severity, Severity::Warning);
    EXPECT_EQ(found[2].kind, RagdollCheck::kDropLimit);
    EXPECT_EQ(found[2].nodes, std::vector<std::string>{test.worstLimitConstraint});
    EXPECT_NE(found[2].message.find("Spine_RBC went 15.1 degrees"), std::string::npos) << found[2].message;
    EXPECT_EQ(found[3].kind, RagdollCheck::kDropSeparation);
    EXPECT_EQ(found[3].nodes, std::vector<std::string>{test.worstSeparationConstraint});
    EXPECT_NE(found[3].message.find("2.1 cm"), std::string::npos) << found[3].message;
    EXPECT_TRUE(RagdollCheck::hasError(found));
    EXPECT_FALSE(RagdollCheck::hasError({found[1], found[2], found[3]}));
}

TEST(RagdollDropTest, OverlappingBodiesThatCollideShowInTheFigures)
{
    // The good ragdoll with bodies twice as thick, colliding with each other.
    ZentoSceneGraph graph;
    const RagdollFixture::Ragdoll ragdoll = addGoodRagdoll(graph);
    for (const auto& body : ragdoll.bodies) {
        set(*body, "aggregate", -1);
        set(*body, "dimension", body->attributes.typedEntry<V3d>("dimension")->get() * 2.0);
    }
    const std::vector<Finding> findings = RagdollCheck::check(graph);
    EXPECT_FALSE(RagdollCheck::hasError(findings)) << describe(findings);
    const std::vector<Finding> overlaps = ofKind(findings, RagdollCheck::kBindPoseOverlap);
    EXPECT_EQ(overlaps.size(), findings.size()) << describe(findings);
    const auto both = [&](const char* a, const char* b) {
        return std::any_of(overlaps.begin(), overlaps.end(), [&](const Finding& finding) {
            return NodePath(finding.nodes[0]).name() == a && NodePath(finding.nodes[1]).name() == b;
        });
    };
    EXPECT_TRUE(both("LeftUpLeg_RB", "RightUpLeg_RB")) << describe(overlaps);
    EXPECT_TRUE(both("LeftShoulder_RB", "RightShoulder_RB")) << describe(overlaps);

    // They push each other apart against their joints, which never rest.
    const RagdollCheck::DropTest test = RagdollCheck::dropTest(graph, {1.0, 5.0});
    EXPECT_TRUE(test.finite);
    const std::vector<Finding> drop = RagdollCheck::findings(test);
    const bool shows =
        !ofKind(drop, RagdollCheck::kDropUnsettled).empty() || !ofKind(drop, RagdollCheck::kDropSeparation).empty();
    EXPECT_TRUE(shows) << describe(drop);
}
