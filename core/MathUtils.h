#pragma once

#include <Imath/ImathEuler.h>
#include <Imath/ImathMatrix.h>
#include <Imath/ImathQuat.h>
#include <Imath/ImathVec.h>

// Matrices are in Imath's row-vector convention: M = S * R * T applies S first.
namespace ZentoCore {

// No element is NaN or infinite.
bool isFinite(const Imath::V3d& v);
bool isFinite(const Imath::M44d& m);

// The unit quaternion of q's rotation, in unit; false, with unit the
// identity, for a q that is no rotation: zero, or not finite. Safe for any
// magnitude, where Imath's normalized() overflows or underflows.
bool unitQuaternion(const Imath::Quatd& q, Imath::Quatd& unit);

// The inverse; the identity for a singular matrix.
Imath::M44d matrixInverse(const Imath::M44d& m);
Imath::M44f matrixInverse(const Imath::M44f& m);

// The rotation followed by the translation: a rigid pose.
Imath::M44f poseMatrix(const Imath::Quatf& rotation, const Imath::V3f& translation);

// Scale, rotation and translation of m; false when m has a zero scale.
bool extractSRT(const Imath::M44d& m, Imath::V3d& s, Imath::Quatd& r, Imath::V3d& t);

// Scale, shear, rotation and translation of m, the rotation in the order that r
// holds on entry; false when m has a zero scale.
bool extractSHRT(Imath::M44d& m, Imath::V3d& s, Imath::V3d& h, Imath::Eulerd& r, Imath::V3d& t);
bool extractSHRT(Imath::M44f& m, Imath::V3f& s, Imath::V3f& h, Imath::Eulerf& r, Imath::V3f& t);

} // namespace ZentoCore
