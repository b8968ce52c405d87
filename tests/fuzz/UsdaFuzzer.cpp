// The reader of UsdSkel text, and the import of what it reads. Text takes
// byte mutation well: it needs no mutator of its own.

#include "CharacterImport.h"
#include "FuzzSupport.h"

#include <fstream>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const std::string file = FuzzSupport::temporaryFile(".usda");
    std::ofstream(file, std::ios::binary).write(reinterpret_cast<const char*>(data), static_cast<std::streamsize>(size));
    FuzzSupport::loadOverScene(file, [](ZentoSceneGraph& graph, const std::string& text) {
        return !CharacterImport::loadSkeleton(graph, text).empty();
    });
    return 0;
}
