// The sample stream writer: refusals, the bytes of its empty and non-uniform cases, and
// reopening a finished group to grow its tables into the reserve. (The bytes of a whole file
// are those of the worked file, dumped line for line by the kyn2txt suite.)
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>

#include "KynChunks.h"
#include "KynMessages.h"
#include "KynRoMemCache.h"
#include "TestFiles.h"

using namespace Kyn;
using namespace kyntest_support;

namespace {

using Bytes = std::vector<unsigned char>;

std::string tagAt(const Bytes& bytes, std::size_t offset) {
    return std::string(reinterpret_cast<const char*>(&bytes.at(offset)), 4);
}

Bytes head(const char* tag, unsigned char type, int64_t length, int64_t value = -1) {
    Bytes bytes;
    appendHeader(bytes, tag, type, length);
    if (value >= 0) appendLE(bytes, value, 8);
    return bytes;
}
Bytes cat(std::initializer_list<Bytes> parts) {
    Bytes bytes;
    for (const Bytes& part : parts) bytes.insert(bytes.end(), part.begin(), part.end());
    return bytes;
}

class SamsWriter : public ::testing::Test {
  protected:
    void SetUp() override { ASSERT_TRUE(file.open(path.c_str(), "w")); }
    Bytes finish() {
        EXPECT_TRUE(file.close());
        return readBytes(path);
    }
    // A whole "SAMS" at offset 0: samples of one object with a three-float "POSI", and a reserve;
    // then the file opened again for appending.
    void writeSamples(int samples, int reserve, bool nonUniform) {
        KynSAMSChunk written;
        ASSERT_TRUE(written.writeStart(file, samples, reserve, nonUniform));
        for (int s = 0; s < samples; ++s) {
            float time = float(s) * 0.5f;
            KynGroupChunk object(kTagSOBJ);
            object.children.push_back(new KynLeafChunk<float>(kTagPOSI, {1, 2, float(s)}));
            ASSERT_TRUE(written.writeStartSAMPChunk(file, 1, &time));
            ASSERT_TRUE(written.writeSOBJChunk(file, &object));
            ASSERT_TRUE(written.writeEndSAMPChunk(file));
        }
        ASSERT_TRUE(written.writeEnd(file));
        ASSERT_TRUE(file.close());
        ASSERT_TRUE(file.open(path.c_str(), "r+"));
    }
    std::string path = scratchPath("sams.kyn");
    KynFile file;
    KynSAMSChunk sams;
};

TEST_F(SamsWriter, RefusesSamplesBeyondTheTableAndForeignObjectGroups) {
    ASSERT_TRUE(sams.writeStart(file, 1, 0, false));
    ASSERT_TRUE(sams.writeStartSAMPChunk(file, 1, nullptr));
    KynGroupChunk notAnObject(kTagSAMP);
    EXPECT_FALSE(sams.writeSOBJChunk(file, &notAnObject));
    EXPECT_FALSE(sams.writeSOBJChunk(file, nullptr));
    EXPECT_EQ(sams.objectIndex, 0u);
    KynGroupChunk object(kTagSOBJ);
    EXPECT_TRUE(sams.writeSOBJChunk(file, &object));
    EXPECT_FALSE(sams.writeStartSOBJChunk(file));  // one object only
    ASSERT_TRUE(sams.writeEndSAMPChunk(file));
    int64_t end = file.tell(nullptr);
    EXPECT_FALSE(sams.writeStartSAMPChunk(file, 1, nullptr));
    EXPECT_EQ(file.tell(nullptr), end);  // nothing written
}

// A sample without objects gets a second bare "JOBJ" behind it, still inside the "SAMS"; no
// samples at all get a second bare "JSAM", outside.
TEST_F(SamsWriter, EmptyTablesLeaveASecondBareTable) {
    ASSERT_TRUE(sams.writeStart(file, 1, 0, false));
    ASSERT_TRUE(sams.writeStartSAMPChunk(file, 0, nullptr));
    ASSERT_TRUE(sams.writeEndSAMPChunk(file));
    ASSERT_TRUE(sams.writeEnd(file));
    EXPECT_EQ(finish(), cat({head("SAMS", kTypeGroup, 72), head("JSAM", kTypeInt64, 8, 40),
                             head("SAMP", kTypeGroup, 16), head("JOBJ", kTypeInt64, 0),
                             head("JOBJ", kTypeInt64, 0)}));
    ASSERT_TRUE(file.open(path.c_str(), "w"));
    KynSAMSChunk none;
    ASSERT_TRUE(none.writeStart(file, 0, 0, false));
    ASSERT_TRUE(none.writeEnd(file));
    EXPECT_EQ(finish(), cat({head("SAMS", kTypeGroup, 16), head("JSAM", kTypeInt64, 0),
                             head("JSAM", kTypeInt64, 0)}));
}

TEST_F(SamsWriter, NonUniformTimesFillInAndANullTimeLeavesZero) {
    ASSERT_TRUE(sams.writeStart(file, 2, 1, true));
    EXPECT_EQ(sams.timsOffset, 16);
    float time = 7.5f;
    const float* sampleTimes[] = {nullptr, &time};
    for (const float* t : sampleTimes) {
        ASSERT_TRUE(sams.writeStartSAMPChunk(file, 0, t));
        ASSERT_TRUE(sams.writeEndSAMPChunk(file));
    }
    ASSERT_TRUE(sams.writeEnd(file));
    EXPECT_EQ(sams.times, (std::vector<float>{0.0f, 7.5f}));
    Bytes bytes = finish();
    EXPECT_EQ(tagAt(bytes, 16), "TIMS");
    EXPECT_EQ(readLE(bytes, 32, 4), 0);
    EXPECT_EQ(readLE(bytes, 36, 4), 0x40F00000);  // 7.5f
    EXPECT_EQ(tagAt(bytes, 40), "FREE");
    EXPECT_EQ(readLE(bytes, 48, 8), 4);
    EXPECT_EQ(tagAt(bytes, 60), "JSAM");
}

TEST_F(SamsWriter, AppendGrowsBothTablesIntoTheirReservesWithoutMovingSamples) {
    ASSERT_NO_FATAL_FAILURE(writeSamples(2, 5, true));
    Bytes before = readBytes(path);
    KynSAMSChunk writer;
    ASSERT_TRUE(writer.appendStart(file, 3));
    EXPECT_EQ(writer.sampleIndex, 2u);
    // The headers were read into the chunk's own: it holds the reserve behind "JSAM", as read.
    EXPECT_EQ(writer.header.tag, kTagFREE);
    EXPECT_EQ(writer.header.length, 40);
    for (int s = 2; s < 5; ++s) {
        float time = float(s) * 0.5f;
        ASSERT_TRUE(writer.writeStartSAMPChunk(file, 0, &time));
        ASSERT_TRUE(writer.writeEndSAMPChunk(file));
    }
    ASSERT_TRUE(writer.writeEnd(file));
    Bytes after = finish();
    // "TIMS" at 16 grew by 12 bytes and its "FREE" shrank by as much; "JSAM" and the samples
    // stay put.
    EXPECT_EQ(readLE(after, 24, 8), 20);
    EXPECT_EQ(tagAt(after, 52), "FREE");
    EXPECT_EQ(readLE(after, 60, 8), 8);
    ASSERT_EQ(tagAt(after, 76), "JSAM");
    EXPECT_EQ(readLE(after, 84, 8), 40);
    EXPECT_EQ(tagAt(after, 132), "FREE");
    EXPECT_EQ(readLE(after, 140, 8), 16);
    const std::size_t firstSample = 164;
    EXPECT_EQ(readLE(after, 92, 8), int64_t(firstSample));
    EXPECT_EQ(readLE(after, 108, 8), int64_t(before.size()));
    EXPECT_TRUE(
        std::equal(before.begin() + firstSample, before.end(), after.begin() + firstSample));
    EXPECT_EQ(readLE(after, 8, 8), int64_t(after.size() - 16));
}

// Exactly all spare samples empty the reserve, after which, as without a reserve, no append
// starts; nor does one anywhere but at a "SAMS" header, or on a closed file.
TEST_F(SamsWriter, AppendRefusedWithoutRoomOrAtAnythingButASamsHeader) {
    ASSERT_NO_FATAL_FAILURE(writeSamples(1, 2, false));
    KynSAMSChunk writer;
    ASSERT_TRUE(file.seek(16, SEEK_SET, true));
    EXPECT_FALSE(writer.appendStart(file, 1));  // the "JSAM"
    ASSERT_TRUE(file.seek(0, SEEK_SET, true));
    ASSERT_TRUE(writer.appendStart(file, 2));
    for (int s = 0; s < 2; ++s) {
        ASSERT_TRUE(writer.writeStartSAMPChunk(file, 0, nullptr));
        ASSERT_TRUE(writer.writeEndSAMPChunk(file));
    }
    ASSERT_TRUE(writer.writeEnd(file));
    EXPECT_EQ(readLE(readBytes(path), 16 + 16 + 24 + 8, 8), 0);  // FREE length
    ASSERT_TRUE(file.seek(0, SEEK_SET, true));
    EXPECT_FALSE(KynSAMSChunk().appendStart(file, 1));
    ASSERT_TRUE(file.close());

    ASSERT_TRUE(file.open(path.c_str(), "w"));
    ASSERT_NO_FATAL_FAILURE(writeSamples(1, 0, false));
    EXPECT_FALSE(KynSAMSChunk().appendStart(file, 1));
    KynFile closed;
    EXPECT_FALSE(KynSAMSChunk().appendStart(closed, 1));
    // A file that ends behind the group's header: the place of the "JSAM" is noted all the same.
    writeBytes(path, head("SAMS", kTypeGroup, 0));
    ASSERT_TRUE(file.open(path.c_str(), "r+"));
    KynSAMSChunk cut;
    EXPECT_FALSE(cut.appendStart(file, 1));
    EXPECT_EQ(cut.jsamOffset, 16);
}

// A whole file of one object: `written` of `planned` samples streamed by a writer in `mode`,
// with `reserve` spare samples, then `added` more appended in place (of which `appendWritten`
// are written). `each` runs after every sample, with the samples in the file so far.
void writeFile(const std::string& path, KynSAMSChunk::Commit mode, bool nonUniform, int planned,
               int written, int reserve, int added, int appendWritten,
               const std::function<void(int)>& each) {
    auto timeOf = [&](int s) { return nonUniform ? float(s * s) : float(s); };
    KynMETAChunk meta;
    meta.application = "a";
    meta.sourceFile = "s";
    meta.date = 1;
    meta.numSamples = planned;
    meta.firstTime = timeOf(0);
    meta.lastTime = timeOf(planned - 1);
    meta.rate = nonUniform ? 0.0f : 1.0f;
    meta.addDOBJ("|o");
    auto sample = [&](KynFile& file, KynSAMSChunk& sams, int s) {
        const float time = timeOf(s);
        KynGroupChunk object(kTagSOBJ);
        object.children.push_back(new KynLeafChunk<float>(kTagPOSI, {1, 2, float(s)}));
        ASSERT_TRUE(sams.writeStartSAMPChunk(file, 1, &time));
        ASSERT_TRUE(sams.writeSOBJChunk(file, &object));
        ASSERT_TRUE(sams.writeEndSAMPChunk(file));
        each(s + 1);
    };
    KynFile file;
    ASSERT_TRUE(file.open(path.c_str(), "w") && KynDKYNChunk().write(file));
    ASSERT_TRUE(meta.write(file));
    KynSAMSChunk sams;
    sams.commit = mode;
    sams.followMetadata(meta, 24);
    ASSERT_TRUE(sams.writeStart(file, planned, reserve, nonUniform));
    for (int s = 0; s < written; ++s) ASSERT_NO_FATAL_FAILURE(sample(file, sams, s));
    ASSERT_TRUE(sams.writeEnd(file) && file.close());
    if (added == 0) return;
    // An append writes the metadata first: the committing one with the samples in the file.
    ASSERT_TRUE(file.open(path.c_str(), "r+") && file.seek(24, SEEK_SET, true));
    meta.numSamples = planned + added;
    meta.lastTime = timeOf(planned + added - 1);
    if (mode == KynSAMSChunk::kCommitAtEnd) {
        ASSERT_TRUE(meta.write(file));
    }
    KynSAMSChunk more;
    more.commit = mode;
    more.followMetadata(meta, 24);
    ASSERT_TRUE(file.seek(24 + 16 + meta.getLength(), SEEK_SET, true));
    ASSERT_TRUE(more.appendStart(file, added));
    for (int s = planned; s < planned + appendWritten; ++s)
        ASSERT_NO_FATAL_FAILURE(sample(file, more, s));
    ASSERT_TRUE(more.writeEnd(file) && file.close());
}

// A committing writer hands over each sample with its table entries, and the count and last
// time of the metadata: after every sample the file loads with exactly the samples written,
// at their times. Whatever was written, the file it ends with is the default writer's.
TEST(SamsCommit, EverySampleLoadsAsItClosesAndTheFileEndsAsTheDefaultOne) {
    const std::string path = scratchPath("committed.kyn");
    const std::string plain = scratchPath("plain.kyn");
    struct Case {
        bool nonUniform;
        int planned, written, reserve, added, appendWritten;
        bool loadsEach;  // a reserve keeps the tables in step
    };
    const Case cases[] = {{false, 5, 5, 3, 0, 0, true},
                          {true, 5, 5, 6, 4, 4, true},
                          {true, 5, 3, 3, 0, 0, true},
                          {true, 4, 4, 0, 0, 0, false},
                          {false, 3, 3, 4, 4, 2, true}};
    for (const Case& c : cases) {
        SCOPED_TRACE(::testing::Message() << c.planned << " planned, " << c.written << " written, "
                                          << c.added << " added, non-uniform " << c.nonUniform);
        auto loadsWith = [&](int samples) {
            if (!c.loadsEach) return;
            KynMessageCapture quiet;
            KynRoMemCache cache;
            ASSERT_TRUE(cache.load(path.c_str(), true)) << quiet.last();
            EXPECT_EQ(cache.meta.numSamples, samples);
            for (int s = 0; s < samples; ++s) {
                EXPECT_EQ(cache.getSampleTime(s), c.nonUniform ? float(s * s) : float(s));
                auto* positions =
                    cache.getSampleDataAtTime<float>(cache.getSampleTime(s), 0, kTagPOSI, nullptr);
                ASSERT_NE(positions, nullptr);
                EXPECT_EQ(positions->back(), float(s));
            }
        };
        writeFile(plain, KynSAMSChunk::kCommitAtEnd, c.nonUniform, c.planned, c.written, c.reserve,
                  c.added, c.appendWritten, [](int) {});
        for (auto mode : {KynSAMSChunk::kCommitEachSample, KynSAMSChunk::kCommitEachSampleToDisk}) {
            writeFile(path, mode, c.nonUniform, c.planned, c.written, c.reserve, c.added,
                      c.appendWritten, loadsWith);
            EXPECT_EQ(readBytes(path), readBytes(plain));
        }
    }
}

}  // namespace
