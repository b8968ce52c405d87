#include "Archive.h"
#include "MapMetadata.h"

#include <cstdint>
#include <cstdlib>

// The bytes are tried both as a whole file and as a bare payload, since the
// file's checksum would otherwise keep almost every input from the parser.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    ZentoCore::MapMetadata map;
    ZentoCore::Archive file;
    if (file.readFromBytes(data, size))
        file >> map;

    ZentoCore::Archive payload;
    payload.assignPayload(data, size);
    payload >> map;
    if (!payload.good() && !map.empty())
        std::abort(); // a failed read must leave the map empty
    if (payload.good()) {
        // Whatever was read must write and read back as the same value.
        ZentoCore::Archive again(map.memSize(), 0);
        again << map;
        if (again.size() > map.memSize())
            std::abort();
        ZentoCore::Archive reread;
        reread.assignPayload(again.data(), again.size());
        ZentoCore::MapMetadata copy;
        reread >> copy;
        if (!reread.good() || !copy.isEqual(&map, 0.0))
            std::abort();
    }
    return 0;
}
