#pragma once

#include "ZentoSceneGraph.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>

// What the fuzzers of the readers above the archive share. A finding ends the
// run with abort(), which libFuzzer reports with the input that caused it.
namespace FuzzSupport {

// A file of this process in memory, with the extension given, for the
// readers that take a path; written anew for every input.
std::string temporaryFile(const std::string& extension);

// A payload written as a file of our own with the extension; empty when the
// bytes hold no map.
std::string payloadFile(const uint8_t* data, size_t size, const std::string& extension);

// The frame of every fuzzer above the archive: file is loaded by load over a
// scene with a skeleton (the joints that the seed ragdoll names) and the
// solver. A file that is refused must leave the scene exactly as it was; one
// that is taken must leave a tree that a user goes on with: saved and opened
// again, every root moved and hidden, and a new scene.
void loadOverScene(const std::string& file, const std::function<bool(ZentoSceneGraph&, const std::string&)>& load);

} // namespace FuzzSupport
