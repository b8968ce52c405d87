// Importing meshes: Zento::loadMesh, and the whole import into a scene
// (loadMesh and addNode of every mesh node), against Assimp's own ReadFile of
// the same file with the same settings, in the same run, for the largest FBX
// among Assimp's test models and for a generated 200,000-triangle OBJ.
// loadMesh reads the file through Assimp too, so the ratios are the cost of
// turning Assimp's scene into our mesh tree and nodes. Then saving and loading
// that scene as a scene file, in MB/s. Prints one figure a line.

#include "CharacterImport.h"
#include "LoaderFiles.h"
#include "MeshLoader.h"
#include "SceneFile.h"
#include "ZentoSceneGraph.h"

#include <assimp/Importer.hpp>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <unistd.h>

namespace {

double bestMilliseconds(int rounds, const std::function<void()>& work)
{
    double best = 1e300;
    for (int round = 0; round < rounds; ++round) {
        const auto start = std::chrono::steady_clock::now();
        work();
        best = std::min(best, std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count());
    }
    return best;
}

std::string largestFbx(const std::string& folder)
{
    std::string largest;
    std::uintmax_t largestSize = 0;
    std::error_code error;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(folder, error)) {
        std::string extension = entry.path().extension().string();
        std::transform(extension.begin(), extension.end(), extension.begin(), ::tolower);
        if (entry.is_regular_file() && extension == ".fbx" && entry.file_size() > largestSize) {
            largest = entry.path().string();
            largestSize = entry.file_size();
        }
    }
    return largest;
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
    const double assimp = bestMilliseconds(rounds, [&] {
        Assimp::Importer importer;
        Zento::importScene(importer, file, nullptr);
    });
    const double ours = bestMilliseconds(rounds, [&] { Zento::loadMesh(file); });
    const double imported = bestMilliseconds(rounds, [&] {
        ZentoSceneGraph graph;
        CharacterImport::loadMesh(graph, file);
    });
    std::printf("%s file: %s\n", label.c_str(), file.c_str());
    std::printf("%s triangles: %d\n", label.c_str(), countTriangles(*tree));
    std::printf("%s Assimp ReadFile: %.2f ms\n", label.c_str(), assimp);
    std::printf("%s Zento::loadMesh: %.2f ms\n", label.c_str(), ours);
    std::printf("%s loadMesh / ReadFile: %.3f\n", label.c_str(), ours / assimp);
    std::printf("%s loadMesh + addNode: %.2f ms\n", label.c_str(), imported);
    std::printf("%s (loadMesh + addNode) / ReadFile: %.3f\n", label.c_str(), imported / assimp);

    ZentoSceneGraph graph;
    CharacterImport::loadMesh(graph, file);
    const std::string scene = folder + "/bench.zento";
    const double save = bestMilliseconds(rounds, [&] { SceneFile::save(graph, scene); });
    const double megabytes = std::filesystem::file_size(scene) / 1e6;
    const double load = bestMilliseconds(rounds, [&] {
        ZentoSceneGraph loaded;
        if (!SceneFile::load(loaded, scene))
            std::printf("%s: the saved scene does not load\n", label.c_str());
    });
    std::printf("%s scene file: %.2f MB\n", label.c_str(), megabytes);
    std::printf("%s saveScene: %.2f ms, %.0f MB/s\n", label.c_str(), save, megabytes / save * 1e3);
    std::printf("%s loadScene: %.2f ms, %.0f MB/s\n", label.c_str(), load, megabytes / load * 1e3);
}

} // namespace

int main()
{
    char pattern[] = "/tmp/zento-loader-bench-XXXXXX";
    if (!::mkdtemp(pattern))
        return 1;
    compare("largest FBX", largestFbx("/usr/share/assimp/models"), pattern, 9);

    const std::string obj = std::string(pattern) + "/grid.obj";
    writeGridObj(obj);
    compare("200k-triangle OBJ", obj, pattern, 5);
    std::filesystem::remove_all(pattern);
    return 0;
}
