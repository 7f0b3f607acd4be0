// Reading a cache while a producer in another process streams it: the reader sees the count
// grow, and every sample it shows reads exactly as the producer wrote it, at its time.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <set>

#include "EveryKind.h"
#include "KynLiveCache.h"
#include "TestFiles.h"

using namespace Kyn;
using namespace kyntest_support;

namespace {

using Bytes = std::vector<unsigned char>;
constexpr int kSamples = 200;

float timeOf(int s) {
    return 1.0f + 0.5f * float(s) + 0.125f * float(s % 2);
}

// Streams the scene of every kind, non-uniform, committing each sample; `pause` microseconds
// between samples.
bool produce(const std::string& path, useconds_t pause) {
    KynFile file;
    if (!file.open(path.c_str(), "w") || !KynDKYNChunk().write(file)) return false;
    const int64_t metaOffset = file.tell(nullptr);
    KynMETAChunk meta;
    meta.application = "live";
    describeEveryKind(meta, kSamples, timeOf(0), timeOf(kSamples - 1), true);
    KynSAMSChunk sams;
    sams.commit = KynSAMSChunk::kCommitEachSample;
    if (!meta.write(file) || !sams.followMetadata(meta, metaOffset) ||
        !sams.writeStart(file, kSamples, 10, true))
        return false;
    for (int s = 0; s < kSamples; ++s) {
        const float time = timeOf(s);
        writeEveryKindSample(file, sams, s, &time);
        if (::testing::Test::HasFailure()) return false;
        usleep(pause);
    }
    return sams.writeEnd(file) && file.close();
}

}  // namespace

TEST(KynLiveCache, FollowsAProducerSampleBySample) {
    const std::string path = scratchPath("live.kyn");
    const std::string finished = scratchPath("finished.kyn");
    ASSERT_TRUE(produce(finished, 0));
    KynRoMemCache reference;
    ASSERT_TRUE(reference.load(finished.c_str(), true));
    const Bytes written = readBytes(finished);

    const pid_t producer = fork();
    if (producer == 0) _exit(produce(path, 3000) ? 0 : 1);
    KynLiveCache live;
    std::set<int64_t> counts;
    int shown = 0;
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    while (shown < kSamples && std::chrono::steady_clock::now() < deadline) {
        if (live.fileName.empty()) {
            if (!live.load(path.c_str(), true, 4)) continue;  // the metadata is not there yet
        } else {
            ASSERT_GE(live.refresh(), 0);
        }
        counts.insert(live.meta.numSamples);
        // Every sample shown reads as the producer wrote it, object by object, at its time.
        const Bytes now = shown < int(live.meta.numSamples) ? readBytes(path) : Bytes();
        for (; shown < int(live.meta.numSamples); ++shown) {
            ASSERT_EQ(live.getSampleTime(shown), reference.getSampleTime(shown)) << shown;
            for (int o = 0; o < kEveryKindObjects; ++o) {
                ASSERT_NE(live.getSample(shown, o), nullptr) << shown;
                const Bytes read = objectBytes(live, now, shown, o);
                ASSERT_FALSE(read.empty()) << "sample " << shown << ", object " << o;
                ASSERT_EQ(read, objectBytes(reference, written, shown, o))
                    << "sample " << shown << ", object " << o;
            }
        }
        usleep(200);
    }
    int status = 0;
    waitpid(producer, &status, 0);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    EXPECT_EQ(shown, kSamples);
    EXPECT_GT(counts.size(), 20u) << "the reader saw the count grow in too few steps";
    EXPECT_EQ(live.getSampleIndex(reference.meta.lastTime), kSamples - 1);
}
