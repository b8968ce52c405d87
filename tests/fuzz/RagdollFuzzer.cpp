// Ragdoll import on value trees: a file adds bodies and constraints to a
// skeleton, or nothing; what it adds exports as a ragdoll again.

#include "FuzzSupport.h"
#include "RagdollFile.h"

#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const std::string file = FuzzSupport::payloadFile(data, size, ".zentoragdoll");
    if (!file.empty())
        FuzzSupport::loadOverScene(file, [](ZentoSceneGraph& graph, const std::string& ragdoll) {
            if (RagdollFile::loadRagdoll(graph, ragdoll).empty())
                return false;
            if (!RagdollFile::exportRagdoll(graph, ragdoll))
                std::abort();
            return true;
        });
    return 0;
}
