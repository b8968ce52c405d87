#include "Authoring.h"
#include "ConstraintNode.h"
#include "CreateNodesCommand.h"
#include "MultiCommand.h"
#include "RigidBodyAttributes.h"
#include "RigidBodyConstraintAttributes.h"
#include "RigidBodyNode.h"
#include "SceneState.h"

#include <gtest/gtest.h>

#include <cmath>

using Imath::V3d;
using Zento::RigidBodyAttributes;

namespace {

// A joint at the origin with children at the given local translations.
Authoring::CapsuleFit fitTo(const std::vector<V3d>& children)
{
    ZentoSceneGraph graph;
    addJoint(graph, "/J", V3d(0, 0, 0));
    for (size_t i = 0; i < children.size(); ++i)
        addJoint(graph, "/J/c" + std::to_string(i), children[i]);
    return Authoring::fitCapsule(*graph.node("/J"));
}

// /Skeleton/Hips/Spine/Chest and /Skeleton/Hips/Leg; Hips is the root joint,
// with no node above it, as an import makes it.
void buildSkeleton(ZentoSceneGraph& graph)
{
    addJoint(graph, "/Skeleton/Hips", V3d(0, 1, 0));
    addJoint(graph, "/Skeleton/Hips/Spine", V3d(0, 0.3, 0));
    addJoint(graph, "/Skeleton/Hips/Spine/Chest", V3d(0, 0.3, 0.1));
    addJoint(graph, "/Skeleton/Hips/Leg", V3d(0.1, -0.5, 0));
}

void run(const std::shared_ptr<BaseCommand>& command)
{
    if (command)
        command->execute();
}

} // namespace

TEST(Authoring, CapsulesFitTheBoxOfTheJointAndItsChildren)
{
    const auto expectFit = [](const std::vector<V3d>& children, const V3d& centre, double radius, double half) {
        const Authoring::CapsuleFit fit = fitTo(children);
        EXPECT_TRUE(fit.centre.equalWithAbsError(centre, 1e-12)) << fit.centre;
        EXPECT_NEAR(fit.radius, radius, 1e-12);
        EXPECT_NEAR(fit.halfHeight, half, 1e-12);
    };
    expectFit({}, V3d(0, 0, 0), 0.0, 0.0);
    expectFit({V3d(10, 0, 0)}, V3d(5, 0, 0), 1.5, 3.5);
    expectFit({V3d(4, 0, 0), V3d(-4, 0, 0)}, V3d(0, 0, 0), 1.2, 2.8);
    // The box starts at the joint: a child at -3 spans 3, not 0.
    expectFit({V3d(-3, 0, 0)}, V3d(-1.5, 0, 0), 0.45, 1.05);
    // A tie keeps the earlier axis; the longest side wins otherwise.
    expectFit({V3d(2, 2, 0)}, V3d(1, 1, 0), 0.3, 0.7);
    expectFit({V3d(0, 1, 6)}, V3d(0, 0.5, 3), 0.9, 2.1);
}

TEST(Authoring, ConstraintsLayTheirTwistAxisAlongTheBone)
{
    for (const V3d& bone : {V3d(0, 2, 0), V3d(1, 1, -1), V3d(-3, 0, 0), V3d(0, 0, 0.5)}) {
        V3d axis;
        Authoring::alongBone(bone).toMatrix44().multDirMatrix(V3d(1, 0, 0), axis);
        EXPECT_TRUE(axis.equalWithAbsError(bone.normalized(), 1e-12)) << bone << " gave " << axis;
    }
    EXPECT_EQ(Authoring::alongBone(V3d(0, 0, 0)).toMatrix44(), Imath::M44d()) << "no bone, no turn";
}

TEST(Authoring, BodiesAndConstraintsGoOnJointsOnceEach)
{
    ZentoSceneGraph graph;
    buildSkeleton(graph);
    std::vector<std::string> bodies;
    EXPECT_EQ(Authoring::createRigidBodies(graph, {}, bodies), nullptr) << "nothing selected: nothing at all";
    const auto create = Authoring::createRigidBodies(
        graph, {"/Skeleton/Hips", "/Skeleton/Hips/Spine", "/Skeleton/Hips/Leg", "/Nowhere"}, bodies);
    ASSERT_NE(create, nullptr);
    EXPECT_EQ(bodies, (std::vector<std::string>{"/Skeleton/Hips/Hips_RB", "/Skeleton/Hips/Spine/Spine_RB",
                                                "/Skeleton/Hips/Leg/Leg_RB"}));
    EXPECT_EQ(graph.node(bodies[0]), nullptr) << "nothing changes before the command runs";
    create->execute();
    const auto spine = graph.node("/Skeleton/Hips/Spine/Spine_RB");
    ASSERT_NE(spine, nullptr);
    EXPECT_EQ(spine->color, RigidBodyNode::kColor);
    EXPECT_EQ(spine->attributes.typedEntry<int>("type")->get(), RigidBodyAttributes::Capsule);
    EXPECT_EQ(spine->attributes.typedEntry<int>("state")->get(), RigidBodyAttributes::Dynamic);
    EXPECT_EQ(spine->attributes.typedEntry<int>("aggregate")->get(), 0);

    // A second run finds the bodies there: an empty command, and no new paths.
    std::vector<std::string> again;
    const auto second = Authoring::createRigidBodies(graph, {"/Skeleton/Hips/Spine"}, again);
    ASSERT_NE(second, nullptr);
    EXPECT_TRUE(second->nodes.empty());
    EXPECT_TRUE(again.empty());

    // Hips is the root: no joint above it, no constraint.
    std::vector<std::string> constraints;
    run(Authoring::createConstraints(graph, bodies, constraints));
    EXPECT_EQ(constraints, (std::vector<std::string>{"/Skeleton/Hips/Spine/Spine_RBC", "/Skeleton/Hips/Leg/Leg_RBC"}));
    const auto constraint = graph.node("/Skeleton/Hips/Spine/Spine_RBC");
    ASSERT_NE(constraint, nullptr);
    EXPECT_EQ(constraint->attributes.typedEntry<int>("constraintType")->get(),
              Zento::RigidBodyConstraintAttributes::D6);
    EXPECT_EQ(ConstraintNode::childBody(*constraint), spine.get());
    EXPECT_EQ(ConstraintNode::parentBody(*constraint, graph.nodes), graph.node("/Skeleton/Hips/Hips_RB").get());

    std::vector<std::string> none;
    EXPECT_EQ(Authoring::createConstraints(graph, bodies, none), nullptr) << "a joint holds one constraint";
    EXPECT_EQ(Authoring::createConstraints(graph, {"/Skeleton/Hips"}, none), nullptr) << "a joint is no body";
}

TEST(Authoring, PropConstraintsTieTheSecondBodyToTheFirst)
{
    ZentoSceneGraph graph;
    buildSkeleton(graph);
    graph.createGround();
    std::vector<std::string> bodies;
    run(Authoring::createRigidBodies(graph, {"/Skeleton/Hips/Spine/Chest", "/Skeleton/Hips/Leg"}, bodies));
    std::vector<std::string> made;
    EXPECT_EQ(Authoring::createPropConstraint(graph, {bodies[0]}, made), nullptr) << "two bodies, no fewer";
    EXPECT_EQ(Authoring::createPropConstraint(graph, {bodies[0], "/Ground"}, made), nullptr) << "a ground has no joint";
    run(Authoring::createPropConstraint(graph, {bodies[1], bodies[0]}, made));
    ASSERT_EQ(made, std::vector<std::string>{"/Skeleton/Hips/Spine/Chest/Chest_RBC"});
    const auto prop = graph.node(made[0]);
    EXPECT_EQ(prop->attributes.typedEntry<std::string>("parentRigidBody")->get(), bodies[1]);
    EXPECT_EQ(ConstraintNode::parentBody(*prop, graph.nodes), graph.node(bodies[1]).get());
    EXPECT_EQ(Authoring::createPropConstraint(graph, {bodies[1], bodies[0]}, made), nullptr) << "one per joint";

    // A prop naming a node that is gone falls back to the nearest body above.
    graph.removeNodes(std::vector<std::string>{bodies[1]});
    EXPECT_EQ(ConstraintNode::parentBody(*prop, graph.nodes), nullptr) << "Spine and Hips have no body";
}

TEST(Authoring, PastesCarryTheirShareOfTheClipboardToNodesOfItsType)
{
    ZentoSceneGraph graph;
    buildSkeleton(graph);
    std::vector<std::string> bodies;
    run(Authoring::createRigidBodies(graph, {"/Skeleton/Hips/Spine", "/Skeleton/Hips/Leg"}, bodies));
    std::vector<std::string> constraints;
    run(Authoring::createConstraints(graph, bodies, constraints));
    const auto source = graph.node(bodies[0]);
    source->attributes.typedEntry<double>("mass")->set(42.0);
    source->attributes.typedEntry<Imath::V3d>("dimension")->set(V3d(9, 9, 9));
    const V3d legDimension = graph.node(bodies[1])->attributes.typedEntry<V3d>("dimension")->get();

    Authoring::Clipboard clipboard;
    EXPECT_FALSE(Authoring::copyAttributes(graph, {}, clipboard));
    ASSERT_TRUE(Authoring::copyAttributes(graph, {bodies[0], bodies[1]}, clipboard));
    EXPECT_EQ(clipboard.typeId, RigidBodyNode::kTypeId);
    EXPECT_EQ(Authoring::pasteAttributes(graph, constraints, clipboard, Authoring::PasteFilter::All), nullptr)
        << "bodies' attributes do not go on constraints";

    const auto paste = Authoring::pasteAttributes(graph, {bodies[1], "/Skeleton/Hips", constraints[0]}, clipboard,
                                                  Authoring::PasteFilter::Dynamics);
    ASSERT_NE(paste, nullptr);
    EXPECT_EQ(paste->commands.size(), 1u);
    paste->execute();
    const auto leg = graph.node(bodies[1]);
    EXPECT_EQ(leg->attributes.typedEntry<double>("mass")->get(), 42.0);
    EXPECT_EQ(leg->attributes.typedEntry<V3d>("dimension")->get(), legDimension) << "the shape stays";
    paste->undo();
    EXPECT_EQ(leg->attributes.typedEntry<double>("mass")->get(), 1.0);

    // Drives between constraints: only keys that name a drive travel.
    const auto first = graph.node(constraints[0]);
    first->attributes.typedEntry<double>("driveX_damping")->set(7.0);
    first->attributes.typedEntry<double>("breakForce")->set(5.0);
    ASSERT_TRUE(Authoring::copyAttributes(graph, {constraints[0]}, clipboard));
    run(Authoring::pasteAttributes(graph, {constraints[1]}, clipboard, Authoring::PasteFilter::Drives));
    const auto second = graph.node(constraints[1]);
    EXPECT_EQ(second->attributes.typedEntry<double>("driveX_damping")->get(), 7.0);
    EXPECT_NE(second->attributes.typedEntry<double>("breakForce")->get(), 5.0);
    EXPECT_TRUE(Authoring::pastes(Authoring::PasteFilter::Dynamics, "constraintType")) << "a capital T is no type";
    EXPECT_FALSE(Authoring::pastes(Authoring::PasteFilter::Dynamics, "axis"));
}

TEST(Authoring, HidingIsOneStepThatKeepsTheActiveFlag)
{
    ZentoSceneGraph graph;
    buildSkeleton(graph);
    EXPECT_EQ(Authoring::setVisible(graph, {}, false), nullptr);
    EXPECT_EQ(Authoring::setVisible(graph, {"/Gone"}, false), nullptr);
    graph.node("/Skeleton/Hips/Leg")->active = false;
    const auto hide = Authoring::setVisible(graph, {"/Skeleton/Hips/Spine", "/Skeleton/Hips/Leg"}, false);
    ASSERT_NE(hide, nullptr);
    hide->execute();
    EXPECT_FALSE(graph.node("/Skeleton/Hips/Spine")->visible);
    EXPECT_FALSE(graph.delegate().GetVisible(ZentoCore::NodePath("/Skeleton/Hips/Spine/Chest")));
    EXPECT_FALSE(graph.node("/Skeleton/Hips/Leg")->active);
    hide->undo();
    EXPECT_TRUE(graph.node("/Skeleton/Hips/Spine")->visible);
    EXPECT_TRUE(graph.delegate().GetVisible(ZentoCore::NodePath("/Skeleton/Hips/Spine/Chest")));
}
