// NURBS surface and curve views: nets rebuilt with their periodic repeats, the transposed order,
// knots with and without end knots, attributes and reference poses in net order, control points
// between samples, and the refusal of topologies that describe no net.
#include <gtest/gtest.h>

#include <string>

#include "KynHelper.h"
#include "ViewFiles.h"

using namespace Kyn;
using namespace kyntest_support;

namespace {

using Floats = std::vector<float>;
using Doubles = std::vector<double>;
using Ints = std::vector<int>;
using Strings = std::vector<std::string>;
using State = KynHelperObj::AnimationState;

template <class T = float>
std::vector<T> knots(int count) {
    std::vector<T> out;
    for (int i = 0; i < count; ++i) out.push_back(T(i));
    return out;
}

// Stored vertices of a numU-by-numV grid, V fastest; vertex (u, v) is (u, v, z).
Floats grid(int numU, int numV, float z = 0.0f) {
    Floats out;
    for (int u = 0; u < numU; ++u)
        for (int v = 0; v < numV; ++v) out.insert(out.end(), {float(u), float(v), z});
    return out;
}

// One component of every x, y, z, w vertex of a net.
template <class T>
std::vector<T> component(const std::vector<T>& net, std::size_t which) {
    std::vector<T> out;
    for (std::size_t i = which; i < net.size(); i += 4) out.push_back(net[i]);
    return out;
}

// `values`, each value `each` times in a row, the whole run `times` times over.
Floats pattern(const Floats& values, int each, int times) {
    Floats out;
    for (int t = 0; t < times; ++t)
        for (float value : values) out.insert(out.end(), std::size_t(each), value);
    return out;
}

Doubles widen(const Floats& values) {
    return Doubles(values.begin(), values.end());
}

int addObject(ViewFile& file, const std::string& name, const Ints& degrees, const Strings& forms) {
    const int o = file.addObject(name);
    file.addStatic(o, kTagDEGR, degrees);
    file.addStatic(o, kTagFORM, forms);
    return o;
}

int addSurface(ViewFile& file, const std::string& name, const Ints& degrees, const Strings& forms,
               int knotsU, int knotsV) {
    const int o = addObject(file, name, degrees, forms);
    file.addStatic(o, kTagKNTU, knots(knotsU));
    file.addStatic(o, kTagKNTV, knots(knotsV));
    return o;
}

class NurbsViews : public ::testing::Test {
  protected:
    void SetUp() override {
        ViewFile file(2);
        // 0: 8 by 4, periodic in U with degree 3 (5 distinct rows); x moved by 100 in sample 1.
        int o = addSurface(file, "|periodicU", {3, 3}, {"kPeriodic", "kOpen"}, 10, 6);
        Floats moved = grid(5, 4, 1.0f);
        for (std::size_t i = 0; i < moved.size(); i += 3) moved[i] += 100.0f;
        file.addAnimated(o, kTagPOSI, std::vector<Floats>{grid(5, 4), moved});
        file.addStaticAttr(o, "rmanP__Pref", grid(8, 4), 3);
        // 1: 3 by 6, periodic in V with degree 2 (4 distinct columns).
        o = addSurface(file, "|periodicV", {1, 2}, {"kOpen", "kPeriodic"}, 3, 7);
        file.addStatic(o, kTagPOSI, grid(3, 4));
        // 2: 5 by 5, periodic both ways with degree 2 (3 by 3 distinct).
        o = addSurface(file, "|periodicUV", {2, 2}, {"kPeriodic", "kPeriodic"}, 6, 6);
        file.addStatic(o, kTagPOSI, grid(3, 3));
        file.addStaticAttr(o, "perNetVertex", knots(25), 1);
        file.addStaticAttr(o, "perStoredVertex", knots(9), 1);
        // 3: 3 by 2, double POSI and double knots, KNTV animated.
        o = addObject(file, "|doubles", {1, 1}, {"kOpen", "kOpen"});
        file.addStatic(o, kTagKNTU, knots<double>(3));
        file.addAnimated(o, kTagKNTV, std::vector<Doubles>{{0, 1}, {0, 1}});
        file.addStatic(o, kTagPOSI, Doubles(18, 0.5));
        // 4: 3 by 2 with attributes; vertex (u, v) of "pairs" holds u, v.
        o = addSurface(file, "|grid", {1, 1}, {"kOpen", "kOpen"}, 3, 2);
        file.addStaticAttr(o, "pairs", Doubles{0, 0, 0, 1, 1, 0, 1, 1, 2, 0, 2, 1}, 2);
        file.addStaticAttr(o, "ids", std::vector<long>{0, 1, 10, 11, 20, 21}, 1);
        file.addStaticAttr(o, "names", Strings{"a", "b", "c", "d", "e", "f"});
        file.addStaticAttr(o, "flat", knots(6), 0);
        // 5: degree animated, so sample -1 has no topology.
        o = file.addObject("|animatedDegree");
        file.addAnimated(o, kTagDEGR, std::vector<Ints>{{1, 1}, {1, 1}});
        file.addStatic(o, kTagKNTU, knots(3));
        file.addStatic(o, kTagKNTV, knots(2));
        file.addStaticAttr(o, "velt_Pref", grid(3, 2), 3);
        // 6: curve of 6 knots of degree 3, periodic: 4 vertices, 1 distinct.
        o = addObject(file, "|closedPoint", {3}, {"kPeriodic"});
        file.addStatic(o, kTagKNTU, knots(6));
        file.addStatic(o, kTagPOSI, Floats{1, 2, 3});
        // 7: curve of 9 double knots of degree 3, periodic: 7 vertices, 4 distinct; z 10 * sample.
        o = addObject(file, "|periodicCurve", {3}, {"kPeriodic"});
        file.addStatic(o, kTagKNTU, knots<double>(9));
        file.addAnimated(o, kTagPOSI, std::vector<Floats>{grid(4, 1, 0), grid(4, 1, 10)});
        // 8: curve with static POSI and animated knots.
        o = addObject(file, "|staticPosi", {1}, {"kOpen"});
        file.addAnimated(o, kTagKNTU, std::vector<Floats>{{0, 1}, {0, 1}});
        file.addStatic(o, kTagPOSI, grid(2, 1));
        ASSERT_TRUE(cache.load(file.write("nurbs_views.kyn").c_str(), true));
    }
    NurbsSurfaceKynObj surface(int object) { return NurbsSurfaceKynObj(&cache, object); }
    NurbsCurveKynObj curve(int object) { return NurbsCurveKynObj(&cache, object); }

    KynRoMemCache cache;
    State state = KynHelperObj::kStatic;
    int dimension = 0;
    Floats net;
    Doubles wide;
};

// The net is stored V fastest; reorder hands the same net out U fastest.
TEST_F(NurbsViews, PeriodicDirectionsRepeatTheirFirstRowsInEitherOrder) {
    ASSERT_TRUE(surface(0).getControlPoints(0, net, state, false));
    ASSERT_EQ(net.size(), 8u * 4 * 4);
    EXPECT_EQ(component(net, 0), pattern({0, 1, 2, 3, 4, 0, 1, 2}, 4, 1));
    EXPECT_EQ(component(net, 1), pattern({0, 1, 2, 3}, 1, 8));
    EXPECT_EQ(component(net, 3), Floats(32, 1.0f));
    EXPECT_EQ(state, KynHelperObj::kAnimated);
    ASSERT_TRUE(surface(0).getControlPoints(1, net, state, true));
    EXPECT_EQ(component(net, 0), pattern({100, 101, 102, 103, 104, 100, 101, 102}, 1, 4));
    EXPECT_EQ(component(net, 1), pattern({0, 1, 2, 3}, 8, 1));

    ASSERT_TRUE(surface(1).getControlPoints(-1, net, state, false));
    EXPECT_EQ(component(net, 0), pattern({0, 1, 2}, 6, 1));
    EXPECT_EQ(component(net, 1), pattern({0, 1, 2, 3, 0, 1}, 1, 3));
    EXPECT_EQ(state, KynHelperObj::kStatic);
    ASSERT_TRUE(surface(1).getControlPoints(0, net, state, true));
    EXPECT_EQ(component(net, 0), pattern({0, 1, 2}, 1, 6));
    EXPECT_EQ(component(net, 1), pattern({0, 1, 2, 3, 0, 1}, 3, 1));

    ASSERT_TRUE(surface(2).getControlPoints(0, wide, state, false));
    EXPECT_EQ(component(wide, 0), widen(pattern({0, 1, 2, 0, 1}, 5, 1)));
    EXPECT_EQ(component(wide, 1), widen(pattern({0, 1, 2, 0, 1}, 1, 5)));
}

// Float knots get end knots on request; double knots always get them on surfaces.
TEST_F(NurbsViews, KnotsAddEndKnotsOnRequestOrAlwaysWhenDoubleOnSurfaces) {
    Floats u, v;
    ASSERT_TRUE(surface(1).getKnots(0, u, v, state, false));
    EXPECT_EQ(u, (Floats{0, 1, 2}));
    ASSERT_TRUE(surface(1).getKnots(0, u, v, state, true));
    EXPECT_EQ(u, (Floats{0, 0, 1, 2, 2}));
    EXPECT_EQ(v.size(), 9u);

    Doubles du, dv;
    ASSERT_TRUE(surface(3).getKnots(0, du, dv, state, false));
    EXPECT_EQ(du, (Doubles{0, 0, 1, 2, 2}));
    EXPECT_EQ(dv, (Doubles{0, 0, 1, 1}));
    EXPECT_EQ(state, KynHelperObj::kAnimated);  // the flag of KNTV
    EXPECT_FALSE(surface(3).getKnots(-1, du, dv, state, true));
    EXPECT_EQ(state, KynHelperObj::kStatic);
    EXPECT_EQ(surface(3).getNumKnotVData(-1), 0);

    // Curves honour the request for both types.
    ASSERT_TRUE(curve(7).getKnots(0, wide, state, false));
    EXPECT_EQ(wide, knots<double>(9));
    ASSERT_TRUE(curve(7).getKnots(0, net, state, true));
    EXPECT_EQ(net, (Floats{0, 0, 1, 2, 3, 4, 5, 6, 7, 8, 8}));
    ASSERT_TRUE(curve(8).getKnots(1, wide, state, false));
    EXPECT_EQ(wide, (Doubles{0, 1}));
    EXPECT_EQ(state, KynHelperObj::kAnimated);
}

TEST_F(NurbsViews, PeriodicCurvesRepeatTheirFirstVertices) {
    ASSERT_TRUE(curve(6).getControlPoints(0, net, state));
    EXPECT_EQ(net, (Floats{1, 2, 3, 1, 1, 2, 3, 1, 1, 2, 3, 1, 1, 2, 3, 1}));
    ASSERT_TRUE(curve(7).getControlPoints(1, wide, state));
    EXPECT_EQ(component(wide, 0), (Doubles{0, 1, 2, 3, 0, 1, 2}));
    EXPECT_EQ(component(wide, 2), Doubles(7, 10.0));
    EXPECT_EQ(component(wide, 3), Doubles(7, 1.0));
    EXPECT_EQ(state, KynHelperObj::kAnimated);
    // Only the flag of POSI counts, not that of the animated knots.
    ASSERT_TRUE(curve(8).getControlPoints(1, net, state));
    EXPECT_EQ(net, (Floats{0, 0, 0, 1, 1, 0, 0, 1}));
    EXPECT_EQ(state, KynHelperObj::kStatic);
}

TEST_F(NurbsViews, ControlPointsBetweenSamplesBlendTwoNets) {
    KynInterpolationHints linear{1}, hold{0};
    ASSERT_TRUE(surface(0).getControlPointsAtTime(1.25f, linear, net, state, false));
    EXPECT_EQ(component(net, 0), pattern({25, 26, 27, 28, 29, 25, 26, 27}, 4, 1));
    EXPECT_EQ(component(net, 2), Floats(32, 0.25f));
    EXPECT_EQ(component(net, 3), Floats(32, 1.0f));
    EXPECT_EQ(state, KynHelperObj::kAnimated);
    ASSERT_TRUE(surface(0).getControlPointsAtTime(1.75f, linear, wide, state, true));
    EXPECT_EQ(wide[4], 76.0);  // vertex (1, 0): U fastest
    ASSERT_TRUE(surface(0).getControlPointsAtTime(1.75f, hold, net, state, true));
    EXPECT_EQ(net[4], 1.0f);  // sample 0 as it stands, U fastest
    EXPECT_FALSE(surface(0).getControlPointsAtTime(0.5f, linear, net, state, false));

    ASSERT_TRUE(curve(7).getControlPointsAtTime(1.25f, linear, wide, state));
    EXPECT_EQ(component(wide, 0), (Doubles{0, 1, 2, 3, 0, 1, 2}));
    EXPECT_EQ(component(wide, 2), Doubles(7, 2.5));
}

// Attributes with one whole vector per net vertex are transposed; others are handed over as
// stored. The reference pose is transposed by the static topology and has no weights.
TEST_F(NurbsViews, AttributesAndReferencePoseOfTheFullNetAreTransposed) {
    ASSERT_TRUE(surface(4).getAttr(0, 0, net, dimension, true));  // double read as float
    EXPECT_EQ(net, (Floats{0, 0, 1, 0, 2, 0, 0, 1, 1, 1, 2, 1}));
    EXPECT_EQ(dimension, 2);
    Ints ids;
    ASSERT_TRUE(surface(4).getAttr(0, 1, ids, dimension, true));  // long read as int
    EXPECT_EQ(ids, (Ints{0, 10, 20, 1, 11, 21}));
    Strings names;
    ASSERT_TRUE(surface(4).getAttr(0, 2, names, true));
    EXPECT_EQ(names, (Strings{"a", "c", "e", "b", "d", "f"}));
    EXPECT_FALSE(surface(4).getAttr(0, 2, net, dimension, true));
    EXPECT_EQ(net.size(), 12u);
    ASSERT_TRUE(surface(4).getAttr(0, 3, net, dimension, true));  // dimension 0: as stored
    EXPECT_EQ(net, knots(6));
    ASSERT_TRUE(surface(2).getAttr(0, 0, net, dimension, true));
    EXPECT_EQ(net, (Floats{0,  5,  10, 15, 20, 1,  6,  11, 16, 21, 2,  7, 12,
                           17, 22, 3,  8,  13, 18, 23, 4,  9,  14, 19, 24}));
    ASSERT_TRUE(surface(2).getAttr(0, 1, wide, dimension, true));
    EXPECT_EQ(wide, knots<double>(9));

    ASSERT_TRUE(surface(0).getPrefControlPoints(net, true));
    ASSERT_EQ(net.size(), 8u * 4 * 3);
    EXPECT_EQ(Floats(net.begin(), net.begin() + 9), (Floats{0, 0, 0, 1, 0, 0, 2, 0, 0}));
    net = {7};
    EXPECT_FALSE(surface(5).getPrefControlPoints(net, true));
    EXPECT_EQ(net, Floats{7});
    ASSERT_TRUE(surface(5).getPrefControlPoints(net, false));
    EXPECT_EQ(net, grid(3, 2));
}

// Topologies that describe no net or polygon: false, with the output left alone. No vertex in
// a direction (K = d - 1 knots) is an empty net or polygon, and the attributes of such a
// surface come back as stored.
TEST(NurbsTopology, NetsThatCannotBeBuiltAreRefusedAndNoVertexGivesAnEmptyOne) {
    ViewFile file(2);
    const Strings open{"kOpen", "kOpen"};
    // Surfaces 0 to 4: periodic U with 4 knots of degree 3 (no distinct row); POSI a scalar
    // short; numU -1; KNTV missing; one-value DEGR (degrees 0: 4 by 4 net over 9 vertices).
    file.addStatic(addSurface(file, "|noDistinct", {3, 1}, {"kPeriodic", "kOpen"}, 4, 2), kTagPOSI,
                   grid(4, 2));
    file.addStatic(addSurface(file, "|shortPosi", {1, 1}, open, 3, 2), kTagPOSI, Floats(17));
    int o = addSurface(file, "|negativeCount", {5, 1}, open, 3, 2);
    file.addStatic(o, kTagPOSI, grid(3, 2));
    file.addStaticAttr(o, "values", knots(6), 1);
    o = addObject(file, "|noKntv", {1, 1}, open);
    file.addStatic(o, kTagKNTU, knots(3));
    file.addStatic(o, kTagPOSI, grid(3, 2));
    file.addStatic(addSurface(file, "|shortDegree", {2}, {"kPeriodic"}, 3, 3), kTagPOSI,
                   grid(3, 3));
    // 5: no FORM, and KNTV of another type than KNTU.
    o = file.addObject("|mixedKnots");
    file.addStatic(o, kTagDEGR, Ints{1, 1});
    file.addStatic(o, kTagKNTU, knots(3));
    file.addStatic(o, kTagKNTV, knots<double>(2));
    file.addStatic(o, kTagPOSI, grid(3, 2));
    // Curves 6 to 9: empty DEGR; float DEGR in the sample and empty FORM; periodic 5 knots of
    // degree 3 (no distinct vertex); POSI short.
    const Floats three = grid(3, 1);
    o = addObject(file, "|emptyDegree", {}, {"kOpen"});
    file.addStatic(o, kTagKNTU, knots(4));
    file.addStatic(o, kTagPOSI, three);
    o = file.addObject("|floatDegree");
    file.addAt(0, o, kTagDEGR, Floats{1});
    file.addStatic(o, kTagFORM, Strings{});
    o = addObject(file, "|noDistinctCurve", {3}, {"kPeriodic"});
    file.addStatic(o, kTagKNTU, knots(5));
    file.addStatic(o, kTagPOSI, three);
    o = addObject(file, "|shortPosiCurve", {1}, {"kOpen"});
    file.addStatic(o, kTagKNTU, knots(4));
    file.addStatic(o, kTagPOSI, three);
    // 10: 2 knots of degree 3 in U. Curves 11 and 12: 2 knots of degree 3; int knots, which
    // count as none, with degree 1. 13: periodic, 4 knots of degree 3: 2 vertices, -1 distinct.
    o = addSurface(file, "|noU", {3, 1}, open, 2, 3);
    file.addStatic(o, kTagPOSI, three);
    file.addStaticAttr(o, "values", knots(6), 1);
    file.addStaticAttr(o, "rmanP__Pref", grid(2, 3), 3);
    o = addObject(file, "|noCurve", {3}, {"kOpen"});
    file.addStatic(o, kTagKNTU, knots(2));
    file.addStatic(o, kTagPOSI, three);
    o = addObject(file, "|intKnots", {1}, {"kOpen"});
    file.addStatic(o, kTagKNTU, Ints{0, 1});
    file.addStatic(o, kTagPOSI, three);
    o = addObject(file, "|negativeDistinct", {3}, {"kPeriodic"});
    file.addStatic(o, kTagKNTU, knots(4));
    file.addStatic(o, kTagPOSI, three);
    // 14 and 15: double POSI, which no net takes, for either type of the net.
    file.addStatic(addSurface(file, "|doublePosi", {1, 1}, open, 2, 2), kTagPOSI, Doubles(12, 0));
    file.addStatic(addSurface(file, "|doublePosiCurve", {1}, {"kOpen"}, 2, 0), kTagPOSI,
                   Doubles(6, 0));
    KynRoMemCache cache;
    ASSERT_TRUE(cache.load(file.write("nurbs_refused.kyn").c_str(), true));

    State state = KynHelperObj::kAnimated;
    for (int object : {0, 1, 2, 3, 4, 5, 14, 6, 7, 8, 9, 15}) {
        SCOPED_TRACE(object);
        const bool isSurface = object <= 5 || object == 14;
        Floats net{7};
        Doubles wide{7};
        NurbsSurfaceKynObj surface(&cache, object);
        NurbsCurveKynObj curve(&cache, object);
        EXPECT_FALSE(isSurface ? surface.getControlPoints(0, net, state, true)
                               : curve.getControlPoints(0, net, state));
        EXPECT_FALSE(isSurface ? surface.getControlPoints(0, wide, state, false)
                               : curve.getControlPoints(0, wide, state));
        EXPECT_EQ(net, Floats{7});
        EXPECT_EQ(wide, Doubles{7});
        EXPECT_EQ(state, KynHelperObj::kStatic);
    }
    int dimension = 0;
    Floats values{7}, u, v;
    EXPECT_FALSE(NurbsSurfaceKynObj(&cache, 3).getAttr(0, 0, values, dimension, true));
    EXPECT_EQ(values, Floats{7});
    // A negative count transposes nothing: the attribute comes back as stored.
    EXPECT_TRUE(NurbsSurfaceKynObj(&cache, 2).getAttr(0, 0, values, dimension, true));
    EXPECT_EQ(values, knots(6));
    EXPECT_FALSE(NurbsSurfaceKynObj(&cache, 5).getKnots(0, u, v, state, false));
    EXPECT_TRUE(u.empty());

    // Short surface leaves are no error; short or mistyped curve leaves are.
    int degU = 5, degV = 5, degree = 9;
    std::string formU = "kept", formV = "kept";
    EXPECT_TRUE(NurbsSurfaceKynObj(&cache, 4).getDegree(0, degU, degV, state));
    EXPECT_EQ(degU + degV, 0);
    EXPECT_TRUE(NurbsSurfaceKynObj(&cache, 4).getForm(0, formU, formV, state));
    EXPECT_EQ(formU, "kept");
    EXPECT_FALSE(NurbsCurveKynObj(&cache, 6).getDegree(0, degree, state));
    EXPECT_FALSE(NurbsCurveKynObj(&cache, 7).getDegree(0, degree, state));
    EXPECT_EQ(state, KynHelperObj::kAnimated);  // written before the type is checked
    EXPECT_FALSE(NurbsCurveKynObj(&cache, 7).getForm(0, formU, state));
    EXPECT_EQ(degree, 9);

    KynInterpolationHints linear{1};
    Floats net{7};
    NurbsSurfaceKynObj surface(&cache, 10);
    EXPECT_TRUE(surface.getControlPoints(0, net, state, true));
    EXPECT_TRUE(net.empty());
    net = {7};
    EXPECT_TRUE(surface.getControlPointsAtTime(1.5f, linear, net, state, false));
    EXPECT_TRUE(net.empty());
    values = {7};
    EXPECT_TRUE(surface.getAttr(0, 0, values, dimension, true));
    EXPECT_EQ(values, knots(6));
    EXPECT_TRUE(surface.getPrefControlPoints(net, true));
    EXPECT_EQ(net, grid(2, 3));
    for (int object : {11, 12}) {
        net = {7};
        state = KynHelperObj::kAnimated;
        EXPECT_TRUE(NurbsCurveKynObj(&cache, object).getControlPoints(0, net, state)) << object;
        EXPECT_TRUE(net.empty());
        EXPECT_EQ(state, KynHelperObj::kStatic);
    }
    EXPECT_FALSE(NurbsCurveKynObj(&cache, 12).getKnots(0, net, state, false));
    ASSERT_TRUE(NurbsCurveKynObj(&cache, 13).getControlPoints(0, net, state));
    EXPECT_EQ(net, (Floats{0, 0, 0, 1, 0, 0, 0, 1}));
}

}  // namespace
