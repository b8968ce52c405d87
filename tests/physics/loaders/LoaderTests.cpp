#include "ArrayMetadata.h"
#include "ImporterProcess.h"
#include "MeshLoader.h"
#include "SkeletonLoader.h"
#include "TemporaryDirectory.h"
#include "TestValues.h"
#include "UsdaSkeletonReader.h"

#include <gtest/gtest.h>

#include <Imath/ImathBox.h>

#include <assimp/Importer.hpp>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <map>
#include <memory>
#include <set>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

using namespace ZentoCore;

namespace {

const std::string kModels = "/usr/share/assimp/models/";

const Joint* findJoint(const Skeleton& skeleton, const std::string& name)
{
    for (const Joint& joint : skeleton.joints())
        if (joint.name == name)
            return &joint;
    return nullptr;
}

std::string parentName(const Skeleton& skeleton, const Joint& joint)
{
    return joint.parent < 0 ? std::string() : skeleton.joint(static_cast<unsigned short>(joint.parent)).name;
}

// Every link of the tree agrees with the parent indices, and ids count the joints.
void expectConsistentLinks(const Skeleton& skeleton)
{
    std::vector<unsigned short> roots;
    for (unsigned short id = 0; id < skeleton.numJoints(); ++id) {
        const Joint& joint = skeleton.joint(id);
        if (joint.parent < 0)
            roots.push_back(id);
        for (unsigned short c = 0; c < joint.numChildren(); ++c)
            EXPECT_EQ(joint.child(c)->parent, id) << joint.child(c)->name;
        EXPECT_EQ(joint.child(joint.numChildren()), nullptr);
    }
    EXPECT_EQ(skeleton.rootIds(), roots);
}

void expectSameSkeleton(const Skeleton& a, const Skeleton& b)
{
    ASSERT_EQ(a.numJoints(), b.numJoints());
    EXPECT_EQ(a.rootIds(), b.rootIds());
    for (unsigned short id = 0; id < a.numJoints(); ++id) {
        const Joint& x = a.joint(id);
        const Joint& y = b.joint(id);
        EXPECT_EQ(x.name, y.name);
        EXPECT_EQ(x.id, y.id);
        EXPECT_EQ(x.parent, y.parent);
        EXPECT_EQ(x.translation, y.translation) << x.name;
        EXPECT_EQ(x.rotation, y.rotation) << x.name;
        EXPECT_EQ(x.scale, y.scale) << x.name;
        EXPECT_EQ(x.childIds(), y.childIds());
    }
}

std::shared_ptr<MapMetadata> childOf(const MapMetadata& tree, const std::string& name)
{
    const auto children = tree.typedEntryAs<MapMetadata>(Zento::kMeshChildrenKey);
    return children ? children->typedEntryAs<MapMetadata>(name) : nullptr;
}

int triangleCount(const ZentoUtils::Mesh& mesh)
{
    int triangles = 0;
    for (int count : mesh.counts)
        triangles += count - 2;
    return triangles;
}

Skeleton loadFailing(const std::string& file, std::string& error)
{
    error.clear();
    return Zento::loadSkeleton(file, &error);
}

} // namespace

TEST(SkeletonImport, BvhGivesTheFilesHierarchyAndOffsets)
{
    const Skeleton skeleton = Zento::loadSkeleton(kModels + "BVH/01_01.bvh");
    // 31 ROOT and JOINT entries and 7 End Sites, which Assimp names "EndSite_" + their joint.
    ASSERT_EQ(skeleton.numJoints(), 38);
    ASSERT_EQ(skeleton.rootIds(), std::vector<unsigned short>{0});
    EXPECT_EQ(skeleton.joint(0).name, "Hips");
    expectConsistentLinks(skeleton);
    for (unsigned short id = 0; id < skeleton.numJoints(); ++id) {
        EXPECT_EQ(skeleton.joint(id).id, id);
        EXPECT_EQ(skeleton.joint(id).rotation, Imath::Quatd()) << "a BVH rest pose has no rotation";
        EXPECT_EQ(skeleton.joint(id).scale, Imath::V3d(1, 1, 1));
    }
    const Imath::V3d zero(0, 0, 0);
    // By hand from the file: "JOINT LeftUpLeg { OFFSET 1.36306 -1.79463 0.83929" inside LHipJoint,
    // "JOINT LeftLeg { OFFSET 2.44811 -6.72613 0.00000" inside it, "JOINT Head { OFFSET 0.10407
    // 1.76136 -0.12397" inside Neck1, and "End Site { OFFSET 0.00000 -0.00000 1.18966" of LeftToeBase.
    const std::map<std::string, std::pair<std::string, Imath::V3d>> expected{
        {"Hips", {"", zero}},
        {"LHipJoint", {"Hips", zero}},
        {"LeftUpLeg", {"LHipJoint", Imath::V3d(1.36306, -1.79463, 0.83929)}},
        {"LeftLeg", {"LeftUpLeg", Imath::V3d(2.44811, -6.72613, 0.0)}},
        {"Head", {"Neck1", Imath::V3d(0.10407, 1.76136, -0.12397)}},
        {"EndSite_LeftToeBase", {"LeftToeBase", Imath::V3d(0.0, 0.0, 1.18966)}},
    };
    for (const auto& entry : expected) {
        const Joint* joint = findJoint(skeleton, entry.first);
        ASSERT_NE(joint, nullptr) << entry.first;
        EXPECT_EQ(parentName(skeleton, *joint), entry.second.first) << entry.first;
        EXPECT_TRUE(joint->translation.equalWithAbsError(entry.second.second, 1e-5)) << entry.first;
    }
    // Hips has LHipJoint, RHipJoint and LowerBack, in the file's order.
    const Joint& hips = skeleton.joint(0);
    ASSERT_EQ(hips.numChildren(), 3);
    EXPECT_EQ(hips.child(0)->name, "LHipJoint");
    EXPECT_EQ(hips.child(1)->name, "RHipJoint");
    EXPECT_EQ(hips.child(2)->name, "LowerBack");
}

TEST(SkeletonImport, FbxGivesTheSkinnedBonesBelowTheirCommonAncestor)
{
    // A binary FBX; the values below are the "Lcl Translation" properties of its
    // LimbNode models. Its nine skinned bones hang below "Bone"; the two
    // "_end" LimbNodes are weighted by nothing and are no joints.
    std::string error;
    const Skeleton skeleton = Zento::loadSkeleton(kModels + "FBX/huesitos.fbx", &error);
    EXPECT_TRUE(error.empty()) << error;
    ASSERT_EQ(skeleton.numJoints(), 9);
    ASSERT_EQ(skeleton.rootIds().size(), 1u);
    expectConsistentLinks(skeleton);
    const Joint& root = skeleton.joint(skeleton.rootIds()[0]);
    EXPECT_EQ(root.name, "Bone");
    EXPECT_EQ(findJoint(skeleton, "Bone.006_end"), nullptr);

    const std::map<std::string, std::pair<std::string, Imath::V3d>> expected{
        {"Bone.001", {"Bone", Imath::V3d(0.0, 0.7050103545188904, 0.0)}},
        {"Bone.002", {"Bone.001", Imath::V3d(0.0, 1.4068738222122192, 0.0)}},
        {"Bone.003", {"Bone.001", Imath::V3d(0.0, 1.4068738222122192, 0.0)}},
        {"Bone.004", {"Bone.002", Imath::V3d(0.0, 0.9835605621337891, 0.0)}},
        {"Bone.008", {"Bone.007", Imath::V3d(0.0, 1.2631607055664062, 0.0)}},
    };
    for (const auto& entry : expected) {
        const Joint* joint = findJoint(skeleton, entry.first);
        ASSERT_NE(joint, nullptr) << entry.first;
        EXPECT_EQ(parentName(skeleton, *joint), entry.second.first) << entry.first;
        EXPECT_TRUE(joint->translation.equalWithAbsError(entry.second.second, 1e-6)) << entry.first;
    }
    // "Lcl Rotation" 0, 0, 0 on Bone.001.
    EXPECT_TRUE(findJoint(skeleton, "Bone.001")->rotation.v.equalWithAbsError(Imath::V3d(0, 0, 0), 1e-9));

    // The root carries the world pose of everything above it: the Armature's
    // translation (-4.024, 0, -307.135) and scale 100; its -90 degrees about x
    // and the Bone's +90 cancel.
    EXPECT_TRUE(root.translation.equalWithAbsError(Imath::V3d(-4.024, 0.0, -307.1354), 1e-3));
    EXPECT_TRUE(root.scale.equalWithAbsError(Imath::V3d(100, 100, 100), 1e-3));
    EXPECT_NEAR(std::abs(root.rotation.r), 1.0, 1e-6);
}

TEST(SkeletonImport, BonesInTwoChainsHangBelowTheNodeThatHoldsBoth)
{
    // Two chains of seven skinned bones each, "Bone" and "Bone.007", below the
    // "Armature" null, which is not weighted but is their common ancestor.
    const Skeleton skeleton = Zento::loadSkeleton(kModels + "FBX/animation_with_skeleton.fbx");
    ASSERT_EQ(skeleton.numJoints(), 15);
    ASSERT_EQ(skeleton.rootIds().size(), 1u);
    const Joint& armature = skeleton.joint(skeleton.rootIds()[0]);
    EXPECT_EQ(armature.name, "Armature");
    ASSERT_EQ(armature.numChildren(), 2);
    EXPECT_EQ(armature.child(0)->name, "Bone");
    EXPECT_EQ(armature.child(1)->name, "Bone.007");
    expectConsistentLinks(skeleton);
}

TEST(SkeletonFile, RoundTripsSkeletonsOfEveryFormat)
{
    TemporaryDirectory dir;
    for (const std::string source : {"BVH/01_01.bvh", "FBX/huesitos.fbx", "FBX/animation_with_skeleton.fbx"}) {
        const Skeleton loaded = Zento::loadSkeleton(kModels + source);
        ASSERT_GT(loaded.numJoints(), 0) << source;
        std::string error;
        ASSERT_TRUE(Zento::saveSkeleton(loaded, dir.file("copy.zentoskel"), &error)) << error;
        const Skeleton readBack = Zento::loadSkeleton(dir.file("copy.zentoskel"), &error);
        EXPECT_TRUE(error.empty()) << error;
        expectSameSkeleton(loaded, readBack);
        expectConsistentLinks(readBack);
    }
}

TEST(SkeletonFile, NamesFitForPathsAndUniqueAmongSiblings)
{
    std::vector<Joint> joints(5);
    const char* names[] = {"mixamorig:Hips", "Left Arm", "Left Arm", "Arm/Hand", ""};
    const int parents[] = {-1, 0, 0, 0, 0};
    for (size_t i = 0; i < joints.size(); ++i) {
        joints[i].name = names[i];
        joints[i].parent = parents[i];
        joints[i].id = static_cast<int>(i) * 10;
    }
    Skeleton skeleton;
    ASSERT_TRUE(skeleton.setJoints(joints));
    TemporaryDirectory dir;
    ASSERT_TRUE(Zento::saveSkeleton(skeleton, dir.file("names.zentoskel")));
    const Skeleton loaded = Zento::loadSkeleton(dir.file("names.zentoskel"));
    ASSERT_EQ(loaded.numJoints(), 5);
    EXPECT_EQ(loaded.joint(0).name, "mixamorig:Hips");
    EXPECT_EQ(loaded.joint(1).name, "Left Arm");
    EXPECT_EQ(loaded.joint(2).name, "Left Arm1");
    EXPECT_EQ(loaded.joint(3).name, "Arm_Hand");
    EXPECT_EQ(loaded.joint(4).name, "joint");
    EXPECT_EQ(loaded.joint(4).id, 40) << "the file's ids are kept";
}

TEST(Skeleton, LinksFollowTheJointsThroughCopies)
{
    std::vector<Joint> joints(3);
    joints[1].parent = 0;
    joints[2].parent = -1;
    Skeleton skeleton;
    ASSERT_TRUE(skeleton.setJoints(joints));
    EXPECT_EQ(skeleton.rootIds(), (std::vector<unsigned short>{0, 2}));
    Skeleton copy = skeleton;
    skeleton.clear();
    ASSERT_EQ(copy.joint(0).numChildren(), 1);
    EXPECT_EQ(copy.joint(0).child(0), &copy.joint(1));

    joints[1].parent = 2;
    EXPECT_FALSE(copy.setJoints(joints)) << "a parent must come before its children";
    EXPECT_EQ(copy.numJoints(), 0);
    EXPECT_TRUE(copy.rootIds().empty());
    joints[1].parent = -2;
    EXPECT_FALSE(copy.setJoints(joints));
}

TEST(MeshImport, SkinnedGltfMeshAtItsBindPose)
{
    std::string error;
    const auto tree = Zento::loadMesh(kModels + "glTF2/simple_skin/simple_skin.gltf", "*", &error);
    ASSERT_NE(tree, nullptr);
    EXPECT_TRUE(error.empty()) << error;
    // The file's one scene node "nodes[0]" holds the mesh and the two joints below it.
    const auto node = childOf(*tree, "nodes[0]");
    ASSERT_NE(node, nullptr);
    const auto geo = node->typedEntry<ZentoUtils::Mesh>(Zento::kMeshGeoKey);
    ASSERT_NE(geo, nullptr);
    EXPECT_TRUE(geo->get().isValid());
    // By hand from the file: the indices accessor has "count" : 24, eight
    // triangles; the positions accessor "min" : [0.0, 0.0, 0.0], "max" : [1.0,
    // 2.0, 0.0]. Both joints' inverse bind matrices move by (-0.5, -1, 0) and
    // both joints stand at (0, 1, 0): the skin was bound half a unit to the left.
    EXPECT_EQ(triangleCount(geo->get()), 8);
    EXPECT_EQ(geo->get().counts, std::vector<int>(8, 3));
    EXPECT_EQ(geo->get().points.size(), 10u);
    EXPECT_EQ(boundsOf(geo->get()).min, Imath::V3f(-0.5, 0, 0));
    EXPECT_EQ(boundsOf(geo->get()).max, Imath::V3f(0.5, 2, 0));

    const auto joint = childOf(*node, "nodes[1]");
    ASSERT_NE(joint, nullptr);
    EXPECT_EQ(joint->typedEntry<ZentoUtils::Mesh>(Zento::kMeshGeoKey), nullptr) << "a joint holds no geometry";
    ASSERT_NE(joint->typedEntry<Imath::V3d>(Zento::kMeshTranslationKey), nullptr);
    EXPECT_EQ(joint->typedEntry<Imath::V3d>(Zento::kMeshTranslationKey)->get(), Imath::V3d(0, 1, 0));
    EXPECT_NE(childOf(*joint, "nodes[2]"), nullptr);
}

TEST(MeshImport, SkinnedFbxMeshKeepsItsPolygons)
{
    const auto tree = Zento::loadMesh(kModels + "FBX/huesitos.fbx");
    // Assimp's own root adds nothing and is left out: the file's models are the children.
    const auto cylinder = childOf(*tree, "Cylinder");
    ASSERT_NE(cylinder, nullptr);
    EXPECT_NE(childOf(*tree, "Armature"), nullptr);
    EXPECT_NE(childOf(*childOf(*tree, "Armature"), "Bone"), nullptr);
    const auto geo = cylinder->typedEntry<ZentoUtils::Mesh>(Zento::kMeshGeoKey);
    ASSERT_NE(geo, nullptr);
    const ZentoUtils::Mesh& mesh = geo->get();
    EXPECT_TRUE(mesh.isValid());
    // From the file's Geometry: "PolygonVertexIndex" holds 256 corners closing
    // 68 polygons, 16 of 3 corners and 52 of 4, that is 120 triangles; its
    // "Vertices" span (-1.023423, -1.023423, -1.256193) to (4.334299, 2.191928,
    // 4.182180) in the model's own space.
    ASSERT_EQ(mesh.counts.size(), 68u);
    EXPECT_EQ(mesh.indices.size(), 256u);
    EXPECT_EQ(std::count(mesh.counts.begin(), mesh.counts.end(), 3), 16);
    EXPECT_EQ(std::count(mesh.counts.begin(), mesh.counts.end(), 4), 52);
    EXPECT_EQ(triangleCount(mesh), 120);
    EXPECT_EQ(mesh.normals.size(), mesh.indices.size());
    const Imath::Box3f box = boundsOf(mesh);
    EXPECT_TRUE(box.min.equalWithAbsError(Imath::V3f(-1.023423f, -1.023423f, -1.256193f), 1e-5f));
    EXPECT_TRUE(box.max.equalWithAbsError(Imath::V3f(4.334299f, 2.191928f, 4.182180f), 1e-5f));
    // The model's "Lcl Scaling" of 100 stays on the node, not in the points.
    EXPECT_TRUE(cylinder->typedEntry<Imath::V3d>(Zento::kMeshScaleKey)->get().equalWithAbsError(
        Imath::V3d(100, 100, 100), 1e-3));
}

TEST(MeshImport, FilterKeepsTheGeometryOfMatchingNodes)
{
    const std::string file = kModels + "FBX/huesitos.fbx";
    EXPECT_NE(childOf(*Zento::loadMesh(file, "Cyl?nd*"), "Cylinder")->getEntry(Zento::kMeshGeoKey), nullptr);
    const auto filtered = Zento::loadMesh(file, "Cube*");
    ASSERT_NE(childOf(*filtered, "Cylinder"), nullptr) << "the node stays";
    EXPECT_EQ(childOf(*filtered, "Cylinder")->getEntry(Zento::kMeshGeoKey), nullptr);
}

TEST(MeshFile, RoundTripsMeshTrees)
{
    TemporaryDirectory dir;
    for (const std::string source : {"FBX/huesitos.fbx", "glTF2/simple_skin/simple_skin.gltf", "OBJ/spider.obj"}) {
        const auto loaded = Zento::loadMesh(kModels + source);
        ASSERT_FALSE(loaded->empty()) << source;
        std::string error;
        ASSERT_TRUE(Zento::saveMesh(*loaded, dir.file("copy.geos"), &error)) << error;
        const auto readBack = Zento::loadMesh(dir.file("copy.geos"), "*", &error);
        EXPECT_TRUE(error.empty()) << error;
        EXPECT_TRUE(loaded->isEqual(readBack.get(), 0.0)) << source;
    }
}

TEST(MeshFile, HoldsTreesUpToTheDepthItCanReadBack)
{
    const auto chain = [](int levels) {
        MapMetadata tree;
        for (int level = 0; level < levels; ++level) {
            MapMetadata children;
            children.addEntry("n", &tree);
            MapMetadata parent;
            parent.addEntry(Zento::kMeshChildrenKey, &children);
            tree = parent;
        }
        return tree;
    };
    TemporaryDirectory dir;
    const MapMetadata deepest = chain(Zento::kMaxMeshDepth);
    ASSERT_TRUE(Zento::saveMesh(deepest, dir.file("deep.geos")));
    EXPECT_TRUE(Zento::loadMesh(dir.file("deep.geos"))->isEqual(&deepest, 0.0));
    std::string error;
    EXPECT_FALSE(Zento::saveMesh(chain(Zento::kMaxMeshDepth + 1), dir.file("deeper.geos"), &error));
    EXPECT_NE(error.find("deeper"), std::string::npos) << error;
    EXPECT_NE(::access(dir.file("deeper.geos").c_str(), F_OK), 0);
}

TEST(LoaderFailures, BadFilesFailCleanlyWithAMessage)
{
    TemporaryDirectory dir;
    dir.write("text.fbx", "This is no FBX file, only text renamed.\n");
    dir.write("binary.usdc", std::string("PXR-USDC\0\0\x08\0\0\0\0\0", 16) + std::string(200, '\x7f'));
    dir.write("empty.zentoskel", "");
    dir.write("empty.geos", "");
    dir.write("empty.fbx", "");
    dir.write("empty.usda", "");
    ::mkdir(dir.file("folder.zentoskel").c_str(), 0700);
    ::mkdir(dir.file("folder.fbx").c_str(), 0700);

    std::string error;
    for (const std::string name : {"text.fbx", "binary.usdc", "empty.zentoskel", "empty.fbx", "empty.usda",
                                    "folder.zentoskel", "folder.fbx", "missing.zentoskel", "missing.usda"}) {
        EXPECT_EQ(loadFailing(dir.file(name), error).numJoints(), 0) << name;
        EXPECT_NE(error.find(dir.file(name)), std::string::npos) << name << ": " << error;
    }
    loadFailing(dir.file("binary.usdc"), error);
    EXPECT_NE(error.find("binary USD"), std::string::npos) << error;
    loadFailing(dir.file("folder.fbx"), error);
    EXPECT_NE(error.find("directory"), std::string::npos) << error;

    for (const std::string name : {"text.fbx", "empty.geos", "empty.fbx", "folder.fbx", "missing.geos"}) {
        error.clear();
        const auto tree = Zento::loadMesh(dir.file(name), "*", &error);
        ASSERT_NE(tree, nullptr) << name;
        EXPECT_TRUE(tree->empty()) << name;
        EXPECT_NE(error.find(dir.file(name)), std::string::npos) << name << ": " << error;
    }
    EXPECT_EQ(Zento::loadSkeleton(dir.file("text.fbx")).numJoints(), 0) << "the message is optional";
}

TEST(LoaderFailures, TruncatedOwnFilesAndFilesOfTheOtherKindFail)
{
    // The archive refuses every cut and every changed byte; the loaders need only pass its refusal on.
    TemporaryDirectory dir;
    ASSERT_TRUE(Zento::saveSkeleton(Zento::loadSkeleton(kModels + "BVH/01_01.bvh"), dir.file("whole.zentoskel")));
    ASSERT_TRUE(Zento::saveMesh(*Zento::loadMesh(kModels + "FBX/huesitos.fbx"), dir.file("whole.geos")));
    std::string error;
    const std::string skeleton = dir.read("whole.zentoskel");
    dir.write("truncated.zentoskel", skeleton.substr(0, skeleton.size() / 2));
    EXPECT_EQ(loadFailing(dir.file("truncated.zentoskel"), error).numJoints(), 0);
    EXPECT_FALSE(error.empty());
    const std::string mesh = dir.read("whole.geos");
    dir.write("truncated.geos", mesh.substr(0, mesh.size() / 2));
    error.clear();
    EXPECT_TRUE(Zento::loadMesh(dir.file("truncated.geos"), "*", &error)->empty());
    EXPECT_FALSE(error.empty());

    // A mesh file read as a skeleton holds no list of joints.
    dir.write("mesh.zentoskel", mesh);
    EXPECT_EQ(loadFailing(dir.file("mesh.zentoskel"), error).numJoints(), 0);
    EXPECT_NE(error.find("no list of joints"), std::string::npos) << error;
}

TEST(LoaderFailures, WellFormedArchivesWithWrongContentFail)
{
    TemporaryDirectory dir;
    const auto saveMap = [&](const MapMetadata& map, const std::string& name) {
        ASSERT_TRUE(writeArchive(map, dir.file(name)));
    };
    const auto jointMap = [](int parent, bool withScale) {
        MapMetadata joint;
        joint.insertEntry("name", std::make_shared<MetadataImpl<std::string>>("Hips"));
        joint.insertEntry("parent", std::make_shared<MetadataImpl<int>>(parent));
        joint.insertEntry("translation", std::make_shared<MetadataImpl<Imath::V3d>>(Imath::V3d(1, 2, 3)));
        joint.insertEntry("rotation", std::make_shared<MetadataImpl<Imath::Quatd>>(Imath::Quatd()));
        // A scale of the wrong type counts as missing.
        joint.insertEntry("scale", withScale ? std::make_shared<MetadataImpl<Imath::V3d>>(Imath::V3d(1, 1, 1))
                                             : std::shared_ptr<Metadata>(std::make_shared<MetadataImpl<double>>(1.0)));
        joint.insertEntry("id", std::make_shared<MetadataImpl<int>>(0));
        return joint;
    };
    const auto skeletonMap = [](const std::vector<MapMetadata>& joints) {
        ArrayMetadata list;
        for (const MapMetadata& joint : joints)
            list.append(joint);
        MapMetadata map;
        map.addEntry("joints", &list);
        return map;
    };
    saveMap(skeletonMap({jointMap(-1, true)}), "good.zentoskel");
    saveMap(skeletonMap({jointMap(-1, false)}), "wrongType.zentoskel");
    saveMap(skeletonMap({jointMap(-1, true), jointMap(1, true)}), "ownParent.zentoskel");
    saveMap(skeletonMap({jointMap(5, true)}), "missingParent.zentoskel");
    saveMap(skeletonMap({}), "noJoints.zentoskel");
    EXPECT_EQ(Zento::loadSkeleton(dir.file("good.zentoskel")).numJoints(), 1) << "the others fail by their content";
    // Numbers that no scene can hold: a scale of -inf, a quaternion with inf,
    // and finite scales whose product overflows the child's world matrix.
    const double inf = std::numeric_limits<double>::infinity();
    MapMetadata infiniteScale = jointMap(-1, true);
    infiniteScale.set("scale", Imath::V3d(1, -inf, 1));
    MapMetadata infiniteTurn = jointMap(-1, true);
    infiniteTurn.set("rotation", Imath::Quatd(1, 0, inf, 0));
    MapMetadata noTurn = jointMap(-1, true);
    noTurn.set("rotation", Imath::Quatd(0, 0, 0, 0));
    MapMetadata hugeTurn = jointMap(-1, true);
    hugeTurn.set("rotation", Imath::Quatd(1e300, 0, 0, 1e300));
    MapMetadata huge = jointMap(-1, true);
    huge.set("scale", Imath::V3d(1e200, 1, 1));
    MapMetadata hugeChild = jointMap(0, true);
    hugeChild.set("scale", Imath::V3d(1e200, 1, 1));
    saveMap(skeletonMap({infiniteScale}), "infiniteScale.zentoskel");
    saveMap(skeletonMap({jointMap(-1, true), infiniteTurn}), "infiniteTurn.zentoskel");
    saveMap(skeletonMap({huge, hugeChild}), "overflow.zentoskel");
    saveMap(skeletonMap({huge, hugeTurn}), "huge.zentoskel");
    saveMap(skeletonMap({noTurn}), "noTurn.zentoskel");
    const Skeleton huger = Zento::loadSkeleton(dir.file("huge.zentoskel"));
    ASSERT_EQ(huger.numJoints(), 2) << "a huge scale alone is finite, and so is a huge quaternion's turn";
    EXPECT_TRUE(huger.joint(1).rotation.v.equalWithAbsError(Imath::V3d(0, 0, std::sqrt(0.5)), 1e-15));
    for (const std::string name : {"wrongType", "ownParent", "missingParent", "noJoints", "infiniteScale",
                                   "infiniteTurn", "noTurn", "overflow"}) {
        std::string error;
        EXPECT_EQ(Zento::loadSkeleton(dir.file(name + ".zentoskel"), &error).numJoints(), 0) << name;
        EXPECT_NE(error.find(dir.file(name + ".zentoskel")), std::string::npos) << error;
    }

    // A mesh whose face names a point it does not have would be drawn out of bounds.
    ZentoUtils::Mesh broken;
    broken.points.resize(3);
    broken.counts = {3};
    broken.indices = {0, 1, 3};
    MapMetadata node;
    node.insertEntry(Zento::kMeshGeoKey, std::make_shared<MetadataImpl<ZentoUtils::Mesh>>(broken));
    MapMetadata children;
    children.addEntry("broken", &node);
    MapMetadata tree;
    tree.addEntry(Zento::kMeshChildrenKey, &children);
    std::string error;
    EXPECT_FALSE(Zento::saveMesh(tree, dir.file("refused.geos"), &error));
    EXPECT_FALSE(error.empty());
    saveMap(tree, "broken.geos");
    // A point that is not finite, and a node whose world matrix overflows.
    broken.indices = {0, 1, 2};
    broken.points[1].z = -std::numeric_limits<float>::infinity();
    node.insertEntry(Zento::kMeshGeoKey, std::make_shared<MetadataImpl<ZentoUtils::Mesh>>(broken));
    children.clear();
    children.addEntry("infinite", &node);
    tree.addEntry(Zento::kMeshChildrenKey, &children);
    saveMap(tree, "infinite.geos");
    MapMetadata far;
    far.set(Zento::kMeshScaleKey, Imath::V3d(1e200, 1e200, 1e200));
    MapMetadata farther;
    farther.addEntry("far", &far);
    far.addEntry(Zento::kMeshChildrenKey, &farther);
    farther.addEntry("far", &far);
    MapMetadata overflow;
    overflow.addEntry(Zento::kMeshChildrenKey, &farther);
    saveMap(overflow, "overflow.geos");
    // Found by the mesh fuzzer: a number that is not finite where a node's
    // children belong, which the scene then kept and could not open again.
    MapMetadata hidden;
    hidden.set(Zento::kMeshChildrenKey, std::numeric_limits<double>::quiet_NaN());
    MapMetadata hiding;
    hiding.addEntry("hidden", &hidden);
    MapMetadata hidingTree;
    hidingTree.addEntry(Zento::kMeshChildrenKey, &hiding);
    saveMap(hidingTree, "hidden.geos");
    for (const auto& [name, word] : std::map<std::string, std::string>{{"broken.geos", "no readable values"},
                                                                        {"infinite.geos", "not finite"},
                                                                        {"hidden.geos", "not finite"},
                                                                        {"overflow.geos", "overflows"}}) {
        error.clear();
        EXPECT_TRUE(Zento::loadMesh(dir.file(name), "*", &error)->empty()) << name;
        EXPECT_NE(error.find(dir.file(name)), std::string::npos) << error;
        EXPECT_NE(error.find(word), std::string::npos) << error;
    }
    EXPECT_FALSE(Zento::saveMesh(tree, dir.file("refused.geos"))) << "what cannot be read is not written";
}

namespace {

// A skeleton as a DCC tool writes it: metadata, comments, a nested prim and a
// mesh binding whose "skel:joints" must not be taken for the skeleton's.
const std::string kUsdaSkeleton = R"usda(#usda 1.0
(
    defaultPrim = "Character"
    metersPerUnit = 0.01
)

def SkelRoot "Character" (
    prepend apiSchemas = ["SkelBindingAPI"]
)
{
    def Mesh "Body" (prepend apiSchemas = ["SkelBindingAPI"])
    {
        uniform token[] skel:joints = ["Wrong"]
        rel skel:skeleton = </Character/Skel>
    }

    def Skeleton "Skel" (
        customData = { token[] joints = ["AlsoWrong"] }
    )
    {
        # The pose relative to each parent joint.
        uniform token[] joints = ["mixamorig:Hips", "mixamorig:Hips/Left Leg", "mixamorig:Hips/Left Leg/Foot", 'Prop',]
        uniform matrix4d[] bindTransforms = [((1, 0, 0, 0), (0, 1, 0, 0), (0, 0, 1, 0), (0, 100, 0, 1)), ((1, 0, 0, 0), (0, 1, 0, 0), (0, 0, 1, 0), (10, 50, 0, 1)), ((1, 0, 0, 0), (0, 1, 0, 0), (0, 0, 1, 0), (10, 5, 0, 1)), ((1, 0, 0, 0), (0, 1, 0, 0), (0, 0, 1, 0), (0, 0, 0, 1))]
        uniform matrix4d[] restTransforms = [
            ( (1, 0, 0, 0), (0, 1, 0, 0), (0, 0, 1, 0), (0, 100, 0, 1) ),
            ( (0, 1, 0, 0), (-1, 0, 0, 0), (0, 0, 1, 0), (10, -50, 0, 1) ),
            ( (2, 0, 0, 0), (0, 2, 0, 0), (0, 0, 2, 0), (0, -45.5, 1e-1, 1) ),
            ( (1, 0, 0, 0), (0, 1, 0, 0), (0, 0, 1, 0), (3, 0, 0, 1) ),
        ]
        matrix4d[] restTransforms.timeSamples = { 0: [] }

        def Xform "Child" { uniform token[] joints = ["Nested"] }
    }
}
)usda";

} // namespace

TEST(UsdaSkeleton, ReadsJointsWithTheirRestTransforms)
{
    std::vector<Joint> joints;
    std::string error;
    ASSERT_TRUE(Zento::readUsdaSkeleton(kUsdaSkeleton, joints, &error)) << error;
    ASSERT_EQ(joints.size(), 4u);
    EXPECT_EQ(joints[0].name, "mixamorig:Hips");
    EXPECT_EQ(joints[1].name, "Left Leg");
    EXPECT_EQ(joints[2].name, "Foot");
    EXPECT_EQ(joints[3].name, "Prop");
    EXPECT_EQ(joints[0].parent, -1);
    EXPECT_EQ(joints[1].parent, 0);
    EXPECT_EQ(joints[2].parent, 1);
    EXPECT_EQ(joints[3].parent, -1);
    EXPECT_EQ(joints[2].id, 2);
    EXPECT_EQ(joints[1].translation, Imath::V3d(10, -50, 0));
    // The rows turn x to y: a quarter turn about z.
    Imath::V3d turned = Imath::V3d(1, 0, 0) * joints[1].rotation.toMatrix44();
    EXPECT_TRUE(turned.equalWithAbsError(Imath::V3d(0, 1, 0), 1e-12));
    EXPECT_EQ(joints[2].translation, Imath::V3d(0, -45.5, 0.1));
    EXPECT_TRUE(joints[2].scale.equalWithAbsError(Imath::V3d(2, 2, 2), 1e-12));

    TemporaryDirectory dir;
    dir.write("skel.usda", kUsdaSkeleton);
    const Skeleton skeleton = Zento::loadSkeleton(dir.file("skel.usda"), &error);
    ASSERT_EQ(skeleton.numJoints(), 4) << error;
    EXPECT_EQ(skeleton.rootIds(), (std::vector<unsigned short>{0, 3}));
    expectConsistentLinks(skeleton);
}

TEST(UsdaSkeleton, BindTransformsGiveTheLocalPoseWithoutRestTransforms)
{
    std::vector<Joint> joints;
    std::string error;
    // The rest list spans several lines: take it out whole.
    const size_t from = kUsdaSkeleton.find("        uniform matrix4d[] restTransforms");
    const size_t to = kUsdaSkeleton.find("        ]\n", from) + 10;
    ASSERT_TRUE(Zento::readUsdaSkeleton(kUsdaSkeleton.substr(0, from) + kUsdaSkeleton.substr(to), joints, &error))
        << error;
    ASSERT_EQ(joints.size(), 4u);
    // Bind transforms are in the skeleton's space: Left Leg at (10, 50) below Hips at (0, 100).
    EXPECT_EQ(joints[0].translation, Imath::V3d(0, 100, 0));
    EXPECT_EQ(joints[1].translation, Imath::V3d(10, -50, 0));
    EXPECT_TRUE(joints[2].translation.equalWithAbsError(Imath::V3d(0, -45, 0), 1e-12));
    EXPECT_EQ(joints[3].translation, Imath::V3d(0, 0, 0));
}

TEST(UsdaSkeleton, MalformedTextFailsWithAReason)
{
    const auto replaced = [](std::string text, const std::string& from, const std::string& to) {
        return text.replace(text.find(from), from.size(), to);
    };
    const std::map<std::string, std::string> cases{
        {"empty", ""},
        {"no skeleton", replaced(kUsdaSkeleton, "def Skeleton", "def Xform")},
        {"no joints", replaced(kUsdaSkeleton, "uniform token[] joints =", "uniform token[] names =")},
        {"open quote", replaced(kUsdaSkeleton, "\"mixamorig:Hips\",", "\"mixamorig:Hips,")},
        {"open list", replaced(kUsdaSkeleton, "'Prop',]", "'Prop',")},
        {"missing comma", replaced(kUsdaSkeleton, "\"mixamorig:Hips\", ", "\"mixamorig:Hips\" ")},
        {"not a number", replaced(kUsdaSkeleton, "(0, -45.5,", "(0, x,")},
        {"infinite", replaced(kUsdaSkeleton, "(0, -45.5,", "(0, inf,")},
        {"short row", replaced(kUsdaSkeleton, "(0, -45.5, 1e-1, 1)", "(0, -45.5, 1e-1)")},
        {"wrong count", replaced(kUsdaSkeleton, "'Prop',]", "'Prop', 'Extra']")},
        {"child first", replaced(kUsdaSkeleton, "[\"mixamorig:Hips\", \"mixamorig:Hips/Left Leg\"", "[\"mixamorig:Hips/Left Leg\", \"mixamorig:Hips\"")},
        {"twice", replaced(kUsdaSkeleton, "'Prop'", "\"mixamorig:Hips\"")},
        {"empty element", replaced(kUsdaSkeleton, "'Prop'", "'Prop//Toe'")},
        {"unclosed prim", kUsdaSkeleton.substr(0, kUsdaSkeleton.find("def Xform \"Child\""))},
        {"unclosed path", replaced(kUsdaSkeleton, "</Character/Skel>", "</Character/Skel")},
    };
    for (const auto& entry : cases) {
        std::vector<Joint> joints(1);
        std::string error;
        EXPECT_FALSE(Zento::readUsdaSkeleton(entry.second, joints, &error)) << entry.first;
        EXPECT_TRUE(joints.empty()) << entry.first;
        EXPECT_FALSE(error.empty()) << entry.first;
    }
}

TEST(UsdaSkeleton, EveryCutAndDamageOfTheTextIsSafe)
{
    // Every prefix, and a byte of every kind at every tenth place, must end
    // in a result or a reason, never in a crash or a hang.
    std::vector<Joint> joints;
    for (size_t length = 0; length < kUsdaSkeleton.size(); ++length) {
        std::string error;
        if (!Zento::readUsdaSkeleton(kUsdaSkeleton.substr(0, length), joints, &error)) {
            EXPECT_FALSE(error.empty()) << length;
        }
    }
    for (size_t at = 0; at < kUsdaSkeleton.size(); at += 10) {
        for (const char c : {'\0', '"', '\'', '[', ']', '(', ')', '{', '}', '@', '<', '#', ',', '\\', '\xff'}) {
            std::string damaged = kUsdaSkeleton;
            damaged[at] = c;
            std::string error;
            if (!Zento::readUsdaSkeleton(damaged, joints, &error)) {
                EXPECT_FALSE(error.empty()) << at << " " << c;
            }
        }
    }
}

TEST(ImporterProcess, AChildAnswersStopsOrIsStoppedAndTheNextFileStartsAnother)
{
    // The importer itself refuses a file that is not there, and is kept for the next file.
    TemporaryDirectory dir;
    Zento::ImporterProcess importer({ZENTO_IMPORTER}, std::chrono::seconds(60));
    Zento::ImporterProcess::Answer answer =
        importer.convert(Zento::kImporterMeshKind, dir.file("missing.fbx"), dir.file("out.geos"));
    EXPECT_EQ(answer.kind, Zento::ImporterProcess::Answer::Refused);
    EXPECT_NE(answer.detail.find(dir.file("missing.fbx")), std::string::npos) << answer.detail;
    const pid_t first = importer.pid();
    ASSERT_GT(first, 0);
    importer.convert(Zento::kImporterSkeletonKind, dir.file("missing.fbx"), dir.file("out.zentoskel"));
    EXPECT_EQ(importer.pid(), first) << "kept for the next file";
    ::kill(first, SIGKILL);
    ::waitpid(first, nullptr, 0);
    EXPECT_EQ(importer.convert(Zento::kImporterMeshKind, dir.file("missing.fbx"), dir.file("out.geos")).kind,
              Zento::ImporterProcess::Answer::Refused)
        << "a child that ended between two files is started anew";
    EXPECT_NE(importer.pid(), first);

    // Stand-ins for an importer that crashes, talks nonsense or hangs.
    const auto child = [](const std::string& script) {
        return std::make_unique<Zento::ImporterProcess>(std::vector<std::string>{"/bin/sh", "-c", script},
                                                        std::chrono::milliseconds(500));
    };
    answer = child("kill -ABRT $$")->convert(Zento::kImporterMeshKind, "in", "out");
    EXPECT_EQ(answer.kind, Zento::ImporterProcess::Answer::Stopped);
    EXPECT_EQ(answer.detail, ::strsignal(SIGABRT));
    EXPECT_EQ(child("echo nonsense >&3; exec sleep 30")->convert(Zento::kImporterMeshKind, "in", "out").kind,
              Zento::ImporterProcess::Answer::Stopped);
    const auto start = std::chrono::steady_clock::now();
    auto hanging = child("exec sleep 30");
    EXPECT_EQ(hanging->convert(Zento::kImporterMeshKind, "in", "out").kind, Zento::ImporterProcess::Answer::TimedOut);
    EXPECT_EQ(hanging->pid(), -1);
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(10)) << "killed at its time limit";
    answer = Zento::ImporterProcess({"/nonexistent/importer"}, std::chrono::milliseconds(500))
                 .convert(Zento::kImporterMeshKind, "in", "out");
    EXPECT_EQ(answer.kind, Zento::ImporterProcess::Answer::NotStarted);
    EXPECT_EQ(answer.detail, std::strerror(ENOENT));
}

TEST(ImporterProcess, ReadsEveryFormatThatAssimpReads)
{
    Assimp::Importer importer;
    std::string list;
    importer.GetExtensionList(list);
    std::set<std::string> assimp;
    for (size_t start = 0; start < list.size();) {
        const size_t end = std::min(list.find(';', start), list.size());
        assimp.insert(list.substr(start + 1, end - start - 1)); // "*.fbx" without its "*"
        start = end + 1;
    }
    const std::vector<std::string>& foreign = Zento::foreignExtensions();
    EXPECT_EQ(std::set<std::string>(foreign.begin(), foreign.end()), assimp);
    const std::vector<std::string> skeletons = Zento::skeletonExtensions();
    const std::vector<std::string> meshes = Zento::meshExtensions();
    for (const std::string ours : {".zentoskel", ".usda", ".usd", ".usdc"})
        EXPECT_NE(std::find(skeletons.begin(), skeletons.end(), ours), skeletons.end()) << ours;
    EXPECT_EQ(meshes.front(), ".geos");
    EXPECT_EQ(skeletons.size(), assimp.size() + 4);
    EXPECT_EQ(meshes.size(), assimp.size() + 1);
}
