// Workloads of the performance programs: the two scenes they write and read, built exactly the
// same way on every run, and the raw files of the same position bytes that show what the disk
// and stdio allow.
//
// W1, one big deforming mesh: object "|mesh", a 1000 x 1000 vertex grid with static quad
// topology, 48 uniform samples (first time 0, rate 1) of float positions, 12 MB a sample.
// Vertex v = j * 1000 + i at sample s is (i, j, s + ((7i + 13j) & 15) / 16).
//
// W2, many small objects: 10,000 transforms "|xf_KKKKK", each with a float "MTRX" per sample
// (translation (k, s, 0)) and the parent of a mesh "|xf_KKKKK|mesh", a 10 x 10 grid with the
// same static topology; 24 uniform samples (first time 0, rate 1). Transform k is object 2k and
// its mesh object 2k + 1. Vertex v = j * 10 + i of mesh k at sample s is (i + 16k, j + 16s,
// i * j / 4).
//
// Raw files hold the position bytes alone, sample after sample (and in W2 mesh after mesh
// within a sample), as written with fwrite through a 1 MiB stdio buffer.
#ifndef KYN_BENCH_WORKLOADS_H
#define KYN_BENCH_WORKLOADS_H

#include <cstddef>
#include <cstdio>
#include <string>
#include <vector>

#include "KynChunks.h"
#include "KynRwMemCache.h"

namespace workloads {

constexpr int kW1Side = 1000;
constexpr int kW1Samples = 48;
constexpr std::size_t kW1Floats = std::size_t(kW1Side) * kW1Side * 3;

constexpr int kW2Meshes = 10000;
constexpr int kW2Side = 10;
constexpr int kW2Samples = 24;
constexpr std::size_t kW2Floats = std::size_t(kW2Side) * kW2Side * 3;
constexpr std::size_t kMatrixFloats = 16;

constexpr std::size_t kStdioBuffer = 1 << 20;

// Object indices of W2.
inline int w2Transform(int mesh) {
    return 2 * mesh;
}
inline int w2Mesh(int mesh) {
    return 2 * mesh + 1;
}
std::string w2TransformName(int mesh);
std::string w2MeshName(int mesh);

// Positions and topology of both scenes, computed once and held for the writers.
struct W1Data {
    W1Data();
    std::vector<std::vector<float>> positions;  // per sample, kW1Floats each
    std::vector<int> counts;
    std::vector<int> ids;
};

struct W2Data {
    W2Data();
    const float* positions(int sample, int mesh) const;
    const float* matrix(int sample, int mesh) const;
    std::vector<float> allPositions;  // sample-major, kW2Floats per mesh
    std::vector<float> allMatrices;   // sample-major, 16 per transform
    std::vector<int> counts;
    std::vector<int> ids;
};

// The metadata of each scene, as every writer here puts it out.
void fillW1Meta(const W1Data& data, Kyn::KynMETAChunk& meta);
void fillW2Meta(const W2Data& data, Kyn::KynMETAChunk& meta);

// Streams a whole file through KynFile and KynSAMSChunk; true when it was written and closed.
bool streamW1(const std::string& path, const Kyn::KynMETAChunk& meta, const W1Data& data);
bool streamW2(const std::string& path, const Kyn::KynMETAChunk& meta, const W2Data& data);

// A read-write cache that holds all of W1 in memory, ready for saveAs.
void fillW1Cache(const W1Data& data, Kyn::KynRwMemCache& cache);

// stdio with a 1 MiB buffer. Null when the file does not open.
FILE* openStdio(const std::string& path, const char* mode, std::vector<char>& buffer);
// The raw files: every sample's position bytes, and in W2 also the matrices.
bool writeRawW1(const std::string& path, const W1Data& data);
bool writeRawW2Positions(const std::string& path, const W2Data& data);
bool writeRawW2Matrices(const std::string& path, const W2Data& data);

// A path under /tmp that holds this process's id, removed by removeScratchFiles.
std::string scratchPath(const std::string& name);
void removeScratchFiles();

}  // namespace workloads

#endif
