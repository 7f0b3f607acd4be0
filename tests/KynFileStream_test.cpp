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

Bytes pattern(std::size_t size) {
    Bytes bytes(size);
    for (std::size_t i = 0; i < size; ++i) bytes[i] = patternAt(i);
    return bytes;
}

// Reads `count` bytes at `offset` through KynFile's raw payload read.
bool readAt(KynFile& file, int64_t offset, std::size_t count, Bytes& out) {
    out.assign(count, 0);
    KynHeader h;
    h.length = int64_t(count);
    return file.seek(offset, SEEK_SET, true) && file.readData(h, out.data());
}

bool matchesPattern(const Bytes& bytes, std::size_t offset) {
    for (std::size_t i = 0; i < bytes.size(); ++i)
        if (bytes[i] != patternAt(offset + i)) return false;
    return true;
}

class KynFileStreamTest : public ::testing::Test {
  protected:
    void SetUp() override {
        path = scratchPath("pattern.bin");
        writeBytes(path, pattern(kFileSize));
    }
    std::string path;
    KynFile file;
    Bytes got;
};

}  // namespace

TEST_F(KynFileStreamTest, SmallSequentialReadsWalkTheWholeFile) {
    ASSERT_TRUE(file.open(path.c_str(), "r"));
    KynHeader h;
    h.length = 16;
    Bytes piece(16);
    std::size_t offset = 0;
    for (; offset + 16 <= kFileSize; offset += 16) {
        ASSERT_TRUE(file.readData(h, piece.data())) << offset;
        ASSERT_TRUE(matchesPattern(piece, offset)) << offset;
    }
    EXPECT_FALSE(file.readData(h, piece.data()));  // only the last 3 bytes are left
}

TEST_F(KynFileStreamTest, ReadsThatAlternateBetweenPlacesSeeTheirOwnBytes) {
    ASSERT_TRUE(file.open(path.c_str(), "r"));
    // Six places, more than the stream holds blocks for, each walked forward in steps that
    // skip most of the bytes between them.
    const std::size_t places = 6;
    for (std::size_t step = 0; step < 400; ++step) {
        for (std::size_t place = 0; place < places; ++place) {
            const std::size_t offset = place * 500000 + step * 1300;
            ASSERT_TRUE(readAt(file, int64_t(offset), 96, got));
            ASSERT_TRUE(matchesPattern(got, offset)) << place << " " << step;
        }
    }
}

TEST_F(KynFileStreamTest, RandomReadsOfAnySizeMatchTheFile) {
    ASSERT_TRUE(file.open(path.c_str(), "r"));
    std::mt19937 random(7);
    for (int n = 0; n < 3000; ++n) {
        const bool large = random() % 10 == 0;
        const std::size_t count = 1 + random() % (large ? 400000 : 300);
        const std::size_t offset = random() % kFileSize;
        const bool inside = offset + count <= kFileSize;
        ASSERT_EQ(readAt(file, int64_t(offset), count, got), inside) << offset << " " << count;
        if (inside) {
            ASSERT_TRUE(matchesPattern(got, offset)) << offset << " " << count;
        }
    }
}

TEST_F(KynFileStreamTest, ReadsUpToTheEndAndPastIt) {
    ASSERT_TRUE(file.open(path.c_str(), "r"));
    ASSERT_TRUE(readAt(file, kFileSize - 200000, 200000, got));
    EXPECT_TRUE(matchesPattern(got, kFileSize - 200000));
    ASSERT_TRUE(readAt(file, kFileSize - 10, 10, got));
    EXPECT_TRUE(matchesPattern(got, kFileSize - 10));
    EXPECT_FALSE(readAt(file, kFileSize - 10, 11, got));
    EXPECT_FALSE(readAt(file, kFileSize, 1, got));
    EXPECT_FALSE(readAt(file, kFileSize + 5000, 1, got));
    ASSERT_TRUE(readAt(file, 0, 16, got));
    EXPECT_TRUE(matchesPattern(got, 0));
}

TEST_F(KynFileStreamTest, ReadsSeeWhatWasWrittenBeforeThem) {
    ASSERT_TRUE(file.open(path.c_str(), "r+"));
    // Bytes read ahead of a write must not outlive it: near, inside and far from the block.
    ASSERT_TRUE(readAt(file, 1000, 64, got));
    KynHeader h;
    h.tag = kTagPOSI;
    h.type = kTypeFloat;
    h.length = 8;
    const float values[2] = {1.5f, -2.0f};
    ASSERT_TRUE(file.writeChunk(h, values, 1032));
    ASSERT_TRUE(readAt(file, 1032, 24, got));
    Bytes expected;
    appendHeader(expected, "POSI", kTypeFloat, 8);
    const auto* raw = reinterpret_cast<const unsigned char*>(values);
    expected.insert(expected.end(), raw, raw + sizeof(values));
    EXPECT_EQ(got, expected);
    ASSERT_TRUE(readAt(file, 1000, 32, got));
    EXPECT_TRUE(matchesPattern(got, 1000));

    // A write at the current position, then a read of the same place and one of another.
    ASSERT_TRUE(file.seek(2000000, SEEK_SET, true));
    ASSERT_TRUE(file.writeChunk(h, values, -1));
    ASSERT_TRUE(readAt(file, 2000000, 24, got));
    EXPECT_EQ(got, expected);
    ASSERT_TRUE(readAt(file, 1032, 24, got));
    EXPECT_EQ(got, expected);
    ASSERT_TRUE(file.close());

    Bytes bytes = readBytes(path);
    ASSERT_EQ(bytes.size(), kFileSize);
    EXPECT_EQ(Bytes(bytes.begin() + 2000000, bytes.begin() + 2000024), expected);
}

TEST_F(KynFileStreamTest, WritesPastTheEndLeaveAHoleThatReadsAsZeros) {
    ASSERT_TRUE(file.open(path.c_str(), "r+"));
    ASSERT_TRUE(readAt(file, kFileSize - 100, 100, got));
    KynHeader h;
    h.length = 4;
    const int value = 77;
    ASSERT_TRUE(file.writeChunk(h, &value, int64_t(kFileSize) + 1000));
    ASSERT_TRUE(readAt(file, kFileSize - 100, 100, got));
    EXPECT_TRUE(matchesPattern(got, kFileSize - 100));
    ASSERT_TRUE(readAt(file, kFileSize, 1000, got));
    EXPECT_EQ(got, Bytes(1000, 0));
    ASSERT_TRUE(readAt(file, kFileSize + 1016, 4, got));
    EXPECT_EQ(readLE(got, 0, 4), 77);
}
