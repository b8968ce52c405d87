// Writes the seed corpora of the fuzzers of the readers above the archive:
// payloads of real scenes, ragdolls, skeletons and meshes, and a UsdSkel text.

#include "CharacterImport.h"
#include "ConstraintNode.h"
#include "MeshLoader.h"
#include "RagdollFile.h"
#include "RigidBodyNode.h"
#include "SceneFile.h"
#include "SceneState.h"
#include "SkeletonLoader.h"
#include "TemporaryDirectory.h"
#include "TestValues.h"

#include <gtest/gtest.h>

#include <fstream>
#include <sys/stat.h>

using namespace ZentoCore;

namespace {

const std::string kModels = "/usr/share/assimp/models/";

// A joint with a body and a constraint, named as FuzzSupport's skeleton is.
void addRagdollJoint(ZentoSceneGraph& graph, const std::string& path)
{
    const NodePath joint(path);
    addJoint(graph, path, Imath::V3d(0.0, 0.25, 0.0));
    auto body = std::make_shared<RigidBodyNode>(joint.appendChild(joint.name() + "_RB"));
    body->attributes.typedEntry<double>("mass")->set(2.5);
    graph.addNode(body, path);
    graph.addNode(std::make_shared<ConstraintNode>(joint.appendChild(joint.name() + "_RBC")), path);
}

std::string corpus(const std::string& name)
{
    const std::string folder = std::string(ZENTO_FUZZ_CORPUS_DIR) + "/" + name;
    ::mkdir(ZENTO_FUZZ_CORPUS_DIR, 0755);
    ::mkdir(folder.c_str(), 0755);
    return folder;
}

void writeSeed(const std::string& name, const std::string& seed, const std::string& file)
{
    const MapMetadata map = readArchive(file);
    ASSERT_FALSE(map.empty()) << file;
    writeBytes(corpus(name) + "/" + seed, payloadOf(map));
}

} // namespace

TEST(ReaderFuzzSeeds, WriteCorpora)
{
    TemporaryDirectory dir;
    ZentoSceneGraph graph;
    graph.createSolver();
    addJoint(graph, "/Skeleton", Imath::V3d(0, 0, 0));
    for (const char* joint : {"/Skeleton/Hips", "/Skeleton/Hips/Spine", "/Skeleton/Hips/Spine/Neck", "/Skeleton/Hips/Leg"})
        addRagdollJoint(graph, joint);
    ASSERT_TRUE(RagdollFile::exportRagdoll(graph, dir.file("doll.zentoragdoll")));
    writeSeed("ragdoll", "doll", dir.file("doll.zentoragdoll"));
    ASSERT_FALSE(CharacterImport::loadMesh(graph, kModels + "glTF2/simple_skin/simple_skin.gltf").empty());
    graph.createGround();
    ASSERT_TRUE(SceneFile::save(graph, dir.file("scene.zento")));
    writeSeed("scene", "ragdoll", dir.file("scene.zento"));

    for (const std::string model : {"BVH/01_01.bvh", "X/BCN_Epileptic.X", "glTF2/simple_skin/simple_skin.gltf"}) {
        const std::string seed = model.substr(0, model.find('/'));
        ASSERT_TRUE(Zento::saveSkeleton(Zento::loadSkeleton(kModels + model), dir.file(seed + ".zentoskel")));
        writeSeed("skeleton", seed, dir.file(seed + ".zentoskel"));
    }
    for (const std::string model : {"FBX/huesitos.fbx", "glTF2/simple_skin/simple_skin.gltf", "OBJ/box.obj"}) {
        const std::string seed = model.substr(0, model.find('/'));
        ASSERT_TRUE(Zento::saveMesh(*Zento::loadMesh(kModels + model), dir.file(seed + ".geos")));
        writeSeed("mesh", seed, dir.file(seed + ".geos"));
    }
    std::ofstream(corpus("usda") + "/skeleton") << R"usda(#usda 1.0
def SkelRoot "Character"
{
    def Skeleton "Skel" (customData = { token[] joints = ["Other"] })
    {
        uniform token[] joints = ["Hips", "Hips/Spine", "Hips/Spine/Neck", "Hips/Leg"]
        uniform matrix4d[] bindTransforms = [((1, 0, 0, 0), (0, 1, 0, 0), (0, 0, 1, 0), (0, 1, 0, 1)), ((1, 0, 0, 0), (0, 1, 0, 0), (0, 0, 1, 0), (0, 1.25, 0, 1)), ((1, 0, 0, 0), (0, 1, 0, 0), (0, 0, 1, 0), (0, 1.5, 0, 1)), ((1, 0, 0, 0), (0, 1, 0, 0), (0, 0, 1, 0), (0.1, 0.5, 0, 1))]
        uniform matrix4d[] restTransforms = [((1, 0, 0, 0), (0, 1, 0, 0), (0, 0, 1, 0), (0, 1, 0, 1)), ((0, 1, 0, 0), (-1, 0, 0, 0), (0, 0, 1, 0), (0, 0.25, 0, 1)), ((2, 0, 0, 0), (0, 2, 0, 0), (0, 0, 2, 0), (0, 0.25, 0, 1)), ((1, 0, 0, 0), (0, 1, 0, 0), (0, 0, 1, 0), (0.1, -0.5, 0, 1))]
    }
}
)usda";
}
