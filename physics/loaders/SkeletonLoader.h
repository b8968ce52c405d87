#pragma once

#include "Archive.h"
#include "Skeleton.h"

#include <string>
#include <vector>

namespace Zento {

// Our own skeleton file, USD's text form, and its binary forms, which are refused.
constexpr const char* kSkeletonExtension = ".zentoskel";
constexpr const char* kUsdaExtension = ".usda";
constexpr const char* kUsdExtension = ".usd";
constexpr const char* kUsdcExtension = ".usdc";

// The name a joint takes whose own name is empty; a skin names its joints alike.
constexpr const char* kJointFallbackName = "joint";

// Every extension, with its dot, that loadSkeleton takes: ours, then the importer's.
std::vector<std::string> skeletonExtensions();

// Reads a skeleton, by the file's extension:
// - ".zentoskel": our own format, as saveSkeleton writes it;
// - ".usda": a UsdSkel skeleton in USD's text form;
// - ".usd", ".usdc": refused, the binary form of USD cannot be read here;
// - anything else by the importer program, in a child process (FBX,
//   glTF/GLB, Collada, BVH, ...: see convertSkeleton of the importer).
// Joint names are the file's, but for "/" and control characters, which
// become "_", and siblings of the same name, which get a number.
// A file that cannot be read, or whose poses no scene can hold (a number that
// is not finite, a world matrix that overflows), gives an empty skeleton and,
// in error, the reason.
ZentoCore::Skeleton loadSkeleton(const std::string& file, std::string* error = nullptr);

// What every reader does with the joints it found, parents before their
// children: names fit for node paths ("/" and control characters become "_")
// and unique among siblings, rotations as unit quaternions, the links, then
// the check of the poses. An empty
// skeleton, with the reason naming file in error, when they cannot be held.
ZentoCore::Skeleton skeletonFromJoints(std::vector<ZentoCore::Joint> joints, const std::string& file,
                                       std::string* error);

// Writes a ".zentoskel" file atomically: a failed save leaves an existing file as it was.
bool saveSkeleton(const ZentoCore::Skeleton& skeleton, const std::string& file, std::string* error = nullptr,
                  ZentoCore::Archive::Sync sync = ZentoCore::Archive::Sync::ToDisk);

} // namespace Zento
