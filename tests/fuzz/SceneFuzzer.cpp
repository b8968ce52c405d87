// Scene load on value trees: a file is loaded over a scene, or refused with
// a message that names it and the scene exactly as it was.

#include "FuzzSupport.h"
#include "SceneFile.h"

#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const std::string file = FuzzSupport::payloadFile(data, size, ".zento");
    if (!file.empty())
        FuzzSupport::loadOverScene(file, [](ZentoSceneGraph& graph, const std::string& scene) {
            std::string error;
            const bool loaded = SceneFile::load(graph, scene, &error);
            if (!loaded && error.find(scene) == std::string::npos)
                std::abort();
            return loaded;
        });
    return 0;
}
