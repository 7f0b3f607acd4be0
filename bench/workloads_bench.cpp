// The performance figures of the library on the two workloads of Workloads.h, each measured next
// to its raw baseline in the same repetition (Figures.h).
//
// The main rows measure what a host does: it loads a cache, finds each object by its path with
// findObjectIndex, asks KynHelperObjFactory for the view, and reads or evaluates through it; the
// lookup and the factory are inside the timing. Secondary rows read through views built
// directly, to show what the read alone costs, and one figure times each step on its own.
//
// Baselines: the same position bytes written with fwrite and read with fread through a 1 MiB
// stdio buffer, pread for single small reads, and for evaluation at a time a plain loop that
// blends the very arrays the library blends. Files live under /tmp and are warm in the page
// cache for both sides; writes go to files removed just before, with earlier writes synced.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <malloc.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "DGMath.h"
#include "Figures.h"
#include "KynHelper.h"
#include "KynRoMemCache.h"
#include "Workloads.h"

using namespace Kyn;
using namespace figures;
using namespace workloads;

namespace {

// ---- The figures, in the order of the table

const char* const kHostSection = "Host path: lookup by path, factory, read";
const char* const kStepsSection = "W2, one step at a time, on a cache just loaded";
const char* const kViewsSection = "Views built directly, no lookup, no factory";
const char* const kWritesSection = "Writes";

const int kFigW1Host =
    table().add({kHostSection, "W1 load + lookup + factory + getPositionData at sample 24",
                 "open + fseek + fread of the 12 MB", Goal::kTimeRatioAtMost, 1.3});
const int kFigW1HostAll = table().add({nullptr, "W1 every sample, lookup + factory, maxSamples 2",
                                       "fread", Goal::kThroughputAtLeast, 0.6});
const int kFigW1HostPeak =
    table().add({nullptr, "W1 every sample, lookup + factory: peak resident growth", "",
                 Goal::kMegabytesAtMost, 50});
const int kFigW2Load = table().add(
    {nullptr, "W2 load", "fread of the bytes load reads", Goal::kMillisecondsAtMost, 10});
const int kFigW2HostMeshes = table().add({nullptr,
                                          "W2 every mesh at sample 12, lookup with the previous "
                                          "index plus one",
                                          "fread", Goal::kTimeRatioAtMost, 3});
const int kFigW2HostObject = table().add({nullptr,
                                          "W2 mesh 5000 at all 24 samples, transform found from "
                                          "index 0, cache just loaded",
                                          "pread", Goal::kMillisecondsAtMost, 1.0});
const int kFigW2HostObjectLazy =
    table().add({nullptr, "W2 the same, lazyObjectJumps", "pread", Goal::kMillisecondsAtMost, 0.2});
const int kFigW2HostTransforms =
    table().add({nullptr,
                 "W2 every transform, getTransformAtTime(12.5) order 1, "
                 "cache just loaded",
                 "fread of the matrices", Goal::kMillisecondsAtMost, 5});
const int kFigStepLookupHint = table().add(
    {kStepsSection, "findObjectIndex of every mesh, previous index plus one", "", Goal::kNone, 0});
const int kFigStepLookupFar =
    table().add({nullptr, "findObjectIndex of transform 5000 from index 0", "", Goal::kNone, 0});
const int kFigStepFactory =
    table().add({nullptr, "kynObjBuilder of every mesh, first time", "", Goal::kNone, 0});
const int kFigStepFactoryAgain =
    table().add({nullptr, "kynObjBuilder of every mesh, again", "", Goal::kNone, 0});
const int kFigStepRead =
    table().add({nullptr, "getPositionData of every mesh at sample 12", "", Goal::kNone, 0});
const int kFigStepEval = table().add(
    {nullptr, "getTransformAtTime(12.5) of every transform, order 1", "", Goal::kNone, 0});
const int kFigW1Read =
    table().add({kViewsSection, "W1 read of all samples, getPositionData, maxSamples 2", "fread",
                 Goal::kThroughputAtLeast, 0.6});
const int kFigW1Eval1 = table().add({nullptr, "W1 getPositionAtTime, order 1, warm",
                                     "plain blend loop", Goal::kTimeRatioAtMost, 1.5});
const int kFigW1Eval3 = table().add({nullptr, "W1 getPositionAtTime, order 3, warm",
                                     "plain blend loop", Goal::kTimeRatioAtMost, 1.5});
const int kFigW2Meshes =
    table().add({nullptr, "W2 every mesh at sample 12", "fread", Goal::kNone, 0});
const int kFigW2Object = table().add(
    {nullptr, "W2 mesh 5000 at all 24 samples, cache just loaded", "pread", Goal::kNone, 0});
const int kFigW2ObjectKept = table().add(
    {nullptr, "W2 mesh 5001 at all 24 samples, after mesh 5000", "pread", Goal::kNone, 0});
const int kFigW2ObjectLazy = table().add(
    {nullptr, "W2 mesh 5000 at all 24 samples, lazyObjectJumps", "pread", Goal::kNone, 0});
const int kFigW2FirstObjectLazy =
    table().add({nullptr, "W2 mesh 0 at all 24 samples, lazyObjectJumps", "pread", Goal::kNone, 0});
const int kFigW2Transforms =
    table().add({nullptr, "W2 every transform, getTransformAtTime(12.5), order 1",
                 "fread of the matrices", Goal::kNone, 0});
const int kFigW1Write = table().add({kWritesSection, "W1 streaming write, KynFile + KynSAMSChunk",
                                     "fwrite", Goal::kThroughputAtLeast, 0.85});
const int kFigW1SaveAs = table().add(
    {nullptr, "W1 write through KynRwMemCache::saveAs", "fwrite", Goal::kThroughputAtLeast, 0.7});
const int kFigW2Write =
    table().add({nullptr, "W2 streaming write", "fwrite", Goal::kTimeRatioAtMost, 3});

// ---- Memory

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

// ---- The host's steps

// The view of an object as a host gets it: from the factory, kept when it is of class View.
template <class View>
std::unique_ptr<View> viewFromFactory(KynRoMemCache& cache, int index) {
    KynHelperObjFactory factory(&cache);
    std::unique_ptr<KynHelperObj> view(factory.kynObjBuilder(index));
    if (dynamic_cast<View*>(view.get()) == nullptr) return nullptr;
    return std::unique_ptr<View>(static_cast<View*>(view.release()));
}

// The view of the next object of a walk in file order. `host`: looked up by `name` with the
// previous index plus one as hint (`index`, updated) and built by the factory; otherwise built
// directly on `direct`.
template <class View>
std::unique_ptr<View> walkView(KynRoMemCache& cache, const std::string& name, int direct, bool host,
                               int& index) {
    if (!host) return std::unique_ptr<View>(new View(&cache, direct));
    index = cache.findObjectIndex(name, index + 1);
    return viewFromFactory<View>(cache, index);
}

bool readPositions(GeometryKynObj& view, int sample, const std::vector<float>*& data) {
    KynHelperObj::AnimationState animated;
    int dimension = 0;
    return view.getPositionData(sample, data, animated, dimension);
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
    repetition.finish(state, kFigW1Write);
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
    repetition.finish(state, kFigW1SaveAs);
}

// One sample of W1 the way a host gets it, load included, against opening the raw file and
// reading the same 12 MB in one call.
void BM_W1HostOneSample(benchmark::State& state) {
    constexpr int kSample = 24;
    if (!ensureW1Files()) return state.SkipWithError("the W1 files could not be written");
    const std::size_t sampleBytes = kW1Floats * sizeof(float);
    std::vector<float> buffer(kW1Floats, 1.0f);
    Repetition repetition;
    repetition.bytes = int64_t(sampleBytes);
    for (auto _ : state) {
        bool ok = true;
        const double raw = timed([&] {
            FILE* in = fopen(paths().w1Raw.c_str(), "r");
            ok = in != nullptr && fseeko(in, off_t(kSample) * off_t(sampleBytes), SEEK_SET) == 0 &&
                 fread(buffer.data(), 1, sampleBytes, in) == sampleBytes;
            if (in) fclose(in);
        });
        auto cache = std::make_unique<KynRoMemCache>();
        const double library = timed([&] {
            std::unique_ptr<MeshKynObj> view;
            const std::vector<float>* data = nullptr;
            ok = ok && cache->load(paths().w1.c_str(), true) &&
                 (view = viewFromFactory<MeshKynObj>(*cache, cache->findObjectIndex("|mesh", 0))) &&
                 readPositions(*view, kSample, data) && data->size() == kW1Floats;
        });
        if (!ok) return state.SkipWithError("a read failed");
        repetition.add(state, library, raw);
    }
    repetition.finish(state, kFigW1Host);
}

// Every sample of W1 through one view, `host`: found and built as a host does, inside the
// timing; otherwise built directly. Also the growth of the resident size over load and read.
void w1ReadAll(benchmark::State& state, bool host) {
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
            std::unique_ptr<MeshKynObj> view(host ? nullptr : new MeshKynObj(&cache, 0));
            library = timed([&] {
                if (host)
                    view = viewFromFactory<MeshKynObj>(cache, cache.findObjectIndex("|mesh", 0));
                ok = ok && view;
                for (int s = 0; ok && s < kW1Samples; ++s) {
                    const std::vector<float>* data = nullptr;
                    ok = readPositions(*view, s, data) && data->size() == kW1Floats;
                }
            });
        }
        if (!ok) return state.SkipWithError("a read failed");
        if (peakKnown) peakMegabytes = double(statusKilobytes("VmHWM:") - before) / 1024.0;
        repetition.add(state, library, raw);
    }
    repetition.finish(state, host ? kFigW1HostAll : kFigW1Read);
    state.counters["peak_MB"] = peakMegabytes;
    if (host) table().results(kFigW1HostPeak).library.push_back(peakMegabytes);
}

void BM_W1HostReadAll(benchmark::State& state) {
    w1ReadAll(state, true);
}

void BM_W1ReadAll(benchmark::State& state) {
    w1ReadAll(state, false);
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
        for (int k = 0; k <= order; ++k) readPositions(view, first + k, picked[std::size_t(k)]);
        const float x = order == 1 ? time - float(first) : time - float(first + 1);
        const double raw = timed([&] { plainBlend(order, x, picked, plain); });
        bool ok = false;
        const double library =
            timed([&] { ok = view.getPositionAtTime(time, hints, out, animated, dimension); });
        if (!ok || out != plain) return state.SkipWithError("the blends differ");
        repetition.add(state, library, raw);
    }
    repetition.finish(state, order == 1 ? kFigW1Eval1 : kFigW1Eval3);
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
    repetition.finish(state, kFigW2Write);
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
    repetition.finish(state, kFigW2Load);
}

const std::vector<std::string>& w2MeshNames() {
    static std::vector<std::string> names;
    for (int k = int(names.size()); k < kW2Meshes; ++k) names.push_back(w2MeshName(k));
    return names;
}

const std::vector<std::string>& w2TransformNames() {
    static std::vector<std::string> names;
    for (int k = int(names.size()); k < kW2Meshes; ++k) names.push_back(w2TransformName(k));
    return names;
}

// The positions of mesh k at sample 12 are those W2 wrote.
bool isMeshAtSample12(const std::vector<float>* data, int k) {
    return data->size() == kW2Floats && (*data)[0] == float(16 * k) && (*data)[1] == float(16 * 12);
}

// fread of the raw positions of every mesh at sample 12, one call per mesh.
double rawMeshesAtSample12(std::vector<char>& buffer, bool& ok) {
    constexpr int kSample = 12;
    const std::size_t meshBytes = kW2Floats * sizeof(float);
    std::vector<char> stdioBuffer;
    FILE* in = openStdio(paths().w2Raw, "r", stdioBuffer);
    ok = in != nullptr;
    const double raw = timed([&] {
        ok = ok && fseeko(in, off_t(kSample) * kW2Meshes * off_t(meshBytes), SEEK_SET) == 0 &&
             freadBlocks(in, buffer.data(), buffer.size(), meshBytes);
    });
    if (in) fclose(in);
    return raw;
}

// Every mesh at sample 12, `host`: looked up by path with the previous index plus one as hint
// and built by the factory; otherwise a view built directly on the known index.
void w2MeshesAtSample(benchmark::State& state, bool host) {
    if (!ensureW2Files()) return state.SkipWithError("no W2 file");
    const std::vector<std::string>& names = w2MeshNames();
    const std::size_t meshBytes = kW2Floats * sizeof(float);
    std::vector<char> buffer(meshBytes * kW2Meshes, 1);
    Repetition repetition;
    repetition.bytes = int64_t(meshBytes) * kW2Meshes;
    for (auto _ : state) {
        bool ok = false;
        const double raw = rawMeshesAtSample12(buffer, ok);
        KynRoMemCache cache;
        ok = ok && cache.load(paths().w2.c_str(), true);
        const double library = timed([&] {
            int index = -1;
            for (int k = 0; ok && k < kW2Meshes; ++k) {
                auto view =
                    walkView<MeshKynObj>(cache, names[std::size_t(k)], w2Mesh(k), host, index);
                const std::vector<float>* data = nullptr;
                ok = view && readPositions(*view, 12, data) && isMeshAtSample12(data, k);
            }
        });
        if (!ok) return state.SkipWithError("a read failed");
        repetition.add(state, library, raw);
    }
    repetition.finish(state, host ? kFigW2HostMeshes : kFigW2Meshes);
}

void BM_W2HostMeshesAtSample(benchmark::State& state) {
    w2MeshesAtSample(state, true);
}

void BM_W2MeshesAtSample(benchmark::State& state) {
    w2MeshesAtSample(state, false);
}

// Reads mesh `mesh` at every sample through `view`: true when every read gave its data.
bool readAllSamples(GeometryKynObj& view) {
    for (int s = 0; s < kW2Samples; ++s) {
        const std::vector<float>* data = nullptr;
        if (!readPositions(view, s, data) || (*data)[1] != float(16 * s)) return false;
    }
    return true;
}

// Mesh `mesh` as a host finds it: its transform by path from index 0, the mesh from the
// transform's index plus one, the view from the factory. Null when any step fails.
std::unique_ptr<MeshKynObj> hostMesh(KynRoMemCache& cache, int mesh) {
    const int transform = cache.findObjectIndex(w2TransformNames()[std::size_t(mesh)], 0);
    if (transform < 0) return nullptr;
    const int index = cache.findObjectIndex(w2MeshNames()[std::size_t(mesh)], transform + 1);
    return viewFromFactory<MeshKynObj>(cache, index);
}

enum class Reach { kDirect, kHost };

// Mesh `mesh` at all samples, on a freshly loaded cache. With `after` the cache has first read
// the mesh before it at all samples, so that the object tables of the samples are in hand; with
// `lazy` it takes single entries of the tables.
void objectAllSamples(benchmark::State& state, int mesh, bool after, bool lazy, Reach reach,
                      int figure) {
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
        ok = ok && cache.load(paths().w2.c_str(), true);
        if (ok && after) {
            MeshKynObj before(&cache, w2Mesh(mesh - 1));
            ok = readAllSamples(before);
        }
        const double library = timed([&] {
            std::unique_ptr<MeshKynObj> view;
            if (reach == Reach::kHost)
                view = hostMesh(cache, mesh);
            else
                view.reset(new MeshKynObj(&cache, w2Mesh(mesh)));
            ok = ok && view && readAllSamples(*view);
        });
        if (!ok) return state.SkipWithError("a read failed");
        repetition.add(state, library, raw);
    }
    if (fd >= 0) close(fd);
    repetition.finish(state, figure);
}

void BM_W2HostObject(benchmark::State& state) {
    objectAllSamples(state, 5000, false, false, Reach::kHost, kFigW2HostObject);
}

void BM_W2HostObjectLazy(benchmark::State& state) {
    objectAllSamples(state, 5000, false, true, Reach::kHost, kFigW2HostObjectLazy);
}

void BM_W2ObjectAllSamples(benchmark::State& state) {
    objectAllSamples(state, 5000, false, false, Reach::kDirect, kFigW2Object);
}

void BM_W2ObjectAfterAnother(benchmark::State& state) {
    objectAllSamples(state, 5001, true, false, Reach::kDirect, kFigW2ObjectKept);
}

void BM_W2ObjectLazyJumps(benchmark::State& state) {
    objectAllSamples(state, 5000, false, true, Reach::kDirect, kFigW2ObjectLazy);
}

// The same for the first mesh: its slot in the memory table of each sample comes first, so the
// difference to mesh 5000 is the cost of the 10,000 slots in front of that mesh's.
void BM_W2FirstObjectLazyJumps(benchmark::State& state) {
    objectAllSamples(state, 0, false, true, Reach::kDirect, kFigW2FirstObjectLazy);
}

// fread of the raw matrices of samples 12 and 13, one call per matrix.
double rawMatricesAtSample12(std::vector<char>& buffer, bool& ok) {
    constexpr int kSample = 12;
    const std::size_t sampleBytes = kW2Meshes * kMatrixFloats * sizeof(float);
    std::vector<char> stdioBuffer;
    FILE* in = openStdio(paths().w2Matrices, "r", stdioBuffer);
    ok = in != nullptr;
    const double raw = timed([&] {
        ok = ok && fseeko(in, off_t(kSample) * off_t(sampleBytes), SEEK_SET) == 0 &&
             freadBlocks(in, buffer.data(), buffer.size(), kMatrixFloats * sizeof(float));
    });
    if (in) fclose(in);
    return raw;
}

bool evaluate(TransformKynObj& view, int k, std::vector<float>& matrix) {
    constexpr float kTime = 12.5f;
    KynInterpolationHints hints;
    hints.order = 1;
    KynHelperObj::AnimationState animated;
    return view.getTransformAtTime(kTime, hints, matrix, animated) && matrix[12] == float(k) &&
           matrix[13] == kTime;
}

// Every transform evaluated at 12.5, `host`: looked up by path with the previous index plus one
// as hint and built by the factory; otherwise a view built directly on the known index.
void w2TransformsAtTime(benchmark::State& state, bool host) {
    if (!ensureW2Files()) return state.SkipWithError("no W2 file");
    const std::vector<std::string>& names = w2TransformNames();
    std::vector<char> buffer(2 * kW2Meshes * kMatrixFloats * sizeof(float));
    Repetition repetition;
    for (auto _ : state) {
        bool ok = false;
        const double raw = rawMatricesAtSample12(buffer, ok);
        KynRoMemCache cache;
        ok = ok && cache.load(paths().w2.c_str(), true);
        std::vector<float> matrix;
        const double library = timed([&] {
            int index = -1;
            for (int k = 0; ok && k < kW2Meshes; ++k) {
                auto view = walkView<TransformKynObj>(cache, names[std::size_t(k)], w2Transform(k),
                                                      host, index);
                ok = view && evaluate(*view, k, matrix);
            }
        });
        if (!ok) return state.SkipWithError("an evaluation failed");
        repetition.add(state, library, raw);
    }
    repetition.finish(state, host ? kFigW2HostTransforms : kFigW2Transforms);
}

void BM_W2HostTransformsAtTime(benchmark::State& state) {
    w2TransformsAtTime(state, true);
}

void BM_W2TransformsAtTime(benchmark::State& state) {
    w2TransformsAtTime(state, false);
}

// Each step of the host path on its own, on a cache just loaded: lookups, the factory (the
// first time for each object and again), reads through the views, evaluation.
void BM_W2Steps(benchmark::State& state) {
    if (!ensureW2Files()) return state.SkipWithError("no W2 file");
    const std::vector<std::string>& meshNames = w2MeshNames();
    const std::vector<std::string>& transformNames = w2TransformNames();
    Repetition lookupHint, lookupFar, factory, factoryAgain, read, eval;
    for (auto _ : state) {
        KynRoMemCache cache;
        bool ok = cache.load(paths().w2.c_str(), true);
        std::vector<int> indices(kW2Meshes);
        lookupHint.add(state, timed([&] {
                           int index = -1;
                           for (int k = 0; k < kW2Meshes; ++k)
                               indices[std::size_t(k)] = index =
                                   cache.findObjectIndex(meshNames[std::size_t(k)], index + 1);
                       }),
                       0);
        lookupFar.add(
            state,
            timed([&] { ok = ok && cache.findObjectIndex(transformNames[5000], 0) == 10000; }), 0);
        std::vector<std::unique_ptr<MeshKynObj>> views(kW2Meshes);
        KynHelperObjFactory builder(&cache);
        const auto build = [&] {
            for (int k = 0; k < kW2Meshes; ++k)
                views[std::size_t(k)].reset(
                    dynamic_cast<MeshKynObj*>(builder.kynObjBuilder(indices[std::size_t(k)])));
        };
        factory.add(state, timed(build), 0);
        factoryAgain.add(state, timed(build), 0);
        read.add(state, timed([&] {
                     for (int k = 0; ok && k < kW2Meshes; ++k) {
                         const std::vector<float>* data = nullptr;
                         ok = views[std::size_t(k)] &&
                              readPositions(*views[std::size_t(k)], 12, data) &&
                              isMeshAtSample12(data, k);
                     }
                 }),
                 0);
        std::vector<float> matrix;
        eval.add(state, timed([&] {
                     for (int k = 0; ok && k < kW2Meshes; ++k) {
                         TransformKynObj view(&cache, w2Transform(k));
                         ok = evaluate(view, k, matrix);
                     }
                 }),
                 0);
        if (!ok) return state.SkipWithError("a step failed");
    }
    lookupHint.finish(state, kFigStepLookupHint);
    lookupFar.finish(state, kFigStepLookupFar);
    factory.finish(state, kFigStepFactory);
    factoryAgain.finish(state, kFigStepFactoryAgain);
    read.finish(state, kFigStepRead);
    eval.finish(state, kFigStepEval);
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
BENCHMARK(BM_W1HostOneSample)->Apply([](auto* b) { configure(b, 5); });
BENCHMARK(BM_W1HostReadAll)->Apply([](auto* b) { configure(b, 1); });
BENCHMARK(BM_W1ReadAll)->Apply([](auto* b) { configure(b, 1); });
BENCHMARK(BM_W1EvalAtTime)->Arg(1)->Arg(3)->Apply([](auto* b) { configure(b, 40); });
BENCHMARK(BM_W2StreamWrite)->Apply([](auto* b) { configure(b, 1); });
BENCHMARK(BM_W2Load)->Apply([](auto* b) { configure(b, 10); });
BENCHMARK(BM_W2HostMeshesAtSample)->Apply([](auto* b) { configure(b, 5); });
BENCHMARK(BM_W2HostObject)->Apply([](auto* b) { configure(b, 20); });
BENCHMARK(BM_W2HostObjectLazy)->Apply([](auto* b) { configure(b, 20); });
BENCHMARK(BM_W2HostTransformsAtTime)->Apply([](auto* b) { configure(b, 3); });
BENCHMARK(BM_W2Steps)->Apply([](auto* b) { configure(b, 1); });
BENCHMARK(BM_W2MeshesAtSample)->Apply([](auto* b) { configure(b, 5); });
BENCHMARK(BM_W2ObjectAllSamples)->Apply([](auto* b) { configure(b, 20); });
BENCHMARK(BM_W2ObjectAfterAnother)->Apply([](auto* b) { configure(b, 20); });
BENCHMARK(BM_W2ObjectLazyJumps)->Apply([](auto* b) { configure(b, 20); });
BENCHMARK(BM_W2FirstObjectLazyJumps)->Apply([](auto* b) { configure(b, 20); });
BENCHMARK(BM_W2TransformsAtTime)->Apply([](auto* b) { configure(b, 3); });

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    removeScratchFiles();
    table().print();
    return 0;
}
