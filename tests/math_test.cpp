// Tests of the header-only math kit in float and double. Exact comparisons pin the shortcuts and
// quirks; tolerances cover trigonometry only.
#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <cstring>
#include <initializer_list>
#include <limits>
#include <utility>
#include <vector>

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
std::vector<T> elements(const DGMatrix4<T>& m, std::initializer_list<int> indices) {
    std::vector<T> out;
    for (int e : indices) out.push_back(m[e]);
    return out;
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

template <class T, std::size_t N>
void expectNear(const std::array<T, N>& actual, const std::array<double, N>& expected) {
    for (std::size_t i = 0; i < N; ++i) EXPECT_NEAR(actual[i], expected[i], kTolerance<T>) << i;
}

template <class T>
void expectQuat(const DGQuat<T>& q, double x, double y, double z, double w) {
    expectNear(std::array<T, 4>{q.x, q.y, q.z, q.w}, {x, y, z, w});
}

template <class T>
DGQuat<T> diagonalQuat(T d0, T d1, T d2) {
    DGMatrix4<T> m = DGMatrix4<T>::Identity;
    m[0] = d0;
    m[5] = d1;
    m[10] = d2;
    return DGMath::convertQuat(m);
}

// m[order[0]] * m[order[1]] * m[order[2]].
template <class T>
DGMatrix4<T> product(const DGMatrix4<T> (&m)[3], const int (&order)[3]) {
    DGMatrix4<T> out;
    DGMath::mult(m[order[0]], m[order[1]], out);
    return DGMath::mult(out, m[order[2]], out);
}

// A transform with the given channels set and all others at their defaults.
template <class T>
DGTransform<T> transformOf(std::initializer_list<std::pair<T DGTransform<T>::*, T>> channels,
                           int rotateOrder = 0, int transformOrder = 0) {
    DGTransform<T> t;
    for (const auto& channel : channels) t.*channel.first = channel.second;
    t.rotateOrder = rotateOrder;
    t.transformOrder = transformOrder;
    return t;
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
    EXPECT_EQ((std::vector<T>{q[0], q[1], q.z, q[3]}), (std::vector<T>{1, 2, 7, 4}));
    EXPECT_EQ(&q[9], &q.w);  // any other index reaches w
}

TYPED_TEST(MathKit, MultShortcuts) {
    using T = TypeParam;
    const DGMatrix4<T>& id = DGMatrix4<T>::Identity;
    // Element 3 is not 0 while element 11 is: the arithmetic path would clear element 3.
    const DGMatrix4<T> m = matrixOf<T>({1, 2, 3, 5, 4, 5, 6, 0, 7, 8, 9, 0, 10, 11, 12, 3});
    DGMatrix4<T> out;
    EXPECT_TRUE(sameBytes(DGMath::mult(m, id, out), m));
    EXPECT_TRUE(sameBytes(DGMath::mult(id, m, out), m));
    EXPECT_TRUE(sameBytes(DGMath::mult(id, id, out), id));

    // A -0 element makes the operand differ from Identity by bytes, not by value: the affine
    // path runs.
    DGMatrix4<T> almost = id;
    almost[11] = T(-0.0);
    EXPECT_EQ(elements(DGMath::mult(m, almost, out), {3, 15, 12}), (std::vector<T>{0, 1, 10}));
    EXPECT_EQ(elements(DGMath::mult(almost, m, out), {3, 15}), (std::vector<T>{0, 1}));

    // a: translation (1, 2, 3) with junk in elements 3 and 15; b: scale 2 with junk in 3 and 7.
    // With element 11 zero in both, column 3 is not computed but set to (0, 0, 0, 1).
    const DGMatrix4<T> a = matrixOf<T>({1, 0, 0, 4, 0, 1, 0, 0, 0, 0, 1, 0, 1, 2, 3, 7});
    const DGMatrix4<T> b = matrixOf<T>({2, 0, 0, 5, 0, 2, 0, 6, 0, 0, 2, 0, 0, 0, 0, 1});
    EXPECT_TRUE(sameBytes(DGMath::mult(a, b, out),
                          matrixOf<T>({2, 0, 0, 0, 0, 2, 0, 0, 0, 0, 2, 0, 2, 4, 6, 1})));
    // A nonzero element 11 in either operand computes column 3 in full.
    DGMatrix4<T> b11 = b;
    b11[11] = 1;
    EXPECT_EQ(elements(DGMath::mult(a, b11, out), {3, 7, 15}),
              (std::vector<T>{1 * 5 + 4 * 1, 6, 1 * 5 + 2 * 6 + 3 * 1 + 7 * 1}));
    DGMatrix4<T> a11 = a;
    a11[11] = 1;
    EXPECT_EQ(elements(DGMath::mult(a11, b, out), {3, 11}), (std::vector<T>{1 * 5 + 4 * 1, 1}));
}

TYPED_TEST(MathKit, MultOutMayAliasEitherOperand) {
    using T = TypeParam;
    const DGMatrix4<T> a = matrixOf<T>({1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16});
    const DGMatrix4<T> b = matrixOf<T>({2, 0, 1, 0, 1, 3, 0, 1, 0, 1, 4, 2, 1, 0, 0, 1});
    DGMatrix4<T> expected;
    EXPECT_EQ(elements(DGMath::mult(a, b, expected), {0, 11}),
              (std::vector<T>{1 * 2 + 2 * 1 + 3 * 0 + 4 * 1, 9 * 0 + 10 * 1 + 11 * 2 + 12 * 1}));
    DGMatrix4<T> left = a;
    EXPECT_EQ(&DGMath::mult(left, b, left), &left);
    EXPECT_TRUE(sameBytes(left, expected));
    DGMatrix4<T> right = b;
    EXPECT_TRUE(sameBytes(DGMath::mult(a, right, right), expected));
}

TYPED_TEST(MathKit, MatrixToQuatIndexTripleAndTraceTest) {
    using T = TypeParam;
    DGQuat<T> q(9, 9, 9, 9);
    q.matrix4ToQuat(DGMatrix4<T>::Identity);
    EXPECT_EQ((std::vector<T>{q.x, q.y, q.z, q.w}), (std::vector<T>{0, 0, 0, 1}));
    // Below the trace test a diagonal matrix yields the unit quaternion of the leading axis.
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
    EXPECT_TRUE(std::isnan(DGMath::convertQuat(m).z));
}

TYPED_TEST(MathKit, QuatMatrixRoundTripOfARotation) {
    using T = TypeParam;
    // A rotation of 170 degrees about y takes the non-trace branch, a small one the trace branch.
    for (double angle : {0.3, 2.967}) {
        using X = DGTransform<T>;
        X t = transformOf<T>(
            {{&X::rotateX, T(angle * 0.5)}, {&X::rotateY, T(angle)}, {&X::rotateZ, T(-0.2)}});
        const DGMatrix4<T> r = t.matrix();
        const DGMatrix4<T> back = DGMath::convertMat(DGMath::convertQuat(r));
        for (int e = 0; e < 16; ++e) EXPECT_NEAR(back[e], r[e], kTolerance<T>) << e;
    }
    // A quarter turn about z as a quaternion rotates x onto y, as the transform's rotateZ does.
    const T h = T(std::sqrt(0.5));
    const DGMatrix4<T> rz = DGMath::convertMat(DGQuat<T>(0, 0, h, h));
    expectNear(transformPoint(T(1), T(0), T(0), rz), {0, 1, 0});
    // convertMat does not normalise its input.
    EXPECT_EQ(DGMath::convertMat(DGQuat<T>(2, 0, 0, 0))[5], T(-7));
}

TYPED_TEST(MathKit, SlerpBlendsNearlyParallelInputsAndTakesTheLongArc) {
    using T = TypeParam;
    // |a . a| = 4: the blend normalises a for any t, where the arc would give NaN.
    const DGQuat<T> a(0, 0, 0, 2);
    for (T t : {T(0.25), T(3)}) expectQuat(DGMath::quatSphericalLinearInterp(a, a, t), 0, 0, 0, 1);

    // q and -q blend to the zero quaternion, returned unnormalised.
    const DGQuat<T> q(T(0.6), 0, 0, T(0.8));
    const DGQuat<T> zero = DGMath::quatSphericalLinearInterp(q, DGQuat<T>(-q.x, 0, 0, -q.w), 0.5);
    EXPECT_EQ((std::vector<T>{zero.x, zero.w}), (std::vector<T>{0, 0}));

    // The threshold 0.9995 itself goes to the arc (which keeps cos of the angle); just above it
    // the blend returns b normalised, exactly 1.
    const DGQuat<T> unit(0, 0, 0, 1);
    const T threshold = T(0.9995);
    EXPECT_EQ(DGMath::quatSphericalLinearInterp(unit, DGQuat<T>(0, 0, 0, threshold), 1).w,
              threshold);
    const T above = std::nextafter(threshold, T(2));
    EXPECT_EQ(DGMath::quatSphericalLinearInterp(unit, DGQuat<T>(0, 0, 0, above), 1).w, T(1));

    // a . b = -0.5, 120 degrees apart: b is never negated, so the middle lies on the long arc.
    const DGQuat<T> b(0, 0, T(std::sqrt(0.75)), T(-0.5));
    expectQuat(DGMath::quatSphericalLinearInterp(unit, b, 0.5f), 0, 0, std::sqrt(0.75), 0.5);
    expectQuat(DGMath::quatSphericalLinearInterp(unit, b, 1.0), 0, 0, std::sqrt(0.75), -0.5);
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
    EXPECT_EQ(blended.z, DGMath::quatSphericalQuadraticInterp(a, near, a, 1).z);
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

TYPED_TEST(MathKit, TransformNeutralResultAndChannelNames) {
    using T = TypeParam;
    DGTransform<T> t;
    EXPECT_EQ(&t.matrix(), &t.resultMatrix);
    EXPECT_TRUE(sameBytes(t.resultMatrix, DGMatrix4<T>::Identity));

    EXPECT_STREQ(DGTransform<T>::ParamName[0], "translateX");
    EXPECT_STREQ(DGTransform<T>::ParamName[12], "rotatePivotTranslateX");
    EXPECT_STREQ(DGTransform<T>::ParamName[18], "uniformScale");
    EXPECT_STREQ(DGTransform<T>::ParamName[27], "scalePivotTranslateZ");
    EXPECT_STREQ(DGTransform<T>::paramName(29), "transformOrder");
    for (int c : {30, 31, 1000, -1}) EXPECT_STREQ(DGTransform<T>::paramName(c), "ERROR");
}

TYPED_TEST(MathKit, TransformStages) {
    using T = TypeParam;
    using X = DGTransform<T>;
    // A scale pivot alone cancels numerically, yet is never taken as neutral: a NaN pivot shows
    // that both pivot stages ran.
    X pivot = transformOf<T>({{&X::scalePivotX, 5}, {&X::scalePivotY, -3}});
    for (int e = 0; e < 16; ++e) EXPECT_EQ(pivot.matrix()[e], DGMatrix4<T>::Identity[e]);
    pivot.scalePivotZ = std::numeric_limits<T>::quiet_NaN();
    EXPECT_TRUE(std::isnan(pivot.matrix()[14]));

    X scale = transformOf<T>({{&X::uniformScale, 2}, {&X::scaleX, 3}});
    EXPECT_EQ(elements(scale.matrix(), {0, 5, 10, 15}), (std::vector<T>{6, 2, 2, 1}));
    X shear = transformOf<T>({{&X::shearXY, 1}});
    EXPECT_EQ(transformPoint(T(0), T(1), T(0), shear.matrix()), (std::array<T, 3>{1, 1, 0}));
    // Scale happens about the pivot: (3, 0, 0) is 1 from pivot (2, 0, 0), and lands 2 from it.
    X about = transformOf<T>({{&X::scaleX, 2}, {&X::scalePivotX, 2}});
    EXPECT_EQ(transformPoint(T(3), T(0), T(0), about.matrix()), (std::array<T, 3>{4, 0, 0}));

    const T quarter = T(M_PI / 2);
    X rotate = transformOf<T>({{&X::rotateZ, quarter}});
    expectNear(transformPoint(T(1), T(0), T(0), rotate.matrix()), {0, 1, 0});
    rotate = transformOf<T>({{&X::rotateX, quarter}});
    expectNear(transformPoint(T(0), T(1), T(0), rotate.matrix()), {0, 0, 1});
    rotate = transformOf<T>({{&X::rotateY, quarter}});
    expectNear(transformPoint(T(0), T(0), T(1), rotate.matrix()), {1, 0, 0});
    // About the rotate pivot (1, 0, 0), then offset by the rotate pivot translate.
    rotate = transformOf<T>(
        {{&X::rotateZ, quarter}, {&X::rotatePivotX, 1}, {&X::rotatePivotTranslateZ, 5}});
    expectNear(transformPoint(T(2), T(0), T(0), rotate.matrix()), {1, 1, 5});
}

// Orders outside 0..5 compose like order 0.
TYPED_TEST(MathKit, TransformRotateAndGroupOrderProducts) {
    using T = TypeParam;
    using X = DGTransform<T>;
    const auto row = [](int order) { return order >= 0 && order <= 5 ? order : 0; };
    const T angles[3] = {T(0.4), T(-0.7), T(1.1)};
    const DGMatrix4<T> axis[3] = {transformOf<T>({{&X::rotateX, angles[0]}}).matrix(),
                                  transformOf<T>({{&X::rotateY, angles[1]}}).matrix(),
                                  transformOf<T>({{&X::rotateZ, angles[2]}}).matrix()};
    const int rotateOrders[6][3] = {{0, 1, 2}, {1, 2, 0}, {2, 0, 1},
                                    {0, 2, 1}, {1, 0, 2}, {2, 1, 0}};
    X rotate = transformOf<T>(
        {{&X::rotateX, angles[0]}, {&X::rotateY, angles[1]}, {&X::rotateZ, angles[2]}});
    X rotateAxis = transformOf<T>(
        {{&X::rotateAxisX, angles[0]}, {&X::rotateAxisY, angles[1]}, {&X::rotateAxisZ, angles[2]}});
    for (int order : {0, 1, 2, 3, 4, 5, 6, 9, -1}) {
        SCOPED_TRACE(order);
        const DGMatrix4<T> expected = product(axis, rotateOrders[row(order)]);
        rotate.rotateOrder = rotateAxis.rotateOrder = order;
        EXPECT_TRUE(sameBytes(rotate.matrix(), expected));
        EXPECT_TRUE(sameBytes(rotateAxis.matrix(), expected));
    }

    const DGMatrix4<T> group[3] = {
        transformOf<T>({{&X::scaleX, 2}, {&X::shearXZ, T(0.5)}}).matrix(),
        transformOf<T>({{&X::rotateY, T(0.6)}, {&X::rotatePivotZ, 1}}).matrix(),
        transformOf<T>({{&X::translateX, 1}, {&X::translateZ, 3}}).matrix()};
    const int groupOrders[6][3] = {{0, 1, 2}, {0, 2, 1}, {1, 0, 2},
                                   {1, 2, 0}, {2, 0, 1}, {2, 1, 0}};
    X all = transformOf<T>({{&X::scaleX, 2},
                            {&X::shearXZ, T(0.5)},
                            {&X::rotateY, T(0.6)},
                            {&X::rotatePivotZ, 1},
                            {&X::translateX, 1},
                            {&X::translateZ, 3}});
    for (int order : {0, 1, 2, 3, 4, 5, 6, -1}) {
        SCOPED_TRACE(order);
        all.transformOrder = order;
        EXPECT_TRUE(sameBytes(all.matrix(), product(group, groupOrders[row(order)])));
    }
}

TYPED_TEST(MathKit, TransformOrderPlacesTheTranslation) {
    using T = TypeParam;
    using X = DGTransform<T>;
    X t = transformOf<T>(
        {{&X::translateX, 1}, {&X::translateY, 2}, {&X::translateZ, 3}, {&X::uniformScale, 2}});
    EXPECT_EQ(transformPoint(T(1), T(0), T(0), t.matrix()), (std::array<T, 3>{3, 2, 3}));
    t.transformOrder = 4;  // translate, scale, rotate: the translation is scaled too
    EXPECT_EQ(transformPoint(T(1), T(0), T(0), t.matrix()), (std::array<T, 3>{4, 4, 6}));
    t.transformOrder = 1;  // scale, translate, rotate: a quarter turn about z now moves it
    t.rotateZ = T(M_PI / 2);
    expectNear(transformPoint(T(1), T(0), T(0), t.matrix()), {-2, 3, 3});
}

}  // namespace
