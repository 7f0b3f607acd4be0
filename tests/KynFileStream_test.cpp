// The buffered stream under KynFile, seen through KynFile: whatever the pattern of reads (small
// and sequential, alternating between distant places, large, across the end of the file) and
// however reads and writes mix on one stream, every read returns the bytes that the file holds.
#include <gtest/gtest.h>

#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include "KynFile.h"
#include "TestFiles.h"

using namespace Kyn;
using namespace kyntest_support;

namespace {

using Bytes = std::vector<unsigned char>;

constexpr std::size_t kFileSize = 3 * 1024 * 1024 + 123;

unsigned char patternAt(std::size_t offset) {
    return static_cast<unsigned char>((offset * 2654435761u) >> 13);
}

bool matchesPattern(const Bytes& bytes, std::size_t offset) {
    for (std::size_t i = 0; i < bytes.size(); ++i)
        if (bytes[i] != patternAt(offset + i)) return false;
    return true;
}

class KynFileStreamTest : public ::testing::Test {
  protected:
    void SetUp() override {
        Bytes bytes(kFileSize);
        for (std::size_t i = 0; i < kFileSize; ++i) bytes[i] = patternAt(i);
        writeBytes(path, bytes);
    }
    // Reads `count` bytes at `offset` through KynFile's raw payload read.
    bool readAt(std::size_t offset, std::size_t count) {
        got.assign(count, 0);
        KynHeader header;
        header.length = int64_t(count);
        return file.seek(int64_t(offset), SEEK_SET, true) && file.readData(header, got.data());
    }
    bool readsPattern(std::size_t offset, std::size_t count) {
        return readAt(offset, count) && matchesPattern(got, offset);
    }
    std::string path = scratchPath("pattern.bin");
    KynFile file;
    Bytes got;
};

TEST_F(KynFileStreamTest, SequentialReadsWalkTheWholeFileUpToTheEnd) {
    ASSERT_TRUE(file.open(path.c_str(), "r"));
    KynHeader header;
    header.length = 16;
    Bytes piece(16);
    for (std::size_t offset = 0; offset + 16 <= kFileSize; offset += 16) {
        ASSERT_TRUE(file.readData(header, piece.data())) << offset;
        ASSERT_TRUE(matchesPattern(piece, offset)) << offset;
    }
    EXPECT_FALSE(file.readData(header, piece.data()));  // only the last 3 bytes are left

    EXPECT_TRUE(readsPattern(kFileSize - 200000, 200000));
    EXPECT_TRUE(readsPattern(kFileSize - 10, 10));
    EXPECT_FALSE(readAt(kFileSize - 10, 11));
    EXPECT_FALSE(readAt(kFileSize, 1));
    EXPECT_FALSE(readAt(kFileSize + 5000, 1));
    EXPECT_TRUE(readsPattern(0, 16));
}

TEST_F(KynFileStreamTest, ScatteredReadsSeeTheirOwnBytes) {
    ASSERT_TRUE(file.open(path.c_str(), "r"));
    // Six places, more than the stream holds blocks for, each walked forward in steps that skip
    // most of the bytes between them.
    for (std::size_t step = 0; step < 400; ++step)
        for (std::size_t place = 0; place < 6; ++place)
            ASSERT_TRUE(readsPattern(place * 500000 + step * 1300, 96)) << place << " " << step;

    std::mt19937 random(7);
    for (int n = 0; n < 3000; ++n) {
        const bool large = random() % 10 == 0;
        const std::size_t count = 1 + random() % (large ? 400000 : 300);
        const std::size_t offset = random() % kFileSize;
        const bool inside = offset + count <= kFileSize;
        ASSERT_EQ(readAt(offset, count), inside) << offset << " " << count;
        ASSERT_TRUE(!inside || matchesPattern(got, offset)) << offset << " " << count;
    }
}

// Bytes read ahead of a write must not outlive it: near, inside and far from the block, and
// past the end of the file, where the gap reads as zeros.
TEST_F(KynFileStreamTest, ReadsSeeWhatWasWrittenBeforeThem) {
    ASSERT_TRUE(file.open(path.c_str(), "r+"));
    ASSERT_TRUE(readAt(1000, 64));
    const KynHeader header{kTagPOSI, kTypeFloat, 0, 0, 0, 8};
    const float values[2] = {1.5f, -2.0f};
    ASSERT_TRUE(file.writeChunk(header, values, 1032));
    Bytes expected;
    appendHeader(expected, "POSI", kTypeFloat, 8);
    const auto* raw = reinterpret_cast<const unsigned char*>(values);
    expected.insert(expected.end(), raw, raw + sizeof(values));
    ASSERT_TRUE(readAt(1032, 24));
    EXPECT_EQ(got, expected);
    EXPECT_TRUE(readsPattern(1000, 32));

    // A write at the current position, then a read of the same place and one of another.
    ASSERT_TRUE(file.seek(2000000, SEEK_SET, true));
    ASSERT_TRUE(file.writeChunk(header, values, -1));
    ASSERT_TRUE(readAt(2000000, 24));
    EXPECT_EQ(got, expected);
    ASSERT_TRUE(readAt(1032, 24));
    EXPECT_EQ(got, expected);

    ASSERT_TRUE(readAt(kFileSize - 100, 100));
    const int value = 77;
    ASSERT_TRUE(file.writeChunk({kTagFREE, 0, 0, 0, 0, 4}, &value, int64_t(kFileSize) + 1000));
    EXPECT_TRUE(readsPattern(kFileSize - 100, 100));
    ASSERT_TRUE(readAt(kFileSize, 1000));
    EXPECT_EQ(got, Bytes(1000, 0));
    ASSERT_TRUE(readAt(kFileSize + 1016, 4));
    EXPECT_EQ(readLE(got, 0, 4), 77);
    ASSERT_TRUE(file.close());

    Bytes bytes = readBytes(path);
    ASSERT_EQ(bytes.size(), kFileSize + 1020);
    EXPECT_EQ(Bytes(bytes.begin() + 2000000, bytes.begin() + 2000024), expected);
}

}  // namespace
