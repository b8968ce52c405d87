// The .geos reader on value trees, and the import of what it reads: twice
// into one scene, the second beside the first.

#include "CharacterImport.h"
#include "FuzzSupport.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const std::string file = FuzzSupport::payloadFile(data, size, ".geos");
    if (!file.empty())
        FuzzSupport::loadOverScene(file, [](ZentoSceneGraph& graph, const std::string& character) {
            if (CharacterImport::loadMesh(graph, character).empty())
                return false;
            CharacterImport::loadMesh(graph, character);
            return true;
        });
    return 0;
}
