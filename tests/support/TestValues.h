#pragma once

#include "ArrayMetadata.h"
#include "MapMetadata.h"
#include "TypedArrayMetadata.h"

// A mesh of two faces, a triangle and a quad, with normals and uvs.
ZentoUtils::Mesh makeTestMesh();

// A map with one entry of every value type, under the type's name.
ZentoCore::MapMetadata makeMapOfEveryType();

// Maps of arrays of maps, as the ragdoll file nests its drives.
ZentoCore::MapMetadata makeNestedMap();
