// Writes and reads an archive holding one mesh of 1,000,000 points with its
// indices, against a raw fwrite/fread of the same bytes in the same run.
// Prints one figure a line.
//
// Each round runs in a child process of its own, so that every round fills
// fresh memory, as a program that opens a file does, and no round inherits
// memory that an earlier one faulted in. A figure is the best of the rounds.

#include "Archive.h"
#include "MapMetadata.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <functional>
#include <string>
#include <sys/wait.h>
#include <unistd.h>

using namespace ZentoCore;

namespace {

ZentoUtils::Mesh makeGrid(int side)
{
    ZentoUtils::Mesh mesh;
    mesh.points.reserve(size_t(side) * side);
    for (int y = 0; y < side; ++y)
        for (int x = 0; x < side; ++x)
            mesh.points.emplace_back(float(x), float(y), float((x * 7 + y * 13) % 5));
    for (int y = 0; y + 1 < side; ++y) {
        for (int x = 0; x + 1 < side; ++x) {
            const int corner = y * side + x;
            mesh.indices.insert(mesh.indices.end(), {corner, corner + 1, corner + side + 1, corner + side});
            mesh.counts.push_back(4);
        }
    }
    return mesh;
}

// work returns false on failure; the round then reports a negative time.
double secondsInChild(const std::function<bool()>& work)
{
    int channel[2];
    if (::pipe(channel) != 0)
        return -1.0;
    const pid_t child = ::fork();
    if (child == 0) {
        ::close(channel[0]);
        const auto start = std::chrono::steady_clock::now();
        const bool ok = work();
        const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        const double result = ok ? seconds : -1.0;
        const bool sent = ::write(channel[1], &result, sizeof(result)) == sizeof(result);
        ::_exit(sent ? 0 : 1);
    }
    ::close(channel[1]);
    double result = -1.0;
    if (::read(channel[0], &result, sizeof(result)) != sizeof(result))
        result = -1.0;
    ::close(channel[0]);
    int status = 0;
    ::waitpid(child, &status, 0);
    return result;
}

double bestSeconds(int rounds, const std::function<bool()>& work)
{
    double best = 1e30;
    for (int i = 0; i < rounds; ++i) {
        const double seconds = secondsInChild(work);
        if (seconds < 0.0)
            return -1.0;
        best = std::min(best, seconds);
    }
    return best;
}

template <typename T>
bool rawWrite(std::FILE* file, const std::vector<T>& values)
{
    const uint64_t count = values.size();
    return std::fwrite(&count, sizeof(count), 1, file) == 1
        && std::fwrite(values.data(), sizeof(T), values.size(), file) == values.size();
}

template <typename T>
bool rawRead(std::FILE* file, std::vector<T>& values)
{
    uint64_t count = 0;
    if (std::fread(&count, sizeof(count), 1, file) != 1)
        return false;
    values.resize(count);
    return std::fread(values.data(), sizeof(T), count, file) == count;
}

} // namespace

int main()
{
    const int rounds = 7;
    const std::string archivePath = "bench-mesh.archive";
    const std::string rawPath = "bench-mesh.raw";
    MapMetadata map;
    auto mesh = std::make_shared<MetadataImpl<ZentoUtils::Mesh>>(makeGrid(1000));
    map.insertEntry("geo", mesh);
    const ZentoUtils::Mesh& source = mesh->get();

    // The same durability for both: the bytes are on disk when the write returns.
    const double rawWriteTime = bestSeconds(rounds, [&] {
        std::FILE* file = std::fopen(rawPath.c_str(), "wb");
        if (!file)
            return false;
        const bool ok = rawWrite(file, source.points) && rawWrite(file, source.normals)
            && rawWrite(file, source.indices) && rawWrite(file, source.counts) && rawWrite(file, source.uvs)
            && std::fflush(file) == 0 && ::fsync(fileno(file)) == 0;
        return std::fclose(file) == 0 && ok;
    });
    const double archiveWriteTime = bestSeconds(rounds, [&] {
        Archive archive(map.memSize(), 0);
        archive << map;
        return archive.good() && archive.writeToFile(archivePath);
    });

    const double rawReadTime = bestSeconds(rounds, [&] {
        ZentoUtils::Mesh read;
        std::FILE* file = std::fopen(rawPath.c_str(), "rb");
        if (!file)
            return false;
        const bool ok = rawRead(file, read.points) && rawRead(file, read.normals) && rawRead(file, read.indices)
            && rawRead(file, read.counts) && rawRead(file, read.uvs);
        std::fclose(file);
        return ok && read.points.size() == source.points.size();
    });
    const double archiveReadTime = bestSeconds(rounds, [&] {
        Archive archive;
        MapMetadata read;
        if (!archive.readFromFile(archivePath))
            return false;
        archive >> read;
        const auto geo = read.typedEntry<ZentoUtils::Mesh>("geo");
        return archive.good() && geo && geo->get().points.size() == source.points.size();
    });

    Archive sized(map.memSize(), 0);
    sized << map;
    const double megabytes = sized.size() / 1e6;
    std::remove(archivePath.c_str());
    std::remove(rawPath.c_str());
    if (rawWriteTime < 0 || archiveWriteTime < 0 || rawReadTime < 0 || archiveReadTime < 0) {
        std::fprintf(stderr, "a round failed\n");
        return 1;
    }

    std::printf("mesh_points %zu\n", source.points.size());
    std::printf("archive_megabytes %.1f\n", megabytes);
    std::printf("archive_write_MBps %.0f\n", megabytes / archiveWriteTime);
    std::printf("raw_fwrite_MBps %.0f\n", megabytes / rawWriteTime);
    std::printf("write_ratio %.2f\n", archiveWriteTime / rawWriteTime);
    std::printf("archive_read_MBps %.0f\n", megabytes / archiveReadTime);
    std::printf("raw_fread_MBps %.0f\n", megabytes / rawReadTime);
    std::printf("read_ratio %.2f\n", archiveReadTime / rawReadTime);
    return 0;
}
