// The memory cache: eviction order under a bound, tag walks in a sample, static data shadowing
// animated data, vertex counts, attribute lookups and their messages, bulk loads.
#include <gtest/gtest.h>

#include <cstdio>
#include <sstream>

#include "KynRoMemCache.h"
#include "TestFiles.h"
#include "ViewFiles.h"

using namespace Kyn;
using namespace kyntest_support;

namespace {

using Floats = std::vector<float>;

// Five samples at frames 1 to 5 of three objects. Each "SOBJ" holds the positions {10 s + o};
// object 0 adds a velocity, a second "POSI" and an "ATRS" with one animated attribute value.
// Object 1 carries a static "POSI" and an animated attribute that no sample holds.
std::string writeScene() {
    ViewFile scene(5);
    for (int o = 0; o < 3; ++o) scene.addObject("|obj" + std::to_string(o));
    std::vector<Floats> values;
    for (int s = 0; s < 5; ++s) {
        for (int o = 0; o < 3; ++o) scene.addAt(s, o, kTagPOSI, Floats{float(10 * s + o)});
        scene.addAt(s, 0, kTagVELO, Floats{1});
        scene.addAt(s, 0, kTagPOSI, Floats{2});
        values.push_back({0.5f * float(s)});
    }
    scene.addAnimatedAttr(0, "a", values);
    scene.addStaticAttr(0, "s", std::vector<int>{});
    scene.addAnimatedAttr(1, "b", std::vector<Floats>{});
    scene.addStatic(1, kTagPOSI, Floats{-1, -1, -1});
    return scene.write("scene.kyn");
}

// The first value of a float leaf, or of the first child of a "SOBJ"; -99 for none.
float firstPosition(KynChunk* chunk) {
    if (auto* group = dynamic_cast<KynGroupChunk*>(chunk))
        return group->children.empty() ? -99 : firstPosition(group->children[0]);
    auto* leaf = dynamic_cast<KynLeafChunk<float>*>(chunk);
    return leaf && !leaf->data.empty() ? leaf->data[0] : -99;
}

class KynRoMemCacheTest : public ::testing::Test {
  protected:
    bool held(int sample) const {
        return std::size_t(sample) < cache.samples.size() && cache.samples[sample] != nullptr;
    }
    std::list<int> recent() const { return cache.recentSamples; }

    std::string path = writeScene();
    KynRoMemCache cache;
};

}  // namespace

TEST_F(KynRoMemCacheTest, EvictsTheLeastRecentlyUsedSampleWithAllItsObjects) {
    ASSERT_TRUE(cache.load(path.c_str(), true, 2));
    EXPECT_EQ(cache.samples.size(), 5u);
    for (auto [s, o] : std::vector<std::pair<int, int>>{{0, 0}, {0, 1}, {1, 0}, {2, 0}})
        ASSERT_NE(cache.getSample(s, o), nullptr);
    EXPECT_FALSE(held(0));
    EXPECT_EQ(recent(), (std::list<int>{2, 1}));
    cache.getSample(1, 0);
    cache.getSample(3, 0);
    EXPECT_FALSE(held(2));
    EXPECT_TRUE(held(1));
    EXPECT_EQ(recent(), (std::list<int>{3, 1}));
    // Another object of the front sample changes nothing in the list.
    EXPECT_EQ(firstPosition(cache.getSample(3, 1)), 31);
    EXPECT_EQ(recent(), (std::list<int>{3, 1}));
    EXPECT_EQ(cache.samples[3]->size(), 2u);
    cache.setMaxSamples(1);
    EXPECT_EQ(recent(), (std::list<int>{3}));
    EXPECT_FALSE(held(1));
    cache.getSample(4, 0);
    EXPECT_FALSE(held(3));
    EXPECT_EQ(recent(), (std::list<int>{4}));
}

TEST_F(KynRoMemCacheTest, TheBoundSurvivesLoadButNotReset) {
    ASSERT_TRUE(cache.load(path.c_str(), true, 2));
    Capture out(std::cout);
    EXPECT_FALSE(cache.load(scratchPath("missing.kyn").c_str(), true));
    EXPECT_EQ(cache.maxSamples, 2);
    cache.reset();
    EXPECT_EQ(cache.maxSamples, 0);
    ASSERT_TRUE(cache.load(path.c_str(), true, 3));
    cache.getSample(0, 0);
    cache.getSample(1, 0);
    cache.setMaxSamples(-3);  // as 0: the tracked samples go, and the bound with them
    EXPECT_EQ(cache.maxSamples, 0);
    EXPECT_TRUE(recent().empty());
    EXPECT_FALSE(held(0) || held(1));
    // Samples read without a bound are never tracked, so never evicted.
    for (int s = 0; s < 3; ++s) cache.getSample(s, 0);
    cache.setMaxSamples(1);
    cache.getSample(3, 0);
    cache.getSample(4, 0);
    EXPECT_TRUE(held(0) && held(1) && held(2) && held(4));
    EXPECT_FALSE(held(3));
}

TEST_F(KynRoMemCacheTest, AReadWriteCacheNeverTracksOrEvicts) {
    cache.rwMode = 1;
    ASSERT_TRUE(cache.load(path.c_str(), true, 1));
    cache.setMaxSamples(3);
    EXPECT_EQ(cache.maxSamples, 1);
    for (int s = 0; s < 3; ++s) ASSERT_NE(cache.getSample(s, 0), nullptr);
    EXPECT_TRUE(held(0) && held(1) && held(2));
    EXPECT_TRUE(recent().empty());
}

TEST_F(KynRoMemCacheTest, WalksRepeatedTagsOfOneSample) {
    ASSERT_TRUE(cache.load(path.c_str(), true));
    int index = 0;
    EXPECT_EQ(firstPosition(cache.getSample(2, 0, kTagPOSI, &index)), 20);
    EXPECT_EQ(index, 0);
    index = 1;
    EXPECT_EQ(firstPosition(cache.getSample(2, 0, kTagPOSI, &index)), 2);
    EXPECT_EQ(index, 2);
    index = 3;
    EXPECT_EQ(cache.getSample(2, 0, kTagPOSI, &index), nullptr);
    EXPECT_EQ(index, 4);  // the number of children
    index = -5;
    EXPECT_EQ(firstPosition(cache.getSample(2, 0, kTagPOSI, &index)), 20);
    index = 7;
    EXPECT_EQ(cache.getSample(5, 0, kTagPOSI, &index), nullptr);
    EXPECT_EQ(index, 7);  // a missing sample leaves the index alone
    EXPECT_EQ(firstPosition(cache.getSample(2, 0, kTagVELO, nullptr)), 1);
    EXPECT_EQ(cache.getSample(0, -1), nullptr);
    EXPECT_EQ(cache.getSample(0, 3), nullptr);
    EXPECT_EQ(cache.getSample(-1, 0), nullptr);
    cache.deleteSample(-1);
}

TEST_F(KynRoMemCacheTest, StaticDataShadowsSampleData) {
    ASSERT_TRUE(cache.load(path.c_str(), true));
    bool animated = true;
    for (int sample : {0, -1, 99}) {
        animated = true;
        EXPECT_EQ(firstPosition(cache.getObjectData(sample, 1, kTagPOSI, &animated)), -1);
        EXPECT_FALSE(animated);
    }
    EXPECT_EQ(firstPosition(cache.getObjectData(1, 0, kTagPOSI, &animated)), 10);
    EXPECT_TRUE(animated);
    EXPECT_EQ(cache.getObjectData(1, 0, kTagMTRX, &animated), nullptr);
    EXPECT_FALSE(animated);
    EXPECT_EQ(cache.getObjectData(1, -1, kTagPOSI, &animated), nullptr);
    EXPECT_EQ(firstPosition(cache.getObjectData(1, 2, kTagPOSI, nullptr)), 12);
}

TEST_F(KynRoMemCacheTest, CountsVerticesByTypeAndDimension) {
    ASSERT_TRUE(cache.load(path.c_str(), true));
    EXPECT_EQ(cache.getNumVertices(-1, 0), 0);  // only static positions without a sample
    EXPECT_EQ(cache.getNumVertices(0, 0), 0);   // one float reads as a third of a vertex
    EXPECT_EQ(cache.getNumVertices(-1, 1), 1);
    auto* doubles = new KynLeafChunk<double>(kTagPOSI, std::vector<double>(6));
    cache.meta.objects[2]->children = {doubles};
    EXPECT_EQ(cache.getNumVertices(-1, 2), 2);
    doubles->header.dimension = 2;
    EXPECT_EQ(cache.getNumVertices(-1, 2), 3);
    EXPECT_EQ(cache.getNumVertices(0, 3), 0);
}

TEST_F(KynRoMemCacheTest, AttributeValuesAndTheirMessages) {
    ASSERT_TRUE(cache.load(path.c_str(), true));
    EXPECT_EQ(firstPosition(cache.getAttrData(2, 0, 0)), 1.0f);
    KynChunk* fixed = cache.getAttrData(2, 0, 1);
    ASSERT_NE(fixed, nullptr);
    EXPECT_EQ(fixed, cache.meta.objects[0]->datr->atrs.children[0]);
    Capture err(std::cerr);
    EXPECT_EQ(cache.getAttrData(0, 0, 2), nullptr);
    EXPECT_EQ(cache.getAttrData(0, 0, -1), nullptr);
    EXPECT_EQ(cache.getAttrData(0, 1, 0), nullptr);
    EXPECT_EQ(cache.getAttrData(0, 2, 0), nullptr);  // no attribute table: silent
    EXPECT_EQ(err.str(),
              "DATR index out of range 2\n"
              "DATR index out of range -1\n"
              "ATRS GROUP chunk missing for object at 1\n");
}

TEST_F(KynRoMemCacheTest, DeletingTheLastSampleShrinksTheTable) {
    ASSERT_TRUE(cache.load(path.c_str(), true));
    cache.getSample(1, 0);
    cache.getSample(4, 0);
    cache.deleteSample(4);
    EXPECT_EQ(cache.samples.size(), 2u);
    cache.deleteSample(9);
    EXPECT_EQ(firstPosition(cache.getSample(4, 1)), 41);
    EXPECT_EQ(cache.samples.size(), 5u);
    EXPECT_EQ(cache.samples[4]->size(), 2u);
    cache.deleteAllSamples();
    EXPECT_TRUE(cache.samples.empty());
}

TEST_F(KynRoMemCacheTest, BulkLoadsFillEverySlotWithoutTracking) {
    ASSERT_TRUE(cache.load(path.c_str(), false, 1));
    EXPECT_TRUE(cache.loadSamplesNotGreaterThan(-1));
    ASSERT_TRUE(cache.loadSamplesNotGreaterThan(1));
    EXPECT_TRUE(held(0) && held(1));
    EXPECT_FALSE(held(2));
    EXPECT_EQ(cache.samples[1]->size(), 3u);
    ASSERT_TRUE(cache.loadAllSamples());
    for (int s = 0; s < 5; ++s)
        for (int o = 0; o < 3; ++o) EXPECT_EQ(firstPosition((*cache.samples[s])[o]), 10 * s + o);
    EXPECT_TRUE(recent().empty());
    EXPECT_FALSE(cache.file.hasStream());
    // With the file gone, the partial load stops, the whole one carries on.
    cache.deleteAllSamples();
    std::remove(path.c_str());
    EXPECT_FALSE(cache.loadSamplesNotGreaterThan(2));
    EXPECT_TRUE(cache.loadAllSamples());
    EXPECT_EQ(cache.samples.size(), 5u);
    EXPECT_EQ((*cache.samples[4])[2], nullptr);
}

TEST_F(KynRoMemCacheTest, TypedDataAtAnExactSampleTime) {
    ASSERT_TRUE(cache.load(path.c_str(), true));
    const Floats* data = cache.getSampleDataAtTime<float>(3, 1, kTagPOSI, nullptr);
    ASSERT_NE(data, nullptr);
    EXPECT_EQ(*data, (Floats{21}));
    EXPECT_EQ(cache.getSampleDataAtTime<double>(3, 1, kTagPOSI, nullptr), nullptr);
    EXPECT_EQ(cache.getSampleDataAtTime<float>(2.5f, 1, kTagPOSI, nullptr), nullptr);
    EXPECT_EQ(cache.getSampleDataAtTime<float>(6, 1, kTagPOSI, nullptr), nullptr);
    int index = 1;
    data = cache.getSampleDataAtTime<float>(1, 0, kTagPOSI, &index);
    ASSERT_NE(data, nullptr);
    EXPECT_EQ(*data, (Floats{2}));
}

// Reads are lazy and by object: a damaged object of a sample stays unread, and unnoticed, until
// it is asked for; load reads no sample at all.
TEST_F(KynRoMemCacheTest, AReadTouchesOnlyTheObjectAskedFor) {
    {
        KynCache locate;
        ASSERT_TRUE(locate.load(path.c_str(), true));
        delete locate.loadObjectSample(3, 0);
        std::vector<unsigned char> bytes = readBytes(path);
        bytes.at(std::size_t(locate.objectJumps.at(2)) + 16 + 4) = kTypeDouble;  // 4-byte double
        writeBytes(path, bytes);
    }
    ASSERT_TRUE(cache.load(path.c_str(), true));
    EXPECT_NE(cache.getSample(3, 0), nullptr);
    EXPECT_NE(cache.getSample(3, 1), nullptr);
    ASSERT_NE(cache.samples.at(3), nullptr);
    const std::vector<KynGroupChunk*>& objects = *cache.samples[3];
    EXPECT_TRUE(objects.size() < 3 || objects[2] == nullptr);  // object 2 was never read
    EXPECT_EQ(cache.getSample(3, 2), nullptr);
    EXPECT_NE(cache.getSample(4, 2), nullptr);
}

// A bounded cache reads each new sample into the storage of the sample it evicts when the
// shapes agree; whatever the shapes, what it holds must be what an unbounded cache reads.
TEST(KynRoMemCacheReuse, SamplesReadAfterAnEvictionAreThoseOfTheFile) {
    ViewFile file(7);
    const int o = file.addObject("|shapes");
    file.addAt(0, o, kTagPOSI, Floats{1, 2, 3});
    file.addAt(1, o, kTagPOSI, Floats{4, 5, 6});
    file.addAt(2, o, kTagPOSI, Floats{7, 8, 9, 10, 11, 12});
    file.addAt(3, o, kTagPOSI, std::vector<double>{1.5, 2.5, 3.5});
    file.addAt(4, o, kTagVELO, Floats{9, 9, 9});
    file.addAt(4, o, kTagPOSI, Floats{0, 0, 0});
    file.addAt(5, o, kTagPOSI, Floats{-1, -2, -3});
    file.addAt(5, o, kTagPOSI, Floats{-4, -5, -6});
    file.addAt(5, o, kTagPCNT, std::vector<int>{3});
    file.addAt(6, o, kTagPOSI, Floats{});
    const std::string path = file.write("shapes.kyn");
    KynRoMemCache unbounded;
    ASSERT_TRUE(unbounded.load(path.c_str(), true));
    auto text = [o](KynRoMemCache& cache, int sample) {
        std::ostringstream os;
        KynGroupChunk* group = cache.getSample(sample, o);
        if (group != nullptr) group->print(os, 0);
        return os.str();
    };
    for (int bound : {1, 2}) {
        KynRoMemCache bounded;
        ASSERT_TRUE(bounded.load(path.c_str(), true, bound));
        for (int sample : {0, 1, 2, 3, 4, 5, 6, 5, 4, 3, 2, 1, 0, 1, 0, 6, 0}) {
            SCOPED_TRACE("bound " + std::to_string(bound) + " sample " + std::to_string(sample));
            EXPECT_EQ(text(bounded, sample), text(unbounded, sample));
        }
    }
}

// Pins: pinned samples count against the bound but are never evicted, and whatever frees a
// pinned group only takes it out of the cache; its data stays readable until the last unpin (the
// sanitizer build checks that it is then freed, and not before).
TEST_F(KynRoMemCacheTest, PinnedSamplesCountAgainstTheBoundButStay) {
    ASSERT_TRUE(cache.load(path.c_str(), true, 2));
    cache.getSample(0, 0);
    KynGroupChunk* pinned = cache.pinSample(0, 0);
    ASSERT_EQ(pinned, (*cache.samples[0])[0]);
    EXPECT_EQ(cache.pinSample(0, 2), nullptr);  // nothing held there: nothing pinned, no read
    EXPECT_EQ(cache.pinSample(7, 0), nullptr);
    EXPECT_TRUE(cache.isSamplePinned(0));
    cache.getSample(1, 0);
    cache.getSample(2, 0);  // evicts 1, the least recent sample that is not pinned
    EXPECT_EQ(recent(), (std::list<int>{2, 0}));
    EXPECT_TRUE(held(0) && held(2) && !held(1));
    cache.setMaxSamples(1);
    EXPECT_EQ(recent(), (std::list<int>{0}));
    cache.getSample(3, 0);  // pins fill the bound: the sample read is held besides them
    EXPECT_EQ(recent(), (std::list<int>{3, 0}));
    EXPECT_EQ(firstPosition(pinned), 0);
    cache.unpin(pinned);
    EXPECT_TRUE(held(0));  // unpinning evicts nothing by itself
    cache.getSample(4, 0);
    EXPECT_EQ(recent(), (std::list<int>{4}));
    EXPECT_FALSE(held(0) || held(3));
    EXPECT_TRUE(cache.pins.empty());
}

TEST_F(KynRoMemCacheTest, PinnedGroupsOutliveDeleteResetAndLoad) {
    ASSERT_TRUE(cache.load(path.c_str(), true));
    cache.getSample(1, 0);
    cache.getSample(2, 0);
    KynGroupChunk* first = cache.pinSample(1, 0);
    KynGroupChunk* second = cache.pinSample(2, 0);
    cache.pinSample(2, 0);  // pins count
    KynDOBJChunk* object = cache.pinObject(1);
    ASSERT_NE(object, nullptr);
    EXPECT_EQ(cache.pinObject(3), nullptr);
    const Floats& staticData = static_cast<KynLeafChunk<float>*>(object->children.at(0))->data;

    cache.deleteSample(1);
    EXPECT_FALSE(held(1));
    EXPECT_EQ(firstPosition(cache.getSample(1, 0)), 10);  // read afresh into a new group
    EXPECT_NE((*cache.samples[1])[0], first);
    EXPECT_EQ(firstPosition(first), 10);
    cache.unpin(first);  // freed here

    // A group taken out of a pinned group waits for its last pin too.
    KynChunk* velocity = second->children.at(1);
    second->children.erase(second->children.begin() + 1);
    cache.releaseChunk(velocity, second);
    ASSERT_TRUE(cache.load(path.c_str(), true));  // resets: the pinned groups are let go
    EXPECT_TRUE(cache.samples.empty() || !held(2));
    EXPECT_NE(cache.meta.objects[1], object);
    EXPECT_EQ(firstPosition(second), 20);
    EXPECT_EQ(firstPosition(velocity), 1);
    EXPECT_EQ(staticData, (Floats{-1, -1, -1}));
    EXPECT_EQ(object->name, "|obj1");
    cache.unpin(second);
    EXPECT_EQ(firstPosition(second), 20);
    cache.unpin(second);
    cache.reset();
    EXPECT_EQ(staticData, (Floats{-1, -1, -1}));
    cache.unpin(object);
    cache.unpin(object);  // no longer pinned: ignored
    EXPECT_TRUE(cache.pins.empty());

    // A cache destroyed with pins left frees their groups with it.
    KynRoMemCache dropped;
    ASSERT_TRUE(dropped.load(path.c_str(), true));
    dropped.getSample(0, 0);
    dropped.pinSample(0, 0);
    dropped.pinObject(0);
    dropped.deleteAllSamples();
}
