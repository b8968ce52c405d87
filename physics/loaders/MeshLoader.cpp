#include "MeshLoader.h"

#include "ImporterProcess.h"
#include "LoaderFiles.h"
#include "MathUtils.h"

namespace Zento {

namespace {

using ZentoCore::MapMetadata;
using ZentoUtils::Mesh;

// The local matrix of a node of the tree, as the scene will build it: scale,
// rotation, translation, each the identity when missing.
Imath::M44d localMatrix(const MapMetadata& tree)
{
    Imath::M44d local;
    if (const auto scale = tree.typedEntry<Imath::V3d>(kMeshScaleKey))
        local.setScale(scale->get());
    Imath::Quatd unit;
    if (const auto rotation = tree.typedEntry<Imath::Quatd>(kMeshRotationKey))
        if (ZentoCore::unitQuaternion(rotation->get(), unit))
            local *= unit.toMatrix44();
    if (const auto translation = tree.typedEntry<Imath::V3d>(kMeshTranslationKey)) {
        Imath::M44d moving;
        moving.setTranslation(translation->get());
        local *= moving;
    }
    return local;
}

// Why a tree could not be read back or held by a scene: an invalid mesh, too
// deep a nesting, a number that is not finite or a world matrix that
// overflows; the empty text when it can. Recursive to kMaxMeshDepth levels.
std::string treeProblem(const MapMetadata& tree, int level, const Imath::M44d& parentWorld, const std::string& name)
{
    const std::string named = name.empty() ? std::string("the file's top") : "the node \"" + name + "\"";
    const auto children = tree.typedEntryAs<MapMetadata>(kMeshChildrenKey);
    // Every value is finite: the node's own here, its children's below, and
    // whatever else the tree holds, which the scene keeps with the mesh.
    for (const auto& entry : tree)
        if (entry.second && entry.second != children && !entry.second->isFinite())
            return named + " holds a number that is not finite";
    Imath::Quatd unit;
    const auto rotation = tree.typedEntry<Imath::Quatd>(kMeshRotationKey);
    if (rotation && !ZentoCore::unitQuaternion(rotation->get(), unit))
        return named + " has a rotation that is no rotation: its quaternion is zero";
    const Imath::M44d world = localMatrix(tree) * parentWorld;
    if (!ZentoCore::isFinite(world))
        return named + " lies too far away: its world matrix overflows";
    const auto geo = tree.typedEntry<Mesh>(kMeshGeoKey);
    if (geo && !geo->get().isValid())
        return named + " holds a mesh whose faces do not fit its points";
    if (!children)
        return std::string();
    if (level >= kMaxMeshDepth && !children->empty())
        return "its nodes nest deeper than " + std::to_string(kMaxMeshDepth) + " levels";
    for (const auto& child : *children) {
        if (!child.second)
            continue;
        if (child.second->typeId() != MapMetadata::staticTypeId()) {
            if (!child.second->isFinite())
                return "the child \"" + child.first + "\" of " + named + " holds a number that is not finite";
            continue;
        }
        const std::string problem =
            treeProblem(static_cast<const MapMetadata&>(*child.second), level + 1, world, child.first);
        if (!problem.empty())
            return problem;
    }
    return std::string();
}

// Matches name against a pattern where "*" is any run and "?" any one character.
bool matchesFilter(const std::string& name, const std::string& filter)
{
    size_t n = 0;
    size_t f = 0;
    size_t starF = std::string::npos;
    size_t starN = 0;
    while (n < name.size()) {
        if (f < filter.size() && (filter[f] == '?' || filter[f] == name[n])) {
            ++n;
            ++f;
        } else if (f < filter.size() && filter[f] == '*') {
            starF = f++;
            starN = n;
        } else if (starF != std::string::npos) {
            f = starF + 1;
            n = ++starN;
        } else {
            return false;
        }
    }
    while (f < filter.size() && filter[f] == '*')
        ++f;
    return f == filter.size();
}

void applyFilter(MapMetadata& tree, const std::string& filter)
{
    const auto children = tree.typedEntryAs<MapMetadata>(kMeshChildrenKey);
    if (!children)
        return;
    for (const auto& child : *children) {
        if (!child.second || child.second->typeId() != MapMetadata::staticTypeId())
            continue;
        auto& node = static_cast<MapMetadata&>(*child.second);
        if (!matchesFilter(child.first, filter))
            node.removeEntry(kMeshGeoKey);
        applyFilter(node, filter);
    }
}

} // namespace

std::vector<std::string> meshExtensions()
{
    std::vector<std::string> extensions = {kMeshExtension};
    extensions.insert(extensions.end(), foreignExtensions().begin(), foreignExtensions().end());
    return extensions;
}

std::shared_ptr<MapMetadata> loadMesh(const std::string& file, const std::string& filter, std::string* error)
{
    auto tree = std::make_shared<MapMetadata>();
    bool loaded = false;
    const auto readOwn = [&](const std::string& own, std::string* reason) {
        if (!readArchiveMap(own, *tree, reason))
            return false;
        const std::string problem = meshTreeProblem(*tree);
        if (!problem.empty())
            setError(reason, cannotRead(own, problem));
        return problem.empty();
    };
    if (fileExtension(file) == kMeshExtension)
        loaded = readOwn(file, error);
    else
        loaded = importForeign(file, ForeignKind::Mesh, readOwn, error);
    if (!loaded)
        tree->clear();
    else
        applyFilter(*tree, filter);
    return tree;
}

std::string meshTreeProblem(const MapMetadata& tree)
{
    return treeProblem(tree, 0, Imath::M44d(), std::string());
}

bool saveMesh(const MapMetadata& tree, const std::string& file, std::string* error, ZentoCore::Archive::Sync sync)
{
    const std::string problem = meshTreeProblem(tree);
    if (!problem.empty()) {
        setError(error, "Cannot save \"" + file + "\": " + problem);
        return false;
    }
    return writeArchiveMap(tree, file, error, sync);
}

} // namespace Zento
