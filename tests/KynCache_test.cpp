// The cache loader and lookups: each load message from a file made to trigger it, the empty
// state after a failure, several sample streams, lazy and closed-stream reads, damaged offsets,
// and the name and time lookups.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <memory>
#include <thread>
#include <typeinfo>

#include "KynCache.h"
#include "KynHelper.h"
#include "KynMessages.h"
#include "KynRwMemCache.h"
#include "TestFiles.h"
#include "ViewFiles.h"

using namespace Kyn;
using namespace kyntest_support;

namespace {

using Bytes = std::vector<unsigned char>;
using Floats = std::vector<float>;
using Offsets = std::vector<int64_t>;

Bytes operator+(Bytes a, const Bytes& b) {
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

Bytes chunk(const char* tag, unsigned char type, int64_t length, const Bytes& payload = {}) {
    Bytes bytes;
    appendHeader(bytes, tag, type, length);
    return bytes + payload;
}

template <class T>
Bytes table(const char* tag, const std::vector<T>& values) {
    const auto* data = reinterpret_cast<const unsigned char*>(values.data());
    const std::size_t size = values.size() * sizeof(T);
    return chunk(tag, KynTypeOf<T>::code, int64_t(size), Bytes(data, data + size));
}

Bytes sams(const Bytes& children) {
    return chunk("SAMS", kTypeGroup, int64_t(children.size()), children);
}

void patch(Bytes& bytes, std::size_t offset, int64_t value) {
    for (int i = 0; i < 8; ++i) bytes.at(offset + i) = uint64_t(value) >> (8 * i) & 0xff;
}

Bytes prefix(const Bytes& bytes, std::size_t size) {
    return Bytes(bytes.begin(), bytes.begin() + long(size));
}

Bytes workedBytes() {
    const std::string path = scratchPath("worked.kyn");
    writeWorkedFile(path);
    return readBytes(path);
}

// "DKYN" and a "META" of one object "foo", as the library writes them.
Bytes fileHead(int64_t numSamples, float first, float last, float rate) {
    const std::string path = scratchPath("head.kyn");
    KynFile file;
    EXPECT_TRUE(file.open(path.c_str(), "w"));
    KynMETAChunk meta;
    meta.numSamples = numSamples;
    meta.firstTime = first;
    meta.lastTime = last;
    meta.rate = rate;
    meta.addDOBJ("foo");
    EXPECT_TRUE(KynDKYNChunk().write(file) && meta.write(file) && file.close());
    return readBytes(path);
}

// The message of a library error line "<source path>:<line> <message>" from KynCache.cpp.
std::string libraryMessage(const std::string& line) {
    const std::string source = "KynCache.cpp:";
    const std::size_t at = line.find(source);
    const std::size_t digits = at == std::string::npos ? line.size() : at + source.size();
    const std::size_t end = line.find_first_not_of("0123456789", digits);
    if (end == std::string::npos || end == digits || line[end] != ' ')
        return "<not in the library error form> " + line;
    return line.substr(end + 1);
}

void expectEmpty(const KynCache& cache) {
    EXPECT_TRUE(cache.fileName.empty());
    EXPECT_FALSE(cache.file.hasStream());
    EXPECT_EQ(cache.meta.numSamples, 0);
    EXPECT_TRUE(cache.meta.objects.empty() && cache.meta.application.empty());
    EXPECT_TRUE(cache.sampleJumps.empty() && cache.sampleTimes.empty());
    EXPECT_EQ(cache.jumpSample, -1);
    EXPECT_TRUE(cache.keepOpen);
}

// Loads the worked file first, so that a failure must also throw away what was loaded.
void expectLoadFailure(const char* path, const std::string& message) {
    KynCache cache;
    const std::string worked = scratchPath("good.kyn");
    writeWorkedFile(worked);
    ASSERT_TRUE(cache.load(worked.c_str(), false));
    Capture out(std::cout);
    EXPECT_FALSE(cache.load(path, true));
    const std::vector<std::string> lines = out.lines();
    ASSERT_EQ(lines.size(), 1u) << out.str();
    EXPECT_EQ(libraryMessage(lines[0]), message);
    expectEmpty(cache);
}

// The "JOBJ" table of the "SAMP" at `offset`, taken from the bytes of the file.
std::vector<int64_t> tableInFile(const Bytes& bytes, int64_t offset) {
    const std::size_t jobj = std::size_t(offset) + 16;
    const int64_t entries = readLE(bytes, jobj + 8, 8) / 8;
    std::vector<int64_t> table;
    for (int64_t i = 0; i < entries; ++i) table.push_back(readLE(bytes, jobj + 16 + 8 * i, 8));
    return table;
}

// The values of the first child of a "SOBJ", which must be a float leaf; {-99} for none.
Floats valuesOf(const KynGroupChunk* sobj) {
    if (sobj == nullptr || sobj->children.empty()) return {-99};
    auto* leaf = dynamic_cast<const KynLeafChunk<float>*>(sobj->children[0]);
    return leaf ? leaf->data : Floats{-99};
}

float firstValue(const KynGroupChunk* sobj) {
    const Floats values = valuesOf(sobj);
    return values.empty() ? -99 : values[0];
}

// A sample stream of `count` samples at frames 1, 2, ... of `objects` objects; object o of
// sample s holds a "POSI" of 1 + (s + o) % 5 values, all 10 s + o.
std::string writeGrid(const std::string& name, int count, int objects = 3) {
    ViewFile file(count);
    for (int o = 0; o < objects; ++o) file.addObject("|o" + std::to_string(o));
    for (int s = 0; s < count; ++s)
        for (int o = 0; o < objects; ++o)
            file.addAt(s, o, kTagPOSI, Floats(std::size_t(1 + (s + o) % 5), float(10 * s + o)));
    return file.write(name);
}

// Two objects over two samples, with metadata that a save can rewrite in place. Object 0 has
// "VELO" in its second sample only; object 1 holds `firstTag` in its first sample, three floats
// either way, so that both files lie out alike.
std::string writeTwoObjects(const std::string& name, unsigned firstTag) {
    ViewFile scene(2);
    scene.meta.application = "app";
    scene.meta.sourceFile = "scene";
    scene.meta.date = 1400000000;
    scene.addObject("|a");
    scene.addObject("|b");
    scene.addAnimated(0, kTagPOSI, std::vector<Floats>{{1, 2, 3}, {1, 2, 3}});
    scene.addAt(1, 0, kTagVELO, Floats{1, 2, 3});
    scene.addAt(0, 1, firstTag, Floats{1, 2, 3});
    scene.addAt(1, 1, kTagPOSI, Floats{1, 2, 3});
    return scene.write(name);
}

const std::type_info& builtClass(KynRoMemCache& cache, int index) {
    std::unique_ptr<KynHelperObj> view(KynHelperObjFactory(&cache).kynObjBuilder(index));
    return typeid(*view);
}

}  // namespace

TEST(KynCacheLoad, WorkedFileKeepsTablesOnlyAndReadsOneObjectAtATime) {
    const std::string path = scratchPath("worked.kyn");
    writeWorkedFile(path);
    KynCache cache;
    {
        Capture out(std::cout);
        ASSERT_TRUE(cache.load(path.c_str(), true));
        EXPECT_EQ(out.str(), "");
    }
    EXPECT_EQ(cache.fileName, path);
    EXPECT_TRUE(cache.file.hasStream());
    EXPECT_EQ(cache.meta.numSamples, 2);
    EXPECT_EQ(cache.meta.application, "app");
    ASSERT_EQ(cache.meta.objects.size(), 1u);
    EXPECT_EQ(cache.meta.objects[0]->name, "foo");
    EXPECT_EQ(cache.sampleJumps, (Offsets{332, 416}));
    EXPECT_TRUE(cache.sampleTimes.empty());
    EXPECT_EQ(cache.jumpSample, -1);

    KynGroupChunk* sobj = cache.loadObjectSample(1, 0);
    ASSERT_NE(sobj, nullptr);
    EXPECT_EQ(sobj->children.size(), 1u);
    EXPECT_EQ(valuesOf(sobj), (Floats{1, 1, 1}));
    delete sobj;
    EXPECT_EQ(cache.jumpSample, 1);
    EXPECT_EQ(cache.objectJumps, (Offsets{456}));
    for (const auto& [s, o] : std::vector<std::pair<int, int>>{{1, 1}, {1, -1}, {2, 0}, {-1, 0}})
        EXPECT_EQ(cache.loadObjectSample(s, o), nullptr);
    EXPECT_EQ(cache.fileName, path);  // failed reads leave the loaded state

    // A closed stream is reopened for each read and closed again.
    ASSERT_TRUE(cache.load(path.c_str(), false));
    for (int round = 0; round < 2; ++round) {
        EXPECT_FALSE(cache.file.hasStream());
        sobj = cache.loadObjectSample(0, 0);
        EXPECT_EQ(valuesOf(sobj), (Floats{0, 0, 0}));
        delete sobj;
    }
    EXPECT_FALSE(cache.file.hasStream());
}

TEST(KynCacheLoad, OpeningFailuresReturnAtOnce) {
    expectLoadFailure(scratchPath("missing.kyn").c_str(), "error opening file, Not a Kyn file");
    expectLoadFailure(nullptr, "error opening file, Not a Kyn file");
    // The mode table is what load opens with; a mode the stream refuses fails the open, and
    // one that cannot read fails at the first header.
    const std::string path = scratchPath("good.kyn");
    writeWorkedFile(path);
    const char* saved = mode[0];
    for (const char* opening : {"bogus", "w"}) {
        KynCache cache;
        ASSERT_TRUE(cache.load(path.c_str(), true));
        mode[0] = opening;
        Capture out(std::cout);
        EXPECT_FALSE(cache.load(path.c_str(), true));
        mode[0] = saved;
        ASSERT_EQ(out.lines().size(), 1u);
        EXPECT_EQ(libraryMessage(out.lines()[0]),
                  opening[0] == 'b' ? "error opening file" : "error reading header");
        expectEmpty(cache);
    }
}

TEST(KynCacheLoad, ACaptureKeepsTheMessagesOfItsThreadInsteadOfPrintingThem) {
    const std::string missing = scratchPath("missing.kyn");
    Capture out(std::cout);
    KynCache cache;
    KynMessageCapture outer;
    {
        KynMessageCapture inner;
        EXPECT_FALSE(cache.load(missing.c_str(), true));
        std::thread other([&] {
            KynCache elsewhere;
            EXPECT_FALSE(elsewhere.load(missing.c_str(), true));  // printed: not captured there
        });
        other.join();
        EXPECT_EQ(inner.messages, std::vector<std::string>{"error opening file, Not a Kyn file"});
    }
    EXPECT_TRUE(outer.messages.empty());
    EXPECT_FALSE(cache.load(missing.c_str(), true));
    EXPECT_EQ(outer.last(), "error opening file, Not a Kyn file");
    ASSERT_EQ(out.lines().size(), 1u);
    EXPECT_EQ(libraryMessage(out.lines()[0]), "error opening file, Not a Kyn file");
}

TEST(KynCacheLoad, EveryFrameAndSampleStreamFailureIsReportedAndThrownAway) {
    const Bytes worked = workedBytes();
    const Bytes junk = chunk("JUNK", kTypeUndef, -1);
    Bytes shortMagic = worked;
    patch(shortMagic, 8, 4);
    const Bytes head = fileHead(2, 1, 2, 1), nonUniform = fileHead(2, 1, 2, 0);
    const Bytes jumps = table<int64_t>("JSAM", {332, 416}), one = table<int64_t>("JSAM", {332});
    const Bytes nine = table<int64_t>("JSAM", Offsets(9));
    const std::vector<std::pair<Bytes, const char*>> cases = {
        {prefix(worked, 16), "error reading DKYN chunk"},
        {shortMagic, "error reading DKYN chunk"},
        {prefix(worked, 24) + junk, "error skipping chunk"},
        {prefix(worked, 24), "missing META chunk"},
        {prefix(worked, 100), "error reading META chunk"},
        {prefix(worked, 252), "missing next SAMS chunk for sample "},
        {prefix(worked, 252) + junk, "error skipping chunk"},
        {head + sams(chunk("TIMS", kTypeFloat, 1 << 20) + jumps), "error reading TIMS chunk"},
        {head + sams(chunk("TIMS", kTypeFloat, 6, Bytes(6)) + jumps), "error reading TIMS chunk"},
        {head + sams(chunk("JSAM", kTypeInt64, int64_t(1) << 40)), "error reading JSAM chunk"},
        {head + sams(chunk("JSAM", kTypeInt64, 12, Bytes(12))), "error reading JSAM chunk"},
        {head + sams(jumps + chunk("FREE", kTypeUndef, -1)), "error skipping FREE chunk"},
        {head + sams(chunk("FREE", kTypeUndef, 0)), "missing JSAM chunk"},
        {head + sams(table<int64_t>("JSAM", {})), "no entries in jump table"},
        {nonUniform + sams(jumps), "missing TIMS chunk"},
        {head + sams(table<float>("TIMS", {1, 2}) + jumps), "unexpected TIMS chunk"},
        {nonUniform + sams(table<float>("TIMS", {1}) + jumps),
         "jump table and time table size mismatch"},
        {head + chunk("SAMS", kTypeGroup, -1000, one), "error seeking file"},
        {head + sams(table<int64_t>("JSAM", {1, 2, 3})), "number of samples is wrong"},
        // The surplus is seen at the end of the group that reaches the count, not before.
        {head + sams(one) + sams(jumps), "number of samples is wrong"},
        {fileHead(9, 1, 10, 1) + sams(nine), "number of samples is wrong"},
        {fileHead(10, 1, 10, 1) + sams(nine), "missing next SAMS chunk for sample "},
        {nonUniform + sams(table<float>("TIMS", {1.5f, 2}) + jumps), "first time is wrong"},
        {nonUniform + sams(table<float>("TIMS", {1, std::nextafter(2.0f, 0.0f)}) + jumps),
         "last time is wrong"},
    };
    const std::string path = scratchPath("bad.kyn");
    for (std::size_t i = 0; i < cases.size(); ++i) {
        SCOPED_TRACE("case " + std::to_string(i));
        writeBytes(path, cases[i].first);
        expectLoadFailure(path.c_str(), cases[i].second);
    }
}

TEST(KynCacheLoad, AcceptsWhatTheFrameAllows) {
    KynCache cache;
    const std::string path = scratchPath("ok.kyn");
    // A static file needs no sample stream, and whatever follows its metadata is not read.
    writeBytes(path, fileHead(0, 1, 2, 1) + chunk("SAMS", kTypeGroup, -5));
    EXPECT_TRUE(cache.load(path.c_str(), true));
    writeBytes(path, fileHead(10, 1, 10, 1) + sams(table<int64_t>("JSAM", Offsets(10))));
    EXPECT_TRUE(cache.load(path.c_str(), true));
    // Unknown chunks in front of "META" and of "SAMS" are skipped.
    const Bytes worked = workedBytes();
    writeBytes(path, prefix(worked, 24) + table<int64_t>("XTRA", {5}) +
                         Bytes(worked.begin() + 24, worked.begin() + 252) +
                         table<int>("XTRA", {7}) + Bytes(worked.begin() + 252, worked.end()));
    EXPECT_TRUE(cache.load(path.c_str(), true));
    // Several groups: the tables are the concatenation of all of them.
    writeBytes(path, fileHead(3, 1, 4, 0) +
                         sams(table<float>("TIMS", {1, 2}) + table<int64_t>("JSAM", {10, 20})) +
                         sams(table<float>("TIMS", {4}) + chunk("FREE", kTypeUndef, 0) +
                              table<int64_t>("JSAM", {30})));
    ASSERT_TRUE(cache.load(path.c_str(), true));
    EXPECT_EQ(cache.sampleTimes, (Floats{1, 2, 4}));
    EXPECT_EQ(cache.sampleJumps, (Offsets{10, 20, 30}));
}

TEST(KynCacheRead, EverySampleReadHoldsTheTableThatItsFileHolds) {
    // More samples than the cache keeps tables of, visited in an order that comes back to some
    // of them while their tables are still kept and to others after they were dropped.
    const int count = 100;
    const std::string path = writeGrid("grid.kyn", count);
    const Bytes bytes = readBytes(path);
    KynCache cache;
    ASSERT_TRUE(cache.load(path.c_str(), true));
    for (int round = 0; round < 3; ++round) {
        for (int k = 0; k < count; ++k) {
            const int s = (k * 37 + round * 11) % count, o = (k + round) % 3;
            SCOPED_TRACE("sample " + std::to_string(s) + " object " + std::to_string(o));
            KynGroupChunk* sobj = cache.loadObjectSample(s, o);
            EXPECT_EQ(firstValue(sobj), float(10 * s + o));
            delete sobj;
            EXPECT_EQ(cache.jumpSample, s);
            EXPECT_EQ(cache.objectJumps, tableInFile(bytes, cache.sampleJumps[std::size_t(s)]));
        }
    }
}

TEST(KynCacheRead, LazyJumpsReadSingleEntriesUntilTheyCostATable) {
    // 5000 objects: a table of 40,000 bytes is worth one single entry per sample.
    const std::string path = writeGrid("lazy.kyn", 6, 5000);
    const Bytes bytes = readBytes(path);
    KynCache cache;
    cache.lazyObjectJumps = true;
    ASSERT_TRUE(cache.load(path.c_str(), true));
    EXPECT_TRUE(cache.lazyObjectJumps);
    // Reads, and the sample whose table is held after each; -1 when none is.
    const std::vector<std::array<int, 3>> steps = {
        {0, 2, -1},   {1, 1, -1}, {1, 0, 1},  // the second read in sample 1 takes its table
        {1, 4999, 1}, {4, 1, 1},  {5, 0, 1},  // single entries again; the table of 1 stays
        {5, 2, 5},    {1, 1, 1},              // 1 was kept aside and comes back without a read
        {3, 5000, 1}, {3, 1, 3},              // an index past the entries fails and counts
        {0, 4999, 0}};                        // not in a row: sample 0 had its single entry
    for (const auto& step : steps) {
        const int s = step[0], o = step[1];
        SCOPED_TRACE("sample " + std::to_string(s) + " object " + std::to_string(o));
        KynGroupChunk* sobj = cache.loadObjectSample(s, o);
        if (o < 5000) {
            EXPECT_EQ(firstValue(sobj), float(10 * s + o));
        } else {
            EXPECT_EQ(sobj, nullptr);
        }
        delete sobj;
        EXPECT_EQ(cache.jumpSample, step[2]);
        if (step[2] >= 0) {
            const int64_t held = cache.sampleJumps[std::size_t(step[2])];
            EXPECT_EQ(cache.objectJumps, tableInFile(bytes, held));
        } else {
            EXPECT_TRUE(cache.objectJumps.empty());
        }
    }
    // A file of few objects reads whole tables all the same.
    const std::string small = writeGrid("small.kyn", 2);
    ASSERT_TRUE(cache.load(small.c_str(), true));
    delete cache.loadObjectSample(1, 2);
    EXPECT_EQ(cache.jumpSample, 1);
}

TEST(KynCacheRead, AFailedTableReadLeavesTheHeldTableAndForgetsItsSample) {
    Bytes bytes = workedBytes();
    patch(bytes, 292, 0);  // the second "JSAM" entry now leads to the "DKYN" header
    const std::string path = scratchPath("second.kyn");
    writeBytes(path, bytes);
    KynCache cache;
    ASSERT_TRUE(cache.load(path.c_str(), true));
    delete cache.loadObjectSample(0, 0);
    EXPECT_EQ(cache.objectJumps, (Offsets{372}));
    EXPECT_EQ(cache.loadObjectSample(1, 0), nullptr);
    EXPECT_EQ(cache.jumpSample, -1);
    EXPECT_EQ(cache.objectJumps, (Offsets{372}));
    KynGroupChunk* sobj = cache.loadObjectSample(0, 0);
    EXPECT_EQ(firstValue(sobj), 0);
    delete sobj;
    EXPECT_EQ(cache.jumpSample, 0);
}

TEST(KynCacheRead, AfterASaveReadsFollowTheTablesOfTheNewFile) {
    const std::string path = writeGrid("saved.kyn", 3);
    KynRwMemCache cache;
    ASSERT_TRUE(cache.load(path.c_str(), true));
    // A first save gives the file the layout of this cache's own writes; reads then go through
    // the table of every sample.
    ASSERT_TRUE(cache.saveAs(path.c_str(), nullptr, nullptr));
    for (int s : {2, 1, 0}) delete cache.loadObjectSample(s, 2);
    const Offsets before = cache.sampleJumps;
    // Object 0 grows in the last sample only: every sample stays where it was, but the objects
    // behind it in the last sample move, and so does that sample's table.
    cache.getSample(2, 0)->children.push_back(new KynLeafChunk<float>(kTagVELO, Floats(500, 1)));
    ASSERT_TRUE(cache.saveAs(path.c_str(), nullptr, nullptr));
    ASSERT_EQ(cache.sampleJumps, before);
    const Bytes bytes = readBytes(path);
    for (int s : {2, 0, 1}) {
        KynGroupChunk* sobj = cache.loadObjectSample(s, 2);
        EXPECT_EQ(firstValue(sobj), float(10 * s + 2));
        delete sobj;
        EXPECT_EQ(cache.objectJumps, tableInFile(bytes, cache.sampleJumps[std::size_t(s)]));
    }
}

TEST(KynCacheRead, ChannelSeekStopsAtTheEndOfItsObject) {
    ViewFile scene(1);
    for (const char* name : {"a", "b", "c"}) scene.addObject(name);
    scene.addAt(0, 0, kTagPOSI, Floats{1});
    scene.addAt(0, 0, kTagVELO, Floats{2});
    scene.addAt(0, 0, kTagPOSI, Floats{3});
    scene.addAt(0, 1, kTagKNTU, Floats{4});
    KynCache cache;
    ASSERT_TRUE(cache.load(scene.write("channels.kyn").c_str(), true));
    KynHeader h;
    EXPECT_FALSE(cache.seekChannelSample(h, 0, 0, kTagKNTU, nullptr));
    ASSERT_TRUE(cache.seekChannelSample(h, 0, 0, kTagVELO, nullptr));
    EXPECT_EQ(h.tag, kTagVELO);
    int index = 1;
    ASSERT_TRUE(cache.seekChannelSample(h, 0, 0, kTagPOSI, &index));
    EXPECT_EQ(index, 2);
    float value = 0;
    ASSERT_TRUE(cache.file.readData(h, &value));
    EXPECT_EQ(value, 3);
    index = 3;
    EXPECT_FALSE(cache.seekChannelSample(h, 0, 0, kTagPOSI, &index));
    EXPECT_FALSE(cache.seekChannelSample(h, 0, 2, kTagPOSI, nullptr));  // an empty "SOBJ"
    ASSERT_TRUE(cache.seekObjectSample(h, 0, 2));
    EXPECT_EQ(h.tag, kTagSOBJ);
    EXPECT_EQ(h.length, 0);
}

// Cuts at 480, inside the last "POSI", show that load leaves the sample area unread.
TEST(KynCacheDamaged, CutAtEveryOffsetFailsWithAMessageOrReadsNull) {
    const Bytes worked = workedBytes();
    const std::string path = scratchPath("cut.kyn");
    for (std::size_t size = 0; size <= worked.size(); ++size) {
        SCOPED_TRACE(size);
        writeBytes(path, prefix(worked, size));
        KynCache cache;
        Capture out(std::cout);
        const bool loaded = cache.load(path.c_str(), true);
        // The tables end at 300; whatever is cut behind them is seen only when read.
        EXPECT_EQ(loaded, size >= 300);
        if (!loaded) {
            ASSERT_EQ(out.lines().size(), 1u);
            EXPECT_EQ(libraryMessage(out.lines()[0]).find("<not"), std::string::npos);
            continue;
        }
        for (int sample = 0; sample < 2; ++sample) {
            KynGroupChunk* read = cache.loadObjectSample(sample, 0);
            EXPECT_EQ(read != nullptr, size >= (sample == 0 ? 416u : 500u));
            delete read;
        }
        EXPECT_EQ(out.str(), "");
    }
}

TEST(KynCacheDamaged, ExtremeOffsetsAndTableLengthsReadAsNull) {
    const Bytes worked = workedBytes();
    const std::string path = scratchPath("patched.kyn");
    const Offsets extremes = {
        0,   -1, int64_t(1) << 31, int64_t(1) << 62, INT64_MAX, INT64_MIN, 300, 340, 348, 388,
        400, 499};
    // The first entries of "JSAM" and of the first "JOBJ", and the length of that "JOBJ".
    const std::vector<std::pair<std::size_t, Offsets>> patches = {
        {284, extremes}, {364, extremes}, {356, {0, 12, -8, int64_t(1) << 62, INT64_MAX}}};
    for (const auto& target : patches) {
        for (int64_t value : target.second) {
            SCOPED_TRACE(std::to_string(target.first) + " <- " + std::to_string(value));
            Bytes bytes = worked;
            patch(bytes, target.first, value);
            writeBytes(path, bytes);
            KynCache cache;
            ASSERT_TRUE(cache.load(path.c_str(), true));
            EXPECT_EQ(cache.loadObjectSample(0, 0), nullptr);
            KynGroupChunk* other = cache.loadObjectSample(1, 0);
            EXPECT_NE(other, nullptr);  // the damage stays with its sample
            delete other;
            EXPECT_EQ(cache.loadObjectSample(0, 0), nullptr);
        }
    }
}

TEST(KynCacheDamaged, SingleEntryReadsStayInsideTheirSample) {
    const std::string path = writeGrid("lazy_damaged.kyn", 2, 5000);
    const Bytes intact = readBytes(path);
    KynCache probe;
    ASSERT_TRUE(probe.load(path.c_str(), true));
    const std::size_t samp = std::size_t(probe.sampleJumps[0]), jobj = samp + 16;
    const std::vector<int64_t> extremes = {
        0, -1, 12, int64_t(1) << 31, int64_t(1) << 62, INT64_MAX, INT64_MIN, int64_t(samp)};
    // The length of the first "SAMP", the tag and the length of its "JOBJ", and the entry of
    // object 2 in it.
    for (std::size_t at : {samp + 8, jobj, jobj + 8, jobj + 16 + 2 * 8}) {
        for (int64_t value : extremes) {
            SCOPED_TRACE(std::to_string(at) + " <- " + std::to_string(value));
            Bytes bytes = intact;
            patch(bytes, at, value);
            writeBytes(path, bytes);
            KynCache cache;
            cache.lazyObjectJumps = true;
            ASSERT_TRUE(cache.load(path.c_str(), true));
            // Whatever the damage, a read gives the right object or nothing.
            for (int object : {2, 4999, 5000}) {
                KynGroupChunk* sobj = cache.loadObjectSample(0, object);
                if (sobj != nullptr) {
                    EXPECT_EQ(firstValue(sobj), float(object));
                }
                delete sobj;
            }
            KynGroupChunk* other = cache.loadObjectSample(1, 2);
            EXPECT_EQ(firstValue(other), 12.0f);
            delete other;
        }
    }
}

TEST(KynCacheLookup, NamesMatchByLeafInCircularOrder) {
    KynCache cache;
    EXPECT_EQ(cache.findObjectIndex("|a", 0), -1);
    for (const char* name : {"|a|x", "|b|x", "|c|y", "na", "", "ab|c"}) cache.meta.addDOBJ(name);
    EXPECT_TRUE(cache.compareNames("|p|q", "q"));
    EXPECT_FALSE(cache.compareNames("|p|q", "|p|q|r"));
    // Name, start, found: no preference for the exact name; the first character is never part
    // of a namespace.
    const std::vector<std::tuple<const char*, int, int>> finds = {
        {"|b|x", 0, 0}, {"|b|x", 1, 1}, {"|ns:c|ns:y", 0, 2}, {"|nope", 0, -1},
        {"", 0, -1},    {"ns:a", 0, 3}, {"a:b|c", 0, 5},      {":", 0, 4}};
    for (const auto& [name, start, found] : finds)
        EXPECT_EQ(cache.findObjectIndex(name, start), found) << name << " from " << start;
    KynCache stored;
    stored.meta.addDOBJ("|ns:a|ns:b");  // stored names keep their namespaces
    EXPECT_EQ(stored.findObjectIndex("|ns:a|ns:b", 0), -1);
    stored.meta.addDOBJ("|z|b");
    EXPECT_EQ(stored.findObjectIndex("|ns:a|ns:b", 0), 1);
}

TEST(KynCacheLookup, UniformTimesAreComputed) {
    KynCache cache;
    cache.meta.numSamples = 5;
    cache.meta.firstTime = 1;
    cache.meta.lastTime = 3;
    cache.meta.rate = 2;
    EXPECT_EQ(cache.getSampleIndex(1.5f), 1);
    EXPECT_EQ(cache.getSampleIndex(1.25f), -1);
    EXPECT_EQ(cache.getSampleIndex(NAN), -1);
    EXPECT_EQ(cache.getMaxSampleIndexNotGreaterThan(1.25f), 0);
    EXPECT_EQ(cache.getMinSampleIndexNotLessThan(1.25f), 1);
    EXPECT_EQ(cache.getMaxSampleIndexNotGreaterThan(100), 4);
    EXPECT_EQ(cache.getMinSampleIndexNotLessThan(0), 0);
    EXPECT_EQ(cache.getMaxSampleIndexNotGreaterThan(0), -1);
    EXPECT_EQ(cache.getMinSampleIndexNotLessThan(100), -1);
    EXPECT_EQ(cache.getSampleTime(4), 3.0f);
    EXPECT_TRUE(std::isnan(cache.getSampleTime(5)));
    // A last time a rounding step below the computed one loses the last sample's time.
    cache.meta.numSamples = 4;
    cache.meta.firstTime = 0;
    cache.meta.lastTime = std::nextafter(1.0f, 0.0f);
    cache.meta.rate = 3;
    EXPECT_TRUE(std::isnan(cache.getSampleTime(3)));
}

TEST(KynCacheLookup, NonUniformMaxIndexIsTheSampleAtOrAfter) {
    KynCache cache;
    cache.meta.numSamples = 3;
    cache.meta.firstTime = 1;
    cache.meta.lastTime = 4;
    cache.meta.rate = 0;
    cache.sampleTimes = {1, 2, 4};
    EXPECT_EQ(cache.getMaxSampleIndexNotGreaterThan(3), 2);
    EXPECT_EQ(cache.getMinSampleIndexNotLessThan(3), 2);
    EXPECT_EQ(cache.getMaxSampleIndexNotGreaterThan(2), 1);
    EXPECT_EQ(cache.getSampleIndex(3), -1);
    EXPECT_EQ(cache.getSampleIndex(4), 2);
    EXPECT_EQ(cache.getSampleTime(1), 2.0f);
    EXPECT_TRUE(std::isnan(cache.getSampleTime(3)));
    // A count beyond the time table answers from the table alone.
    cache.meta.numSamples = 9;
    cache.sampleTimes = {1};
    EXPECT_EQ(cache.getSampleIndex(4), -1);
    EXPECT_EQ(cache.getMinSampleIndexNotLessThan(3), -1);
    EXPECT_TRUE(std::isnan(cache.getSampleTime(5)));
    KynCache empty;
    EXPECT_EQ(empty.getSampleIndex(1), -1);
    EXPECT_EQ(empty.getMaxSampleIndexNotGreaterThan(1), -1);
    EXPECT_EQ(empty.getMinSampleIndexNotLessThan(1), -1);
    EXPECT_TRUE(std::isnan(empty.getSampleTime(0)));
}

TEST(KynCacheLookup, TagsComeFromMetadataOrTheFirstSample) {
    ViewFile scene(2);
    for (const char* name : {"static", "mesh", "attrs"}) scene.addObject(name);
    scene.addAnimated(0, kTagPOSI, std::vector<Floats>{{1}, {1}});
    scene.addAnimated(1, kTagMESH, std::vector<Floats>{{}, {}});
    scene.addStatic(0, kTagPOSI, Floats{0});
    auto* nested = new KynGroupChunk(kynTag("GRPX"));
    nested->children = {new KynLeafChunk<float>(kTagMTRX, Floats{1})};
    scene.meta.objects[0]->children.push_back(nested);
    scene.addStaticAttr(2, "n", std::vector<int>{});
    const std::string path = scene.write("tags.kyn");
    KynCache cache;
    ASSERT_TRUE(cache.load(path.c_str(), false));
    EXPECT_TRUE(cache.objectHas(0, kTagPOSI));
    EXPECT_TRUE(cache.objectHas(0, kTagMTRX));  // found inside a group of the producer's
    EXPECT_FALSE(cache.isObjectAnimated(0, kTagPOSI));
    EXPECT_TRUE(cache.objectHas(1, kTagMESH));
    EXPECT_TRUE(cache.isObjectAnimated(1, kTagMESH));
    EXPECT_FALSE(cache.objectHas(1, kTagVELO));
    EXPECT_FALSE(cache.objectHas(3, kTagPOSI));
    EXPECT_FALSE(cache.isObjectAnimated(-1, kTagPOSI));
    EXPECT_FALSE(cache.file.hasStream());
    // The attribute table is in memory: no read of the file is needed for it.
    std::remove(path.c_str());
    EXPECT_TRUE(cache.objectHas(2, kTagDATR));
    EXPECT_FALSE(cache.objectHas(1, kTagMESH));
}

// The tags of an object's first sample are those on disk, however often they are asked for.
// A save makes them those of the saved file: here another writer changed the first sample under
// the cache, and the save appends a sample behind it.
TEST(KynCacheLookup, FirstSampleTagsAreThoseOnDiskUntilASave) {
    const std::string path = writeTwoObjects("tags_before.kyn", kTagPOSI);
    const Bytes changed = readBytes(writeTwoObjects("tags_after.kyn", kTagXFRM));
    KynRwMemCache cache;
    ASSERT_TRUE(cache.load(path.c_str(), true));
    for (int again = 0; again < 2; ++again) {
        // Each answer leaves the first sample's object table held, as its read does.
        delete cache.loadObjectSample(1, 0);
        ASSERT_EQ(cache.jumpSample, 1);
        EXPECT_FALSE(cache.objectHas(1, kTagXFRM));
        EXPECT_EQ(cache.jumpSample, 0);
        EXPECT_EQ(cache.objectJumps.size(), 2u);
        EXPECT_TRUE(cache.objectHas(0, kTagPOSI));
        EXPECT_FALSE(cache.objectHas(0, kTagVELO));  // in a later sample only
        EXPECT_FALSE(cache.isObjectAnimated(0, kTagVELO));
        EXPECT_FALSE(cache.objectHas(1, kTagXFRM));
        EXPECT_EQ(builtClass(cache, 1), typeid(GeometryKynObj));
    }
    writeBytes(path, changed);
    ASSERT_NE(cache.allocSample(3.0f, 0), nullptr);
    ASSERT_TRUE(cache.save(nullptr, nullptr));
    EXPECT_TRUE(cache.objectHas(1, kTagXFRM));
    EXPECT_TRUE(cache.isObjectAnimated(1, kTagXFRM));
    EXPECT_FALSE(cache.objectHas(1, kTagPOSI));
    EXPECT_EQ(builtClass(cache, 1), typeid(TransformKynObj));
}

// A leaf shared by several objects: each lookup finds the first of them in circular order from
// its start, from every start, also after objects are added and renamed.
TEST(KynCacheLookup, ASharedLeafIsFoundFirstInCircularOrderFromEveryStart) {
    KynRwMemCache cache;
    for (int k = 0; k < 30; ++k)
        cache.meta.addDOBJ(("|xf_" + std::to_string(k) + (k % 7 == 3 ? "|mesh" : "")).c_str());
    const auto expectFirstFrom = [&cache](const std::vector<int>& meshes) {
        const int count = int(cache.meta.objects.size());
        for (int start = -1; start <= count; ++start) {
            const int from = start < 0 || start >= count ? 0 : start;
            const auto after = std::lower_bound(meshes.begin(), meshes.end(), from);
            const int expected = after == meshes.end() ? meshes.front() : *after;
            EXPECT_EQ(cache.findObjectIndex("|ns:xf_0|ns:mesh", start), expected) << start;
        }
    };
    expectFirstFrom({3, 10, 17, 24});
    cache.setName(31, "|xf_9|mesh");  // adds objects 30 and 31
    cache.setName(3, "|xf_3");
    cache.setName(20, "|elsewhere|mesh");
    expectFirstFrom({10, 17, 20, 24, 31});
}
