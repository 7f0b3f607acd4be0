// Saving a read-write cache: the exact shape of a file that an append grows in place, the
// second "SAMS" when the reserve runs out, every refusal of append ending in a rewrite, and
// round trips through a fresh read-only cache.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>

#include "KynRwMemCache.h"
#include "TestFiles.h"

using namespace Kyn;
using namespace kyntest_support;

namespace {

using Bytes = std::vector<unsigned char>;

// SAMP header, JOBJ of one entry, SOBJ header, and a POSI of three floats.
constexpr int64_t kSampleBytes = 16 + 24 + 16 + 28;

struct Chunk {
    std::string tag;
    std::size_t offset;
    int64_t length;
};

std::string tagAt(const Bytes& bytes, std::size_t offset) {
    return std::string(reinterpret_cast<const char*>(&bytes.at(offset)), 4);
}

// The chunks that follow one another from `offset`, up to the end of the file or, inside a
// "SAMS", up to its first "SAMP".
std::vector<Chunk> chunksFrom(const Bytes& bytes, std::size_t offset) {
    std::vector<Chunk> chunks;
    while (offset + 16 <= bytes.size() && tagAt(bytes, offset) != "SAMP") {
        chunks.push_back({tagAt(bytes, offset), offset, readLE(bytes, offset + 8, 8)});
        offset += 16 + std::size_t(chunks.back().length);
    }
    return chunks;
}

std::vector<std::string> tagsOf(const std::vector<Chunk>& chunks) {
    std::vector<std::string> tags;
    for (const Chunk& chunk : chunks) tags.push_back(chunk.tag);
    return tags;
}

// The prologue of the last "SAMS" of the file.
std::vector<Chunk> lastPrologue(const Bytes& bytes) {
    const std::vector<Chunk> top = chunksFrom(bytes, 0);
    return chunksFrom(bytes, top.back().offset + 16);
}

// Spare samples left behind the last "JSAM".
int64_t spareSamples(const std::string& path) {
    const std::vector<Chunk> prologue = lastPrologue(readBytes(path));
    return prologue.back().tag == "FREE" ? prologue.back().length / 8 : -1;
}

// A sample of `object` at `time`: a POSI of time, object index and 7.
void addSample(KynRwMemCache& cache, float time, int object = 0) {
    KynGroupChunk* group = cache.allocSample(time, object);
    ASSERT_NE(group, nullptr);
    group->children.push_back(new KynLeafChunk<float>(kTagPOSI, {time, float(object), 7}));
}

// A producer's cache: with both names set the metadata can be rewritten in place.
void makeCache(KynRwMemCache& cache, std::initializer_list<float> times) {
    cache.meta.application = "app";
    cache.meta.sourceFile = "scene";
    cache.setName(0, "|root|mesh");
    for (float time : times) addSample(cache, time);
}

std::string savedFile(std::initializer_list<float> times) {
    std::string path = scratchPath("saved.kyn");
    KynRwMemCache cache;
    makeCache(cache, times);
    bool saved = false;
    EXPECT_TRUE(cache.saveAs(path.c_str(), &saved, nullptr));
    EXPECT_TRUE(saved);
    return path;
}

// Loads `path` into `cache`, adds samples of object 0 at `times`, and saves it.
void appendSamples(KynRwMemCache& cache, const std::string& path, std::vector<float> times) {
    ASSERT_TRUE(cache.load(path.c_str(), true));
    for (float time : times) addSample(cache, time);
    bool saved = false;
    bool deleted = true;
    ASSERT_TRUE(cache.save(&saved, &deleted));
    EXPECT_TRUE(saved);
    EXPECT_FALSE(deleted);
    EXPECT_FALSE(cache.modified);
    EXPECT_FALSE(cache.canAppend);
}

std::vector<float> positionsOf(KynChunk* chunk) {
    auto* leaf = dynamic_cast<KynLeafChunk<float>*>(chunk);
    return leaf != nullptr ? leaf->data : std::vector<float>{};
}

// What a fresh read-only cache finds in `path` equals what `memory` holds: objects, sampling,
// times, and every chunk of every sample byte for byte.
void expectFileHolds(const std::string& path, KynRwMemCache& memory) {
    KynRoMemCache file;
    ASSERT_TRUE(file.load(path.c_str(), true));
    ASSERT_EQ(file.meta.objects.size(), memory.meta.objects.size());
    for (std::size_t o = 0; o < file.meta.objects.size(); ++o)
        EXPECT_EQ(file.meta.objects[o]->name, memory.meta.objects[o]->name);
    ASSERT_EQ(file.meta.numSamples, memory.meta.numSamples);
    EXPECT_EQ(file.meta.rate, memory.meta.rate);
    EXPECT_EQ(file.meta.firstTime, memory.meta.firstTime);
    EXPECT_EQ(file.meta.lastTime, memory.meta.lastTime);
    for (int s = 0; s < int(file.meta.numSamples); ++s) {
        EXPECT_EQ(file.getSampleTime(s), memory.getSampleTime(s)) << s;
        for (int o = 0; o < int(file.meta.objects.size()); ++o) {
            SCOPED_TRACE(testing::Message() << "sample " << s << " object " << o);
            KynGroupChunk* stored = file.getSample(s, o);
            KynGroupChunk* held = memory.getSample(s, o);
            ASSERT_NE(stored, nullptr);
            const std::size_t heldCount = held != nullptr ? held->children.size() : 0;
            ASSERT_EQ(stored->children.size(), heldCount);
            for (std::size_t c = 0; c < heldCount; ++c) {
                EXPECT_EQ(stored->children[c]->header.tag, held->children[c]->header.tag);
                EXPECT_EQ(positionsOf(stored->children[c]), positionsOf(held->children[c]));
            }
        }
    }
}

}  // namespace

TEST(AppendInPlace, GrowsTheJumpTableIntoTheReserveAndWritesOnlyTheNewSamples) {
    const std::string path = savedFile({1, 2, 3});
    const Bytes before = readBytes(path);
    const std::vector<Chunk> topBefore = chunksFrom(before, 0);
    ASSERT_EQ(tagsOf(topBefore), (std::vector<std::string>{"DKYN", "META", "SAMS"}));
    const std::vector<Chunk> prologueBefore = lastPrologue(before);
    ASSERT_EQ(tagsOf(prologueBefore), (std::vector<std::string>{"JSAM", "FREE"}));
    EXPECT_EQ(prologueBefore[0].length, 3 * 8);
    EXPECT_EQ(prologueBefore[1].length, 100 * 8);  // the least reserve is 100 samples
    const std::size_t firstSample = prologueBefore[1].offset + 16 + 800;

    KynRwMemCache cache;
    appendSamples(cache, path, {4, 5, 6, 7, 8});
    EXPECT_FALSE(cache.file.hasStream());
    const Bytes after = readBytes(path);
    ASSERT_EQ(after.size(), before.size() + 5 * kSampleBytes);

    const std::vector<Chunk> top = chunksFrom(after, 0);
    ASSERT_EQ(tagsOf(top), (std::vector<std::string>{"DKYN", "META", "SAMS"}));
    EXPECT_EQ(top[1].length, topBefore[1].length);
    EXPECT_EQ(top[2].offset, topBefore[2].offset);
    EXPECT_EQ(top[2].length, int64_t(after.size() - top[2].offset - 16));

    const std::vector<Chunk> prologue = lastPrologue(after);
    ASSERT_EQ(tagsOf(prologue), (std::vector<std::string>{"JSAM", "FREE"}));
    EXPECT_EQ(prologue[0].offset, prologueBefore[0].offset);
    EXPECT_EQ(prologue[0].length, 8 * 8);
    EXPECT_EQ(prologue[1].offset, prologueBefore[0].offset + 16 + 64);
    EXPECT_EQ(prologue[1].length, 95 * 8);
    EXPECT_EQ(prologue[1].offset + 16 + 760, firstSample);  // the reserve ends where it did

    const std::size_t jumps = prologue[0].offset + 16;
    for (int s = 0; s < 3; ++s)
        EXPECT_EQ(readLE(after, jumps + 8 * s, 8), readLE(before, jumps + 8 * s, 8));
    for (int s = 3; s < 8; ++s) {
        const int64_t offset = readLE(after, jumps + 8 * s, 8);
        EXPECT_EQ(offset, int64_t(before.size()) + (s - 3) * kSampleBytes);
        EXPECT_EQ(tagAt(after, std::size_t(offset)), "SAMP");
    }
    EXPECT_TRUE(std::equal(before.begin() + std::ptrdiff_t(firstSample), before.end(),
                           after.begin() + std::ptrdiff_t(firstSample)));
    expectFileHolds(path, cache);

    // The jump table in memory now fits the file: the new samples read back from disk.
    cache.deleteAllSamples();
    EXPECT_EQ(positionsOf(cache.getSample(6, 0, kTagPOSI, nullptr)), (std::vector<float>{7, 0, 7}));
}

TEST(AppendInPlace, MoreSamplesThanTheReserveOpenASecondGroupWhichTheNextAppendReuses) {
    const std::string path = savedFile({1, 2, 3});
    const Bytes before = readBytes(path);
    std::vector<float> times;
    for (int t = 4; t <= 104; ++t) times.push_back(float(t));

    KynRwMemCache cache;
    appendSamples(cache, path, times);
    const Bytes after = readBytes(path);
    const std::vector<Chunk> top = chunksFrom(after, 0);
    ASSERT_EQ(tagsOf(top), (std::vector<std::string>{"DKYN", "META", "SAMS", "SAMS"}));
    EXPECT_EQ(top[3].offset, before.size());
    EXPECT_TRUE(std::equal(before.begin() + std::ptrdiff_t(top[2].offset), before.end(),
                           after.begin() + std::ptrdiff_t(top[2].offset)));
    std::vector<Chunk> prologue = lastPrologue(after);
    ASSERT_EQ(tagsOf(prologue), (std::vector<std::string>{"JSAM", "FREE"}));
    EXPECT_EQ(prologue[0].length, 101 * 8);
    EXPECT_EQ(prologue[1].length, 208 * 8);  // twice the 104 samples of the whole file
    expectFileHolds(path, cache);

    KynRwMemCache again;
    appendSamples(again, path, {105});
    ASSERT_EQ(chunksFrom(readBytes(path), 0).size(), 4u);
    EXPECT_EQ(spareSamples(path), 207);
    expectFileHolds(path, again);
}

TEST(AppendInPlace, NonUniformGrowsBothTablesAndShrinksBothReservesAlike) {
    const std::string path = savedFile({0, 1, 3});
    const std::vector<Chunk> before = lastPrologue(readBytes(path));
    ASSERT_EQ(tagsOf(before), (std::vector<std::string>{"TIMS", "FREE", "JSAM", "FREE"}));
    EXPECT_EQ(before[0].length, 3 * 4);
    EXPECT_EQ(before[1].length, 100 * 4);

    KynRwMemCache cache;
    appendSamples(cache, path, {4, 6});
    const Bytes after = readBytes(path);
    const std::vector<Chunk> prologue = lastPrologue(after);
    ASSERT_EQ(tagsOf(prologue), (std::vector<std::string>{"TIMS", "FREE", "JSAM", "FREE"}));
    EXPECT_EQ(prologue[0].length, 5 * 4);
    EXPECT_EQ(prologue[1].length, 98 * 4);
    EXPECT_EQ(prologue[2].offset, before[2].offset);
    EXPECT_EQ(prologue[2].length, 5 * 8);
    EXPECT_EQ(prologue[3].length, 98 * 8);
    for (int i : {1, 3}) {  // each reserve still ends where it did
        SCOPED_TRACE(i);
        EXPECT_EQ(prologue[i].offset, before[i].offset + (i == 1 ? 8 : 16));
        EXPECT_EQ(prologue[i].offset + prologue[i].length, before[i].offset + before[i].length);
    }
    std::vector<float> times(5);
    std::memcpy(times.data(), &after.at(prologue[0].offset + 16), 5 * sizeof(float));
    EXPECT_EQ(times, (std::vector<float>{0, 1, 3, 4, 6}));
    expectFileHolds(path, cache);

    // Past the reserve, a second group with a time table of its own.
    std::vector<float> later;
    for (int t = 1; t <= 101; ++t) later.push_back(6.0f + float(t * t) / 8.0f);
    KynRwMemCache more;
    appendSamples(more, path, later);
    const Bytes bytes = readBytes(path);
    ASSERT_EQ(chunksFrom(bytes, 0).size(), 4u);
    const std::vector<Chunk> second = lastPrologue(bytes);
    ASSERT_EQ(tagsOf(second), (std::vector<std::string>{"TIMS", "FREE", "JSAM", "FREE"}));
    EXPECT_EQ(second[0].length, 101 * 4);
    EXPECT_EQ(second[1].length, 212 * 4);  // twice the 106 samples of the whole file
    expectFileHolds(path, more);
}

TEST(AppendRefused, EveryRefusalEndsInAFullRewrite) {
    // A file of 3 samples has 100 spare; an append of one leaves 99, a rewrite of 4 has 100.
    struct Case {
        const char* what;
        void (*edit)(KynRwMemCache&);
        int64_t spare;
    };
    const Case cases[] = {
        {"same step", [](KynRwMemCache& c) { addSample(c, 4); }, 99},
        {"another step", [](KynRwMemCache& c) { addSample(c, 5); }, 100},
        {"name of the same length",
         [](KynRwMemCache& c) {
             c.setName(0, "|root|MESH");
             addSample(c, 4);
         },
         99},
        {"name of another length",
         [](KynRwMemCache& c) {
             c.setName(0, "|root|meshes");
             addSample(c, 4);
         },
         100},
        {"new object behind the end", [](KynRwMemCache& c) { addSample(c, 4, 1); }, 100},
        {"empty application",
         [](KynRwMemCache& c) {
             c.meta.application.clear();
             addSample(c, 4);
         },
         100},
        {"sample in the middle", [](KynRwMemCache& c) { addSample(c, 2.5f); }, 100},
    };
    for (const Case& test : cases) {
        SCOPED_TRACE(test.what);
        const std::string path = savedFile({1, 2, 3});
        KynRwMemCache cache;
        ASSERT_TRUE(cache.load(path.c_str(), true));
        test.edit(cache);
        bool saved = false;
        ASSERT_TRUE(cache.save(&saved, nullptr));
        EXPECT_TRUE(saved);
        EXPECT_FALSE(cache.modified);
        EXPECT_EQ(spareSamples(path), test.spare);
        expectFileHolds(path, cache);
    }
}

TEST(AppendRefused, MetadataThatTheFormulaPassesButThatWouldWriteShorterIsNotRewrittenInPlace) {
    // No source file name: the formula counts 17 bytes that are never written. A name 17
    // characters shorter makes the formula meet the stored length once more.
    const std::string path = scratchPath("formula.kyn");
    KynRwMemCache producer;
    producer.meta.application = "app";
    producer.setName(0, "|root|mesh_with_a_long_name");
    for (float t : {1.0f, 2.0f, 3.0f}) addSample(producer, t);
    ASSERT_TRUE(producer.saveAs(path.c_str(), nullptr, nullptr));

    KynRwMemCache cache;
    ASSERT_TRUE(cache.load(path.c_str(), true));
    cache.setName(0, "|root|mesh");
    addSample(cache, 4);
    ASSERT_EQ(cache.meta.getLength(), chunksFrom(readBytes(path), 0)[1].length);
    EXPECT_FALSE(cache.append());
    ASSERT_TRUE(cache.save(nullptr, nullptr));
    expectFileHolds(path, cache);
}

TEST(AppendRefused, AFileDamagedBehindTheCacheIsRewrittenFromMemory) {
    struct Case {
        const char* what;
        void (*damage)(Bytes&);
    };
    const Case cases[] = {
        {"cut short", [](Bytes& b) { b.resize(b.size() - 10); }},
        {"jump table renamed", [](Bytes& b) { b[lastPrologue(b)[0].offset + 2] = 'X'; }},
        {"reserve of negative length", [](Bytes& b) { b[lastPrologue(b)[1].offset + 15] = 0xF0; }},
    };
    for (const Case& test : cases) {
        SCOPED_TRACE(test.what);
        const std::string path = savedFile({1, 2, 3});
        KynRwMemCache cache;
        ASSERT_TRUE(cache.load(path.c_str(), true));  // the open stream knew the whole file
        ASSERT_TRUE(cache.loadAllSamples());
        Bytes bytes = readBytes(path);
        test.damage(bytes);
        writeBytes(path, bytes);
        addSample(cache, 4);
        EXPECT_FALSE(cache.append());
        EXPECT_EQ(readBytes(path), bytes);  // the refusal wrote nothing
        ASSERT_TRUE(cache.save(nullptr, nullptr));
        expectFileHolds(path, cache);
    }
}

TEST(AppendRefused, SamplesMadeInMemoryNeverReadAnotherSamplesData) {
    // Two objects; each edit leaves object 1 without data at a sample made in memory, whose
    // index the file holds for another sample, or not at all.
    struct Case {
        const char* what;
        void (*edit)(KynRwMemCache&);
        int emptySample;
    };
    const Case cases[] = {
        {"behind the end at another step", [](KynRwMemCache& c) { addSample(c, 6); }, 4},
        {"in front of the first", [](KynRwMemCache& c) { addSample(c, 0.5f); }, 0},
        {"behind the end after a cut",
         [](KynRwMemCache& c) {
             c.truncate(2.5f);
             addSample(c, 4);
         },
         3},
    };
    for (const Case& test : cases) {
        SCOPED_TRACE(test.what);
        const std::string path = scratchPath("two.kyn");
        KynRwMemCache producer;
        makeCache(producer, {1, 2, 3, 4});
        for (float t : {1.0f, 2.0f, 3.0f, 4.0f}) addSample(producer, t, 1);
        ASSERT_TRUE(producer.saveAs(path.c_str(), nullptr, nullptr));

        KynRwMemCache cache;
        ASSERT_TRUE(cache.load(path.c_str(), false));
        test.edit(cache);
        KynGroupChunk* empty = cache.getSample(test.emptySample, 1);
        EXPECT_TRUE(empty == nullptr || empty->children.empty());
        ASSERT_TRUE(cache.save(nullptr, nullptr));
        expectFileHolds(path, cache);
        KynRoMemCache file;
        ASSERT_TRUE(file.load(path.c_str(), true));
        EXPECT_TRUE(file.getSample(test.emptySample, 1)->children.empty());
    }
}

TEST(SaveAs, ACacheWithoutObjectsDeletesItsFile) {
    const std::string path = savedFile({1, 2});
    KynRwMemCache cache;
    ASSERT_TRUE(cache.load(path.c_str(), true));
    cache.deleteCache();
    bool saved = true;
    bool deleted = false;
    EXPECT_TRUE(cache.saveAs(path.c_str(), &saved, &deleted));
    EXPECT_FALSE(saved);
    EXPECT_TRUE(deleted);
    EXPECT_NE(access(path.c_str(), F_OK), 0);

    EXPECT_TRUE(cache.saveAs(path.c_str(), &saved, &deleted));
    EXPECT_FALSE(saved);
    EXPECT_FALSE(deleted);
}

TEST(SaveAs, AnotherPathLeavesTheOldFileAndTakesTheCacheAlong) {
    const std::string oldPath = savedFile({1, 2, 3});
    const Bytes oldBytes = readBytes(oldPath);
    const std::string newPath = scratchPath("moved.kyn");
    KynRwMemCache cache;
    ASSERT_TRUE(cache.load(oldPath.c_str(), true));
    addSample(cache, 4);
    bool saved = false;
    ASSERT_TRUE(cache.saveAs(newPath.c_str(), &saved, nullptr));
    EXPECT_TRUE(saved);
    EXPECT_EQ(readBytes(oldPath), oldBytes);
    EXPECT_EQ(cache.fileName, newPath);
    expectFileHolds(newPath, cache);
    cache.deleteAllSamples();  // the rebuilt jump table leads into the new file
    EXPECT_EQ(positionsOf(cache.getSample(3, 0, kTagPOSI, nullptr)), (std::vector<float>{4, 0, 7}));
}

TEST(Save, AnUnmodifiedCacheTouchesNothing) {
    const std::string path = savedFile({1, 2});
    KynRwMemCache cache;
    ASSERT_TRUE(cache.load(path.c_str(), false));
    const Bytes garbage(40, 0xAB);
    writeBytes(path, garbage);
    bool saved = true;
    bool deleted = true;
    EXPECT_TRUE(cache.save(&saved, &deleted));
    EXPECT_FALSE(saved);
    EXPECT_FALSE(deleted);
    EXPECT_EQ(readBytes(path), garbage);
}

TEST(Save, AnUnwritablePathFailsAndKeepsTheCacheWhole) {
    const std::string path = savedFile({1, 2, 3});
    KynRwMemCache cache;
    ASSERT_TRUE(cache.load(path.c_str(), true));
    addSample(cache, 4);
    bool saved = true;
    EXPECT_FALSE(cache.saveAs("/nonexistent-kyn-dir/out.kyn", &saved, nullptr));
    EXPECT_FALSE(saved);
    EXPECT_TRUE(cache.modified);
    EXPECT_EQ(cache.fileName, path);
    ASSERT_TRUE(cache.save(&saved, nullptr));
    EXPECT_TRUE(saved);
    expectFileHolds(path, cache);
}

TEST(Save, ObjectsWithoutSamplesMakeAHeaderOnlyFile) {
    const std::string path = scratchPath("static.kyn");
    KynRwMemCache producer;
    producer.meta.application = "app";
    producer.setName(0, "|a");
    ASSERT_TRUE(producer.saveAs(path.c_str(), nullptr, nullptr));
    EXPECT_EQ(tagsOf(chunksFrom(readBytes(path), 0)), (std::vector<std::string>{"DKYN", "META"}));

    KynRwMemCache cache;
    ASSERT_TRUE(cache.load(path.c_str(), true));
    cache.setName(1, "|b");
    bool saved = false;
    ASSERT_TRUE(cache.save(&saved, nullptr));
    EXPECT_TRUE(saved);
    expectFileHolds(path, cache);
}

TEST(RoundTrip, EveryShapeOfCacheReadsBackAsItWasHeld) {
    struct Case {
        const char* what;
        std::initializer_list<float> times;
    };
    const Case cases[] = {{"uniform", {1, 2, 3, 4}},
                          {"non-uniform", {0, 0.25f, 2, 2.5f}},
                          {"one sample", {7}},
                          {"a step of seven frames", {0, 7, 6}},
                          {"built backwards", {4, 3, 2, 1}}};
    for (const Case& test : cases) {
        SCOPED_TRACE(test.what);
        const std::string path = scratchPath("round.kyn");
        KynRwMemCache cache;
        makeCache(cache, test.times);
        cache.setName(2, "|root|cam");
        addSample(cache, *test.times.begin(), 2);
        cache.meta.objects[1]->children.push_back(
            new KynLeafChunk<float>(kTagBBOX, {0, 0, 0, 1, 1, 1}));
        ASSERT_TRUE(cache.saveAs(path.c_str(), nullptr, nullptr));
        expectFileHolds(path, cache);
        KynRoMemCache file;
        ASSERT_TRUE(file.load(path.c_str(), true));
        EXPECT_EQ(file.meta.application, "app");
        EXPECT_EQ(file.meta.sourceFile, "scene");
        EXPECT_NE(file.getObjectData(-1, 1, kTagBBOX, nullptr), nullptr);
    }
}

TEST(ReadOnlyFile, AppendRefusesAndSaveAsFailsAtTheOpen) {
    // A directory that an unprivileged user may enter, holding a file nobody may write.
    char pattern[] = "/tmp/kyn_ro_XXXXXX";
    ASSERT_NE(mkdtemp(pattern), nullptr);
    ASSERT_EQ(chmod(pattern, 0755), 0);
    const std::string path = std::string(pattern) + "/locked.kyn";
    {
        KynRwMemCache producer;
        makeCache(producer, {1, 2, 3});
        ASSERT_TRUE(producer.saveAs(path.c_str(), nullptr, nullptr));
    }
    ASSERT_EQ(chmod(path.c_str(), 0444), 0);
    const Bytes before = readBytes(path);
    // Root may write anything, so the checks run in a child that gives its privileges up
    // (all of them: the write test asks about the real user).
    EXPECT_EXIT(
        {
            if (getuid() == 0 && setuid(65534) != 0) std::_Exit(2);
            KynRwMemCache cache;
            bool ok = cache.load(path.c_str(), true);
            addSample(cache, 4);
            bool saved = true;
            ok = ok && !cache.append() && !cache.saveAs(path.c_str(), &saved, nullptr);
            ok = ok && !saved && cache.modified && readBytes(path) == before;
            std::_Exit(ok ? 0 : 1);
        },
        testing::ExitedWithCode(0), "");
    EXPECT_EQ(readBytes(path), before);
    unlink(path.c_str());
    rmdir(pattern);
}
