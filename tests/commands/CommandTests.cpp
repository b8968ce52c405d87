#include "ChangeAttributesCommand.h"
#include "ChangeStateCommand.h"
#include "CommandStack.h"
#include "CreateNodesCommand.h"
#include "DeleteNodesCommand.h"
#include "JointNode.h"
#include "MultiCommand.h"
#include "MultiMoveCommand.h"
#include "MultiRotateCommand.h"
#include "MultiScaleCommand.h"
#include "RigidBodyAttributes.h"
#include "SceneState.h"
#include "SelectionCommand.h"
#include "TransformCommand.h"
#include "ZentoSceneGraph.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>

using namespace ZentoCore;
using Zento::RigidBodyAttributes;

namespace {

// /Skeleton with a spine, two arms and a leg, plus a shape-sized body under the spine.
void buildSkeleton(ZentoSceneGraph& graph)
{
    addJoint(graph, "/Skeleton", Imath::V3d(0, 1, 0));
    addJoint(graph, "/Skeleton/Spine", Imath::V3d(0, 0.5, 0))->rotation = Imath::Eulerd(0.1, 0.2, 0.3, Imath::Eulerd::ZXY);
    addJoint(graph, "/Skeleton/Spine/Left Arm", Imath::V3d(0.4, 0.3, 0));
    addJoint(graph, "/Skeleton/Spine/Left Arm/mixamorig:Hand", Imath::V3d(0.3, 0, 0));
    addJoint(graph, "/Skeleton/Spine/Right Arm", Imath::V3d(-0.4, 0.3, 0))->scale = Imath::V3d(1, 2, 1);
    addJoint(graph, "/Skeleton/Leg", Imath::V3d(0.2, -0.5, 0.1));
    auto body = std::make_shared<TransformNode>(NodePath("/Skeleton/Spine/Spine_RB"));
    MetadataImpl<int> capsule(RigidBodyAttributes::Capsule);
    body->attributes.addEntry("type", &capsule);
    MetadataImpl<int> axis(RigidBodyAttributes::AxisX);
    body->attributes.addEntry("axis", &axis);
    MetadataImpl<Imath::V3d> dimension(Imath::V3d(0.1, 0.3, 0.1));
    body->attributes.addEntry("dimension", &dimension);
    graph.addNode(body, "/Skeleton/Spine");
    graph.updateMatrix("/Skeleton");
}

// A command that logs its calls, for the order of groups and the history's bookkeeping.
class RecordingCommand : public BaseCommand {
public:
    RecordingCommand(std::vector<std::string>& log, std::string label)
        : BaseCommand(nullptr), mLog(log), mLabel(std::move(label)) {}
    void execute() override { mLog.push_back("execute " + mLabel); }
    void undo() override { mLog.push_back("undo " + mLabel); }
    void redo() override { mLog.push_back("redo " + mLabel); }
    const std::string& name() const override
    {
        static const std::string name = "Recording";
        return name;
    }

private:
    std::vector<std::string>& mLog;
    std::string mLabel;
};

} // namespace

TEST(CommandStack, PushUndoRedoAndTruncation)
{
    std::vector<std::string> log;
    CommandStack stack;
    stack.undo();
    stack.redo();
    EXPECT_TRUE(log.empty()) << "nothing to undo or redo";

    std::weak_ptr<BaseCommand> second;
    {
        auto a = std::make_shared<RecordingCommand>(log, "a");
        auto b = std::make_shared<RecordingCommand>(log, "b");
        second = b;
        stack.push(a);
        stack.push(b);
    }
    stack.undo();
    stack.undo();
    stack.undo();
    EXPECT_EQ(stack.currentIndex, -1);
    stack.redo();
    EXPECT_EQ(log, (std::vector<std::string>{"execute a", "execute b", "undo b", "undo a", "redo a"}));
    EXPECT_FALSE(second.expired());

    stack.push(std::make_shared<RecordingCommand>(log, "c"));
    EXPECT_TRUE(second.expired()) << "the undone command is released";
    EXPECT_EQ(stack.commands.size(), 2u);
    stack.redo();
    EXPECT_EQ(log.back(), "execute c") << "redo at the end does nothing";
}

TEST(MultiCommand, WalksChildrenInInsertionOrderEvenForUndo)
{
    std::vector<std::string> log;
    auto group = std::make_shared<MultiCommand>(nullptr);
    group->addCommand(std::make_shared<RecordingCommand>(log, "1"));
    group->addCommand(std::make_shared<RecordingCommand>(log, "2"));
    group->execute();
    group->undo();
    group->redo();
    EXPECT_EQ(log, (std::vector<std::string>{"execute 1", "execute 2", "undo 1", "undo 2", "redo 1", "redo 2"}));
    EXPECT_EQ(group->name(), "Multi Command");
}

TEST(Commands, CommandsNamingAMissingNodeDoNothing)
{
    ZentoSceneGraph graph;
    buildSkeleton(graph);
    const SceneState before = capture(graph);
    MapMetadata attributes;
    MetadataImpl<int> id(7);
    attributes.addEntry("jointId", &id);
    std::vector<std::shared_ptr<BaseCommand>> commands = {
        std::make_shared<TransformCommand>(&graph, "/Gone", Imath::V3d(1, 1, 1), Imath::Eulerd(), Imath::V3d(1, 1, 1), Imath::V3d()),
        std::make_shared<ChangeStateCommand>(&graph, "/Gone", false, false),
        std::make_shared<ChangeAttributesCommand>(&graph, "/Gone", attributes),
        std::make_shared<DeleteNodesCommand>(&graph, std::vector<std::string>{"/Gone"}),
        std::make_shared<MultiMoveCommand>(&graph, std::vector<std::string>{"/Gone"}, std::vector<Imath::M44d>{Imath::M44d()}, Imath::V3d(1, 0, 0)),
        std::make_shared<MultiRotateCommand>(&graph, std::vector<std::string>{"/Gone"}, std::vector<Imath::M44d>{Imath::M44d()}, Imath::Quatd()),
        std::make_shared<MultiScaleCommand>(&graph, std::vector<std::string>{"/Gone"}, std::vector<Imath::M44d>{Imath::M44d()},
                                            std::vector<Imath::V3d>{Imath::V3d(1, 1, 1)}, Imath::V3d(2, 2, 2)),
    };
    CommandStack stack;
    for (const auto& command : commands)
        stack.push(command);
    expectSameScene(before, capture(graph), "after");
    for (size_t i = 0; i < commands.size(); ++i)
        stack.undo();
    expectSameScene(before, capture(graph), "undone");
    EXPECT_EQ(stack.commands.size(), commands.size()) << "the history advances as usual";
}

TEST(Commands, DeleteKeepsTheObjectsAndListsADescendantTwiceWhenSelectedFirst)
{
    ZentoSceneGraph graph;
    buildSkeleton(graph);
    const SceneState before = capture(graph);
    const auto arm = graph.node("/Skeleton/Spine/Left Arm");
    const std::string hand = "/Skeleton/Spine/Left Arm/mixamorig:Hand";

    DeleteNodesCommand parentFirst(&graph, {arm->path.string(), hand});
    EXPECT_EQ(parentFirst.names, (std::vector<std::string>{arm->path.string(), hand}));
    DeleteNodesCommand childFirst(&graph, {hand, arm->path.string()});
    EXPECT_EQ(childFirst.names, (std::vector<std::string>{arm->path.string(), hand, hand}));

    for (DeleteNodesCommand* command : {&parentFirst, &childFirst}) {
        command->execute();
        EXPECT_EQ(graph.node(hand), nullptr);
        EXPECT_EQ(arm->parent, nullptr) << "links are cut while removed";
        EXPECT_EQ(command->removed.at(arm->path.string()).parentName, "/Skeleton/Spine");
        command->undo();
        EXPECT_TRUE(command->removed.empty());
        expectSameScene(before, capture(graph), "undo");
        EXPECT_EQ(graph.node("/Skeleton/Spine")->children.size(), 3u) << "no child listed twice";
    }
}

TEST(Commands, AttributesRedoMergesAndUndoReplacesTheMap)
{
    ZentoSceneGraph graph;
    buildSkeleton(graph);
    const auto hand = graph.node("/Skeleton/Spine/Left Arm/mixamorig:Hand");
    const auto idObject = hand->attributes.getEntry("jointId");
    MapMetadata changes;
    MetadataImpl<int> id(12);
    changes.addEntry("jointId", &id);
    MetadataImpl<double> unknown(1.0);
    changes.addEntry("notAnAttribute", &unknown);
    CommandStack stack;
    stack.push(std::make_shared<ChangeAttributesCommand>(&graph, hand->path.string(), changes));
    EXPECT_EQ(hand->attributes.typedEntry<int>("jointId")->value(), 12);
    EXPECT_EQ(hand->attributes.getEntry("jointId"), idObject) << "the value object keeps its identity";
    EXPECT_EQ(hand->attributes.getEntry("notAnAttribute"), nullptr) << "no key is added";

    // A change made outside the command is undone too: the whole map comes back.
    MetadataImpl<double> extra(5.0);
    hand->attributes.addEntry("extra", &extra);
    stack.undo();
    EXPECT_EQ(hand->attributes.typedEntry<int>("jointId")->value(), -1);
    EXPECT_EQ(hand->attributes.getEntry("extra"), nullptr);
}

TEST(Commands, StateChangesReachTheDelegate)
{
    ZentoSceneGraph graph;
    buildSkeleton(graph);
    CommandStack stack;
    stack.push(std::make_shared<ChangeStateCommand>(&graph, "/Skeleton/Spine", false, false));
    const auto spine = graph.node("/Skeleton/Spine");
    EXPECT_FALSE(spine->visible);
    EXPECT_FALSE(spine->active);
    EXPECT_FALSE(graph.delegate().GetVisible(NodePath("/Skeleton/Spine/Left Arm"))) << "the subtree follows";
    stack.undo();
    EXPECT_TRUE(spine->visible && spine->active);
    EXPECT_TRUE(graph.delegate().GetVisible(NodePath("/Skeleton/Spine/Left Arm")));
}

TEST(Commands, MoveStartsFromTheStoredLocalAndThePresentParent)
{
    ZentoSceneGraph graph;
    buildSkeleton(graph);
    const auto arm = graph.node("/Skeleton/Spine/Left Arm");
    const Imath::V3d startWorld = arm->worldMatrix().translation();
    auto move = std::make_shared<MultiMoveCommand>(&graph, std::vector<std::string>{arm->path.string()},
                                                   std::vector<Imath::M44d>{arm->localMatrix()}, Imath::V3d(0, 0, 2));
    move->execute();
    EXPECT_TRUE(arm->worldMatrix().translation().equalWithAbsError(startWorld + Imath::V3d(0, 0, 2), 1e-12));
    // The parent moves afterwards: redo goes from the stored local matrix and the parent as it is now.
    graph.node("/Skeleton")->translation += Imath::V3d(5, 0, 0);
    move->redo();
    EXPECT_TRUE(arm->worldMatrix().translation().equalWithAbsError(startWorld + Imath::V3d(5, 0, 2), 1e-12));
    move->undo();
    EXPECT_TRUE(arm->worldMatrix().translation().equalWithAbsError(startWorld + Imath::V3d(5, 0, 0), 1e-12));

    // A node named twice moves once, and comes back once.
    auto twice = std::make_shared<MultiMoveCommand>(&graph, std::vector<std::string>{arm->path.string(), arm->path.string()},
                                                    std::vector<Imath::M44d>(2, arm->localMatrix()), Imath::V3d(1, 0, 0));
    twice->execute();
    twice->undo();
    EXPECT_TRUE(arm->worldMatrix().translation().equalWithAbsError(startWorld + Imath::V3d(5, 0, 0), 1e-12));
}

TEST(Commands, RotateTurnsInWorldSpaceAndUndoRestoresTheOrder)
{
    ZentoSceneGraph graph;
    buildSkeleton(graph);
    const auto spine = graph.node("/Skeleton/Spine");
    const Imath::Eulerd start = spine->rotation;
    Imath::Quatd quarter;
    quarter.setAxisAngle(Imath::V3d(0, 1, 0), M_PI / 2);
    const Imath::M44d startWorld = spine->worldMatrix();
    auto rotate = std::make_shared<MultiRotateCommand>(&graph, std::vector<std::string>{spine->path.string()},
                                                       std::vector<Imath::M44d>{spine->localMatrix()}, quarter);
    rotate->execute();
    EXPECT_EQ(spine->rotation.order(), Imath::Eulerd::ZXY) << "written in the node's own order";
    // The world orientation is the old one followed by the world turn; the position stays.
    const Imath::M44d wanted = Imath::M44d(startWorld[0][0], startWorld[0][1], startWorld[0][2], 0, startWorld[1][0], startWorld[1][1],
                         startWorld[1][2], 0, startWorld[2][0], startWorld[2][1], startWorld[2][2], 0, 0, 0, 0, 1)
        * quarter.toMatrix44();
    const Imath::M44d world = spine->worldMatrix();
    for (int row = 0; row < 3; ++row)
        for (int column = 0; column < 3; ++column)
            EXPECT_NEAR(world[row][column], wanted[row][column], 1e-9) << row << column;
    EXPECT_TRUE(world.translation().equalWithAbsError(startWorld.translation(), 1e-12));
    rotate->undo();
    EXPECT_TRUE(spine->rotation.toMatrix44().equalWithAbsError(start.toMatrix44(), 1e-12));
    EXPECT_EQ(spine->rotation.order(), Imath::Eulerd::ZXY);
}

TEST(Commands, ScaleFollowsTheShapeRuleOrTheTransform)
{
    ZentoSceneGraph graph;
    buildSkeleton(graph);
    const auto body = graph.node("/Skeleton/Spine/Spine_RB");
    const auto dimension = [&] { return body->attributes.typedEntry<Imath::V3d>("dimension")->value(); };
    const auto scaleBody = [&](int type, int axis) {
        body->attributes.typedEntry<int>("type")->set(type);
        body->attributes.typedEntry<int>("axis")->set(axis);
        auto command = std::make_shared<MultiScaleCommand>(
            &graph, std::vector<std::string>{body->path.string()}, std::vector<Imath::M44d>{body->localMatrix()},
            std::vector<Imath::V3d>{Imath::V3d(1, 1, 1)}, Imath::V3d(1, 2, 3));
        command->execute();
        const Imath::V3d result = dimension();
        command->undo();
        EXPECT_EQ(dimension(), Imath::V3d(1, 1, 1));
        return result;
    };
    const int capsule = RigidBodyAttributes::Capsule;
    EXPECT_EQ(scaleBody(capsule, RigidBodyAttributes::AxisZ), Imath::V3d(1, 3, 2)) << "a capsule on z: y by 3, z by 2";
    EXPECT_EQ(scaleBody(capsule, RigidBodyAttributes::AxisX), Imath::V3d(2, 1, 3));
    EXPECT_EQ(scaleBody(capsule, RigidBodyAttributes::kAxisCount), Imath::V3d(1, 1, 1)) << "an unknown axis leaves it";
    EXPECT_EQ(scaleBody(RigidBodyAttributes::Box, RigidBodyAttributes::AxisX), Imath::V3d(1, 2, 3))
        << "other types use the row of axis 1";
    EXPECT_EQ(body->scale, Imath::V3d(1, 1, 1));

    // A plane goes through the transform.
    body->attributes.typedEntry<int>("type")->set(RigidBodyAttributes::Plane);
    body->scale = Imath::V3d(2, 2, 2);
    auto plane = std::make_shared<MultiScaleCommand>(&graph, std::vector<std::string>{body->path.string()},
                                                     std::vector<Imath::M44d>{body->localMatrix()},
                                                     std::vector<Imath::V3d>{dimension()}, Imath::V3d(1, 2, 3));
    plane->execute();
    EXPECT_TRUE(body->scale.equalWithAbsError(Imath::V3d(2, 4, 6), 1e-12));
    plane->undo();
    EXPECT_TRUE(body->scale.equalWithAbsError(Imath::V3d(2, 2, 2), 1e-12));
}

// A few hundred random commands on a small skeleton, then undo to the start
// and redo to the end: each end must come back field for field.
TEST(CommandsProperty, RandomHistoryUndoesAndRedoesExactly)
{
    ZentoSceneGraph graph;
    buildSkeleton(graph);
    CommandStack stack;
    std::mt19937 random(20261123);
    const auto uniform = [&](double low, double high) { return std::uniform_real_distribution<double>(low, high)(random); };
    const auto pick = [&](size_t count) { return static_cast<size_t>(random() % count); };
    const Imath::Eulerd::Order orders[] = {Imath::Eulerd::XYZ, Imath::Eulerd::XZY, Imath::Eulerd::YZX,
                                           Imath::Eulerd::YXZ, Imath::Eulerd::ZXY, Imath::Eulerd::ZYX};
    const auto somePaths = [&](size_t most) {
        std::vector<std::string> all = graph.nodePaths();
        std::vector<std::string> chosen;
        const size_t count = 1 + pick(most);
        for (size_t i = 0; i < count; ++i)
            chosen.push_back(all[pick(all.size())]);
        return chosen;
    };
    const SceneState initial = capture(graph);
    int created = 0;
    for (int step = 0; step < 300; ++step) {
        if (step % 37 == 36) { // an undo or two, so that later pushes truncate the history
            stack.undo();
            stack.undo();
            continue;
        }
        std::shared_ptr<BaseCommand> command;
        const std::vector<std::string> names = somePaths(3);
        std::vector<Imath::M44d> matrices;
        std::vector<Imath::V3d> dimensions;
        for (const std::string& name : names) {
            matrices.push_back(graph.node(name)->localMatrix());
            const auto dimension = graph.node(name)->attributes.typedEntry<Imath::V3d>("dimension");
            dimensions.push_back(dimension ? dimension->value() : Imath::V3d(1, 1, 1));
        }
        switch (pick(9)) {
        case 0:
            command = std::make_shared<TransformCommand>(
                &graph, names[0], Imath::V3d(uniform(-2, 2), uniform(-2, 2), uniform(-2, 2)),
                Imath::Eulerd(uniform(-3, 3), uniform(-3, 3), uniform(-3, 3), orders[pick(6)]),
                Imath::V3d(uniform(0.5, 2), uniform(0.5, 2), uniform(0.5, 2)), Imath::V3d(uniform(-1, 1), 0, 0));
            break;
        case 1:
            command = std::make_shared<SelectionCommand>(&graph, names);
            break;
        case 2:
            command = std::make_shared<ChangeStateCommand>(&graph, names[0], random() % 2 == 0, random() % 2 == 0);
            break;
        case 3: {
            MapMetadata changes;
            MetadataImpl<int> id(static_cast<int>(pick(100)));
            changes.addEntry("jointId", &id);
            MetadataImpl<Imath::V3d> dimension(Imath::V3d(uniform(0.1, 1), uniform(0.1, 1), uniform(0.1, 1)));
            changes.addEntry("dimension", &dimension);
            command = std::make_shared<ChangeAttributesCommand>(&graph, names[0], changes);
            break;
        }
        case 4: { // below a node, or now and then at the top
            const NodePath parent = pick(4) == 0 ? NodePath::absoluteRoot() : NodePath(names[0]);
            auto joint = std::make_shared<JointNode>(parent.appendChild("New" + std::to_string(created++)));
            joint->translation = Imath::V3d(uniform(-1, 1), uniform(-1, 1), uniform(-1, 1));
            command = std::make_shared<CreateNodesCommand>(&graph, std::vector<std::shared_ptr<BaseNode>>{joint});
            break;
        }
        case 5: // the root stays, so that there is always something to act on
            if (std::find(names.begin(), names.end(), "/Skeleton") == names.end())
                command = std::make_shared<DeleteNodesCommand>(&graph, names);
            break;
        case 6:
            command = std::make_shared<MultiMoveCommand>(&graph, names, matrices,
                                                         Imath::V3d(uniform(-1, 1), uniform(-1, 1), uniform(-1, 1)));
            break;
        case 7: {
            Imath::Quatd turn;
            turn.setAxisAngle(Imath::V3d(uniform(-1, 1), uniform(-1, 1), uniform(0.1, 1)).normalized(), uniform(-3, 3));
            command = std::make_shared<MultiRotateCommand>(&graph, names, matrices, turn);
            break;
        }
        default:
            command = std::make_shared<MultiScaleCommand>(&graph, names, matrices, dimensions,
                                                          Imath::V3d(uniform(0.5, 2), uniform(0.5, 2), uniform(0.5, 2)));
            break;
        }
        if (command)
            stack.push(command);
    }
    ASSERT_GT(stack.commands.size(), 100u);
    const SceneState final = capture(graph);
    while (stack.currentIndex >= 0)
        stack.undo();
    expectSameScene(initial, capture(graph), "undone to the start");
    while (stack.currentIndex + 1 < static_cast<int>(stack.commands.size()))
        stack.redo();
    expectSameScene(final, capture(graph), "redone to the end");
}
