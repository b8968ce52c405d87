// The .zentoskel reader on value trees, and the import of what it reads: twice
// into one scene, the second beside the first.

#include "CharacterImport.h"
#include "FuzzSupport.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const std::string file = FuzzSupport::payloadFile(data, size, ".zentoskel");
    if (!file.empty())
        FuzzSupport::loadOverScene(file, [](ZentoSceneGraph& graph, const std::string& character) {
            if (CharacterImport::loadSkeleton(graph, character).empty())
                return false;
            CharacterImport::loadSkeleton(graph, character);
            return true;
        });
    return 0;
}
