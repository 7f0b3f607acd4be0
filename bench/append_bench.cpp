// What one more sample costs a cache file: KynRwMemCache::save appending one sample of a mesh
// of 100k float vertices to a file of 200 such samples, and to a file of 2. An append reads no
// sample data and writes only the new sample, the grown tables and the metadata, so both
// figures should be the same: the cost follows what is added, not the size of the file.
//
// Each iteration first puts the file back as it was (paused): the bytes in front of the first
// sample are written back and the appended tail is cut off.
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "KynChunks.h"
#include "KynRwMemCache.h"

using namespace Kyn;

namespace {

constexpr int kVertices = 100000;
// SAMP header, JOBJ of one entry, SOBJ header, POSI header and payload.
constexpr int64_t kSampleBytes = 16 + 24 + 16 + 16 + int64_t(kVertices) * 3 * 4;

// A cache file of `samples` uniform samples of one mesh, streamed through the sample writer,
// with the bytes that an append rewrites in place kept aside.
class BaseFile {
  public:
    BaseFile(const std::string& name, int samples)
        : path("/tmp/kyn_append_bench_" + std::to_string(getpid()) + "_" + name + ".kyn") {
        KynFile file;
        KynMETAChunk meta;
        meta.application = "append_bench";
        meta.sourceFile = "bench";  // both names set: the metadata can be rewritten in place
        meta.date = time(nullptr);
        meta.numSamples = samples;
        meta.firstTime = 1.0f;
        meta.lastTime = float(samples);
        meta.rate = 1.0f;
        meta.addDOBJ("|root|mesh");
        KynSAMSChunk sams;
        bool ok = file.open(path.c_str(), "w") && KynDKYNChunk().write(file) && meta.write(file) &&
                  sams.writeStart(file, samples, 2 * samples, false);
        std::vector<float> positions(3 * kVertices);
        for (int s = 0; ok && s < samples; ++s) {
            std::fill(positions.begin(), positions.end(), float(s));
            ok = sams.writeStartSAMPChunk(file, 1, nullptr) && sams.writeStartSOBJChunk(file) &&
                 file.writeChunk(kTagPOSI, positions, -1, 1, 3) && sams.writeEndSOBJChunk(file) &&
                 sams.writeEndSAMPChunk(file);
        }
        ok = ok && sams.writeEnd(file) && file.close();
        meta.reset();
        if (!ok) return;
        size = int64_t(samples) * kSampleBytes + sams.sampleJumps.front();
        head.resize(std::size_t(sams.sampleJumps.front()));
        std::ifstream in(path, std::ios::binary);
        in.read(head.data(), std::streamsize(head.size()));
    }
    ~BaseFile() { unlink(path.c_str()); }

    bool valid() const { return size > 0; }

    // The file as written: the head back in place, the appended tail cut off.
    bool restore() const {
        FILE* out = fopen(path.c_str(), "r+");
        if (out == nullptr) return false;
        const bool written = fwrite(head.data(), 1, head.size(), out) == head.size();
        return fclose(out) == 0 && written && truncate(path.c_str(), size) == 0;
    }

    int64_t sizeOnDisk() const {
        std::ifstream in(path, std::ios::binary | std::ios::ate);
        return int64_t(in.tellg());
    }

    const std::string path;
    int64_t size = -1;

  private:
    std::vector<char> head;
};

void appendOneSample(benchmark::State& state, const BaseFile& base) {
    if (!base.valid()) {
        state.SkipWithError("could not write the base file");
        return;
    }
    const std::vector<float> positions(3 * kVertices, 0.5f);
    for (auto _ : state) {
        state.PauseTiming();
        auto cache = std::make_unique<KynRwMemCache>();
        KynGroupChunk* group = nullptr;
        if (base.restore() && cache->load(base.path.c_str(), true))
            group = cache->allocSample(cache->meta.lastTime + 1.0f, 0);
        if (group == nullptr) {
            state.SkipWithError("could not prepare the cache");
            break;
        }
        group->children.push_back(new KynLeafChunk<float>(kTagPOSI, 1, 3, positions));
        state.ResumeTiming();

        bool saved = false;
        const bool ok = cache->save(&saved, nullptr);

        state.PauseTiming();
        cache.reset();
        // An append grows the file by exactly one sample; a rewrite would change its size.
        const bool appended = ok && saved && base.sizeOnDisk() == base.size + kSampleBytes;
        state.ResumeTiming();
        if (!appended) {
            state.SkipWithError("the save did not append in place");
            break;
        }
    }
    state.counters["fileMB"] = double(base.size) / 1e6;
    state.SetBytesProcessed(int64_t(state.iterations()) * kSampleBytes);
}

void BM_AppendToLargeFile(benchmark::State& state) {
    static const BaseFile base("large", 200);
    appendOneSample(state, base);
}

void BM_AppendToSmallFile(benchmark::State& state) {
    static const BaseFile base("small", 2);
    appendOneSample(state, base);
}

}  // namespace

BENCHMARK(BM_AppendToLargeFile)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_AppendToSmallFile)->Unit(benchmark::kMillisecond)->UseRealTime();

BENCHMARK_MAIN();
