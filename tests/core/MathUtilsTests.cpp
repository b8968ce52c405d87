#include "MathUtils.h"
#include "StringUtils.h"

#include <gtest/gtest.h>

#include <random>

using namespace ZentoCore;

namespace {

template <typename T>
Imath::Matrix44<T> composeSHRT(const Imath::Vec3<T>& s, const Imath::Vec3<T>& h, const Imath::Euler<T>& r,
                               const Imath::Vec3<T>& t)
{
    Imath::Matrix44<T> scale, shear, translation;
    scale.setScale(s);
    shear.setShear(h);
    translation.setTranslation(t);
    return scale * shear * r.toMatrix44() * translation;
}

template <typename T>
void expectMatrixNear(const Imath::Matrix44<T>& a, const Imath::Matrix44<T>& b, double tolerance)
{
    for (int i = 0; i < 4; ++i)
        for (int j = 0; j < 4; ++j)
            EXPECT_NEAR(a[i][j], b[i][j], tolerance) << i << "," << j;
}

} // namespace

TEST(MathUtils, InverseUndoesTheMatrixInDoubleAndFloat)
{
    std::mt19937 random(7);
    std::uniform_real_distribution<double> any(-3.0, 3.0);
    std::uniform_real_distribution<double> positive(0.2, 3.0);
    for (int i = 0; i < 50; ++i) {
        const Imath::M44d m = composeSHRT(Imath::V3d(positive(random), positive(random), -positive(random)),
                                          Imath::V3d(any(random) * 0.1, 0, any(random) * 0.1),
                                          Imath::Eulerd(any(random), any(random), any(random), Imath::Eulerd::ZYX),
                                          Imath::V3d(any(random), any(random), any(random)) * 100.0);
        expectMatrixNear(m * matrixInverse(m), Imath::M44d(), 1e-9);
        const Imath::M44f mf(m);
        expectMatrixNear(mf * matrixInverse(mf), Imath::M44f(), 1e-4);
    }
    // A projection is not affine: the inverse must not assume it is.
    Imath::M44d projection(1.5, 0, 0, 0, 0, 2, 0, 0, 0.1, 0.2, -1.0002, -1, 0, 0, -0.02, 0);
    expectMatrixNear(projection * matrixInverse(projection), Imath::M44d(), 1e-9);

    Imath::M44d singular;
    singular.setScale(Imath::V3d(1, 0, 1));
    expectMatrixNear(matrixInverse(singular), Imath::M44d(), 0.0);
}

TEST(MathUtils, ExtractSRTRecoversScaleRotationAndTranslation)
{
    const Imath::V3d s(2, 0.5, 3);
    Imath::Quatd r;
    r.setAxisAngle(Imath::V3d(1, 2, 3).normalized(), 0.8);
    const Imath::V3d t(-4, 5, 6);
    Imath::M44d scale, translation;
    scale.setScale(s);
    translation.setTranslation(t);
    const Imath::M44d m = scale * r.toMatrix44() * translation;

    Imath::V3d s2, t2;
    Imath::Quatd r2;
    ASSERT_TRUE(extractSRT(m, s2, r2, t2));
    EXPECT_TRUE(s2.equalWithAbsError(s, 1e-12));
    EXPECT_TRUE(t2.equalWithAbsError(t, 1e-12));
    EXPECT_NEAR(std::fabs(r2 ^ r), 1.0, 1e-12) << "the same rotation, up to sign";

    Imath::M44d flat;
    flat.setScale(Imath::V3d(1, 1, 0));
    EXPECT_FALSE(extractSRT(flat, s2, r2, t2));
}

TEST(MathUtils, ExtractSHRTGivesTheRotationInTheOrderHeldOnEntry)
{
    const Imath::Eulerd rotation(Imath::V3d(0.3, -1.1, 2.0), Imath::Eulerd::ZXY, Imath::Eulerd::XYZLayout);
    const Imath::M44d m = composeSHRT(Imath::V3d(1, 2, 3), Imath::V3d(0.1, 0, 0), rotation, Imath::V3d(7, 8, 9));
    for (Imath::Eulerd::Order order : {Imath::Eulerd::XYZ, Imath::Eulerd::ZXY, Imath::Eulerd::YZX}) {
        Imath::M44d copy = m;
        Imath::V3d s, h, t;
        Imath::Eulerd r(order);
        ASSERT_TRUE(extractSHRT(copy, s, h, r, t));
        EXPECT_EQ(r.order(), order);
        EXPECT_TRUE(s.equalWithAbsError(Imath::V3d(1, 2, 3), 1e-9));
        EXPECT_TRUE(h.equalWithAbsError(Imath::V3d(0.1, 0, 0), 1e-9));
        EXPECT_TRUE(t.equalWithAbsError(Imath::V3d(7, 8, 9), 1e-12));
        expectMatrixNear(composeSHRT(s, h, r, t), m, 1e-9);
        if (order == Imath::Eulerd::ZXY) {
            EXPECT_TRUE(r.toXYZVector().equalWithAbsError(rotation.toXYZVector(), 1e-9));
        }
    }

    Imath::M44f mf(m);
    Imath::V3f s, h, t;
    Imath::Eulerf r(Imath::Eulerf::ZXY);
    ASSERT_TRUE(extractSHRT(mf, s, h, r, t));
    EXPECT_EQ(r.order(), Imath::Eulerf::ZXY);
    expectMatrixNear(composeSHRT(s, h, r, t), Imath::M44f(m), 1e-4);
}

TEST(StringUtils, SplitKeepsEveryPieceInOrder)
{
    std::vector<std::string> pieces = {"kept"};
    ZentoUtils::splitString("/Skeleton/Left Arm/mixamorig:Hand", '/', pieces);
    const std::vector<std::string> expected = {"kept", "", "Skeleton", "Left Arm", "mixamorig:Hand"};
    EXPECT_EQ(pieces, expected);

    pieces.clear();
    ZentoUtils::splitString("", '/', pieces);
    EXPECT_EQ(pieces, std::vector<std::string>{""});
    pieces.clear();
    ZentoUtils::splitString("a//b/", '/', pieces);
    EXPECT_EQ(pieces, (std::vector<std::string>{"a", "", "b", ""}));
}
