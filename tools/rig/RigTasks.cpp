#include "RigTasks.h"

#include "Authoring.h"
#include "AutoRig.h"
#include "BaseCommand.h"
#include "CharacterImport.h"
#include "ConstraintNode.h"
#include "JointNode.h"
#include "MeshNode.h"
#include "RagdollCheck.h"
#include "RagdollFile.h"
#include "RigReport.h"
#include "RigidBodyNode.h"
#include "SceneFile.h"
#include "ZentoSceneGraph.h"

#include <algorithm>
#include <memory>

namespace RigTasks {

namespace {

Outcome failed(const std::string& reason)
{
    Outcome outcome;
    outcome.text = reason + "\n";
    return outcome;
}

std::string joined(const std::vector<std::string>& names)
{
    std::string text;
    for (const std::string& name : names)
        text += (text.empty() ? "" : ", ") + name;
    return text;
}

size_t countOf(const ZentoSceneGraph& graph, int typeId)
{
    size_t count = 0;
    for (const auto& entry : graph.nodes)
        count += entry.second->typeId() == typeId;
    return count;
}

// The bodies that a ragdoll file holds: those on joints.
size_t bodiesOnJoints(const ZentoSceneGraph& graph)
{
    size_t count = 0;
    for (const auto& entry : graph.nodes)
        count += entry.second->typeId() == RigidBodyNode::kTypeId && entry.second->parent
            && entry.second->parent->typeId() == JointNode::kTypeId;
    return count;
}

// The root joint that an import put below "/Skeleton": the first joint of its new paths.
std::string rootJoint(const ZentoSceneGraph& graph, const std::vector<std::string>& paths)
{
    for (const std::string& path : paths)
        if (const std::shared_ptr<BaseNode> node = graph.nodeByPath(ZentoCore::NodePath(path)))
            if (node->typeId() == JointNode::kTypeId)
                return path;
    return {};
}

// The mesh nodes among an import's new paths, each once: it names its groups
// too, some of which hold no mesh (a skinned file's armature).
std::vector<std::string> meshPaths(const ZentoSceneGraph& graph, const std::vector<std::string>& paths)
{
    std::vector<std::string> meshes;
    for (const std::string& path : paths) {
        const std::shared_ptr<BaseNode> node = graph.nodeByPath(ZentoCore::NodePath(path));
        if (node && node->typeId() == MeshNode::kTypeId
            && std::find(meshes.begin(), meshes.end(), path) == meshes.end())
            meshes.push_back(path);
    }
    return meshes;
}

// Imports the skeleton file: its root joint, or empty with the reason in error.
std::string importSkeleton(ZentoSceneGraph& graph, const std::string& file, std::string& error)
{
    const std::vector<std::string> paths = CharacterImport::loadSkeleton(graph, file, &error);
    const std::string root = rootJoint(graph, paths);
    if (root.empty() && error.empty())
        error = "\"" + file + "\" holds no joint";
    return root;
}

Outcome saved(const ZentoSceneGraph& graph, const std::string& output, const std::string& text)
{
    if (!SceneFile::save(graph, output))
        return failed("the scene cannot be written to \"" + output + "\"");
    Outcome outcome;
    outcome.done = true;
    outcome.text = text + " -> " + output + "\n";
    return outcome;
}

} // namespace

Outcome build(const std::string& skeleton, const std::string& skin, bool skinned, const std::string& output)
{
    ZentoSceneGraph graph;
    std::string error;
    const std::string root = importSkeleton(graph, skeleton, error);
    if (root.empty())
        return failed(error);
    std::vector<std::string> skinPaths;
    const std::string skinFile = skinned ? skeleton : skin;
    if (!skinFile.empty()) {
        skinPaths = meshPaths(graph, CharacterImport::loadMesh(graph, skinFile, &error));
        if (skinPaths.empty())
            return failed(error.empty() ? "\"" + skinFile + "\" holds no mesh to size the bodies" : error);
    }
    AutoRig::Result result;
    const std::shared_ptr<BaseCommand> command = AutoRig::build(graph, root, skinPaths, result, {}, &error);
    if (!command)
        return failed(error);
    command->execute();
    std::string text = RigReport::counted(result.bodies.size(), "body", "bodies") + ", "
        + RigReport::counted(result.constraints.size(), "constraint", "constraints") + ", "
        + RigReport::counted(result.mergedJoints.size(), "joint", "joints") + " merged; "
        + RigReport::fixed(result.skeletonHeight * result.sceneScale, 2) + " m tall at "
        + RigReport::fixed(result.sceneScale, 4) + " m a unit" + (skinPaths.empty() ? "" : ", sized by the skin");
    return saved(graph, output, text);
}

Outcome apply(const std::string& ragdoll, const std::string& skeleton, const std::string& output)
{
    ZentoSceneGraph graph;
    std::string error;
    const std::string root = importSkeleton(graph, skeleton, error);
    if (root.empty())
        return failed(error);
    RagdollFile::Unmatched unmatched;
    const std::vector<std::string> made = RagdollFile::loadRagdoll(graph, ragdoll, &error, &unmatched);
    if (made.empty())
        return failed(error);
    AutoRig::Result staged;
    const std::shared_ptr<BaseCommand> stage = AutoRig::stage(graph, root, staged, {}, &error);
    if (!stage)
        return failed(error);
    stage->execute();
    // The joints that would have a body of their own, and have none.
    std::vector<std::string> bare;
    for (const std::string& joint : AutoRig::bodyJoints(graph, root))
        if (!graph.nodeByPath(Authoring::bodyPath(ZentoCore::NodePath(joint))))
            bare.push_back(ZentoCore::NodePath(joint).name());
    std::string text = RigReport::counted(bodiesOnJoints(graph), "body", "bodies") + ", "
        + RigReport::counted(countOf(graph, ConstraintNode::kTypeId), "constraint", "constraints") + " applied";
    Outcome outcome = saved(graph, output, text);
    if (!unmatched.bodies.empty())
        outcome.text += "  bodies that matched no joint: " + joined(unmatched.bodies) + "\n";
    if (!unmatched.constraints.empty())
        outcome.text += "  constraints that found no joints or parent body: " + joined(unmatched.constraints) + "\n";
    if (!bare.empty())
        outcome.text += "  joints with a bone that matched no body: " + joined(bare) + "\n";
    return outcome;
}

Outcome check(const std::string& scene, bool dropTest)
{
    ZentoSceneGraph graph;
    std::string error;
    if (!SceneFile::load(graph, scene, &error)) {
        Outcome outcome = failed(error);
        outcome.json = RigReport::failure(scene, error);
        return outcome;
    }
    std::vector<RagdollCheck::Finding> findings = RagdollCheck::check(graph);
    RagdollCheck::DropTest test;
    if (dropTest) {
        test = RagdollCheck::dropTest(graph);
        const std::vector<RagdollCheck::Finding> more = RagdollCheck::findings(test);
        findings.insert(findings.end(), more.begin(), more.end());
    }
    Outcome outcome;
    outcome.done = true;
    outcome.foundError = RagdollCheck::hasError(findings);
    outcome.text = RigReport::text(findings, dropTest ? &test : nullptr);
    outcome.json = RigReport::json(scene, findings, dropTest ? &test : nullptr);
    return outcome;
}

Outcome exportRagdoll(const std::string& scene, const std::string& output)
{
    ZentoSceneGraph graph;
    std::string error;
    if (!SceneFile::load(graph, scene, &error))
        return failed(error);
    const size_t bodies = bodiesOnJoints(graph);
    if (bodies == 0)
        return failed("the scene holds no body on a joint: there is no ragdoll to export");
    if (!RagdollFile::exportRagdoll(graph, output))
        return failed("the ragdoll cannot be written to \"" + output + "\"");
    Outcome outcome;
    outcome.done = true;
    outcome.text = RigReport::counted(bodies, "body", "bodies") + " -> " + output + "\n";
    return outcome;
}

Outcome run(const RigOptions::Options& options, size_t index)
{
    using RigOptions::Command;
    const std::string& input = options.inputs[index];
    switch (options.command) {
    case Command::Build:
        return build(input, options.skins.empty() ? std::string() : options.skins[index], options.skinned,
                     RigOptions::outputFor(options, index));
    case Command::Apply:
        return apply(options.ragdoll, input, RigOptions::outputFor(options, index));
    case Command::Check:
        return check(input, options.dropTest);
    case Command::Export:
        return exportRagdoll(input, RigOptions::outputFor(options, index));
    case Command::Help:
        break;
    }
    return failed("nothing to do");
}

} // namespace RigTasks
