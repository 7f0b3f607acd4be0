// Recovery and checking of damaged caches: files cut at every byte, streams whose writer died,
// and tables broken while the samples are intact. (Writers killed at every write, appends
// included, are the crash grid's.) Every sample wholly written
// before the damage must come back byte for byte at its time, and nothing else.
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <functional>

#include "EveryKind.h"
#include "KynRecovery.h"
#include "KynRoMemCache.h"
#include "TestFiles.h"

using namespace Kyn;
using namespace kyntest_support;

namespace {

using Bytes = std::vector<unsigned char>;

// A stream of the scene of every kind, and where its pieces lie.
struct Stream {
    Bytes bytes;
    int64_t metaEnd = 0;
    int64_t samsOffset = 0;
    int64_t timsOffset = -1;
    int64_t jsamOffset = -1;
    std::vector<int64_t> starts;                // of each whole sample
    std::vector<int64_t> ends;                  // behind each whole sample
    std::vector<std::vector<int64_t>> objects;  // "SOBJ" offsets of each whole sample
    std::vector<float> times;                   // of each whole sample
};

float timeOf(bool nonUniform, int s) {
    return nonUniform ? float(1 << s) : float(1 + s);  // 1, 2, 4, 8... or 1, 2, 3, 4...
}

void writeMeta(KynFile& file, int count, bool nonUniform, Stream& out) {
    KynDKYNChunk().write(file);
    KynMETAChunk meta;
    meta.application = "test";
    meta.sourceFile = "scene";
    describeEveryKind(meta, count, timeOf(nonUniform, 0), timeOf(nonUniform, count - 1),
                      nonUniform);
    ASSERT_TRUE(meta.write(file));
    out.metaEnd = file.tell(nullptr);
}

void writeSamples(KynFile& file, KynSAMSChunk& sams, int first, int last, bool nonUniform,
                  Stream& out) {
    for (int s = first; s < last; ++s) {
        const float time = timeOf(nonUniform, s);
        out.starts.push_back(file.tell(nullptr));
        writeEveryKindSample(file, sams, s, &time);
        out.ends.push_back(file.tell(nullptr));
        out.objects.push_back(sams.objectJumps);
        out.times.push_back(time);
    }
}

// The start of a sample whose writer dies half-way: three of its six objects.
void writeHalfSample(KynFile& file, KynSAMSChunk& sams, float time) {
    ASSERT_TRUE(sams.writeStartSAMPChunk(file, kEveryKindObjects, &time));
    for (int o = 0; o < 3; ++o) {
        ASSERT_TRUE(sams.writeStartSOBJChunk(file));
        ASSERT_TRUE(file.writeChunk(kTagPOSI, std::vector<float>(9, 7.0f), -1, 0, 3));
        ASSERT_TRUE(sams.writeEndSOBJChunk(file));
    }
}

// `count` samples streamed through KynSAMSChunk. With `whole` below `count`, the writer dies
// after that many samples and half of the next: no "SAMS" length, tables of zeros.
Stream stream(bool nonUniform, int count, int whole) {
    Stream out;
    const std::string path = scratchPath("stream.kyn");
    KynFile file;
    EXPECT_TRUE(file.open(path.c_str(), "w"));
    writeMeta(file, count, nonUniform, out);
    out.samsOffset = file.tell(nullptr);
    KynSAMSChunk sams;
    EXPECT_TRUE(sams.writeStart(file, count, 4, nonUniform));
    out.timsOffset = sams.timsOffset;
    out.jsamOffset = sams.jsamOffset;
    writeSamples(file, sams, 0, whole, nonUniform, out);
    if (whole < count)
        writeHalfSample(file, sams, timeOf(nonUniform, whole));
    else
        EXPECT_TRUE(sams.writeEnd(file));
    EXPECT_TRUE(file.close());
    out.bytes = readBytes(path);
    return out;
}

Bytes cut(const Bytes& bytes, std::size_t size) {
    return Bytes(bytes.begin(), bytes.begin() + std::ptrdiff_t(size));
}

void put(Bytes& bytes, int64_t offset, int64_t value, int width = 8) {
    std::memcpy(&bytes[std::size_t(offset)], &value, std::size_t(width));
}

// The offset of the first chunk header with `tag`.
int64_t find(const Bytes& bytes, const char* tag) {
    return std::search(bytes.begin(), bytes.end(), tag, tag + 4) - bytes.begin();
}

class Recovery : public ::testing::Test {
  protected:
    // Recovers `damaged` and checks that exactly the samples `expected` of `original` come back,
    // in order, at their times, each object byte for byte.
    KynRecoveryReport expectRecovers(const Bytes& damaged, const Stream& original,
                                     const std::vector<int>& expected, const std::string& what) {
        SCOPED_TRACE(what);
        writeBytes(input, damaged);
        KynRecoveryReport report = recoverCache(input.c_str(), output.c_str());
        EXPECT_TRUE(report.written) << report.failure;
        if (!report.written) return report;
        KynRoMemCache cache;
        EXPECT_TRUE(cache.load(output.c_str(), true));
        EXPECT_EQ(cache.meta.numSamples, int64_t(expected.size()));
        EXPECT_EQ(report.kept.size(), expected.size());
        const Bytes out = readBytes(output);
        for (std::size_t j = 0; j < expected.size() && j < report.kept.size(); ++j) {
            const int s = expected[j];
            EXPECT_EQ(report.kept[j], s);
            EXPECT_EQ(cache.getSampleTime(int(j)), original.times[std::size_t(s)]);
            for (int o = 0; o < kEveryKindObjects; ++o) {
                KynHeader h;
                const int64_t from = original.objects[std::size_t(s)][std::size_t(o)];
                if (!cache.seekObjectSample(h, int(j), o) ||
                    std::size_t(from + 16 + h.length) > original.bytes.size()) {
                    ADD_FAILURE() << "sample " << s << " object " << o << " does not read";
                    continue;
                }
                const int64_t at = cache.file.tell(nullptr) - 16;
                EXPECT_TRUE(std::equal(out.begin() + at, out.begin() + at + 16 + h.length,
                                       original.bytes.begin() + from))
                    << "sample " << s << " object " << o;
            }
        }
        return report;
    }

    KynCheckReport check(const Bytes& bytes) {
        writeBytes(input, bytes);
        return checkCache(input.c_str());
    }

    // Thousands of files, each renamed over the last: in memory where the machine offers it.
    static std::string fastPath(const std::string& name) {
        if (access("/dev/shm", W_OK) != 0) return scratchPath(name);
        return "/dev/shm/kyn_" + std::to_string(getpid()) + "_" + name;
    }
    void TearDown() override {
        std::remove(input.c_str());
        std::remove(output.c_str());
    }

    std::string input = fastPath("damaged.kyn");
    std::string output = fastPath("recovered.kyn");
};

// The samples of `stream` that lie wholly in its first `size` bytes, counting only the first
// `upTo` of them.
std::vector<int> wholeIn(const Stream& stream, std::size_t size, std::size_t upTo = 1000) {
    std::vector<int> samples;
    for (std::size_t s = 0; s < stream.ends.size() && s < upTo; ++s)
        if (stream.ends[s] <= int64_t(size)) samples.push_back(int(s));
    return samples;
}

}  // namespace

TEST_F(Recovery, FinishedFileCutAtEveryByte) {
    for (bool nonUniform : {false, true}) {
        const Stream whole = stream(nonUniform, 4, 4);
        for (std::size_t size = 0; size <= whole.bytes.size(); ++size) {
            const std::string what = "cut at " + std::to_string(size);
            if (int64_t(size) < whole.metaEnd) {
                writeBytes(input, cut(whole.bytes, size));
                EXPECT_FALSE(recoverCache(input.c_str(), output.c_str()).written) << what;
                continue;
            }
            expectRecovers(cut(whole.bytes, size), whole, wholeIn(whole, size), what);
        }
    }
}

TEST_F(Recovery, StreamWhoseWriterDied) {
    for (int whole : {0, 2, 5}) {
        const Stream uniform = stream(false, 6, whole);
        for (std::size_t size = std::size_t(uniform.metaEnd); size <= uniform.bytes.size(); ++size)
            expectRecovers(cut(uniform.bytes, size), uniform, wholeIn(uniform, size),
                           std::to_string(whole) + " whole, cut at " + std::to_string(size));
        // A non-uniform stream never wrote its times: its samples are whole, and dropped.
        const Stream nonUniform = stream(true, 6, whole);
        KynRecoveryReport report = expectRecovers(nonUniform.bytes, nonUniform, {}, "non-uniform");
        ASSERT_EQ(report.dropped.size(), std::size_t(whole + 1));
        for (int s = 0; s < whole; ++s) EXPECT_EQ(report.dropped[s].kind, KynDamage::kNoTime);
        EXPECT_EQ(report.dropped.back().kind, KynDamage::kUnfinished);
    }
    // Without a sample table, the place of a sample is its count from the first one. A sample
    // whose length is lost still counts; one whose header is lost leaves the count unknown, and
    // the samples behind it have no time.
    Stream file = stream(false, 6, 5);
    put(file.bytes, file.starts[1] + 8, 0);
    expectRecovers(file.bytes, file, {0, 2, 3, 4}, "a length lost");
    put(file.bytes, file.starts[3], 0);
    KynRecoveryReport report = expectRecovers(file.bytes, file, {0, 2}, "a header lost too");
    ASSERT_EQ(report.dropped.size(), 3u);
    EXPECT_EQ(report.dropped[1].kind, KynDamage::kNoTime);
    EXPECT_EQ(report.dropped[1].offset, file.starts[4]);
}

TEST_F(Recovery, BrokenTablesAroundIntactSamples) {
    struct Case {
        const char* what;
        std::function<void(Bytes&, const Stream&)> damage;
        std::vector<int> uniform;     // samples that come back
        std::vector<int> nonUniform;  // the same in a non-uniform file
    };
    const std::vector<Case> cases = {
        {"sample count",
         [](Bytes& b, const Stream&) { put(b, find(b, "NSAM") + 16, 99); },
         {0, 1, 2, 3},
         {0, 1, 2, 3}},
        {"group length 0",
         [](Bytes& b, const Stream& s) { put(b, s.samsOffset + 8, 0); },
         {0, 1, 2, 3},
         {0, 1, 2, 3}},
        {"one jump entry",
         [](Bytes& b, const Stream& s) { put(b, s.jsamOffset + 16 + 8, 5); },
         {0, 1, 2, 3},
         {0, 1, 2, 3}},
        {"jump table header",
         [](Bytes& b, const Stream& s) { put(b, s.jsamOffset, -1); },
         {0, 1, 2, 3},
         {}},
        {"object table",
         [](Bytes& b, const Stream& s) { put(b, s.starts[1] + 32, 12345); },
         {0, 1, 2, 3},
         {0, 1, 2, 3}},
        {"a sample's header",
         [](Bytes& b, const Stream& s) { put(b, s.starts[2], 0); },
         {0, 1, 3},
         {0, 1, 3}},
        {"a chunk inside a sample",
         [](Bytes& b, const Stream& s) { put(b, s.objects[1][1] + 16 + 8, 3); },
         {0, 2, 3},
         {0, 2, 3}},
    };
    for (const Case& c : cases) {
        for (bool nonUniform : {false, true}) {
            Stream file = stream(nonUniform, 4, 4);
            c.damage(file.bytes, file);
            const std::string what = std::string(c.what) + (nonUniform ? ", non-uniform" : "");
            expectRecovers(file.bytes, file, nonUniform ? c.nonUniform : c.uniform, what);
            const KynCheckReport report = check(file.bytes);
            EXPECT_TRUE(report.opened) << what;
            EXPECT_FALSE(report.whole()) << what;
            EXPECT_FALSE(report.damage.empty()) << what;
        }
    }
    // A time that is not a number places no sample: the file could not be looked up by it.
    Stream file = stream(true, 4, 4);
    put(file.bytes, file.timsOffset + 16, 0x7fc00000, 4);
    expectRecovers(file.bytes, file, {1, 2, 3}, "a time that is not a number");
}

TEST_F(Recovery, CheckSaysWhatIsDamagedAndWhatCanBeRead) {
    const Stream whole = stream(false, 4, 4);
    KynCheckReport report = check(whole.bytes);
    EXPECT_TRUE(report.whole());
    EXPECT_EQ(report.readableSamples, 4);
    EXPECT_EQ(report.recoverableSamples, 4);

    // Cut inside sample 2: the file still loads, samples 2 and 3 do not read.
    report = check(cut(whole.bytes, std::size_t(whole.starts[2] + 40)));
    EXPECT_TRUE(report.loaded);
    EXPECT_EQ(report.readableSamples, 2);
    EXPECT_EQ(report.recoverableSamples, 2);
    ASSERT_FALSE(report.damage.empty());
    bool cutFound = false;
    for (const KynDamage& d : report.damage)
        cutFound |= d.kind == KynDamage::kCut && d.offset == whole.starts[2] && d.sample == 2;
    EXPECT_TRUE(cutFound);

    // A stream whose writer died loads, with a sample table of zeros that leads nowhere: no
    // sample reads through the cache, and recovery would keep the three whole ones.
    report = check(stream(false, 6, 3).bytes);
    EXPECT_TRUE(report.loaded);
    EXPECT_EQ(report.readableSamples, 0);
    EXPECT_EQ(report.foundSamples, 4);
    EXPECT_EQ(report.recoverableSamples, 3);

    // A file that does not load: the scan counts the whole samples.
    Bytes counted = whole.bytes;
    put(counted, find(counted, "NSAM") + 16, 99);
    report = check(counted);
    EXPECT_FALSE(report.loaded);
    ASSERT_FALSE(report.damage.empty());
    EXPECT_EQ(report.damage.front().kind, KynDamage::kLoad);
    EXPECT_EQ(report.damage.front().detail, "missing next SAMS chunk for sample ");
    EXPECT_EQ(report.readableSamples, 4);

    // An object that the cache cannot read, in a file that loads.
    Bytes broken = whole.bytes;
    put(broken, whole.objects[1][2] + 16 + 4, kTypeDouble, 1);  // 9 floats read as doubles
    report = check(broken);
    EXPECT_TRUE(report.loaded);
    EXPECT_EQ(report.readableSamples, 3);
    ASSERT_FALSE(report.damage.empty());
    EXPECT_EQ(report.damage.front().sample, 1);
    EXPECT_EQ(report.damage.front().object, 2);

    writeBytes(input, Bytes{'n', 'o', 'p', 'e'});
    report = checkCache(input.c_str());
    EXPECT_FALSE(report.opened);
    EXPECT_FALSE(report.failure.empty());
}

TEST_F(Recovery, ScannerHoldsBackASampleStillBeingWritten) {
    const Stream whole = stream(false, 4, 4);
    const std::size_t partway = std::size_t(whole.starts[2] + 50);
    writeBytes(input, cut(whole.bytes, partway));
    KynSampleScanner scanner;
    scanner.holdTail = true;
    ASSERT_TRUE(scanner.open(input.c_str()));
    KynScannedSample sample;
    std::vector<int64_t> seen;
    while (scanner.next(sample)) {
        EXPECT_TRUE(sample.whole);
        EXPECT_EQ(sample.objects, whole.objects[seen.size()]);
        seen.push_back(sample.index);
    }
    EXPECT_EQ(seen, (std::vector<int64_t>{0, 1}));
    writeBytes(input, whole.bytes);  // the writer went on
    while (scanner.next(sample)) {
        EXPECT_TRUE(sample.whole);
        EXPECT_EQ(sample.time, whole.times[std::size_t(sample.index)]);
        seen.push_back(sample.index);
    }
    EXPECT_EQ(seen, (std::vector<int64_t>{0, 1, 2, 3}));
    EXPECT_TRUE(scanner.problems().empty());
}
