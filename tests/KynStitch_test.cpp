// Stitching caches written in pieces: the result equals the cache written in one go, whatever
// the order the pieces come in, and each kind of mismatch is refused with the piece named and
// the target untouched.
#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <sstream>

#include "EveryKind.h"
#include "KynRoMemCache.h"
#include "KynStitch.h"
#include "TestFiles.h"

using namespace Kyn;
using namespace kyntest_support;

namespace {

using Bytes = std::vector<unsigned char>;

// The metadata as text, without the date and the group's length, which counts the date.
std::string metadataText(KynMETAChunk& meta) {
    const int64_t date = meta.date;
    meta.date = 0;
    std::ostringstream text;
    meta.print(text, 0);
    meta.date = date;
    return text.str().substr(text.str().find('\n'));
}

// Every sample, time and object of the two files, the objects byte for byte.
void expectSameCache(const std::string& a, const std::string& b) {
    KynRoMemCache x, y;
    ASSERT_TRUE(x.load(a.c_str(), true));
    ASSERT_TRUE(y.load(b.c_str(), true));
    EXPECT_EQ(metadataText(x.meta), metadataText(y.meta));
    ASSERT_EQ(x.meta.numSamples, y.meta.numSamples);
    const Bytes bx = readBytes(a);
    const Bytes by = readBytes(b);
    for (int s = 0; s < int(x.meta.numSamples); ++s) {
        const float tx = x.getSampleTime(s);
        const float ty = y.getSampleTime(s);
        EXPECT_EQ(0, std::memcmp(&tx, &ty, sizeof tx)) << "time of sample " << s;
        for (int o = 0; o < int(x.meta.objects.size()); ++o) {
            KynHeader hx, hy;
            ASSERT_TRUE(x.seekObjectSample(hx, s, o));
            ASSERT_TRUE(y.seekObjectSample(hy, s, o));
            const int64_t px = x.file.tell(nullptr);
            const int64_t py = y.file.tell(nullptr);
            ASSERT_EQ(hx.length, hy.length);
            EXPECT_TRUE(std::equal(bx.begin() + px, bx.begin() + px + hx.length, by.begin() + py))
                << "sample " << s << " object " << o;
        }
    }
}

std::string piece(const std::string& name, int first, int count, bool nonUniform,
                  const std::function<void(KynMETAChunk&)>& adjust = {}) {
    const std::string path = scratchPath(name);
    writeEveryKindFile(path, first, count, nonUniform, adjust);
    return path;
}

}  // namespace

TEST(KynStitch, ThreePiecesInAnyOrderEqualTheCacheWrittenInOneGo) {
    for (bool nonUniform : {false, true}) {
        const std::string whole = piece("whole.kyn", 0, 8, nonUniform);
        const std::string a = piece("a.kyn", 0, 3, nonUniform);
        const std::string b = piece("b.kyn", 3, 2, nonUniform);
        const std::string c = piece("c.kyn", 5, 3, nonUniform);
        const std::string out = scratchPath("stitched.kyn");
        int64_t last = -1;
        const KynStitchReport report =
            stitchCaches(out.c_str(), {c, a, b}, [&](int64_t done, int64_t total) {
                EXPECT_LE(last, done);
                EXPECT_LE(done, total);
                last = done;
            });
        ASSERT_TRUE(report.written) << report.message;
        EXPECT_EQ(report.order, (std::vector<std::string>{a, b, c}));
        EXPECT_EQ(report.samples, 8);
        EXPECT_EQ(report.uniform, !nonUniform);
        expectSameCache(out, whole);
        // The target may be one of the pieces.
        ASSERT_TRUE(stitchCaches(b.c_str(), {a, b, c}).written);
        expectSameCache(b, whole);
    }
}

TEST(KynStitch, EachMismatchIsRefusedNamingThePieceAndLeavesTheTargetAlone) {
    const auto renamed = [](KynMETAChunk& meta) { meta.objects[2]->name = "|other"; };
    const auto extra = [](KynMETAChunk& meta) { meta.addDOBJ("|extra"); };
    const auto topology = [](KynMETAChunk& meta) {
        static_cast<KynLeafChunk<int>*>(meta.objects[1]->children[1])->data = {3};
    };
    const auto attribute = [](KynMETAChunk& meta) {
        static_cast<KynLeafChunk<int>*>(meta.objects[3]->datr->getStaticData(0))->data = {4};
    };
    const auto world = [](KynMETAChunk& meta) { meta.space = 0; };
    const auto halfSteps = [](KynMETAChunk& meta) {
        meta.rate = 2.0f;
        meta.lastTime = meta.firstTime + 0.5f;
    };
    const std::string cutShort = scratchPath("cut.kyn");
    writeEveryKindFile(cutShort, 3, 2, false);
    Bytes bytes = readBytes(cutShort);
    writeBytes(cutShort, Bytes(bytes.begin(), bytes.begin() + 100));  // inside the metadata
    const std::string wrongTable = scratchPath("table.kyn");
    writeEveryKindFile(wrongTable, 3, 2, false);
    bytes = readBytes(wrongTable);
    // The first entry of the second sample's object table, 32 bytes into that sample.
    int64_t second = 0;
    {
        KynRoMemCache cache;
        ASSERT_TRUE(cache.load(wrongTable.c_str(), true));
        second = cache.sampleJumps[1];
    }
    const int64_t bogus = 12345;
    std::memcpy(&bytes[std::size_t(second + 32)], &bogus, 8);
    writeBytes(wrongTable, bytes);

    struct Case {
        const char* what;
        std::string other;  // joined behind the first piece (frames 1 to 3)
        KynStitchReport::Refusal refusal;
    };
    const std::vector<Case> cases = {
        {"overlap", piece("overlap.kyn", 2, 3, false), KynStitchReport::kOverlap},
        {"the same piece", "", KynStitchReport::kOverlap},
        {"gap", piece("gap.kyn", 4, 2, false), KynStitchReport::kGap},
        {"non-uniform overlap", "", KynStitchReport::kOverlap},
        {"renamed object", piece("renamed.kyn", 3, 2, false, renamed), KynStitchReport::kObjects},
        {"extra object", piece("extra.kyn", 3, 2, false, extra), KynStitchReport::kObjects},
        {"topology", piece("topology.kyn", 3, 2, false, topology), KynStitchReport::kStaticData},
        {"attribute", piece("attribute.kyn", 3, 2, false, attribute), KynStitchReport::kStaticData},
        {"space", piece("world.kyn", 3, 2, false, world), KynStitchReport::kSpace},
        {"rate", piece("rate.kyn", 3, 2, false, halfSteps), KynStitchReport::kSampling},
        {"non-uniform", piece("nonuniform.kyn", 3, 2, true), KynStitchReport::kSampling},
        {"unreadable", cutShort, KynStitchReport::kUnreadable},
        {"damaged", wrongTable, KynStitchReport::kDamaged},
    };
    const std::string first = piece("first.kyn", 0, 3, false);
    const std::string nonUniformFirst = piece("first_nu.kyn", 0, 3, true);
    const std::string out = scratchPath("out.kyn");
    const Bytes untouched = {'o', 'l', 'd'};
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        writeBytes(out, untouched);
        std::string base = first;
        std::string other = c.other.empty() ? first : c.other;
        if (std::string(c.what) == "non-uniform overlap") {
            base = nonUniformFirst;
            other = piece("nu_overlap.kyn", 2, 2, true);
        }
        const KynStitchReport report = stitchCaches(out.c_str(), {base, other});
        EXPECT_FALSE(report.written);
        EXPECT_EQ(report.refusal, c.refusal) << report.message;
        EXPECT_EQ(report.file, other);
        EXPECT_FALSE(report.message.empty());
        EXPECT_EQ(readBytes(out), untouched);
    }
    EXPECT_EQ(stitchCaches(out.c_str(), {}).refusal, KynStitchReport::kNoInput);
    EXPECT_EQ(partialFilesIn(std::filesystem::path(out).parent_path()), 0);
}
