#include "CharacterImport.h"
#include "ConstraintNode.h"
#include "JointNode.h"
#include "MeshLoader.h"
#include "MeshNode.h"
#include "RigidBodyNode.h"
#include "SceneFile.h"
#include "SceneState.h"
#include "SkeletonLoader.h"
#include "TemporaryDirectory.h"

#include <gtest/gtest.h>

#include <Imath/ImathBox.h>

#include <assimp/Importer.hpp>
#include <assimp/config.h>
#include <assimp/scene.h>

#include <algorithm>

using namespace ZentoCore;

namespace {

const std::string kBvh = "/usr/share/assimp/models/BVH/01_01.bvh";

size_t countOfType(const ZentoSceneGraph& graph, int typeId)
{
    return static_cast<size_t>(std::count_if(graph.nodes.begin(), graph.nodes.end(),
                                             [&](const auto& entry) { return entry.second->typeId() == typeId; }));
}

} // namespace

TEST(CharacterImport, ABvhSkeletonBecomesJointsBelowSkeleton)
{
    ZentoSceneGraph graph;
    const std::vector<std::string> names = CharacterImport::loadSkeleton(graph, kBvh);
    ASSERT_FALSE(names.empty());
    EXPECT_EQ(std::count(names.begin(), names.end(), "/Skeleton"), 2) << "the root of the import stands twice";

    const Skeleton skeleton = Zento::loadSkeleton(kBvh);
    EXPECT_EQ(countOfType(graph, JointNode::kTypeId), skeleton.numJoints());

    // From the file's text: ROOT Hips, JOINT LHipJoint (offset 0), LeftUpLeg, LeftLeg at 2.44811 -6.72613 0.
    const auto hips = graph.node("/Skeleton/Hips");
    ASSERT_NE(hips, nullptr);
    EXPECT_EQ(hips->parent, nullptr) << "a root joint hangs under nothing";
    EXPECT_TRUE(graph.node("/Skeleton")->children.empty());
    const auto leg = graph.node("/Skeleton/Hips/LHipJoint/LeftUpLeg/LeftLeg");
    ASSERT_NE(leg, nullptr);
    EXPECT_TRUE(leg->translation.equalWithAbsError(Imath::V3d(2.44811, -6.72613, 0.0), 1e-5));
    EXPECT_EQ(leg->parent, graph.node("/Skeleton/Hips/LHipJoint/LeftUpLeg").get());
    EXPECT_EQ(std::count(leg->parent->children.begin(), leg->parent->children.end(), leg.get()), 1);
    EXPECT_GE(leg->attributes.typedEntry<int>("jointId")->value(), 0);
    // The parent joint draws a bone to it, so the delegate holds more than a ball.
    EXPECT_GT(graph.delegate().mesh(leg->parent->path)->numVerts.size(), 32u);
}

TEST(CharacterImport, TwoRootsAndASingleJoint)
{
    TemporaryDirectory dir;
    std::vector<Joint> joints(3);
    joints[0].name = "Left Root";
    joints[1].name = "mixamorig:Right";
    joints[2].name = "Child";
    joints[2].parent = 1;
    joints[2].translation = Imath::V3d(0, 2, 0);
    joints[2].rotation.setAxisAngle(Imath::V3d(0, 0, 1), 0.5);
    for (int i = 0; i < 3; ++i)
        joints[size_t(i)].id = i;
    Skeleton twoRoots;
    ASSERT_TRUE(twoRoots.setJoints(joints));
    ASSERT_TRUE(Zento::saveSkeleton(twoRoots, dir.file("two.zentoskel")));

    ZentoSceneGraph graph;
    CharacterImport::loadSkeleton(graph, dir.file("two.zentoskel"));
    EXPECT_EQ(graph.nodePaths(), (std::vector<std::string>{"/Skeleton", "/Skeleton/Left Root", "/Skeleton/mixamorig:Right",
                                                           "/Skeleton/mixamorig:Right/Child"}));
    EXPECT_EQ(graph.node("/Skeleton/Left Root")->parent, nullptr);
    EXPECT_EQ(graph.node("/Skeleton/mixamorig:Right")->parent, nullptr);
    const auto child = graph.node("/Skeleton/mixamorig:Right/Child");
    EXPECT_NEAR(child->rotation.z, 0.5, 1e-12);
    EXPECT_EQ(child->attributes.typedEntry<int>("jointId")->value(), 2);

    std::vector<Joint> one(1);
    one[0].name = "Only";
    Skeleton single;
    ASSERT_TRUE(single.setJoints(one));
    ASSERT_TRUE(Zento::saveSkeleton(single, dir.file("one.zentoskel")));
    ZentoSceneGraph lone;
    EXPECT_EQ(CharacterImport::loadSkeleton(lone, dir.file("one.zentoskel")),
              (std::vector<std::string>{"/Skeleton", "/Skeleton", "/Skeleton/Only"}));
}

TEST(CharacterImport, MeshTreesBecomeGroupsAndMeshesBelowSkin)
{
    TemporaryDirectory dir;
    // A group with two meshes in it and a mesh at the top, written as our own file.
    const auto meshEntry = [](float offset) {
        auto node = std::make_shared<MapMetadata>();
        auto geo = std::make_shared<MetadataImpl<ZentoUtils::Mesh>>();
        geo->get().points = {{offset, 0, 0}, {offset + 1, 0, 0}, {offset, 1, 0}};
        geo->get().indices = {0, 1, 2};
        geo->get().counts = {3};
        node->insertEntry(Zento::kMeshGeoKey, geo);
        return node;
    };
    MapMetadata tree;
    auto top = std::make_shared<MapMetadata>();
    auto group = std::make_shared<MapMetadata>();
    auto inGroup = std::make_shared<MapMetadata>();
    inGroup->insertEntry("b", meshEntry(1));
    inGroup->insertEntry("a", meshEntry(2));
    group->insertEntry(Zento::kMeshChildrenKey, inGroup);
    Imath::Quatd turn;
    turn.setAxisAngle(Imath::V3d(0, 1, 0), 0.25);
    MetadataImpl<Imath::Quatd> rotation(turn);
    group->addEntry(Zento::kMeshRotationKey, &rotation);
    MetadataImpl<Imath::Eulerd> notAQuaternion(Imath::Eulerd(1, 1, 1));
    top->insertEntry("Group", group);
    top->insertEntry("Body", meshEntry(0));
    top->typedEntryAs<MapMetadata>("Body")->addEntry(Zento::kMeshRotationKey, &notAQuaternion);
    tree.insertEntry(Zento::kMeshChildrenKey, top);
    ASSERT_TRUE(Zento::saveMesh(tree, dir.file("skin.geos")));

    ZentoSceneGraph graph;
    graph.createSolver();
    const std::vector<std::string> names = CharacterImport::loadMesh(graph, dir.file("skin.geos"));
    EXPECT_EQ(names, (std::vector<std::string>{"/Skin", "/Skin/Body", "/Skin/Group", "/Skin/Group/a", "/Skin/Group/b",
                                               "/Skin", "/Skin/Body", "/Skin/Group", "/Skin/Group/a", "/Skin/Group/b"}));
    EXPECT_EQ(graph.node("/Skin/Group")->typeId(), TransformNode::kTypeId);
    EXPECT_NEAR(graph.node("/Skin/Group")->rotation.y, 0.25, 1e-12);
    EXPECT_EQ(graph.node("/Skin/Body")->rotation.toXYZVector(), Imath::V3d(0, 0, 0)) << "only a quaternion is read";
    const auto a = graph.node("/Skin/Group/a");
    EXPECT_EQ(a->typeId(), MeshNode::kTypeId);
    EXPECT_EQ(a->parent, graph.node("/Skin/Group").get());
    EXPECT_EQ(graph.node("/Skin/Body")->parent, graph.node("/Skin").get()) << "the first level is linked to /Skin";
    EXPECT_EQ(graph.delegate().mesh(a->path)->numVerts.size(), 1u);

    // A file with no children gives only /Skin.
    MapMetadata empty;
    empty.insertEntry(Zento::kMeshChildrenKey, std::make_shared<MapMetadata>());
    ASSERT_TRUE(Zento::saveMesh(empty, dir.file("empty.geos")));
    ZentoSceneGraph bare;
    EXPECT_EQ(CharacterImport::loadMesh(bare, dir.file("empty.geos")), (std::vector<std::string>{"/Skin", "/Skin"}));
}

TEST(CharacterImport, UnreadableFilesAddNothingAndSayWhy)
{
    TemporaryDirectory dir;
    ZentoSceneGraph graph;
    std::string error;
    EXPECT_TRUE(CharacterImport::loadSkeleton(graph, dir.file("missing.fbx"), &error).empty());
    EXPECT_FALSE(error.empty());
    error.clear();
    EXPECT_TRUE(CharacterImport::loadMesh(graph, dir.path(), &error).empty());
    EXPECT_FALSE(error.empty());
    EXPECT_TRUE(graph.nodes.empty());
}

TEST(CharacterImport, AnImportedCharacterWithItsRagdollRoundTripsThroughASceneFile)
{
    TemporaryDirectory dir;
    ZentoSceneGraph saved;
    ASSERT_FALSE(CharacterImport::loadSkeleton(saved, kBvh).empty());
    ASSERT_FALSE(CharacterImport::loadMesh(saved, "/usr/share/assimp/models/FBX/huesitos.fbx").empty());
    saved.createSolver();
    saved.createGround();
    for (const char* joint : {"/Skeleton/Hips", "/Skeleton/Hips/LHipJoint/LeftUpLeg"}) {
        const NodePath path(joint);
        auto body = std::make_shared<RigidBodyNode>(path.appendChild(path.name() + "_RB"));
        body->attributes.typedEntry<double>("mass")->set(4.25);
        saved.addNode(body, joint);
        saved.addNode(std::make_shared<ConstraintNode>(path.appendChild(path.name() + "_RBC")), joint);
    }
    saved.node("/Skeleton/Hips/LHipJoint")->visible = false;
    saved.updateVisibility(NodePath("/Skeleton/Hips/LHipJoint"));

    const std::string file = dir.file("character.zento");
    ASSERT_TRUE(SceneFile::save(saved, file));
    ZentoSceneGraph loaded;
    ASSERT_TRUE(SceneFile::load(loaded, file));
    expectSameScene(capture(saved), capture(loaded), "loaded", false, 0.0);
    EXPECT_GT(countOfType(loaded, MeshNode::kTypeId), 0u);
}

TEST(CharacterImport, ASecondImportGoesBesideTheFirstAndReplacesNothing)
{
    ZentoSceneGraph graph;
    ASSERT_FALSE(CharacterImport::loadSkeleton(graph, kBvh).empty());
    ASSERT_FALSE(CharacterImport::loadMesh(graph, "/usr/share/assimp/models/FBX/huesitos.fbx").empty());
    // A node whose parent is missing, as a scene file may leave one: its name is taken all the same.
    graph.addNode(std::make_shared<JointNode>(NodePath("/Skeleton/Hips1/Orphan")), "");
    const SceneState first = capture(graph);

    const std::vector<std::string> skeleton = CharacterImport::loadSkeleton(graph, kBvh);
    const std::vector<std::string> mesh = CharacterImport::loadMesh(graph, "/usr/share/assimp/models/FBX/huesitos.fbx");
    ASSERT_FALSE(skeleton.empty());
    ASSERT_FALSE(mesh.empty());
    EXPECT_EQ(std::count(skeleton.begin(), skeleton.end(), "/Skeleton"), 0) << "the scene's own is used";
    EXPECT_EQ(std::count(mesh.begin(), mesh.end(), "/Skin"), 0);
    ASSERT_NE(graph.node("/Skeleton/Hips2/LHipJoint/LeftUpLeg"), nullptr);
    EXPECT_EQ(graph.node("/Skeleton/Hips2")->parent, nullptr);
    SceneState both = capture(graph);
    for (const auto& entry : first.nodes) {
        EXPECT_EQ(both.nodes.count(entry.first), 1u) << entry.first;
        both.nodes.erase(entry.first);
    }
    EXPECT_EQ(both.nodes.size(), skeleton.size() + mesh.size() / 2) << "every new path is new";
    SceneState kept = capture(graph);
    for (const auto& entry : both.nodes)
        kept.nodes.erase(entry.first);
    // The first import's nodes are the same objects, children and all, and
    // the second's hang under the same "/Skin".
    kept.nodes["/Skin"].children = first.nodes.at("/Skin").children;
    expectSameScene(first, kept, "after the second import", true, 0.0);
    for (const std::string& path : mesh)
        EXPECT_EQ(graph.node(path)->parent == graph.node("/Skin").get(), NodePath(path).parentPath().string() == "/Skin")
            << path;

    // Every node is walked: a move of the root and a new scene.
    graph.updateMatrix(std::string("/Skeleton/Hips"));
    EXPECT_EQ(graph.removeNodes(graph.nodePaths()).size(), first.nodes.size() + both.nodes.size());
}

TEST(CharacterImport, DeepChainsAndWideSkeletonsInLinearTime)
{
    TemporaryDirectory dir;
    const auto saveChain = [&](size_t length, const std::string& name) {
        std::vector<Joint> joints(length);
        for (size_t i = 0; i < length; ++i) {
            joints[i].name = "j";
            joints[i].parent = static_cast<int>(i) - 1;
            joints[i].translation = Imath::V3d(0.0, 0.5, 0.0);
        }
        Skeleton chain;
        ASSERT_TRUE(chain.setJoints(std::move(joints)));
        ASSERT_TRUE(Zento::saveSkeleton(chain, dir.file(name)));
    };
    // Every node holds its whole path, so the longest chain of the file
    // format would take gigabytes of paths: the loader reads it, the scene
    // refuses it as a whole.
    saveChain(Skeleton::kMaxJoints, "longest.zentoskel");
    EXPECT_EQ(Zento::loadSkeleton(dir.file("longest.zentoskel")).numJoints(), Skeleton::kMaxJoints);
    ZentoSceneGraph graph;
    graph.createSolver();
    std::string error;
    EXPECT_TRUE(CharacterImport::loadSkeleton(graph, dir.file("longest.zentoskel"), &error).empty());
    EXPECT_NE(error.find("nest too deep"), std::string::npos) << error;
    EXPECT_EQ(graph.nodePaths(), std::vector<std::string>{"/Solver"});

    // The deepest chain whose paths fit: "/Skeleton" and "/j" 2043 times.
    constexpr size_t kDeepest = 2043;
    saveChain(kDeepest, "deep.zentoskel");
    ASSERT_EQ(CharacterImport::loadSkeleton(graph, dir.file("deep.zentoskel"), &error).size(), kDeepest + 2) << error;
    std::string tipPath = "/Skeleton";
    for (size_t i = 0; i < kDeepest; ++i)
        tipPath += "/j";
    const auto tip = graph.node(tipPath);
    ASSERT_NE(tip, nullptr);
    EXPECT_NEAR(graph.delegate().GetTransform(tip->path)[3][1], 0.5 * kDeepest, 1e-9);
    EXPECT_EQ(tip->worldMatrix(), graph.delegate().GetTransform(tip->path));

    // Siblings of one name are numbered without trying every number for each.
    constexpr size_t kSiblings = 16000;
    std::vector<Joint> wide(kSiblings + 1);
    wide[0].name = "Root";
    for (size_t i = 1; i <= kSiblings; ++i) {
        wide[i].name = "Leaf";
        wide[i].parent = 0;
    }
    Skeleton fan;
    ASSERT_TRUE(fan.setJoints(std::move(wide)));
    ASSERT_TRUE(Zento::saveSkeleton(fan, dir.file("wide.zentoskel")));
    ASSERT_FALSE(CharacterImport::loadSkeleton(graph, dir.file("wide.zentoskel"), &error).empty()) << error;
    const auto root = graph.node("/Skeleton/Root");
    ASSERT_EQ(root->children.size(), kSiblings);
    EXPECT_EQ(root->children.back()->path.name(), "Leaf" + std::to_string(kSiblings - 1));
    EXPECT_EQ(graph.removeNodes(graph.nodePaths()).size(), kDeepest + kSiblings + 3);
}

TEST(CharacterImport, AFileThatTheImporterStopsOnLeavesTheSceneAndTheProgramGoesOn)
{
    TemporaryDirectory dir;
    // A byte changed inside the compressed data of a zipped Collada file:
    // Assimp's zip reader aborts on it. The data starts after the first entry's
    // local header: 30 bytes, its name and its extra field.
    std::string zae = readFileBytes("/usr/share/assimp/models/Collada/duck.zae");
    ASSERT_GT(zae.size(), 2000u);
    const auto field = [&](size_t at) { return size_t(uint8_t(zae[at])) | size_t(uint8_t(zae[at + 1])) << 8; };
    zae[30 + field(26) + field(28) + 1000] ^= 0x55;
    dir.write("damaged.zae", zae);
    // An MD5 mesh cut short after its "numtris" line: Assimp's parser crashes on it.
    const std::string md5 = readFileBytes("/usr/share/assimp/models/MD5/SimpleCube.md5mesh");
    const size_t numtris = md5.find("numtris");
    ASSERT_NE(numtris, std::string::npos);
    dir.write("cut.md5mesh", md5.substr(0, md5.find('\n', numtris) + 1));

    ZentoSceneGraph graph;
    graph.createSolver();
    ASSERT_FALSE(CharacterImport::loadSkeleton(graph, kBvh).empty());
    const SceneState before = capture(graph);
    for (const std::string name : {"damaged.zae", "cut.md5mesh"}) {
        for (const bool asSkeleton : {true, false}) {
            std::string error;
            const std::vector<std::string> names = asSkeleton
                ? CharacterImport::loadSkeleton(graph, dir.file(name), &error)
                : CharacterImport::loadMesh(graph, dir.file(name), &error);
            EXPECT_TRUE(names.empty()) << name;
            EXPECT_NE(error.find(dir.file(name)), std::string::npos) << error;
            EXPECT_NE(error.find("importer stopped"), std::string::npos) << error;
            expectSameScene(before, capture(graph), name, true, 0.0);
        }
    }
    // The undamaged files come in beside what is there.
    EXPECT_FALSE(CharacterImport::loadMesh(graph, "/usr/share/assimp/models/Collada/duck.zae").empty());
    EXPECT_FALSE(CharacterImport::loadMesh(graph, "/usr/share/assimp/models/MD5/SimpleCube.md5mesh").empty());
}

namespace {

Imath::M44d rowVectorMatrix(const aiMatrix4x4& m)
{
    return Imath::M44d(m.a1, m.b1, m.c1, m.d1, m.a2, m.b2, m.c2, m.d2, m.a3, m.b3, m.c3, m.d3, m.a4, m.b4, m.c4, m.d4);
}

// The first node of the class with that short name.
std::shared_ptr<BaseNode> nodeNamed(const ZentoSceneGraph& graph, int typeId, const std::string& name)
{
    for (const auto& entry : graph.nodes)
        if (entry.second->typeId() == typeId && entry.first.name() == name)
            return entry.second;
    return nullptr;
}

} // namespace

TEST(CharacterImport, SkinsStandAtTheirBindPoseOnTheirSkeletons)
{
    // Each skinned vertex belongs where Assimp's own data put it: the sum over
    // its bones of weight times the vertex times the bone's offset matrix times
    // the world matrix of that bone's joint as the skeleton import made it,
    // over the sum of the weights (which in the FBX files is 0.95 to 1.4).
    for (const std::string model : {"X/BCN_Epileptic.X", "X/Testwuson.X", "Collada/box_nested_animation.dae",
                                     "glTF2/simple_skin/simple_skin.gltf", "FBX/animation_with_skeleton.fbx",
                                     "MD5/SimpleCube.md5mesh"}) {
        const std::string file = "/usr/share/assimp/models/" + model;
        ZentoSceneGraph graph;
        std::string error;
        ASSERT_FALSE(CharacterImport::loadSkeleton(graph, file, &error).empty()) << error;
        ASSERT_FALSE(CharacterImport::loadMesh(graph, file, &error).empty()) << error;
        Assimp::Importer importer;
        importer.SetPropertyBool(AI_CONFIG_IMPORT_FBX_PRESERVE_PIVOTS, false);
        const aiScene* scene = importer.ReadFile(file, 0);
        ASSERT_NE(scene, nullptr) << model;

        std::vector<Imath::V3d> expected, actual;
        std::vector<const aiNode*> pending{scene->mRootNode};
        while (!pending.empty()) {
            const aiNode* node = pending.back();
            pending.pop_back();
            pending.insert(pending.end(), node->mChildren, node->mChildren + node->mNumChildren);
            if (node->mNumMeshes == 0)
                continue;
            const auto meshNode = nodeNamed(graph, MeshNode::kTypeId, node->mName.C_Str());
            ASSERT_NE(meshNode, nullptr) << model << ": " << node->mName.C_Str();
            const ZentoUtils::Mesh geo = meshOf(*meshNode);
            const Imath::M44d world = meshNode->worldMatrix();
            // A node's meshes stand one after the other in its one mesh.
            size_t first = 0;
            for (unsigned int m = 0; m < node->mNumMeshes; first += scene->mMeshes[node->mMeshes[m]]->mNumVertices, ++m) {
                const aiMesh& mesh = *scene->mMeshes[node->mMeshes[m]];
                std::vector<Imath::V3d> sums(mesh.mNumVertices, Imath::V3d(0.0));
                std::vector<double> weights(mesh.mNumVertices, 0.0);
                for (unsigned int b = 0; b < mesh.mNumBones; ++b) {
                    const aiBone& bone = *mesh.mBones[b];
                    const auto joint = nodeNamed(graph, JointNode::kTypeId, bone.mName.C_Str());
                    ASSERT_NE(joint, nullptr) << model << ": " << bone.mName.C_Str();
                    const Imath::M44d bind = rowVectorMatrix(bone.mOffsetMatrix) * joint->worldMatrix();
                    for (unsigned int w = 0; w < bone.mNumWeights; ++w) {
                        const aiVertexWeight& weight = bone.mWeights[w];
                        const aiVector3D& v = mesh.mVertices[weight.mVertexId];
                        sums[weight.mVertexId] += double(weight.mWeight) * (Imath::V3d(v.x, v.y, v.z) * bind);
                        weights[weight.mVertexId] += weight.mWeight;
                    }
                }
                ASSERT_LE(first + mesh.mNumVertices, geo.points.size()) << model;
                for (unsigned int v = 0; v < mesh.mNumVertices; ++v) {
                    if (weights[v] == 0.0)
                        continue;
                    expected.push_back(sums[v] / weights[v]);
                    actual.push_back(Imath::V3d(geo.points[first + v]) * world);
                }
            }
        }
        ASSERT_FALSE(expected.empty()) << model << " has no skinned vertex";
        Imath::Box3d box;
        for (const Imath::V3d& point : expected)
            box.extendBy(point);
        const double tolerance = 1e-4 * (box.max - box.min).length();
        double worst = 0.0;
        for (size_t i = 0; i < expected.size(); ++i)
            worst = std::max(worst, (actual[i] - expected[i]).length());
        EXPECT_LE(worst, tolerance) << model << ": " << expected.size() << " skinned vertices";
    }
}
