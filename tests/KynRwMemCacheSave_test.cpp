// Saving a read-write cache: the exact shape of a file that an append grows in place, the
// second "SAMS" when the reserve runs out, every refusal of append ending in a rewrite, and
// round trips through a fresh read-only cache.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>

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

// The layout of a file: "TAG@offset+length" of each chunk at the top, and for a "SAMS" the
// chunks in front of its first "SAMP" in brackets, then the number of its samples.
std::string layout(const Bytes& bytes) {
    std::string text;
    for (const Chunk& top : chunksFrom(bytes, 0)) {
        text += (text.empty() ? "" : " ") + top.tag + "@" + std::to_string(top.offset) + "+" +
                std::to_string(top.length);
        if (top.tag != "SAMS") continue;
        std::string prologue;
        std::size_t at = top.offset + 16;
        for (const Chunk& chunk : chunksFrom(bytes, at)) {
            prologue += (prologue.empty() ? "" : " ") + chunk.tag + "@" +
                        std::to_string(chunk.offset) + "+" + std::to_string(chunk.length);
            at = chunk.offset + 16 + std::size_t(chunk.length);
        }
        int samples = 0;
        for (; at + 16 <= top.offset + 16 + std::size_t(top.length); ++samples)
            at += 16 + std::size_t(readLE(bytes, at + 8, 8));
        text += "[" + prologue + "] " + std::to_string(samples);
    }
    return text;
}

// Spare samples left behind the last "JSAM".
int64_t spareSamples(const std::string& path) {
    const Bytes bytes = readBytes(path);
    const std::vector<Chunk> prologue = chunksFrom(bytes, chunksFrom(bytes, 0).back().offset + 16);
    return prologue.back().tag == "FREE" ? prologue.back().length / 8 : -1;
}

// A sample of `object` at `time`: a POSI of time, object index and 7.
void addSample(KynRwMemCache& cache, float time, int object = 0) {
    KynGroupChunk* group = cache.allocSample(time, object);
    ASSERT_NE(group, nullptr);
    group->children.push_back(new KynLeafChunk<float>(kTagPOSI, {time, float(object), 7}));
}

// A producer's cache: with both names set the metadata can be rewritten in place.
void makeCache(KynRwMemCache& cache, const std::vector<float>& times) {
    cache.meta.application = "app";
    cache.meta.sourceFile = "scene";
    cache.setName(0, "|root|mesh");
    for (float time : times) addSample(cache, time);
}

std::string savedFile(const std::vector<float>& times) {
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
    bool saved = false, deleted = true;
    ASSERT_TRUE(cache.save(&saved, &deleted));
    EXPECT_TRUE(saved && !deleted);
    EXPECT_FALSE(cache.modified || cache.canAppend);
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

// The least reserve is 100 samples. An append in place grows "JSAM" into it, so that the
// reserve still ends where it did, and writes the new samples, and only them, behind the end.
TEST(AppendInPlace, GrowsTheJumpTableIntoTheReserveAndWritesOnlyTheNewSamples) {
    const std::string path = savedFile({1, 2, 3});
    const Bytes before = readBytes(path);
    ASSERT_EQ(layout(before), "DKYN@0+8 META@24+241 SAMS@281+1108[JSAM@297+24 FREE@337+800] 3");
    KynRwMemCache cache;
    appendSamples(cache, path, {4, 5, 6, 7, 8});
    EXPECT_FALSE(cache.file.hasStream());
    const Bytes after = readBytes(path);
    ASSERT_EQ(after.size(), before.size() + 5 * kSampleBytes);
    EXPECT_EQ(layout(after), "DKYN@0+8 META@24+241 SAMS@281+1528[JSAM@297+64 FREE@377+760] 8");
    EXPECT_TRUE(std::equal(before.begin() + 1169, before.end(), after.begin() + 1169));
    expectFileHolds(path, cache);
    // The jump table in memory now fits the file: the new samples read back from disk.
    cache.deleteAllSamples();
    EXPECT_EQ(positionsOf(cache.getSample(6, 0, kTagPOSI, nullptr)), (std::vector<float>{7, 0, 7}));
}

// Past the reserve a second "SAMS" starts at the end, with a reserve of twice the samples of
// the whole file (104, then 106). The spare count is that of the last "FREE" behind any
// "JSAM": a last group without one is reopened all the same, refuses, and the save rewrites
// the file as one group.
TEST(AppendInPlace, ASecondGroupPastTheReserveServesNextUnlessItLacksAReserve) {
    const std::string path = savedFile({1, 2, 3});
    const Bytes before = readBytes(path);
    std::vector<float> times;
    for (int t = 4; t <= 104; ++t) times.push_back(float(t));
    KynRwMemCache cache;
    appendSamples(cache, path, times);
    const Bytes after = readBytes(path);
    const std::string first = "DKYN@0+8 META@24+241 SAMS@281+1108[JSAM@297+24 FREE@337+800] 3";
    EXPECT_EQ(layout(after), first + " SAMS@1405+10988[JSAM@1421+808 FREE@2245+1664] 101");
    EXPECT_TRUE(std::equal(before.begin() + 281, before.end(), after.begin() + 281));
    expectFileHolds(path, cache);
    KynRwMemCache again;
    appendSamples(again, path, {105});
    Bytes bytes = readBytes(path);
    EXPECT_EQ(layout(bytes), first + " SAMS@1405+11072[JSAM@1421+816 FREE@2253+1656] 102");
    expectFileHolds(path, again);
    bytes[2253 + 3] = 'X';
    writeBytes(path, bytes);
    KynRwMemCache last;
    appendSamples(last, path, {106});
    EXPECT_EQ(layout(readBytes(path)),
              "DKYN@0+8 META@24+241 SAMS@281+11480[JSAM@297+848 FREE@1161+1696] 106");
    expectFileHolds(path, last);
}

TEST(AppendInPlace, NonUniformGrowsBothTablesAndShrinksBothReservesAlike) {
    const std::string path = savedFile({0, 1, 3});
    const std::string head = "DKYN@0+8 META@24+241 SAMS@281+";
    ASSERT_EQ(layout(readBytes(path)),
              head + "1552[TIMS@297+12 FREE@325+400 JSAM@741+24 FREE@781+800] 3");
    KynRwMemCache cache;
    appendSamples(cache, path, {4, 6});
    const Bytes after = readBytes(path);
    const std::string grown = head + "1720[TIMS@297+20 FREE@333+392 JSAM@741+40 FREE@797+784] 5";
    EXPECT_EQ(layout(after), grown);
    expectFileHolds(path, cache);
    // Past the reserve, a second group with a time table of its own.
    std::vector<float> later;
    for (int t = 1; t <= 101; ++t) later.push_back(6.0f + float(t * t) / 8.0f);
    KynRwMemCache more;
    appendSamples(more, path, later);
    EXPECT_EQ(
        layout(readBytes(path)),
        grown + " SAMS@2017+12304[TIMS@2033+404 FREE@2453+848 JSAM@3317+808 FREE@4141+1696] 101");
    expectFileHolds(path, more);
}

TEST(AppendRefused, EveryRefusalEndsInAFullRewrite) {
    // A file of 3 samples has 100 spare; an append of one leaves 99, a rewrite of 4 has 100.
    struct Case {
        const char* what;
        const char* name;
        const char* application;
        float time;
        int object;
        int64_t spare;
    };
    const Case cases[] = {
        {"same step", "|root|mesh", "app", 4, 0, 99},
        {"another step", "|root|mesh", "app", 5, 0, 100},
        {"name of the same length", "|root|MESH", "app", 4, 0, 99},
        {"name of another length", "|root|meshes", "app", 4, 0, 100},
        {"new object behind the end", "|root|mesh", "app", 4, 1, 100},
        {"empty application", "|root|mesh", "", 4, 0, 100},
        {"sample in the middle", "|root|mesh", "app", 2.5f, 0, 100},
    };
    for (const Case& test : cases) {
        SCOPED_TRACE(test.what);
        const std::string path = savedFile({1, 2, 3});
        KynRwMemCache cache;
        ASSERT_TRUE(cache.load(path.c_str(), true));
        cache.setName(0, test.name);
        cache.meta.application = test.application;
        addSample(cache, test.time, test.object);
        bool saved = false;
        ASSERT_TRUE(cache.save(&saved, nullptr));
        EXPECT_TRUE(saved);
        EXPECT_FALSE(cache.modified);
        EXPECT_EQ(spareSamples(path), test.spare);
        expectFileHolds(path, cache);
    }
}

TEST(AppendInPlace, MetadataThatTheFormulaPassesIsWrittenInPlaceEvenWhenItWritesShorter) {
    // No source file name: the formula counts 17 bytes that are never written. A name 17
    // characters shorter makes the formula meet the stored length once more, so the append
    // goes on, and the metadata written in place leaves 17 stale bytes: the file is lost.
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
    const int64_t storedLength = chunksFrom(readBytes(path), 0)[1].length;
    ASSERT_EQ(cache.meta.getLength(), storedLength);
    EXPECT_TRUE(cache.append());
    EXPECT_EQ(chunksFrom(readBytes(path), 0)[1].length, storedLength - 17);
    KynRoMemCache reader;
    Capture out(std::cout);
    EXPECT_FALSE(reader.load(path.c_str(), true));
}

// A group whose length ends at or before its own "JSAM" (never patched, as a failed append
// leaves it), or a "JSAM" behind the group, would lead the survey back to the same table for
// ever; append refuses before writing, and the save rewrites the file.
TEST(AppendRefused, ASurveyThatWouldComeBackToTheSameTableEndsInARewrite) {
    const std::vector<std::pair<const char*, void (*)(Bytes&)>> damages = {
        {"group of length 0", [](Bytes& b) { b[281 + 8] = b[281 + 9] = 0; }},  // see the layouts
        {"jump table behind the group", [](Bytes& b) { appendHeader(b, "JSAM", kTypeInt64, 0); }},
    };
    for (const auto& [what, damage] : damages) {
        SCOPED_TRACE(what);
        const std::string path = savedFile({1, 2, 3});
        Bytes bytes = readBytes(path);
        damage(bytes);
        writeBytes(path, bytes);
        KynRwMemCache cache;
        ASSERT_TRUE(cache.load(path.c_str(), false));
        addSample(cache, 4);
        EXPECT_FALSE(cache.append());
        EXPECT_EQ(readBytes(path), bytes);
        ASSERT_TRUE(cache.save(nullptr, nullptr));
        expectFileHolds(path, cache);
    }
}

// The jump table takes the sample count before the sampling is compared: a refusal there
// leaves it longer, with a zero entry for the new sample.
TEST(AppendRefused, TheJumpTableIsLongerAfterARefusalOfTheSampling) {
    const std::string path = savedFile({1, 2, 3});
    KynRwMemCache cache;
    ASSERT_TRUE(cache.load(path.c_str(), true));
    addSample(cache, 5);  // another step: non-uniform, the file is uniform
    EXPECT_FALSE(cache.append());
    ASSERT_EQ(cache.sampleJumps.size(), 4u);
    EXPECT_EQ(cache.sampleJumps[3], 0);
}

// Edits leave the jump table alone: an object that a sample made in memory lacks is read from
// the file through the entry at the sample's index, another sample's after an insertion or a
// cut, none beyond the table.
TEST(JumpTable, ObjectsThatANewSampleLacksAreReadThroughTheEntryAtItsIndex) {
    const std::vector<std::tuple<const char*, void (*)(KynRwMemCache&), int, std::vector<float>>>
        cases = {
            {"behind the end", [](KynRwMemCache& c) { addSample(c, 6); }, 4, {}},
            {"in front of the first", [](KynRwMemCache& c) { addSample(c, 0.5f); }, 0, {1, 1, 7}},
            {"behind the end after a cut",
             [](KynRwMemCache& c) {
                 c.truncate(2.5f);
                 addSample(c, 4);
             },
             3,
             {4, 1, 7}},
        };
    for (const auto& [what, edit, sample, expected] : cases) {
        SCOPED_TRACE(what);
        const std::string path = scratchPath("two.kyn");
        KynRwMemCache producer;
        makeCache(producer, {1, 2, 3, 4});
        for (float t : {1.0f, 2.0f, 3.0f, 4.0f}) addSample(producer, t, 1);
        ASSERT_TRUE(producer.saveAs(path.c_str(), nullptr, nullptr));
        KynRwMemCache cache;
        ASSERT_TRUE(cache.load(path.c_str(), false));
        edit(cache);
        EXPECT_EQ(positionsOf(cache.getSample(sample, 1, kTagPOSI, nullptr)), expected);
        ASSERT_TRUE(cache.save(nullptr, nullptr));
        expectFileHolds(path, cache);
    }
}

TEST(Save, WithoutObjectsTheFileIsDeletedAndWithoutChangesNothingIsTouched) {
    const std::string path = savedFile({1, 2});
    KynRwMemCache cache;
    ASSERT_TRUE(cache.load(path.c_str(), false));
    const Bytes garbage(40, 0xAB);
    writeBytes(path, garbage);
    bool saved = true, deleted = true;
    EXPECT_TRUE(cache.save(&saved, &deleted));
    EXPECT_FALSE(saved || deleted);
    EXPECT_EQ(readBytes(path), garbage);

    cache.deleteCache();
    EXPECT_TRUE(cache.saveAs(path.c_str(), &saved, &deleted));
    EXPECT_FALSE(saved);
    EXPECT_TRUE(deleted);
    EXPECT_NE(access(path.c_str(), F_OK), 0);
    EXPECT_TRUE(cache.saveAs(path.c_str(), &saved, &deleted));  // nothing left to delete
    EXPECT_FALSE(saved || deleted);
}

TEST(Save, AnotherPathLeavesTheOldFileAndTakesTheCacheAlong) {
    const std::string oldPath = savedFile({1, 2, 3});
    const Bytes oldBytes = readBytes(oldPath);
    const std::string newPath = scratchPath("moved.kyn");
    KynRwMemCache cache;
    ASSERT_TRUE(cache.load(oldPath.c_str(), true));
    addSample(cache, 4);
    bool saved = true;
    // An unwritable path fails and keeps the cache whole.
    EXPECT_FALSE(cache.saveAs("/nonexistent-kyn-dir/out.kyn", &saved, nullptr));
    EXPECT_FALSE(saved);
    EXPECT_TRUE(cache.modified);
    EXPECT_EQ(cache.fileName, oldPath);
    ASSERT_TRUE(cache.saveAs(newPath.c_str(), &saved, nullptr));
    EXPECT_TRUE(saved);
    EXPECT_EQ(readBytes(oldPath), oldBytes);
    EXPECT_EQ(cache.fileName, newPath);
    expectFileHolds(newPath, cache);
    cache.deleteAllSamples();  // the rebuilt jump table leads into the new file
    EXPECT_EQ(positionsOf(cache.getSample(3, 0, kTagPOSI, nullptr)), (std::vector<float>{4, 0, 7}));
}

TEST(Save, ObjectsWithoutSamplesMakeAHeaderOnlyFile) {
    const std::string path = scratchPath("static.kyn");
    KynRwMemCache producer;
    producer.meta.application = "app";
    producer.setName(0, "|a");
    ASSERT_TRUE(producer.saveAs(path.c_str(), nullptr, nullptr));
    EXPECT_EQ(layout(readBytes(path)), "DKYN@0+8 META@24+151");
    KynRwMemCache cache;
    ASSERT_TRUE(cache.load(path.c_str(), true));
    cache.setName(1, "|b");
    bool saved = false;
    ASSERT_TRUE(cache.save(&saved, nullptr));
    EXPECT_TRUE(saved);
    expectFileHolds(path, cache);
}

TEST(RoundTrip, EveryShapeOfCacheReadsBackAsItWasHeld) {
    const std::vector<std::pair<const char*, std::vector<float>>> cases = {
        {"uniform", {1, 2, 3, 4}}, {"one sample", {7}}, {"built backwards", {4, 3, 2, 1}}};
    for (const auto& [what, times] : cases) {
        SCOPED_TRACE(what);
        const std::string path = scratchPath("round.kyn");
        KynRwMemCache cache;
        makeCache(cache, times);
        cache.setName(2, "|root|cam");
        addSample(cache, *times.begin(), 2);
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

// A safe rewrite writes beside the target and renames over it: the same cache in the file, the
// target's permission bits kept, leftovers of dead writers of that target gone (those of a
// live one kept), and, when the rename fails, the target untouched and no new file left.
TEST(SafeRewrite, ReplacesTheTargetWhole) {
    const std::string path = savedFile({1, 2, 3});
    ASSERT_EQ(chmod(path.c_str(), 0640), 0);
    char host[256] = "";
    ASSERT_EQ(gethostname(host, sizeof host - 1), 0);
    std::string name = host;
    std::replace(name.begin(), name.end(), '-', '_');  // new files are named <target>.partial-
    const std::string stem = path + ".partial-" + name + "-";  // <host>-<pid>-<n>
    const pid_t dead = fork();
    if (dead == 0) _exit(0);
    waitpid(dead, nullptr, 0);
    const std::string stale = stem + std::to_string(dead) + "-0";
    const std::string live = stem + std::to_string(getpid()) + "-99";
    writeBytes(stale, {1});
    writeBytes(live, {2});

    KynRwMemCache cache;
    cache.safeRewrite = true;
    ASSERT_TRUE(cache.load(path.c_str(), true));
    addSample(cache, 1.5f);  // in the middle: no append
    bool saved = false;
    ASSERT_TRUE(cache.save(&saved, nullptr));
    EXPECT_TRUE(saved);
    expectFileHolds(path, cache);
    struct stat status;
    ASSERT_EQ(stat(path.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0640u);
    EXPECT_NE(access(stale.c_str(), F_OK), 0);
    EXPECT_EQ(access(live.c_str(), F_OK), 0);
    unlink(live.c_str());

    const std::string directory = scratchPath("a_directory");
    ASSERT_EQ(mkdir(directory.c_str(), 0755), 0);
    const std::vector<int64_t> jumps = cache.sampleJumps;
    addSample(cache, 1.25f);
    EXPECT_FALSE(cache.saveAs(directory.c_str(), &saved, nullptr));
    EXPECT_FALSE(saved);
    EXPECT_TRUE(cache.modified);
    EXPECT_EQ(cache.sampleJumps, jumps);
    EXPECT_EQ(cache.fileName, path);
    EXPECT_EQ(partialFilesIn(std::filesystem::path(directory).parent_path()), 0);
    rmdir(directory.c_str());
}
