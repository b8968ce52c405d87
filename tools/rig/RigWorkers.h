#pragma once

#include "RigTasks.h"

#include <functional>
#include <vector>

// Inputs worked on at once, each in a process of its own: a file that makes
// a reader or the simulation crash takes only its own input down, and the
// others still finish.
namespace RigWorkers {

using Task = std::function<RigTasks::Outcome(size_t index)>;
// Called in the calling process as each input ends: how many have ended, which one, and how.
using Progress = std::function<void(size_t ended, size_t index, const RigTasks::Outcome& outcome)>;

// Runs task for every index below count, at most jobs at a time, and returns
// the outcomes in the order of the indices. An input whose process stops
// without an outcome (a crash, an abort) fails with how it stopped.
std::vector<RigTasks::Outcome> runAll(size_t count, int jobs, const Task& task, const Progress& progress);

} // namespace RigWorkers
