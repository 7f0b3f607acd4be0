// Evaluation at a time: which samples are picked, when a time snaps to a sample, the weights of
// each blend, and what the float-only fetch of positions means for double storage.
#include <gtest/gtest.h>

#include <cmath>
#include <ostream>

#include "KynHelper.h"
#include "ViewFiles.h"

using namespace Kyn;
using namespace kyntest_support;

namespace {

using Ints = std::vector<int>;
using Floats = std::vector<float>;
using State = KynHelperObj::AnimationState;

struct Pick {
    bool blend;
    Ints indices;
    Floats times;
    bool operator==(const Pick& o) const {
        return blend == o.blend && indices == o.indices && times == o.times;
    }
};

std::ostream& operator<<(std::ostream& out, const Pick& p) {
    return out << (p.blend ? "blend " : "no blend ") << ::testing::PrintToString(p.indices) << " "
               << ::testing::PrintToString(p.times);
}

Pick pick(KynHelperObj& view, float time, int order) {
    KynInterpolationHints hints{order};
    Pick p;
    p.blend = view.getEvalTimeAndSampleIndices(time, hints, p.indices, p.times);
    return p;
}

// Positions at `time`, which must (or must not, with `found` false) be readable.
template <class T = float>
std::vector<T> positionsAt(GeometryKynObj& view, float time, int order, bool found = true,
                           State* state = nullptr) {
    KynInterpolationHints hints{order};
    std::vector<T> out{T(-7)};
    State ignored;
    int dimension = 0;
    EXPECT_EQ(view.getPositionAtTime(time, hints, out, state ? *state : ignored, dimension), found)
        << "time " << time << " order " << order;
    return out;
}

// Uniform samples at 1, 2, ... N; the float POSI of sample k is the point (t, t * t, 100 - t)
// with t = k + 1, and the double attribute "w" of sample k has a 1 at position k % 4 of four.
std::string writeUniform(int count, const std::string& name) {
    ViewFile file(count);
    const int o = file.addObject("|pts");
    std::vector<Floats> points;
    std::vector<std::vector<double>> oneHot;
    for (int k = 0; k < count; ++k) {
        const float t = float(k + 1);
        points.push_back({t, t * t, 100 - t});
        oneHot.emplace_back(4, 0.0);
        oneHot.back()[std::size_t(k % 4)] = 1.0;
    }
    file.addAnimated(o, kTagPOSI, points);
    file.addAnimatedAttr(o, "w", oneHot);
    return file.write(name);
}

class EvalUniformTen : public ::testing::Test {
  protected:
    void SetUp() override { ASSERT_TRUE(cache.load(writeUniform(10, "ten.kyn").c_str(), true)); }
    KynRoMemCache cache;
    GeometryKynObj view{&cache, 0};
};

TEST_F(EvalUniformTen, PickedRunsStartAtTheSampleBeforeAndShiftBackAtTheEnd) {
    for (int s = 0; s <= 8; ++s) {
        const float time = float(s) + 1.5f;  // between samples s and s + 1
        const Ints linear{s, s + 1};
        const Ints quadratic = s <= 6 ? Ints{s, s + 1, s + 2} : Ints{s - 1, s, s + 1};
        const Ints cubic = s <= 5   ? Ints{s, s + 1, s + 2, s + 3}
                           : s == 6 ? Ints{5, 6, 7, 8}
                                    : Ints{6, 7, 8, 9};
        for (const Ints& expected : {linear, quadratic, cubic}) {
            Pick p = pick(view, time, int(expected.size()) - 1);
            EXPECT_TRUE(p.blend);
            EXPECT_EQ(p.indices, expected) << "s " << s;
            for (std::size_t i = 0; i < expected.size(); ++i)
                EXPECT_EQ(p.times[i], float(p.indices[i] + 1));
        }
    }
}

// Order 0 and negative orders hold; orders above 3 pick a run but are not blended.
TEST_F(EvalUniformTen, HoldAndHighOrdersUseTheFirstEntryWhichTheEndShiftStillMoves) {
    EXPECT_EQ(pick(view, 4.5f, 0), (Pick{true, {3}, {4}}));
    EXPECT_EQ(pick(view, 3.5f, 5).indices, (Ints{2, 3, 4, 5, 6, 7}));
    EXPECT_EQ(pick(view, 7.5f, 5).indices, (Ints{4, 5, 6, 7, 8, 9}));
    // Order 5 reads sample 4 although the time lies after sample 6.
    EXPECT_EQ(positionsAt(view, 7.5f, 5), (Floats{5, 25, 95}));
    EXPECT_EQ(pick(view, 4.5f, -3).indices, Ints{3});
    EXPECT_EQ(positionsAt(view, 4.5f, -1), (Floats{4, 16, 96}));
}

TEST_F(EvalUniformTen, WhatTheOutputHeldBeforeHasNoPartInTheResult) {
    State freshState, reusedState;
    int freshDimension = 0, reusedDimension = 0;
    for (int order : {0, 1, 2, 3}) {
        KynInterpolationHints hints{order};
        Floats fresh, reused(50, 42.0f);
        ASSERT_TRUE(view.getPositionAtTime(4.5f, hints, fresh, freshState, freshDimension));
        ASSERT_TRUE(view.getPositionAtTime(4.5f, hints, reused, reusedState, reusedDimension));
        EXPECT_EQ(reused, fresh) << "order " << order;
        EXPECT_EQ(reusedState, freshState);
        EXPECT_EQ(reusedDimension, freshDimension);
    }
    // A failed read empties a vector that held more than any result would.
    KynInterpolationHints hints{1};
    Floats out(50, 42.0f);
    EXPECT_FALSE(view.getPositionAtTime(0.5f, hints, out, freshState, freshDimension));
    EXPECT_TRUE(out.empty());
}

// A time just after a sample snaps to it, unblended; just before the next one it does not.
TEST_F(EvalUniformTen, TheToleranceLooksForwardFromTheSampleOnly) {
    const Pick on = pick(view, 3.0005f, 3);
    EXPECT_FALSE(on.blend);
    EXPECT_EQ(on.indices[0], 2);
    EXPECT_EQ(on.times[0], 3.0005f);
    EXPECT_EQ(positionsAt(view, 3.0005f, 3), (Floats{3, 9, 97}));  // sample 2 unblended
    EXPECT_EQ(pick(view, 3.9995f, 1), (Pick{true, {2, 3}, {3, 4}}));
    EXPECT_TRUE(pick(view, 3.0015f, 1).blend);
}

TEST_F(EvalUniformTen, EachOrderBlendsWithItsOwnWeights) {
    State state = KynHelperObj::kStatic;
    EXPECT_FLOAT_EQ(positionsAt(view, 4.25f, 1, true, &state)[1], 16 * 0.75f + 25 * 0.25f);
    EXPECT_EQ(state, KynHelperObj::kAnimated);
    // The quadratic is a true parabola through its three samples, so t * t comes back, also
    // from the run shifted back at the end.
    EXPECT_FLOAT_EQ(positionsAt(view, 4.5f, 2)[1], 20.25f);
    EXPECT_FLOAT_EQ(positionsAt(view, 9.5f, 2)[1], 90.25f);
    // Halfway in mid-clip the cubic runs at f = -0.5 over samples 2 to 5; "w" shows the weight
    // of sample k at position k % 4.
    KynInterpolationHints cubic{3};
    std::vector<double> w;
    int dimension = 0;
    ASSERT_TRUE(view.getAttrAtTime(3.5f, 0, cubic, w, dimension));
    EXPECT_EQ(w, (std::vector<double>{0.4375, -0.1875, 0.5625, 0.1875}));
}

TEST_F(EvalUniformTen, TimesPastTheEndClampAndTimesBeforeTheStartReachStaticDataOnly) {
    EXPECT_EQ(pick(view, 10.5f, 2), (Pick{false, {9, 9, 9}, {10, 10, 10}}));
    EXPECT_EQ(pick(view, 0.5f, 1), (Pick{false, {-1, -1}, {0.5f, 0.5f}}));
    State state = KynHelperObj::kAnimated;
    EXPECT_TRUE(positionsAt(view, 0.5f, 1, false, &state).empty());
    EXPECT_EQ(state, KynHelperObj::kStatic);

    ViewFile late(3);
    late.addObject("|o");
    late.meta.lastTime = 3.4f;  // past the last sample, still rounding to three samples
    ASSERT_TRUE(cache.load(late.write("late.kyn").c_str(), true));
    EXPECT_EQ(pick(view, 3.4f, 1), (Pick{false, {2, 2}, {3.4f, 3.4f}}));
}

TEST(EvalNonUniform, RunsStartBehindTheTimeAndExtrapolateBackwards) {
    ViewFile file(Floats{1, 2, 4, 8});
    const int o = file.addObject("|p");
    file.addAnimated(o, kTagPOSI,
                     std::vector<Floats>{{10, 0, 0}, {20, 0, 0}, {30, 0, 0}, {40, 0, 0}});
    KynRoMemCache cache;
    ASSERT_TRUE(cache.load(file.write("nonuniform.kyn").c_str(), true));
    GeometryKynObj view(&cache, 0);

    EXPECT_EQ(pick(view, 3, 1).indices, (Ints{2, 3}));
    EXPECT_FLOAT_EQ(positionsAt(view, 3, 1)[0], 30 * 1.25f + 40 * -0.25f);  // f = -0.25
    EXPECT_EQ(pick(view, 6, 1).indices, (Ints{3, 3}));
    EXPECT_FALSE(std::isfinite(positionsAt(view, 6, 1)[0]));

    // The tolerance looks backward here: just before a sample snaps to it, just after does not.
    const Pick before = pick(view, 3.9995f, 1);
    EXPECT_FALSE(before.blend);
    EXPECT_EQ(before.indices[0], 2);
    EXPECT_EQ(pick(view, 4.0005f, 1), (Pick{true, {3, 3}, {8, 8}}));
}

TEST(EvalTimeFraction, FractionInSampleUnitsKeepsTheSign) {
    ViewFile uniform(5, 1.0f, 2.0f);
    uniform.addObject("|o");
    KynRoMemCache cache;
    ASSERT_TRUE(cache.load(uniform.write("rate2.kyn").c_str(), true));
    KynHelperObj view(&cache, 0);
    EXPECT_FLOAT_EQ(view.getTimeFraction(1.75f), 0.5f);
    EXPECT_FLOAT_EQ(view.getTimeFraction(0.75f), -0.5f);
    ViewFile table(Floats{1, 2});
    table.addObject("|o");
    ASSERT_TRUE(cache.load(table.write("table.kyn").c_str(), true));
    EXPECT_FLOAT_EQ(view.getTimeFraction(3.25f), 0.25f);
    EXPECT_FLOAT_EQ(view.getTimeFraction(-1.5f), -0.5f);
}

TEST(EvalShortClips, OneSampleHoldsAndTwoSamplesBreakHigherOrders) {
    KynRoMemCache one;
    ASSERT_TRUE(one.load(writeUniform(1, "one.kyn").c_str(), true));
    GeometryKynObj single(&one, 0);
    for (float time : {1.0f, 1.5f, 50.0f})
        EXPECT_EQ(positionsAt(single, time, 3), (Floats{1, 1, 99}));
    positionsAt(single, 0.5f, 3, false);

    KynRoMemCache two;
    ASSERT_TRUE(two.load(writeUniform(2, "two.kyn").c_str(), true));
    GeometryKynObj pair(&two, 0);
    EXPECT_EQ(pick(pair, 1.5f, 2).indices, (Ints{0, 1, 1}));
    EXPECT_EQ(pick(pair, 1.5f, 3).indices, (Ints{0, 1, 1, 1}));
    for (int order : {2, 3}) EXPECT_FALSE(std::isfinite(positionsAt(pair, 1.5f, order)[0]));

    KynRoMemCache three;
    ASSERT_TRUE(three.load(writeUniform(3, "three.kyn").c_str(), true));
    GeometryKynObj triple(&three, 0);
    EXPECT_EQ(pick(triple, 1.5f, 3).indices, (Ints{0, 1, 2, 2}));
}

// Positions stored as double, static positions, uneven sample lengths, float attributes.
class EvalStorage : public ::testing::Test {
  protected:
    void SetUp() override {
        ViewFile file(3);
        int o = file.addObject("|double");
        file.addAnimated(o, kTagPOSI,
                         std::vector<std::vector<double>>{{1, 2, 3}, {4, 5, 6}, {7, 8, 9}});
        file.addAnimatedAttr(o, "f", std::vector<Floats>{{1}, {2}, {3}});
        o = file.addObject("|static");
        file.addStatic(o, kTagPOSI, Floats{0.1f, 0.2f, 0.3f});
        o = file.addObject("|uneven");
        file.addAnimated(o, kTagPOSI, std::vector<Floats>{{1, 1, 1}, {3, 3, 3, 5, 5, 5}, {1}});
        ASSERT_TRUE(cache.load(file.write("storage.kyn").c_str(), true));
    }
    KynRoMemCache cache;
    State state = KynHelperObj::kAnimated;
};

// Positions blend only when stored as float: double ones read at a sample or on hold only.
// Attributes blend only when stored as double, and the plain read does not convert.
TEST_F(EvalStorage, DoublePositionsAreReadableAtASampleButNotBetweenSamples) {
    using Doubles = std::vector<double>;
    GeometryKynObj view(&cache, 0);
    EXPECT_EQ(positionsAt<double>(view, 2, 1, true, &state), (Doubles{4, 5, 6}));
    EXPECT_EQ(state, KynHelperObj::kAnimated);
    EXPECT_EQ(positionsAt<double>(view, 9, 1), (Doubles{7, 8, 9}));  // past the end
    EXPECT_TRUE(positionsAt<double>(view, 1.5f, 1, false, &state).empty());
    EXPECT_EQ(state, KynHelperObj::kStatic);
    EXPECT_EQ(positionsAt<double>(view, 1.5f, 0), (Doubles{1, 2, 3}));  // hold converts

    KynInterpolationHints hints{1};
    Doubles out;
    int dimension = 0;
    EXPECT_FALSE(view.getAttrAtTime(1.5f, 0, hints, out, dimension));
    EXPECT_FALSE(view.getAttrAtTime(2, 0, hints, out, dimension));
}

// Static data blends to itself and stays static; blends take the length of the first sample and
// refuse a shorter later one.
TEST_F(EvalStorage, StaticDataAndUnevenSampleLengths) {
    GeometryKynObj still(&cache, 1);
    for (int order : {1, 2, 3}) {
        EXPECT_NEAR(positionsAt(still, 1.5f, order, true, &state).at(2), 0.3f, 1e-6f);
        EXPECT_EQ(state, KynHelperObj::kStatic);
    }
    positionsAt(still, -4, 1);  // before the start the static chunk answers directly

    GeometryKynObj uneven(&cache, 2);
    EXPECT_EQ(positionsAt(uneven, 1.5f, 1), (Floats{2, 2, 2}));
    EXPECT_TRUE(positionsAt(uneven, 2.5f, 1, false, &state).empty());
    EXPECT_EQ(state, KynHelperObj::kStatic);
}

TEST(EvalBoundedCache, BlendingSurvivesACacheThatKeepsOneSample) {
    const std::string path = writeUniform(10, "bounded.kyn");
    KynRoMemCache unbounded;
    ASSERT_TRUE(unbounded.load(path.c_str(), true));
    KynRoMemCache bounded;
    ASSERT_TRUE(bounded.load(path.c_str(), true, 1));
    GeometryKynObj all(&unbounded, 0);
    GeometryKynObj few(&bounded, 0);
    EXPECT_EQ(positionsAt(few, 4.5f, 3), positionsAt(all, 4.5f, 3));
    KynInterpolationHints hints{3};
    std::vector<double> w;
    int dimension = 0;
    ASSERT_TRUE(few.getAttrAtTime(4.5f, 0, hints, w, dimension));
    EXPECT_EQ(w[3], 0.5625);  // sample 3 leads the run 3 to 6
}

}  // namespace
