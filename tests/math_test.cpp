// Tests of the header-only math kit: DGMatrix4, DGQuat, DGMath and DGTransform, in float and
// double. Exact comparisons pin the shortcuts and quirks; tolerances cover trigonometry only.
#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <cstring>
#include <initializer_list>
#include <limits>

#include "DGMath.h"
#include "DGMatrix4.h"
#include "DGQuat.h"
#include "DGTransform.h"

namespace {

template <class T>
DGMatrix4<T> matrixOf(std::initializer_list<T> values) {
    DGMatrix4<T> m;
    int e = 0;
    for (T v : values) m[e++] = v;
    return m;
}

template <class T>
bool sameBytes(const DGMatrix4<T>& a, const DGMatrix4<T>& b) {
    return std::memcmp(&a[0], &b[0], sizeof(DGMatrix4<T>)) == 0;
}

// The row vector (x, y, z, 1) times m, dropping the fourth component.
template <class T>
std::array<T, 3> transformPoint(T x, T y, T z, const DGMatrix4<T>& m) {
    std::array<T, 3> p;
    for (int c = 0; c < 3; ++c) p[c] = x * m[c] + y * m[4 + c] + z * m[8 + c] + m[12 + c];
    return p;
}

template <class T>
constexpr double kTolerance = std::is_same<T, float>::value ? 2e-6 : 1e-12;

template <class T>
void expectPoint(const std::array<T, 3>& p, double x, double y, double z) {
    EXPECT_NEAR(p[0], x, kTolerance<T>);
    EXPECT_NEAR(p[1], y, kTolerance<T>);
    EXPECT_NEAR(p[2], z, kTolerance<T>);
}

template <class T>
void expectQuat(const DGQuat<T>& q, double x, double y, double z, double w) {
    EXPECT_NEAR(q.x, x, kTolerance<T>);
    EXPECT_NEAR(q.y, y, kTolerance<T>);
    EXPECT_NEAR(q.z, z, kTolerance<T>);
    EXPECT_NEAR(q.w, w, kTolerance<T>);
}

template <class T>
void expectMatrixNear(const DGMatrix4<T>& a, const DGMatrix4<T>& b) {
    for (int e = 0; e < 16; ++e) EXPECT_NEAR(a[e], b[e], kTolerance<T>) << "element " << e;
}

template <class T>
DGQuat<T> diagonalQuat(T d0, T d1, T d2) {
    DGMatrix4<T> m = DGMatrix4<T>::Identity;
    m[0] = d0;
    m[5] = d1;
    m[10] = d2;
    DGQuat<T> q;
    return q.matrix4ToQuat(m);
}

template <class T>
class MathKit : public ::testing::Test {};
using Scalars = ::testing::Types<float, double>;
TYPED_TEST_SUITE(MathKit, Scalars);

TYPED_TEST(MathKit, ElementAccessIsRowMajorAndQuaternionIndexIsXYZW) {
    using T = TypeParam;
    const DGMatrix4<T>& id = DGMatrix4<T>::Identity;
    for (int e = 0; e < 16; ++e) EXPECT_EQ(id[e], (e % 5 == 0) ? T(1) : T(0)) << e;
    EXPECT_FALSE(std::signbit(id[1]));

    DGQuat<T> q(1, 2, 3, 4);
    q[2] = 7;
    EXPECT_EQ(q.z, T(7));
    EXPECT_EQ(q[0], T(1));
    EXPECT_EQ(q[1], T(2));
    EXPECT_EQ(q[3], T(4));
}

TYPED_TEST(MathKit, MultIdentityOperandCopiesTheOtherByteForByte) {
    using T = TypeParam;
    // Element 3 is not 0 while element 11 is: the arithmetic path would clear element 3.
    const DGMatrix4<T> m = matrixOf<T>({1, 2, 3, 5, 4, 5, 6, 0, 7, 8, 9, 0, 10, 11, 12, 3});
    DGMatrix4<T> out;
    DGMath::mult(m, DGMatrix4<T>::Identity, out);
    EXPECT_TRUE(sameBytes(out, m));
    DGMath::mult(DGMatrix4<T>::Identity, m, out);
    EXPECT_TRUE(sameBytes(out, m));
    EXPECT_TRUE(sameBytes(DGMath::mult(DGMatrix4<T>::Identity, DGMatrix4<T>::Identity, out),
                          DGMatrix4<T>::Identity));
}

TYPED_TEST(MathKit, MultNegativeZeroIsNotIdentity) {
    using T = TypeParam;
    const DGMatrix4<T> m = matrixOf<T>({1, 2, 3, 5, 4, 5, 6, 0, 7, 8, 9, 0, 10, 11, 12, 3});
    DGMatrix4<T> almost = DGMatrix4<T>::Identity;
    almost[11] = T(-0.0);  // equal to 0 by value, so the affine shortcut applies
    DGMatrix4<T> out;
    DGMath::mult(m, almost, out);
    EXPECT_EQ(out[3], T(0));
    EXPECT_EQ(out[15], T(1));
    EXPECT_EQ(out[12], T(10));
    DGMath::mult(almost, m, out);
    EXPECT_EQ(out[3], T(0));
    EXPECT_EQ(out[15], T(1));
}

TYPED_TEST(MathKit, MultAffineShortcutLooksOnlyAtElement11) {
    using T = TypeParam;
    // a: translation (1, 2, 3) with junk in elements 3 and 15; b: scale 2 with junk in 3 and 7.
    const DGMatrix4<T> a = matrixOf<T>({1, 0, 0, 4, 0, 1, 0, 0, 0, 0, 1, 0, 1, 2, 3, 7});
    const DGMatrix4<T> b = matrixOf<T>({2, 0, 0, 5, 0, 2, 0, 6, 0, 0, 2, 0, 0, 0, 0, 1});
    DGMatrix4<T> out;
    DGMath::mult(a, b, out);
    EXPECT_TRUE(sameBytes(out, matrixOf<T>({2, 0, 0, 0, 0, 2, 0, 0, 0, 0, 2, 0, 2, 4, 6, 1})));

    // A nonzero element 11 in either operand computes column 3 in full.
    DGMatrix4<T> b11 = b;
    b11[11] = 1;
    DGMath::mult(a, b11, out);
    EXPECT_EQ(out[3], T(1 * 5 + 4 * 1));
    EXPECT_EQ(out[7], T(6));
    EXPECT_EQ(out[15], T(1 * 5 + 2 * 6 + 3 * 1 + 7 * 1));
    DGMatrix4<T> a11 = a;
    a11[11] = 1;
    DGMath::mult(a11, b, out);
    EXPECT_EQ(out[3], T(1 * 5 + 4 * 1));
    EXPECT_EQ(out[11], T(1));
}

TYPED_TEST(MathKit, MultOutMayAliasEitherOperand) {
    using T = TypeParam;
    const DGMatrix4<T> a = matrixOf<T>({1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16});
    const DGMatrix4<T> b = matrixOf<T>({2, 0, 1, 0, 1, 3, 0, 1, 0, 1, 4, 2, 1, 0, 0, 1});
    DGMatrix4<T> expected;
    DGMath::mult(a, b, expected);
    EXPECT_EQ(expected[0], T(1 * 2 + 2 * 1 + 3 * 0 + 4 * 1));
    EXPECT_EQ(expected[11], T(9 * 0 + 10 * 1 + 11 * 2 + 12 * 1));

    DGMatrix4<T> left = a;
    EXPECT_EQ(&DGMath::mult(left, b, left), &left);
    EXPECT_TRUE(sameBytes(left, expected));
    DGMatrix4<T> right = b;
    DGMath::mult(a, right, right);
    EXPECT_TRUE(sameBytes(right, expected));
}

TYPED_TEST(MathKit, MatrixToQuatOfIdentity) {
    using T = TypeParam;
    DGQuat<T> q(9, 9, 9, 9);
    q.matrix4ToQuat(DGMatrix4<T>::Identity);
    EXPECT_EQ(q.x, T(0));
    EXPECT_EQ(q.y, T(0));
    EXPECT_EQ(q.z, T(0));
    EXPECT_EQ(q.w, T(1));
}

TYPED_TEST(MathKit, MatrixToQuatIndexTripleAndTraceTest) {
    using T = TypeParam;
    // Below the trace test a diagonal matrix yields the unit quaternion of the leading axis i.
    expectQuat(diagonalQuat<T>(1, -1, -1), 1, 0, 0, 0);
    expectQuat(diagonalQuat<T>(-1, 1, -1), 0, 1, 0, 0);
    expectQuat(diagonalQuat<T>(-1, -1, 1), 0, 0, 1, 0);
    // Ties go to the later axis.
    expectQuat(diagonalQuat<T>(1, 1, -1), 0, 1, 0, 0);
    expectQuat(diagonalQuat<T>(1, -1, 1), 0, 0, 1, 0);
    expectQuat(diagonalQuat<T>(-1, 1, 1), 0, 0, 1, 0);
    // Trace 1 is positive but not above the largest diagonal value 3.
    expectQuat(diagonalQuat<T>(3, -1, -1), 1, 0, 0, 0);
    // A negative radicand is not guarded: its NaN reaches the result.
    DGMatrix4<T> m;
    m[15] = -1;
    DGQuat<T> q;
    q.matrix4ToQuat(m);
    EXPECT_TRUE(std::isnan(q.z));
}

TYPED_TEST(MathKit, QuatMatrixRoundTripOfARotation) {
    using T = TypeParam;
    // A rotation of 170 degrees about y takes the non-trace branch, a small one the trace branch.
    for (double angle : {0.3, 2.967}) {
        DGTransform<T> t;
        t.rotateX = T(angle * 0.5);
        t.rotateY = T(angle);
        t.rotateZ = T(-0.2);
        const DGMatrix4<T> r = t.matrix();
        expectMatrixNear(DGMath::convertMat(DGMath::convertQuat(r)), r);
    }
    // A quarter turn about z as a quaternion rotates x onto y, as the transform's rotateZ does.
    const T h = T(std::sqrt(0.5));
    const DGMatrix4<T> rz = DGMath::convertMat(DGQuat<T>(0, 0, h, h));
    expectPoint(transformPoint(T(1), T(0), T(0), rz), 0, 1, 0);
    // convertMat does not normalise its input.
    EXPECT_EQ(DGMath::convertMat(DGQuat<T>(2, 0, 0, 0))[5], T(-7));
}

TYPED_TEST(MathKit, SlerpNearlyParallelInputsBlendLinearly) {
    using T = TypeParam;
    // |a . a| = 4: the blend normalises a for any t, where the arc would give NaN.
    const DGQuat<T> a(0, 0, 0, 2);
    for (T t : {T(0.25), T(3)}) expectQuat(DGMath::quatSphericalLinearInterp(a, a, t), 0, 0, 0, 1);

    // q and -q blend to the zero quaternion, returned unnormalised.
    const DGQuat<T> q(T(0.6), 0, 0, T(0.8));
    const DGQuat<T> zero = DGMath::quatSphericalLinearInterp(q, DGQuat<T>(-q.x, 0, 0, -q.w), 0.5);
    EXPECT_EQ(zero.x, T(0));
    EXPECT_EQ(zero.w, T(0));

    // The threshold 0.9995 itself goes to the arc (which keeps cos of the angle); just above it
    // the blend returns b normalised, exactly 1.
    const DGQuat<T> unit(0, 0, 0, 1);
    const T threshold = T(0.9995);
    EXPECT_EQ(DGMath::quatSphericalLinearInterp(unit, DGQuat<T>(0, 0, 0, threshold), 1).w,
              threshold);
    const T above = std::nextafter(threshold, T(2));
    EXPECT_EQ(DGMath::quatSphericalLinearInterp(unit, DGQuat<T>(0, 0, 0, above), 1).w, T(1));
}

TYPED_TEST(MathKit, SlerpTakesTheLongArc) {
    using T = TypeParam;
    const DGQuat<T> a(0, 0, 0, 1);
    const DGQuat<T> b(0, 0, T(std::sqrt(0.75)), T(-0.5));  // a . b = -0.5: 120 degrees apart
    expectQuat(DGMath::quatSphericalLinearInterp(a, b, 0.5f), 0, 0, std::sqrt(0.75), 0.5);
    expectQuat(DGMath::quatSphericalLinearInterp(a, b, 1.0), 0, 0, std::sqrt(0.75), -0.5);
}

TYPED_TEST(MathKit, QuadraticInterpFollowsTheAngleParabola) {
    using T = TypeParam;
    const DGQuat<T> a(0, 0, 0, 1);
    const DGQuat<T> b(0, 0, T(std::sin(0.3)), T(std::cos(0.3)));
    const DGQuat<T> c(T(std::sin(0.5)), 0, 0, T(std::cos(0.5)));  // off the plane of a and b
    expectQuat(DGMath::quatSphericalQuadraticInterp(a, b, c, -1), 0, 0, 0, 1);
    expectQuat(DGMath::quatSphericalQuadraticInterp(a, b, c, 0), 0, 0, std::sin(0.3),
               std::cos(0.3));
    expectQuat(DGMath::quatSphericalQuadraticInterp(a, b, c, 1), 0, 0, std::sin(0.5),
               std::cos(0.5));

    // Nearly parallel a and b blend linearly, extrapolating past b and ignoring c.
    const DGQuat<T> near(0, 0, T(0.01), 1);
    const DGQuat<T> blended = DGMath::quatSphericalQuadraticInterp(a, near, c, 1);
    const double n = std::sqrt(0.02 * 0.02 + 1.0);
    expectQuat(blended, 0, 0, 0.02 / n, 1.0 / n);
    const DGQuat<T> other = DGMath::quatSphericalQuadraticInterp(a, near, a, 1);
    EXPECT_EQ(blended.z, other.z);
}

TYPED_TEST(MathKit, CubicFactors) {
    using T = TypeParam;
    const T table[][5] = {{0, 0, 1, 0, 0},
                          {1, 0, 0, 1, 0},
                          {0.5, -0.0625, 0.5625, 0.5625, -0.0625},
                          {-0.5, 0.5625, 0.1875, 0.4375, -0.1875}};
    for (const auto& row : table) {
        T w[4];
        DGMath::getCubicFactors<T, T>(w[0], w[1], w[2], w[3], row[0]);
        for (int i = 0; i < 4; ++i) EXPECT_EQ(w[i], row[i + 1]) << "f " << row[0] << " w" << i;
    }
}

TYPED_TEST(MathKit, TransformDefaultsAndChannelNames) {
    using T = TypeParam;
    DGTransform<T> t;
    EXPECT_EQ(&t.matrix(), &t.resultMatrix);
    EXPECT_TRUE(sameBytes(t.resultMatrix, DGMatrix4<T>::Identity));
    EXPECT_EQ(t.scaleZ, T(1));
    EXPECT_EQ(t.uniformScale, T(1));
    EXPECT_EQ(t.shearXY, T(0));

    EXPECT_STREQ(DGTransform<T>::ParamName[0], "translateX");
    EXPECT_STREQ(DGTransform<T>::ParamName[12], "rotatePivotTranslateX");
    EXPECT_STREQ(DGTransform<T>::ParamName[18], "uniformScale");
    EXPECT_STREQ(DGTransform<T>::ParamName[27], "scalePivotTranslateZ");
    EXPECT_STREQ(DGTransform<T>::paramName(29), "transformOrder");
    for (int c : {30, 31, 1000, -1}) EXPECT_STREQ(DGTransform<T>::paramName(c), "ERROR");
}

TYPED_TEST(MathKit, TransformScalePivotShearAndScale) {
    using T = TypeParam;
    // A scale pivot alone cancels numerically, yet is never taken as neutral: a NaN pivot shows
    // that both pivot stages ran.
    DGTransform<T> pivot;
    pivot.scalePivotX = 5;
    pivot.scalePivotY = -3;
    for (int e = 0; e < 16; ++e) EXPECT_EQ(pivot.matrix()[e], DGMatrix4<T>::Identity[e]);
    pivot.scalePivotZ = std::numeric_limits<T>::quiet_NaN();
    EXPECT_TRUE(std::isnan(pivot.matrix()[14]));

    DGTransform<T> scale;
    scale.uniformScale = 2;
    scale.scaleX = 3;
    const DGMatrix4<T>& s = scale.matrix();
    EXPECT_EQ(s[0], T(6));
    EXPECT_EQ(s[5], T(2));
    EXPECT_EQ(s[10], T(2));
    EXPECT_EQ(s[15], T(1));

    DGTransform<T> shear;
    shear.shearXY = 1;
    EXPECT_EQ(transformPoint(T(0), T(1), T(0), shear.matrix()), (std::array<T, 3>{1, 1, 0}));

    // Scale happens about the pivot: (3, 0, 0) is 1 from pivot (2, 0, 0), and lands 2 from it.
    DGTransform<T> about;
    about.scaleX = 2;
    about.scalePivotX = 2;
    EXPECT_EQ(transformPoint(T(3), T(0), T(0), about.matrix()), (std::array<T, 3>{4, 0, 0}));
}

TYPED_TEST(MathKit, TransformAxisRotations) {
    using T = TypeParam;
    const T quarter = T(M_PI / 2);
    DGTransform<T> t;
    t.rotateZ = quarter;
    expectPoint(transformPoint(T(1), T(0), T(0), t.matrix()), 0, 1, 0);
    t.rotateZ = 0;
    t.rotateX = quarter;
    expectPoint(transformPoint(T(0), T(1), T(0), t.matrix()), 0, 0, 1);
    t.rotateX = 0;
    t.rotateY = quarter;
    expectPoint(transformPoint(T(0), T(0), T(1), t.matrix()), 1, 0, 0);

    // About the rotate pivot (1, 0, 0), then offset by the rotate pivot translate.
    DGTransform<T> pivot;
    pivot.rotateZ = quarter;
    pivot.rotatePivotX = 1;
    pivot.rotatePivotTranslateZ = 5;
    expectPoint(transformPoint(T(2), T(0), T(0), pivot.matrix()), 1, 1, 5);
}

TYPED_TEST(MathKit, TransformRotateOrderProducts) {
    using T = TypeParam;
    const T angles[3] = {T(0.4), T(-0.7), T(1.1)};
    DGMatrix4<T> axis[3];
    for (int i = 0; i < 3; ++i) {
        DGTransform<T> single;
        (i == 0 ? single.rotateX : i == 1 ? single.rotateY : single.rotateZ) = angles[i];
        axis[i] = single.matrix();
    }
    const int orders[6][3] = {{0, 1, 2}, {1, 2, 0}, {2, 0, 1}, {0, 2, 1}, {1, 0, 2}, {2, 1, 0}};
    for (int order = 0; order < 6; ++order) {
        DGMatrix4<T> expected;
        DGMath::mult(axis[orders[order][0]], axis[orders[order][1]], expected);
        DGMath::mult(expected, axis[orders[order][2]], expected);

        DGTransform<T> rotate;
        rotate.rotateOrder = order;
        rotate.rotateX = angles[0];
        rotate.rotateY = angles[1];
        rotate.rotateZ = angles[2];
        EXPECT_TRUE(sameBytes(rotate.matrix(), expected)) << "rotateOrder " << order;

        // The rotate-axis stage follows the same order.
        DGTransform<T> rotateAxis;
        rotateAxis.rotateOrder = order;
        rotateAxis.rotateAxisX = angles[0];
        rotateAxis.rotateAxisY = angles[1];
        rotateAxis.rotateAxisZ = angles[2];
        EXPECT_TRUE(sameBytes(rotateAxis.matrix(), expected)) << "rotateOrder " << order;
    }
}

TYPED_TEST(MathKit, TransformGroupOrderProducts) {
    using T = TypeParam;
    DGTransform<T> scaleOnly, rotateOnly, translateOnly;
    scaleOnly.scaleX = 2;
    scaleOnly.shearXZ = T(0.5);
    rotateOnly.rotateY = T(0.6);
    rotateOnly.rotatePivotZ = 1;
    translateOnly.translateX = 1;
    translateOnly.translateZ = 3;
    const DGMatrix4<T> group[3] = {scaleOnly.matrix(), rotateOnly.matrix(), translateOnly.matrix()};
    const int orders[6][3] = {{0, 1, 2}, {0, 2, 1}, {1, 0, 2}, {1, 2, 0}, {2, 0, 1}, {2, 1, 0}};
    for (int order = 0; order < 6; ++order) {
        DGMatrix4<T> expected;
        DGMath::mult(group[orders[order][0]], group[orders[order][1]], expected);
        DGMath::mult(expected, group[orders[order][2]], expected);

        DGTransform<T> t;
        t.transformOrder = order;
        t.scaleX = scaleOnly.scaleX;
        t.shearXZ = scaleOnly.shearXZ;
        t.rotateY = rotateOnly.rotateY;
        t.rotatePivotZ = rotateOnly.rotatePivotZ;
        t.translateX = translateOnly.translateX;
        t.translateZ = translateOnly.translateZ;
        EXPECT_TRUE(sameBytes(t.matrix(), expected)) << "transformOrder " << order;
    }
}

TYPED_TEST(MathKit, TransformOrdersOutOfRangeComposeLikeZero) {
    using T = TypeParam;
    DGTransform<T> t;
    t.translateX = 1;
    t.translateY = 2;
    t.translateZ = 3;
    t.rotateX = T(0.3);
    t.rotateY = T(0.5);
    t.rotateZ = T(0.7);
    t.scaleX = 2;
    const DGMatrix4<T> reference = t.matrix();
    t.rotateOrder = 1;
    EXPECT_FALSE(sameBytes(t.matrix(), reference));
    for (int order : {9, -1, 6}) {
        t.rotateOrder = order;
        EXPECT_TRUE(sameBytes(t.matrix(), reference)) << "rotateOrder " << order;
    }
    t.rotateOrder = 0;
    t.transformOrder = 4;
    EXPECT_FALSE(sameBytes(t.matrix(), reference));
    for (int order : {-1, 6}) {
        t.transformOrder = order;
        EXPECT_TRUE(sameBytes(t.matrix(), reference)) << "transformOrder " << order;
    }
}

TYPED_TEST(MathKit, TransformOrderPlacesTheTranslation) {
    using T = TypeParam;
    DGTransform<T> t;
    t.translateX = 1;
    t.translateY = 2;
    t.translateZ = 3;
    t.uniformScale = 2;
    EXPECT_EQ(transformPoint(T(1), T(0), T(0), t.matrix()), (std::array<T, 3>{3, 2, 3}));
    t.transformOrder = 4;  // translate, scale, rotate: the translation is scaled too
    EXPECT_EQ(transformPoint(T(1), T(0), T(0), t.matrix()), (std::array<T, 3>{4, 4, 6}));
    t.transformOrder = 1;  // scale, translate, rotate: a quarter turn about z now moves it
    t.rotateZ = T(M_PI / 2);
    expectPoint(transformPoint(T(1), T(0), T(0), t.matrix()), -2, 3, 3);
}

}  // namespace
