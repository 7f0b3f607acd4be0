// The performance figures of the library on the two workloads of Workloads.h, each measured
// next to its raw baseline in the same repetition, so that a ratio compares two runs made under
// the same conditions. Every repetition records its library time, its baseline time and their
// ratio; the table printed at the end gives the medians over the repetitions, with the target of
// each figure.
//
// Baselines: the same position bytes written with fwrite and read with fread through a 1 MiB
// stdio buffer, pread for single small reads, and for evaluation at a time a plain loop that
// blends the very arrays the library blends. Files live under /tmp and are warm in the page
// cache for both sides; writes go to files removed just before, with earlier writes synced. The
// times are wall-clock times of the measured calls alone: loading a cache before a read, or
// building the data before a write, is not counted.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <malloc.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "DGMath.h"
#include "KynHelper.h"
#include "KynRoMemCache.h"
#include "Workloads.h"

using namespace Kyn;
using namespace workloads;

namespace {

// ---- The figures and their summary

enum class Goal {
    kNone,
    kThroughputAtLeast,
    kTimeRatioAtMost,
    kMillisecondsBelow,
    kMegabytesBelow
};

struct Figure {
    const char* name;
    const char* baseline;
    Goal goal;
    double target;  // 0: none
};

// What the repetitions of one figure measured.
struct Results {
    std::vector<double> library;  // seconds, or megabytes for a memory figure
    std::vector<double> raw;      // seconds of the baseline
};

enum FigureId {
    kFigureW1Write,
    kFigureW1SaveAs,
    kFigureW1Read,
    kFigureW1Peak,
    kFigureW1Eval1,
    kFigureW1Eval3,
    kFigureW2Write,
    kFigureW2Load,
    kFigureW2Meshes,
    kFigureW2Object,
    kFigureW2ObjectKept,
    kFigureW2ObjectLazy,
    kFigureW2FirstObjectLazy,
    kFigureW2Transforms,
    kFigureCount
};

const Figure figures[kFigureCount] = {
    {"W1 streaming write, KynFile + KynSAMSChunk", "fwrite", Goal::kThroughputAtLeast, 0.85},
    {"W1 write through KynRwMemCache::saveAs", "fwrite", Goal::kThroughputAtLeast, 0.7},
    {"W1 read of all samples, getPositionData, maxSamples 2", "fread", Goal::kThroughputAtLeast,
     0.6},
    {"W1 read of all samples: peak resident memory", "", Goal::kMegabytesBelow, 60},
    {"W1 getPositionAtTime, order 1, warm", "plain blend loop", Goal::kTimeRatioAtMost, 1.5},
    {"W1 getPositionAtTime, order 3, warm", "plain blend loop", Goal::kTimeRatioAtMost, 1.5},
    {"W2 streaming write", "fwrite", Goal::kTimeRatioAtMost, 3},
    {"W2 load", "fread of the bytes load reads", Goal::kMillisecondsBelow, 10},
    {"W2 every mesh at sample 12, lookup by path", "fread", Goal::kTimeRatioAtMost, 4},
    {"W2 object 5000 at all 24 samples, first read of each sample", "pread",
     Goal::kMillisecondsBelow, 0.2},
    {"W2 object 5001 at all 24 samples, after object 5000", "pread", Goal::kMillisecondsBelow, 0.2},
    {"W2 object 5000 at all 24 samples, lazyObjectJumps", "pread", Goal::kMillisecondsBelow, 0.2},
    {"W2 object 0 at all 24 samples, lazyObjectJumps", "pread", Goal::kMillisecondsBelow, 0},
    {"W2 every transform, getTransformAtTime(12.5), order 1", "fread of the matrices",
     Goal::kTimeRatioAtMost, 0},
};

Results results[kFigureCount];

double median(std::vector<double> values) {
    if (values.empty()) return 0.0;
    std::sort(values.begin(), values.end());
    const std::size_t half = values.size() / 2;
    return values.size() % 2 ? values[half] : (values[half - 1] + values[half]) / 2;
}

// The ratio as its target reads it: a share of the baseline's throughput, or a multiple of the
// baseline's time.
double ratioOf(const Figure& figure, double library, double raw) {
    if (figure.goal == Goal::kThroughputAtLeast) return raw / library;
    return library / raw;
}

void printSummary() {
    printf("\n| Figure | Library | Baseline | Ratio | Target | Met |\n");
    printf("|---|---|---|---|---|---|\n");
    for (int id = 0; id < kFigureCount; ++id) {
        const Figure& figure = figures[id];
        const Results& measured = results[id];
        if (measured.library.empty()) continue;
        std::vector<double> ratios;
        for (std::size_t r = 0; r < measured.library.size() && r < measured.raw.size(); ++r)
            ratios.push_back(ratioOf(figure, measured.library[r], measured.raw[r]));
        const double library = median(measured.library);
        const double ratio = median(ratios);
        char target[64] = "none";
        bool met = true;
        switch (figure.target > 0 ? figure.goal : Goal::kNone) {
            case Goal::kNone:
                break;
            case Goal::kThroughputAtLeast:
                snprintf(target, sizeof(target), ">= %.2fx throughput", figure.target);
                met = ratio >= figure.target;
                break;
            case Goal::kTimeRatioAtMost:
                snprintf(target, sizeof(target), "<= %gx time", figure.target);
                met = ratio <= figure.target;
                break;
            case Goal::kMillisecondsBelow:
                snprintf(target, sizeof(target), "< %g ms", figure.target);
                met = library * 1e3 < figure.target;
                break;
            case Goal::kMegabytesBelow:
                snprintf(target, sizeof(target), "< %g MB", figure.target);
                met = library < figure.target;
                break;
        }
        const char* verdict = figure.target <= 0 ? "-" : met ? "yes" : "NO";
        if (figure.goal == Goal::kMegabytesBelow) {
            printf("| %s | %.1f MB | | | %s | %s |\n", figure.name, library, target, verdict);
            continue;
        }
        printf("| %s | %.3f ms | %.3f ms %s | %.2f | %s | %s |\n", figure.name, library * 1e3,
               median(measured.raw) * 1e3, figure.baseline, ratio, target, verdict);
    }
    printf(
        "\nMedians over the repetitions; the ratio is the median of the per-repetition ratios.\n");
}

// ---- Measuring

template <class F>
double timed(F&& f) {
    const auto start = std::chrono::steady_clock::now();
    f();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

// The library and baseline seconds of one repetition, and what it reports.
struct Repetition {
    double library = 0;
    double raw = 0;
    int64_t bytes = 0;  // moved per iteration, for the throughput counters

    void add(benchmark::State& state, double librarySeconds, double rawSeconds) {
        state.SetIterationTime(librarySeconds);
        library += librarySeconds;
        raw += rawSeconds;
    }

    void finish(benchmark::State& state, FigureId id) {
        const double n = double(std::max<int64_t>(state.iterations(), 1));
        results[id].library.push_back(library / n);
        results[id].raw.push_back(raw / n);
        state.counters["raw_ms"] = raw / n * 1e3;
        state.counters["ratio"] = ratioOf(figures[id], library, raw);
        if (bytes > 0) {
            state.counters["lib_MBps"] = double(bytes) * n / library / 1e6;
            state.counters["raw_MBps"] = double(bytes) * n / raw / 1e6;
        }
    }
};

// /proc/self/status fields in kilobytes; -1 when the line is missing.
long statusKilobytes(const char* field) {
    std::ifstream status("/proc/self/status");
    std::string line;
    const std::size_t length = strlen(field);
    while (std::getline(status, line))
        if (line.compare(0, length, field) == 0) return std::stol(line.substr(length + 1));
    return -1;
}

// Sets the peak resident size back to the current one, so that a later VmHWM is the peak of what
// ran in between.
bool resetPeakResident() {
    std::ofstream clear("/proc/self/clear_refs");
    clear << "5";
    clear.flush();
    return bool(clear);
}

// ---- Data and files, made once and dropped when no later figure needs them

template <class T>
class Lazy {
  public:
    T& get() {
        if (!value) value.reset(new T());
        return *value;
    }
    void release() { value.reset(); }

  private:
    std::unique_ptr<T> value;
};

Lazy<W1Data> w1Data;
Lazy<W2Data> w2Data;
Lazy<KynRwMemCache> w1Cache;  // all of W1 in memory, for saveAs

// The files of the run, named once; removeScratchFiles deletes them at the end.
struct Paths {
    std::string w1 = scratchPath("w1.kyn");
    std::string w1Saved = scratchPath("w1_saved.kyn");
    std::string w1Raw = scratchPath("w1.raw");
    std::string w2 = scratchPath("w2.kyn");
    std::string w2Raw = scratchPath("w2_positions.raw");
    std::string w2Matrices = scratchPath("w2_matrices.raw");
};
const Paths& paths() {
    static const Paths made;
    return made;
}

bool w1Written = false;
bool w2Written = false;

bool writeW1Files() {
    KynMETAChunk meta;
    fillW1Meta(w1Data.get(), meta);
    w1Written = streamW1(paths().w1, meta, w1Data.get()) && writeRawW1(paths().w1Raw, w1Data.get());
    return w1Written;
}

bool writeW2Files() {
    KynMETAChunk meta;
    fillW2Meta(w2Data.get(), meta);
    w2Written = streamW2(paths().w2, meta, w2Data.get()) &&
                writeRawW2Positions(paths().w2Raw, w2Data.get()) &&
                writeRawW2Matrices(paths().w2Matrices, w2Data.get());
    return w2Written;
}

bool ensureW1Files() {
    const bool ok = w1Written || writeW1Files();
    w1Data.release();
    w1Cache.release();
    return ok;
}

bool ensureW2Files() {
    const bool ok = w2Written || writeW2Files();
    w2Data.release();
    return ok;
}

// Removes the files that the next timed writes create and puts every other written page on
// disk, so that neither side of a write figure pays for truncating what an earlier repetition
// wrote or for the writeback of earlier files.
void prepareWrites(const std::string& raw, const std::string& library) {
    unlink(raw.c_str());
    unlink(library.c_str());
    sync();
}

// Reads `count` bytes from `in` into `out` in blocks of `block`.
bool freadBlocks(FILE* in, char* out, std::size_t count, std::size_t block) {
    for (std::size_t done = 0; done < count; done += block)
        if (fread(out + done, 1, std::min(block, count - done), in) !=
            std::min(block, count - done))
            return false;
    return true;
}

// ---- W1

void BM_W1StreamWrite(benchmark::State& state) {
    KynMETAChunk meta;
    fillW1Meta(w1Data.get(), meta);
    Repetition repetition;
    repetition.bytes = int64_t(kW1Samples * kW1Floats * sizeof(float));
    for (auto _ : state) {
        prepareWrites(paths().w1Raw, paths().w1);
        bool ok = false;
        const double raw = timed([&] { ok = writeRawW1(paths().w1Raw, w1Data.get()); });
        const double library = timed([&] { ok = ok && streamW1(paths().w1, meta, w1Data.get()); });
        if (!ok) return state.SkipWithError("a write failed");
        repetition.add(state, library, raw);
    }
    w1Written = true;
    repetition.finish(state, kFigureW1Write);
}

void BM_W1SaveAs(benchmark::State& state) {
    KynRwMemCache& cache = w1Cache.get();
    if (cache.meta.objects.empty()) fillW1Cache(w1Data.get(), cache);
    Repetition repetition;
    repetition.bytes = int64_t(kW1Samples * kW1Floats * sizeof(float));
    for (auto _ : state) {
        prepareWrites(paths().w1Raw, paths().w1Saved);
        bool ok = false;
        const double raw = timed([&] { ok = writeRawW1(paths().w1Raw, w1Data.get()); });
        const double library =
            timed([&] { ok = ok && cache.saveAs(paths().w1Saved.c_str(), nullptr, nullptr); });
        if (!ok) return state.SkipWithError("a write failed");
        repetition.add(state, library, raw);
    }
    repetition.finish(state, kFigureW1SaveAs);
}

void BM_W1ReadAll(benchmark::State& state) {
    if (!ensureW1Files()) return state.SkipWithError("the W1 files could not be written");
    std::vector<float> buffer(kW1Floats, 1.0f);
    const std::size_t sampleBytes = kW1Floats * sizeof(float);
    Repetition repetition;
    repetition.bytes = int64_t(kW1Samples * sampleBytes);
    double peakMegabytes = 0;
    for (auto _ : state) {
        std::vector<char> stdioBuffer;
        FILE* in = openStdio(paths().w1Raw, "r", stdioBuffer);
        bool ok = in != nullptr;
        const double raw = timed([&] {
            for (int s = 0; ok && s < kW1Samples; ++s)
                ok = fread(buffer.data(), 1, sampleBytes, in) == sampleBytes;
        });
        if (in) fclose(in);

        malloc_trim(0);
        const long before = statusKilobytes("VmRSS:");
        const bool peakKnown = resetPeakResident();
        double library = 0;
        {
            KynRoMemCache cache;
            ok = ok && cache.load(paths().w1.c_str(), true, 2);
            MeshKynObj view(&cache, 0);
            library = timed([&] {
                for (int s = 0; ok && s < kW1Samples; ++s) {
                    const std::vector<float>* data = nullptr;
                    KynHelperObj::AnimationState animated;
                    int dimension = 0;
                    ok = view.getPositionData(s, data, animated, dimension) &&
                         data->size() == kW1Floats;
                }
            });
        }
        if (!ok) return state.SkipWithError("a read failed");
        if (peakKnown) peakMegabytes = double(statusKilobytes("VmHWM:") - before) / 1024.0;
        repetition.add(state, library, raw);
    }
    repetition.finish(state, kFigureW1Read);
    state.counters["peak_MB"] = peakMegabytes;
    results[kFigureW1Peak].library.push_back(peakMegabytes);
}

// The blend that getPositionAtTime performs, written out plainly over the same arrays.
void plainBlend(int order, float x, const std::vector<const std::vector<float>*>& samples,
                std::vector<float>& out) {
    const std::size_t count = samples[0]->size();
    const float* p0 = samples[0]->data();
    const float* p1 = samples[1]->data();
    float* result = out.data();
    if (order == 1) {
        const float rest = 1.0f - x;
        for (std::size_t i = 0; i < count; ++i) result[i] = p0[i] * rest + p1[i] * x;
        return;
    }
    const float* p2 = samples[2]->data();
    const float* p3 = samples[3]->data();
    float w0, w1, w2, w3;
    DGMath::getCubicFactors<float, float>(w0, w1, w2, w3, x);
    for (std::size_t i = 0; i < count; ++i)
        result[i] = p0[i] * w0 + p1[i] * w1 + p2[i] * w2 + p3[i] * w3;
}

void BM_W1EvalAtTime(benchmark::State& state) {
    const int order = int(state.range(0));
    if (!ensureW1Files()) return state.SkipWithError("the W1 files could not be written");
    KynRoMemCache cache;
    if (!cache.load(paths().w1.c_str(), true, 0)) return state.SkipWithError("load failed");
    cache.loadAllSamples();
    MeshKynObj view(&cache, 0);
    KynInterpolationHints hints;
    hints.order = order;
    std::vector<float> out;
    std::vector<float> plain(kW1Floats);
    std::vector<const std::vector<float>*> picked(std::size_t(order) + 1);
    Repetition repetition;
    int step = 0;
    for (auto _ : state) {
        // Mid-sample times; the run of samples starts at the one before the time.
        const int first = 2 + step++ % 40;
        const float time = float(first) + 0.5f;
        KynHelperObj::AnimationState animated;
        int dimension = 0;
        for (int k = 0; k <= order; ++k)
            view.getPositionData(first + k, picked[std::size_t(k)], animated, dimension);
        const float x = order == 1 ? time - float(first) : time - float(first + 1);
        const double raw = timed([&] { plainBlend(order, x, picked, plain); });
        bool ok = false;
        const double library =
            timed([&] { ok = view.getPositionAtTime(time, hints, out, animated, dimension); });
        if (!ok || out != plain) return state.SkipWithError("the blends differ");
        repetition.add(state, library, raw);
    }
    repetition.finish(state, order == 1 ? kFigureW1Eval1 : kFigureW1Eval3);
}

// ---- W2

void BM_W2StreamWrite(benchmark::State& state) {
    KynMETAChunk meta;
    fillW2Meta(w2Data.get(), meta);
    if (!writeRawW2Matrices(paths().w2Matrices, w2Data.get()))
        return state.SkipWithError("the matrices could not be written");
    Repetition repetition;
    repetition.bytes = int64_t(kW2Samples) * kW2Meshes * int64_t(kW2Floats * sizeof(float));
    for (auto _ : state) {
        prepareWrites(paths().w2Raw, paths().w2);
        bool ok = false;
        const double raw = timed([&] { ok = writeRawW2Positions(paths().w2Raw, w2Data.get()); });
        const double library = timed([&] { ok = ok && streamW2(paths().w2, meta, w2Data.get()); });
        if (!ok) return state.SkipWithError("a write failed");
        repetition.add(state, library, raw);
    }
    w2Written = true;
    repetition.finish(state, kFigureW2Write);
}

// The bytes in front of the first sample: what a load reads.
int64_t w2HeadBytes() {
    static int64_t bytes = -1;
    if (bytes < 0) {
        KynCache cache;
        if (cache.load(paths().w2.c_str(), true)) bytes = cache.sampleJumps.front();
    }
    return bytes;
}

void BM_W2Load(benchmark::State& state) {
    if (!ensureW2Files() || w2HeadBytes() < 0) return state.SkipWithError("no W2 file");
    std::vector<char> head(static_cast<std::size_t>(w2HeadBytes()));
    Repetition repetition;
    for (auto _ : state) {
        std::vector<char> stdioBuffer;
        FILE* in = openStdio(paths().w2, "r", stdioBuffer);
        bool ok = in != nullptr;
        const double raw =
            timed([&] { ok = ok && fread(head.data(), 1, head.size(), in) == head.size(); });
        if (in) fclose(in);
        auto cache = std::make_unique<KynRoMemCache>();
        const double library = timed([&] { ok = ok && cache->load(paths().w2.c_str(), true); });
        if (!ok || cache->meta.objects.size() != 2 * kW2Meshes)
            return state.SkipWithError("a load failed");
        repetition.add(state, library, raw);
    }
    repetition.finish(state, kFigureW2Load);
}

const std::vector<std::string>& w2MeshNames() {
    static std::vector<std::string> names;
    for (int k = int(names.size()); k < kW2Meshes; ++k) names.push_back(w2MeshName(k));
    return names;
}

void BM_W2MeshesAtSample(benchmark::State& state) {
    constexpr int kSample = 12;
    if (!ensureW2Files()) return state.SkipWithError("no W2 file");
    const std::vector<std::string>& names = w2MeshNames();
    const std::size_t meshBytes = kW2Floats * sizeof(float);
    std::vector<char> buffer(meshBytes * kW2Meshes, 1);
    Repetition repetition;
    repetition.bytes = int64_t(meshBytes) * kW2Meshes;
    for (auto _ : state) {
        std::vector<char> stdioBuffer;
        FILE* in = openStdio(paths().w2Raw, "r", stdioBuffer);
        bool ok = in != nullptr;
        const double raw = timed([&] {
            ok = ok && fseeko(in, off_t(kSample) * kW2Meshes * off_t(meshBytes), SEEK_SET) == 0 &&
                 freadBlocks(in, buffer.data(), buffer.size(), meshBytes);
        });
        if (in) fclose(in);
        KynRoMemCache cache;
        ok = ok && cache.load(paths().w2.c_str(), true);
        const double library = timed([&] {
            int index = -1;
            for (int k = 0; ok && k < kW2Meshes; ++k) {
                index = cache.findObjectIndex(names[std::size_t(k)], index + 1);
                MeshKynObj view(&cache, index);
                const std::vector<float>* data = nullptr;
                KynHelperObj::AnimationState animated;
                int dimension = 0;
                ok = view.getPositionData(kSample, data, animated, dimension) &&
                     data->size() == kW2Floats && (*data)[0] == float(16 * k);
            }
        });
        if (!ok) return state.SkipWithError("a read failed");
        repetition.add(state, library, raw);
    }
    repetition.finish(state, kFigureW2Meshes);
}

// Reads mesh `mesh` at every sample through a view: true when every read gave its data.
bool readAllSamples(KynRoMemCache& cache, int mesh) {
    MeshKynObj view(&cache, w2Mesh(mesh));
    for (int s = 0; s < kW2Samples; ++s) {
        const std::vector<float>* data = nullptr;
        KynHelperObj::AnimationState animated;
        int dimension = 0;
        if (!view.getPositionData(s, data, animated, dimension) || (*data)[1] != float(16 * s))
            return false;
    }
    return true;
}

// Mesh `mesh` at all samples, on a freshly loaded cache. With `after` the cache has first read
// the mesh before it at all samples, so that the object tables of the samples are in hand; with
// `lazy` it takes single entries of the tables.
void objectAllSamples(benchmark::State& state, int mesh, bool after, bool lazy, FigureId figure) {
    if (!ensureW2Files()) return state.SkipWithError("no W2 file");
    const std::size_t meshBytes = kW2Floats * sizeof(float);
    std::vector<char> buffer(meshBytes);
    const int fd = open(paths().w2Raw.c_str(), O_RDONLY | O_CLOEXEC);
    Repetition repetition;
    for (auto _ : state) {
        bool ok = fd >= 0;
        const double raw = timed([&] {
            for (int s = 0; ok && s < kW2Samples; ++s) {
                const off_t at = (off_t(s) * kW2Meshes + mesh) * off_t(meshBytes);
                ok = pread(fd, buffer.data(), meshBytes, at) == ssize_t(meshBytes);
            }
        });
        KynRoMemCache cache;
        cache.lazyObjectJumps = lazy;
        ok = ok && cache.load(paths().w2.c_str(), true) &&
             (!after || readAllSamples(cache, mesh - 1));
        const double library = timed([&] { ok = ok && readAllSamples(cache, mesh); });
        if (!ok) return state.SkipWithError("a read failed");
        repetition.add(state, library, raw);
    }
    if (fd >= 0) close(fd);
    repetition.finish(state, figure);
}

void BM_W2ObjectAllSamples(benchmark::State& state) {
    objectAllSamples(state, 5000, false, false, kFigureW2Object);
}

void BM_W2ObjectAfterAnother(benchmark::State& state) {
    objectAllSamples(state, 5001, true, false, kFigureW2ObjectKept);
}

void BM_W2ObjectLazyJumps(benchmark::State& state) {
    objectAllSamples(state, 5000, false, true, kFigureW2ObjectLazy);
}

// The same for the first mesh: its slot in the memory table of each sample comes first, so the
// difference to mesh 5000 is the cost of the 10,000 slots in front of that mesh's.
void BM_W2FirstObjectLazyJumps(benchmark::State& state) {
    objectAllSamples(state, 0, false, true, kFigureW2FirstObjectLazy);
}

void BM_W2TransformsAtTime(benchmark::State& state) {
    constexpr int kSample = 12;
    constexpr float kTime = 12.5f;
    if (!ensureW2Files()) return state.SkipWithError("no W2 file");
    const std::size_t sampleBytes = kW2Meshes * kMatrixFloats * sizeof(float);
    std::vector<char> buffer(2 * sampleBytes);
    Repetition repetition;
    for (auto _ : state) {
        std::vector<char> stdioBuffer;
        FILE* in = openStdio(paths().w2Matrices, "r", stdioBuffer);
        bool ok = in != nullptr;
        const double raw = timed([&] {
            ok = ok && fseeko(in, off_t(kSample) * off_t(sampleBytes), SEEK_SET) == 0 &&
                 freadBlocks(in, buffer.data(), buffer.size(), kMatrixFloats * sizeof(float));
        });
        if (in) fclose(in);
        KynRoMemCache cache;
        ok = ok && cache.load(paths().w2.c_str(), true);
        KynInterpolationHints hints;
        hints.order = 1;
        std::vector<float> matrix;
        const double library = timed([&] {
            for (int k = 0; ok && k < kW2Meshes; ++k) {
                TransformKynObj view(&cache, w2Transform(k));
                KynHelperObj::AnimationState animated;
                ok = view.getTransformAtTime(kTime, hints, matrix, animated) &&
                     matrix[12] == float(k) && matrix[13] == kTime;
            }
        });
        if (!ok) return state.SkipWithError("an evaluation failed");
        repetition.add(state, library, raw);
    }
    repetition.finish(state, kFigureW2Transforms);
}

void configure(benchmark::internal::Benchmark* b, int iterations) {
    b->Unit(benchmark::kMillisecond)
        ->UseManualTime()
        ->Iterations(iterations)
        ->Repetitions(5)
        ->ReportAggregatesOnly(true);
}

}  // namespace

BENCHMARK(BM_W1StreamWrite)->Apply([](auto* b) { configure(b, 1); });
BENCHMARK(BM_W1SaveAs)->Apply([](auto* b) { configure(b, 1); });
BENCHMARK(BM_W1ReadAll)->Apply([](auto* b) { configure(b, 1); });
BENCHMARK(BM_W1EvalAtTime)->Arg(1)->Arg(3)->Apply([](auto* b) { configure(b, 40); });
BENCHMARK(BM_W2StreamWrite)->Apply([](auto* b) { configure(b, 1); });
BENCHMARK(BM_W2Load)->Apply([](auto* b) { configure(b, 10); });
BENCHMARK(BM_W2MeshesAtSample)->Apply([](auto* b) { configure(b, 5); });
BENCHMARK(BM_W2ObjectAllSamples)->Apply([](auto* b) { configure(b, 20); });
BENCHMARK(BM_W2ObjectAfterAnother)->Apply([](auto* b) { configure(b, 20); });
BENCHMARK(BM_W2ObjectLazyJumps)->Apply([](auto* b) { configure(b, 20); });
BENCHMARK(BM_W2FirstObjectLazyJumps)->Apply([](auto* b) { configure(b, 20); });
BENCHMARK(BM_W2TransformsAtTime)->Apply([](auto* b) { configure(b, 1); });

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    removeScratchFiles();
    printSummary();
    return 0;
}
