// The crash grid: a producer runs in a child process and is killed at every write, flush and
// rename of the library's file stream, before the call and with the call torn part-way (half
// of it, and every few KiB), on each way of writing a cache. After each kill: `load` succeeds
// and reads back exactly what was written, or refuses with its message; recovery brings back
// only samples that were written, byte for byte and at their times, and every sample wholly on
// disk: its bytes and, in a non-uniform file, its table entries (the samples whose bytes are
// there without them are counted, as the default writers lose them); a safe rewrite leaves the
// old file or the new.
// The quick grid runs in the suite; KYN_CRASH_GRID=long runs the long one (see
// docs/reliability.md). The kill is the library's own call: pwrite, fsync and rename are
// interposed below, in this executable, ahead of the C library (and of the sanitizers').
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <functional>
#include <iostream>
#include <memory>

#include "EveryKind.h"
#include "KynMessages.h"
#include "KynRecovery.h"
#include "KynRoMemCache.h"
#include "KynRwMemCache.h"
#include "TestFiles.h"

using namespace Kyn;
using namespace kyntest_support;

namespace {

// The calls of the child: counted, recorded (sizes in memory shared with the parent) or cut.
constexpr long kMaxCalls = 1 << 16;
struct Record {
    long calls = 0;
    long sizes[kMaxCalls];  // bytes of each pwrite; 0 for the other calls
};
struct Plan {
    bool armed = false;
    long call = 0;       // the next call's number
    long killAt = -1;    // the call to die in
    long tornBytes = 0;  // of a pwrite written before dying
    Record* record = nullptr;
} plan;

template <class F>
F next(const char* name) {
    return reinterpret_cast<F>(dlsym(RTLD_NEXT, name));
}

// Counts a call of `size` bytes: the bytes of it to write before dying in it, or -1 to go on.
long point(long size) {
    if (!plan.armed) return -1;
    const long call = plan.call++;
    if (plan.record != nullptr && call < kMaxCalls) {
        plan.record->sizes[call] = size;
        plan.record->calls = call + 1;
    }
    return call == plan.killAt ? plan.tornBytes : -1;
}

ssize_t interposedWrite(const char* name, int fd, const void* data, size_t count, off_t offset) {
    using Pwrite = ssize_t (*)(int, const void*, size_t, off_t);
    static const Pwrite real = next<Pwrite>(name);
    const long torn = point(long(count));
    if (torn > 0) real(fd, data, size_t(torn), offset);
    if (torn >= 0) raise(SIGKILL);
    return real(fd, data, count, offset);
}

}  // namespace

extern "C" ssize_t pwrite(int fd, const void* data, size_t count, off_t offset) {
    return interposedWrite("pwrite", fd, data, count, offset);
}
extern "C" ssize_t pwrite64(int fd, const void* data, size_t count, off_t offset) {
    return interposedWrite("pwrite64", fd, data, count, offset);
}
extern "C" int fsync(int fd) {
    static const auto real = next<int (*)(int)>("fsync");
    if (point(0) >= 0) raise(SIGKILL);
    return real(fd);
}
extern "C" int rename(const char* from, const char* to) {
    static const auto real = next<int (*)(const char*, const char*)>("rename");
    if (point(0) >= 0) raise(SIGKILL);
    return real(from, to);
}

namespace {

using Bytes = std::vector<unsigned char>;

// How big a scene is: the mesh's vertices, the samples of the first file, the samples added.
struct Scene {
    int vertices;
    int samples;
    int added;
    long step;  // a torn pwrite is cut at every multiple of this, besides half-way
};
const Scene kQuick = {1500, 6, 4, 16 * 1024};
const Scene kLong = {30000, 12, 8, 4 * 1024};

enum Kind { kStream, kAppendInReserve, kAppendNewGroup, kRewrite };
enum Care { kDefault, kCommit, kSafe };

struct Row {
    const char* name;
    Kind kind;
    bool nonUniform;
    Care care;
};

const Row kRows[] = {
    {"stream, uniform", kStream, false, kDefault},
    {"stream, uniform, committed", kStream, false, kCommit},
    {"stream, non-uniform", kStream, true, kDefault},
    {"stream, non-uniform, committed", kStream, true, kCommit},
    {"append in reserve, non-uniform", kAppendInReserve, true, kDefault},
    {"append in reserve, non-uniform, committed", kAppendInReserve, true, kCommit},
    {"append in a new group, uniform", kAppendNewGroup, false, kDefault},
    {"append in a new group, uniform, committed", kAppendNewGroup, false, kCommit},
    {"rewrite, non-uniform", kRewrite, true, kDefault},
    {"rewrite, non-uniform, safe", kRewrite, true, kSafe},
};

float timeOf(bool nonUniform, int s) {
    return nonUniform ? 1.0f + 1.5f * float(s) + 0.25f * float(s % 3) : 1.0f + float(s);
}

// Object `o` of sample `s` of the scene of every kind, the mesh with `vertices` vertices; a
// `variant` changes every value.
KynGroupChunk* makeObject(const Scene& scene, int s, int o, int variant) {
    auto* group = new KynGroupChunk(kTagSOBJ);
    const float base = float(s * 1000 + variant * 7);
    if (o == 0) {
        group->children = {new KynLeafChunk<float>(
            kTagMTRX, 0, 16, {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, base, 2, 3, 1})};
    } else if (o == 1 || o == 2) {
        std::vector<float> points(std::size_t(o == 1 ? scene.vertices * 3 : 9));
        for (std::size_t i = 0; i < points.size(); ++i) points[i] = base + 0.125f * float(i);
        group->children = {new KynLeafChunk<float>(kTagPOSI, 0, 3, points)};
        if (o == 1) {
            auto* values = new KynGroupChunk(kTagATRS);
            values->children = {new KynLeafChunk<int>(kTagATTR, {s + variant})};
            group->children.push_back(values);
        }
    }
    return group;
}

#define NEED(x) \
    if (!(x)) _exit(3)

// Streams `count` samples through KynSAMSChunk into a new file at `path`.
void stream(const std::string& path, const Scene& scene, bool nonUniform, int count, int reserve,
            bool commit) {
    KynFile file;
    NEED(file.open(path.c_str(), "w") && KynDKYNChunk().write(file));
    const int64_t metaOffset = file.tell(nullptr);
    KynMETAChunk meta;
    meta.application = "crash grid";
    meta.sourceFile = "scene";
    meta.date = 1400000000;
    describeEveryKind(meta, count, timeOf(nonUniform, 0), timeOf(nonUniform, count - 1),
                      nonUniform);
    NEED(meta.write(file));
    KynSAMSChunk sams;
    if (commit) {
        sams.commit = KynSAMSChunk::kCommitEachSample;
        NEED(sams.followMetadata(meta, metaOffset));
    }
    NEED(sams.writeStart(file, count, reserve, nonUniform));
    for (int s = 0; s < count; ++s) {
        const float time = timeOf(nonUniform, s);
        NEED(sams.writeStartSAMPChunk(file, kEveryKindObjects, &time));
        for (int o = 0; o < kEveryKindObjects; ++o) {
            std::unique_ptr<KynGroupChunk> object(makeObject(scene, s, o, 0));
            NEED(sams.writeSOBJChunk(file, object.get()));
        }
        NEED(sams.writeEndSAMPChunk(file));
    }
    NEED(sams.writeEnd(file) && file.close());
}

// Loads the file at `path` into a KynRwMemCache and saves it after adding samples behind the
// end (appends) or changing one in the middle (a rewrite).
void save(const std::string& path, const Scene& scene, const Row& row) {
    KynRwMemCache cache;
    NEED(cache.load(path.c_str(), true));
    cache.safeRewrite = row.care == kSafe;
    if (row.care == kCommit) {
        cache.commitSamples = KynSAMSChunk::kCommitEachSampleToDisk;
        cache.syncAppend = true;
    }
    const int first = row.kind == kRewrite ? 1 : scene.samples;
    const int last = row.kind == kRewrite ? 1 : scene.samples + scene.added - 1;
    for (int s = first; s <= last; ++s) {
        for (int o = 0; o < kEveryKindObjects; ++o) {
            KynGroupChunk* slot = cache.allocSample(timeOf(row.nonUniform, s), o);
            std::unique_ptr<KynGroupChunk> object(makeObject(scene, s, o, row.kind == kRewrite));
            NEED(slot != nullptr);
            slot->children.swap(object->children);
        }
    }
    // Every sample added lies behind the end; the cache cannot tell, since the second object
    // of a sample is allocated at the time that the first made the last.
    if (row.kind != kRewrite) cache.canAppend = true;
    bool saved = false;
    NEED(cache.save(&saved, nullptr) && saved);
}

// Runs `produce` in a child process under `plan`; its wait status.
int inChild(const std::function<void()>& produce, long killAt, long tornBytes, Record* record) {
    std::cout.flush();
    const pid_t pid = fork();
    if (pid == 0) {
        alarm(120);  // a producer that hangs dies too, and the parent sees a SIGALRM
        plan.record = record;
        plan.killAt = killAt;
        plan.tornBytes = tornBytes;
        plan.armed = true;
        produce();
        _exit(0);
    }
    int status = 0;
    waitpid(pid, &status, 0);
    return status;
}

// A sample as a cache reads it: its time and the bytes of each of its "SOBJ" groups.
struct Sample {
    float time;
    std::vector<Bytes> objects;
    bool operator==(const Sample& o) const { return time == o.time && objects == o.objects; }
};

// What a cache makes of the file at `path`.
struct Reading {
    bool loaded = false;
    bool readsAll = true;
    std::vector<Sample> samples;   // those that read, in order
    std::vector<int64_t> offsets;  // of their "SAMP" headers
};

Reading readCache(const std::string& path) {
    Reading reading;
    KynMessageCapture quiet;
    KynRoMemCache cache;
    if (!cache.load(path.c_str(), true)) return reading;
    reading.loaded = true;
    const Bytes bytes = readBytes(path);
    for (int s = 0; s < int(cache.meta.numSamples) && reading.readsAll; ++s) {
        Sample sample{cache.getSampleTime(s), {}};
        for (int o = 0; o < int(cache.meta.objects.size()) && reading.readsAll; ++o) {
            std::unique_ptr<KynGroupChunk> group(cache.loadObjectSample(s, o));
            Bytes object = group ? objectBytes(cache, bytes, s, o) : Bytes();
            reading.readsAll = !object.empty();
            if (!reading.readsAll) break;
            sample.objects.push_back(std::move(object));
        }
        if (!reading.readsAll) break;
        reading.offsets.push_back(cache.sampleJumps[std::size_t(s)]);
        reading.samples.push_back(sample);
    }
    return reading;
}

// Where the time and the offset of each sample of a finished file stand: its group's "TIMS"
// (-1 when none) and "JSAM", and its place in them.
struct TableEntry {
    std::size_t tims;
    std::size_t jsam;
    std::size_t k;
};

std::vector<TableEntry> tableEntries(const Bytes& bytes) {
    std::vector<TableEntry> entries;
    auto tagAt = [&](std::size_t at) {
        return std::string(bytes.begin() + long(at), bytes.begin() + long(at + 4));
    };
    for (std::size_t at = 0; at + 16 <= bytes.size();) {
        const std::size_t length = std::size_t(readLE(bytes, at + 8, 8));
        if (tagAt(at) == "SAMS") {
            std::size_t tims = std::size_t(-1);
            std::size_t jsam = 0;
            for (std::size_t p = at + 16; tagAt(p) != "SAMP";) {
                if (tagAt(p) == "TIMS") tims = p;
                if (tagAt(p) == "JSAM") jsam = p;
                p += 16 + std::size_t(readLE(bytes, p + 8, 8));
            }
            for (std::size_t k = 0; k < std::size_t(readLE(bytes, jsam + 8, 8)) / 8; ++k)
                entries.push_back({tims, jsam, k});
        }
        at += 16 + length;
    }
    return entries;
}

// Whether entry `k` of the table at `table`, of `size` bytes each, is in the table on disk in
// `left` as it is in `finished`.
bool entryOnDisk(const Bytes& left, const Bytes& finished, std::size_t table, std::size_t size,
                 std::size_t k) {
    const std::size_t at = table + 16 + size * k;
    return left.size() >= at + size && readLE(left, table + 8, 8) >= int64_t(size * (k + 1)) &&
           std::equal(left.begin() + long(at), left.begin() + long(at + size),
                      finished.begin() + long(at));
}

// The figures of one row.
struct Tally {
    long points = 0;
    long loadable = 0;    // loads, and every sample reads back as written
    long unreadable = 0;  // loads, but a sample does not read
    long onDisk = 0;      // samples whose bytes are on disk, summed over the kill points
    long whole = 0;       // of those, the ones whose table entries are too (all, if uniform)
    long recovered = 0;   // samples that recovery brought back
    long oldFile = 0;     // a rewrite: the target is the old file, whole
    long newFile = 0;     //            the new one
};

class CrashGrid : public ::testing::Test {
  protected:
    void SetUp() override {
        char pattern[] = "/dev/shm/kyn_crash_XXXXXX";
        directory = access("/dev/shm", W_OK) == 0 && mkdtemp(pattern) ? pattern : "";
        if (directory.empty()) directory = std::filesystem::path(scratchPath("grid")).string();
        std::filesystem::create_directories(directory);
        void* shared = mmap(nullptr, sizeof(Record), PROT_READ | PROT_WRITE,
                            MAP_SHARED | MAP_ANONYMOUS, -1, 0);
        ASSERT_NE(shared, MAP_FAILED);
        record = new (shared) Record();
    }
    void TearDown() override {
        munmap(record, sizeof(Record));
        std::error_code ignored;
        std::filesystem::remove_all(directory, ignored);
    }

    // Checks the file left by one kill against the old and the new file, and counts it in.
    void judge(const Row& row, const Reading& before, const Reading& after, const Bytes& finished,
               const std::vector<TableEntry>& entries, Tally& tally, const std::string& where) {
        SCOPED_TRACE(where);
        ++tally.points;
        const Bytes left = readBytes(target);
        const Reading now = readCache(target);
        // The samples wholly on disk: those whose bytes are the finished file's and, in a
        // non-uniform file, whose entries in both tables are too (a time is trusted when the
        // offset beside it is written); after a safe rewrite, all of whichever file stands.
        const Reading* expected = &after;
        std::vector<int> whole;
        long onDisk = 0;
        const bool complete = now.loaded && now.readsAll;
        const bool isOld = complete && now.samples == before.samples;
        const bool isNew = complete && now.samples == after.samples;
        tally.oldFile += isOld;
        tally.newFile += isNew;
        if (row.care == kSafe) {
            ASSERT_TRUE(isOld || isNew) << "neither the old file nor the new";
            expected = isOld ? &before : &after;
            for (std::size_t s = 0; s < expected->samples.size(); ++s) whole.push_back(int(s));
            onDisk = long(whole.size());
            EXPECT_LE(partialFilesIn(directory), 1) << "partial files of dead writers pile up";
        } else {
            for (std::size_t s = 0; s < after.samples.size(); ++s) {
                const std::size_t a = std::size_t(after.offsets[s]);
                const std::size_t b = a + 16 + std::size_t(readLE(finished, a + 8, 8));
                const TableEntry& e = entries[s];
                if (left.size() < b || !std::equal(left.begin() + long(a), left.begin() + long(b),
                                                   finished.begin() + long(a)))
                    continue;
                ++onDisk;
                if (!row.nonUniform || (entryOnDisk(left, finished, e.tims, 4, e.k) &&
                                        entryOnDisk(left, finished, e.jsam, 8, e.k)))
                    whole.push_back(int(s));
            }
        }
        if (now.loaded) {
            for (std::size_t s = 0; s < now.samples.size() && s < expected->samples.size(); ++s)
                EXPECT_EQ(now.samples[s], expected->samples[s]) << "sample " << s << " reads wrong";
            EXPECT_LE(now.samples.size(), expected->samples.size());
            (now.readsAll ? tally.loadable : tally.unreadable)++;
        }
        // Recovery: every sample it keeps is one of the expected file, at its time, byte for
        // byte; count the wholly written ones among them.
        const KynRecoveryReport report = recoverCache(target.c_str(), recovered.c_str());
        std::vector<bool> back(expected->samples.size(), false);
        if (report.written) {
            const Reading out = readCache(recovered);
            ASSERT_TRUE(out.loaded && out.readsAll);
            for (const Sample& sample : out.samples) {
                auto same = std::find(expected->samples.begin(), expected->samples.end(), sample);
                ASSERT_NE(same, expected->samples.end())
                    << "recovery made up a sample at time " << sample.time;
                back[std::size_t(same - expected->samples.begin())] = true;
            }
        }
        if (getenv("KYN_CRASH_GRID_VERBOSE"))
            std::cout << where << ": size " << left.size() << " loaded " << now.loaded << " reads "
                      << now.readsAll << " n " << now.samples.size() << " whole " << whole.size()
                      << " recovered " << std::count(back.begin(), back.end(), true) << " ("
                      << report.failure << ")\n";
        tally.onDisk += onDisk;
        tally.recovered += std::count(back.begin(), back.end(), true);
        for (int s : whole) {
            ++tally.whole;
            EXPECT_TRUE(back[std::size_t(s)]) << "sample " << s << " is lost";
        }
    }

    Tally run(const Row& row, const Scene& scene) {
        const std::string base = directory + "/base.kyn";
        target = directory + "/target.kyn";
        recovered = directory + "/recovered.kyn";
        const int reserve = row.kind == kAppendNewGroup ? 2 : scene.added * 2;
        const int count = scene.samples;
        if (row.kind != kStream) stream(base, scene, row.nonUniform, count, reserve, false);
        const Bytes old = row.kind == kStream ? Bytes() : readBytes(base);
        const std::function<void()> produce = [&] {
            if (row.kind == kStream)
                stream(target, scene, row.nonUniform, count, reserve, row.care == kCommit);
            else
                save(target, scene, row);
        };
        auto reset = [&] {
            std::remove(target.c_str());
            if (!old.empty()) writeBytes(target, old);
        };
        // The finished run: the calls to cut, and what the file ends as.
        reset();
        const Reading before = readCache(target);
        *record = Record();
        int status = inChild(produce, -1, 0, record);
        EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << row.name;
        const Bytes finished = readBytes(target);
        const Reading after = readCache(target);
        EXPECT_TRUE(after.loaded && after.readsAll) << row.name;
        const std::vector<TableEntry> entries = tableEntries(finished);
        EXPECT_EQ(entries.size(), after.samples.size());
        std::vector<std::pair<long, long>> points;
        const long calls = record->calls;
        EXPECT_GT(calls, 0) << "the calls of the library's stream are not seen: no grid";
        EXPECT_LT(calls, kMaxCalls);
        for (long call = 0; call < calls; ++call) {
            const long size = record->sizes[call];
            points.push_back({call, 0});
            if (size > 1) points.push_back({call, size / 2});
            for (long cut = scene.step; cut < size; cut += scene.step)
                if (cut != size / 2) points.push_back({call, cut});
        }
        Tally tally;
        for (const auto& point : points) {
            reset();
            status = inChild(produce, point.first, point.second, nullptr);
            const std::string where = std::string(row.name) + ": call " +
                                      std::to_string(point.first) + ", torn at " +
                                      std::to_string(point.second);
            EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL) << where;
            judge(row, before, after, finished, entries, tally, where);
            if (HasFatalFailure()) break;
        }
        return tally;
    }

    std::string directory;
    std::string target;
    std::string recovered;
    Record* record = nullptr;
};

TEST_F(CrashGrid, EveryKillPointLeavesWhatWasWritten) {
    const char* grid = getenv("KYN_CRASH_GRID");
    const bool isLong = grid != nullptr && std::string(grid) == "long";
    const Scene& scene = isLong ? kLong : kQuick;
    std::cout << "crash grid (" << (isLong ? "long" : "quick") << "): path | kill points | "
              << "loads and reads | loads, does not read | samples on disk | with their "
                 "entries | recovered | rewrites: old file, new file\n";
    for (const Row& row : kRows) {
        const Tally t = run(row, scene);
        std::cout << "| " << row.name << " | " << t.points << " | " << t.loadable << " | "
                  << t.unreadable << " | " << t.onDisk << " | " << t.whole << " | " << t.recovered;
        if (row.kind == kRewrite) std::cout << " | " << t.oldFile << ", " << t.newFile;
        std::cout << " |" << std::endl;
        if (HasFatalFailure()) return;
    }
}

}  // namespace
