// Several caches open on one file, each read whole by its own thread at the same time, all give
// the data that was written. The caches share nothing; the build with ThreadSanitizer
// (KYN_SANITIZE_THREAD) runs this suite to show it.
#include <gtest/gtest.h>

#include <memory>
#include <thread>

#include "KynHelper.h"
#include "KynRoMemCache.h"
#include "KynRwMemCache.h"
#include "TestFiles.h"

using namespace Kyn;
using namespace kyntest_support;

namespace {

constexpr int kObjects = 6;
constexpr int kSamples = 12;

float valueOf(int object, int sample, int i) {
    return float(object * 1000 + sample * 10 + i);
}

std::string writeScene() {
    std::string path = scratchPath("threads.kyn");
    KynRwMemCache cache;
    for (int o = 0; o < kObjects; ++o) cache.setName(o, ("|obj" + std::to_string(o)).c_str());
    for (int s = 0; s < kSamples; ++s)
        for (int o = 0; o < kObjects; ++o) {
            std::vector<float> points(30);
            for (int i = 0; i < 30; ++i) points[i] = valueOf(o, s, i);
            cache.allocSample(float(s + 1), o)
                ->children.push_back(new KynLeafChunk<float>(kTagPOSI, 1, 3, points));
        }
    bool saved = false;
    EXPECT_TRUE(cache.saveAs(path.c_str(), &saved, nullptr));
    EXPECT_TRUE(saved);
    return path;
}

// Reads every object of every sample three times over, by index and through a view at a time
// between samples; counts the reads that fail and the values that differ from what was written.
int readWhole(const std::string& path, int maxSamples) {
    KynRoMemCache cache;
    if (!cache.load(path.c_str(), true, maxSamples)) return -1;
    int wrong = 0;
    KynHelperObjFactory factory(&cache);
    KynInterpolationHints linear{1};
    for (int round = 0; round < 3; ++round)
        for (int o = 0; o < kObjects; ++o) {
            std::unique_ptr<KynHelperObj> view(
                factory.kynObjBuilder(cache.findObjectIndex("|obj" + std::to_string(o), o)));
            auto* geometry = dynamic_cast<GeometryKynObj*>(view.get());
            for (int s = 0; s < kSamples; ++s) {
                const std::vector<float>* data =
                    cache.getSampleDataAtTime<float>(float(s + 1), o, kTagPOSI, nullptr);
                for (int i = 0; data != nullptr && i < 30; ++i)
                    wrong += (*data)[i] != valueOf(o, s, i);
                wrong += data == nullptr;
                if (s + 1 == kSamples) continue;
                std::vector<float> out;
                KynHelperObj::AnimationState state;
                int dimension = 0;
                wrong +=
                    geometry == nullptr ||
                    !geometry->getPositionAtTime(float(s) + 1.5f, linear, out, state, dimension) ||
                    out.size() != 30 || out[0] != valueOf(o, s, 0) + 5.0f;
            }
        }
    return wrong;
}

}  // namespace

TEST(Threads, CachesOnOneFileReadCorrectlyAtTheSameTime) {
    const std::string path = writeScene();
    const int kThreads = 4;
    std::vector<int> wrong(kThreads, -2);
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t)
        threads.emplace_back([&, t] { wrong[t] = readWhole(path, t % 3); });
    for (std::thread& thread : threads) thread.join();
    for (int t = 0; t < kThreads; ++t) EXPECT_EQ(wrong[t], 0) << "thread " << t;
}
