#include "ArrayMetadata.h"
#include "ConstraintNode.h"
#include "JointNode.h"
#include "RagdollFile.h"
#include "RigidBodyConstraintAttributes.h"
#include "RigidBodyNode.h"
#include "SceneFile.h"
#include "SceneState.h"
#include "SolverNode.h"
#include "TemporaryDirectory.h"
#include "TestValues.h"

#include <gtest/gtest.h>

#include <functional>
#include <limits>

using namespace ZentoCore;
using Zento::RigidBodyConstraintAttributes;

namespace {

// A skeleton with odd names, a skin, bodies and constraints with changed
// attributes, a hidden body, an inactive joint and a ground.
void buildScene(ZentoSceneGraph& graph)
{
    graph.createSolver();
    graph.node("/Solver")->attributes.typedEntry<int>("subSamples")->set(4);
    auto root = addJoint(graph, "/Skeleton", Imath::V3d(0, 1, 0));
    root->active = false;
    addJoint(graph, "/Skeleton/mixamorig:Hips", Imath::V3d(0, 0.9, 0))->rotation =
        Imath::Eulerd(0.1, -0.2, 0.3, Imath::Eulerd::ZYX);
    addJoint(graph, "/Skeleton/mixamorig:Hips/Left Leg", Imath::V3d(0.2, -0.4, 0));
    addJoint(graph, "/Skeleton/mixamorig:Hips/Left Leg/Foot", Imath::V3d(0, -0.4, 0.1));

    auto body = std::make_shared<RigidBodyNode>(NodePath("/Skeleton/mixamorig:Hips/Left Leg/Left Leg_RB"));
    body->attributes.typedEntry<double>("mass")->set(7.5);
    body->attributes.typedEntry<Imath::V3d>("dimension")->set(Imath::V3d(0.1, 0.25, 0.1));
    body->pivot = Imath::V3d(0, 0.2, 0);
    body->visible = false;
    body->color = RigidBodyNode::kColor;
    graph.addNode(body, "/Skeleton/mixamorig:Hips/Left Leg");

    auto constraint = std::make_shared<ConstraintNode>(NodePath("/Skeleton/mixamorig:Hips/Left Leg/Left Leg_RBC"));
    constraint->attributes.typedEntry<int>("constraintType")->set(RigidBodyConstraintAttributes::D6);
    constraint->attributes.typedEntry<double>("driveSlerp_stiffness")->set(250.0);
    constraint->rotation = Imath::Eulerd(0.0, 1.0, 0.5, Imath::Eulerd::YXZ);
    graph.addNode(constraint, "/Skeleton/mixamorig:Hips/Left Leg");

    addQuadSkin(graph);
    graph.createGround();
}

} // namespace

TEST(SceneFile, EveryNodeFieldAndAttributeRoundTrips)
{
    TemporaryDirectory dir;
    ZentoSceneGraph saved;
    buildScene(saved);
    const std::string file = dir.file("scene.zento");
    ASSERT_TRUE(SceneFile::save(saved, file));

    ZentoSceneGraph loaded;
    addJoint(loaded, "/Old", Imath::V3d(1, 1, 1));
    loaded.setSelection({"/Old"});
    ASSERT_TRUE(SceneFile::load(loaded, file));
    expectSameScene(capture(saved), capture(loaded), "loaded", false, 0.0);
    EXPECT_EQ(loaded.node("/Old"), nullptr) << "the old scene is replaced";

    const auto body = loaded.node("/Skeleton/mixamorig:Hips/Left Leg/Left Leg_RB");
    EXPECT_FALSE(loaded.delegate().GetVisible(body->path)) << "a hidden body stays hidden";

    // A hidden joint hides its branch in the viewport, after a load as before it.
    saved.node("/Skeleton/mixamorig:Hips/Left Leg")->visible = false;
    saved.updateVisibility(NodePath("/Skeleton/mixamorig:Hips/Left Leg"));
    ASSERT_TRUE(SceneFile::save(saved, file));
    ASSERT_TRUE(SceneFile::load(loaded, file));
    EXPECT_FALSE(loaded.delegate().GetVisible(NodePath("/Skeleton/mixamorig:Hips/Left Leg/Foot")));
    const auto hips = loaded.node("/Skeleton/mixamorig:Hips");
    EXPECT_EQ(hips->rotation.order(), Imath::Eulerd::ZYX);
    EXPECT_EQ(hips->parent, loaded.node("/Skeleton").get());
    const auto solver = loaded.node("/Solver");
    EXPECT_FALSE(solver->active);
    // Hints are the constructor's, never the file's.
    EXPECT_NE(body->attributeHints.getEntry("__list__"), nullptr);
}

TEST(SceneFile, UnknownTypesAreDroppedAndTheirChildrenStay)
{
    TemporaryDirectory dir;
    ZentoSceneGraph graph;
    buildScene(graph);
    ASSERT_TRUE(SceneFile::save(graph, dir.file("scene.zento")));
    MapMetadata top = readArchive(dir.file("scene.zento"));
    constexpr int kUnusedTypeId = 2; // between the joint's and the mesh's, given to no class
    top.typedEntryAs<MapMetadata>("/Skeleton/mixamorig:Hips/Left Leg")->typedEntry<int>("typeId")->set(kUnusedTypeId);
    top.typedEntry<int>("version")->set(top.typedEntry<int>("version")->get() + 1);
    top.typedEntryAs<MapMetadata>("/Solver")->removeEntry("translation");
    ASSERT_TRUE(writeArchive(top, dir.file("edited.zento")));

    ZentoSceneGraph loaded;
    ASSERT_TRUE(SceneFile::load(loaded, dir.file("edited.zento")));
    EXPECT_EQ(loaded.node("/Skeleton/mixamorig:Hips/Left Leg"), nullptr);
    const auto foot = loaded.node("/Skeleton/mixamorig:Hips/Left Leg/Foot");
    ASSERT_NE(foot, nullptr);
    EXPECT_EQ(foot->parent, nullptr) << "its parent is gone: it stands at the top";
    EXPECT_EQ(loaded.node("/Solver")->translation, Imath::V3d(0, 0, 0)) << "a missing key keeps the default";
}

TEST(SceneFile, ABadFileLeavesTheSceneExactlyAsItWas)
{
    TemporaryDirectory dir;
    ZentoSceneGraph graph;
    buildScene(graph);
    EXPECT_FALSE(SceneFile::save(graph, dir.file("missing/good.zento"))) << "the archive's refusal is passed on";
    ASSERT_TRUE(SceneFile::save(graph, dir.file("good.zento")));
    ASSERT_TRUE(RagdollFile::exportRagdoll(graph, dir.file("ragdoll.zentoragdoll")));
    const std::string good = dir.read("good.zento");
    dir.write("truncated.zento", good.substr(0, good.size() / 2));
    std::string corrupted = good;
    corrupted[corrupted.size() / 2] ^= 0x01;
    dir.write("corrupted.zento", corrupted);
    dir.write("text.zento", "not a scene\n");
    dir.write("empty.zento", "");

    graph.setSelection({"/Skeleton"});
    const SceneState before = capture(graph);
    for (const char* name : {"truncated.zento", "corrupted.zento", "text.zento", "empty.zento", "missing.zento",
                             "ragdoll.zentoragdoll", ""}) {
        EXPECT_FALSE(SceneFile::load(graph, name[0] ? dir.file(name) : dir.path())) << name;
        expectSameScene(before, capture(graph), name, true, 0.0);
    }
}

TEST(SceneFile, AFileThatNoSceneCanHoldIsRefusedWithTheSceneIntact)
{
    TemporaryDirectory dir;
    ZentoSceneGraph graph;
    buildScene(graph);
    ASSERT_TRUE(SceneFile::save(graph, dir.file("scene.zento")));
    const MapMetadata good = readArchive(dir.file("scene.zento"));
    const std::string leg = "/Skeleton/mixamorig:Hips/Left Leg";
    const std::string body = leg + "/Left Leg_RB";
    const auto entryOf = [](MapMetadata& top, const std::string& path) { return top.typedEntryAs<MapMetadata>(path); };
    const double nan = std::numeric_limits<double>::quiet_NaN();
    const double inf = std::numeric_limits<double>::infinity();
    // Each edit with a word the message must hold.
    const std::vector<std::pair<std::function<void(MapMetadata&)>, std::string>> edits = {
        {[&](MapMetadata& top) { entryOf(top, leg)->set("translation", Imath::V3d(nan, 0, 0)); }, "not finite"},
        {[&](MapMetadata& top) {
             entryOf(top, body)->typedEntryAs<MapMetadata>("attributes")->set("dimension", Imath::V3d(0.1, inf, 0.1));
         }, "not finite"},
        {[&](MapMetadata& top) { entryOf(top, "/Skin/Body")->typedEntryAs<MapMetadata>("mesh")
                                     ->typedEntry<ZentoUtils::Mesh>("geo")->get().points[2].y = float(inf); },
         "not finite"},
        {[&](MapMetadata& top) { entryOf(top, leg)->set("parent", leg); }, "parent"},
        {[&](MapMetadata& top) { entryOf(top, "/Skeleton/mixamorig:Hips")->set("parent", leg); }, "parent"},
        {[&](MapMetadata& top) { entryOf(top, leg)->set("parent", std::string("/Skin")); }, "parent"},
        {[&](MapMetadata& top) {
             top.insertEntry("/Solver", std::make_shared<MapMetadata>(*entryOf(top, body)));
             entryOf(top, "/Solver")->set("parent", std::string());
         }, "solver"},
        // Finite scales whose product is not: the world matrix of the foot overflows.
        {[&](MapMetadata& top) {
             entryOf(top, leg)->set("scale", Imath::V3d(1e200, 1, 1));
             entryOf(top, leg + "/Foot")->set("scale", Imath::V3d(1e200, 1, 1));
         }, "overflows"},
    };
    graph.setSelection({body});
    const SceneState before = capture(graph);
    for (size_t i = 0; i < edits.size(); ++i) {
        MapMetadata top = good;
        edits[i].first(top);
        const std::string file = dir.file("edit" + std::to_string(i) + ".zento");
        ASSERT_TRUE(writeArchive(top, file));
        std::string error;
        EXPECT_FALSE(SceneFile::load(graph, file, &error)) << i;
        EXPECT_NE(error.find(file), std::string::npos) << error;
        EXPECT_NE(error.find(edits[i].second), std::string::npos) << error;
        expectSameScene(before, capture(graph), "after edit " + std::to_string(i), true, 0.0);
    }
    // The scene goes on: a new scene, and the good file, load as ever.
    graph.removeNodes(graph.nodePaths());
    EXPECT_TRUE(SceneFile::load(graph, dir.file("scene.zento")));
    EXPECT_EQ(graph.node("/Solver")->typeId(), SolverNode::kTypeId);
}
