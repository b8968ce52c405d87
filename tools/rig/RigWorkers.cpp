#include "RigWorkers.h"

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <exception>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

namespace RigWorkers {

namespace {

// An outcome through a pipe: two flags, then the text and the JSON, each after its length.
void appendText(std::string& bytes, const std::string& text)
{
    const uint64_t size = text.size();
    bytes.append(reinterpret_cast<const char*>(&size), sizeof(size));
    bytes += text;
}

std::string encode(const RigTasks::Outcome& outcome)
{
    std::string bytes;
    bytes += char(outcome.done);
    bytes += char(outcome.foundError);
    appendText(bytes, outcome.text);
    appendText(bytes, outcome.json);
    return bytes;
}

bool readText(const std::string& bytes, size_t& at, std::string& text)
{
    uint64_t size = 0;
    if (bytes.size() - at < sizeof(size))
        return false;
    std::memcpy(&size, bytes.data() + at, sizeof(size));
    at += sizeof(size);
    if (bytes.size() - at < size)
        return false;
    text = bytes.substr(at, size_t(size));
    at += size_t(size);
    return true;
}

bool decode(const std::string& bytes, RigTasks::Outcome& outcome)
{
    if (bytes.size() < 2)
        return false;
    outcome.done = bytes[0] != 0;
    outcome.foundError = bytes[1] != 0;
    size_t at = 2;
    return readText(bytes, at, outcome.text) && readText(bytes, at, outcome.json) && at == bytes.size();
}

void writeAll(int descriptor, const std::string& bytes)
{
    size_t written = 0;
    while (written < bytes.size()) {
        const ssize_t step = ::write(descriptor, bytes.data() + written, bytes.size() - written);
        if (step < 0 && errno == EINTR)
            continue;
        if (step <= 0)
            return;
        written += size_t(step);
    }
}

// In the child: the task's outcome down the pipe, and out without running
// the parent's exit handlers, which are not the child's to run.
[[noreturn]] void runChild(const Task& task, size_t index, int descriptor)
{
    RigTasks::Outcome outcome;
    try {
        outcome = task(index);
    } catch (const std::exception& error) {
        outcome.text = std::string("stopped on an error: ") + error.what() + "\n";
    }
    writeAll(descriptor, encode(outcome));
    ::close(descriptor);
    ::_exit(0);
}

struct Worker {
    pid_t pid = -1;
    int descriptor = -1;
    size_t index = 0;
    std::string bytes;
};

std::string howItStopped(int status)
{
    if (WIFSIGNALED(status))
        return std::string("its process stopped: ") + ::strsignal(WTERMSIG(status));
    return "its process ended with exit code " + std::to_string(WEXITSTATUS(status)) + " and no result";
}

// Reaps the worker whose pipe has closed and turns what it sent into its outcome.
RigTasks::Outcome finish(Worker& worker)
{
    ::close(worker.descriptor);
    int status = 0;
    while (::waitpid(worker.pid, &status, 0) < 0 && errno == EINTR) {
    }
    RigTasks::Outcome outcome;
    if (!(WIFEXITED(status) && WEXITSTATUS(status) == 0 && decode(worker.bytes, outcome))) {
        outcome = RigTasks::Outcome();
        outcome.text = "failed: " + howItStopped(status) + "\n";
    }
    return outcome;
}

// A worker for the input at index, or one that failed to start, reported at once.
bool start(const Task& task, size_t index, Worker& worker, RigTasks::Outcome& notStarted)
{
    int ends[2];
    if (::pipe(ends) != 0) {
        notStarted.text = std::string("failed: no pipe for its process: ") + std::strerror(errno) + "\n";
        return false;
    }
    const pid_t pid = ::fork();
    if (pid < 0) {
        ::close(ends[0]);
        ::close(ends[1]);
        notStarted.text = std::string("failed: no process for it: ") + std::strerror(errno) + "\n";
        return false;
    }
    if (pid == 0) {
        ::close(ends[0]);
        runChild(task, index, ends[1]);
    }
    ::close(ends[1]);
    worker = Worker{pid, ends[0], index, {}};
    return true;
}

// Reads what the workers sent until at least one of them has closed its pipe; returns those.
std::vector<size_t> waitForEnds(std::vector<Worker>& workers)
{
    std::vector<pollfd> polled;
    for (const Worker& worker : workers)
        polled.push_back({worker.descriptor, POLLIN, 0});
    while (::poll(polled.data(), polled.size(), -1) < 0 && errno == EINTR) {
    }
    std::vector<size_t> ended;
    char buffer[65536];
    for (size_t i = 0; i < polled.size(); ++i) {
        if (!(polled[i].revents & (POLLIN | POLLHUP | POLLERR)))
            continue;
        const ssize_t got = ::read(workers[i].descriptor, buffer, sizeof(buffer));
        if (got > 0)
            workers[i].bytes.append(buffer, size_t(got));
        else if (got == 0 || errno != EINTR)
            ended.push_back(i);
    }
    return ended;
}

} // namespace

std::vector<RigTasks::Outcome> runAll(size_t count, int jobs, const Task& task, const Progress& progress)
{
    std::vector<RigTasks::Outcome> outcomes(count);
    std::vector<Worker> workers;
    size_t next = 0;
    size_t ended = 0;
    const size_t most = size_t(std::max(jobs, 1));
    while (ended < count) {
        while (next < count && workers.size() < most) {
            Worker worker;
            if (start(task, next, worker, outcomes[next]))
                workers.push_back(worker);
            else
                progress(++ended, next, outcomes[next]);
            ++next;
        }
        if (workers.empty())
            continue;
        std::vector<size_t> done = waitForEnds(workers);
        // Latest first, so that erasing keeps the other positions.
        std::sort(done.rbegin(), done.rend());
        for (size_t position : done) {
            Worker& worker = workers[position];
            outcomes[worker.index] = finish(worker);
            progress(++ended, worker.index, outcomes[worker.index]);
            workers.erase(workers.begin() + std::ptrdiff_t(position));
        }
    }
    return outcomes;
}

} // namespace RigWorkers
