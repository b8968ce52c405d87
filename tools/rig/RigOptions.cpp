#include "RigOptions.h"

#include <filesystem>
#include <set>
#include <thread>

namespace RigOptions {

namespace {

constexpr int kMaxJobs = 256;
constexpr const char* kSceneExtension = ".zento";
constexpr const char* kRagdollExtension = ".zentoragdoll";

struct CommandName {
    const char* name;
    Command command;
};
constexpr CommandName kCommands[] = {
    {"build", Command::Build},
    {"apply", Command::Apply},
    {"check", Command::Check},
    {"export", Command::Export},
};

int defaultJobs()
{
    const unsigned cores = std::thread::hardware_concurrency();
    return cores == 0 ? 1 : int(cores);
}

bool parseJobs(const std::string& text, int& jobs, std::string& error)
{
    size_t used = 0;
    int value = 0;
    try {
        value = std::stoi(text, &used);
    } catch (const std::exception&) {
        used = 0;
    }
    if (used != text.size() || value < 1 || value > kMaxJobs) {
        error = "-j takes a number of jobs from 1 to " + std::to_string(kMaxJobs) + ", not \"" + text + "\"";
        return false;
    }
    jobs = value;
    return true;
}

// Reads the options and inputs that follow the command's name.
bool parseRest(const std::vector<std::string>& arguments, Options& options, std::string& error)
{
    std::vector<std::string> positional;
    for (size_t i = 1; i < arguments.size(); ++i) {
        const std::string& argument = arguments[i];
        const bool hasValue = i + 1 < arguments.size();
        auto value = [&](const char* option) -> const std::string* {
            if (!hasValue) {
                error = std::string(option) + " needs a value";
                return nullptr;
            }
            return &arguments[++i];
        };
        if (argument == "-h" || argument == "--help") {
            options.command = Command::Help;
            return true;
        }
        if (argument == "-o" || argument == "--output") {
            const std::string* output = value("-o");
            if (!output)
                return false;
            options.output = *output;
        } else if (argument == "--skin") {
            const std::string* skin = value("--skin");
            if (!skin)
                return false;
            options.skins.push_back(*skin);
        } else if (argument == "-j" || argument == "--jobs") {
            const std::string* jobs = value("-j");
            if (!jobs || !parseJobs(*jobs, options.jobs, error))
                return false;
        } else if (argument.size() > 2 && argument.compare(0, 2, "-j") == 0) {
            if (!parseJobs(argument.substr(2), options.jobs, error))
                return false;
        } else if (argument == "--skinned") {
            options.skinned = true;
        } else if (argument == "--json") {
            options.json = true;
        } else if (argument == "--no-drop-test") {
            options.dropTest = false;
        } else if (argument.size() > 1 && argument[0] == '-') {
            error = "unknown option \"" + argument + "\"";
            return false;
        } else {
            positional.push_back(argument);
        }
    }
    if (options.command == Command::Apply && !positional.empty()) {
        options.ragdoll = positional.front();
        positional.erase(positional.begin());
    }
    options.inputs = std::move(positional);
    return true;
}

// What the command needs and what it does not take.
bool validate(const Options& options, std::string& error)
{
    const Command command = options.command;
    if (options.inputs.empty())
        error = command == Command::Apply ? "apply needs a ragdoll file and at least one skeleton"
                                          : "no input file was given";
    else if (command == Command::Check && !options.output.empty())
        error = "check writes no file: -o does not apply";
    else if (command != Command::Check && options.output.empty())
        error = "-o is needed: where to write the result";
    else if (command != Command::Build && (!options.skins.empty() || options.skinned))
        error = "--skin and --skinned belong to build";
    else if (!options.skins.empty() && options.skins.size() != options.inputs.size())
        error = "give one --skin for each skeleton, in the same order";
    else if (!options.skins.empty() && options.skinned)
        error = "--skin and --skinned exclude each other";
    else if (command != Command::Check && (options.json || !options.dropTest))
        error = "--json and --no-drop-test belong to check";
    if (!error.empty())
        return false;
    if (command == Command::Check)
        return true;
    std::set<std::string> written;
    for (size_t i = 0; i < options.inputs.size(); ++i)
        if (!written.insert(outputFor(options, i)).second) {
            error = "two inputs would both be written to \"" + outputFor(options, i) + "\": rename one";
            return false;
        }
    return true;
}

} // namespace

bool parse(const std::vector<std::string>& arguments, Options& options, std::string& error)
{
    options = Options();
    options.jobs = defaultJobs();
    if (arguments.empty() || arguments.front() == "-h" || arguments.front() == "--help")
        return true;
    const std::string& name = arguments.front();
    bool known = false;
    for (const CommandName& entry : kCommands)
        if (name == entry.name) {
            options.command = entry.command;
            known = true;
        }
    if (!known) {
        error = "unknown command \"" + name + "\": one of build, apply, check, export";
        return false;
    }
    if (!parseRest(arguments, options, error))
        return false;
    return options.command == Command::Help || validate(options, error);
}

std::string usage()
{
    return "zento-rig: builds, checks and exports ragdolls without the window.\n"
           "\n"
           "  zento-rig build SKELETON... [--skin MESH]... [--skinned] -o OUT\n"
           "      Imports each skeleton and builds a ragdoll on it: a capsule on every joint\n"
           "      that has a bone, constraints to the parent bodies, a ground under the feet\n"
           "      and a solver whose scene scale makes the skeleton as tall as a person.\n"
           "      --skin MESH   the skin that sizes the capsules, one for each skeleton\n"
           "      --skinned     each skeleton's own file holds its skin (FBX, glTF)\n"
           "  zento-rig apply RAGDOLL SKELETON... -o OUT\n"
           "      Imports each skeleton and puts the ragdoll's bodies and constraints on the\n"
           "      joints of the same names (\"mixamorig:Hips\" takes the body of \"Hips\"),\n"
           "      and tells which bodies and joints matched nothing.\n"
           "  zento-rig check SCENE... [--json] [--no-drop-test]\n"
           "      Looks for what makes a ragdoll fail and drops it from 1 m for 5 s.\n"
           "      The exit status is 1 when it finds an error.\n"
           "  zento-rig export SCENE... -o OUT\n"
           "      Writes the scene's ragdoll as a .zentoragdoll file.\n"
           "\n"
           "  -o OUT     the file to write; with several inputs, or OUT ending in /, the folder\n"
           "             to write them in (made when missing), each named after its input\n"
           "  -j N       inputs worked on at once (default: the number of cores); one input\n"
           "             that fails does not stop the others\n"
           "  -h, --help this text\n"
           "\n"
           "Exit status: 0 when every input went well, 1 when one failed or a check found\n"
           "an error, 2 for arguments that make no request.\n";
}

bool namesFolder(const Options& options)
{
    return options.command != Command::Check
        && (options.inputs.size() > 1 || (!options.output.empty() && options.output.back() == '/'));
}

std::string outputFor(const Options& options, size_t index)
{
    namespace fs = std::filesystem;
    std::error_code ignored;
    if (!namesFolder(options) && !fs::is_directory(options.output, ignored))
        return options.output;
    const char* extension = options.command == Command::Export ? kRagdollExtension : kSceneExtension;
    fs::path name = fs::path(options.inputs[index]).filename();
    name.replace_extension(extension);
    return (fs::path(options.output) / name).string();
}

} // namespace RigOptions
