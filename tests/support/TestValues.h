#pragma once

#include "ArrayMetadata.h"
#include "MapMetadata.h"
#include "TypedArrayMetadata.h"

#include <Imath/ImathBox.h>

#include <string>
#include <vector>

// A mesh of two faces, a triangle and a quad, with normals and uvs.
ZentoUtils::Mesh makeTestMesh();

// The box around a mesh's points.
Imath::Box3f boundsOf(const ZentoUtils::Mesh& mesh);

// A map with one entry of every value type, under the type's name.
ZentoCore::MapMetadata makeMapOfEveryType();

// Maps of arrays of maps, as the ragdoll file nests its drives.
ZentoCore::MapMetadata makeNestedMap();

// A map written as an archive file; false when it cannot be written.
bool writeArchive(const ZentoCore::MapMetadata& map, const std::string& path);

// The map of an archive file; empty when it cannot be read.
ZentoCore::MapMetadata readArchive(const std::string& path);

// The payload of an archive of the map: its bytes without the file's header,
// as the fuzzers take them.
std::vector<unsigned char> payloadOf(const ZentoCore::MapMetadata& map);
void writeBytes(const std::string& path, const std::vector<unsigned char>& bytes);

// Gives every value of the map, nested ones included, another value of its
// type that survives the trip through a float: doubles halved and moved by
// quarters, vectors made of quarters. Ints step round 0, 1 and 2, so that
// enumerations stay in range.
void changeEveryValue(ZentoCore::MapMetadata& map);

// Every value of changed differs from its counterpart in original, down to
// the maps in its arrays.
void expectEveryValueDiffers(const ZentoCore::MapMetadata& changed, const ZentoCore::MapMetadata& original);
