// zento-rig: builds, checks and exports ragdolls without the window.

#include "RigOptions.h"
#include "RigReport.h"
#include "RigTasks.h"
#include "RigWorkers.h"

#include <cstdio>
#include <filesystem>
#include <iostream>

namespace {

constexpr int kExitGood = 0;
constexpr int kExitFailed = 1;
constexpr int kExitUsage = 2;

// One line on the standard error as each of several inputs ends, so that a long batch shows where it is.
void showProgress(const RigOptions::Options& options, size_t ended, size_t index, const RigTasks::Outcome& outcome)
{
    if (options.inputs.size() < 2)
        return;
    const char* how = !outcome.done ? "failed" : outcome.foundError ? "errors found" : "done";
    std::cerr << "[" << ended << "/" << options.inputs.size() << "] " << options.inputs[index] << ": " << how
              << std::endl;
}

void printOutcomes(const RigOptions::Options& options, const std::vector<RigTasks::Outcome>& outcomes)
{
    if (options.json) {
        std::vector<std::string> objects;
        for (size_t i = 0; i < outcomes.size(); ++i)
            objects.push_back(outcomes[i].json.empty() ? RigReport::failure(options.inputs[i], outcomes[i].text)
                                                       : outcomes[i].json);
        std::cout << RigReport::jsonArray(objects);
        return;
    }
    for (size_t i = 0; i < outcomes.size(); ++i)
        (outcomes[i].done ? std::cout : std::cerr) << options.inputs[i] << ": " << outcomes[i].text;
}

// The results go into the -o folder, made when it is missing. False, with the reason, when it cannot be.
bool makeOutputFolder(const RigOptions::Options& options, std::string& error)
{
    if (!RigOptions::namesFolder(options))
        return true;
    std::error_code failure;
    std::filesystem::create_directories(options.output, failure);
    if (failure)
        error = "the folder \"" + options.output + "\" cannot be made: " + failure.message();
    return !failure;
}

} // namespace

int main(int argc, char** argv)
{
    RigOptions::Options options;
    std::string error;
    if (!RigOptions::parse(std::vector<std::string>(argv + 1, argv + argc), options, error)) {
        std::cerr << "zento-rig: " << error << "\nzento-rig --help tells how to use it.\n";
        return kExitUsage;
    }
    if (options.command == RigOptions::Command::Help) {
        std::cout << RigOptions::usage();
        return kExitGood;
    }
    if (!makeOutputFolder(options, error)) {
        std::cerr << "zento-rig: " << error << "\n";
        return kExitFailed;
    }
    const std::vector<RigTasks::Outcome> outcomes = RigWorkers::runAll(
        options.inputs.size(), options.jobs, [&](size_t index) { return RigTasks::run(options, index); },
        [&](size_t ended, size_t index, const RigTasks::Outcome& outcome) {
            showProgress(options, ended, index, outcome);
        });
    printOutcomes(options, outcomes);
    for (const RigTasks::Outcome& outcome : outcomes)
        if (!outcome.done || outcome.foundError)
            return kExitFailed;
    return kExitGood;
}
