#include "Skeleton.h"

namespace ZentoCore {

Imath::M44d Joint::localMatrix() const
{
    Imath::M44d scaling;
    scaling.setScale(scale);
    Imath::M44d moving;
    moving.setTranslation(translation);
    return scaling * rotation.normalized().toMatrix44() * moving;
}

const Joint* Joint::child(unsigned short index) const
{
    return index < mChildIds.size() ? mFirstJoint + mChildIds[index] : nullptr;
}

Skeleton::Skeleton(const Skeleton& other) : mJoints(other.mJoints), mRootIds(other.mRootIds)
{
    link();
}

Skeleton& Skeleton::operator=(const Skeleton& other)
{
    if (this != &other) {
        mJoints = other.mJoints;
        mRootIds = other.mRootIds;
        link();
    }
    return *this;
}

bool Skeleton::setJoints(std::vector<Joint> joints)
{
    clear();
    if (joints.size() > kMaxJoints)
        return false;
    for (size_t index = 0; index < joints.size(); ++index) {
        Joint& joint = joints[index];
        joint.mChildIds.clear();
        if (joint.parent < -1 || joint.parent >= static_cast<long long>(index)) {
            clear();
            return false;
        }
        const auto id = static_cast<unsigned short>(index);
        if (joint.parent < 0)
            mRootIds.push_back(id);
        else
            joints[static_cast<size_t>(joint.parent)].mChildIds.push_back(id);
    }
    mJoints = std::move(joints);
    link();
    return true;
}

void Skeleton::clear()
{
    mJoints.clear();
    mRootIds.clear();
}

void Skeleton::link()
{
    for (Joint& joint : mJoints)
        joint.mFirstJoint = mJoints.data();
}

} // namespace ZentoCore
