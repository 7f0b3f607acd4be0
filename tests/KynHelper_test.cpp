// The base view and the factory: which class each tag set builds, kind names, chunk and
// attribute accessors, and the ways in which reads report where their data came from.
#include <gtest/gtest.h>

#include <memory>
#include <typeinfo>

#include "KynHelper.h"
#include "KynKinds.h"
#include "TestFiles.h"
#include "ViewFiles.h"

using namespace Kyn;
using namespace kyntest_support;

namespace {

using Kinds = std::set<std::string>;

// Eight objects, each carrying the tag of one step of the factory's precedence and every later
// tag, so that only the precedence decides. The first has its XFRM in the samples only.
class ViewFactory : public ::testing::Test {
  protected:
    void SetUp() override {
        ViewFile file(2);
        const std::vector<unsigned> steps{kTagXFRM, kTagMESH, kTagNRBS, kTagNRBC,
                                          kTagELOC, kTagLXCS, kTagPOSI};
        for (std::size_t i = 0; i <= steps.size(); ++i) {
            const int o = file.addObject("|o" + std::to_string(i));
            for (std::size_t t = i; t < steps.size(); ++t) {
                if (t == 0)
                    file.addAnimated(o, kTagXFRM, std::vector<std::vector<int>>{{1}, {1}});
                else
                    file.addStatic(o, steps[t], std::vector<float>{1, 2, 3});
            }
        }
        ASSERT_TRUE(cache.load(file.write("kinds.kyn").c_str(), true));
    }
    std::unique_ptr<KynHelperObj> build(int index) {
        return std::unique_ptr<KynHelperObj>(KynHelperObjFactory(&cache).kynObjBuilder(index));
    }
    KynRoMemCache cache;
};

TEST_F(ViewFactory, FirstMatchingTagInPrecedenceOrderDecidesTheClassAndKinds) {
    const std::type_info* expected[] = {&typeid(TransformKynObj),    &typeid(MeshKynObj),
                                        &typeid(NurbsSurfaceKynObj), &typeid(NurbsCurveKynObj),
                                        &typeid(LocatorKynObj),      &typeid(LxCoordSystemKynObj),
                                        &typeid(GeometryKynObj),     &typeid(KynHelperObj)};
    for (int i = 0; i < 8; ++i) {
        SCOPED_TRACE(i);
        auto view = build(i);
        EXPECT_EQ(typeid(*view), *expected[i]);
        EXPECT_EQ(view->objectIndex, i);
        EXPECT_EQ(view->cache, &cache);
    }
    for (int index : {-1, 8}) EXPECT_EQ(typeid(*build(index)), typeid(KynHelperObj));
    KynRoMemCache empty;
    std::unique_ptr<KynHelperObj> bare(KynHelperObjFactory(&empty).kynObjBuilder(0));
    EXPECT_EQ(bare->kinds, Kinds{"helperObj"});
    // Kinds hold the names of the class and its bases.
    EXPECT_EQ(build(0)->kinds, (Kinds{helperObj, transform}));
    EXPECT_EQ(build(1)->kinds, (Kinds{"geometry", "helperObj", "mesh"}));
    EXPECT_EQ(build(2)->kinds, (Kinds{helperObj, geometry, nurbssurface}));
    EXPECT_EQ(build(5)->kinds, (Kinds{helperObj, lxcoordsystem}));
    auto curve = build(3);
    EXPECT_TRUE(curve->isA("geometry"));
    EXPECT_FALSE(curve->isA("transform") || curve->isA("Geometry"));
    EXPECT_FALSE(build(4)->isA("lxcoordsystem"));
    EXPECT_TRUE(build(4)->isA("locator"));
}

TEST(ViewFactoryNames, ObjectNamesStopAtTheFirstEmptyName) {
    ViewFile file(1);
    for (const char* name : {"|a", "|b", "", "|d"}) file.addObject(name);
    KynRoMemCache cache;
    ASSERT_TRUE(cache.load(file.write("names.kyn").c_str(), true));
    std::vector<std::string> names{"stale"};
    EXPECT_FALSE(KynHelperObjFactory(&cache).getObjectNames(names));
    EXPECT_EQ(names, (std::vector<std::string>{"|a", "|b"}));
    names = {"stale"};
    EXPECT_FALSE(KynHelperObjFactory(nullptr).getObjectNames(names));
    EXPECT_TRUE(names.empty());
}

// One object with chunks of several element types, static and per sample, and attributes.
class ViewChunkAccess : public ::testing::Test {
  protected:
    void SetUp() override {
        ViewFile file(3);
        const int o = file.addObject("|obj");
        file.addStatic(o, kTagPOSI, std::vector<double>{1, 2, 3, 4}, 4);
        file.addStatic(o, kTagPCNT, std::vector<int>{4});
        file.addStatic(o, kTagFORM, std::vector<std::string>{"kOpen"});
        file.addAnimated(o, kTagVELO, std::vector<std::vector<float>>{{0}, {1}, {2}}, 2);
        file.addAt(1, o, kTagKNTU, std::vector<float>{9});  // absent from sample 0
        file.addAnimatedAttr(o, "speed", std::vector<std::vector<double>>{{10}, {20}, {30}}, 1);
        file.addStaticAttr(o, "label", std::vector<std::string>{"x", "y"});
        file.addStaticAttr(o, "count", std::vector<int>{3, 4}, 2);
        file.addObject("|bare");
        ASSERT_TRUE(cache.load(file.write("access.kyn").c_str(), true));
    }
    KynRoMemCache cache;
    KynHelperObj view{&cache, 0};
};

TEST_F(ViewChunkAccess, ObjectTypeAndFindChunk) {
    EXPECT_EQ(view.getObjectType(kTagPOSI), "double");
    EXPECT_EQ(view.getObjectType(kTagPCNT), "int32");
    EXPECT_EQ(view.getObjectType(kTagFORM), "cstr");
    EXPECT_EQ(view.getObjectType(kTagVELO), "float");
    EXPECT_EQ(view.getObjectType(kTagKNTU), "undef");
    EXPECT_EQ(KynHelperObj(&cache, 9).getObjectType(kTagPOSI), "undef");

    // findChunk answers whether the chunk came from a sample.
    const KynChunk* chunk = nullptr;
    EXPECT_FALSE(view.findChunk(-1, kTagPOSI, chunk));
    EXPECT_NE(chunk, nullptr);
    EXPECT_TRUE(view.findChunk(1, kTagVELO, chunk));
    ASSERT_NE(chunk, nullptr);
    EXPECT_EQ(static_cast<const KynLeafChunk<float>*>(chunk)->data[0], 1.0f);
    EXPECT_FALSE(view.findChunk(1, kTagBBOX, chunk));
    EXPECT_EQ(chunk, nullptr);
    EXPECT_FALSE(KynHelperObj(&cache, -4).findChunk(0, kTagVELO, chunk));
    EXPECT_EQ(chunk, nullptr);
}

TEST(ViewChunkHelpers, DimensionCodesSearchAndLeafAccess) {
    KynHelperObj view(nullptr, 0);
    const int expected[18] = {0, 1, 2, 3, 4, 0, 0, 0, 0, 9, 0, 0, 0, 0, 0, 0, 16, 0};
    for (int code = 0; code < 18; ++code) {
        KynLeafChunk<float> leaf(kTagPOSI, 0, static_cast<unsigned char>(code));
        EXPECT_EQ(view.getDimension(&leaf), expected[code]) << code;
    }

    // Searches look at direct children only; leaf access checks the stored vector's type.
    KynGroupChunk group(kTagPOSI);
    auto* inner = new KynGroupChunk(kTagSOBJ);
    inner->children.push_back(new KynLeafChunk<int>(kTagPCNT));
    auto* first = new KynLeafChunk<float>(kTagPIDS, std::vector<float>{1});
    group.children = {inner, first, new KynLeafChunk<int>(kTagPIDS)};
    EXPECT_EQ(view.searchChunk(&group, kTagPIDS), first);
    EXPECT_EQ(view.searchChunk(&group, kTagPCNT), nullptr);  // no descent
    EXPECT_EQ(view.searchChunk(&group, kTagPOSI), nullptr);  // not the group itself

    const std::vector<float>* f = nullptr;
    ASSERT_TRUE(view.getKynLeafData(first, f));
    EXPECT_EQ(f, &first->data);
    KynChunk raw(kTagPOSI, kTypeFloat);  // says float, holds no vector
    EXPECT_FALSE(view.getKynLeafData(&raw, f));
    EXPECT_EQ(f, nullptr);
    first->header.type = kTypeDouble;  // a float vector labelled double
    EXPECT_FALSE(view.getKynLeafData(first, f));
}

TEST_F(ViewChunkAccess, FloatOrDoubleDataConvertsAndReportsDimensionFirst) {
    std::vector<float> out;
    bool animated = true;
    int dimension = 0;
    ASSERT_TRUE(view.getFloatOrDoubleData(0, kTagPOSI, out, animated, dimension));
    EXPECT_EQ(out, (std::vector<float>{1, 2, 3, 4}));
    EXPECT_FALSE(animated);
    EXPECT_EQ(dimension, 4);
    std::vector<double> wide;
    ASSERT_TRUE(view.getFloatOrDoubleData(2, kTagVELO, wide, animated, dimension));
    EXPECT_EQ(wide, std::vector<double>{2});
    EXPECT_TRUE(animated);
    EXPECT_EQ(dimension, 3);  // code 2 reads as 3

    out = {42};
    dimension = 0;
    EXPECT_FALSE(view.getFloatOrDoubleData(0, kTagPCNT, out, animated, dimension));
    EXPECT_EQ(dimension, 3);  // set before the type was refused
    EXPECT_EQ(out, std::vector<float>{42});
}

TEST_F(ViewChunkAccess, AttributesAreReadWithoutConversionAndBadIndicesFail) {
    // Attribute indices: the animated "speed" 0, then "label" 1 and "count" 2.
    const std::vector<double>* speed = nullptr;
    int dimension = 0;
    ASSERT_TRUE(view.getAttrData(2, 0, speed, dimension));
    EXPECT_EQ(*speed, std::vector<double>{30});
    std::vector<int> counts;
    ASSERT_TRUE(view.getAttr(0, 2, counts, dimension));
    EXPECT_EQ(counts, (std::vector<int>{3, 4}));
    EXPECT_EQ(dimension, 2);
    std::vector<std::string> labels;
    ASSERT_TRUE(view.getAttr(-1, 1, labels));  // static: no sample needed
    EXPECT_EQ(labels, (std::vector<std::string>{"x", "y"}));

    std::vector<float> narrow{5};
    EXPECT_FALSE(view.getAttr(0, 0, narrow, dimension));  // stored as double
    EXPECT_EQ(dimension, 1);  // the chunk was found, so the dimension is set
    Capture err(std::cerr);
    dimension = 6;
    for (int attr : {-1, 3}) EXPECT_FALSE(view.getAttr(0, attr, narrow, dimension));
    EXPECT_FALSE(view.getAttr(9, 0, narrow, dimension));
    for (int object : {1, 5, -1})
        EXPECT_FALSE(KynHelperObj(&cache, object).getAttr(0, 0, narrow, dimension));
    EXPECT_EQ(narrow, std::vector<float>{5});
    EXPECT_EQ(dimension, 6);
}

// AnimationState disciplines, each on a failure and on a success.
class ViewAnimationState : public ::testing::Test {
  protected:
    void SetUp() override {
        ViewFile file(2);
        int o = file.addObject("|m");
        file.addAnimated(o, kTagPOSI, std::vector<std::vector<int>>{{1, 2, 3}, {1, 2, 3}});
        file.addAnimated(o, kTagVELO, std::vector<std::vector<double>>{{1, 2, 3}, {1, 2, 3}});
        file.addAnimated(o, kTagVPNO, std::vector<std::vector<float>>{{1, 2, 3}, {1, 2, 3}});
        file.addAnimated(o, kTagBBOX, std::vector<std::vector<int>>{{1, 2, 3, 4, 5, 6}, {1}});
        o = file.addObject("|g");
        file.addAnimated(o, kTagPOSI, std::vector<std::vector<float>>{{1, 2, 3}, {4, 5, 6}});
        ASSERT_TRUE(cache.load(file.write("state.kyn").c_str(), true));
    }
    KynRoMemCache cache;
    MeshKynObj mesh{&cache, 0};
    KynHelperObj::AnimationState state = KynHelperObj::kAnimated;
};

TEST_F(ViewAnimationState, FailuresClearOrReportTheFlag) {
    // Reads that succeed only then write the flag: a failure leaves it static.
    const std::vector<float>* data = nullptr;
    EXPECT_FALSE(mesh.getVelocityData(0, data, state));  // found in the sample, but double
    EXPECT_EQ(state, KynHelperObj::kStatic);
    ASSERT_TRUE(mesh.getNormalData(0, data, state));
    EXPECT_EQ(state, KynHelperObj::kAnimated);

    // Other reads write the flag of what they found also when they then fail.
    std::vector<float> out;
    int dimension = 0;
    state = KynHelperObj::kStatic;
    EXPECT_FALSE(mesh.getPosition(0, out, state, dimension));  // int32 POSI in the sample
    EXPECT_EQ(state, KynHelperObj::kAnimated);
    EXPECT_EQ(dimension, 3);
    float box[6] = {};
    state = KynHelperObj::kStatic;
    EXPECT_FALSE(mesh.getBounds(0, box, state, true));  // int32 BBOX: no fallback to POSI
    EXPECT_EQ(state, KynHelperObj::kAnimated);

    GeometryKynObj points(&cache, 1);
    state = KynHelperObj::kStatic;
    ASSERT_TRUE(points.getPosition(1, out, state, dimension));
    EXPECT_EQ(state, KynHelperObj::kAnimated);
    state = KynHelperObj::kAnimated;
    EXPECT_FALSE(points.getPosition(-1, out, state, dimension));  // nothing at sample -1
    EXPECT_EQ(state, KynHelperObj::kStatic);
}

}  // namespace
