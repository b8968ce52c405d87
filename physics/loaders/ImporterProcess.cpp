#include "ImporterProcess.h"

#include "LoaderFiles.h"
#include "MeshLoader.h"
#include "SkeletonLoader.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

extern char** environ;

namespace Zento {

namespace {

// A child's end is looked for this often once it should have ended.
constexpr std::chrono::milliseconds kWaitStep{1};

// An answer is one line; a longer one is no answer.
constexpr size_t kMaxAnswerSize = 64 * 1024;

using Clock = std::chrono::steady_clock;

// Beside the running program, as it is shipped; else where the build put it,
// for the tests and benchmarks that run from other folders.
std::string importerProgram()
{
    char self[PATH_MAX];
    const ssize_t length = ::readlink("/proc/self/exe", self, sizeof(self) - 1);
    if (length > 0) {
        const std::filesystem::path beside =
            std::filesystem::path(std::string(self, static_cast<size_t>(length))).parent_path() / "zento_importer";
        if (::access(beside.c_str(), X_OK) == 0)
            return beside.string();
    }
    return ZENTO_IMPORTER_PATH;
}

// Only ever one child: a pid of 0 or less would name a whole process group, or every process.
void killChild(pid_t child)
{
    if (child > 0)
        ::kill(child, SIGKILL);
}

// The converted file is read back at once and removed: in memory where the
// system keeps such a folder, which writes it several times faster than a disk.
std::filesystem::path temporaryRoot()
{
    const std::filesystem::path memory = "/dev/shm";
    std::error_code error;
    if (std::filesystem::is_directory(memory, error) && ::access(memory.c_str(), W_OK) == 0)
        return memory;
    return std::filesystem::temp_directory_path();
}

int millisecondsUntil(Clock::time_point deadline)
{
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
    return static_cast<int>(std::clamp<long long>(left, 0, INT_MAX));
}

// One line from the socket, without its end; false on the child's end, a
// line too long or the deadline, with timedOut telling the last.
bool readLine(int socket, Clock::time_point deadline, std::string& line, bool& timedOut)
{
    line.clear();
    timedOut = false;
    char byte = 0;
    while (line.size() < kMaxAnswerSize) {
        pollfd ready{socket, POLLIN, 0};
        const int polled = ::poll(&ready, 1, millisecondsUntil(deadline));
        if (polled < 0 && errno == EINTR)
            continue;
        if (polled == 0) {
            timedOut = true;
            return false;
        }
        const ssize_t got = ::recv(socket, &byte, 1, 0);
        if (got < 0 && errno == EINTR)
            continue;
        if (got <= 0)
            return false;
        if (byte == '\n')
            return true;
        line += byte;
    }
    return false;
}

bool sendAll(int socket, const std::string& bytes)
{
    size_t sent = 0;
    while (sent < bytes.size()) {
        // No SIGPIPE when the child is gone: the send fails instead.
        const ssize_t done = ::send(socket, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
        if (done < 0 && errno == EINTR)
            continue;
        if (done <= 0)
            return false;
        sent += static_cast<size_t>(done);
    }
    return true;
}

std::string importerMessage(const std::string& file, const ImporterProcess::Answer& answer)
{
    switch (answer.kind) {
    case ImporterProcess::Answer::Done:
        return std::string();
    case ImporterProcess::Answer::Refused:
        return answer.detail;
    case ImporterProcess::Answer::Stopped:
        return cannotRead(file, "the importer stopped on it (" + answer.detail
                                    + "): the file is damaged, or of a form that the importer cannot take");
    case ImporterProcess::Answer::TimedOut:
        return cannotRead(file, "the importer took longer than " + std::to_string(kImporterTimeLimit.count())
                                    + " seconds on it and was stopped");
    case ImporterProcess::Answer::NotStarted:
        break;
    }
    return cannotRead(file, "the importer could not be started: " + answer.detail);
}

} // namespace

const std::vector<std::string>& foreignExtensions()
{
    // Those of Assimp 5.2, which the importer reads with; a test holds the two lists together.
    static const std::vector<std::string> extensions = {
        ".3d",   ".3ds",  ".3mf",   ".ac",   ".ac3d", ".acc",  ".amf",  ".ase",  ".ask",      ".assbin", ".b3d",
        ".blend", ".bsp", ".bvh",   ".cob",  ".csm",  ".dae",  ".dxf",  ".enff", ".fbx",      ".glb",    ".gltf",
        ".hmp",  ".ifc",  ".ifczip", ".iqm", ".irr",  ".irrmesh", ".lwo", ".lws", ".lxo",     ".md2",    ".md3",
        ".md5anim", ".md5camera", ".md5mesh", ".mdc", ".mdl", ".mesh", ".mesh.xml", ".mot", ".ms3d", ".ndo", ".nff",
        ".obj",  ".off",  ".ogex",  ".pk3",  ".ply",  ".pmx",  ".prj",  ".q3o",  ".q3s",      ".raw",    ".scn",
        ".sib",  ".smd",  ".step",  ".stl",  ".stp",  ".ter",  ".uc",   ".vta",  ".x",        ".x3d",    ".x3db",
        ".xgl",  ".xml",  ".zae",   ".zgl"};
    return extensions;
}

ImporterProcess::ImporterProcess(std::vector<std::string> command, std::chrono::milliseconds timeLimit)
    : mCommand(std::move(command)), mTimeLimit(timeLimit)
{
}

ImporterProcess::~ImporterProcess()
{
    if (mPid < 0)
        return;
    // Its input ends, and so does the child.
    ::close(mSocket);
    mSocket = -1;
    finish(Clock::now() + std::chrono::seconds(1));
}

bool ImporterProcess::start(std::string& why)
{
    int ends[2];
    if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0) {
        why = std::strerror(errno);
        return false;
    }
    std::vector<char*> argv;
    for (std::string& word : mCommand)
        argv.push_back(word.data());
    argv.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    ::posix_spawn_file_actions_init(&actions);
    ::posix_spawn_file_actions_adddup2(&actions, ends[1], STDIN_FILENO);
    ::posix_spawn_file_actions_adddup2(&actions, ends[1], kImporterAnswerDescriptor);
    ::posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    const int failed = ::posix_spawn(&mPid, argv.front(), &actions, nullptr, argv.data(), environ);
    ::posix_spawn_file_actions_destroy(&actions);
    ::close(ends[1]);
    if (failed != 0) {
        ::close(ends[0]);
        mPid = -1;
        why = std::strerror(failed);
        return false;
    }
    mSocket = ends[0];
    return true;
}

std::string ImporterProcess::finish(Clock::time_point deadline)
{
    int status = 0;
    pid_t ended = 0;
    while ((ended = ::waitpid(mPid, &status, WNOHANG)) == 0 || (ended < 0 && errno == EINTR)) {
        if (ended == 0 && Clock::now() >= deadline) {
            killChild(mPid);
            while (::waitpid(mPid, &status, 0) < 0 && errno == EINTR) {
            }
            break;
        }
        std::this_thread::sleep_for(kWaitStep);
    }
    mPid = -1;
    if (mSocket >= 0)
        ::close(mSocket);
    mSocket = -1;
    if (WIFSIGNALED(status))
        return ::strsignal(WTERMSIG(status));
    return "exit code " + std::to_string(WEXITSTATUS(status));
}

ImporterProcess::Answer ImporterProcess::convert(const std::string& kind, const std::string& input,
                                                 const std::string& output)
{
    Answer answer;
    // A child that ended since the last file, whatever ended it, is started anew.
    int status = 0;
    if (mPid >= 0 && ::waitpid(mPid, &status, WNOHANG) != 0) {
        mPid = -1;
        ::close(mSocket);
        mSocket = -1;
    }
    if (mPid < 0 && !start(answer.detail))
        return answer;
    const Clock::time_point deadline = Clock::now() + mTimeLimit;
    std::string line;
    bool timedOut = false;
    const std::string request = kind + '\0' + input + '\0' + output + '\0';
    if (sendAll(mSocket, request) && readLine(mSocket, deadline, line, timedOut)) {
        const size_t refused = std::strlen(kImporterRefused);
        if (line == kImporterDone) {
            answer.kind = Answer::Done;
            return answer;
        }
        if (line.compare(0, refused, kImporterRefused) == 0) {
            answer.kind = Answer::Refused;
            answer.detail = line.substr(refused);
            return answer;
        }
    }
    // No answer in time, or one that makes no sense: the child is done with.
    // A child that crashed has its end already, which the kill does not change.
    answer.kind = timedOut ? Answer::TimedOut : Answer::Stopped;
    killChild(mPid);
    answer.detail = finish(deadline);
    return answer;
}

bool importForeign(const std::string& file, ForeignKind kind,
                   const std::function<bool(const std::string& converted, std::string* error)>& read,
                   std::string* error)
{
    static ImporterProcess importer({importerProgram()}, kImporterTimeLimit);
    const std::string problem = fileProblem(file);
    if (!problem.empty()) {
        setError(error, problem);
        return false;
    }
    std::string folder = (temporaryRoot() / "zento-import-XXXXXX").string();
    if (!::mkdtemp(folder.data())) {
        setError(error, cannotRead(file, "no temporary folder for the importer: " + std::string(std::strerror(errno))));
        return false;
    }
    const bool isSkeleton = kind == ForeignKind::Skeleton;
    const std::string converted = folder + "/converted" + (isSkeleton ? kSkeletonExtension : kMeshExtension);
    const ImporterProcess::Answer answer =
        importer.convert(isSkeleton ? kImporterSkeletonKind : kImporterMeshKind, file, converted);
    std::string reason = importerMessage(file, answer);
    if (reason.empty() && !read(converted, &reason))
        reason = cannotRead(file, "what the importer made of it cannot be read: " + reason);
    std::error_code ignored;
    std::filesystem::remove_all(folder, ignored);
    if (!reason.empty())
        setError(error, reason);
    return reason.empty();
}

} // namespace Zento
