// Checked-in files of both formats, written once from the scene built below
// and checked by hand (keys, values, the ragdoll's crossed pose). A key that
// is renamed on both the writing and the reading side still round-trips, but
// no longer reads these files. Run with ZENTO_WRITE_GOLDEN=1 to write them
// anew after a deliberate change of format, and check the new files by hand.

#include "ConstraintNode.h"
#include "RagdollFile.h"
#include "RigidBodyConstraintAttributes.h"
#include "RigidBodyNode.h"
#include "SceneFile.h"
#include "SceneState.h"
#include "SolverNode.h"
#include "TemporaryDirectory.h"
#include "TypedArrayMetadata.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>

using ZentoCore::MapMetadata;
using ZentoCore::NodePath;
using Zento::RigidBodyAttributes;
using Zento::RigidBodyConstraintAttributes;

namespace {

const std::string kGoldenScene = std::string(ZENTO_GOLDEN_DIR) + "/scene.zento";
const std::string kGoldenRagdoll = std::string(ZENTO_GOLDEN_DIR) + "/ragdoll.zentoragdoll";

template <typename T>
void change(BaseNode& node, const std::string& key, const T& value)
{
    const auto entry = node.attributes.typedEntry<T>(key);
    ASSERT_NE(entry, nullptr) << key;
    entry->set(value);
}

void addBody(ZentoSceneGraph& graph, const std::string& joint, const Imath::V3d& dimension, double mass)
{
    const NodePath jointPath(joint);
    auto body = std::make_shared<RigidBodyNode>(jointPath.appendChild(jointPath.name() + "_RB"));
    body->translation = Imath::V3d(0.0, dimension.y, 0.0);
    body->rotation = Imath::Eulerd(0.0, 0.0, M_PI / 2, Imath::Eulerd::XYZ);
    body->color = RigidBodyNode::kColor;
    change(*body, "dimension", dimension);
    change(*body, "useMass", true);
    change(*body, "mass", mass);
    change(*body, "linearDamping", 0.25);
    graph.addNode(body, joint);
}

void addConstraint(ZentoSceneGraph& graph, const std::string& joint)
{
    const NodePath jointPath(joint);
    auto constraint = std::make_shared<ConstraintNode>(jointPath.appendChild(jointPath.name() + "_RBC"));
    constraint->rotation = Imath::Eulerd(0.0, 0.0, M_PI / 2, Imath::Eulerd::XYZ);
    constraint->color = ConstraintNode::kColor;
    change(*constraint, "constraintType", int(RigidBodyConstraintAttributes::D6));
    change(*constraint, "twistLimit", Imath::V3d(-30.0, 45.0, 0.0));
    change(*constraint, "swingLimit", Imath::V3d(40.0, 20.0, 0.0));
    change(*constraint, "driveSlerp_stiffness", 250.0);
    change(*constraint, "driveSlerp_enable", true);
    graph.addNode(constraint, joint);
}

// Hips with a spine and a leg, a body on each, constraints on the spine and
// the leg, a one-quad skin, a ground and a solver with two settings changed.
void buildGoldenScene(ZentoSceneGraph& graph)
{
    graph.createSolver();
    change(*graph.node("/Solver"), "subSamples", 4);
    change(*graph.node("/Solver"), "solverType", 1);
    addJoint(graph, "/Skeleton", Imath::V3d(0, 0, 0));
    addJoint(graph, "/Skeleton/Hips", Imath::V3d(0, 1, 0), Imath::Eulerd(0.0, 0.5, 0.0, Imath::Eulerd::ZYX));
    addJoint(graph, "/Skeleton/Hips/Spine", Imath::V3d(0, 0.25, 0));
    addJoint(graph, "/Skeleton/Hips/Leg", Imath::V3d(0.1, -0.1, 0))->visible = false;
    addBody(graph, "/Skeleton/Hips", Imath::V3d(0.12, 0.05, 0.12), 10.0);
    addBody(graph, "/Skeleton/Hips/Spine", Imath::V3d(0.1, 0.12, 0.1), 8.5);
    addBody(graph, "/Skeleton/Hips/Leg", Imath::V3d(0.06, 0.2, 0.06), 4.0);
    addConstraint(graph, "/Skeleton/Hips/Spine");
    addConstraint(graph, "/Skeleton/Hips/Leg");

    addQuadSkin(graph);
    graph.createGround();
}

// The file just written must be the golden one byte for byte.
void expectGolden(const std::string& written, const std::string& golden)
{
    const std::string bytes = readFileBytes(written);
    ASSERT_FALSE(bytes.empty()) << written;
    if (std::getenv("ZENTO_WRITE_GOLDEN")) {
        std::ofstream(golden, std::ios::binary) << bytes;
        GTEST_SKIP() << "wrote " << golden;
    }
    EXPECT_TRUE(bytes == readFileBytes(golden)) << "the format written differs from " << golden;
}

// The scene with each node's attributes cut down to those its editor lists:
// a body also keeps the pose keys of its record, which an import fills with
// the file's pose (as the runtime reads it) and nothing reads back.
SceneState listedState(const ZentoSceneGraph& graph)
{
    SceneState state = capture(graph);
    for (auto& entry : state.nodes) {
        const auto list = entry.second.object->attributeHints.typedEntryAs<ZentoCore::TypedArrayMetadata<std::string>>("__list__");
        MapMetadata listed;
        for (const std::string& key : list ? list->get() : std::vector<std::string>())
            if (const auto value = entry.second.attributes.getEntry(key))
                listed.insertEntry(key, value);
        entry.second.attributes = listed;
    }
    return state;
}

} // namespace

TEST(GoldenFiles, TheSceneFileIsWrittenAndReadAsTheCheckedInOne)
{
    ZentoSceneGraph built;
    buildGoldenScene(built);
    TemporaryDirectory dir;
    ASSERT_TRUE(SceneFile::save(built, dir.file("scene.zento")));
    expectGolden(dir.file("scene.zento"), kGoldenScene);

    ZentoSceneGraph loaded;
    ASSERT_TRUE(SceneFile::load(loaded, kGoldenScene));
    expectSameScene(capture(built), capture(loaded), "golden scene", false, 0.0);
}

TEST(GoldenFiles, TheRagdollFileIsWrittenAndAppliedAsTheCheckedInOne)
{
    ZentoSceneGraph built;
    buildGoldenScene(built);
    TemporaryDirectory dir;
    ASSERT_TRUE(RagdollFile::exportRagdoll(built, dir.file("ragdoll.zentoragdoll")));
    expectGolden(dir.file("ragdoll.zentoragdoll"), kGoldenRagdoll);

    // The same skeleton without its ragdoll takes the golden one back.
    ZentoSceneGraph applied;
    buildGoldenScene(applied);
    std::vector<std::string> ragdoll;
    for (const auto& entry : applied.nodes)
        if (entry.second->parent && (entry.second->typeId() == RigidBodyNode::kTypeId ||
                                     entry.second->typeId() == ConstraintNode::kTypeId))
            ragdoll.push_back(entry.first.string());
    ASSERT_EQ(ragdoll.size(), 5u);
    applied.removeNodes(ragdoll);
    EXPECT_EQ(RagdollFile::loadRagdoll(applied, kGoldenRagdoll).size(), ragdoll.size());
    // The file holds single precision and matrices in other frames.
    expectSameScene(listedState(built), listedState(applied), "golden ragdoll", false, 1e-6);
}
