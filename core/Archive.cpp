#include "Archive.h"

#include "MapMetadata.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <new>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace ZentoCore {

namespace {

constexpr unsigned char kMagic[4] = {'Z', 'N', 'T', 'A'};

constexpr bool hostIsLittleEndian()
{
    return __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__;
}

void storeLittleEndian(unsigned char* out, uint64_t value, size_t bytes)
{
    for (size_t i = 0; i < bytes; ++i)
        out[i] = static_cast<unsigned char>(value >> (8 * i));
}

uint64_t loadLittleEndian(const unsigned char* in, size_t bytes)
{
    uint64_t value = 0;
    if (hostIsLittleEndian() && bytes == sizeof(value)) {
        std::memcpy(&value, in, sizeof(value));
        return value;
    }
    for (size_t i = 0; i < bytes; ++i)
        value |= static_cast<uint64_t>(in[i]) << (8 * i);
    return value;
}

// Copies elements, reversing the bytes of each on a big-endian host.
void copyElements(unsigned char* to, const unsigned char* from, size_t elementSize, size_t count)
{
    if (count == 0)
        return;
    if (hostIsLittleEndian() || elementSize == 1) {
        std::memcpy(to, from, elementSize * count);
        return;
    }
    for (size_t e = 0; e < count; ++e)
        for (size_t b = 0; b < elementSize; ++b)
            to[e * elementSize + b] = from[e * elementSize + elementSize - 1 - b];
}

uint64_t mix(uint64_t x)
{
    x ^= x >> 30;
    x *= 0xBF58476D1CE4E5B9ULL;
    x ^= x >> 27;
    x *= 0x94D049BB133111EBULL;
    x ^= x >> 31;
    return x;
}

// Four independent lanes keep this at memory speed. Each step is a bijection
// of the lane's state, so any change of a single 8-byte word changes the sum.
uint64_t payloadChecksum(const unsigned char* bytes, size_t size)
{
    constexpr uint64_t kOdd = 0x9E3779B97F4A7C15ULL;
    uint64_t lanes[4] = {size, 1, 2, 3};
    size_t i = 0;
    for (; i + 32 <= size; i += 32)
        for (int lane = 0; lane < 4; ++lane)
            lanes[lane] = (lanes[lane] ^ loadLittleEndian(bytes + i + 8 * lane, 8)) * kOdd;
    for (; i < size; ++i)
        lanes[0] = (lanes[0] ^ bytes[i]) * kOdd;
    return mix(mix(mix(mix(lanes[0]) ^ lanes[1]) ^ lanes[2]) ^ lanes[3]);
}

bool writeAll(int fd, const unsigned char* bytes, size_t size)
{
    while (size > 0) {
        const ssize_t written = ::write(fd, bytes, size);
        if (written < 0) {
            if (errno == EINTR)
                continue;
            return false;
        }
        bytes += written;
        size -= static_cast<size_t>(written);
    }
    return true;
}

bool readAll(int fd, unsigned char* bytes, size_t size)
{
    while (size > 0) {
        const ssize_t got = ::read(fd, bytes, size);
        if (got < 0 && errno == EINTR)
            continue;
        if (got <= 0)
            return false;
        bytes += got;
        size -= static_cast<size_t>(got);
    }
    return true;
}

mode_t newFileMode(const std::string& path)
{
    struct stat existing;
    if (::stat(path.c_str(), &existing) == 0)
        return existing.st_mode & 07777;
    const mode_t mask = ::umask(0);
    ::umask(mask);
    return 0666 & ~mask;
}

struct Header {
    uint32_t version = 0;
    uint64_t payloadSize = 0;
    uint64_t checksum = 0;
};

bool parseHeader(const unsigned char* bytes, size_t size, Header& header)
{
    if (size < Archive::kHeaderSize || std::memcmp(bytes, kMagic, sizeof(kMagic)) != 0)
        return false;
    header.version = static_cast<uint32_t>(loadLittleEndian(bytes + 4, 4));
    header.payloadSize = loadLittleEndian(bytes + 8, 8);
    header.checksum = loadLittleEndian(bytes + 16, 8);
    return header.version >= 1 && header.version <= Archive::kFormatVersion;
}

} // namespace

// Large buffers are mapped with huge pages where the kernel offers them: filling
// 32 MB then costs 16 page faults instead of 8192, which is most of the time
// that reading or writing a large mesh takes.
constexpr size_t kHugePage = size_t(2) << 20;

void Archive::BufferRelease::operator()(unsigned char* bytes) const
{
    if (capacity >= kHugePage)
        ::munmap(bytes, capacity);
    else
        delete[] bytes;
}

Archive::Buffer Archive::allocateBuffer(size_t capacity)
{
    if (capacity < kHugePage)
        return Buffer(new (std::nothrow) unsigned char[capacity], BufferRelease(capacity));
    // Room to align the start to a huge page; the slack is unmapped again.
    const size_t mapped = capacity + kHugePage;
    void* region = ::mmap(nullptr, mapped, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (region == MAP_FAILED)
        return Buffer(nullptr, BufferRelease(capacity));
    const auto start = reinterpret_cast<uintptr_t>(region);
    const uintptr_t aligned = (start + kHugePage - 1) & ~(kHugePage - 1);
    if (aligned > start)
        ::munmap(region, aligned - start);
    const uintptr_t end = start + mapped;
    if (end > aligned + capacity)
        ::munmap(reinterpret_cast<void*>(aligned + capacity), end - aligned - capacity);
    ::madvise(reinterpret_cast<void*>(aligned), capacity, MADV_HUGEPAGE);
    return Buffer(reinterpret_cast<unsigned char*>(aligned), BufferRelease(capacity));
}

Archive::Archive() = default;

Archive::Archive(unsigned long long sizeHint, unsigned long long)
{
    reserve(static_cast<size_t>(sizeHint));
}

Archive::~Archive() = default;

void Archive::reset()
{
    mPayloadOffset = 0;
    mSize = 0;
    mReadPos = 0;
    mDepth = 0;
    mFailed = false;
}

bool Archive::reserve(size_t capacity)
{
    if (mPayloadOffset + capacity <= mCapacity)
        return true;
    // A corrupt size must not end the program: a failed allocation fails the read.
    Buffer grown = allocateBuffer(capacity);
    if (!grown)
        return false;
    if (mSize > 0)
        std::memcpy(grown.get(), data(), mSize);
    mBuffer = std::move(grown);
    mCapacity = capacity;
    mPayloadOffset = 0;
    return true;
}

bool Archive::adoptFileBytes(size_t fileSize)
{
    Header header;
    const unsigned char* bytes = mBuffer.get();
    if (!parseHeader(bytes, fileSize, header) || header.payloadSize != fileSize - kHeaderSize
        || payloadChecksum(bytes + kHeaderSize, header.payloadSize) != header.checksum) {
        reset();
        mFailed = true;
        return false;
    }
    mPayloadOffset = kHeaderSize;
    mSize = header.payloadSize;
    return true;
}

bool Archive::readFromBytes(const void* bytes, size_t size)
{
    reset();
    if (size < kHeaderSize || !reserve(size)) {
        mFailed = true;
        return false;
    }
    std::memcpy(mBuffer.get(), bytes, size);
    return adoptFileBytes(size);
}

void Archive::assignPayload(const void* bytes, size_t size)
{
    reset();
    if (!reserve(size)) {
        mFailed = true;
        return;
    }
    if (size > 0)
        std::memcpy(mBuffer.get(), bytes, size);
    mSize = size;
}

bool Archive::readFromFile(const std::string& path)
{
    reset();
    mFailed = true;
    const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0)
        return false;
    struct stat info;
    const bool ok = ::fstat(fd, &info) == 0 && S_ISREG(info.st_mode)
        && static_cast<uint64_t>(info.st_size) >= kHeaderSize && reserve(static_cast<size_t>(info.st_size))
        && readAll(fd, mBuffer.get(), static_cast<size_t>(info.st_size));
    ::close(fd);
    if (!ok)
        return false;
    mFailed = false;
    return adoptFileBytes(static_cast<size_t>(info.st_size));
}

bool Archive::writeToFile(const std::string& path, Sync sync) const
{
    if (path.empty())
        return false;
    unsigned char header[kHeaderSize];
    std::memcpy(header, kMagic, sizeof(kMagic));
    storeLittleEndian(header + 4, kFormatVersion, 4);
    storeLittleEndian(header + 8, mSize, 8);
    storeLittleEndian(header + 16, payloadChecksum(data(), mSize), 8);

    std::string temporary = path + ".XXXXXX";
    std::vector<char> name(temporary.begin(), temporary.end());
    name.push_back('\0');
    const int fd = ::mkostemp(name.data(), O_CLOEXEC);
    if (fd < 0)
        return false;
    temporary = name.data();

    bool ok = ::fchmod(fd, newFileMode(path)) == 0
        && writeAll(fd, header, kHeaderSize)
        && writeAll(fd, data(), mSize)
        && (sync == Sync::None || ::fsync(fd) == 0);
    ok = (::close(fd) == 0) && ok;
    ok = ok && ::rename(temporary.c_str(), path.c_str()) == 0;
    if (!ok)
        ::unlink(temporary.c_str());
    return ok;
}

void Archive::writeElements(const void* elements, size_t elementSize, size_t count)
{
    const size_t bytes = elementSize * count;
    const size_t needed = mSize + bytes;
    const bool fits = mPayloadOffset + needed <= mCapacity;
    if (mFailed || (!fits && !reserve(std::max(needed, 2 * mSize)))) {
        mFailed = true;
        return;
    }
    copyElements(mBuffer.get() + mPayloadOffset + mSize, static_cast<const unsigned char*>(elements), elementSize, count);
    mSize += bytes;
}

void Archive::writeU8(uint8_t value)
{
    writeElements(&value, 1, 1);
}

void Archive::writeU32(uint32_t value)
{
    writeElements(&value, 4, 1);
}

void Archive::writeI32(int32_t value)
{
    writeElements(&value, 4, 1);
}

void Archive::writeU64(uint64_t value)
{
    writeElements(&value, 8, 1);
}

void Archive::writeF64(double value)
{
    writeElements(&value, 8, 1);
}

void Archive::writeString(const std::string& value)
{
    writeU64(value.size());
    writeElements(value.data(), 1, value.size());
}

bool Archive::readElements(void* elements, size_t elementSize, size_t count)
{
    if (mFailed || count > remaining() / elementSize) {
        mFailed = true;
        return false;
    }
    copyElements(static_cast<unsigned char*>(elements), data() + mReadPos, elementSize, count);
    mReadPos += elementSize * count;
    return true;
}

bool Archive::readU8(uint8_t& value)
{
    return readElements(&value, 1, 1);
}

bool Archive::readU32(uint32_t& value)
{
    return readElements(&value, 4, 1);
}

bool Archive::readI32(int32_t& value)
{
    return readElements(&value, 4, 1);
}

bool Archive::readU64(uint64_t& value)
{
    return readElements(&value, 8, 1);
}

bool Archive::readF64(double& value)
{
    return readElements(&value, 8, 1);
}

bool Archive::readCount(size_t elementSize, uint64_t& count)
{
    if (!readU64(count))
        return false;
    if (elementSize > 0 && count > remaining() / elementSize) {
        mFailed = true;
        return false;
    }
    return true;
}

bool Archive::readString(std::string& value)
{
    uint64_t length = 0;
    if (!readCount(1, length))
        return false;
    value.assign(reinterpret_cast<const char*>(data() + mReadPos), length);
    mReadPos += length;
    return true;
}

bool Archive::enterNested()
{
    if (mDepth >= kMaxNesting) {
        mFailed = true;
        return false;
    }
    ++mDepth;
    return true;
}

Archive& operator<<(Archive& archive, const MapMetadata& map)
{
    writeTypedValue(archive, map);
    return archive;
}

Archive& operator>>(Archive& archive, MapMetadata& map)
{
    map.clear();
    std::shared_ptr<Metadata> value = readTypedValue(archive);
    if (!value || value->typeId() != MapMetadata::staticTypeId()) {
        archive.fail();
        return archive;
    }
    map = std::move(static_cast<MapMetadata&>(*value));
    return archive;
}

} // namespace ZentoCore
