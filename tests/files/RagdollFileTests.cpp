#include "ArrayMetadata.h"
#include "ConstraintNode.h"
#include "JointNode.h"
#include "MathUtils.h"
#include "RagdollFile.h"
#include "RigidBodyConstraintAttributes.h"
#include "RigidBodyNode.h"
#include "SceneFile.h"
#include "SceneState.h"
#include "TemporaryDirectory.h"
#include "TestValues.h"
#include "TypedArrayMetadata.h"
#include "ZentoSceneGraph.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <map>
#include <limits>

using namespace ZentoCore;
using Zento::RigidBodyConstraintAttributes;

namespace {

std::shared_ptr<BaseNode> addBody(ZentoSceneGraph& graph, const std::string& jointPath, const Imath::V3d& translation)
{
    const NodePath joint(jointPath);
    auto body = std::make_shared<RigidBodyNode>(joint.appendChild(joint.name() + "_RB"));
    body->translation = translation;
    body->rotation = Imath::Eulerd(0.3, 0.1, -0.2, Imath::Eulerd::XYZ);
    body->attributes.typedEntry<Imath::V3d>("dimension")->set(Imath::V3d(0.07, 0.2, 0.07));
    body->attributes.typedEntry<double>("mass")->set(3.25);
    graph.addNode(body, jointPath);
    return body;
}

std::shared_ptr<BaseNode> addConstraint(ZentoSceneGraph& graph, const std::string& jointPath)
{
    const NodePath joint(jointPath);
    auto constraint = std::make_shared<ConstraintNode>(joint.appendChild(joint.name() + "_RBC"));
    constraint->rotation = Imath::Eulerd(0.0, 0.5, 0.25, Imath::Eulerd::XYZ);
    constraint->attributes.typedEntry<int>("constraintType")->set(RigidBodyConstraintAttributes::D6);
    constraint->attributes.typedEntry<double>("driveSwing_stiffness")->set(120.5);
    constraint->attributes.typedEntry<bool>("driveTwist_enable")->set(true);
    graph.addNode(constraint, jointPath);
    return constraint;
}

// Hips -> Spine -> Chest (no body) -> Neck, and Hips -> Leg, with a body on
// every joint but Chest and a constraint on Spine, Neck and Leg; every joint
// name after the namespace given ("mixamorig:").
void buildRagdoll(ZentoSceneGraph& graph, const std::string& ns = "")
{
    const std::string hips = "/Skeleton/" + ns + "Hips";
    const std::string spine = hips + "/" + ns + "Spine";
    const std::string chest = spine + "/" + ns + "Chest";
    const std::string neck = chest + "/" + ns + "Neck";
    const std::string leg = hips + "/" + ns + "Leg";
    graph.createSolver();
    addJoint(graph, "/Skeleton", Imath::V3d(0, 0, 0));
    addJoint(graph, hips, Imath::V3d(0, 1, 0), Imath::Eulerd(0, 0.4, 0, Imath::Eulerd::ZXY));
    addJoint(graph, spine, Imath::V3d(0, 0.2, 0));
    addJoint(graph, chest, Imath::V3d(0, 0.2, 0));
    addJoint(graph, neck, Imath::V3d(0, 0.3, 0.05));
    addJoint(graph, leg, Imath::V3d(0.1, -0.1, 0), Imath::Eulerd(0.2, 0, 0, Imath::Eulerd::XYZ));
    for (const std::string& joint : {hips, spine, neck, leg})
        addBody(graph, joint, Imath::V3d(0.0, 0.1, 0.0));
    for (const std::string& joint : {spine, neck, leg})
        addConstraint(graph, joint);
    graph.createGround();
}

} // namespace

TEST(RagdollFile, BodiesAndConstraintsAreKeyedByJointNames)
{
    TemporaryDirectory dir;
    ZentoSceneGraph graph;
    buildRagdoll(graph);
    ASSERT_TRUE(RagdollFile::exportRagdoll(graph, dir.file("doll.zentoragdoll")));
    const MapMetadata top = readArchive(dir.file("doll.zentoragdoll"));
    const auto bodies = top.typedEntryAs<MapMetadata>("rigidBodies");
    const auto constraints = top.typedEntryAs<MapMetadata>("constraints");
    ASSERT_NE(bodies, nullptr);
    ASSERT_NE(constraints, nullptr);
    EXPECT_EQ(bodies->getKeys(), (std::vector<std::string>{"Hips", "Leg", "Neck", "Spine"})) << "no ground";
    // Neck's parent body is two joints up: Chest has none and does not appear.
    EXPECT_EQ(constraints->getKeys(), (std::vector<std::string>{"HipsToLeg", "HipsToSpine", "SpineToNeck"}));

    const auto neck = constraints->typedEntryAs<MapMetadata>("SpineToNeck");
    EXPECT_EQ(neck->typedEntry<std::string>("parent")->get(), "Spine");
    EXPECT_EQ(neck->typedEntry<std::string>("children")->get(), "Neck");
    const auto drives = neck->typedEntryAs<ArrayMetadata>("cDrive");
    ASSERT_NE(drives, nullptr);
    ASSERT_EQ(drives->get().size(), 6u);
    const auto swing = std::static_pointer_cast<MapMetadata>(drives->get()[3]);
    EXPECT_EQ(swing->typedEntry<double>("stiffness")->get(), 120.5);
    EXPECT_TRUE(std::static_pointer_cast<MapMetadata>(drives->get()[4])->typedEntry<bool>("enable")->get());

    // "matrix": the constraint in the parent body's space.
    const auto constraintNode = graph.node("/Skeleton/Hips/Spine/Chest/Neck/Neck_RBC");
    const auto spineBody = graph.node("/Skeleton/Hips/Spine/Spine_RB");
    EXPECT_TRUE(neck->typedEntry<Imath::M44d>("matrix")->get().equalWithAbsError(
        constraintNode->worldMatrix() * matrixInverse(spineBody->worldMatrix()), 1e-12));
}

TEST(RagdollFile, TheExtractedPoseIsCrossedAsTheRuntimeReadsIt)
{
    TemporaryDirectory dir;
    ZentoSceneGraph graph;
    addJoint(graph, "/Root", Imath::V3d(0, 0, 0));
    auto body = std::make_shared<RigidBodyNode>(NodePath("/Root/Root_RB"));
    body->translation = Imath::V3d(1, 2, 3);
    graph.addNode(body, "/Root");
    auto offset = std::make_shared<RigidBodyNode>(NodePath("/Root/Other/Other_RB"));
    addJoint(graph, "/Root/Other", Imath::V3d(0, 0, 0));
    offset->translation = Imath::V3d(5, 0, 0);
    graph.addNode(offset, "/Root/Other");
    ASSERT_TRUE(RagdollFile::exportRagdoll(graph, dir.file("doll.zentoragdoll")));

    const auto bodies = readArchive(dir.file("doll.zentoragdoll")).typedEntryAs<MapMetadata>("rigidBodies");
    const auto root = bodies->typedEntryAs<MapMetadata>("Root");
    ASSERT_NE(root, nullptr);
    EXPECT_EQ(root->typedEntry<Imath::V3d>("translation")->get(), Imath::V3d(1, 1, 1)) << "the scale";
    EXPECT_EQ(root->typedEntry<Imath::V3d>("scale")->get(), Imath::V3d(1, 2, 3)) << "the translation";
    EXPECT_EQ(root->typedEntry<Imath::M44d>("transform")->get(), body->worldMatrix());

    Imath::M44d back;
    back.setTranslation(Imath::V3d(-5, 0, 0));
    EXPECT_TRUE(bodies->typedEntryAs<MapMetadata>("Other")->typedEntry<Imath::M44d>("jointOffset")->get().equalWithAbsError(back, 1e-12));
}

TEST(RagdollFile, ExportThenImportOnTheSameSkeletonGivesEverythingBack)
{
    TemporaryDirectory dir;
    ZentoSceneGraph graph;
    buildRagdoll(graph);
    std::map<std::string, Imath::M44d> worlds;
    std::map<std::string, MapMetadata> attributes;
    for (int type : {RigidBodyNode::kTypeId, ConstraintNode::kTypeId}) {
        for (const std::string& path : pathsOfType(graph, type)) {
            worlds[path] = graph.node(path)->worldMatrix();
            attributes[path] = graph.node(path)->attributes;
        }
    }
    ASSERT_TRUE(RagdollFile::exportRagdoll(graph, dir.file("doll.zentoragdoll")));

    // Take the ragdoll off the skeleton, the ground aside.
    std::vector<std::string> ragdoll;
    for (const auto& entry : worlds)
        if (entry.first != "/Ground")
            ragdoll.push_back(entry.first);
    graph.removeNodes(ragdoll);
    ASSERT_EQ(pathsOfType(graph, ConstraintNode::kTypeId).size(), 0u);

    const std::vector<std::string> made = RagdollFile::loadRagdoll(graph, dir.file("doll.zentoragdoll"));
    EXPECT_EQ(made, (std::vector<std::string>{"/Skeleton/Hips/Hips_RB", "/Skeleton/Hips/Leg/Leg_RB",
                                              "/Skeleton/Hips/Spine/Chest/Neck/Neck_RB", "/Skeleton/Hips/Spine/Spine_RB",
                                              "/Skeleton/Hips/Leg/Leg_RBC", "/Skeleton/Hips/Spine/Spine_RBC",
                                              "/Skeleton/Hips/Spine/Chest/Neck/Neck_RBC"}))
        << "bodies first, each in key order";
    for (const std::string& path : made) {
        const auto node = graph.node(path);
        ASSERT_NE(node, nullptr) << path;
        EXPECT_TRUE(node->worldMatrix().equalWithAbsError(worlds[path], 1e-5)) << path;
        // Every attribute the editor shows comes back; values pass through
        // float on the way, so compare with float precision. (The pose keys
        // the record also writes are the export's, not the node's.)
        for (const std::string& key : node->attributeHints.typedEntryAs<TypedArrayMetadata<std::string>>("__list__")->get()) {
            const auto expected = attributes[path].getEntry(key);
            if (!expected)
                continue; // a group header
            const auto value = node->attributes.getEntry(key);
            ASSERT_NE(value, nullptr) << path << " " << key;
            EXPECT_TRUE(value->isEqual(expected.get(), 1e-5)) << path << " " << key << ": " << value->toString()
                                                              << " vs " << expected->toString();
        }
    }
    EXPECT_EQ(graph.node("/Skeleton/Hips/Spine/Spine_RB")->color, Imath::V4d(125 / 255.0, 203 / 255.0, 212 / 255.0, 1));
    EXPECT_TRUE(RagdollFile::loadRagdoll(graph, dir.file("doll.zentoragdoll")).empty()) << "a second import adds nothing";
}

TEST(RagdollFile, SubstringNamesPropsAndMissingJoints)
{
    TemporaryDirectory dir;
    {
        // Arm and Arm2/Hand: "/Skeleton/Arm" is a substring of "/Skeleton/Arm2/Hand", so no prop.
        ZentoSceneGraph source;
        addJoint(source, "/Skeleton", Imath::V3d(0, 0, 0));
        addJoint(source, "/Skeleton/Arm", Imath::V3d(1, 0, 0));
        addJoint(source, "/Skeleton/Arm2", Imath::V3d(0, 1, 0));
        addJoint(source, "/Skeleton/Arm2/Hand", Imath::V3d(0, 1, 0));
        addBody(source, "/Skeleton/Arm", Imath::V3d(0, 0, 0));
        addBody(source, "/Skeleton/Arm2/Hand", Imath::V3d(0, 0, 0));
        auto constraint = addConstraint(source, "/Skeleton/Arm2/Hand");
        // A prop constraint whose named parent body is gone walks up the tree instead: it finds no body and is left out.
        constraint->attributes.typedEntry<std::string>("parentRigidBody")->set("/Skeleton/Arm/Arm_RB");
        ASSERT_TRUE(RagdollFile::exportRagdoll(source, dir.file("arm.zentoragdoll")));
        EXPECT_EQ(readArchive(dir.file("arm.zentoragdoll")).typedEntryAs<MapMetadata>("constraints")->getKeys(),
                  std::vector<std::string>{"ArmToHand"});

        source.removeNodes(std::vector<std::string>{"/Skeleton/Arm/Arm_RB"});
        ASSERT_TRUE(RagdollFile::exportRagdoll(source, dir.file("gone.zentoragdoll")));
        EXPECT_TRUE(readArchive(dir.file("gone.zentoragdoll")).typedEntryAs<MapMetadata>("constraints")->empty());
    }
    ZentoSceneGraph target;
    addJoint(target, "/Skeleton", Imath::V3d(0, 0, 0));
    addJoint(target, "/Skeleton/Arm", Imath::V3d(1, 0, 0));
    addJoint(target, "/Skeleton/Arm2", Imath::V3d(0, 1, 0));
    addJoint(target, "/Skeleton/Arm2/Hand", Imath::V3d(0, 1, 0));
    const auto made = RagdollFile::loadRagdoll(target, dir.file("arm.zentoragdoll"));
    ASSERT_EQ(made.size(), 3u);
    const auto constraint = target.node("/Skeleton/Arm2/Hand/Hand_RBC");
    ASSERT_NE(constraint, nullptr);
    EXPECT_EQ(constraint->attributes.typedEntry<std::string>("parentRigidBody")->get(), "") << "found as a substring";

    // A skeleton without the Arm joint: its body is skipped and so is the constraint naming it.
    ZentoSceneGraph partial;
    addJoint(partial, "/Skeleton", Imath::V3d(0, 0, 0));
    addJoint(partial, "/Skeleton/Arm2", Imath::V3d(0, 1, 0));
    addJoint(partial, "/Skeleton/Arm2/Hand", Imath::V3d(0, 1, 0));
    RagdollFile::Unmatched unmatched;
    EXPECT_EQ(RagdollFile::loadRagdoll(partial, dir.file("arm.zentoragdoll"), nullptr, &unmatched),
              std::vector<std::string>{"/Skeleton/Arm2/Hand/Hand_RB"});
    EXPECT_EQ(unmatched.bodies, std::vector<std::string>{"Arm"});
    EXPECT_EQ(unmatched.constraints, std::vector<std::string>{"ArmToHand"});
}

TEST(RagdollFile, NamesThatDifferOnlyByANamespaceMatchBothWays)
{
    EXPECT_EQ(RagdollFile::withoutNamespace("mixamorig:Hips"), "Hips");
    EXPECT_EQ(RagdollFile::withoutNamespace("a:b:Hips"), "Hips");
    EXPECT_EQ(RagdollFile::withoutNamespace("Hips"), "Hips");
    TemporaryDirectory dir;
    for (const auto& names : {std::make_pair(std::string(), std::string("mixamorig:")),
                              std::make_pair(std::string("mixamorig:"), std::string())}) {
        ZentoSceneGraph source;
        buildRagdoll(source, names.first);
        ASSERT_TRUE(RagdollFile::exportRagdoll(source, dir.file("doll.zentoragdoll")));
        ZentoSceneGraph target;
        buildRagdoll(target, names.second);
        std::vector<std::string> ragdoll = pathsOfType(target, RigidBodyNode::kTypeId);
        const std::vector<std::string> constraints = pathsOfType(target, ConstraintNode::kTypeId);
        ragdoll.erase(std::find(ragdoll.begin(), ragdoll.end(), "/Ground"));
        ragdoll.insert(ragdoll.end(), constraints.begin(), constraints.end());
        std::map<std::string, Imath::M44d> worlds;
        for (const std::string& path : ragdoll)
            worlds[path] = target.node(path)->worldMatrix();
        target.removeNodes(ragdoll);

        RagdollFile::Unmatched unmatched;
        std::vector<std::string> made = RagdollFile::loadRagdoll(target, dir.file("doll.zentoragdoll"), nullptr, &unmatched);
        std::sort(made.begin(), made.end());
        std::sort(ragdoll.begin(), ragdoll.end());
        EXPECT_EQ(made, ragdoll) << "every body and constraint back, under the target's names";
        for (const std::string& path : made)
            EXPECT_TRUE(target.node(path)->worldMatrix().equalWithAbsError(worlds[path], 1e-5)) << path;
        EXPECT_TRUE(unmatched.bodies.empty());
        EXPECT_TRUE(unmatched.constraints.empty());
    }
}

TEST(RagdollFile, EmptyScenesAndBadFiles)
{
    TemporaryDirectory dir;
    ZentoSceneGraph graph;
    graph.createSolver();
    ASSERT_TRUE(RagdollFile::exportRagdoll(graph, dir.file("empty.zentoragdoll")));
    const MapMetadata top = readArchive(dir.file("empty.zentoragdoll"));
    EXPECT_EQ(top.getKeys(), (std::vector<std::string>{"constraints", "rigidBodies"}));
    EXPECT_TRUE(top.typedEntryAs<MapMetadata>("rigidBodies")->empty());

    buildRagdoll(graph);
    ASSERT_TRUE(SceneFile::save(graph, dir.file("scene.zento")));
    ASSERT_TRUE(RagdollFile::exportRagdoll(graph, dir.file("doll.zentoragdoll")));
    const std::string bytes = dir.read("doll.zentoragdoll");
    dir.write("half.zentoragdoll", bytes.substr(0, bytes.size() / 2));

    ZentoSceneGraph skeleton;
    addJoint(skeleton, "/Skeleton", Imath::V3d(0, 0, 0));
    addJoint(skeleton, "/Skeleton/Hips", Imath::V3d(0, 1, 0));
    const size_t before = skeleton.nodes.size();
    for (const char* name : {"half.zentoragdoll", "scene.zento", "missing.zentoragdoll"})
        EXPECT_TRUE(RagdollFile::loadRagdoll(skeleton, dir.file(name)).empty()) << name;
    EXPECT_TRUE(RagdollFile::loadRagdoll(skeleton, dir.path()).empty());
    EXPECT_EQ(skeleton.nodes.size(), before);
    EXPECT_FALSE(RagdollFile::exportRagdoll(graph, dir.file("missing/doll.zentoragdoll")));
}

TEST(RagdollFile, AFileWithANumberOrPoseThatNoSceneCanHoldAddsNothing)
{
    TemporaryDirectory dir;
    ZentoSceneGraph source;
    buildRagdoll(source);
    ASSERT_TRUE(RagdollFile::exportRagdoll(source, dir.file("doll.zentoragdoll")));
    const MapMetadata good = readArchive(dir.file("doll.zentoragdoll"));
    const auto entryOf = [](MapMetadata& top, const char* list, const char* key) {
        return top.typedEntryAs<MapMetadata>(list)->typedEntryAs<MapMetadata>(key);
    };
    const double inf = std::numeric_limits<double>::infinity();
    // Each edit with a word the message must hold. "Spine" is the last body:
    // the bodies before it would be made by then.
    const std::vector<std::pair<std::function<void(MapMetadata&)>, std::string>> edits = {
        {[&](MapMetadata& top) { entryOf(top, "rigidBodies", "Leg")->set("dimension", Imath::V3d(0.1, inf, 0.1)); },
         "not finite"},
        {[&](MapMetadata& top) {
             entryOf(top, "constraints", "HipsToLeg")->typedEntry<Imath::M44d>("drivePose")->get()[3][1] = -inf;
         }, "not finite"},
        {[&](MapMetadata& top) { entryOf(top, "rigidBodies", "Spine")->set("transform", Imath::M44d(0.0)); },
         "no pose"},
        {[&](MapMetadata& top) {
             entryOf(top, "constraints", "SpineToNeck")->set("matrix", Imath::M44d(1e308));
         }, "no pose"},
    };
    ZentoSceneGraph skeleton;
    for (const auto& entry : source.nodes)
        if (entry.second->typeId() == JointNode::kTypeId)
            skeleton.addNode(std::make_shared<JointNode>(entry.first), entry.second->parent ? entry.second->parent->path.string() : "");
    const SceneState before = capture(skeleton);
    for (size_t i = 0; i < edits.size(); ++i) {
        MapMetadata top = good;
        edits[i].first(top);
        const std::string file = dir.file("edit" + std::to_string(i) + ".zentoragdoll");
        ASSERT_TRUE(writeArchive(top, file));
        std::string error;
        EXPECT_TRUE(RagdollFile::loadRagdoll(skeleton, file, &error).empty()) << i;
        EXPECT_NE(error.find(file), std::string::npos) << error;
        EXPECT_NE(error.find(edits[i].second), std::string::npos) << error;
        expectSameScene(before, capture(skeleton), "after edit " + std::to_string(i), true, 0.0);
    }
    EXPECT_EQ(RagdollFile::loadRagdoll(skeleton, dir.file("doll.zentoragdoll")).size(), 7u);
}
