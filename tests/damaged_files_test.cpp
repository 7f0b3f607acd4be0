// Robustness on damaged files: real cache files cut at every byte, with every length field set to
// extreme values, and with every byte overwritten, each dumped with kyn2txt and read as a whole
// chunk tree; and a file nested far deeper than any reader accepts. Every answer must be a plain
// success or failure, and no allocation may be sized by a length the file cannot hold: the
// allocation guard stops the run at any single request over 64 MiB.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <new>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "AllocationGuard.h"
#include "KynChunks.h"
#include "TestFiles.h"
#include "kynUtils.h"

using namespace Kyn;
using namespace kyntest_support;

namespace {

using Bytes = std::vector<unsigned char>;

// Reads a file the way a loader does: the magic chunk, the metadata, then every top-level chunk
// through the generic classes, up to the last byte. What was read, whole or not, is printed and
// measured too, since damaged codes and uneven attribute tables reach those paths.
bool readWholeTree(const std::string& path) {
    KynFile file;
    KynHeader header;
    if (!file.open(path.c_str(), "r") || !file.readHeader(header)) return false;
    KynDKYNChunk dkyn;
    if (!dkyn.read(header, file) || !file.readHeader(header)) return false;
    std::ostringstream text;
    KynMETAChunk meta;
    bool ok = meta.read(header, file);
    meta.print(text, 0) << meta.getLength();
    while (ok && file.canRead(1)) {
        ok = file.readHeader(header);
        if (!ok) break;
        std::unique_ptr<KynChunk> chunk(KynChunk::create(header.tag, header.type));
        ok = chunk->read(header, file);
        chunk->print(text, 0) << chunk->getLength();
    }
    return ok;
}

// A file whose object carries a static and an animated attribute, the animated value in the
// sample's "ATRS" group, with non-uniform times.
void writeAttributeFile(const std::string& path) {
    KynFile file;
    ASSERT_TRUE(file.open(path.c_str(), "w"));
    ASSERT_TRUE(KynDKYNChunk().write(file));
    KynMETAChunk meta;
    meta.application = "app";
    meta.sourceFile = "scene";
    meta.date = 1400000000;
    meta.numSamples = 1;
    meta.firstTime = meta.lastTime = 1;
    meta.rate = 0;
    KynDOBJChunk* object = meta.addDOBJ("|obj");
    object->datr = new KynDATRChunk();
    int weight = object->datr->addAttr(false, "weight", "double", kTypeDouble, 0, 1);
    static_cast<KynLeafChunk<double>*>(object->datr->getStaticData(weight))->data = {0.5};
    object->datr->addAttr(true, "tags", "strings", kTypeCstr, 0, 0);
    object->children.push_back(new KynLeafChunk<int>(kTagPCNT, {3}));
    ASSERT_TRUE(meta.write(file));
    KynSAMSChunk sams;
    ASSERT_TRUE(sams.writeStart(file, 1, 1, true));
    const float time = 1;
    ASSERT_TRUE(sams.writeStartSAMPChunk(file, 1, &time));
    KynGroupChunk sample(kTagSOBJ);
    sample.children.push_back(new KynLeafChunk<float>(kTagPOSI, 1, 3, {0, 1, 2}));
    auto* values = new KynGroupChunk(kTagATRS);
    values->children.push_back(new KynLeafChunk<std::string>(kTagATTR, {"a", "b"}));
    sample.children.push_back(values);
    ASSERT_TRUE(sams.writeSOBJChunk(file, &sample));
    ASSERT_TRUE(sams.writeEndSAMPChunk(file));
    ASSERT_TRUE(sams.writeEnd(file));
    ASSERT_TRUE(file.close());
}

// Offsets of every chunk header, found as kyn2txt walks: into groups, over leaves.
std::vector<std::size_t> headerOffsets(const Bytes& bytes) {
    std::vector<std::size_t> offsets;
    for (std::size_t at = 0; at + 16 <= bytes.size();) {
        offsets.push_back(at);
        at += 16 + (bytes[at + 4] == kTypeGroup ? 0 : std::size_t(readLE(bytes, at + 8, 8)));
    }
    return offsets;
}

const int64_t kExtremeLengths[] = {
    0, -1, -16, int64_t(1) << 31, int64_t(1) << 62, INT64_MAX, INT64_MIN,
};

struct Outcome {
    bool tree = false;
    int dump = 0;
    std::vector<std::string> out;
    std::string err;
};

class DamagedFilesTest : public ::testing::Test {
  protected:
    void SetUp() override {
        std::string worked = scratchPath("worked.kyn");
        writeWorkedFile(worked);
        std::string exercised = scratchPath("kyntest.kyn");
        ASSERT_EQ(kyntest(exercised.c_str()), 0);
        std::string attributes = scratchPath("attributes.kyn");
        ASSERT_NO_FATAL_FAILURE(writeAttributeFile(attributes));
        originals = {{"worked file", readBytes(worked)},
                     {"kyntest file", readBytes(exercised)},
                     {"attribute file", readBytes(attributes)}};
        ASSERT_EQ(originals[0].second.size(), 500u);
        path = scratchPath("damaged.kyn");
    }

    // Dumps and reads `bytes`; `what` names the damage in failure messages.
    Outcome examine(const Bytes& bytes, const std::string& what) {
        // A fresh file each time: rewriting one in place makes the file system flush it on close.
        std::remove(path.c_str());
        writeBytes(path, bytes);
        setAllocationContext(what.c_str());
        Outcome outcome;
        try {
            Capture out(std::cout);
            Capture err(std::cerr);
            outcome.dump = kyn2txt(path.c_str());
            outcome.tree = readWholeTree(path);
            outcome.out = out.lines();
            outcome.err = err.str();
        } catch (...) {
            ADD_FAILURE() << what << ": an exception escaped";
        }
        setAllocationContext(nullptr);
        EXPECT_TRUE(outcome.dump == 0 || outcome.dump == -1) << what << ": " << outcome.dump;
        return outcome;
    }

    std::vector<std::pair<std::string, Bytes>> originals;
    std::string path;
};

// The guard must be in force, or every check of bounded memory below would pass unseen.
TEST(AllocationGuardDeathTest, StopsAtOneLargeRequest) {
    EXPECT_DEATH(std::vector<char>(kAllocationLimit + 1),
                 "refused an allocation of 67108865 bytes");
}

TEST_F(DamagedFilesTest, OriginalsReadWholeAndDumpCleanly) {
    for (const auto& [name, bytes] : originals) {
        Outcome outcome = examine(bytes, name);
        EXPECT_TRUE(outcome.tree) << name;
        EXPECT_EQ(outcome.dump, 0) << name;
        EXPECT_EQ(outcome.out.size(), headerOffsets(bytes).size()) << name;
        EXPECT_EQ(outcome.err, "") << name;
    }
}

// A cut file reads whole only when the cut falls right after the metadata, and its dump is the
// first lines of the whole file's dump.
TEST_F(DamagedFilesTest, CutAtEveryOffset) {
    for (const auto& [name, bytes] : originals) {
        const std::vector<std::string> whole = examine(bytes, name).out;
        const std::size_t metaEnd = 40 + std::size_t(readLE(bytes, 32, 8));
        for (std::size_t size = 0; size < bytes.size(); ++size) {
            std::string what = name + " cut at " + std::to_string(size);
            Outcome outcome = examine(Bytes(bytes.begin(), bytes.begin() + size), what);
            EXPECT_EQ(outcome.tree, size == metaEnd) << what;
            ASSERT_LE(outcome.out.size(), whole.size()) << what;
            EXPECT_TRUE(std::equal(outcome.out.begin(), outcome.out.end(), whole.begin())) << what;
            if (size < 16) {
                EXPECT_EQ(outcome.dump, -1) << what;
                EXPECT_TRUE(outcome.out.empty()) << what;
                EXPECT_NE(outcome.err.find(": is not a valid KYN file"), std::string::npos) << what;
            }
        }
    }
}

// Also with the type made unknown: such a chunk is skipped by its length alone, which must never
// lead backwards.
TEST_F(DamagedFilesTest, ExtremeLengthInEveryHeader) {
    for (const auto& [name, bytes] : originals) {
        for (std::size_t header : headerOffsets(bytes)) {
            for (bool unknownType : {false, true}) {
                for (int64_t length : kExtremeLengths) {
                    Bytes damaged = bytes;
                    if (unknownType) damaged[header + 4] = 0xFF;
                    for (int i = 0; i < 8; ++i)
                        damaged[header + 8 + i] =
                            static_cast<unsigned char>(uint64_t(length) >> (8 * i));
                    examine(damaged, name + (unknownType ? " unknown type" : " header") + " at " +
                                         std::to_string(header) + " length " +
                                         std::to_string(length));
                }
            }
        }
    }
}

// Every single byte set to 0xFF, as asked of any damaged file, and to 0x00 and 0x80, which turn
// lengths short or far negative and types into raw bytes.
TEST_F(DamagedFilesTest, EveryByteOverwritten) {
    for (const auto& [name, bytes] : originals) {
        for (std::size_t at = 0; at < bytes.size(); ++at) {
            for (unsigned char value : {0xFF, 0x00, 0x80}) {
                if (bytes[at] == value) continue;
                Bytes damaged = bytes;
                damaged[at] = value;
                examine(damaged,
                        name + " byte " + std::to_string(at) + " set to " + std::to_string(value));
            }
        }
    }
}

TEST_F(DamagedFilesTest, BackwardSkipEndsTheWalk) {
    Bytes bytes;
    appendHeader(bytes, "DKYN", kTypeInt64, 8);
    appendLE(bytes, 2, 8);
    appendHeader(bytes, "META", kTypeGroup, 0);
    appendHeader(bytes, "ODDT", 9, -16);
    Outcome outcome = examine(bytes, "backward skip");
    EXPECT_FALSE(outcome.tree);
    EXPECT_EQ(outcome.dump, -1);
    EXPECT_EQ(outcome.out.size(), 2u);
    EXPECT_NE(outcome.err.find(": error reading leaf chunk"), std::string::npos);
}

// Groups nested `depth` deep, the innermost holding one empty leaf.
Bytes nestedGroups(std::size_t depth) {
    Bytes bytes;
    for (std::size_t level = 0; level < depth; ++level)
        appendHeader(bytes, "NEST", kTypeGroup, int64_t(16 * (depth - level)));
    appendHeader(bytes, "LEAF", kTypeInt32, 0);
    return bytes;
}

// The recursive reader refuses nesting beyond a fixed depth rather than running out of stack,
// also inside the metadata; a modest depth reads whole.
TEST(DeepNestingTest, TenThousandGroupsAreRefusedAHundredRead) {
    std::string path = scratchPath("nested.kyn");
    // The depth read along first children, or 0 when the read fails.
    auto depthRead = [&path](std::size_t depth) {
        writeBytes(path, nestedGroups(depth));
        KynFile file;
        KynHeader header;
        EXPECT_TRUE(file.open(path.c_str(), "r") && file.readHeader(header));
        KynGroupChunk group(header.tag);
        if (!group.read(header, file)) return 0;
        EXPECT_TRUE(file.groupStack.empty());
        int levels = 1;
        for (const KynGroupChunk* level = &group;
             !level->children.empty() && level->children[0]->header.type == kTypeGroup; ++levels)
            level = static_cast<const KynGroupChunk*>(level->children[0]);
        return levels;
    };
    EXPECT_EQ(depthRead(10000), 0);
    EXPECT_EQ(depthRead(100), 100);

    const Bytes deep = nestedGroups(10000);
    Bytes inMeta;
    appendHeader(inMeta, "DKYN", kTypeInt64, 8);
    appendLE(inMeta, 2, 8);
    appendHeader(inMeta, "META", kTypeGroup, int64_t(deep.size()));
    inMeta.insert(inMeta.end(), deep.begin(), deep.end());
    writeBytes(path, inMeta);
    EXPECT_FALSE(readWholeTree(path));
}

}  // namespace
