#include "ConstraintNode.h"
#include "RigOptions.h"
#include "RigWorkers.h"
#include "RigidBodyNode.h"
#include "SceneFile.h"
#include "SceneState.h"
#include "SkeletonLoader.h"
#include "SolverNode.h"
#include "TemporaryDirectory.h"
#include "ZentoSceneGraph.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <gtest/gtest.h>

#include <csignal>
#include <cstdlib>
#include <sys/wait.h>
#include <unistd.h>

namespace {

const std::string kWalk = "/usr/share/assimp/models/BVH/01_01.bvh";
const std::string kRun = "/usr/share/assimp/models/BVH/01_03.bvh";
const std::string kSkinned = "/usr/share/assimp/models/FBX/huesitos.fbx";

struct RigRun {
    int status = -1;
    std::string out;
    std::string err;
};

// The program with the arguments, as a shell runs it, its output caught in dir.
RigRun runRig(const TemporaryDirectory& dir, const std::string& arguments)
{
    const std::string command = std::string(ZENTO_RIG) + " " + arguments + " >" + dir.file("out.txt") + " 2>"
        + dir.file("err.txt");
    const int status = std::system(command.c_str());
    RigRun run;
    run.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    run.out = dir.read("out.txt");
    run.err = dir.read("err.txt");
    return run;
}

// The skeleton of file with every joint's name after the namespace, as another tool's exporter writes it.
void writeNamespacedSkeleton(const std::string& file, const std::string& ns, const std::string& to)
{
    std::string error;
    ZentoCore::Skeleton skeleton = Zento::loadSkeleton(file, &error);
    ASSERT_FALSE(skeleton.joints().empty()) << error;
    std::vector<ZentoCore::Joint> joints = skeleton.joints();
    for (ZentoCore::Joint& joint : joints)
        joint.name = ns + joint.name;
    ASSERT_TRUE(skeleton.setJoints(joints));
    ASSERT_TRUE(Zento::saveSkeleton(skeleton, to, &error)) << error;
}

} // namespace

TEST(RigOptions, RequestsAndTheArgumentsThatMakeNone)
{
    RigOptions::Options options;
    std::string error;
    ASSERT_TRUE(RigOptions::parse({"build", "a.bvh", "b.bvh", "--skinned", "-j3", "-o", "out"}, options, error));
    EXPECT_EQ(options.command, RigOptions::Command::Build);
    EXPECT_EQ(options.inputs, (std::vector<std::string>{"a.bvh", "b.bvh"}));
    EXPECT_EQ(options.jobs, 3);
    EXPECT_TRUE(options.skinned);
    EXPECT_EQ(RigOptions::outputFor(options, 1), "out/b.zento") << "several inputs: -o is a folder";

    ASSERT_TRUE(RigOptions::parse({"apply", "doll.zentoragdoll", "x/man.fbx", "-o", "man.zento"}, options, error));
    EXPECT_EQ(options.ragdoll, "doll.zentoragdoll");
    EXPECT_EQ(options.inputs, std::vector<std::string>{"x/man.fbx"});
    EXPECT_EQ(RigOptions::outputFor(options, 0), "man.zento") << "one input: -o is the file";
    ASSERT_TRUE(RigOptions::parse({"apply", "doll.zentoragdoll", "x/man.fbx", "-o", "out/"}, options, error));
    EXPECT_EQ(RigOptions::outputFor(options, 0), "out/man.zento") << "unless it ends in a slash";

    ASSERT_TRUE(RigOptions::parse({"export", "a/walk.zento", "b/run.zento", "-o", "dolls"}, options, error));
    EXPECT_EQ(RigOptions::outputFor(options, 0), "dolls/walk.zentoragdoll");
    ASSERT_TRUE(RigOptions::parse({"check", "x.zento", "--json", "--no-drop-test"}, options, error));
    EXPECT_TRUE(options.json);
    EXPECT_FALSE(options.dropTest);
    EXPECT_GE(options.jobs, 1) << "the number of cores by default";
    for (const std::vector<std::string>& help : {std::vector<std::string>{}, {"--help"}, {"check", "-h"}}) {
        ASSERT_TRUE(RigOptions::parse(help, options, error));
        EXPECT_EQ(options.command, RigOptions::Command::Help);
    }

    const std::vector<std::vector<std::string>> refused = {
        {"rig", "a.bvh"},                                      // no such command
        {"build", "-o", "x.zento"},                            // no input
        {"build", "a.bvh"},                                    // no output
        {"check", "a.zento", "-o", "x"},                       // check writes nothing
        {"build", "a.bvh", "b.bvh", "--skin", "m.fbx", "-o", "d"}, // one skin for two skeletons
        {"build", "a.bvh", "--skin", "m.fbx", "--skinned", "-o", "d"},
        {"export", "a.zento", "--json", "-o", "d"},
        {"check", "a.zento", "-j", "0"},
        {"check", "a.zento", "-j", "many"},
        {"check", "a.zento", "-j"},
        {"check", "a.zento", "--frobnicate"},
        {"apply", "doll.zentoragdoll", "-o", "x"},              // no skeleton
        {"build", "a/walk.bvh", "b/walk.bvh", "-o", "d"},      // both would write d/walk.zento
    };
    for (const std::vector<std::string>& arguments : refused) {
        error.clear();
        EXPECT_FALSE(RigOptions::parse(arguments, options, error)) << arguments.front();
        EXPECT_FALSE(error.empty());
    }
}

TEST(RigWorkers, AnInputThatCrashesFailsAloneAndOutcomesKeepTheirOrder)
{
    for (int jobs : {1, 3}) {
        std::vector<size_t> ended;
        const auto outcomes = RigWorkers::runAll(
            5, jobs,
            [](size_t index) {
                if (index == 1)
                    ::kill(::getpid(), SIGKILL);
                if (index == 3)
                    ::_exit(7);
                RigTasks::Outcome outcome;
                outcome.done = true;
                outcome.foundError = index == 4;
                outcome.text = std::string(70000 + index, 'a' + char(index)); // more than a pipe holds
                return outcome;
            },
            [&](size_t count, size_t index, const RigTasks::Outcome&) {
                EXPECT_EQ(count, ended.size() + 1);
                ended.push_back(index);
            });
        ASSERT_EQ(outcomes.size(), 5u);
        EXPECT_EQ(ended.size(), 5u);
        for (size_t i : {0u, 2u, 4u}) {
            EXPECT_TRUE(outcomes[i].done) << i;
            EXPECT_EQ(outcomes[i].text, std::string(70000 + i, 'a' + char(i)));
        }
        EXPECT_TRUE(outcomes[4].foundError);
        EXPECT_FALSE(outcomes[1].done);
        EXPECT_NE(outcomes[1].text.find("Killed"), std::string::npos) << outcomes[1].text;
        EXPECT_FALSE(outcomes[3].done);
        EXPECT_NE(outcomes[3].text.find("exit code 7"), std::string::npos) << outcomes[3].text;
    }
}

TEST(RigTool, BuildCheckExportAndApplyUnderANamespace)
{
    TemporaryDirectory dir;
    RigRun build = runRig(dir, "build " + kWalk + " -o " + dir.file("walk.zento"));
    ASSERT_EQ(build.status, 0) << build.out << build.err;
    EXPECT_NE(build.out.find("walk.zento"), std::string::npos) << build.out;

    // Its own check and drop test find no error.
    RigRun check = runRig(dir, "check " + dir.file("walk.zento") + " --json");
    ASSERT_EQ(check.status, 0) << check.out << check.err;
    const QJsonArray reports = QJsonDocument::fromJson(QByteArray::fromStdString(check.out)).array();
    ASSERT_EQ(reports.size(), 1);
    const QJsonObject report = reports[0].toObject();
    EXPECT_EQ(report["errors"].toInt(), 0) << check.out;
    const QJsonObject drop = report["dropTest"].toObject();
    EXPECT_TRUE(drop["finite"].toBool());
    EXPECT_GE(drop["secondsToRest"].toDouble(-1.0), 0.0) << "comes to rest within the test";
    EXPECT_LT(drop["worstSeparation"].toDouble(), 0.02);

    RigRun exported = runRig(dir, "export " + dir.file("walk.zento") + " -o " + dir.file("walk.zentoragdoll"));
    ASSERT_EQ(exported.status, 0) << exported.err;

    // The same skeleton as another tool names it: every body comes back, nothing is left over.
    writeNamespacedSkeleton(kWalk, "mixamorig:", dir.file("walk.zentoskel"));
    RigRun apply = runRig(dir, "apply " + dir.file("walk.zentoragdoll") + " " + dir.file("walk.zentoskel") + " -o "
                           + dir.file("applied.zento"));
    ASSERT_EQ(apply.status, 0) << apply.out << apply.err;
    EXPECT_EQ(apply.out.find("matched no"), std::string::npos) << apply.out;
    EXPECT_EQ(apply.out.find("found no"), std::string::npos) << apply.out;
    ZentoSceneGraph built, applied;
    ASSERT_TRUE(SceneFile::load(built, dir.file("walk.zento")));
    ASSERT_TRUE(SceneFile::load(applied, dir.file("applied.zento")));
    for (int type : {RigidBodyNode::kTypeId, ConstraintNode::kTypeId}) {
        const std::vector<std::string> before = pathsOfType(built, type);
        const std::vector<std::string> after = pathsOfType(applied, type);
        ASSERT_EQ(before.size(), after.size());
        for (size_t i = 0; i < before.size(); ++i) {
            const auto old = built.node(before[i]);
            const auto back = applied.node(after[i]);
            if (!old->parent) {
                // The ground, under the bodies as build puts it, give or take the facets of their drawn shapes.
                EXPECT_NEAR(old->translation.y, back->translation.y, 0.05) << before[i];
                continue;
            }
            EXPECT_TRUE(old->worldMatrix().equalWithAbsError(back->worldMatrix(), 1e-4)) << before[i];
            EXPECT_EQ("mixamorig:" + old->parent->path.name(), back->parent->path.name());
        }
    }
    EXPECT_DOUBLE_EQ(built.solver()->attributes.typedEntry<double>("sceneScale")->get(),
                     applied.solver()->attributes.typedEntry<double>("sceneScale")->get());
    RigRun again = runRig(dir, "check " + dir.file("applied.zento") + " --no-drop-test");
    EXPECT_EQ(again.status, 0) << again.out;
}

TEST(RigTool, ASkinnedCharacterPassesItsOwnCheck)
{
    TemporaryDirectory dir;
    RigRun build = runRig(dir, "build " + kSkinned + " --skinned -o " + dir.file("bones.zento"));
    ASSERT_EQ(build.status, 0) << build.out << build.err;
    EXPECT_NE(build.out.find("sized by the skin"), std::string::npos) << build.out;
    RigRun check = runRig(dir, "check " + dir.file("bones.zento"));
    EXPECT_EQ(check.status, 0) << check.out << check.err;
    EXPECT_NE(check.out.find("0 errors"), std::string::npos) << check.out;
}

TEST(RigTool, ABadInputAmongGoodOnesFailsAlone)
{
    TemporaryDirectory dir;
    dir.write("broken.bvh", "HIERARCHY\nROOT Hips\n{\n\tOFFSET 0 0 nonsense\n");
    RigRun build = runRig(dir, "build " + kWalk + " " + dir.file("broken.bvh") + " " + kRun + " -j 2 -o " + dir.path());
    EXPECT_EQ(build.status, 1);
    EXPECT_NE(build.err.find("broken.bvh"), std::string::npos) << build.err;
    EXPECT_NE(build.err.find("[3/3]"), std::string::npos) << "a progress line for each input: " << build.err;
    // The results of several inputs go into the -o folder, made when missing.
    RigRun into = runRig(dir, "export " + dir.file("01_01.zento") + " " + dir.file("01_03.zento") + " -o "
                              + dir.file("dolls/of/today"));
    EXPECT_EQ(into.status, 0) << into.err;
    EXPECT_FALSE(readFileBytes(dir.file("dolls/of/today/01_03.zentoragdoll")).empty());
    dir.write("taken", "a file where the folder should be");
    RigRun blocked = runRig(dir, "export " + dir.file("01_01.zento") + " " + dir.file("01_03.zento") + " -o "
                                 + dir.file("taken/x"));
    EXPECT_EQ(blocked.status, 1);
    EXPECT_NE(blocked.err.find("cannot be made"), std::string::npos) << blocked.err;
    const std::vector<std::string> entries = dir.entries();
    EXPECT_NE(std::find(entries.begin(), entries.end(), "01_01.zento"), entries.end());
    EXPECT_NE(std::find(entries.begin(), entries.end(), "01_03.zento"), entries.end());
    EXPECT_EQ(std::find(entries.begin(), entries.end(), "broken.zento"), entries.end());

    dir.write("broken.zento", "ZNTA but not a scene");
    RigRun check = runRig(dir, "check " + dir.file("01_01.zento") + " " + dir.file("broken.zento") + " "
                           + dir.file("01_03.zento") + " --json --no-drop-test");
    EXPECT_EQ(check.status, 1);
    const QJsonArray reports = QJsonDocument::fromJson(QByteArray::fromStdString(check.out)).array();
    ASSERT_EQ(reports.size(), 3) << check.out;
    EXPECT_EQ(reports[0].toObject()["errors"].toInt(-1), 0);
    EXPECT_FALSE(reports[1].toObject()["error"].toString().isEmpty()) << "the corrupt scene says why";
    EXPECT_EQ(reports[2].toObject()["errors"].toInt(-1), 0);

    RigRun usage = runRig(dir, "check");
    EXPECT_EQ(usage.status, 2);
    EXPECT_NE(usage.err.find("--help"), std::string::npos);
    RigRun help = runRig(dir, "--help");
    EXPECT_EQ(help.status, 0);
    EXPECT_NE(help.out.find("zento-rig build"), std::string::npos);
}
