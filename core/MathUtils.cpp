#include "MathUtils.h"

#include <Imath/ImathMatrixAlgo.h>

#include <algorithm>
#include <cmath>
#include <limits>

namespace ZentoCore {

namespace {

template <typename T>
Imath::Matrix44<T> inverseOrIdentity(const Imath::Matrix44<T>& m)
{
    // Imath's non-throwing form answers a singular matrix with the identity.
    return m.gjInverse();
}

template <typename T>
bool extractShearRotationTranslation(const Imath::Matrix44<T>& m, Imath::Vec3<T>& s, Imath::Vec3<T>& h,
                                     Imath::Euler<T>& r, Imath::Vec3<T>& t)
{
    // Imath's own Euler variant stores x-y-z angles into r's i-j-k slots for
    // orders other than XYZ, so extract in XYZ and convert.
    Imath::Vec3<T> xyzAngles;
    if (!Imath::extractSHRT(m, s, h, xyzAngles, t, false))
        return false;
    const Imath::Euler<T> inXYZ(xyzAngles, Imath::Euler<T>::XYZ);
    r = Imath::Euler<T>(inXYZ, r.order());
    return true;
}

} // namespace

bool isFinite(const Imath::V3d& v)
{
    return std::isfinite(v.x) && std::isfinite(v.y) && std::isfinite(v.z);
}

bool unitQuaternion(const Imath::Quatd& q, Imath::Quatd& unit)
{
    // q and unit may be one quaternion. Scaled by its largest part first, so
    // that no square overflows or underflows; one that is a unit quaternion
    // to the last bits stays as it is, so that files read back the same.
    const double largest = std::max({std::fabs(q.r), std::fabs(q.v.x), std::fabs(q.v.y), std::fabs(q.v.z)});
    if (!std::isfinite(largest) || largest == 0.0) {
        unit = Imath::Quatd();
        return false;
    }
    const Imath::Quatd scaled(q.r / largest, q.v / largest);
    const double length = scaled.length() * largest;
    if (std::fabs(length - 1.0) > 4.0 * std::numeric_limits<double>::epsilon())
        unit = scaled.normalized();
    else
        unit = q;
    return true;
}

bool isFinite(const Imath::M44d& m)
{
    for (int row = 0; row < 4; ++row)
        for (int column = 0; column < 4; ++column)
            if (!std::isfinite(m[row][column]))
                return false;
    return true;
}

Imath::M44d matrixInverse(const Imath::M44d& m)
{
    return inverseOrIdentity(m);
}

Imath::M44f matrixInverse(const Imath::M44f& m)
{
    return inverseOrIdentity(m);
}

Imath::M44f poseMatrix(const Imath::Quatf& rotation, const Imath::V3f& translation)
{
    Imath::M44f m = rotation.toMatrix44();
    m[3][0] = translation.x;
    m[3][1] = translation.y;
    m[3][2] = translation.z;
    return m;
}

bool extractSRT(const Imath::M44d& m, Imath::V3d& s, Imath::Quatd& r, Imath::V3d& t)
{
    Imath::M44d rotation = m;
    Imath::V3d shear;
    if (!Imath::extractAndRemoveScalingAndShear(rotation, s, shear, false))
        return false;
    r = Imath::extractQuat(rotation);
    t = Imath::V3d(m[3][0], m[3][1], m[3][2]);
    return true;
}

bool extractSHRT(Imath::M44d& m, Imath::V3d& s, Imath::V3d& h, Imath::Eulerd& r, Imath::V3d& t)
{
    return extractShearRotationTranslation(m, s, h, r, t);
}

bool extractSHRT(Imath::M44f& m, Imath::V3f& s, Imath::V3f& h, Imath::Eulerf& r, Imath::V3f& t)
{
    return extractShearRotationTranslation(m, s, h, r, t);
}

} // namespace ZentoCore
