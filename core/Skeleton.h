#pragma once

#include <Imath/ImathMatrix.h>
#include <Imath/ImathQuat.h>
#include <Imath/ImathVec.h>

#include <string>
#include <vector>

namespace ZentoCore {

// One joint of a skeleton with its rest pose relative to its parent joint.
class Joint {
public:
    std::string name;
    int id = 0;
    int parent = -1; // index of the parent joint in its skeleton; -1 for a root
    Imath::V3d translation{0.0, 0.0, 0.0};
    Imath::Quatd rotation; // real part first; the identity by default
    Imath::V3d scale{1.0, 1.0, 1.0};

    // Scale, then rotation, then translation, in the row-vector convention.
    Imath::M44d localMatrix() const;

    unsigned short numChildren() const { return static_cast<unsigned short>(mChildIds.size()); }
    // Null for an index past the last child.
    const Joint* child(unsigned short index) const;
    const std::vector<unsigned short>& childIds() const { return mChildIds; }

private:
    friend class Skeleton;
    std::vector<unsigned short> mChildIds;
    const Joint* mFirstJoint = nullptr; // the skeleton's joint 0, which child ids count from
};

// Joints in an order where every parent comes before its children. The joint
// count is 16 bits wide; an empty skeleton stands for a file that could not be read.
class Skeleton {
public:
    static constexpr size_t kMaxJoints = 65535;

    Skeleton() = default;
    Skeleton(const Skeleton& other);
    Skeleton& operator=(const Skeleton& other);
    // A moved vector keeps its elements where they are, so the links stay valid.
    Skeleton(Skeleton&&) noexcept = default;
    Skeleton& operator=(Skeleton&&) noexcept = default;

    // Takes the joints with their parent indices and links the children in order.
    // False, leaving the skeleton empty, when there are more than kMaxJoints or a
    // parent index does not name an earlier joint.
    bool setJoints(std::vector<Joint> joints);
    void clear();

    unsigned short numJoints() const { return static_cast<unsigned short>(mJoints.size()); }
    const std::vector<unsigned short>& rootIds() const { return mRootIds; }
    // id must be below numJoints().
    Joint& joint(unsigned short id) { return mJoints[id]; }
    const Joint& joint(unsigned short id) const { return mJoints[id]; }
    const std::vector<Joint>& joints() const { return mJoints; }

private:
    void link();

    std::vector<Joint> mJoints;
    std::vector<unsigned short> mRootIds;
};

} // namespace ZentoCore
