// Stitching W1 back together from four pieces of equal length, each streamed as its own cache
// file, against the system's cat of the same four files into one, flushed to disk as the stitch
// flushes its own: stitching copies every sample as one block, so it should cost about what
// copying the bytes costs.
//
// The output is removed and earlier writes put on disk with sync before each iteration (paused),
// so that neither side replaces an existing file or pays for writeback it did not cause. The pieces
// stay in the page cache after the first iteration, as they would on a machine that has just
// written them. Once, before timing, the stitched file is compared with W1 streamed in one go:
// every sample's bytes must be equal.
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <fstream>
#include <string>
#include <vector>

#include "KynCache.h"
#include "KynStitch.h"
#include "Workloads.h"

using namespace Kyn;

namespace {

constexpr int kPieces = 4;

// Samples `first` to `first + count - 1` of W1, streamed to `path`.
bool streamPiece(const std::string& path, const workloads::W1Data& data, int first, int count) {
    KynMETAChunk meta;
    workloads::fillW1Meta(data, meta);
    meta.numSamples = count;
    meta.firstTime = float(first);
    meta.lastTime = float(first + count - 1);
    KynFile file;
    KynSAMSChunk sams;
    bool ok = file.open(path.c_str(), "w") && KynDKYNChunk().write(file) && meta.write(file) &&
              sams.writeStart(file, count, 0, false);
    for (int s = first; ok && s < first + count; ++s) {
        ok = sams.writeStartSAMPChunk(file, 1, nullptr) && sams.writeStartSOBJChunk(file) &&
             file.writeChunk(kTagPOSI, data.positions[std::size_t(s)], -1, 1, 3) &&
             sams.writeEndSOBJChunk(file) && sams.writeEndSAMPChunk(file);
    }
    return ok && sams.writeEnd(file) && file.close();
}

std::vector<char> sampleBytes(KynCache& cache, int sample) {
    KynHeader h;
    std::vector<char> bytes;
    if (!cache.seekObjectSample(h, sample, 0) || !cache.file.canRead(h.length)) return bytes;
    bytes.resize(std::size_t(h.length));
    if (!cache.file.readData(h, bytes.data())) bytes.clear();
    return bytes;
}

// Whether two files hold the same samples, byte for byte, at the same times.
bool sameSamples(const std::string& a, const std::string& b) {
    KynCache x, y;
    if (!x.load(a.c_str(), true) || !y.load(b.c_str(), true)) return false;
    if (x.meta.numSamples != y.meta.numSamples) return false;
    for (int s = 0; s < int(x.meta.numSamples); ++s) {
        if (x.getSampleTime(s) != y.getSampleTime(s)) return false;
        const std::vector<char> p = sampleBytes(x, s);
        if (p.empty() || p != sampleBytes(y, s)) return false;
    }
    return true;
}

struct Pieces {
    Pieces() {
        const workloads::W1Data data;
        const int each = workloads::kW1Samples / kPieces;
        for (int p = 0; p < kPieces; ++p) {
            paths.push_back(workloads::scratchPath("piece" + std::to_string(p) + ".kyn"));
            const int count = p + 1 < kPieces ? each : workloads::kW1Samples - p * each;
            valid = valid && streamPiece(paths.back(), data, p * each, count);
            std::ifstream in(paths.back(), std::ios::binary | std::ios::ate);
            bytes += int64_t(in.tellg());
        }
        const std::string whole = workloads::scratchPath("whole.kyn");
        KynMETAChunk meta;
        workloads::fillW1Meta(data, meta);
        valid = valid && workloads::streamW1(whole, meta, data) &&
                stitchCaches(out.c_str(), paths).written && sameSamples(out, whole);
        std::remove(whole.c_str());
    }
    ~Pieces() { workloads::removeScratchFiles(); }

    std::vector<std::string> paths;
    std::string out = workloads::scratchPath("stitched.kyn");
    int64_t bytes = 0;
    bool valid = true;
};

const Pieces& pieces() {
    static const Pieces made;
    return made;
}

void BM_StitchW1FromFourPieces(benchmark::State& state) {
    const Pieces& p = pieces();
    if (!p.valid) {
        state.SkipWithError("the pieces could not be written, or the stitched file differs");
        return;
    }
    for (auto _ : state) {
        state.PauseTiming();
        std::remove(p.out.c_str());
        sync();
        state.ResumeTiming();
        if (!stitchCaches(p.out.c_str(), p.paths).written) {
            state.SkipWithError("stitching failed");
            break;
        }
    }
    state.SetBytesProcessed(int64_t(state.iterations()) * p.bytes);
}

void BM_CatOfTheSameFourFiles(benchmark::State& state) {
    const Pieces& p = pieces();
    std::string command = "cat";
    for (const std::string& path : p.paths) command += " '" + path + "'";
    // The stitch flushes its file to disk before renaming it into place; so does the baseline.
    command += " > '" + p.out + "' && sync '" + p.out + "'";
    for (auto _ : state) {
        state.PauseTiming();
        std::remove(p.out.c_str());
        sync();
        state.ResumeTiming();
        if (std::system(command.c_str()) != 0) {
            state.SkipWithError("cat failed");
            break;
        }
    }
    state.SetBytesProcessed(int64_t(state.iterations()) * p.bytes);
}

}  // namespace

BENCHMARK(BM_StitchW1FromFourPieces)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_CatOfTheSameFourFiles)->Unit(benchmark::kMillisecond)->UseRealTime();

BENCHMARK_MAIN();
