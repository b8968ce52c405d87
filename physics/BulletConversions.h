#pragma once

// Conversions between the scene's Imath values and Bullet's, and the checks
// that keep values Bullet cannot take away from it.

#include <Imath/ImathQuat.h>
#include <Imath/ImathVec.h>
#include <LinearMath/btTransform.h>

#include <cmath>

namespace Zento {

inline bool isFinite(const Imath::V3f& v)
{
    return std::isfinite(v.x) && std::isfinite(v.y) && std::isfinite(v.z);
}

inline bool isFinite(const btVector3& v)
{
    return std::isfinite(v.x()) && std::isfinite(v.y()) && std::isfinite(v.z());
}

inline bool isFinite(const btTransform& t)
{
    const btQuaternion q = t.getRotation();
    return isFinite(t.getOrigin()) && std::isfinite(q.x()) && std::isfinite(q.y()) && std::isfinite(q.z()) &&
           std::isfinite(q.w());
}

inline double finiteOr(double value, double fallback)
{
    return std::isfinite(value) ? value : fallback;
}

// A finite value, no less than zero.
inline double nonNegative(double value)
{
    return value > 0.0 && std::isfinite(value) ? value : 0.0;
}

inline btVector3 toBullet(const Imath::V3f& v)
{
    return btVector3(v.x, v.y, v.z);
}

inline Imath::V3f fromBullet(const btVector3& v)
{
    return Imath::V3f(v.x(), v.y(), v.z());
}

inline btQuaternion toBullet(const Imath::Quatf& q)
{
    return btQuaternion(q.v.x, q.v.y, q.v.z, q.r);
}

inline Imath::Quatf fromBullet(const btQuaternion& q)
{
    return Imath::Quatf(q.w(), q.x(), q.y(), q.z());
}

} // namespace Zento
