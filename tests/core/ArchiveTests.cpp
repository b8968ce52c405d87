#include "Archive.h"
#include "TemporaryDirectory.h"
#include "TestValues.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <csignal>
#include <fstream>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

using namespace ZentoCore;

namespace {

std::vector<unsigned char> readBytes(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    return std::vector<unsigned char>(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

// Reads a bare payload; the map must be empty whenever the read fails.
bool readPayload(const std::vector<unsigned char>& bytes, MapMetadata& map)
{
    Archive archive;
    archive.assignPayload(bytes.data(), bytes.size());
    archive >> map;
    if (!archive.good()) {
        EXPECT_TRUE(map.empty());
    }
    return archive.good();
}

void appendU32(std::vector<unsigned char>& bytes, uint32_t value)
{
    for (int i = 0; i < 4; ++i)
        bytes.push_back(static_cast<unsigned char>(value >> (8 * i)));
}

void appendU64(std::vector<unsigned char>& bytes, uint64_t value)
{
    for (int i = 0; i < 8; ++i)
        bytes.push_back(static_cast<unsigned char>(value >> (8 * i)));
}

// A chain of maps, each the only entry "m" of its parent.
std::vector<unsigned char> nestedMapsPayload(int depth)
{
    std::vector<unsigned char> bytes;
    for (int level = 0; level < depth; ++level) {
        appendU32(bytes, kMapTypeId);
        appendU64(bytes, level + 1 < depth ? 1 : 0);
        if (level + 1 < depth) {
            appendU64(bytes, 1);
            bytes.push_back('m');
        }
    }
    return bytes;
}

} // namespace

TEST(Archive, EveryValueTypeRoundTripsThroughAFileWithTypeAndExactValue)
{
    TemporaryDirectory dir;
    MapMetadata written = makeMapOfEveryType();
    MapMetadata nested = makeNestedMap();
    written.addEntry("nested", &nested);
    constexpr double kInfinity = std::numeric_limits<double>::infinity();
    MetadataImpl<Imath::V3d> nonFinite(Imath::V3d(std::numeric_limits<double>::quiet_NaN(), kInfinity, -kInfinity));
    written.addEntry("nonFinite", &nonFinite);
    MetadataImpl<ZentoUtils::Mesh> emptyMesh;
    written.addEntry("emptyMesh", &emptyMesh);
    Archive out(written.memSize(), 0);
    out << written;
    EXPECT_LE(out.size(), written.memSize()) << "memSize is an upper bound";
    ASSERT_TRUE(out.writeToFile(dir.file("values.zento")));

    Archive in;
    ASSERT_TRUE(in.readFromFile(dir.file("values.zento")));
    MapMetadata read;
    in >> read;
    ASSERT_TRUE(in.good());
    ASSERT_EQ(read.getKeys(), written.getKeys());
    for (const auto& entry : written) {
        const auto readValue = read.getEntry(entry.first);
        ASSERT_NE(readValue, nullptr) << entry.first;
        EXPECT_EQ(readValue->typeId(), entry.second->typeId()) << entry.first;
        EXPECT_TRUE(readValue->isEqual(entry.second.get(), 0.0)) << entry.first << ": " << readValue->toString();
    }
    EXPECT_EQ(read.typedEntry<std::string>("string")->get().size(), 27u) << "embedded NUL kept";
    EXPECT_EQ(read.typedEntry<Imath::Eulerd>("Eulerd")->get().order(), Imath::Eulerd::ZXY);
    EXPECT_TRUE(std::signbit(read.typedEntry<Imath::V3d>("V3d")->get().y)) << "-0.0 kept";
    EXPECT_TRUE(std::isnan(read.typedEntry<Imath::V3d>("nonFinite")->get().x));
    EXPECT_EQ(read.typedEntry<Imath::V3d>("nonFinite")->get().z, -kInfinity);

    // Reading replaces what the map held: an empty map leaves nothing.
    ASSERT_TRUE(readPayload(payloadOf(MapMetadata()), read));
    EXPECT_TRUE(read.empty());
}

TEST(ArchiveHostileInput, EveryTruncationOfAValidFileFails)
{
    const MapMetadata map = makeMapOfEveryType();
    TemporaryDirectory dir;
    ASSERT_TRUE(writeArchive(map, dir.file("whole")));
    const std::vector<unsigned char> file = readBytes(dir.file("whole"));
    const std::vector<unsigned char> payload = payloadOf(map);

    for (size_t length = 0; length < file.size(); ++length) {
        Archive archive;
        EXPECT_FALSE(archive.readFromBytes(file.data(), length)) << length;
    }
    // Past the checksum, the parser itself must notice every missing byte.
    for (size_t length = 0; length < payload.size(); ++length) {
        std::vector<unsigned char> truncated(payload.begin(), payload.begin() + static_cast<long>(length));
        MapMetadata read;
        EXPECT_FALSE(readPayload(truncated, read)) << length;
    }
    writeBytes(dir.file("truncated"), std::vector<unsigned char>(file.begin(), file.end() - 1));
    Archive fromFile;
    EXPECT_FALSE(fromFile.readFromFile(dir.file("truncated")));
}

TEST(ArchiveHostileInput, AnyChangedByteOfAFileIsRefused)
{
    const MapMetadata map = makeMapOfEveryType();
    TemporaryDirectory dir;
    ASSERT_TRUE(writeArchive(map, dir.file("whole")));
    const std::vector<unsigned char> file = readBytes(dir.file("whole"));
    for (size_t i = 0; i < file.size(); ++i) {
        std::vector<unsigned char> corrupted = file;
        corrupted[i] ^= 0x10;
        Archive archive;
        EXPECT_FALSE(archive.readFromBytes(corrupted.data(), corrupted.size())) << i;
    }
}

TEST(ArchiveHostileInput, HugeLengthsFailWithoutAllocating)
{
    for (uint64_t huge : {uint64_t(1) << 62, ~uint64_t(0), uint64_t(1) << 31}) {
        // A map claiming huge entries.
        std::vector<unsigned char> map;
        appendU32(map, kMapTypeId);
        appendU64(map, huge);
        MapMetadata read;
        EXPECT_FALSE(readPayload(map, read));

        // A string key claiming huge length.
        std::vector<unsigned char> key;
        appendU32(key, kMapTypeId);
        appendU64(key, 1);
        appendU64(key, huge);
        key.push_back('k');
        EXPECT_FALSE(readPayload(key, read));

        // A mesh claiming huge point counts.
        std::vector<unsigned char> mesh;
        appendU32(mesh, kMapTypeId);
        appendU64(mesh, 1);
        appendU64(mesh, 3);
        mesh.insert(mesh.end(), {'g', 'e', 'o'});
        appendU32(mesh, kMeshTypeId);
        appendU64(mesh, huge);
        EXPECT_FALSE(readPayload(mesh, read));
    }
    // A file header claiming more payload than there is.
    std::vector<unsigned char> header = {'Z', 'N', 'T', 'A'};
    appendU32(header, 1);
    appendU64(header, ~uint64_t(0));
    appendU64(header, 0);
    Archive archive;
    EXPECT_FALSE(archive.readFromBytes(header.data(), header.size()));
}

TEST(ArchiveHostileInput, NestingIsBounded)
{
    MapMetadata read;
    EXPECT_TRUE(readPayload(nestedMapsPayload(Archive::kMaxNesting), read));
    EXPECT_FALSE(readPayload(nestedMapsPayload(Archive::kMaxNesting + 1), read));
    EXPECT_FALSE(readPayload(nestedMapsPayload(100000), read));
}

TEST(ArchiveHostileInput, UnknownTypesBadFlagsAndInconsistentValuesFail)
{
    MapMetadata read;
    std::vector<unsigned char> unknownType;
    appendU32(unknownType, kMapTypeId);
    appendU64(unknownType, 1);
    appendU64(unknownType, 1);
    unknownType.push_back('x');
    appendU32(unknownType, 99);
    appendU32(unknownType, 0);
    EXPECT_FALSE(readPayload(unknownType, read));

    // The top value must be a map.
    std::vector<unsigned char> notAMap;
    appendU32(notAMap, kIntTypeId);
    appendU32(notAMap, 5);
    EXPECT_FALSE(readPayload(notAMap, read));

    MapMetadata flag;
    MetadataImpl<bool> value(true);
    flag.addEntry("b", &value);
    std::vector<unsigned char> badBool = payloadOf(flag);
    badBool.back() = 2;
    EXPECT_FALSE(readPayload(badBool, read));

    MapMetadata euler;
    MetadataImpl<Imath::Eulerd> rotation(Imath::Eulerd(0, 0, 0, Imath::Eulerd::XYZ));
    euler.addEntry("r", &rotation);
    std::vector<unsigned char> badOrder = payloadOf(euler);
    badOrder[badOrder.size() - 4] = 0x7F;
    EXPECT_FALSE(readPayload(badOrder, read));

    MapMetadata geometry;
    ZentoUtils::Mesh broken = makeTestMesh();
    broken.indices[0] = 1000;
    MetadataImpl<ZentoUtils::Mesh> mesh(broken);
    geometry.addEntry("geo", &mesh);
    EXPECT_FALSE(readPayload(payloadOf(geometry), read)) << "an index past the points is refused";
}

TEST(ArchiveHostileInput, OtherFilesAreRefused)
{
    TemporaryDirectory dir;
    writeBytes(dir.file("text.zento"), {'h', 'e', 'l', 'l', 'o', '\n'});
    writeBytes(dir.file("empty.zento"), {});
    Archive archive;
    EXPECT_FALSE(archive.readFromFile(dir.file("text.zento")));
    EXPECT_FALSE(archive.readFromFile(dir.file("empty.zento")));
    EXPECT_FALSE(archive.readFromFile(dir.file("missing.zento")));
    EXPECT_FALSE(archive.readFromFile(dir.path())) << "a directory";
    MapMetadata read;
    archive >> read;
    EXPECT_FALSE(archive.good());
    EXPECT_TRUE(read.empty());

    // A newer format version than this program knows.
    const MapMetadata map = makeNestedMap();
    ASSERT_TRUE(writeArchive(map, dir.file("future.zento")));
    std::vector<unsigned char> bytes = readBytes(dir.file("future.zento"));
    bytes[4] = Archive::kFormatVersion + 1;
    EXPECT_FALSE(archive.readFromBytes(bytes.data(), bytes.size()));
}

TEST(ArchiveSave, FailedSaveLeavesTheExistingFileByteForByte)
{
    TemporaryDirectory dir;
    const std::string target = dir.file("scene.zento");
    const MapMetadata small = makeNestedMap();
    ASSERT_TRUE(writeArchive(small, target));
    const std::vector<unsigned char> before = readBytes(target);

    MapMetadata large;
    MetadataImpl<ZentoUtils::Mesh> mesh;
    mesh.get().points.assign(100000, Imath::V3f(1, 2, 3));
    large.addEntry("geo", &mesh);
    Archive second(large.memSize(), 0);
    second << large;

    // A disk that fills up during the write, also for root: a file size limit.
    const pid_t child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        std::signal(SIGXFSZ, SIG_IGN);
        rlimit limit{4096, 4096};
        ::setrlimit(RLIMIT_FSIZE, &limit);
        ::_exit(second.writeToFile(target) ? 1 : 0);
    }
    int status = 0;
    ::waitpid(child, &status, 0);
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 0) << "writeToFile must report the failure";
    EXPECT_EQ(readBytes(target), before);
    EXPECT_EQ(dir.entries(), std::vector<std::string>{"scene.zento"}) << "no temporary file left";

    EXPECT_FALSE(second.writeToFile(dir.file("missing/scene.zento")));
    EXPECT_FALSE(second.writeToFile(""));
    EXPECT_FALSE(second.writeToFile(dir.path())) << "a directory is no file";

    if (::geteuid() != 0) { // root writes to read-only directories
        ASSERT_EQ(::chmod(dir.path().c_str(), 0500), 0);
        EXPECT_FALSE(second.writeToFile(target));
        ::chmod(dir.path().c_str(), 0700);
        EXPECT_EQ(readBytes(target), before);
    }

    ASSERT_TRUE(second.writeToFile(target));
    EXPECT_TRUE(readArchive(target).isEqual(&large, 0.0));
}

TEST(ArchiveSave, KeepsThePermissionsOfTheFileItReplaces)
{
    TemporaryDirectory dir;
    const std::string target = dir.file("scene.zento");
    const MapMetadata map = makeNestedMap();
    ASSERT_TRUE(writeArchive(map, target));
    ASSERT_EQ(::chmod(target.c_str(), 0640), 0);
    ASSERT_TRUE(writeArchive(map, target));
    struct stat info;
    ASSERT_EQ(::stat(target.c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 07777, 0640u);
}

// Writes the seed corpus of the archive fuzzer: valid files and payloads.
TEST(ArchiveFuzzSeeds, WriteCorpus)
{
    const std::string corpus = std::string(ZENTO_FUZZ_CORPUS_DIR) + "/archive";
    ::mkdir(ZENTO_FUZZ_CORPUS_DIR, 0755);
    ::mkdir(corpus.c_str(), 0755);
    int index = 0;
    for (const MapMetadata& map : {makeMapOfEveryType(), makeNestedMap(), MapMetadata()}) {
        const std::string name = corpus + "/seed-" + std::to_string(index++);
        ASSERT_TRUE(writeArchive(map, name + ".file"));
        writeBytes(name + ".payload", payloadOf(map));
        MapMetadata read;
        ASSERT_TRUE(readPayload(readBytes(name + ".payload"), read));
    }
}
