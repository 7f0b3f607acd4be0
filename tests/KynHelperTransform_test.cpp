// Transform views: the stored matrix at a sample, "INHT", and the matrix at a time along the
// channel route (linear with channels) and the matrix route (linear without channels, quadratic).
#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "KynHelper.h"
#include "ViewFiles.h"

using namespace Kyn;
using namespace kyntest_support;

namespace {

using Matrix = std::vector<double>;
using Floats = std::vector<float>;
const double kNaN = std::numeric_limits<double>::quiet_NaN();
const double kPi = std::acos(-1.0);

Matrix scaleTranslate(double s, double x, double y, double z) {
    return {s, 0, 0, 0, 0, s, 0, 0, 0, 0, s, 0, x, y, z, 1};
}

Matrix rotationZ(double degrees) {
    const double c = std::cos(degrees * kPi / 180), s = std::sin(degrees * kPi / 180);
    return {c, s, 0, 0, -s, c, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1};
}

int addTransform(ViewFile& file, const std::string& name) {
    const int o = file.addObject(name);
    file.addStatic(o, kTagXFRM, std::vector<int>{1});
    return o;
}

template <class T>
struct Eval {
    bool ok = false;
    std::vector<T> m;
    KynHelperObj::AnimationState state = KynHelperObj::kAnimated;
};

template <class T = double>
Eval<T> at(KynRoMemCache& cache, int object, float time, int order) {
    TransformKynObj view(&cache, object);
    KynInterpolationHints hints{order};
    Eval<T> e;
    e.ok = view.getTransformAtTime(time, hints, e.m, e.state);
    return e;
}

void expectNear(const Matrix& actual, const Matrix& expected, double tolerance = 1e-12) {
    ASSERT_EQ(actual.size(), 16u);
    for (std::size_t i = 0; i < 16; ++i) EXPECT_NEAR(actual[i], expected[i], tolerance) << i;
}

// Samples at 1, 2, 3: stored matrices of every source and shape, and "INHT" flags.
class TransformStored : public ::testing::Test {
  protected:
    void SetUp() override {
        ViewFile file(3);
        file.addStatic(staticMatrix = addTransform(file, "|static"), kTagMTRX, Floats(16, 0.5f));
        file.addAnimated(animated = addTransform(file, "|animated"), kTagMTRX,
                         std::vector<Matrix>{Matrix(16, 0.1), Matrix(16, 1.0 / 3)});
        shadowed = addTransform(file, "|shadowed");
        file.addStatic(shadowed, kTagMTRX, Matrix(16, 7.0));
        file.addAnimated(shadowed, kTagMTRX, std::vector<Matrix>(2, Matrix(16, 8.0)));
        bare = addTransform(file, "|bare");
        file.addStatic(two = addTransform(file, "|two"), kTagINHT, std::vector<int>{2});
        file.addStatic(floatInht = addTransform(file, "|float"), kTagINHT, Floats{0});
        file.addStatic(zero = addTransform(file, "|zero"), kTagINHT, std::vector<int>{0});
        file.addAnimated(shortMatrix = addTransform(file, "|short"), kTagMTRX,
                         std::vector<Matrix>(3, Matrix(15, 1.0)));
        file.addStatic(intMatrix = addTransform(file, "|int"), kTagMTRX, std::vector<int>(16, 1));
        Matrix nan = scaleTranslate(1, kNaN, 0, 0), inf = scaleTranslate(1, 0, 0, 0);
        nan[0] = kNaN;
        inf[5] = std::numeric_limits<double>::infinity();
        file.addAnimated(nanMatrix = addTransform(file, "|nan"), kTagMTRX,
                         std::vector<Matrix>{nan, inf, inf});
        file.addStaticAttr(nanOrder = addTransform(file, "|nanOrder"), "rotateOrder", Matrix{kNaN});
        ASSERT_TRUE(cache.load(file.write("stored.kyn").c_str(), true));
    }
    template <class T>
    bool read(int object, int sample, std::vector<T>& data) {
        return TransformKynObj(&cache, object).getTransformData(sample, data, state);
    }
    KynRoMemCache cache;
    KynHelperObj::AnimationState state = KynHelperObj::kAnimated;
    int staticMatrix = 0, animated = 0, shadowed = 0, bare = 0, two = 0, floatInht = 0, zero = 0,
        shortMatrix = 0, intMatrix = 0, nanMatrix = 0, nanOrder = 0;
};

// A static matrix shadows an animated one; a transform without one reads as zeros. Only an
// int32 "INHT" of 0 turns inheritance off.
TEST_F(TransformStored, StateSourceShadowingPrecisionSizeAndInheritance) {
    Matrix data(20, -1.0);
    EXPECT_TRUE(read(staticMatrix, 1, data));
    EXPECT_EQ(data, Matrix(16, 0.5));
    EXPECT_EQ(state, KynHelperObj::kStatic);
    EXPECT_TRUE(read(animated, 1, data));
    EXPECT_EQ(data, Matrix(16, 1.0 / 3));
    EXPECT_EQ(state, KynHelperObj::kAnimated);
    Floats rounded;
    EXPECT_TRUE(read(animated, 0, rounded));
    EXPECT_EQ(rounded, Floats(16, 0.1f));
    EXPECT_TRUE(read(shadowed, 1, data));
    EXPECT_EQ(data, Matrix(16, 7.0));
    EXPECT_EQ(state, KynHelperObj::kStatic);

    Matrix fresh;
    state = KynHelperObj::kAnimated;
    EXPECT_FALSE(read(bare, 0, fresh));
    EXPECT_EQ(fresh, Matrix(16, 0.0));
    EXPECT_EQ(state, KynHelperObj::kStatic);

    for (int object : {bare, two, floatInht})
        EXPECT_TRUE(TransformKynObj(&cache, object).inheritsTransform()) << object;
    EXPECT_FALSE(TransformKynObj(&cache, zero).inheritsTransform());
}

TEST_F(TransformStored, ShortAndMistypedMatricesFailNonFiniteOnesBlend) {
    Matrix data;
    EXPECT_FALSE(read(shortMatrix, 0, data));
    EXPECT_EQ(state, KynHelperObj::kAnimated);  // found in the sample, then refused
    EXPECT_FALSE(read(intMatrix, 0, data));
    for (int order : {0, 1, 2}) {
        EXPECT_FALSE(at(cache, shortMatrix, 1.5f, order).ok) << order;
        EXPECT_FALSE(at(cache, intMatrix, 1.5f, order).ok) << order;
    }
    TransformKynObj view(&cache, intMatrix);
    std::vector<int> tooFew{0};
    EXPECT_FALSE(view.getLinearInterpMatrix(tooFew, 0.5, data, state));
    EXPECT_FALSE(view.getQuadraticInterpMatrix(tooFew, 0.5, data, state));

    for (int order : {1, 2}) {
        Eval<float> e = at<float>(cache, nanMatrix, 1.5f, order);
        EXPECT_TRUE(e.ok);
        EXPECT_TRUE(std::isnan(e.m[12])) << order;
    }
    // A NaN order is dropped: the default order stands.
    EXPECT_EQ(at(cache, nanOrder, 1.5f, 1).m, scaleTranslate(1, 0, 0, 0));
}

// Samples at 1, 2, 3, 4: objects with channels, one with a channel missing from the second
// sample, and "|sq", whose matrix translates x by (time - 1)^2.
class TransformRoutes : public ::testing::Test {
  protected:
    void SetUp() override {
        ViewFile file(4);
        chan = addTransform(file, "|chan");
        file.addAnimatedAttr(chan, "translateX", std::vector<Matrix>{{0}, {10}, {20}, {30}});
        file.addAnimated(chan, kTagMTRX, std::vector<Matrix>(4, scaleTranslate(3, 7, 7, 7)));
        bare = addTransform(file, "|bare");
        file.addAnimatedAttr(bare, "translateX", std::vector<Matrix>{{0}, {10}, {20}, {30}});
        still = addTransform(file, "|still");
        file.addStaticAttr(still, "translateY", Matrix{4});
        gap = addTransform(file, "|gap");
        file.addAnimatedAttr(gap, "translateY", std::vector<Matrix>{{0}, {2}, {4}, {6}});
        file.addAnimatedAttr(gap, "translateX", std::vector<Matrix>{{5}});
        sq = addTransform(file, "|sq");
        for (int k = 0; k < 4; ++k) file.addAt(k, sq, kTagMTRX, scaleTranslate(1, k * k, 0, 0));
        // A bound of one sample: every fetch evicts the previous sample.
        ASSERT_TRUE(cache.load(file.write("routes.kyn").c_str(), true, 1));
    }
    KynRoMemCache cache;
    int chan = 0, bare = 0, still = 0, gap = 0, sq = 0;
};

TEST_F(TransformRoutes, LinearWithChannelsComposesThemAndIgnoresTheMatrix) {
    for (int object : {chan, bare}) {
        Eval<double> e = at(cache, object, 1.25f, 1);
        EXPECT_TRUE(e.ok);
        expectNear(e.m, scaleTranslate(1, 2.5, 0, 0));
        EXPECT_EQ(e.state, KynHelperObj::kAnimated);
    }
    Eval<double> e = at(cache, still, 1.5f, 1);
    expectNear(e.m, scaleTranslate(1, 0, 4, 0));
    EXPECT_EQ(e.state, KynHelperObj::kStatic);
    e = at(cache, gap, 1.5f, 1);  // translateX keeps its default 0, not its first value 5
    expectNear(e.m, scaleTranslate(1, 0, 1, 0));
    EXPECT_EQ(e.state, KynHelperObj::kAnimated);
}

// Quadratic and cubic ignore the channels; hold, on-sample and off-sample times return the
// stored sample.
TEST_F(TransformRoutes, QuadraticCubicAndHoldGoThroughTheMatrices) {
    Eval<double> e = at(cache, chan, 1.5f, 2);
    EXPECT_TRUE(e.ok);
    expectNear(e.m, scaleTranslate(3, 7, 7, 7));
    EXPECT_EQ(e.state, KynHelperObj::kAnimated);
    e = at(cache, bare, 1.5f, 2);
    EXPECT_FALSE(e.ok);
    EXPECT_EQ(e.m, Matrix(16, 0.0));
    for (int order : {2, 3}) EXPECT_EQ(at(cache, sq, 1.5f, order).m, scaleTranslate(1, 0.25, 0, 0));
    EXPECT_EQ(at<float>(cache, sq, 1.5f, 3).m,
              (Floats{1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0.25f, 0, 0, 1}));

    e = at(cache, sq, 2.5f, 0);
    EXPECT_EQ(e.m, scaleTranslate(1, 1, 0, 0));
    EXPECT_EQ(e.state, KynHelperObj::kAnimated);
    EXPECT_EQ(at(cache, chan, 2.0f, 1).m, scaleTranslate(3, 7, 7, 7));  // on a sample
    EXPECT_EQ(at(cache, sq, 9.0f, 2).m, scaleTranslate(1, 9, 0, 0));    // past the end
}

// rotateOrder is truncated, range-checked and overridden by "MTRO"; transformOrder applies too.
// rotateAxisY is taken as radians and rotateAxisZ as degrees.
TEST(TransformChannels, OrdersAndRotateAxisUnits) {
    ViewFile file(2);
    const int dropped = addTransform(file, "|dropped");
    const int mtro = addTransform(file, "|mtro");
    const int kept = addTransform(file, "|kept");
    for (int o : {dropped, mtro, kept}) {
        file.addStaticAttr(o, "rotateX", Floats{90});
        file.addStaticAttr(o, "rotateZ", Floats{90});
    }
    file.addStaticAttr(kept, "rotateOrder", Matrix{2.9});
    for (int o : {dropped, mtro, kept}) file.addStaticAttr(o, "rotateOrder", Matrix{7.0});
    file.addStatic(mtro, kTagMTRO, std::vector<int>{2});
    const int translateFirst = addTransform(file, "|translateFirst");
    file.addStaticAttr(translateFirst, "translateX", Matrix{1});
    file.addStaticAttr(translateFirst, "scaleX", Matrix{2});
    file.addStaticAttr(translateFirst, "transformOrder", Matrix{4});
    file.addStaticAttr(addTransform(file, "|axisY"), "rotateAxisY", Matrix{90});
    file.addStaticAttr(addTransform(file, "|axisZ"), "rotateAxisZ", Matrix{90});
    KynRoMemCache cache;
    ASSERT_TRUE(cache.load(file.write("orders.kyn").c_str(), true));

    // Order 0 (x then z) sends (1, 0, 0) to (0, 1, 0); order 2 (z then x) to (0, 0, 1).
    const Matrix firstRow[] = {{0, 1, 0}, {0, 0, 1}, {0, 0, 1}};
    const int objects[] = {dropped, mtro, kept};
    for (int k = 0; k < 3; ++k) {
        Eval<double> e = at(cache, objects[k], 1.5f, 1);
        for (std::size_t i = 0; i < 3; ++i) EXPECT_NEAR(e.m[i], firstRow[k][i], 1e-12) << k;
    }
    // transformOrder 4 puts the translation before the scale, which doubles it.
    EXPECT_EQ(at(cache, translateFirst, 1.5f, 1).m[12], 2.0);

    Eval<double> y = at(cache, translateFirst + 1, 1.5f, 1);
    EXPECT_NEAR(y.m[0], std::cos(90.0), 1e-12);
    EXPECT_NEAR(y.m[2], -std::sin(90.0), 1e-12);
    Eval<float> z = at<float>(cache, translateFirst + 2, 1.5f, 1);
    EXPECT_NEAR(z.m[0], 0.0f, 1e-6f);
    EXPECT_NEAR(z.m[1], 1.0f, 1e-6f);
}

TEST(TransformMatrixRoute, BlendsDiagonalRotationAndTranslationWithoutDecomposing) {
    ViewFile file(2);
    const int rot = addTransform(file, "|rot90");
    file.addAnimated(rot, kTagMTRX, std::vector<Matrix>(2, rotationZ(90)));
    const int scaled = addTransform(file, "|scaled");
    file.addAnimated(scaled, kTagMTRX, std::vector<Matrix>(2, scaleTranslate(2, 1, 2, 3)));
    const int grow = addTransform(file, "|grow");
    file.addAnimated(grow, kTagMTRX,
                     std::vector<Matrix>{scaleTranslate(2, 0, 0, 0), scaleTranslate(4, 8, 0, 0)});
    const int turn = addTransform(file, "|long");
    file.addAnimated(turn, kTagMTRX,
                     std::vector<Matrix>{scaleTranslate(1, 0, 0, 0), rotationZ(-120)});
    Matrix skew = rotationZ(60);  // row 0 doubled: diagonal (1, 0.5, 1)
    for (int e : {0, 1}) skew[e] *= 2;
    const int skewed = addTransform(file, "|skew");
    file.addAnimated(skewed, kTagMTRX, std::vector<Matrix>(2, skew));
    KynRoMemCache cache;
    ASSERT_TRUE(cache.load(file.write("matrices.kyn").c_str(), true));

    // The rotation's zero diagonal is applied again as scale: (1, 0, 0) goes to the origin.
    Eval<double> e = at(cache, rot, 1.5f, 1);
    expectNear(e.m, {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1});
    EXPECT_EQ(e.state, KynHelperObj::kAnimated);
    expectNear(at(cache, scaled, 1.5f, 1).m, scaleTranslate(2, 1, 2, 3));
    expectNear(at(cache, grow, 1.25f, 1).m, scaleTranslate(2.5, 2, 0, 0));
    // Quaternion dot -0.5: the long arc turns +120 degrees at the middle (the short one -60),
    // times the blended diagonal 0.25.
    e = at(cache, turn, 1.5f, 1);
    EXPECT_NEAR(e.m[0], 0.25 * -0.5, 1e-12);
    EXPECT_NEAR(e.m[1], 0.25 * std::sqrt(3.0) / 2, 1e-12);
    // Its normalised quaternion turns 73.19 degrees; S scales the rows of that rotation.
    e = at(cache, skewed, 1.5f, 1);
    EXPECT_NEAR(e.m[1], 0.9571859726038532, 1e-12);
    EXPECT_NEAR(e.m[4], 0.5 * -0.9571859726038532, 1e-12);
}

TEST(TransformMatrixRoute, QuadraticFitsTheAngleThroughThreeSamples) {
    ViewFile file(3);
    const int o = addTransform(file, "|turn");
    file.addAnimated(o, kTagMTRX, std::vector<Matrix>{rotationZ(0), rotationZ(10), rotationZ(40)});
    KynRoMemCache cache;
    ASSERT_TRUE(cache.load(file.write("quadratic.kyn").c_str(), true));
    // Half-angles 0, 5, 20 at t = -1, 0, 1 give 11.25 at t = 0.5: a turn of 22.5 degrees, where a
    // spherical blend of the last two samples alone would turn 25.
    Eval<double> e = at(cache, o, 2.5f, 2);
    EXPECT_NEAR(std::atan2(e.m[1], e.m[0]) * 180 / kPi, 22.5, 1e-9);
}

}  // namespace
