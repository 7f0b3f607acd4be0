// The sample stream writer: the exact bytes of the worked file, the writer's order of events,
// and reopening a finished group to grow its tables into the reserve.
#include <gtest/gtest.h>

#include <cstring>

#include "KynChunks.h"
#include "TestFiles.h"

using namespace Kyn;
using namespace kyntest_support;

namespace {

struct ChunkAt {
    std::size_t offset;
    const char* tag;
    int type;
    int64_t length;
};

std::string tagAt(const std::vector<unsigned char>& bytes, std::size_t offset) {
    return std::string(reinterpret_cast<const char*>(&bytes.at(offset)), 4);
}

// Writes `samples` uniform samples of one object, each a three-float "POSI", with `reserve`.
std::string writeSamples(int samples, int reserve, bool nonUniform) {
    std::string path = scratchPath("samples.kyn");
    KynFile file;
    EXPECT_TRUE(file.open(path.c_str(), "w"));
    KynDKYNChunk().write(file);
    KynMETAChunk meta;
    meta.numSamples = samples;
    meta.addDOBJ("obj");
    EXPECT_TRUE(meta.write(file));
    KynSAMSChunk sams;
    EXPECT_TRUE(sams.writeStart(file, samples, reserve, nonUniform));
    for (int s = 0; s < samples; ++s) {
        float time = float(s) * 0.5f;
        EXPECT_TRUE(sams.writeStartSAMPChunk(file, 1, &time));
        EXPECT_TRUE(sams.writeStartSOBJChunk(file));
        EXPECT_TRUE(file.writeChunk(kTagPOSI, std::vector<float>(3, float(s)), -1, 0, 0));
        EXPECT_TRUE(sams.writeEndSOBJChunk(file));
        EXPECT_TRUE(sams.writeEndSAMPChunk(file));
    }
    EXPECT_TRUE(sams.writeEnd(file));
    EXPECT_TRUE(file.close());
    return path;
}

}  // namespace

TEST(WorkedFile, EveryOffsetLengthAndTableEntryIsExact) {
    std::string path = scratchPath("worked.kyn");
    writeWorkedFile(path);
    std::vector<unsigned char> bytes = readBytes(path);
    ASSERT_EQ(bytes.size(), 500u);

    const ChunkAt layout[] = {
        {0, "DKYN", 5, 8},     {24, "META", 1, 212}, {40, "WAPP", 2, 4},   {60, "DATE", 5, 8},
        {84, "NSAM", 5, 8},    {108, "FTIM", 4, 4},  {128, "LTIM", 4, 4},  {148, "RATE", 4, 4},
        {168, "SPAC", 5, 8},   {192, "NOBJ", 5, 8},  {216, "DOBJ", 1, 20}, {232, "NAME", 2, 4},
        {252, "SAMS", 1, 232}, {268, "JSAM", 5, 16}, {300, "FREE", 0, 16}, {332, "SAMP", 1, 68},
        {348, "JOBJ", 5, 8},   {372, "SOBJ", 1, 28}, {388, "POSI", 4, 12}, {416, "SAMP", 1, 68},
        {432, "JOBJ", 5, 8},   {456, "SOBJ", 1, 28}, {472, "POSI", 4, 12},
    };
    for (const ChunkAt& chunk : layout) {
        SCOPED_TRACE(chunk.tag);
        EXPECT_EQ(tagAt(bytes, chunk.offset), chunk.tag);
        EXPECT_EQ(readLE(bytes, chunk.offset + 4, 4), chunk.type);  // codes and reserved
        EXPECT_EQ(readLE(bytes, chunk.offset + 8, 8), chunk.length);
    }
    const unsigned char magic[24] = {0x44, 0x4B, 0x59, 0x4E, 5, 0, 0, 0, 8, 0, 0, 0,
                                     0,    0,    0,    0,    2, 0, 0, 0, 0, 0, 0, 0};
    EXPECT_EQ(std::memcmp(bytes.data(), magic, sizeof(magic)), 0);
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(&bytes[56]), 4), std::string("app\0", 4));
    EXPECT_EQ(readLE(bytes, 76, 8), 1400000000);
    EXPECT_EQ(readLE(bytes, 100, 8), 2);
    EXPECT_EQ(readLE(bytes, 284, 8), 332);  // JSAM entries
    EXPECT_EQ(readLE(bytes, 292, 8), 416);
    EXPECT_EQ(readLE(bytes, 364, 8), 372);  // JOBJ entries
    EXPECT_EQ(readLE(bytes, 448, 8), 456);
    float one = 0;
    std::memcpy(&one, &bytes[492], 4);
    EXPECT_EQ(one, 1.0f);
}

TEST(SamsWriter, WalkThroughStatesEveryOffset) {
    std::string path = scratchPath("walk.kyn");
    KynFile file;
    ASSERT_TRUE(file.open(path.c_str(), "w"));
    ASSERT_TRUE(file.seek(252, SEEK_SET, true));
    KynSAMSChunk sams;
    ASSERT_TRUE(sams.writeStart(file, 2, 2, false));
    EXPECT_EQ(sams.jsamOffset, 268);
    EXPECT_EQ(sams.timsOffset, -1);
    EXPECT_EQ(file.tell(nullptr), 332);
    EXPECT_EQ(file.groupStack, std::vector<int64_t>{268});

    ASSERT_TRUE(sams.writeStartSAMPChunk(file, 1, nullptr));
    EXPECT_EQ(sams.sampleJumps[0], 332);
    EXPECT_EQ(sams.jobjOffset, 348);
    EXPECT_EQ(file.tell(nullptr), 372);
    ASSERT_TRUE(sams.writeStartSOBJChunk(file));
    EXPECT_EQ(sams.objectJumps[0], 372);
    ASSERT_TRUE(file.writeChunk(kTagPOSI, std::vector<float>(3, 0.0f), -1, 0, 0));
    ASSERT_TRUE(sams.writeEndSOBJChunk(file));
    EXPECT_EQ(sams.objectIndex, 1u);
    ASSERT_TRUE(sams.writeEndSAMPChunk(file));
    EXPECT_EQ(sams.sampleIndex, 1u);
    EXPECT_EQ(file.tell(nullptr), 416);
    EXPECT_EQ(file.groupStack.size(), 1u);
}

TEST(SamsWriter, RefusesSamplesBeyondTheTableAndForeignObjectGroups) {
    std::string path = scratchPath("full.kyn");
    KynFile file;
    ASSERT_TRUE(file.open(path.c_str(), "w"));
    KynSAMSChunk sams;
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

TEST(SamsWriter, NoObjectsPutsABareJobjBehindTheSample) {
    std::string path = scratchPath("noobjects.kyn");
    KynFile file;
    ASSERT_TRUE(file.open(path.c_str(), "w"));
    KynSAMSChunk sams;
    ASSERT_TRUE(sams.writeStart(file, 1, 0, false));
    ASSERT_TRUE(sams.writeStartSAMPChunk(file, 0, nullptr));
    ASSERT_TRUE(sams.writeEndSAMPChunk(file));
    ASSERT_TRUE(sams.writeEnd(file));
    ASSERT_TRUE(file.close());
    // SAMS(16) JSAM(16+8) SAMP(16) JOBJ(16), then the second bare JOBJ behind the SAMP.
    std::vector<unsigned char> bytes = readBytes(path);
    ASSERT_EQ(bytes.size(), 88u);
    EXPECT_EQ(tagAt(bytes, 56), "JOBJ");
    EXPECT_EQ(tagAt(bytes, 72), "JOBJ");
    EXPECT_EQ(readLE(bytes, 8, 8), 72);  // the second JOBJ is still inside the SAMS
    EXPECT_EQ(readLE(bytes, 48, 8), 16);
}

TEST(SamsWriter, ZeroSamplesWritesAnotherBareJsamAtTheEnd) {
    std::string path = scratchPath("zero.kyn");
    KynFile file;
    ASSERT_TRUE(file.open(path.c_str(), "w"));
    KynSAMSChunk sams;
    ASSERT_TRUE(sams.writeStart(file, 0, 0, false));
    ASSERT_TRUE(sams.writeEnd(file));
    ASSERT_TRUE(file.close());
    std::vector<unsigned char> bytes = readBytes(path);
    ASSERT_EQ(bytes.size(), 48u);
    EXPECT_EQ(tagAt(bytes, 16), "JSAM");
    EXPECT_EQ(tagAt(bytes, 32), "JSAM");
    EXPECT_EQ(readLE(bytes, 8, 8), 16);
}

TEST(SamsWriter, NonUniformTimesFillInAndANullTimeLeavesZero) {
    std::string path = scratchPath("times.kyn");
    KynFile file;
    ASSERT_TRUE(file.open(path.c_str(), "w"));
    KynSAMSChunk sams;
    ASSERT_TRUE(sams.writeStart(file, 2, 1, true));
    EXPECT_EQ(sams.timsOffset, 0 + 16);
    float time = 7.5f;
    const float* sampleTimes[2] = {nullptr, &time};
    for (const float* t : sampleTimes) {
        ASSERT_TRUE(sams.writeStartSAMPChunk(file, 0, t));
        ASSERT_TRUE(sams.writeEndSAMPChunk(file));
    }
    ASSERT_TRUE(sams.writeEnd(file));
    EXPECT_EQ(sams.times, (std::vector<float>{0.0f, 7.5f}));
    ASSERT_TRUE(file.close());
    std::vector<unsigned char> bytes = readBytes(path);
    EXPECT_EQ(tagAt(bytes, 16), "TIMS");
    EXPECT_EQ(tagAt(bytes, 40), "FREE");
    EXPECT_EQ(readLE(bytes, 48, 8), 4);
    EXPECT_EQ(tagAt(bytes, 60), "JSAM");
    float stored = 0;
    std::memcpy(&stored, &bytes[36], 4);
    EXPECT_EQ(stored, 7.5f);
}

TEST(SamsAppend, GrowsBothTablesIntoTheirReservesWithoutMovingSamples) {
    std::string path = writeSamples(2, 5, true);
    std::vector<unsigned char> before = readBytes(path);
    // The "SAMS" follows the 24 bytes of "DKYN" and the whole "META".
    std::size_t sams = 24 + 16 + std::size_t(readLE(before, 32, 8));
    ASSERT_EQ(tagAt(before, sams), "SAMS");

    KynFile file;
    ASSERT_TRUE(file.open(path.c_str(), "r+"));
    ASSERT_TRUE(file.seek(int64_t(sams), SEEK_SET, true));
    KynSAMSChunk writer;
    ASSERT_TRUE(writer.appendStart(file, 3));
    EXPECT_EQ(writer.sampleIndex, 2u);
    EXPECT_EQ(writer.sampleJumps.size(), 5u);
    EXPECT_EQ(writer.times.size(), 5u);
    EXPECT_EQ(file.tell(nullptr), int64_t(before.size()));
    for (int s = 2; s < 5; ++s) {
        float time = float(s) * 0.5f;
        ASSERT_TRUE(writer.writeStartSAMPChunk(file, 0, &time));
        ASSERT_TRUE(writer.writeEndSAMPChunk(file));
    }
    ASSERT_TRUE(writer.writeEnd(file));
    ASSERT_TRUE(file.close());

    std::vector<unsigned char> after = readBytes(path);
    // TIMS grew by 12 bytes and its FREE shrank by as much; the JSAM and sample area stay put.
    std::size_t tims = sams + 16;
    EXPECT_EQ(readLE(after, tims + 8, 8), 20);
    EXPECT_EQ(tagAt(after, tims + 36), "FREE");
    EXPECT_EQ(readLE(after, tims + 44, 8), 8);
    std::size_t jsam = tims + 24 + 16 + 20;
    ASSERT_EQ(tagAt(after, jsam), "JSAM");
    EXPECT_EQ(readLE(after, jsam + 8, 8), 40);
    EXPECT_EQ(tagAt(after, jsam + 56), "FREE");
    EXPECT_EQ(readLE(after, jsam + 64, 8), 16);
    std::size_t firstSample = jsam + 16 + 40 + 16 + 16;
    EXPECT_EQ(readLE(after, jsam + 16, 8), int64_t(firstSample));
    EXPECT_EQ(readLE(after, jsam + 32, 8), int64_t(before.size()));
    EXPECT_TRUE(
        std::equal(before.begin() + firstSample, before.end(), after.begin() + firstSample));
    EXPECT_EQ(readLE(after, sams + 8, 8), int64_t(after.size() - sams - 16));
}

TEST(SamsAppend, ExactlyAllSpareSamplesEmptiesTheReserveAndOneMoreIsRefused) {
    std::string path = writeSamples(1, 2, false);
    std::vector<unsigned char> bytes = readBytes(path);
    int64_t sams = 24 + 16 + readLE(bytes, 32, 8);
    KynFile file;
    ASSERT_TRUE(file.open(path.c_str(), "r+"));
    ASSERT_TRUE(file.seek(sams, SEEK_SET, true));
    KynSAMSChunk writer;
    ASSERT_TRUE(writer.appendStart(file, 2));
    for (int s = 0; s < 2; ++s) {
        ASSERT_TRUE(writer.writeStartSAMPChunk(file, 0, nullptr));
        ASSERT_TRUE(writer.writeEndSAMPChunk(file));
    }
    ASSERT_TRUE(writer.writeEnd(file));
    bytes = readBytes(path);
    EXPECT_EQ(readLE(bytes, std::size_t(sams) + 16 + 16 + 24 + 8, 8), 0);  // FREE length

    ASSERT_TRUE(file.seek(sams, SEEK_SET, true));
    KynSAMSChunk again;
    EXPECT_FALSE(again.appendStart(file, 1));
}

TEST(SamsAppend, AGroupWithoutReserveCannotBeReopened) {
    std::string path = writeSamples(1, 0, false);
    std::vector<unsigned char> bytes = readBytes(path);
    KynFile file;
    ASSERT_TRUE(file.open(path.c_str(), "r+"));
    ASSERT_TRUE(file.seek(24 + 16 + readLE(bytes, 32, 8), SEEK_SET, true));
    KynSAMSChunk writer;
    EXPECT_FALSE(writer.appendStart(file, 1));
}

TEST(SamsAppend, RefusesAnythingButASamsHeader) {
    std::string path = writeSamples(1, 2, false);
    KynFile file;
    ASSERT_TRUE(file.open(path.c_str(), "r+"));
    KynSAMSChunk writer;
    EXPECT_FALSE(writer.appendStart(file, 1));  // the DKYN at offset 0
    KynFile closed;
    EXPECT_FALSE(writer.appendStart(closed, 1));
}
