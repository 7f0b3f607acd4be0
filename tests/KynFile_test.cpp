// The chunk stream: header bytes, the open-group stack while reading, string payloads, and the
// write forms with their placement and group-length rules.
#include <gtest/gtest.h>
#include <unistd.h>

#include <climits>
#include <cstdio>
#include <string>
#include <vector>

#include "KynFile.h"
#include "TestFiles.h"

using namespace Kyn;
using namespace kyntest_support;

namespace {

using Bytes = std::vector<unsigned char>;
using Strings = std::vector<std::string>;

void openBytes(KynFile& file, const Bytes& bytes) {
    std::string path = scratchPath("bytes.kyn");
    writeBytes(path, bytes);
    ASSERT_TRUE(file.open(path.c_str(), "r"));
}

// While reading, the stack holds the end offsets of open groups; a group closes when the position
// lands exactly on its end, so one step can close several.
TEST(KynFileReadTest, GroupStackAfterEachStep) {
    struct Walk {
        const char* name;
        Bytes bytes;
        std::string steps;  // h: read a header, s: skip its payload, d: read its payload
        std::string trace;  // per step the tag or "skip"/"data", then the stack
    };
    const Walk walks[] = {
        {"zero-length leaf closes two groups at its header",
         cat({head("OUTR", kTypeGroup, 32), head("INNR", kTypeGroup, 16),
              head("LEAF", kTypeInt32, 0)}),
         "hhh", "OUTR 48; INNR 48 48; LEAF; "},
        {"nested group ending with its parent pops both",
         cat({head("OUTR", kTypeGroup, 56), head("LEAF", kTypeInt32, 4), le(1, 4),
              head("INNR", kTypeGroup, 20), head("LEAF", kTypeInt32, 4), le(2, 4)}),
         "hhdhhd", "OUTR 72; LEAF 72; data 72; INNR 72 72; LEAF 72 72; data; "},
        {"empty group pushes nothing",
         cat({head("OUTR", kTypeGroup, 36), head("EMPT", kTypeGroup, 0),
              head("LEAF", kTypeInt32, 4), le(3, 4)}),
         "hhhs", "OUTR 52; EMPT 52; LEAF 52; skip; "},
        {"overrun group end closes nothing",
         cat({head("OUTR", kTypeGroup, 8), head("LEAF", kTypeInt32, 4), le(4, 4)}), "hhs",
         "OUTR 24; LEAF 24; skip 24; "},
        {"skipping a group header passes the whole group",
         cat({head("GRUP", kTypeGroup, 20), head("LEAF", kTypeInt32, 4), le(5, 4),
              head("NEXT", kTypeInt32, 0)}),
         "hsh", "GRUP 36; skip; NEXT; "},
    };
    for (const Walk& walk : walks) {
        SCOPED_TRACE(walk.name);
        KynFile file;
        ASSERT_NO_FATAL_FAILURE(openBytes(file, walk.bytes));
        KynHeader header;
        std::string trace;
        for (char step : walk.steps) {
            Bytes payload(std::size_t(header.length) + 1);
            if (step == 'h') {
                ASSERT_TRUE(file.readHeader(header));
                trace += std::string(reinterpret_cast<const char*>(&header.tag), 4);
            } else if (step == 's') {
                ASSERT_TRUE(file.skipData(header));
                trace += "skip";
            } else {
                ASSERT_TRUE(file.readData(header, payload.data()));
                trace += "data";
            }
            for (int64_t end : file.groupStack) trace += " " + std::to_string(end);
            trace += "; ";
        }
        EXPECT_EQ(trace, walk.trace);
        EXPECT_FALSE(file.readHeader(header));
    }
}

TEST(KynFileReadTest, DamagedInputFailsAndNeverMovesBackwards) {
    KynFile file;
    KynHeader header;
    // A truncated payload fails the read; the stack stays until close.
    openBytes(file, cat({head("GRUP", kTypeGroup, 24), head("LEAF", kTypeInt64, 8), le(6, 4)}));
    ASSERT_TRUE(file.readHeader(header));
    ASSERT_TRUE(file.readHeader(header));
    int64_t value = 0;
    EXPECT_FALSE(file.readData(header, &value));
    EXPECT_FALSE(file.readHeader(header));
    EXPECT_EQ(file.groupStack.size(), 1u);
    EXPECT_TRUE(file.close());
    EXPECT_TRUE(file.groupStack.empty());

    // A skip past the end succeeds; the next header read fails.
    openBytes(file, head("LEAF", kTypeUndef, 1000));
    ASSERT_TRUE(file.readHeader(header));
    EXPECT_TRUE(file.skipData(header));
    EXPECT_EQ(file.tell(nullptr), 1016);
    EXPECT_FALSE(file.readHeader(header));

    // A negative length would move backwards and could make a reader walk in circles.
    openBytes(file, head("LEAF", 9, -16));
    ASSERT_TRUE(file.readHeader(header));
    EXPECT_FALSE(file.skipData(header));
    EXPECT_FALSE(file.readData(header, static_cast<void*>(nullptr)));
}

// A cstr payload reads as one string up to its first NUL, or as a list split at every NUL; a
// truncated one fails and leaves either result empty.
TEST(KynFileReadTest, StringPayloads) {
    const struct {
        std::string payload, one;
        Strings list;
        bool truncated = false;  // the file ends one byte short of the payload
    } cases[] = {
        {std::string("abc\0def\0", 8), "abc", {"abc", "def"}},
        {"abc", "abc", {"abc"}},
        {std::string("\0x", 2), "", {"", "x"}},
        {"", "", {}},
        {std::string("a\0\0b", 4), "a", {"a", "", "b"}},
        {std::string("\0", 1), "", {""}},
        {std::string("\0\0", 2), "", {"", ""}},
        {std::string("abc\0", 4), "", {}, true},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::PrintToString(c.payload));
        Bytes bytes = cat({head("NAME", kTypeCstr, int64_t(c.payload.size())), raw(c.payload)});
        if (c.truncated) bytes.pop_back();
        KynFile file;
        openBytes(file, bytes);
        KynHeader header;
        ASSERT_TRUE(file.readHeader(header));
        std::string one = "stale";
        EXPECT_EQ(file.readData(header, one), !c.truncated);
        EXPECT_EQ(one, c.one);
        ASSERT_TRUE(file.seek(16, SEEK_SET, false));
        Strings list = {"stale"};
        EXPECT_EQ(file.readData(header, list), !c.truncated);
        EXPECT_EQ(list, c.list);
    }
}

class KynFileWriteTest : public ::testing::Test {
  protected:
    void SetUp() override { ASSERT_TRUE(file.open(path.c_str(), "w")); }
    Bytes finish() {
        EXPECT_TRUE(file.close());
        return readBytes(path);
    }
    std::string path = scratchPath("write.kyn");
    KynFile file;
};

// Spelled out byte by byte, so that a fault shared with the header helper cannot hide.
TEST_F(KynFileWriteTest, LiteralBytesOfAStringListAndAHeader) {
    ASSERT_TRUE(file.writeChunk(kTagNAME, {"u", "vw"}, -1, 0, 0));
    EXPECT_EQ(file.tell(nullptr), 21);
    ASSERT_TRUE(file.startGroup({kTagPOSI, kTypeFloat, 1, 3, 0, 0x0102030405060708}));
    const Bytes expected = {'N', 'A', 'M', 'E', 2,   0,   0, 0, 5, 0, 0, 0, 0, 0, 0, 0, 'u', 0, 'v',
                            'w', 0,   'P', 'O', 'S', 'I', 4, 1, 3, 0, 8, 7, 6, 5, 4, 3, 2,   1};
    EXPECT_EQ(finish(), expected);
}

// The list form keeps the placement of an empty list, and its empty entries; the typed form
// drops the placement of an empty vector.
TEST_F(KynFileWriteTest, EmptyListHonoursTheTargetButAnEmptyVectorDoesNot) {
    ASSERT_TRUE(file.writeChunk<long>(kTagNSAM, {7}, -1, 0, 0));
    ASSERT_TRUE(file.writeChunk(kTagNAME, Strings{}, 0, 0, 0));
    EXPECT_EQ(file.tell(nullptr), 24);
    ASSERT_TRUE(file.writeChunk(kTagPOSI, std::vector<float>{}, 0, 1, 3));
    EXPECT_EQ(file.tell(nullptr), 40);
    ASSERT_TRUE(file.writeChunk(kTagFORM, {"", "x", ""}, -1, 6, 2));
    EXPECT_EQ(finish(),
              cat({head("NAME", kTypeCstr, 0), le(7, 8), head("POSI", kTypeFloat, 0, 1, 3),
                   head("FORM", kTypeCstr, 4, 6, 2), raw(std::string("\0x\0\0", 4))}));
}

TEST_F(KynFileWriteTest, PlacementWriteReturnsToWhereItStarted) {
    ASSERT_TRUE(file.writeChunk<int>(kTagPCNT, {1}, -1, 0, 0));
    ASSERT_TRUE(file.writeChunk<int>(kTagPIDS, {2}, -1, 0, 0));
    ASSERT_TRUE(file.writeChunk<int>(kTagNIDS, {9}, 20, 0, 0));
    EXPECT_EQ(file.tell(nullptr), 40);
    ASSERT_TRUE(file.writeChunk<int>(kTagNCNT, {4}, -1, 0, 0));
    EXPECT_EQ(finish(), cat({head("PCNT", kTypeInt32, 4), le(1, 4), head("NIDS", kTypeInt32, 4),
                             le(9, 4), head("NCNT", kTypeInt32, 4), le(4, 4)}));
}

TEST_F(KynFileWriteTest, EndGroupPatchesTheLengthAndRestoresThePosition) {
    const KynHeader outer{kTagSAMP, kTypeGroup, 0, 0, 0, 999},
        inner{kTagSOBJ, kTypeGroup, 0, 0, 0, 7};
    ASSERT_TRUE(file.startGroup(outer));
    EXPECT_EQ(file.groupStack, std::vector<int64_t>{16});
    ASSERT_TRUE(file.writeChunk<int>(kTagPCNT, {1}, -1, 0, 0));
    ASSERT_TRUE(file.startGroup(inner));
    ASSERT_TRUE(file.endGroup());
    EXPECT_EQ(file.tell(nullptr), 52);
    ASSERT_TRUE(file.endGroup());
    EXPECT_EQ(file.tell(nullptr), 52);
    EXPECT_TRUE(file.groupStack.empty());
    EXPECT_FALSE(file.endGroup());
    ASSERT_TRUE(file.writeChunk<int>(kTagNCNT, {2}, -1, 0, 0));
    EXPECT_EQ(finish(), cat({head("SAMP", kTypeGroup, 36), head("PCNT", kTypeInt32, 4), le(1, 4),
                             head("SOBJ", kTypeGroup, 0), head("NCNT", kTypeInt32, 4), le(2, 4)}));
}

// Null data with a length lays down a reserve: a default header (a "FREE" of zeros) over bytes
// that are left as they were.
TEST(KynFileHoleTest, NullDataLeavesTheBytesUntouched) {
    std::string path = scratchPath("hole.kyn");
    writeBytes(path, Bytes(80, 0xAA));
    KynFile file;
    ASSERT_TRUE(file.open(path.c_str(), "r+"));
    KynHeader reserve;
    reserve.length = 32;
    ASSERT_TRUE(file.writeChunk(reserve, nullptr, -1));
    EXPECT_EQ(file.tell(nullptr), 48);
    ASSERT_TRUE(file.writeChunk<int>(kTagPCNT, {1}, -1, 0, 0));
    ASSERT_TRUE(file.close());
    EXPECT_EQ(readBytes(path), cat({head("FREE", 0, 32), Bytes(32, 0xAA),
                                    head("PCNT", kTypeInt32, 4), le(1, 4), Bytes(12, 0xAA)}));
}

TEST(KynFileTest, IsKynFileLooksAtTheFirstHeaderOnly) {
    EXPECT_FALSE(KynFile::isKynFile(nullptr));
    std::string path = scratchPath("magic.kyn");
    EXPECT_FALSE(KynFile::isKynFile(path.c_str()));
    const Bytes magic = head("DKYN", kTypeInt64, 8);
    const std::pair<Bytes, bool> cases[] = {{Bytes(magic.begin(), magic.begin() + 10), false},
                                            {magic, true},
                                            {head("DKYN", kTypeGroup, -5), true},
                                            {head("DKYX", kTypeInt64, 8), false}};
    for (const auto& [bytes, expected] : cases) {
        writeBytes(path, bytes);
        EXPECT_EQ(KynFile::isKynFile(path.c_str()), expected) << testing::PrintToString(bytes);
    }
}

TEST(KynFileTest, WithoutAStreamEverythingFailsAndReopeningEmptiesTheStack) {
    KynFile file;
    bool ok = true;
    EXPECT_EQ(file.tell(&ok), -1);
    EXPECT_FALSE(ok);
    KynHeader header;
    EXPECT_FALSE(file.seek(0, SEEK_SET, false) || file.readHeader(header) ||
                 file.skipData(header) || file.writeChunk(header, nullptr, -1) ||
                 file.startGroup(header) || file.endGroup() || file.canRead(0));
    EXPECT_TRUE(file.close());

    std::string path = scratchPath("reopen.kyn");
    writeBytes(path, cat({head("GRUP", kTypeGroup, 16), head("LEAF", kTypeInt32, 0)}));
    ASSERT_TRUE(file.open(path.c_str(), "r"));
    ASSERT_TRUE(file.readHeader(header));
    ASSERT_EQ(file.groupStack.size(), 1u);
    ASSERT_TRUE(file.open(path.c_str(), "r"));
    EXPECT_TRUE(file.groupStack.empty());
    EXPECT_EQ(file.tell(nullptr), 0);
}

// Readers ask canRead before they size a buffer by a length taken from the file.
TEST(KynFileTest, CanReadRefusesWhatTheFileCannotHoldAndTwoGibibytes) {
    std::string path = scratchPath("can_read.kyn");
    writeBytes(path, Bytes(100, 0));
    KynFile file;
    ASSERT_TRUE(file.open(path.c_str(), "r"));
    EXPECT_TRUE(file.canRead(100));
    for (int64_t length : {int64_t(101), int64_t(-1), INT64_MAX, INT64_MIN})
        EXPECT_FALSE(file.canRead(length)) << length;
    ASSERT_TRUE(file.seek(60, SEEK_SET, false));
    EXPECT_TRUE(file.canRead(40));
    EXPECT_FALSE(file.canRead(41));
    ASSERT_TRUE(file.seek(200, SEEK_SET, false));
    EXPECT_FALSE(file.canRead(1));

    ASSERT_EQ(truncate(path.c_str(), (int64_t(1) << 31) + 16), 0);  // sparse
    ASSERT_TRUE(file.open(path.c_str(), "r"));
    EXPECT_TRUE(file.canRead(int64_t(INT32_MAX)));
    EXPECT_FALSE(file.canRead(int64_t(1) << 31));
    ASSERT_TRUE(file.close());
    std::remove(path.c_str());
}

}  // namespace
