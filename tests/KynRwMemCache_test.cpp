// The read-write memory cache in memory: how allocSample places samples and switches the
// sampling, and the edits of names, attributes, time range and sampling.
#include <gtest/gtest.h>

#include <cmath>
#include <iomanip>
#include <limits>
#include <sstream>

#include "KynRwMemCache.h"
#include "TestFiles.h"

using namespace Kyn;

namespace {

const float kInf = std::numeric_limits<float>::infinity();
const float kLeast = std::numeric_limits<float>::denorm_min();

// A cache with one sample of object 0 at each of `times`, in that order.
void fill(KynRwMemCache& cache, std::initializer_list<float> times) {
    for (float time : times) ASSERT_NE(cache.allocSample(time, 0), nullptr) << time;
}

// "count first..last rate r", and the times of a non-uniform cache; 9 digits show a rounding.
std::string sampling(const KynRwMemCache& cache) {
    std::ostringstream out;
    out << std::setprecision(9) << cache.meta.numSamples << ' ' << cache.meta.firstTime << ".."
        << cache.meta.lastTime << " rate " << cache.meta.rate;
    for (int s = 0; cache.meta.rate == 0.0f && s < int(cache.meta.numSamples); ++s)
        out << ' ' << cache.sampleTimes.at(std::size_t(s));
    return out.str();
}

}  // namespace

TEST(AllocSample, TheTimesInTheirOrderDecideTheSampling) {
    const std::vector<std::pair<std::vector<float>, const char*>> cases = {
        {{1, 2, 3}, "3 1..3 rate 1"},
        {{1, 2, 3, 5}, "4 1..5 rate 0 1 2 3 5"},        // an odd step turns non-uniform
        {{1, 1.5f}, "2 1..1.5 rate 2"},                 // the second sample sets the rate,
        {{0, kLeast}, "2 0..1.40129846e-45 rate inf"},  // even where it overflows
        {{1, 2, 3, 0}, "4 0..3 rate 1"},                // one step in front stays uniform
        {{1, 2, 3, 2.5f}, "4 1..3 rate 0 1 2 2.5 3"},
        // Converted times are i / rate + firstTime: 1 / (1/7) rounds to 6.99999952.
        {{0, 7, 6}, "3 0..7 rate 0 0 6 6.99999952"},
        // The place of an insertion is the uniform lookup's, taken before the conversion:
        // (least - 0) / 7 rounds to 0, so the sample goes first.
        {{0, 7, kLeast}, "3 1.40129846e-45..7 rate 0 1.40129846e-45 0 6.99999952"},
        // Infinite and NaN times are times like any other.
        {{1, 2, 3, kInf}, "4 1..inf rate 0 1 2 3 inf"},
        {{1, 2, 3, -kInf}, "4 -inf..3 rate 0 -inf 1 2 3"},  // in front at another step
        {{1, 2, 4, std::nanf("")}, "4 nan..4 rate 0 nan 1 2 4"},
    };
    for (const auto& [times, expected] : cases) {
        KynRwMemCache cache;
        for (float time : times) ASSERT_NE(cache.allocSample(time, 0), nullptr) << time;
        EXPECT_EQ(sampling(cache), expected);
    }
}

TEST(AllocSample, PlacesGroupsAndKnowsWhenEverySampleIsBehindTheEnd) {
    KynRwMemCache cache;
    KynGroupChunk* atOne = cache.allocSample(1, 0);
    ASSERT_NE(atOne, nullptr);
    EXPECT_TRUE(cache.modified);
    EXPECT_FALSE(cache.canAppend);  // the first sample of all is behind no end
    EXPECT_EQ(cache.allocSample(1, 0), atOne);
    KynGroupChunk* other = cache.allocSample(1, 1);
    EXPECT_NE(other, atOne);
    EXPECT_EQ(cache.getSample(0, 1), other);
    EXPECT_EQ(sampling(cache), "1 1..1 rate 1");
    fill(cache, {2, 3});
    EXPECT_TRUE(cache.canAppend);
    // In front or between, the samples behind move one place.
    KynGroupChunk* atZero = cache.allocSample(0, 0);
    EXPECT_EQ(cache.getSample(0, 0), atZero);
    EXPECT_EQ(cache.getSample(1, 0), atOne);
    EXPECT_FALSE(cache.canAppend);
    KynGroupChunk* atThree = cache.getSample(3, 0);
    KynGroupChunk* middle = cache.allocSample(2.5f, 0);
    EXPECT_EQ(cache.getSample(3, 0), middle);
    EXPECT_EQ(cache.getSample(4, 0), atThree);
    fill(cache, {4});  // the last call decides
    EXPECT_TRUE(cache.canAppend);
}

// In front of the end, a time that the lookup places at no sample has no place to go.
TEST(AllocSample, NullForATimeThatTheLookupPlacesAtNoSample) {
    KynRwMemCache cache;
    EXPECT_EQ(cache.allocSample(1, -1), nullptr);
    EXPECT_TRUE(cache.meta.objects.empty());
    fill(cache, {0, 1, 2});
    EXPECT_EQ(cache.allocSample(std::nanf(""), 0), nullptr);  // uniform: NaN has no index
    // A lastTime just past the computed time of the last sample, as a file may hold it: a time
    // between the two rounds up to a fourth sample.
    cache.meta.lastTime = std::nextafter(2.0f, 3.0f);
    EXPECT_EQ(cache.allocSample(cache.meta.lastTime, 1), nullptr);
    EXPECT_EQ(sampling(cache), "3 0..2.00000024 rate 1");
    EXPECT_EQ(cache.meta.objects.size(), 2u);  // made before the lookup
}

TEST(Edits, NamesIgnoreThePresentNameAndBadAttributeIndicesMeetTheTablesTest) {
    KynRwMemCache cache;
    cache.setName(2, "|c");
    ASSERT_EQ(cache.meta.objects.size(), 3u);
    EXPECT_EQ(cache.meta.objects[1]->name, "");
    EXPECT_TRUE(cache.modified);
    cache.modified = false;
    cache.setName(2, "|c");
    EXPECT_FALSE(cache.modified);
    cache.setName(2, "|d");
    EXPECT_TRUE(cache.modified);
    cache.setName(3, nullptr);  // as an empty name
    EXPECT_EQ(cache.meta.objects.size(), 4u);

    cache.meta.objects[1]->datr = new KynDATRChunk();
    cache.meta.objects[1]->datr->addAttr(true, "speed", "float", kTypeFloat, 0, 0);
    cache.modified = false;
    EXPECT_FALSE(cache.setAttrName(5, 0, "x"));
    EXPECT_FALSE(cache.modified);
    EXPECT_FALSE(cache.setAttrName(0, 0, "x"));  // no attribute table, yet marked
    EXPECT_TRUE(cache.modified);
    EXPECT_TRUE(cache.setAttrName(1, 0, "velocity"));
    EXPECT_TRUE(cache.setAttrType(1, 0, "double"));
    EXPECT_EQ(cache.meta.objects[1]->datr->getAttrName(0), "velocity");
    EXPECT_EQ(cache.meta.objects[1]->datr->getAttrType(0), "double");
    // A bad attribute index: marked, then the table's report and thrown bool.
    kyntest_support::Capture out(std::cout);
    cache.modified = false;
    EXPECT_THROW(cache.setAttrName(1, 1, "y"), bool);
    EXPECT_TRUE(cache.modified);
    EXPECT_THROW(cache.setAttrType(1, -1, "y"), bool);
    EXPECT_NE(out.str().find(" DATR attribute index out of bounds\n"), std::string::npos);
    EXPECT_EQ(cache.meta.objects[1]->datr->getAttrName(0), "velocity");
    EXPECT_EQ(cache.meta.objects[1]->datr->getAttrType(0), "double");
}

TEST(Edits, ShiftMovesAUniformRangeButOnlyTheTableOfANonUniformOne) {
    KynRwMemCache uniform;
    fill(uniform, {1, 2, 3, 4});
    uniform.shiftFirstTimeTo(10);
    EXPECT_EQ(sampling(uniform), "4 10..13 rate 1");
    // The delta rounds to 99999992, lastTime to 100000008: nothing tests the range.
    uniform.shiftFirstTimeTo(1e8f);
    EXPECT_EQ(sampling(uniform), "4 100000000..100000008 rate 1");
    uniform.shiftFirstTimeTo(std::nanf(""));
    EXPECT_EQ(sampling(uniform), "4 nan..nan rate 1");
    KynRwMemCache nonUniform;
    fill(nonUniform, {1, 2, 4});
    nonUniform.modified = false;
    nonUniform.shiftFirstTimeTo(10);
    EXPECT_EQ(sampling(nonUniform), "3 1..4 rate 0 10 11 13");  // kept: fields disagree
    EXPECT_TRUE(nonUniform.modified);
}

// Any one exact step converts back to a rate, and that is no edit. (The explicit times of the
// other way are pinned with allocSample above.)
TEST(Edits, SamplingConvertsToUniformForAnyOneExactStep) {
    const std::vector<std::pair<std::vector<float>, const char*>> cases = {
        {{0, 1, 3}, "3 0..3 rate 0 0 1 3"},  // no one step: false, unchanged
        {{0, 2, 4}, "3 0..4 rate 0.5"},     {{4, 2, 0}, "3 4..0 rate -0.5"},
        {{3, 3, 3}, "3 3..3 rate inf"},     {{5}, "1 5..5 rate 1"},
    };
    for (const auto& [times, expected] : cases) {
        KynRwMemCache cache;
        cache.meta.numSamples = int64_t(times.size());
        cache.meta.firstTime = times.front();
        cache.meta.lastTime = times.back();
        cache.meta.rate = 0;
        cache.sampleTimes = times;
        const bool uniform = cache.convertToUniformSampling();
        EXPECT_EQ(uniform, cache.meta.rate != 0) << expected;
        EXPECT_EQ(sampling(cache), expected);
        EXPECT_EQ(cache.sampleTimes.empty(), cache.meta.rate != 0) << expected;
        EXPECT_FALSE(cache.modified);
    }
}

TEST(Edits, TruncateKeepsTheSampleAtOrFirstAfterTheTimeAndEmptiesBeforeTheFirst) {
    KynRwMemCache cache;
    fill(cache, {1, 2, 3, 4});
    KynGroupChunk* atThree = cache.getSample(2, 0);
    cache.modified = false;
    cache.truncate(9);
    cache.truncate(std::nanf(""));
    EXPECT_EQ(sampling(cache), "4 1..4 rate 1");
    EXPECT_FALSE(cache.modified);
    cache.truncate(2.5f);
    EXPECT_EQ(sampling(cache), "3 1..3 rate 1");
    EXPECT_EQ(cache.samples.size(), 3u);
    EXPECT_EQ(cache.getSample(2, 0), atThree);
    EXPECT_TRUE(cache.modified);
    EXPECT_FALSE(cache.canAppend);
    KynRwMemCache nonUniform;
    fill(nonUniform, {1, 2, 4, 5});
    nonUniform.truncate(3);  // 4 is the first sample after 3, and stays
    EXPECT_EQ(sampling(nonUniform), "3 1..4 rate 0 1 2 4");
    EXPECT_EQ(nonUniform.sampleTimes.size(), 4u);  // the table keeps its surplus
    // The kept sample's computed time is the new lastTime, NaN where it rounds past the old.
    KynRwMemCache rounded;
    fill(rounded, {0, 1, 2});
    rounded.meta.lastTime = std::nextafter(2.0f, 0.0f);
    rounded.truncate(1.5f);
    EXPECT_EQ(sampling(rounded), "3 0..nan rate 1");
    // Before the first sample the cache empties but stays bound to its file.
    cache.fileName = "bound.kyn";
    cache.keepOpen = false;
    cache.modified = false;
    cache.truncate(0);
    EXPECT_EQ(cache.meta.numSamples, 0);
    EXPECT_TRUE(cache.meta.objects.empty() && cache.samples.empty());
    EXPECT_EQ(cache.fileName, "bound.kyn");
    EXPECT_FALSE(cache.keepOpen);
    EXPECT_FALSE(cache.modified);  // the emptying path does not mark the cache
}
