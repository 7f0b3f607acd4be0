// Geometry and mesh reads, the reference pose searches and their asymmetry, the shape type,
// bounds from stored boxes and from points, and the settings of coordinate systems.
#include <gtest/gtest.h>

#include <iterator>
#include <tuple>

#include "KynHelper.h"
#include "TestFiles.h"
#include "ViewFiles.h"

using namespace Kyn;
using namespace kyntest_support;

namespace {

using Floats = std::vector<float>;
using Doubles = std::vector<double>;
using Ints = std::vector<int>;
using State = KynHelperObj::AnimationState;
constexpr State kStatic = KynHelperObj::kStatic;
constexpr State kAnimated = KynHelperObj::kAnimated;

class MeshRows : public ::testing::Test {
  protected:
    void SetUp() override {
        ViewFile file(2);
        int o = file.addObject("|mesh");
        file.addStatic(o, kTagMESH, Ints{1});
        file.addStatic(o, kTagPCNT, Ints{3, 4});
        file.addAnimated(o, kTagPIDS, std::vector<Ints>{{0, 1, 2, 3}, {2, 1, 0, 3}});
        file.addStatic(o, kTagNCNT, Ints{2, 2});
        file.addStatic(o, kTagNIDS, Ints{0, 1});
        file.addStatic(o, kTagVPNO, Doubles{0.1, 0.2, 0.3});
        file.addAnimated(o, kTagPONO, std::vector<Floats>{{0, 0, 1}, {0, 1, 0}});
        file.addAnimated(o, kTagVELO, std::vector<Doubles>{{1, 1, 1}, {2, 2, 2}});
        file.addAnimated(o, kTagPOSI, std::vector<Doubles>{{0.1, 0.2, 0.3}, {0.4, 0.5, 0.6}});
        o = file.addObject("|dims");
        file.addAnimated(o, kTagPOSI, std::vector<Floats>{{1, 2}, {1, 2}}, 2);
        o = file.addObject("|four");
        file.addStatic(o, kTagPOSI, Floats{1, 2, 3, 4}, 4);
        ASSERT_TRUE(cache.load(file.write("mesh.kyn").c_str(), true));
    }
    KynRoMemCache cache;
    MeshKynObj mesh{&cache, 0};
    State state = kAnimated;
};

TEST_F(MeshRows, TopologyRowsReadTheirOwnTagInPlaceOrAsACopy) {
    using Pointer = bool (MeshKynObj::*)(int, const Ints*&, State&);
    using Copy = bool (MeshKynObj::*)(int, Ints&, State&);
    const struct {
        Pointer pointer;
        Copy copy;
        Ints expected;
        State origin;
    } rows[] = {{&MeshKynObj::getPcnts, &MeshKynObj::getFaceVertexCnts, {3, 4}, kStatic},
                {&MeshKynObj::getPids, &MeshKynObj::getFaceVertexIds, {2, 1, 0, 3}, kAnimated},
                {&MeshKynObj::getNcnts, &MeshKynObj::getFaceNormalVertexCnts, {2, 2}, kStatic},
                {&MeshKynObj::getNids, &MeshKynObj::getFaceNormalVertexIds, {0, 1}, kStatic}};
    for (const auto& row : rows) {
        const Ints* data = nullptr;
        ASSERT_TRUE((mesh.*row.pointer)(1, data, state));
        EXPECT_EQ(*data, row.expected);
        EXPECT_EQ(state, row.origin);
        Ints copy{9};
        ASSERT_TRUE((mesh.*row.copy)(1, copy, state));
        EXPECT_EQ(copy, row.expected);
        copy = {9};
        EXPECT_FALSE((MeshKynObj(&cache, 1).*row.copy)(1, copy, state));
        EXPECT_FALSE((MeshKynObj(&cache, 7).*row.copy)(1, copy, state));
        EXPECT_EQ(copy, Ints{9});
    }
    const Ints* data = nullptr;
    EXPECT_FALSE(mesh.getPids(-1, data, state));  // animated: nothing at sample -1
    EXPECT_EQ(state, kStatic);
}

// Pointer reads hand out the stored vector only when its type is asked for; copies convert.
// Dimension codes 0 and 2 both read as 3.
TEST_F(MeshRows, PointerReadsTakeTheStoredTypeCopiesConvertAndDimensionCodes) {
    const Floats* floats = nullptr;
    const Doubles* doubles = nullptr;
    EXPECT_FALSE(mesh.getNormalData(0, floats, state));
    ASSERT_TRUE(mesh.getNormalData(0, doubles, state));
    EXPECT_EQ(*doubles, (Doubles{0.1, 0.2, 0.3}));
    ASSERT_TRUE(mesh.getFaceNormalData(1, floats, state));
    EXPECT_EQ(*floats, (Floats{0, 1, 0}));
    EXPECT_FALSE(mesh.getVelocityData(1, floats, state));

    Floats narrow;
    Doubles wide;
    ASSERT_TRUE(mesh.getNormals(0, narrow, state));
    EXPECT_EQ(narrow, (Floats{0.1f, 0.2f, 0.3f}));
    EXPECT_EQ(state, kStatic);
    ASSERT_TRUE(mesh.getFaceNormals(0, wide, state));
    EXPECT_EQ(wide, (Doubles{0, 0, 1}));
    ASSERT_TRUE(mesh.getVelocity(1, narrow, state));
    EXPECT_EQ(narrow, (Floats{2, 2, 2}));
    EXPECT_EQ(state, kAnimated);

    int dimension = -1;
    EXPECT_FALSE(mesh.getPositionData(0, floats, state, dimension));
    EXPECT_EQ(state, kStatic);
    EXPECT_EQ(dimension, -1);
    ASSERT_TRUE(mesh.getPositionData(1, doubles, state, dimension));
    EXPECT_EQ(doubles->back(), 0.6);
    EXPECT_EQ(dimension, 3);  // code 0
    ASSERT_TRUE(mesh.getPosition(1, narrow, state, dimension));
    EXPECT_EQ(narrow, (Floats{0.4f, 0.5f, 0.6f}));
    ASSERT_TRUE(GeometryKynObj(&cache, 1).getPositionData(0, floats, state, dimension));
    EXPECT_EQ(dimension, 3);  // code 2
    state = kAnimated;
    ASSERT_TRUE(GeometryKynObj(&cache, 2).getPositionData(-1, floats, state, dimension));
    EXPECT_EQ(dimension, 4);
    EXPECT_EQ(state, kStatic);
}

// Reference poses: each object holds the named attributes in the order given.
class MeshPref : public ::testing::Test {
  protected:
    void SetUp() override {
        ViewFile file(2);
        int o = file.addObject("|floatFirst");
        file.addStaticAttr(o, "rmanP__Pref", Floats{1, 1, 1});
        file.addStaticAttr(o, "velt_Pref", Doubles{2, 2, 2});
        o = file.addObject("|doubleFirst");
        file.addStaticAttr(o, "other", Doubles{0});
        file.addStaticAttr(o, "velt_Pref", Doubles{2, 2, 2});
        file.addStaticAttr(o, "rmanP__Pref", Floats{1, 1, 1});
        file.addStaticAttr(o, "velt_Pref", Doubles{3, 3, 3});
        o = file.addObject("|twoDoubles");
        file.addStaticAttr(o, "velt_Pref", Doubles{2, 2, 2}, 2);
        file.addStaticAttr(o, "rmanP__Pref", Doubles{4, 4, 4, 4}, 4);
        o = file.addObject("|twoFloats");
        file.addAnimatedAttr(o, "velt_Pref", std::vector<Floats>{{5, 5}, {6, 6}}, 2);
        file.addStaticAttr(o, "rmanP__Pref", Floats{7, 7, 7});
        file.addObject("|none");
        o = file.addObject("|doubleDim2");
        file.addStaticAttr(o, "velt_Pref", Doubles{1, 2}, 2);
        ASSERT_TRUE(cache.load(file.write("pref.kyn").c_str(), true));
    }
    KynRoMemCache cache;
    const Floats* floats = nullptr;
    const Doubles* doubles = nullptr;
    int dimension = -1;
};

// The float search takes the first match and the double search the last, each stopping at the
// first match of the other type.
TEST_F(MeshPref, TheOrderOfTheAttributesDecidesWhichTwinAnswers) {
    Floats narrow;
    Doubles wide;
    MeshKynObj floatFirst(&cache, 0);
    EXPECT_FALSE(floatFirst.getPrefData(doubles, dimension));  // stops at the float one
    ASSERT_TRUE(floatFirst.getPref(narrow));
    ASSERT_TRUE(floatFirst.getPref(wide));
    EXPECT_EQ(narrow, (Floats{1, 1, 1}));
    EXPECT_EQ(wide, (Doubles{1, 1, 1}));
    // The double search finds the first velt_Pref, then stops at the float one, keeping its hit.
    MeshKynObj doubleFirst(&cache, 1);
    ASSERT_TRUE(doubleFirst.getPref(narrow));
    EXPECT_EQ(narrow, (Floats{2, 2, 2}));
    EXPECT_FALSE(doubleFirst.getPrefData(floats, dimension));  // its first match is double
    EXPECT_EQ(floats, nullptr);

    ASSERT_TRUE(GeometryKynObj(&cache, 2).getPrefData(doubles, dimension));
    EXPECT_EQ(*doubles, (Doubles{4, 4, 4, 4}));
    EXPECT_EQ(dimension, 4);
    ASSERT_TRUE(GeometryKynObj(&cache, 3).getPrefData(floats, dimension));
    EXPECT_EQ(*floats, (Floats{5, 5}));  // the animated one, read at the first sample
    EXPECT_EQ(dimension, 2);             // code 2 kept by the float twin...
    ASSERT_TRUE(GeometryKynObj(&cache, 5).getPrefData(doubles, dimension));
    EXPECT_EQ(dimension, 3);  // ...and read as 3 by the double twin
    ASSERT_TRUE(GeometryKynObj(&cache, 0).getPrefData(floats, dimension));
    EXPECT_EQ(dimension, 3);  // code 0

    Floats untouched{8};
    for (int object : {4, 9, -2}) EXPECT_FALSE(MeshKynObj(&cache, object).getPref(untouched));
    EXPECT_EQ(untouched, Floats{8});
}

TEST(MeshPrefWithoutSamples, StaticAttributesAreFoundAndAnimatedOnesAreNot) {
    ViewFile file(0);
    int o = file.addObject("|static");
    file.addStaticAttr(o, "rmanP__Pref", Floats{1, 2, 3});
    file.addStaticAttr(o, "mdShapeType", Ints{1});
    o = file.addObject("|animated");
    file.addAnimatedAttr(o, "rmanP__Pref", std::vector<Floats>{});
    file.addAnimatedAttr(o, "mdShapeType", std::vector<Ints>{});
    KynRoMemCache cache;
    ASSERT_TRUE(cache.load(file.write("prefnosamples.kyn").c_str(), true));
    Capture err(std::cerr);
    Floats out;
    EXPECT_TRUE(MeshKynObj(&cache, 0).getPref(out));
    EXPECT_FALSE(MeshKynObj(&cache, 0).isSubd());
    EXPECT_FALSE(MeshKynObj(&cache, 1).getPref(out));
    EXPECT_TRUE(MeshKynObj(&cache, 1).isSubd());
}

TEST(MeshShapeType, TheAttributeWinsOverTheChunkAndSilenceMeansSubdivision) {
    ViewFile file(1);
    struct Case {
        const char* name;
        int attribute;  // -1 none, -2 float, -3 empty
        int chunk;      // -1 none, -3 empty
        bool subd;
    };
    const Case cases[] = {{"|attr1chunk0", 1, 0, false}, {"|neither", -1, -1, true},
                          {"|chunk0", -1, 0, true},      {"|chunk2", -1, 2, false},
                          {"|attr0chunk5", 0, 5, true},  {"|floatAttr", -2, 3, false},
                          {"|emptyChunk", -1, -3, true}, {"|emptyAttr", -3, 4, false}};
    for (const Case& c : cases) {
        const int o = file.addObject(c.name);
        file.addStatic(o, kTagMESH, Ints{1});
        if (c.attribute >= 0) file.addStaticAttr(o, "mdShapeType", Ints{c.attribute});
        if (c.attribute == -2) file.addStaticAttr(o, "mdShapeType", Floats{0});
        if (c.attribute == -3) file.addStaticAttr(o, "mdShapeType", Ints{});
        if (c.chunk >= 0) file.addStatic(o, kTagMSPT, Ints{c.chunk});
        if (c.chunk == -3) file.addStatic(o, kTagMSPT, Ints{});
    }
    KynRoMemCache cache;
    ASSERT_TRUE(cache.load(file.write("shape.kyn").c_str(), true));
    for (int i = 0; i < int(std::size(cases)); ++i)
        EXPECT_EQ(MeshKynObj(&cache, i).isSubd(), cases[i].subd) << cases[i].name;
    EXPECT_TRUE(MeshKynObj(&cache, 99).isSubd());
}

// Stored boxes in both element types, and boxes computed from points.
class ViewBounds : public ::testing::Test {
  protected:
    void SetUp() override {
        ViewFile file(2);
        int o = file.addObject("|floatBox");
        file.addStatic(o, kTagBBOX, Floats{1, 2, 3, 4, 5, 6});
        file.addAnimated(o, kTagPOSI, std::vector<Floats>{{0, 0, 0}, {9, 9, 9}});
        o = file.addObject("|doubleBox");
        file.addAnimated(o, kTagBBOX, std::vector<Doubles>{{1, 2, 3, 4, 5, 6}, {1, 2, 3, 4, 5, 6}});
        o = file.addObject("|shortBox");
        file.addStatic(o, kTagBBOX, Floats{1, 2, 3, 4});
        o = file.addObject("|longBox");
        file.addStatic(o, kTagBBOX, Doubles{1, 2, 3, 4, 5, 6, 7, 8});
        o = file.addObject("|points");
        file.addAnimated(o, kTagPOSI, std::vector<Floats>{{1, 5, -2, -3, 2, 4, 0, 9, 1}, {}});
        o = file.addObject("|doublePoints4");
        file.addStatic(o, kTagPOSI, Doubles{1, 5, -2, -100, -3, 2, 4, 100, 0, 9, 1, 50}, 4);
        o = file.addObject("|onePoint");
        file.addStatic(o, kTagPOSI, Floats{7, 8, 9});
        o = file.addObject("|partialTuple");
        file.addStatic(o, kTagPOSI, Floats{1, 2, 3, -50, -50});
        ASSERT_TRUE(cache.load(file.write("bounds.kyn").c_str(), true));
    }
    // The array form, starting from -1 everywhere.
    Floats box(int object, int sample, bool cornerOrder, bool expectFound = true) {
        float bounds[6] = {-1, -1, -1, -1, -1, -1};
        state = kAnimated;
        EXPECT_EQ(KynHelperObj(&cache, object).getBounds(sample, bounds, state, cornerOrder),
                  expectFound);
        return Floats(bounds, bounds + 6);
    }
    KynRoMemCache cache;
    State state = kStatic;
};

// Stored boxes are permuted by their element type; points give the box of their x, y, z.
TEST_F(ViewBounds, StoredBoxesAndBoxesOfPoints) {
    EXPECT_EQ(box(0, 1, true), (Floats{1, 3, 5, 2, 4, 6}));
    EXPECT_EQ(state, kStatic);  // the static box shadows the points
    EXPECT_EQ(box(0, 0, false), (Floats{1, 2, 3, 4, 5, 6}));
    EXPECT_EQ(box(1, 1, true), (Floats{1, 2, 3, 4, 5, 6}));
    EXPECT_EQ(state, kAnimated);
    EXPECT_EQ(box(1, 0, false), (Floats{1, 4, 2, 5, 3, 6}));
    EXPECT_EQ(box(3, 0, false), (Floats{1, 4, 2, 5, 3, 6}));  // values past six ignored
    // A short box fills only its first elements; a permuting copy stops at the first gap.
    EXPECT_EQ(box(2, 0, false), (Floats{1, 2, 3, 4, -1, -1}));
    EXPECT_EQ(box(2, 0, true), (Floats{1, 3, -1, -1, -1, -1}));

    EXPECT_EQ(box(4, 0, true), (Floats{-3, 2, -2, 1, 9, 4}));
    EXPECT_EQ(state, kAnimated);
    EXPECT_EQ(box(4, 0, false), (Floats{-3, 1, 2, 9, -2, 4}));
    EXPECT_EQ(box(5, 1, true), (Floats{-3, 2, -2, 1, 9, 4}));  // w plays no part
    EXPECT_EQ(state, kStatic);
    EXPECT_EQ(box(6, 0, false), (Floats{7, 7, 8, 8, 9, 9}));
    EXPECT_EQ(box(7, 0, true), (Floats{1, 2, 3, 1, 2, 3}));  // a partial tuple is left out
}

TEST_F(ViewBounds, MissingOrEmptyPointsAndBadIndices) {
    EXPECT_EQ(box(4, 1, true), Floats(6, -1));  // empty POSI: nothing written
    Floats bounds{5, 5, 5, 5, 5, 5, 5};
    ASSERT_TRUE(KynHelperObj(&cache, 4).getBounds(1, bounds, state, true));
    EXPECT_EQ(bounds, Floats(6, 0));  // the vector form: six zeros
    box(4, -1, true, false);          // animated points, no sample
    EXPECT_EQ(state, kStatic);
    for (int object : {40, -1}) box(object, 0, true, false);
}

TEST(ViewCoordinateSystems, SettingsComeFromInt32AttributesOrDefaults) {
    ViewFile file(1);
    file.addObject("|bare");
    int o = file.addObject("|set");
    file.addStaticAttr(o, "scoped", Ints{0});
    file.addStaticAttr(o, "useAsClippingPlane", Ints{7});
    file.addStaticAttr(o, "displayShape", Ints{3});
    file.addStaticAttr(o, "parentRig", std::vector<std::string>{"rig1"});
    o = file.addObject("|mistyped");
    file.addStaticAttr(o, "scoped", Floats{0});
    file.addStaticAttr(o, "useAsClippingPlane", Ints{});
    file.addAnimatedAttr(o, "displayShape", std::vector<Ints>{{0}});
    file.addStaticAttr(o, "parentRig", Ints{5});
    KynRoMemCache cache;
    ASSERT_TRUE(cache.load(file.write("coords.kyn").c_str(), true));
    const auto settings = [&cache](int index) {
        LxCoordSystemKynObj view(&cache, index);
        return std::make_tuple(view.scoped(), view.useAsClippingPlane(), view.displayShape(),
                               view.parentRig());
    };
    for (int index : {0, 9, -1}) EXPECT_EQ(settings(index), std::make_tuple(true, true, 1, ""));
    EXPECT_EQ(settings(1), std::make_tuple(false, true, 3, "rig1"));
    EXPECT_EQ(settings(2), std::make_tuple(true, true, 0, ""));  // displayShape at sample 0
}

}  // namespace
