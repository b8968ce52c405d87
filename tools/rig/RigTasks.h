#pragma once

#include "RigOptions.h"

#include <string>

// The work of zento-rig on one input, each on a scene of its own.
namespace RigTasks {

struct Outcome {
    // False when the input could not be worked on (a file that cannot be
    // read, a skeleton without bones, an output that cannot be written); text says why.
    bool done = false;
    // True when the check found an error in a scene it could read.
    bool foundError = false;
    // Lines for a person, each ended by a newline; the first follows the input's name.
    std::string text;
    // check --json: one JSON object for the input.
    std::string json;
};

// Imports the skeleton (and the skin: a mesh file, or the skeleton's own file
// when skinned), builds a ragdoll on it and saves the scene to output.
Outcome build(const std::string& skeleton, const std::string& skin, bool skinned, const std::string& output);

// Imports the skeleton, puts the ragdoll on it by joint names, adds a ground
// and a solver as build does, and saves the scene to output; the text lists
// what matched nothing.
Outcome apply(const std::string& ragdoll, const std::string& skeleton, const std::string& output);

// The ragdoll check of the scene file, with its drop test unless told not.
Outcome check(const std::string& scene, bool dropTest);

// Writes the scene file's ragdoll to output.
Outcome exportRagdoll(const std::string& scene, const std::string& output);

// The command of options on its input at index.
Outcome run(const RigOptions::Options& options, size_t index);

} // namespace RigTasks
