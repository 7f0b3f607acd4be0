// The chunk stream: header bytes, the open-group stack while reading, string payloads, and the
// write forms with their placement and group-length rules.
#include <gtest/gtest.h>
#include <sys/stat.h>
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

// A file holding `bytes`, opened for reading.
void openBytes(KynFile& file, const Bytes& bytes, const std::string& name) {
    std::string path = scratchPath(name);
    writeBytes(path, bytes);
    ASSERT_TRUE(file.open(path.c_str(), "r"));
}

Bytes slice(const Bytes& bytes, std::size_t offset, std::size_t count) {
    return Bytes(bytes.begin() + offset, bytes.begin() + offset + count);
}

Bytes chunkBytes(const char* tag, unsigned char type, const std::string& payload) {
    Bytes bytes;
    appendHeader(bytes, tag, type, int64_t(payload.size()));
    bytes.insert(bytes.end(), payload.begin(), payload.end());
    return bytes;
}

TEST(KynHeaderTest, DefaultIsAFreeHeaderOfZeros) {
    EXPECT_EQ(kTagFREE, 0x45455246u);
    EXPECT_EQ(kTagMETA, 0x4154454Du);
    KynHeader header;
    EXPECT_EQ(header.tag, kTagFREE);
    EXPECT_EQ(header.type, 0);
    EXPECT_EQ(header.compound, 0);
    EXPECT_EQ(header.dimension, 0);
    EXPECT_EQ(header.reserved, 0);
    EXPECT_EQ(header.length, 0);
}

TEST(KynHeaderTest, WritesAsOneRawBlock) {
    std::string path = scratchPath("header.kyn");
    KynFile file;
    ASSERT_TRUE(file.open(path.c_str(), "w"));
    KynHeader header;
    header.tag = kTagPOSI;
    header.type = kTypeFloat;
    header.compound = 1;
    header.dimension = 3;
    header.length = 0x0102030405060708;
    ASSERT_TRUE(file.startGroup(header));
    ASSERT_TRUE(file.close());
    Bytes expected = {'P', 'O', 'S', 'I', 4, 1, 3, 0, 8, 7, 6, 5, 4, 3, 2, 1};
    EXPECT_EQ(readBytes(path), expected);
}

// While reading, the stack holds the end offsets of open groups; a group closes when the position
// lands exactly on its end.
TEST(KynFileReadTest, ZeroLengthLeafClosesTwoGroupsAtItsHeader) {
    Bytes bytes;
    appendHeader(bytes, "OUTR", kTypeGroup, 32);
    appendHeader(bytes, "INNR", kTypeGroup, 16);
    appendHeader(bytes, "LEAF", kTypeInt32, 0);
    KynFile file;
    openBytes(file, bytes, "nested_empty_leaf.kyn");
    KynHeader header;
    ASSERT_TRUE(file.readHeader(header));
    EXPECT_EQ(file.groupStack, std::vector<int64_t>{48});
    ASSERT_TRUE(file.readHeader(header));
    EXPECT_EQ(file.groupStack, (std::vector<int64_t>{48, 48}));
    ASSERT_TRUE(file.readHeader(header));
    EXPECT_EQ(header.tag, kynTag("LEAF"));
    EXPECT_TRUE(file.groupStack.empty());
    EXPECT_FALSE(file.readHeader(header));
}

TEST(KynFileReadTest, NestedGroupEndingWithItsParentPopsBoth) {
    Bytes bytes;
    appendHeader(bytes, "OUTR", kTypeGroup, 56);
    appendHeader(bytes, "LEAF", kTypeInt32, 4);
    appendLE(bytes, 1, 4);
    appendHeader(bytes, "INNR", kTypeGroup, 20);
    appendHeader(bytes, "LEAF", kTypeInt32, 4);
    appendLE(bytes, 2, 4);
    KynFile file;
    openBytes(file, bytes, "nested_same_end.kyn");
    KynHeader header;
    int value = 0;
    ASSERT_TRUE(file.readHeader(header));
    ASSERT_TRUE(file.readHeader(header));
    ASSERT_TRUE(file.readData(header, &value));
    EXPECT_EQ(file.groupStack.size(), 1u);
    ASSERT_TRUE(file.readHeader(header));
    ASSERT_TRUE(file.readHeader(header));
    EXPECT_EQ(file.groupStack.size(), 2u);
    ASSERT_TRUE(file.readData(header, &value));
    EXPECT_EQ(value, 2);
    EXPECT_TRUE(file.groupStack.empty());
}

TEST(KynFileReadTest, EmptyGroupPushesNothing) {
    Bytes bytes;
    appendHeader(bytes, "OUTR", kTypeGroup, 36);
    appendHeader(bytes, "EMPT", kTypeGroup, 0);
    appendHeader(bytes, "LEAF", kTypeInt32, 4);
    appendLE(bytes, 3, 4);
    KynFile file;
    openBytes(file, bytes, "empty_group.kyn");
    KynHeader header;
    ASSERT_TRUE(file.readHeader(header));
    ASSERT_TRUE(file.readHeader(header));
    EXPECT_EQ(header.tag, kynTag("EMPT"));
    EXPECT_EQ(file.groupStack, std::vector<int64_t>{52});
    ASSERT_TRUE(file.readHeader(header));
    ASSERT_TRUE(file.skipData(header));
    EXPECT_TRUE(file.groupStack.empty());
}

TEST(KynFileReadTest, OverrunGroupEndClosesNothing) {
    Bytes bytes;
    appendHeader(bytes, "OUTR", kTypeGroup, 8);
    appendHeader(bytes, "LEAF", kTypeInt32, 4);
    appendLE(bytes, 4, 4);
    KynFile file;
    openBytes(file, bytes, "short_group.kyn");
    KynHeader header;
    ASSERT_TRUE(file.readHeader(header));
    ASSERT_TRUE(file.readHeader(header));
    ASSERT_TRUE(file.skipData(header));
    EXPECT_EQ(file.groupStack, std::vector<int64_t>{24});
}

TEST(KynFileReadTest, SkippingAGroupHeaderPassesTheWholeGroup) {
    Bytes bytes;
    appendHeader(bytes, "GRUP", kTypeGroup, 20);
    appendHeader(bytes, "LEAF", kTypeInt32, 4);
    appendLE(bytes, 5, 4);
    appendHeader(bytes, "NEXT", kTypeInt32, 0);
    KynFile file;
    openBytes(file, bytes, "skip_group.kyn");
    KynHeader header;
    ASSERT_TRUE(file.readHeader(header));
    ASSERT_TRUE(file.skipData(header));
    EXPECT_TRUE(file.groupStack.empty());
    ASSERT_TRUE(file.readHeader(header));
    EXPECT_EQ(header.tag, kynTag("NEXT"));
}

TEST(KynFileReadTest, TruncationFailsAndLeavesTheStack) {
    Bytes bytes;
    appendHeader(bytes, "GRUP", kTypeGroup, 24);
    appendHeader(bytes, "LEAF", kTypeInt64, 8);
    appendLE(bytes, 6, 4);
    KynFile file;
    openBytes(file, bytes, "truncated.kyn");
    KynHeader header;
    ASSERT_TRUE(file.readHeader(header));
    ASSERT_TRUE(file.readHeader(header));
    int64_t value = 0;
    EXPECT_FALSE(file.readData(header, &value));
    EXPECT_EQ(file.groupStack.size(), 1u);
    EXPECT_FALSE(file.readHeader(header));
    EXPECT_EQ(file.groupStack.size(), 1u);
    EXPECT_TRUE(file.close());
    EXPECT_TRUE(file.groupStack.empty());
}

TEST(KynFileReadTest, SkipPastTheEndSucceedsAndTheNextHeaderFails) {
    Bytes bytes;
    appendHeader(bytes, "LEAF", kTypeUndef, 1000);
    KynFile file;
    openBytes(file, bytes, "skip_past_end.kyn");
    KynHeader header;
    ASSERT_TRUE(file.readHeader(header));
    EXPECT_TRUE(file.skipData(header));
    EXPECT_EQ(file.tell(nullptr), 1016);
    EXPECT_FALSE(file.readHeader(header));
}

// A negative length would move the stream backwards and could make a reader walk in circles.
TEST(KynFileReadTest, NegativeLengthIsNotSkipped) {
    Bytes bytes;
    appendHeader(bytes, "LEAF", 9, -16);
    KynFile file;
    openBytes(file, bytes, "negative_skip.kyn");
    KynHeader header;
    ASSERT_TRUE(file.readHeader(header));
    EXPECT_FALSE(file.skipData(header));
    EXPECT_FALSE(file.readData(header, static_cast<void*>(nullptr)));
}

// The payload of a cstr chunk: one string up to its first NUL, or a list split at every NUL.
class KynFileStringTest : public ::testing::Test {
  protected:
    std::vector<std::string> readList(const std::string& payload) {
        KynFile file;
        openBytes(file, chunkBytes("NAME", kTypeCstr, payload), "list.kyn");
        KynHeader header;
        std::vector<std::string> values = {"stale"};
        EXPECT_TRUE(file.readHeader(header));
        EXPECT_TRUE(file.readData(header, values));
        return values;
    }
    std::string readString(const std::string& payload) {
        KynFile file;
        openBytes(file, chunkBytes("NAME", kTypeCstr, payload), "string.kyn");
        KynHeader header;
        std::string value = "stale";
        EXPECT_TRUE(file.readHeader(header));
        EXPECT_TRUE(file.readData(header, value));
        return value;
    }
};

TEST_F(KynFileStringTest, OneStringStopsAtTheFirstNul) {
    EXPECT_EQ(readString(std::string("abc\0def\0", 8)), "abc");
    EXPECT_EQ(readString("abc"), "abc");
    EXPECT_EQ(readString(std::string("\0x", 2)), "");
    EXPECT_EQ(readString(""), "");
}

TEST_F(KynFileStringTest, ListSplitsAtEveryNul) {
    using List = std::vector<std::string>;
    EXPECT_EQ(readList(std::string("a\0b\0", 4)), (List{"a", "b"}));
    EXPECT_EQ(readList(std::string("a\0\0b", 4)), (List{"a", "", "b"}));
    EXPECT_EQ(readList(std::string("\0", 1)), (List{""}));
    EXPECT_EQ(readList(std::string("\0\0", 2)), (List{"", ""}));
    EXPECT_EQ(readList("a"), (List{"a"}));
    EXPECT_EQ(readList(""), List{});
}

TEST_F(KynFileStringTest, TruncatedPayloadLeavesTheResultEmpty) {
    Bytes bytes = chunkBytes("NAME", kTypeCstr, std::string("abc\0", 4));
    bytes.resize(bytes.size() - 1);
    KynFile file;
    openBytes(file, bytes, "truncated_string.kyn");
    KynHeader header;
    ASSERT_TRUE(file.readHeader(header));
    std::vector<std::string> values = {"stale"};
    EXPECT_FALSE(file.readData(header, values));
    EXPECT_TRUE(values.empty());
    ASSERT_TRUE(file.seek(0, SEEK_SET, true));
    ASSERT_TRUE(file.readHeader(header));
    std::string value = "stale";
    EXPECT_FALSE(file.readData(header, value));
    EXPECT_TRUE(value.empty());
}

class KynFileWriteTest : public ::testing::Test {
  protected:
    void SetUp() override {
        path = scratchPath("write.kyn");
        ASSERT_TRUE(file.open(path.c_str(), "w"));
    }
    Bytes finish() {
        EXPECT_TRUE(file.close());
        return readBytes(path);
    }
    std::string path;
    KynFile file;
};

TEST_F(KynFileWriteTest, StringListLayout) {
    ASSERT_TRUE(file.writeChunk(kTagNAME, {"u", "vw"}, -1, 0, 0));
    EXPECT_EQ(file.tell(nullptr), 21);
    Bytes expected = {0x4E, 0x41, 0x4D, 0x45, 0x02, 0x00, 0x00, 0x00, 0x05, 0x00, 0x00,
                      0x00, 0x00, 0x00, 0x00, 0x00, 0x75, 0x00, 0x76, 0x77, 0x00};
    EXPECT_EQ(finish(), expected);
}

TEST_F(KynFileWriteTest, StringListKeepsEmptyEntriesAndCodes) {
    ASSERT_TRUE(file.writeChunk(kTagFORM, {"", "x", ""}, -1, 6, 2));
    Bytes expected;
    appendHeader(expected, "FORM", kTypeCstr, 4, 6, 2);
    expected.insert(expected.end(), {0, 'x', 0, 0});
    EXPECT_EQ(finish(), expected);
}

// The list form keeps the placement of an empty list; the typed form drops it.
TEST_F(KynFileWriteTest, EmptyListHonoursTheTargetButAnEmptyVectorDoesNot) {
    ASSERT_TRUE(file.writeChunk<long>(kTagNSAM, {7}, -1, 0, 0));
    ASSERT_TRUE(file.writeChunk(kTagNAME, std::vector<std::string>{}, 0, 0, 0));
    EXPECT_EQ(file.tell(nullptr), 24);
    ASSERT_TRUE(file.writeChunk(kTagPOSI, std::vector<float>{}, 0, 1, 3));
    EXPECT_EQ(file.tell(nullptr), 40);
    Bytes expected;
    appendHeader(expected, "NAME", kTypeCstr, 0);
    appendLE(expected, 7, 8);
    appendHeader(expected, "POSI", kTypeFloat, 0, 1, 3);
    EXPECT_EQ(finish(), expected);
}

TEST_F(KynFileWriteTest, TypedVectorLayout) {
    ASSERT_TRUE(file.writeChunk<int>(kTagPCNT, {3, -1}, -1, 0, 1));
    ASSERT_TRUE(file.writeChunk<double>(kTagMTRX, {0.5}, -1, 4, 16));
    Bytes expected;
    appendHeader(expected, "PCNT", kTypeInt32, 8, 0, 1);
    appendLE(expected, 3, 4);
    appendLE(expected, -1, 4);
    appendHeader(expected, "MTRX", kTypeDouble, 8, 4, 16);
    appendLE(expected, 0x3FE0000000000000, 8);
    EXPECT_EQ(finish(), expected);
}

TEST_F(KynFileWriteTest, PlacementWriteReturnsToWhereItStarted) {
    ASSERT_TRUE(file.writeChunk<int>(kTagPCNT, {1}, -1, 0, 0));
    ASSERT_TRUE(file.writeChunk<int>(kTagPIDS, {2}, -1, 0, 0));
    ASSERT_TRUE(file.writeChunk<int>(kTagNIDS, {9}, 20, 0, 0));
    EXPECT_EQ(file.tell(nullptr), 40);
    ASSERT_TRUE(file.writeChunk<int>(kTagNCNT, {4}, -1, 0, 0));
    Bytes bytes = finish();
    ASSERT_EQ(bytes.size(), 60u);
    EXPECT_EQ(readLE(bytes, 20, 4), int64_t(kTagNIDS));
    EXPECT_EQ(readLE(bytes, 36, 4), 9);
    EXPECT_EQ(readLE(bytes, 40, 4), int64_t(kTagNCNT));
}

// Null data with a length lays down a reserve: the bytes under it are not written.
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
    Bytes bytes = readBytes(path);
    ASSERT_EQ(bytes.size(), 80u);
    EXPECT_EQ(readLE(bytes, 0, 4), int64_t(kTagFREE));
    EXPECT_EQ(readLE(bytes, 8, 8), 32);
    EXPECT_EQ(slice(bytes, 16, 32), Bytes(32, 0xAA));
    EXPECT_EQ(readLE(bytes, 48, 4), int64_t(kTagPCNT));
}

TEST_F(KynFileWriteTest, EndGroupPatchesTheLengthAndRestoresThePosition) {
    KynHeader outer;
    outer.tag = kTagSAMP;
    outer.type = kTypeGroup;
    outer.length = 999;
    KynHeader inner = outer;
    inner.tag = kTagSOBJ;
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
    Bytes bytes = finish();
    ASSERT_EQ(bytes.size(), 72u);
    EXPECT_EQ(readLE(bytes, 8, 8), 36);
    EXPECT_EQ(readLE(bytes, 36, 4), int64_t(kTagSOBJ));
    EXPECT_EQ(readLE(bytes, 44, 8), 0);
    EXPECT_EQ(readLE(bytes, 52, 4), int64_t(kTagNCNT));
}

TEST(KynFileTest, IsKynFileLooksAtTheFirstHeaderOnly) {
    EXPECT_FALSE(KynFile::isKynFile(nullptr));
    EXPECT_FALSE(KynFile::isKynFile(scratchPath("missing.kyn").c_str()));

    Bytes header;
    appendHeader(header, "DKYN", kTypeInt64, 8);
    std::string path = scratchPath("magic.kyn");
    writeBytes(path, slice(header, 0, 10));
    EXPECT_FALSE(KynFile::isKynFile(path.c_str()));
    writeBytes(path, header);
    EXPECT_TRUE(KynFile::isKynFile(path.c_str()));

    Bytes odd;
    appendHeader(odd, "DKYN", kTypeGroup, -5);
    writeBytes(path, odd);
    EXPECT_TRUE(KynFile::isKynFile(path.c_str()));
    odd[3] = 'X';
    writeBytes(path, odd);
    EXPECT_FALSE(KynFile::isKynFile(path.c_str()));
}

TEST(KynFileTest, WithoutAStreamEverythingFails) {
    KynFile file;
    bool ok = true;
    EXPECT_EQ(file.tell(&ok), -1);
    EXPECT_FALSE(ok);
    EXPECT_EQ(file.tell(nullptr), -1);
    KynHeader header;
    EXPECT_FALSE(file.seek(0, SEEK_SET, false));
    EXPECT_FALSE(file.readHeader(header));
    EXPECT_FALSE(file.skipData(header));
    EXPECT_FALSE(file.writeChunk(header, nullptr, -1));
    EXPECT_FALSE(file.startGroup(header));
    EXPECT_FALSE(file.endGroup());
    EXPECT_FALSE(file.canRead(0));
    EXPECT_TRUE(file.close());
}

TEST(KynFileTest, OpenAgainStartsWithAnEmptyStack) {
    Bytes bytes;
    appendHeader(bytes, "GRUP", kTypeGroup, 16);
    appendHeader(bytes, "LEAF", kTypeInt32, 0);
    std::string path = scratchPath("reopen.kyn");
    writeBytes(path, bytes);
    KynFile file;
    ASSERT_TRUE(file.open(path.c_str(), "r"));
    KynHeader header;
    ASSERT_TRUE(file.readHeader(header));
    ASSERT_EQ(file.groupStack.size(), 1u);
    ASSERT_TRUE(file.open(path.c_str(), "r"));
    EXPECT_TRUE(file.groupStack.empty());
    EXPECT_EQ(file.tell(nullptr), 0);
}

// Readers ask canRead before they size a buffer by a length taken from the file.
TEST(KynFileTest, CanReadRefusesWhatTheFileCannotHold) {
    std::string path = scratchPath("can_read.kyn");
    writeBytes(path, Bytes(100, 0));
    KynFile file;
    ASSERT_TRUE(file.open(path.c_str(), "r"));
    EXPECT_TRUE(file.canRead(100));
    EXPECT_FALSE(file.canRead(101));
    EXPECT_FALSE(file.canRead(-1));
    EXPECT_FALSE(file.canRead(INT64_MAX));
    EXPECT_FALSE(file.canRead(INT64_MIN));
    ASSERT_TRUE(file.seek(60, SEEK_SET, false));
    EXPECT_TRUE(file.canRead(40));
    EXPECT_FALSE(file.canRead(41));
    ASSERT_TRUE(file.seek(200, SEEK_SET, false));
    EXPECT_FALSE(file.canRead(1));
}

TEST(KynFileTest, CanReadRefusesPayloadsOfTwoGibibytes) {
    std::string path = scratchPath("sparse.kyn");
    writeBytes(path, Bytes(1, 0));
    ASSERT_EQ(truncate(path.c_str(), (int64_t(1) << 31) + 16), 0);
    KynFile file;
    ASSERT_TRUE(file.open(path.c_str(), "r"));
    EXPECT_TRUE(file.canRead(int64_t(INT32_MAX)));
    EXPECT_FALSE(file.canRead(int64_t(1) << 31));
    ASSERT_TRUE(file.close());
    std::remove(path.c_str());
}

}  // namespace
