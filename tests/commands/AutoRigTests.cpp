#include "AutoRig.h"
#include "BaseCommand.h"
#include "CharacterImport.h"
#include "ConstraintNode.h"
#include "JointNode.h"
#include "MeshLoader.h"
#include "MeshNode.h"
#include "MetadataImpl.h"
#include "RigidBodyConstraintAttributes.h"
#include "RagdollCheck.h"
#include "RigidBodyNode.h"
#include "SceneFile.h"
#include "SceneState.h"
#include "SolverNode.h"
#include "TemporaryDirectory.h"
#include "TypedArrayMetadata.h"
#include "ZentoSceneGraph.h"

#include <gtest/gtest.h>

#include <Imath/ImathMatrixAlgo.h>

#include <assimp/Importer.hpp>
#include <assimp/scene.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <map>
#include <memory>
#include <numeric>
#include <set>

using Imath::M44d;
using Imath::V3d;
using Record = Zento::RigidBodyConstraintAttributes;

namespace {

const std::string kModels = "/usr/share/assimp/models/";
// Motion capture men in units of their own, and a skinned dancer in metres.
const std::vector<std::string> kMotionCapture = {"BVH/01_01.bvh", "BVH/01_03.bvh", "BVH/Boxing_Toes.bvh"};
const std::string kDancer = "X/BCN_Epileptic.X";
const std::string kBeast = "X/Testwuson.X";

// A scene with a solver, the skeleton of a file and, when asked, its skins.
struct Character {
    explicit Character(const std::string& model, bool withSkin = false)
    {
        graph.createSolver();
        const std::string file = kModels + model;
        std::string error;
        for (const std::string& path : CharacterImport::loadSkeleton(graph, file, &error))
            if (root.empty() && path.rfind("/Skeleton/", 0) == 0)
                root = path;
        EXPECT_FALSE(root.empty()) << error;
        if (!withSkin)
            return;
        for (const std::string& path : CharacterImport::loadMesh(graph, file, &error)) {
            const auto node = graph.node(path);
            if (node && node->typeId() == MeshNode::kTypeId && std::find(skin.begin(), skin.end(), path) == skin.end())
                skin.push_back(path);
        }
        EXPECT_FALSE(skin.empty()) << error;
    }

    // Builds the ragdoll and runs its command; false when nothing was built.
    bool build()
    {
        command = AutoRig::build(graph, root, skin, result, {}, &error);
        if (command)
            command->execute();
        return command != nullptr;
    }

    double scale() const { return graph.solver()->attributes.typedEntry<double>("sceneScale")->get(); }

    ZentoSceneGraph graph;
    std::string root;
    std::vector<std::string> skin;
    AutoRig::Result result;
    std::shared_ptr<BaseCommand> command;
    std::string error;
};

// A body's capsule in world space and scene units: the ends of its axis and its radius.
struct WorldCapsule {
    V3d a, b;
    double radius;
};

WorldCapsule capsuleOf(const BaseNode& body)
{
    const V3d dimension = body.attributes.typedEntry<V3d>("dimension")->get();
    const M44d world = body.worldMatrix();
    V3d scale;
    Imath::extractScaling(world, scale);
    WorldCapsule capsule;
    world.multVecMatrix(V3d(-dimension.y, 0, 0), capsule.a);
    world.multVecMatrix(V3d(dimension.y, 0, 0), capsule.b);
    capsule.radius = dimension.x * scale.x;
    return capsule;
}

std::vector<const BaseNode*> nodesOf(const ZentoSceneGraph& graph, const std::vector<std::string>& paths)
{
    std::vector<const BaseNode*> nodes;
    for (const std::string& path : paths)
        if (const auto node = graph.node(path))
            nodes.push_back(node.get());
    return nodes;
}

// The pairs of bodies that the constraints join.
std::vector<std::pair<const BaseNode*, const BaseNode*>> jointPairs(const Character& character)
{
    std::vector<std::pair<const BaseNode*, const BaseNode*>> pairs;
    for (const BaseNode* constraint : nodesOf(character.graph, character.result.constraints))
        pairs.emplace_back(ConstraintNode::childBody(*constraint),
                           ConstraintNode::parentBody(*constraint, character.graph.nodes));
    return pairs;
}

// How many pieces the bodies form when the constraints hold them together.
size_t pieces(const Character& character)
{
    std::map<const BaseNode*, const BaseNode*> leader;
    for (const BaseNode* body : nodesOf(character.graph, character.result.bodies))
        leader[body] = body;
    const std::function<const BaseNode*(const BaseNode*)> find = [&](const BaseNode* node) {
        return leader[node] == node ? node : find(leader[node]);
    };
    for (const auto& pair : jointPairs(character))
        if (pair.first && pair.second)
            leader[find(pair.first)] = find(pair.second);
    size_t count = 0;
    for (const auto& entry : leader)
        count += entry.first == entry.second;
    return count;
}

// The lowest and highest point of all bodies, scene units.
std::pair<double, double> verticalExtent(const Character& character)
{
    std::pair<double, double> extent{1e300, -1e300};
    for (const BaseNode* body : nodesOf(character.graph, character.result.bodies)) {
        const WorldCapsule c = capsuleOf(*body);
        extent.first = std::min(extent.first, std::min(c.a.y, c.b.y) - c.radius);
        extent.second = std::max(extent.second, std::max(c.a.y, c.b.y) + c.radius);
    }
    return extent;
}

// Every mesh of original is in copy, with the same names of joints.
void expectSameSkinJoints(const ZentoSceneGraph& original, const ZentoSceneGraph& copy, const std::string& when)
{
    size_t meshes = 0;
    for (const auto& entry : original.nodes) {
        if (entry.second->typeId() != MeshNode::kTypeId)
            continue;
        ++meshes;
        const auto same = copy.node(entry.first.string());
        ASSERT_NE(same, nullptr) << when << ": " << entry.first.string();
        const auto* names = static_cast<const MeshNode&>(*same).skinJoints();
        ASSERT_NE(names, nullptr) << when << ": " << entry.first.string();
        EXPECT_EQ(*names, *static_cast<const MeshNode&>(*entry.second).skinJoints()) << when;
    }
    EXPECT_GT(meshes, 0u) << when;
}

} // namespace

TEST(AutoRig, MotionCaptureSkeletonsBecomeOnePersonSizedRagdollStandingOnItsGround)
{
    for (const std::string& model : kMotionCapture) {
        Character character(model);
        ASSERT_TRUE(character.build()) << model << ": " << character.error;
        const AutoRig::Result& result = character.result;
        EXPECT_EQ(result.constraints.size() + 1, result.bodies.size()) << model << ": a tree of bodies";
        EXPECT_EQ(pieces(character), 1u) << model << ": every body is joined to the others";

        // Whatever the file's units, a person of 1.5 to 2 m, on the ground.
        EXPECT_DOUBLE_EQ(character.scale(), result.sceneScale) << model;
        const auto [low, high] = verticalExtent(character);
        EXPECT_GE((high - low) * result.sceneScale, 1.5) << model;
        EXPECT_LE((high - low) * result.sceneScale, 2.0) << model;
        const auto ground = character.graph.node(result.ground);
        ASSERT_NE(ground, nullptr) << model;
        const double gap = (low - ground->worldMatrix().translation().y) * result.sceneScale;
        EXPECT_GT(gap, 0.0) << model << ": no body starts on the ground";
        EXPECT_LT(gap, 0.005) << model << ": metres between the feet and the ground";

        // No body of no size, and no joint left with a body of its own but merged.
        for (const BaseNode* body : nodesOf(character.graph, result.bodies)) {
            const WorldCapsule c = capsuleOf(*body);
            EXPECT_GE(c.radius * result.sceneScale, 0.01) << model << ": " << body->path.string();
            EXPECT_GE(((c.b - c.a).length() + 2.0 * c.radius) * result.sceneScale, 0.05)
                << model << ": " << body->path.string();
        }
        for (const std::string& merged : result.mergedJoints)
            for (const BaseNode* child : character.graph.node(merged)->children)
                EXPECT_NE(child->typeId(), RigidBodyNode::kTypeId) << model << ": " << merged;
    }
}

TEST(AutoRig, AHubOfJointsAtOneSpotBecomesOnePelvisThatHoldsLegsAndSpine)
{
    // Hips has LHipJoint, RHipJoint and LowerBack at its origin: the pelvis
    // stands for all four, and what hangs below them holds on to it.
    Character character("BVH/01_01.bvh");
    ASSERT_TRUE(character.build()) << character.error;
    const std::string hips = character.root;
    const auto pelvis = character.graph.node(hips + "/Hips_RB");
    ASSERT_NE(pelvis, nullptr);
    const WorldCapsule c = capsuleOf(*pelvis);
    EXPECT_GE(((c.b - c.a).length() + 2.0 * c.radius) * character.result.sceneScale, 0.15) << "a pelvis, not a dot";
    const auto& merged = character.result.mergedJoints;
    for (const std::string& joint : {hips + "/LHipJoint", hips + "/RHipJoint", hips + "/LowerBack"})
        EXPECT_NE(std::find(merged.begin(), merged.end(), joint), merged.end()) << joint;
    for (const std::string& held : {hips + "/LHipJoint/LeftUpLeg/LeftUpLeg_RBC", hips + "/RHipJoint/RightUpLeg/RightUpLeg_RBC",
                                    hips + "/LowerBack/Spine/Spine_RBC"}) {
        const auto constraint = character.graph.node(held);
        ASSERT_NE(constraint, nullptr) << held;
        EXPECT_EQ(ConstraintNode::parentBody(*constraint, character.graph.nodes), pelvis.get()) << held;
        EXPECT_EQ(constraint->attributes.typedEntry<std::string>("parentRigidBody")->get(), pelvis->path.string())
            << held << ": the merged joint between is named";
    }
    // Both hands come out alike: the short hands of this file ride on the forearms.
    EXPECT_EQ(bool(character.graph.node(hips + "/LowerBack/Spine/Spine1/LeftShoulder/LeftArm/LeftForeArm/LeftHand/LeftHand_RB")),
              bool(character.graph.node(hips + "/LowerBack/Spine/Spine1/RightShoulder/RightArm/RightForeArm/RightHand/RightHand_RB")));
}

TEST(AutoRig, TheRagdollPassesTheCheckAndItsDropTestWithoutAFinding)
{
    // No body of no size, no joint outside its limits in the bind pose, no
    // colliding bodies inside each other, masses within 10 to 1; dropped, it
    // stays finite, comes to rest and holds its joints and limits. A
    // four-legged beast too, whose skin makes its neck far heavier than its chest.
    for (const std::string& model : {kMotionCapture[0], kMotionCapture[1], kMotionCapture[2], kDancer, kBeast}) {
        Character character(model, model == kDancer || model == kBeast);
        ASSERT_TRUE(character.build()) << model << ": " << character.error;
        for (const BaseNode* constraint : nodesOf(character.graph, character.result.constraints)) {
            Record record;
            ASSERT_TRUE(record.deserialise(&constraint->attributes));
            EXPECT_EQ(record.constraintType, Record::D6);
            for (int axis = Record::LinearX; axis <= Record::AngularZ; ++axis)
                EXPECT_EQ(record.motions[axis], axis < Record::AngularX ? Record::Locked : Record::Limit);
        }
        std::vector<RagdollCheck::Finding> findings = RagdollCheck::check(character.graph);
        const RagdollCheck::DropTest drop = RagdollCheck::dropTest(character.graph);
        for (const RagdollCheck::Finding& finding : RagdollCheck::findings(drop))
            findings.push_back(finding);
        for (const RagdollCheck::Finding& finding : findings)
            ADD_FAILURE() << model << ": " << finding.kind << ": " << finding.message;
        EXPECT_TRUE(drop.finite) << model;
        EXPECT_GE(drop.secondsToRest, 0.0) << model;
        EXPECT_LE(drop.worstSeparation, 0.02) << model << ": " << drop.worstSeparationConstraint;
    }
}

TEST(AutoRig, TheCommandUndoesToTheSceneBeforeAndRedoesTheSameRagdoll)
{
    Character character("BVH/Boxing_Toes.bvh");
    const SceneState before = capture(character.graph);
    ASSERT_TRUE(character.build()) << character.error;
    const SceneState built = capture(character.graph);
    EXPECT_EQ(built.nodes.size(),
              before.nodes.size() + character.result.bodies.size() + character.result.constraints.size() + 1);
    EXPECT_NE(character.scale(), 1.0);
    character.command->undo();
    expectSameScene(before, capture(character.graph), "undo");
    character.command->redo();
    expectSameScene(built, capture(character.graph), "redo");

    // A scene without a solver gets one, with the scale.
    ZentoSceneGraph bare;
    CharacterImport::loadSkeleton(bare, kModels + "BVH/Boxing_Toes.bvh");
    AutoRig::Result result;
    const auto command = AutoRig::build(bare, "/Skeleton/Hips", {}, result);
    ASSERT_NE(command, nullptr);
    command->execute();
    ASSERT_NE(bare.solver(), nullptr);
    EXPECT_DOUBLE_EQ(bare.solver()->attributes.typedEntry<double>("sceneScale")->get(), result.sceneScale);
    command->undo();
    EXPECT_EQ(bare.solver(), nullptr);
}

TEST(AutoRig, WhatCannotBeBuiltOnIsRefusedWithAReasonAndTheSceneStaysAsItWas)
{
    Character character("BVH/Boxing_Toes.bvh");
    character.graph.addNode(std::make_shared<MeshNode>(ZentoCore::NodePath("/Empty")), "");
    addJoint(character.graph, "/Lone", V3d(1, 2, 3));
    addJoint(character.graph, "/Pair", V3d(0, 0, 0));
    addJoint(character.graph, "/Pair/Same", V3d(0, 0, 0));
    // A joint that scales its bones to nothing, and one that flattens them.
    addJoint(character.graph, "/Dot", V3d(0, 0, 0))->scale = V3d(0, 0, 0);
    addJoint(character.graph, "/Dot/Bone", V3d(0, 1, 0));
    addJoint(character.graph, "/Flat", V3d(0, 0, 0))->scale = V3d(1, 1, 0);
    addJoint(character.graph, "/Flat/Bone", V3d(0, 1, 0));
    addJoint(character.graph, "/Flat/Bone/End", V3d(0, 1, 0));
    character.graph.updateMatrix(std::string("/Dot"));
    character.graph.updateMatrix(std::string("/Flat"));
    const SceneState before = capture(character.graph);
    const auto refused = [&](const std::string& root, const std::vector<std::string>& skin, double height,
                             const std::string& why) {
        AutoRig::Result result;
        std::string error;
        AutoRig::Settings settings;
        settings.height = height;
        EXPECT_EQ(AutoRig::build(character.graph, root, skin, result, settings, &error), nullptr) << root;
        EXPECT_NE(error.find(why), std::string::npos) << error;
        EXPECT_TRUE(result.bodies.empty());
        expectSameScene(before, capture(character.graph), root);
    };
    refused("/Nowhere", {}, 1.75, "no joint at \"/Nowhere\"");
    refused("/Skeleton", {}, 1.75, "no joint at");
    refused("/Lone", {}, 1.75, "has no bone");
    refused("/Pair", {}, 1.75, "has no bone");
    refused(character.root, {"/Skeleton"}, 1.75, "\"/Skeleton\" holds no mesh");
    refused(character.root, {"/Skin/Body"}, 1.75, "no node at \"/Skin/Body\"");
    refused("/Dot", {}, 1.75, "has no bone");
    refused("/Flat", {}, 1.75, "\"/Flat\" is scaled to nothing");
    refused(character.root, {}, 0.0, "positive number of metres");
    refused(character.root, {}, std::nan(""), "positive number of metres");
    // A mesh without points says nothing about radii; it is no reason to refuse.
    AutoRig::Result result;
    EXPECT_NE(AutoRig::build(character.graph, character.root, {"/Empty"}, result), nullptr);

    ASSERT_TRUE(character.build());
    const SceneState rigged = capture(character.graph);
    std::string error;
    EXPECT_EQ(AutoRig::build(character.graph, character.root, {}, result, {}, &error), nullptr);
    EXPECT_NE(error.find("holds a body or constraint already"), std::string::npos) << error;
    expectSameScene(rigged, capture(character.graph), "a second build");
}

TEST(AutoRig, AWideSkeletonOfHundredsOfArmsBuildsOneJoinedRagdoll)
{
    // A root with 400 arms of two bones each, spread over a sphere: every
    // arm a body pair, every pair joined to the root's body.
    constexpr int kArms = 400;
    Character character("BVH/Boxing_Toes.bvh");
    std::vector<ZentoSceneGraph::NewNode> joints;
    const auto add = [&](const std::string& path, const V3d& translation, const std::string& parent) {
        auto joint = std::make_shared<JointNode>(ZentoCore::NodePath(path));
        joint->translation = translation;
        joints.push_back({joint, parent});
    };
    add("/Wide", V3d(0, 0, 0), "");
    for (int arm = 0; arm < kArms; ++arm) {
        const double z = 1.0 - 2.0 * (arm + 0.5) / kArms;
        const double turn = arm * 2.399963;
        const V3d out(std::sqrt(1.0 - z * z) * std::cos(turn), z, std::sqrt(1.0 - z * z) * std::sin(turn));
        const std::string path = "/Wide/Arm" + std::to_string(arm);
        add(path, out * 10.0, "/Wide");
        add(path + "/Hand", out * 10.0, path);
        add(path + "/Hand/Tip", out * 10.0, path + "/Hand");
    }
    character.graph.addNodes(joints);
    character.root = "/Wide";
    ASSERT_TRUE(character.build()) << character.error;
    EXPECT_EQ(character.result.bodies.size(), 1u + 2u * kArms);
    EXPECT_EQ(pieces(character), 1u);
}

TEST(AutoRig, ASkeletonWhoseUpIsZIsMeasuredAlongItsLength)
{
    ZentoSceneGraph graph;
    addJoint(graph, "/Skeleton/Hips", V3d(0, 0, 0));
    addJoint(graph, "/Skeleton/Hips/Spine", V3d(0, 0.1, 50));
    addJoint(graph, "/Skeleton/Hips/Spine/Head", V3d(0, 0, 50));
    addJoint(graph, "/Skeleton/Hips/Spine/Head/Top", V3d(0, 0, 75));
    AutoRig::Result result;
    ASSERT_NE(AutoRig::build(graph, "/Skeleton/Hips", {}, result), nullptr);
    EXPECT_DOUBLE_EQ(result.skeletonHeight, 175.0);
    EXPECT_NEAR(result.sceneScale, 0.01, 1e-6);
    EXPECT_EQ(result.bodies.size(), 3u);
}

TEST(AutoRigSkin, RadiiComeFromTheSkinAndStayInsideIt)
{
    for (const std::string& model : {kDancer, std::string("FBX/huesitos.fbx")}) {
        Character bare(model);
        ASSERT_TRUE(bare.build()) << bare.error;
        Character skinned(model, true);
        ASSERT_TRUE(skinned.build()) << skinned.error;
        ASSERT_EQ(bare.result.bodies, skinned.result.bodies) << model;

        std::vector<V3d> skin;
        for (const BaseNode* node : nodesOf(skinned.graph, skinned.skin))
            for (const Imath::V3f& point : static_cast<const MeshNode*>(node)->mesh()->points)
                skin.push_back(V3d(point) * node->worldMatrix());

        size_t differ = 0;
        for (const std::string& path : skinned.result.bodies) {
            const WorldCapsule fromSkin = capsuleOf(*skinned.graph.node(path));
            const WorldCapsule fromLength = capsuleOf(*bare.graph.node(path));
            differ += std::abs(fromSkin.radius - fromLength.radius) > 0.05 * fromLength.radius;
            // The skin about the middle of the axis lies mostly outside the capsule.
            const V3d middle = (fromSkin.a + fromSkin.b) * 0.5;
            const V3d axis = (fromSkin.b - fromSkin.a).normalized();
            const double slab = std::max(fromSkin.radius, 0.25 * (fromSkin.b - fromSkin.a).length());
            size_t about = 0, inside = 0;
            for (const V3d& point : skin) {
                const V3d off = point - middle;
                if (std::abs(off ^ axis) > slab)
                    continue;
                const double fromAxis = (off - axis * (off ^ axis)).length();
                ++about;
                inside += fromAxis < fromSkin.radius;
            }
            if (about == 0)
                continue; // a bone that sticks out of its skin
            EXPECT_LE(inside * 2, about) << model << ": " << path;
        }
        EXPECT_GE(differ * 2, skinned.result.bodies.size()) << model << ": most radii come from the skin";

        // The group that an import makes, or a mesh named twice, is the same skin.
        for (const bool group : {true, false}) {
            Character again(model, true);
            again.skin = group ? std::vector<std::string>{"/Skin"} : std::vector<std::string>{again.skin.front()};
            if (!group)
                again.skin.insert(again.skin.end(), skinned.skin.begin(), skinned.skin.end());
            ASSERT_TRUE(again.build()) << again.error;
            ASSERT_EQ(again.result.bodies, skinned.result.bodies) << model;
            for (const std::string& path : skinned.result.bodies)
                EXPECT_DOUBLE_EQ(capsuleOf(*again.graph.node(path)).radius, capsuleOf(*skinned.graph.node(path)).radius)
                    << model << ": " << path;
        }
    }
}

TEST(AutoRigSkin, WithoutWeightsTheNearestBoneGivesSimilarRadii)
{
    Character weighted(kDancer, true);
    ASSERT_TRUE(weighted.build()) << weighted.error;
    Character nearest(kDancer, true);
    for (const BaseNode* mesh : nodesOf(nearest.graph, nearest.skin))
        static_cast<const MeshNode*>(mesh)->geometryMap->removeEntry(Zento::kMeshSkinJointsKey);
    ASSERT_TRUE(nearest.build()) << nearest.error;
    std::vector<double> ratios;
    for (const std::string& path : weighted.result.bodies)
        ratios.push_back(capsuleOf(*nearest.graph.node(path)).radius / capsuleOf(*weighted.graph.node(path)).radius);
    std::sort(ratios.begin(), ratios.end());
    const double median = ratios[ratios.size() / 2];
    EXPECT_GT(median, 0.75);
    EXPECT_LT(median, 1.33);
}

TEST(AutoRigSkin, EachPointOfAnImportedSkinNamesTheJointThatWeighsItMost)
{
    const std::string file = kModels + kDancer;
    // The names as Assimp's own weights give them, node by node in file order.
    Assimp::Importer importer;
    const aiScene* scene = importer.ReadFile(file, 0);
    ASSERT_NE(scene, nullptr);
    ZentoSceneGraph graph;
    CharacterImport::loadSkeleton(graph, file);
    CharacterImport::loadMesh(graph, file);
    std::set<std::string> jointNames;
    for (const auto& entry : graph.nodes)
        if (entry.second->typeId() == JointNode::kTypeId)
            jointNames.insert(entry.first.name());
    size_t checked = 0;
    for (const auto& entry : graph.nodes) {
        if (entry.second->typeId() != MeshNode::kTypeId)
            continue;
        const MeshNode& mesh = static_cast<const MeshNode&>(*entry.second);
        const std::vector<std::string>* names = mesh.skinJoints();
        ASSERT_NE(names, nullptr) << entry.first.string();
        const aiNode* node = scene->mRootNode->FindNode(entry.first.name().c_str());
        ASSERT_NE(node, nullptr);
        size_t first = 0;
        for (unsigned int m = 0; m < node->mNumMeshes; ++m) {
            const aiMesh& in = *scene->mMeshes[node->mMeshes[m]];
            std::vector<float> heaviest(in.mNumVertices, 0.0f);
            std::vector<std::string> expected(in.mNumVertices);
            for (unsigned int b = 0; b < in.mNumBones; ++b)
                for (unsigned int w = 0; w < in.mBones[b]->mNumWeights; ++w) {
                    const aiVertexWeight& weight = in.mBones[b]->mWeights[w];
                    if (weight.mWeight > heaviest[weight.mVertexId]) {
                        heaviest[weight.mVertexId] = weight.mWeight;
                        expected[weight.mVertexId] = in.mBones[b]->mName.C_Str();
                    }
                }
            for (unsigned int v = 0; v < in.mNumVertices; ++v, ++checked) {
                EXPECT_EQ((*names)[first + v], expected[v]) << entry.first.string() << " point " << first + v;
                EXPECT_TRUE(expected[v].empty() || jointNames.count(expected[v])) << expected[v];
            }
            first += in.mNumVertices;
        }
    }
    EXPECT_GT(checked, 10000u);
}

TEST(AutoRigSkin, TheNamesSurviveMeshAndSceneFilesAndFilesWithoutThemLoad)
{
    const std::string file = kModels + kDancer;
    const auto tree = Zento::loadMesh(file);
    ZentoSceneGraph graph;
    ASSERT_FALSE(CharacterImport::loadMesh(graph, file).empty());
    // A round trip through our own mesh file keeps them; a file without them, as
    // older ones are, loads as a mesh that nothing weighs.
    TemporaryDirectory directory;
    ASSERT_TRUE(Zento::saveMesh(*tree, directory.file("dancer.geos")));
    ZentoSceneGraph again;
    ASSERT_FALSE(CharacterImport::loadMesh(again, directory.file("dancer.geos")).empty());
    expectSameSkinJoints(graph, again, "mesh file");
    // The scene file keeps a mesh's tree as it stands, these names with it.
    ASSERT_TRUE(SceneFile::save(graph, directory.file("dancer.zento")));
    ZentoSceneGraph saved;
    ASSERT_TRUE(SceneFile::load(saved, directory.file("dancer.zento")));
    expectSameSkinJoints(graph, saved, "scene file");

    const std::function<void(ZentoCore::MapMetadata&)> strip = [&](ZentoCore::MapMetadata& node) {
        node.removeEntry(Zento::kMeshSkinJointsKey);
        if (const auto children = node.typedEntryAs<ZentoCore::MapMetadata>(Zento::kMeshChildrenKey))
            for (const auto& child : *children)
                if (const auto map = children->typedEntryAs<ZentoCore::MapMetadata>(child.first))
                    strip(*map);
    };
    strip(*tree);
    ASSERT_TRUE(Zento::saveMesh(*tree, directory.file("old.geos")));
    ZentoSceneGraph old;
    ASSERT_FALSE(CharacterImport::loadMesh(old, directory.file("old.geos")).empty());
    size_t meshes = 0;
    for (const auto& entry : old.nodes)
        if (entry.second->typeId() == MeshNode::kTypeId) {
            ++meshes;
            EXPECT_EQ(static_cast<const MeshNode&>(*entry.second).skinJoints(), nullptr);
        }
    EXPECT_EQ(meshes, 3u);

    // A list that does not match the points is none.
    auto mesh = std::make_shared<MeshNode>(ZentoCore::NodePath("/Odd"));
    mesh->geometryMap = std::make_shared<ZentoCore::MapMetadata>();
    auto geo = std::make_shared<ZentoCore::MetadataImpl<ZentoUtils::Mesh>>();
    geo->get().points.assign(3, Imath::V3f(0.0f));
    mesh->geometryMap->insertEntry(Zento::kMeshGeoKey, geo);
    mesh->geometryMap->insertEntry(Zento::kMeshSkinJointsKey, std::make_shared<ZentoCore::TypedArrayMetadata<std::string>>(
                                                                  std::vector<std::string>{"a", "b"}));
    EXPECT_EQ(mesh->skinJoints(), nullptr);
}

TEST(AutoRig, ARagdollPutOnByOtherMeansGetsTheSameGroundScaleAndJoints)
{
    // Built once; then the ragdoll's nodes alone are kept, as a ragdoll file brings them.
    Character character(kMotionCapture.front());
    const std::vector<std::string> owners = AutoRig::bodyJoints(character.graph, character.root);
    ASSERT_TRUE(character.build()) << character.error;
    std::vector<std::string> bodiesOn;
    for (const BaseNode* body : nodesOf(character.graph, character.result.bodies))
        bodiesOn.push_back(body->parent->path.string());
    std::sort(bodiesOn.begin(), bodiesOn.end());
    EXPECT_EQ(owners, bodiesOn) << "the joints given a body are those said to get one";
    EXPECT_EQ(AutoRig::bodyJoints(character.graph, "/Skeleton"), std::vector<std::string>{}) << "no joint there";

    const BaseNode& built = *character.graph.node(character.result.ground);
    const double builtHeight = built.translation.y;
    character.graph.removeNodes(std::vector<std::string>{character.result.ground, SolverNode::kPath});
    AutoRig::Result staged;
    std::string error;
    const std::shared_ptr<BaseCommand> stage = AutoRig::stage(character.graph, character.root, staged, {}, &error);
    ASSERT_NE(stage, nullptr) << error;
    stage->execute();
    ASSERT_NE(character.graph.solver(), nullptr);
    EXPECT_DOUBLE_EQ(character.scale(), character.result.sceneScale);
    EXPECT_DOUBLE_EQ(staged.sceneScale, character.result.sceneScale);
    const auto ground = character.graph.node(staged.ground);
    ASSERT_NE(ground, nullptr);
    // Under the bodies' drawn shapes, whose facets lie within the true
    // capsules: a little above the ground of the capsules themselves.
    EXPECT_GE(ground->translation.y, builtHeight);
    EXPECT_LT((ground->translation.y - builtHeight) * staged.sceneScale, 0.005);
    stage->undo();
    EXPECT_EQ(character.graph.node(staged.ground), nullptr);
    EXPECT_EQ(character.graph.solver(), nullptr);

    // "/Skeleton" is the group the joints hang in, no joint.
    EXPECT_EQ(AutoRig::stage(character.graph, "/Skeleton", staged, {}, &error), nullptr);
    EXPECT_FALSE(error.empty());
}
