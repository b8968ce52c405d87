// Importing foreign files through the importer program in a child process
// (Zento::loadMesh and Zento::loadSkeleton, and the whole mesh import into a
// scene) against Assimp's own ReadFile of the same file with the same
// settings, in this process and the same run, taken in turns: for a generated
// 200,000-triangle OBJ and for the largest skinned file among Assimp's test
// models. The ratios are the cost of asking the child, converting into our
// own format and reading that back; the target is at most 1.5. Then saving
// and loading the imported scene as a scene file, in MB/s, and the import of
// deep chains of joints and of a skeleton with 16,000 siblings of one name.
// Prints one figure a line.

#include "CharacterImport.h"
#include "ImporterProcess.h"
#include "MeshLoader.h"
#include "SceneFile.h"
#include "SkeletonLoader.h"
#include "ZentoSceneGraph.h"

#include <assimp/Importer.hpp>
#include <assimp/config.h>
#include <assimp/scene.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <unistd.h>

namespace {

double milliseconds(const std::function<void()>& work)
{
    const auto start = std::chrono::steady_clock::now();
    work();
    return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
}

// The best time of each piece of work, taken in turns, so that a change of
// load on the machine falls on all of them alike.
std::vector<double> bestMilliseconds(int rounds, const std::vector<std::function<void()>>& works)
{
    std::vector<double> best(works.size(), 1e300);
    for (int round = 0; round < rounds; ++round)
        for (size_t i = 0; i < works.size(); ++i)
            best[i] = std::min(best[i], milliseconds(works[i]));
    return best;
}

// Assimp as the importer reads: pivots folded, no post-processing.
const aiScene* readWithAssimp(Assimp::Importer& importer, const std::string& file)
{
    importer.SetPropertyBool(AI_CONFIG_IMPORT_FBX_PRESERVE_PIVOTS, false);
    return importer.ReadFile(file, 0);
}

// The largest file of a format the importer reads whose meshes have bones;
// the models that test Assimp's handling of broken files are left out.
std::string largestSkinned(const std::string& folder)
{
    std::vector<std::pair<std::uintmax_t, std::string>> files;
    const std::vector<std::string>& foreign = Zento::foreignExtensions();
    for (const auto& entry : std::filesystem::recursive_directory_iterator(folder)) {
        std::string extension = entry.path().extension().string();
        std::transform(extension.begin(), extension.end(), extension.begin(), ::tolower);
        if (entry.is_regular_file() && entry.path().string().find("/invalid/") == std::string::npos
            && std::find(foreign.begin(), foreign.end(), extension) != foreign.end())
            files.emplace_back(entry.file_size(), entry.path().string());
    }
    std::sort(files.rbegin(), files.rend());
    for (const auto& file : files) {
        Assimp::Importer importer;
        if (const aiScene* scene = readWithAssimp(importer, file.second))
            for (unsigned int m = 0; m < scene->mNumMeshes; ++m)
                if (scene->mMeshes[m]->mNumBones > 0)
                    return file.second;
    }
    return std::string();
}

// A grid of 400 by 250 cells, two triangles each.
void writeGridObj(const std::string& file)
{
    constexpr int columns = 400;
    constexpr int rows = 250;
    std::ofstream out(file);
    for (int r = 0; r <= rows; ++r)
        for (int c = 0; c <= columns; ++c)
            out << "v " << c * 0.01 << ' ' << r * 0.01 << ' ' << ((r * 7 + c * 3) % 11) * 0.001 << '\n';
    const auto index = [](int r, int c) { return r * (columns + 1) + c + 1; };
    for (int r = 0; r < rows; ++r)
        for (int c = 0; c < columns; ++c) {
            out << "f " << index(r, c) << ' ' << index(r, c + 1) << ' ' << index(r + 1, c + 1) << '\n';
            out << "f " << index(r, c) << ' ' << index(r + 1, c + 1) << ' ' << index(r + 1, c) << '\n';
        }
}

int countTriangles(const ZentoCore::MapMetadata& tree)
{
    int triangles = 0;
    if (const auto geo = tree.typedEntry<ZentoUtils::Mesh>(Zento::kMeshGeoKey))
        for (int count : geo->get().counts)
            triangles += count - 2;
    if (const auto children = tree.typedEntryAs<ZentoCore::MapMetadata>(Zento::kMeshChildrenKey))
        for (const auto& child : *children)
            if (child.second && child.second->typeId() == ZentoCore::MapMetadata::staticTypeId())
                triangles += countTriangles(static_cast<const ZentoCore::MapMetadata&>(*child.second));
    return triangles;
}

void compare(const std::string& label, const std::string& file, const std::string& folder, int rounds)
{
    std::string error;
    const auto tree = Zento::loadMesh(file, "*", &error);
    if (tree->empty()) {
        std::printf("%s: %s\n", label.c_str(), error.c_str());
        return;
    }
    const std::vector<double> best = bestMilliseconds(
        rounds, {[&] {
                     Assimp::Importer importer;
                     readWithAssimp(importer, file);
                 },
                 [&] { Zento::loadMesh(file); },
                 [&] {
                     ZentoSceneGraph graph;
                     CharacterImport::loadMesh(graph, file);
                 },
                 [&] { Zento::loadSkeleton(file); }});
    const double assimp = best[0];
    std::printf("%s file: %s\n", label.c_str(), file.c_str());
    std::printf("%s triangles: %d\n", label.c_str(), countTriangles(*tree));
    std::printf("%s joints: %d\n", label.c_str(), Zento::loadSkeleton(file).numJoints());
    std::printf("%s Assimp ReadFile: %.2f ms\n", label.c_str(), assimp);
    std::printf("%s Zento::loadMesh (child process): %.2f ms\n", label.c_str(), best[1]);
    std::printf("%s loadMesh / ReadFile: %.3f\n", label.c_str(), best[1] / assimp);
    std::printf("%s loadMesh + addNodes: %.2f ms\n", label.c_str(), best[2]);
    std::printf("%s (loadMesh + addNodes) / ReadFile: %.3f\n", label.c_str(), best[2] / assimp);
    std::printf("%s Zento::loadSkeleton (child process): %.2f ms\n", label.c_str(), best[3]);
    std::printf("%s loadSkeleton / ReadFile: %.3f\n", label.c_str(), best[3] / assimp);

    ZentoSceneGraph graph;
    CharacterImport::loadMesh(graph, file);
    const std::string scene = folder + "/bench.zento";
    const std::vector<double> sceneTimes = bestMilliseconds(rounds, {[&] { SceneFile::save(graph, scene); },
                                                                 [&] {
                                                                     ZentoSceneGraph loaded;
                                                                     SceneFile::load(loaded, scene);
                                                                 }});
    const double save = sceneTimes[0];
    const double load = sceneTimes[1];
    const double megabytes = std::filesystem::file_size(scene) / 1e6;
    std::printf("%s scene file: %.2f MB\n", label.c_str(), megabytes);
    std::printf("%s saveScene: %.2f ms, %.0f MB/s\n", label.c_str(), save, megabytes / save * 1e3);
    std::printf("%s loadScene: %.2f ms, %.0f MB/s\n", label.c_str(), load, megabytes / load * 1e3);
}

// Joints with the given parent indices, all named name and a step apart.
void saveSkeleton(const std::vector<int>& parents, const std::string& name, const std::string& file)
{
    std::vector<ZentoCore::Joint> joints(parents.size());
    for (size_t i = 0; i < joints.size(); ++i) {
        joints[i].name = name;
        joints[i].parent = parents[i];
        joints[i].translation = Imath::V3d(0.0, 0.5, 0.0);
    }
    ZentoCore::Skeleton skeleton;
    if (!skeleton.setJoints(std::move(joints)) || !Zento::saveSkeleton(skeleton, file))
        std::printf("%s: cannot be written\n", file.c_str());
}

void importSkeleton(const std::string& label, const std::string& file)
{
    size_t nodes = 0;
    std::string error;
    const double time = bestMilliseconds(3, {[&] {
                                             ZentoSceneGraph graph;
                                             CharacterImport::loadSkeleton(graph, file, &error);
                                             nodes = graph.nodes.size();
                                         }})
                            .front();
    std::printf("%s: %zu nodes in %.1f ms%s%s\n", label.c_str(), nodes, time, nodes ? "" : ", refused: ",
                nodes ? "" : error.c_str());
}

} // namespace

int main()
{
    char pattern[] = "/tmp/zento-loader-bench-XXXXXX";
    if (!::mkdtemp(pattern))
        return 1;
    const std::string obj = std::string(pattern) + "/grid.obj";
    writeGridObj(obj);
    compare("200k-triangle OBJ", obj, pattern, 9);
    compare("largest skinned file", largestSkinned("/usr/share/assimp/models"), pattern, 9);

    // The longest chain a skeleton file holds is read, and refused by the
    // scene as too deep; the deepest that the scene holds is 2,043 joints.
    std::vector<int> chain(ZentoCore::Skeleton::kMaxJoints);
    for (size_t i = 0; i < chain.size(); ++i)
        chain[i] = static_cast<int>(i) - 1;
    saveSkeleton(chain, "j", std::string(pattern) + "/longest.zentoskel");
    chain.resize(2043);
    saveSkeleton(chain, "j", std::string(pattern) + "/deep.zentoskel");
    std::vector<int> wide(16001, 0);
    wide[0] = -1;
    saveSkeleton(wide, "Leaf", std::string(pattern) + "/wide.zentoskel");
    importSkeleton("65,535-joint chain", std::string(pattern) + "/longest.zentoskel");
    importSkeleton("2,043-joint chain", std::string(pattern) + "/deep.zentoskel");
    importSkeleton("16,000 siblings of one name", std::string(pattern) + "/wide.zentoskel");
    std::filesystem::remove_all(pattern);
    return 0;
}
