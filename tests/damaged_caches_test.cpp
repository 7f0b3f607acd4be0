// Damaged caches read through every reader a host has: a file of every object kind, uniform and
// non-uniform, with its samples in two "SAMS" groups, cut at every byte and with the eight bytes
// at every offset replaced by extreme values. Each damaged file either fails to load or reads
// whole; nothing crashes, and no single allocation grows past the allocation guard's limit.
#include <gtest/gtest.h>

#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <memory>
#include <typeinfo>

#include "AllocationGuard.h"
#include "EveryKind.h"
#include "KynChunks.h"
#include "ReadEverything.h"
#include "TestFiles.h"

using namespace Kyn;
using namespace kyntest_support;

namespace {

using Bytes = std::vector<unsigned char>;

// Three samples at 1, 2, 3 (uniform) or 1, 2, 4 (non-uniform), two in the first "SAMS" group
// and one in a second, as a file that outgrew its reserve holds them.
Bytes writeFile(bool nonUniform) {
    const std::string path = scratchPath("every_kind.kyn");
    KynFile file;
    EXPECT_TRUE(file.open(path.c_str(), "w"));
    KynDKYNChunk().write(file);
    KynMETAChunk meta;
    meta.application = "test";
    describeEveryKind(meta, 3, 1.0f, nonUniform ? 4.0f : 3.0f, nonUniform);
    EXPECT_TRUE(meta.write(file));
    const float times[3] = {1.0f, 2.0f, 4.0f};
    KynSAMSChunk first;
    EXPECT_TRUE(first.writeStart(file, 2, 0, nonUniform));
    for (int s = 0; s < 2; ++s) writeEveryKindSample(file, first, s, &times[s]);
    EXPECT_TRUE(first.writeEnd(file));
    KynSAMSChunk second;
    EXPECT_TRUE(second.writeStart(file, 1, 1, nonUniform));
    writeEveryKindSample(file, second, 2, &times[2]);
    EXPECT_TRUE(second.writeEnd(file));
    EXPECT_TRUE(file.close());
    return readBytes(path);
}

class DamagedCachesTest : public ::testing::TestWithParam<bool> {
  protected:
    // Loads and reads `bytes` whole; the answer is whether the load worked.
    bool examine(const Bytes& bytes, const std::string& what) {
        writeBytes(path, bytes);
        setAllocationContext(what.c_str());
        Capture out(std::cout);
        Capture err(std::cerr);
        bool loaded = readall::readEverything(path.c_str(), true, 2);
        setAllocationContext(nullptr);
        return loaded;
    }

    // Thousands of rewrites: in memory where the machine offers it.
    std::string path = access("/dev/shm", W_OK) == 0
                           ? "/dev/shm/kyn_damaged_" + std::to_string(getpid()) + ".kyn"
                           : scratchPath("damaged_cache.kyn");
    ~DamagedCachesTest() override { std::remove(path.c_str()); }
};

// Whether a read of the object's whole first sample finds `tag` in it.
bool firstSampleReadHas(KynRoMemCache& cache, int object, unsigned tag) {
    const int sample = cache.getSampleIndex(cache.meta.firstTime);
    if (int(cache.meta.numSamples) < 1 || sample < 0) return false;
    std::unique_ptr<KynGroupChunk> group(cache.loadObjectSample(sample, object));
    return group && KynCache::findChunk(group.get(), tag);
}

// Whether the object carries `tag`: in its metadata, as attributes, or in its first sample.
bool carries(KynRoMemCache& cache, int object, unsigned tag) {
    KynDOBJChunk* dobj = cache.meta.objects[std::size_t(object)];
    if (KynCache::findChunk(dobj, tag)) return true;
    if (tag == kTagDATR && dobj->datr && dobj->datr->getNumAttrs() > 0) return true;
    return firstSampleReadHas(cache, object, tag);
}

// The class the factory builds for the tags that `has` finds, in the factory's precedence.
template <class Has>
const std::type_info& classFor(Has has) {
    const std::pair<unsigned, const std::type_info*> steps[] = {
        {kTagXFRM, &typeid(TransformKynObj)},    {kTagMESH, &typeid(MeshKynObj)},
        {kTagNRBS, &typeid(NurbsSurfaceKynObj)}, {kTagNRBC, &typeid(NurbsCurveKynObj)},
        {kTagELOC, &typeid(LocatorKynObj)},      {kTagLXCS, &typeid(LxCoordSystemKynObj)},
        {kTagPOSI, &typeid(GeometryKynObj)}};
    for (const auto& [tag, built] : steps)
        if (has(tag)) return *built;
    return typeid(KynHelperObj);
}

}  // namespace

// What objectHas, isObjectAnimated and the factory answer from the headers of a first sample
// is what a read of the whole sample tells, on every damaged file that loads.
TEST_P(DamagedCachesTest, FirstSampleTagsAreThoseOfAWholeRead) {
    const Bytes bytes = writeFile(GetParam());
    const unsigned tags[] = {kTagXFRM, kTagMESH, kTagPOSI, kTagMTRX, kTagATRS,
                             kTagATTR, kTagSOBJ, kTagDATR, kTagVELO};
    int loaded = 0;
    const auto compare = [&](const Bytes& damaged, const std::string& what) {
        writeBytes(path, damaged);
        Capture out(std::cout);
        KynRoMemCache cache;
        if (!cache.load(path.c_str(), true)) return;
        ++loaded;
        KynHelperObjFactory factory(&cache);
        for (int object = 0; object < int(cache.meta.objects.size()); ++object) {
            const std::string where = what + ", object " + std::to_string(object);
            for (unsigned tag : tags) {
                const bool inMetadata = KynCache::findChunk(cache.meta.objects[object], tag);
                ASSERT_EQ(cache.objectHas(object, tag), carries(cache, object, tag)) << where;
                ASSERT_EQ(cache.isObjectAnimated(object, tag),
                          !inMetadata && firstSampleReadHas(cache, object, tag))
                    << where;
            }
            std::unique_ptr<KynHelperObj> view(factory.kynObjBuilder(object));
            const auto has = [&](unsigned tag) { return carries(cache, object, tag); };
            ASSERT_EQ(typeid(*view), classFor(has)) << where;
        }
    };
    for (std::size_t size = 0; size <= bytes.size(); ++size)
        compare(Bytes(bytes.begin(), bytes.begin() + long(size)), "cut at " + std::to_string(size));
    for (std::size_t at = 0; at + 8 <= bytes.size(); ++at) {
        for (int64_t value : {int64_t(0), int64_t(-1), int64_t(1) << 31, int64_t(1) << 62}) {
            Bytes damaged = bytes;
            std::memcpy(&damaged[at], &value, 8);
            compare(damaged, std::to_string(value) + " at " + std::to_string(at));
        }
    }
    EXPECT_GT(loaded, 0);
}

TEST_P(DamagedCachesTest, CutAtEveryByte) {
    const Bytes bytes = writeFile(GetParam());
    for (std::size_t size = 0; size < bytes.size(); ++size) {
        // The samples lie behind the tables: a file cut among them still loads.
        examine(Bytes(bytes.begin(), bytes.begin() + size), "cut at " + std::to_string(size));
    }
    // The intact file loads and every view reads it.
    ASSERT_TRUE(examine(bytes, "the intact file"));
    KynRoMemCache cache;
    ASSERT_TRUE(cache.load(path.c_str(), true));
    EXPECT_EQ(cache.sampleJumps.size(), 3u);
    EXPECT_EQ(cache.getSampleTime(2), GetParam() ? 4.0f : 3.0f);
    const std::vector<float>* positions =
        cache.getSampleDataAtTime<float>(cache.getSampleTime(2), 1, kTagPOSI, nullptr);
    ASSERT_NE(positions, nullptr);
    EXPECT_EQ(*positions, std::vector<float>(12, 2.0f));
}

TEST_P(DamagedCachesTest, EightBytesAtEveryOffsetSetToExtremes) {
    const Bytes bytes = writeFile(GetParam());
    const int64_t extremes[] = {0, -1, int64_t(1) << 31, int64_t(1) << 62};
    for (std::size_t at = 0; at + 8 <= bytes.size(); ++at) {
        for (int64_t value : extremes) {
            Bytes damaged = bytes;
            std::memcpy(&damaged[at], &value, 8);
            examine(damaged, std::to_string(value) + " at " + std::to_string(at));
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Sampling, DamagedCachesTest, ::testing::Values(false, true),
                         [](const ::testing::TestParamInfo<bool>& info) {
                             return info.param ? "NonUniform" : "Uniform";
                         });
