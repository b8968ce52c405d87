#pragma once

#include <Imath/ImathMatrix.h>
#include <Imath/ImathQuat.h>
#include <Imath/ImathVec.h>

#include "Archive.h"

#include <string>

namespace ZentoCore {
class MapMetadata;
}

// What the skeleton and mesh readers share: checks of the file, our Archive
// formats, names fit for node paths and the split of a matrix.
namespace Zento {

// Stores message in *error when error is set.
void setError(std::string* error, const std::string& message);

// The message of a file that is refused: "Cannot read "file": reason".
std::string cannotRead(const std::string& file, const std::string& reason);

// Why file cannot be read as a whole: it is missing, a directory or unreadable.
// Empty for a regular, readable file.
std::string fileProblem(const std::string& file);

// The extension in lower case with its dot; empty when there is none.
std::string fileExtension(const std::string& file);

// Reads an Archive file holding one map. On failure the map is empty and
// error tells why.
bool readArchiveMap(const std::string& file, ZentoCore::MapMetadata& map, std::string* error);
// Writes atomically: a failed save leaves an existing file as it was.
bool writeArchiveMap(const ZentoCore::MapMetadata& map, const std::string& file, std::string* error,
                     ZentoCore::Archive::Sync sync = ZentoCore::Archive::Sync::ToDisk);

// A name that stands as one element of a node path: "/" and control characters
// become "_", and an empty name becomes fallback. Everything else is kept, so
// "mixamorig:Hips" and "Left Arm" stay as they are.
std::string pathElementName(const std::string& name, const std::string& fallback);

// Translation, rotation and scale of m. A matrix with a zero scale has no
// rotation to speak of: it gives its translation, the lengths of its axes as
// scale, and the identity.
void splitMatrix(const Imath::M44d& m, Imath::V3d& translation, Imath::Quatd& rotation, Imath::V3d& scale);

} // namespace Zento
