// A mutator of the value tree for the fuzzers of our archive formats. Byte
// mutation alone seldom gets a payload past the reader, and never makes the
// trees that readers above it must refuse: a node that names itself as its
// parent, a body where the solver belongs, a value of the wrong type, a path
// nested under another, a number that is not finite. This decodes the
// payload, changes the tree itself (keys, types, parents, nesting, numbers)
// and encodes it again; a payload that does not decode is left to libFuzzer.

#include "Archive.h"
#include "ArrayMetadata.h"
#include "MapMetadata.h"
#include "TypedArrayMetadata.h"

#include <cstdint>
#include <cstring>
#include <limits>
#include <random>

extern "C" size_t LLVMFuzzerMutate(uint8_t* data, size_t size, size_t maxSize);

namespace {

using namespace ZentoCore;
using Random = std::minstd_rand;

// Numbers that readers must take or refuse, and no others in particular.
const double kNumbers[] = {0.0,
                           -1.0,
                           0.5,
                           1.0,
                           2.0,
                           1e-300,
                           1e300,
                           -1e300,
                           std::numeric_limits<double>::max(),
                           std::numeric_limits<double>::infinity(),
                           -std::numeric_limits<double>::infinity(),
                           std::numeric_limits<double>::quiet_NaN()};
const int kInts[] = {-1, 0, 1, 2, 3, 4, 5, 6, 7, 65535, std::numeric_limits<int>::min(), std::numeric_limits<int>::max()};
const unsigned int kTypeIds[] = {kMapTypeId,       kArrayTypeId,  kIntTypeId,         kDoubleTypeId,  kVec3dTypeId,
                                 kVec4dTypeId,     kQuatdTypeId,  kEulerdTypeId,      kStringTypeId,  kMatrix44dTypeId,
                                 kStringArrayTypeId, kBoolTypeId, kMeshTypeId,        kVec2dTypeId};

template <typename T, size_t N>
const T& pick(const T (&items)[N], Random& random)
{
    return items[random() % N];
}

double number(Random& random)
{
    return pick(kNumbers, random);
}

// Every map of the tree, with the top first.
void collectMaps(const std::shared_ptr<MapMetadata>& map, std::vector<std::shared_ptr<MapMetadata>>& maps)
{
    maps.push_back(map);
    for (const auto& entry : *map)
        if (entry.second && entry.second->typeId() == kMapTypeId)
            collectMaps(std::static_pointer_cast<MapMetadata>(entry.second), maps);
}

// A text that readers must take or refuse: the key of the entry at hand
// (so that a node names itself), a key of the top map (a path and a parent),
// one made from either, or one of a few of their own.
std::string text(const MapMetadata& top, const std::string& own, Random& random)
{
    const std::vector<std::string> keys = top.getKeys();
    const std::string key = random() % 3 == 0 || keys.empty() ? own : keys[random() % keys.size()];
    switch (random() % 7) {
    case 0: return key;
    case 1: return key + "/" + key.substr(key.rfind('/') + 1);
    case 2: return key.substr(0, key.rfind('/'));
    case 3: return "/Solver";
    case 4: return std::string();
    case 5: return key + "_RB";
    default: return key.substr(key.rfind('/') + 1);
    }
}

// A value of the type with numbers of the list above.
std::shared_ptr<Metadata> makeValue(unsigned int typeId, const MapMetadata& top, const std::string& own, Random& random)
{
    std::shared_ptr<Metadata> value = createMetadata(typeId);
    switch (typeId) {
    case kIntTypeId: static_cast<MetadataImpl<int>&>(*value).set(pick(kInts, random)); break;
    case kDoubleTypeId: static_cast<MetadataImpl<double>&>(*value).set(number(random)); break;
    case kBoolTypeId: static_cast<MetadataImpl<bool>&>(*value).set(random() % 2 == 0); break;
    case kStringTypeId: static_cast<MetadataImpl<std::string>&>(*value).set(text(top, own, random)); break;
    case kVec3dTypeId:
        static_cast<MetadataImpl<Imath::V3d>&>(*value).set(Imath::V3d(number(random), number(random), number(random)));
        break;
    case kQuatdTypeId:
        static_cast<MetadataImpl<Imath::Quatd>&>(*value).set(
            Imath::Quatd(number(random), number(random), number(random), number(random)));
        break;
    case kMatrix44dTypeId: static_cast<MetadataImpl<Imath::M44d>&>(*value).set(Imath::M44d(number(random))); break;
    default: break;
    }
    return value;
}

// One number of a value changed, where the value holds numbers.
void changeNumber(Metadata& value, Random& random)
{
    switch (value.typeId()) {
    case kIntTypeId: static_cast<MetadataImpl<int>&>(value).set(pick(kInts, random)); break;
    case kDoubleTypeId: static_cast<MetadataImpl<double>&>(value).set(number(random)); break;
    case kVec3dTypeId: static_cast<MetadataImpl<Imath::V3d>&>(value).get()[random() % 3] = number(random); break;
    case kVec4dTypeId: static_cast<MetadataImpl<Imath::V4d>&>(value).get()[random() % 4] = number(random); break;
    case kEulerdTypeId: static_cast<MetadataImpl<Imath::Eulerd>&>(value).get()[random() % 3] = number(random); break;
    case kQuatdTypeId: static_cast<MetadataImpl<Imath::Quatd>&>(value).get()[random() % 4] = number(random); break;
    case kMatrix44dTypeId:
        static_cast<MetadataImpl<Imath::M44d>&>(value).get()[random() % 4][random() % 4] = number(random);
        break;
    case kMeshTypeId: {
        ZentoUtils::Mesh& mesh = static_cast<MetadataImpl<ZentoUtils::Mesh>&>(value).get();
        if (!mesh.points.empty())
            mesh.points[random() % mesh.points.size()][random() % 3] = static_cast<float>(number(random));
        break;
    }
    default: break;
    }
}

// The keys of the map's entries that hold a value of the type.
std::vector<std::string> keysOfType(const MapMetadata& map, unsigned int typeId)
{
    std::vector<std::string> keys;
    for (const auto& entry : map)
        if (entry.second && entry.second->typeId() == typeId)
            keys.push_back(entry.first);
    return keys;
}

// A change to one entry of the top map, where every format keeps its nodes,
// bodies or joints: the texts that name others (parents, joints), the ints
// that tell types, its key, or a copy under another key.
void mutateEntry(MapMetadata& top, Random& random)
{
    const std::vector<std::string> entries = keysOfType(top, kMapTypeId);
    if (entries.empty())
        return;
    const std::string own = entries[random() % entries.size()];
    const auto entry = top.typedEntryAs<MapMetadata>(own);
    const std::vector<std::string> texts = keysOfType(*entry, kStringTypeId);
    const std::vector<std::string> ints = keysOfType(*entry, kIntTypeId);
    switch (random() % 4) {
    case 0:
        if (!texts.empty())
            entry->insertEntry(texts[random() % texts.size()], makeValue(kStringTypeId, top, own, random));
        break;
    case 1:
        if (!ints.empty())
            entry->insertEntry(ints[random() % ints.size()], makeValue(kIntTypeId, top, own, random));
        break;
    case 2:
        top.removeEntry(own);
        top.insertEntry(text(top, own, random), entry);
        break;
    default:
        top.insertEntry(text(top, own, random), entry->clone());
        break;
    }
}

// A change anywhere in the tree: a key, a type, an entry gone or copied,
// a nesting, a number.
void mutateTree(const std::shared_ptr<MapMetadata>& top, Random& random)
{
    std::vector<std::shared_ptr<MapMetadata>> maps;
    collectMaps(top, maps);
    MapMetadata& map = *maps[random() % maps.size()];
    const std::vector<std::string> keys = map.getKeys();
    const std::string key = keys.empty() ? text(*top, std::string("/"), random) : keys[random() % keys.size()];
    const std::shared_ptr<Metadata> value = map.getEntry(key);
    switch (random() % 6) {
    case 0: // a key renamed, maybe onto another
        if (value) {
            map.removeEntry(key);
            map.insertEntry(text(*top, key, random), value);
        }
        break;
    case 1: // a value of another type
        map.insertEntry(key, makeValue(pick(kTypeIds, random), *top, key, random));
        break;
    case 2: // an entry gone
        map.removeEntry(key);
        break;
    case 3: // a whole entry copied under another key, maybe deeper in the tree
        if (value)
            maps[random() % maps.size()]->insertEntry(text(*top, key, random), value->clone());
        break;
    case 4: // a value nested in a map or an array of its own
        if (value) {
            auto wrapper = std::make_shared<ArrayMetadata>();
            wrapper->get().push_back(value);
            auto inMap = std::make_shared<MapMetadata>();
            inMap->insertEntry(key, value);
            map.insertEntry(key, random() % 2 ? std::shared_ptr<Metadata>(wrapper) : inMap);
        }
        break;
    default: // a number
        if (value)
            changeNumber(*value, random);
        break;
    }
}

} // namespace

extern "C" size_t LLVMFuzzerCustomMutator(uint8_t* data, size_t size, size_t maxSize, unsigned int seed)
{
    Random random(seed);
    auto top = std::make_shared<MapMetadata>();
    Archive in;
    in.assignPayload(data, size);
    in >> *top;
    if (!in.good() || random() % 4 == 0)
        return LLVMFuzzerMutate(data, size, maxSize);
    for (unsigned int changes = 1 + random() % 3; changes > 0; --changes) {
        if (random() % 3 == 0)
            mutateEntry(*top, random);
        else
            mutateTree(top, random);
    }
    Archive out(top->memSize(), 0);
    out << *top;
    if (!out.good() || out.size() > maxSize)
        return LLVMFuzzerMutate(data, size, maxSize);
    std::memcpy(data, out.data(), out.size());
    return out.size();
}
