#include "SkeletonLoader.h"

#include "ArrayMetadata.h"
#include "ImporterProcess.h"
#include "LoaderFiles.h"
#include "MapMetadata.h"
#include "MathUtils.h"
#include "UniqueNames.h"
#include "UsdaSkeletonReader.h"

#include <cmath>
#include <fstream>
#include <sstream>
#include <unordered_map>

namespace Zento {

namespace {

using ZentoCore::Joint;

// The keys of a joint in a ".zentoskel" file.
constexpr const char* kJointsKey = "joints";
constexpr const char* kNameKey = "name";
constexpr const char* kParentKey = "parent";
constexpr const char* kTranslationKey = "translation";
constexpr const char* kRotationKey = "rotation";
constexpr const char* kScaleKey = "scale";
constexpr const char* kIdKey = "id";

// Why a scene could not hold the joints' poses: a number that is not finite,
// or a world matrix that overflows; the empty text when it can. Parents come
// first, so each world matrix is the local one times the parent's.
std::string poseProblem(const std::vector<Joint>& joints)
{
    std::vector<Imath::M44d> worlds(joints.size());
    for (size_t index = 0; index < joints.size(); ++index) {
        const Joint& joint = joints[index];
        if (!ZentoCore::isFinite(joint.translation) || !ZentoCore::isFinite(joint.scale))
            return "the pose of the joint \"" + joint.name + "\" holds a number that is not finite";
        worlds[index] = joint.localMatrix();
        if (joint.parent >= 0)
            worlds[index] *= worlds[static_cast<size_t>(joint.parent)];
        if (!ZentoCore::isFinite(worlds[index]))
            return "the joint \"" + joint.name + "\" lies too far away: its world matrix overflows";
    }
    return std::string();
}

} // namespace

ZentoCore::Skeleton skeletonFromJoints(std::vector<Joint> joints, const std::string& file, std::string* error)
{
    ZentoCore::Skeleton skeleton;
    if (joints.empty()) {
        setError(error, cannotRead(file, "it holds no joints"));
        return skeleton;
    }
    if (joints.size() > ZentoCore::Skeleton::kMaxJoints) {
        setError(error, cannotRead(file, "it holds more than " + std::to_string(ZentoCore::Skeleton::kMaxJoints)
                                             + " joints"));
        return skeleton;
    }
    std::unordered_map<int, ZentoCore::UniqueNames> namesByParent;
    for (Joint& joint : joints) {
        joint.name = namesByParent[joint.parent].claim(pathElementName(joint.name, kJointFallbackName));
        if (!ZentoCore::unitQuaternion(joint.rotation, joint.rotation)) {
            setError(error, cannotRead(file, "the rotation of the joint \"" + joint.name
                                                 + "\" is no rotation: its quaternion is zero or not finite"));
            return skeleton;
        }
    }
    if (!skeleton.setJoints(std::move(joints))) {
        setError(error, cannotRead(file, "a joint's parent does not come before it"));
        return skeleton;
    }
    const std::string problem = poseProblem(skeleton.joints());
    if (!problem.empty()) {
        setError(error, cannotRead(file, problem));
        skeleton.clear();
    }
    return skeleton;
}

namespace {

bool readJoint(const ZentoCore::Metadata* value, Joint& joint)
{
    if (!value || value->typeId() != ZentoCore::MapMetadata::staticTypeId())
        return false;
    const auto& map = static_cast<const ZentoCore::MapMetadata&>(*value);
    const auto name = map.typedEntry<std::string>(kNameKey);
    const auto parent = map.typedEntry<int>(kParentKey);
    const auto translation = map.typedEntry<Imath::V3d>(kTranslationKey);
    const auto rotation = map.typedEntry<Imath::Quatd>(kRotationKey);
    const auto scale = map.typedEntry<Imath::V3d>(kScaleKey);
    const auto id = map.typedEntry<int>(kIdKey);
    if (!name || !parent || !translation || !rotation || !scale || !id)
        return false;
    joint.name = name->get();
    joint.parent = parent->get();
    joint.translation = translation->get();
    joint.rotation = rotation->get();
    joint.scale = scale->get();
    joint.id = id->get();
    return true;
}

ZentoCore::Skeleton loadZentoSkeleton(const std::string& file, std::string* error)
{
    ZentoCore::MapMetadata map;
    if (!readArchiveMap(file, map, error))
        return ZentoCore::Skeleton();
    const auto list = map.typedEntryAs<ZentoCore::ArrayMetadata>(kJointsKey);
    if (!list) {
        setError(error, cannotRead(file, "it holds no list of joints"));
        return ZentoCore::Skeleton();
    }
    std::vector<Joint> joints(list->get().size());
    for (size_t index = 0; index < joints.size(); ++index) {
        if (!readJoint(list->get()[index].get(), joints[index])) {
            setError(error, cannotRead(file, "joint " + std::to_string(index) + " misses a value or has one of the wrong type"));
            return ZentoCore::Skeleton();
        }
    }
    return skeletonFromJoints(std::move(joints), file, error);
}

ZentoCore::Skeleton loadUsdaSkeleton(const std::string& file, std::string* error)
{
    const std::string problem = fileProblem(file);
    if (!problem.empty()) {
        setError(error, problem);
        return ZentoCore::Skeleton();
    }
    std::ifstream in(file, std::ios::binary);
    std::stringstream text;
    text << in.rdbuf();
    std::vector<Joint> joints;
    std::string reason;
    if (!in || !readUsdaSkeleton(text.str(), joints, &reason)) {
        setError(error, cannotRead(file, reason.empty() ? "the file cannot be read" : reason));
        return ZentoCore::Skeleton();
    }
    return skeletonFromJoints(std::move(joints), file, error);
}

} // namespace

std::vector<std::string> skeletonExtensions()
{
    std::vector<std::string> extensions = {kSkeletonExtension, kUsdaExtension, kUsdExtension, kUsdcExtension};
    extensions.insert(extensions.end(), foreignExtensions().begin(), foreignExtensions().end());
    return extensions;
}

ZentoCore::Skeleton loadSkeleton(const std::string& file, std::string* error)
{
    const std::string extension = fileExtension(file);
    if (extension == kSkeletonExtension)
        return loadZentoSkeleton(file, error);
    if (extension == kUsdaExtension)
        return loadUsdaSkeleton(file, error);
    if (extension == kUsdExtension || extension == kUsdcExtension) {
        setError(error, cannotRead(file, "binary USD files are not supported; save the skeleton as .usda (USD's text form)"));
        return ZentoCore::Skeleton();
    }
    ZentoCore::Skeleton skeleton;
    importForeign(file, ForeignKind::Skeleton,
                  [&](const std::string& converted, std::string* reason) {
                      skeleton = loadZentoSkeleton(converted, reason);
                      return skeleton.numJoints() > 0;
                  },
                  error);
    return skeleton;
}

bool saveSkeleton(const ZentoCore::Skeleton& skeleton, const std::string& file, std::string* error,
                  ZentoCore::Archive::Sync sync)
{
    ZentoCore::ArrayMetadata list;
    for (const Joint& joint : skeleton.joints()) {
        ZentoCore::MapMetadata map;
        map.insertEntry(kNameKey, std::make_shared<ZentoCore::MetadataImpl<std::string>>(joint.name));
        map.insertEntry(kParentKey, std::make_shared<ZentoCore::MetadataImpl<int>>(joint.parent));
        map.insertEntry(kTranslationKey, std::make_shared<ZentoCore::MetadataImpl<Imath::V3d>>(joint.translation));
        map.insertEntry(kRotationKey, std::make_shared<ZentoCore::MetadataImpl<Imath::Quatd>>(joint.rotation));
        map.insertEntry(kScaleKey, std::make_shared<ZentoCore::MetadataImpl<Imath::V3d>>(joint.scale));
        map.insertEntry(kIdKey, std::make_shared<ZentoCore::MetadataImpl<int>>(joint.id));
        list.get().push_back(std::make_shared<ZentoCore::MapMetadata>(std::move(map)));
    }
    ZentoCore::MapMetadata root;
    root.insertEntry(kJointsKey, std::make_shared<ZentoCore::ArrayMetadata>(std::move(list)));
    return writeArchiveMap(root, file, error, sync);
}

} // namespace Zento
