// zento_importer: reads foreign files with Assimp and writes them in our own
// formats, as the program asks, in a child process of the program
// (ImporterProcess), so that a parser that crashes or aborts on a damaged
// file takes only this down. Requests come on standard input, each three
// texts ended by a zero byte: kind, input, output; "skeleton" writes a
// ".zentoskel", "mesh" a ".geos". Each is answered with one line on
// descriptor 3: "done", or "refused" and the reason. By hand:
//   printf 'mesh\0in.fbx\0out.geos\0' | zento_importer 3>&1

#include "ForeignMesh.h"
#include "ForeignSkeleton.h"
#include "ImporterProcess.h"

#include <iostream>
#include <malloc.h>
#include <string>
#include <unistd.h>

namespace {

// The memory of one file is kept for the next, which then finds it ready
// instead of faulting in fresh pages; more than this is given back.
constexpr size_t kKeptMemory = size_t(1) << 30;

void answer(const std::string& line)
{
    const std::string bytes = line + '\n';
    size_t written = 0;
    while (written < bytes.size()) {
        const ssize_t done = ::write(Zento::kImporterAnswerDescriptor, bytes.data() + written, bytes.size() - written);
        if (done <= 0)
            return;
        written += static_cast<size_t>(done);
    }
}

} // namespace

int main()
{
    // Every block from the heap, and the heap never trimmed after a file:
    // freed memory stays with the process for the next file.
    ::mallopt(M_MMAP_MAX, 0);
    ::mallopt(M_TRIM_THRESHOLD, -1);
    std::string kind, input, output;
    while (std::getline(std::cin, kind, '\0') && std::getline(std::cin, input, '\0')
           && std::getline(std::cin, output, '\0')) {
        std::string error = "\"" + kind + "\" is no kind of file that the importer writes";
        const bool converted = kind == Zento::kImporterSkeletonKind ? Zento::convertSkeleton(input, output, error)
            : kind == Zento::kImporterMeshKind                       ? Zento::convertMesh(input, output, error)
                                                                     : false;
        // The answer is one line.
        for (char& c : error)
            if (c == '\n' || c == '\r')
                c = ' ';
        answer(converted ? Zento::kImporterDone : Zento::kImporterRefused + error);
        if (::mallinfo2().arena > kKeptMemory)
            ::malloc_trim(0);
    }
    return 0;
}
