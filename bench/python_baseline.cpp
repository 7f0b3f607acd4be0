// python_baseline: the C++ side of bench/python_bench.py, which compares the Python package's
// reads with the same reads made from C++ on the workloads of Workloads.h.
//
//   python_baseline write DIR          writes DIR/w1.kyn and DIR/w2.kyn
//   python_baseline w1 FILE            every sample's positions of W1, cache bound 2
//   python_baseline w2 FILE SAMPLE     every mesh of W2 at one sample, found by path
//
// The read commands print the seconds that the reads took, the load of the cache left out. They
// read twice, each time from a cache just loaded, and time the second, as a host that has been
// running a while and has its memory at hand (as the Python side in its loop of repetitions).
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "KynHelper.h"
#include "KynRoMemCache.h"
#include "Workloads.h"

using namespace Kyn;
using namespace workloads;

namespace {

template <class F>
double timed(F&& body) {
    const auto start = std::chrono::steady_clock::now();
    body();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

bool write(const std::string& dir) {
    bool ok = true;
    {
        W1Data data;
        KynMETAChunk meta;
        fillW1Meta(data, meta);
        ok = streamW1(dir + "/w1.kyn", meta, data);
        meta.reset();
    }
    W2Data data;
    KynMETAChunk meta;
    fillW2Meta(data, meta);
    ok = ok && streamW2(dir + "/w2.kyn", meta, data);
    meta.reset();
    return ok;
}

// As a host reads W1: a view of the mesh, and its positions at every sample in place.
bool readW1(const char* path, double& seconds) {
    KynRoMemCache cache;
    if (!cache.load(path, true, 2)) return false;
    bool ok = true;
    seconds = timed([&] {
        MeshKynObj view(&cache, cache.findObjectIndex("|mesh", 0));
        for (int s = 0; ok && s < int(cache.meta.numSamples); ++s) {
            const std::vector<float>* data = nullptr;
            KynHelperObj::AnimationState state;
            int dimension = 0;
            ok = view.getPositionData(s, data, state, dimension) && data->size() == kW1Floats;
        }
    });
    return ok;
}

// As a host walks W2: each mesh found by its path (the previous index plus one as the hint), a
// view of it, and its positions at one sample in place.
bool readW2(const char* path, int sample, double& seconds) {
    std::vector<std::string> names;
    for (int k = 0; k < kW2Meshes; ++k) names.push_back(w2MeshName(k));
    KynRoMemCache cache;
    if (!cache.load(path, true)) return false;
    bool ok = true;
    seconds = timed([&] {
        int index = -1;
        for (int k = 0; ok && k < kW2Meshes; ++k) {
            index = cache.findObjectIndex(names[std::size_t(k)], index + 1);
            MeshKynObj view(&cache, index);
            const std::vector<float>* data = nullptr;
            KynHelperObj::AnimationState state;
            int dimension = 0;
            ok = view.getPositionData(sample, data, state, dimension) && data->size() == kW2Floats;
        }
    });
    return ok;
}

}  // namespace

int main(int argc, char** argv) {
    const std::string command = argc > 2 ? argv[1] : "";
    double seconds = 0;
    bool ok = false;
    if (command == "write") return write(argv[2]) ? 0 : 1;
    for (int pass = 0; pass < 2; ++pass) {
        if (command == "w1") ok = readW1(argv[2], seconds);
        if (command == "w2" && argc > 3) ok = readW2(argv[2], std::atoi(argv[3]), seconds);
    }
    if (command != "w1" && command != "w2") {
        std::fprintf(stderr, "usage: python_baseline write DIR | w1 FILE | w2 FILE SAMPLE\n");
        return 2;
    }
    if (!ok) {
        std::fprintf(stderr, "python_baseline: a read failed\n");
        return 1;
    }
    std::printf("%.9f\n", seconds);
    return 0;
}
