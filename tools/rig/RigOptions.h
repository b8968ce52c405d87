#pragma once

#include <string>
#include <vector>

// What zento-rig was asked to do, from its arguments.
namespace RigOptions {

enum class Command { Help, Build, Apply, Check, Export };

struct Options {
    Command command = Command::Help;
    // The files worked on one by one: skeletons for build and apply, scenes for check and export.
    std::vector<std::string> inputs;
    // apply: the ragdoll file put on every skeleton.
    std::string ragdoll;
    // build: the skin of each skeleton, the n-th with the n-th; empty for none.
    std::vector<std::string> skins;
    // build: each skeleton's file holds its skin too (an FBX or glTF character).
    bool skinned = false;
    // -o: the file written for a single input, or the folder for several (or a name ending in "/").
    std::string output;
    // check: JSON instead of text.
    bool json = false;
    // check: run the drop test as well as the look at the scene.
    bool dropTest = true;
    // Inputs worked on at once, each in a process of its own.
    int jobs = 1;
};

// The options of the arguments that follow the program's name. False, with a
// sentence that says what is wrong, for arguments that make no request.
bool parse(const std::vector<std::string>& arguments, Options& options, std::string& error);

// The text of --help.
std::string usage();

// Whether -o names a folder: with several inputs, or a name that ends in "/".
bool namesFolder(const Options& options);

// The file written for the input at index: the -o file for a single input,
// else the input's name with the command's extension in the -o folder.
std::string outputFor(const Options& options, size_t index);

} // namespace RigOptions
