#pragma once

#include <chrono>
#include <functional>
#include <string>
#include <sys/types.h>
#include <vector>

namespace Zento {

// What the importer converts a file into.
enum class ForeignKind { Skeleton, Mesh };

// The importer takes requests on its standard input, each three texts ended
// by a zero byte: the kind (one of these), the input file and the output
// file. It answers each with one line on kImporterAnswerDescriptor: done, or
// refused and its message. Its standard output is left to the libraries it
// runs, which may print.
constexpr const char* kImporterSkeletonKind = "skeleton";
constexpr const char* kImporterMeshKind = "mesh";
constexpr const char* kImporterDone = "done";
constexpr const char* kImporterRefused = "refused ";
constexpr int kImporterAnswerDescriptor = 3;

// Longer than the largest file takes, short enough that a hang is seen as one.
constexpr std::chrono::seconds kImporterTimeLimit{120};

// The extensions, with their dots, of the formats that the importer reads.
const std::vector<std::string>& foreignExtensions();

// The importer program (tools/importer) in a child process. The parsers of
// other people's formats crash or abort on some damaged files; in a process
// of their own they take nothing else down. The child is kept for the next
// file, so that a file costs no start of a process and finds its memory
// ready, and it is started again after it stopped. It ends with this object.
class ImporterProcess {
public:
    struct Answer {
        enum Kind { Done, Refused, Stopped, TimedOut, NotStarted };
        Kind kind = NotStarted;
        // The refusal's message, how the child stopped, or why it did not start.
        std::string detail;
    };

    // command: the program and its arguments.
    ImporterProcess(std::vector<std::string> command, std::chrono::milliseconds timeLimit);
    ~ImporterProcess();
    ImporterProcess(const ImporterProcess&) = delete;
    ImporterProcess& operator=(const ImporterProcess&) = delete;

    // Asks the child to convert input into output and waits for its answer at
    // most the time limit; a child that stops or takes longer is done with.
    Answer convert(const std::string& kind, const std::string& input, const std::string& output);

    // The child's process id; -1 when none runs.
    pid_t pid() const { return mPid; }

private:
    bool start(std::string& why);
    // Waits for the running child's end until deadline, then kills it: how it ended.
    std::string finish(std::chrono::steady_clock::time_point deadline);

    std::vector<std::string> mCommand;
    std::chrono::milliseconds mTimeLimit;
    pid_t mPid = -1;
    int mSocket = -1;
};

// Converts file with the program's importer into our own format in a fresh
// temporary folder and hands the converted file to read, which tells why it
// fails in its error; the folder is removed afterwards. False, with a reason
// that names file in error, when the file is missing, the importer refuses
// it, stops on it (a crash, an abort) or takes longer than kImporterTimeLimit,
// or read fails.
bool importForeign(const std::string& file, ForeignKind kind,
                   const std::function<bool(const std::string& converted, std::string* error)>& read,
                   std::string* error);

} // namespace Zento
