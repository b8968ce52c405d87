// zento-rig as a crowd team runs it, the program end to end: building a
// ragdoll on a BVH skeleton with a 200,000-triangle skin against importing
// the same two files into a scene in this process (target: under 2 times),
// and the check of that ragdoll with its drop test (target: under 1 s).
// The skin is made here: a tube of quads around every bone of the skeleton,
// written as OBJ, which carries no skin weights, so each capsule is sized by
// the vertices nearest its bone. Prints one figure a line.

#include "CharacterImport.h"
#include "JointNode.h"
#include "ZentoSceneGraph.h"

#include <Imath/ImathVec.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <unistd.h>

namespace {

const std::string kSkeleton = "/usr/share/assimp/models/BVH/01_01.bvh";
constexpr int kTriangles = 200000;
constexpr int kSides = 24;
constexpr double kPi = 3.14159265358979323846;

double bestMilliseconds(int rounds, const std::function<void()>& work)
{
    double best = 1e300;
    for (int round = 0; round < rounds; ++round) {
        const auto start = std::chrono::steady_clock::now();
        work();
        const auto spent = std::chrono::steady_clock::now() - start;
        best = std::min(best, std::chrono::duration<double, std::milli>(spent).count());
    }
    return best;
}

// The bones of the skeleton in its bind pose, world space: parent joint to joint.
std::vector<std::pair<Imath::V3d, Imath::V3d>> bones(const std::string& skeleton)
{
    ZentoSceneGraph graph;
    CharacterImport::loadSkeleton(graph, skeleton);
    std::vector<std::pair<Imath::V3d, Imath::V3d>> segments;
    for (const auto& entry : graph.nodes) {
        const BaseNode& joint = *entry.second;
        if (joint.typeId() != JointNode::kTypeId || !joint.parent || joint.parent->typeId() != JointNode::kTypeId)
            continue;
        const Imath::V3d from = joint.parent->worldMatrix().translation();
        const Imath::V3d to = joint.worldMatrix().translation();
        if ((to - from).length() > 1e-6)
            segments.emplace_back(from, to);
    }
    return segments;
}

// Tubes of quads, as many as make kTriangles triangles, a fifth of its length thick.
void writeSkin(const std::vector<std::pair<Imath::V3d, Imath::V3d>>& segments, const std::string& file)
{
    std::ofstream out(file);
    const int rings = kTriangles / 2 / kSides / int(segments.size()) + 1;
    int base = 1;
    for (const auto& segment : segments) {
        const Imath::V3d axis = segment.second - segment.first;
        const double radius = 0.1 * axis.length();
        const Imath::V3d across = std::abs(axis.normalized().x) < 0.9 ? Imath::V3d(1, 0, 0) : Imath::V3d(0, 1, 0);
        const Imath::V3d side = across % axis;
        const Imath::V3d u = side.normalized();
        const Imath::V3d v = (axis % u).normalized();
        for (int ring = 0; ring <= rings; ++ring)
            for (int s = 0; s < kSides; ++s) {
                const double angle = 2.0 * kPi * s / kSides;
                const Imath::V3d p = segment.first + axis * (double(ring) / rings)
                    + (u * std::cos(angle) + v * std::sin(angle)) * radius;
                out << "v " << p.x << " " << p.y << " " << p.z << "\n";
            }
        for (int ring = 0; ring < rings; ++ring)
            for (int s = 0; s < kSides; ++s) {
                const int a = base + ring * kSides + s;
                const int b = base + ring * kSides + (s + 1) % kSides;
                out << "f " << a << " " << b << " " << b + kSides << " " << a + kSides << "\n";
            }
        base += (rings + 1) * kSides;
    }
}

int run(const std::string& arguments)
{
    return std::system((std::string(ZENTO_RIG) + " " + arguments + " >/dev/null 2>&1").c_str());
}

} // namespace

int main()
{
    const std::filesystem::path folder =
        std::filesystem::temp_directory_path() / ("zento-rig-bench-" + std::to_string(::getpid()));
    std::filesystem::create_directories(folder);
    const std::string skin = (folder / "skin.obj").string();
    const std::string scene = (folder / "walk.zento").string();
    writeSkin(bones(kSkeleton), skin);

    const double import = bestMilliseconds(5, [&] {
        ZentoSceneGraph graph;
        CharacterImport::loadSkeleton(graph, kSkeleton);
        CharacterImport::loadMesh(graph, skin);
    });
    int status = 0;
    const double build =
        bestMilliseconds(5, [&] { status |= run("build " + kSkeleton + " --skin " + skin + " -o " + scene); });
    const double check = bestMilliseconds(5, [&] { run("check " + scene); });
    const double checkAlone = bestMilliseconds(5, [&] { run("check --no-drop-test " + scene); });
    std::printf("rig_build_status %d\n", status);
    std::printf("import_skeleton_and_200k_skin_ms %.1f\n", import);
    std::printf("rig_build_with_200k_skin_ms %.1f\n", build);
    std::printf("rig_build_ratio_to_import %.2f\n", build / import);
    std::printf("rig_check_with_drop_test_ms %.1f\n", check);
    std::printf("rig_check_without_drop_test_ms %.1f\n", checkAlone);
    std::error_code ignored;
    std::filesystem::remove_all(folder, ignored);
    return status == 0 ? 0 : 1;
}
