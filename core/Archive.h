#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

namespace ZentoCore {

class MapMetadata;

// A binary buffer of values, written to or read from a file.
//
// A file is a 24-byte header (magic "ZNTA", format version, payload size and a
// checksum of the payload, all little-endian) followed by the payload. Values
// are stored little-endian whatever the host. Reading checks every length
// against the bytes that are left, so no input can make it read out of bounds,
// loop or allocate more than the input holds.
class Archive {
public:
    static constexpr uint32_t kFormatVersion = 1;
    static constexpr size_t kHeaderSize = 24;
    // Deeper nesting than any scene needs; bounds the recursion of the reader.
    static constexpr int kMaxNesting = 64;

    // An empty buffer for reading.
    Archive();
    // A buffer for writing with room for sizeHint bytes; the second argument is unused.
    Archive(unsigned long long sizeHint, unsigned long long);
    ~Archive();

    Archive(const Archive&) = delete;
    Archive& operator=(const Archive&) = delete;

    // Loads a whole file; false when it cannot be read or is not a valid archive.
    bool readFromFile(const std::string& path);
    // The same from bytes in memory, as a file holds them.
    bool readFromBytes(const void* bytes, size_t size);
    // Takes a payload as data() gives it, with no header, for reading.
    void assignPayload(const void* bytes, size_t size);

    // Whether a write waits until the bytes are on the disk: a file that a
    // user keeps does; one that is read back at once and removed need not.
    enum class Sync { ToDisk, None };

    // Writes atomically: a temporary file beside the target is written, synced
    // and renamed over it, so a failed save leaves any existing file untouched.
    bool writeToFile(const std::string& path, Sync sync = Sync::ToDisk) const;

    // The payload written so far, without the header.
    const unsigned char* data() const { return mBuffer.get() + mPayloadOffset; }
    size_t size() const { return mSize; }
    size_t remaining() const { return mSize - mReadPos; }

    // False once any read went wrong; a failed archive reads nothing more.
    bool good() const { return !mFailed; }
    void fail() { mFailed = true; }

    void writeU8(uint8_t value);
    void writeU32(uint32_t value);
    void writeI32(int32_t value);
    void writeU64(uint64_t value);
    void writeF64(double value);
    void writeString(const std::string& value);
    // count elements of elementSize bytes each (1, 4 or 8), stored little-endian.
    void writeElements(const void* elements, size_t elementSize, size_t count);

    bool readU8(uint8_t& value);
    bool readU32(uint32_t& value);
    bool readI32(int32_t& value);
    bool readU64(uint64_t& value);
    bool readF64(double& value);
    bool readString(std::string& value);
    // Reads a count and checks that count elements of elementSize bytes are left.
    bool readCount(size_t elementSize, uint64_t& count);
    bool readElements(void* elements, size_t elementSize, size_t count);

    // Bounds the depth of nested values; every successful enter needs a leave.
    bool enterNested();
    void leaveNested() { --mDepth; }

private:
    void reset();
    bool reserve(size_t capacity);
    // Checks the header and checksum of a whole file held in mBuffer.
    bool adoptFileBytes(size_t fileSize);

    struct BufferRelease {
        BufferRelease() noexcept : capacity(0) {}
        explicit BufferRelease(size_t size) noexcept : capacity(size) {}
        void operator()(unsigned char* bytes) const;
        size_t capacity;
    };
    using Buffer = std::unique_ptr<unsigned char[], BufferRelease>;
    static Buffer allocateBuffer(size_t capacity);

    Buffer mBuffer;
    size_t mCapacity = 0;
    size_t mPayloadOffset = 0;
    size_t mSize = 0;
    size_t mReadPos = 0;
    int mDepth = 0;
    bool mFailed = false;
};

// Appends a whole map, nested values and type ids included.
Archive& operator<<(Archive& archive, const MapMetadata& map);
// Reads a whole map; on failure the map is left empty and the archive is failed.
Archive& operator>>(Archive& archive, MapMetadata& map);

} // namespace ZentoCore
