#include "Workloads.h"

#include <unistd.h>

#include <cstdio>
#include <set>

using namespace Kyn;

namespace workloads {

namespace {

constexpr unsigned char kCompoundPoint = 1;
constexpr unsigned char kCompoundTransform = 4;
constexpr unsigned char kDimension3d = 3;
constexpr unsigned char kDimension4x4 = 16;

std::set<std::string>& scratchFiles() {
    static std::set<std::string> paths;
    return paths;
}

// Four vertices per quad, counter-clockwise, for a side x side grid of vertices.
void gridTopology(int side, std::vector<int>& counts, std::vector<int>& ids) {
    const int quads = (side - 1) * (side - 1);
    counts.assign(std::size_t(quads), 4);
    ids.clear();
    ids.reserve(std::size_t(quads) * 4);
    for (int j = 0; j + 1 < side; ++j) {
        for (int i = 0; i + 1 < side; ++i) {
            const int v = j * side + i;
            ids.insert(ids.end(), {v, v + 1, v + side + 1, v + side});
        }
    }
}

KynHeader leafHeader(unsigned tag, unsigned char compound, unsigned char dimension,
                     std::size_t floats) {
    KynHeader h;
    h.tag = tag;
    h.type = kTypeFloat;
    h.compound = compound;
    h.dimension = dimension;
    h.length = int64_t(floats * sizeof(float));
    return h;
}

void fillTimes(KynMETAChunk& meta, int samples) {
    meta.application = "workloads_bench";
    meta.date = 1400000000;
    meta.numSamples = samples;
    meta.firstTime = 0.0f;
    meta.lastTime = float(samples - 1);
    meta.rate = 1.0f;
}

void addMesh(KynMETAChunk& meta, const std::string& name, const std::vector<int>& counts,
             const std::vector<int>& ids) {
    KynDOBJChunk* object = meta.addDOBJ(name.c_str());
    object->children.push_back(new KynLeafChunk<int>(kTagMESH, std::vector<int>{1}));
    object->children.push_back(new KynLeafChunk<int>(kTagPCNT, counts));
    object->children.push_back(new KynLeafChunk<int>(kTagPIDS, ids));
}

// One "SOBJ" holding one float leaf.
bool writeObject(KynSAMSChunk& sams, KynFile& file, const KynHeader& h, const float* data) {
    return sams.writeStartSOBJChunk(file) && file.writeChunk(h, data, -1) &&
           sams.writeEndSOBJChunk(file);
}

bool startFile(KynFile& file, const std::string& path, const KynMETAChunk& meta,
               KynSAMSChunk& sams) {
    return file.open(path.c_str(), "w") && KynDKYNChunk().write(file) && meta.write(file) &&
           sams.writeStart(file, meta.numSamples, 2 * meta.numSamples, false);
}

// Where mesh k of sample s starts in the sample-major arrays, counted in meshes.
std::size_t slot(int sample, int mesh) {
    return std::size_t(sample) * kW2Meshes + std::size_t(mesh);
}

bool writeBlocks(FILE* out, const float* data, std::size_t floats) {
    return fwrite(data, sizeof(float), floats, out) == floats;
}

}  // namespace

std::string w2TransformName(int mesh) {
    char name[32];
    snprintf(name, sizeof(name), "|xf_%05d", mesh);
    return name;
}

std::string w2MeshName(int mesh) {
    return w2TransformName(mesh) + "|mesh";
}

W1Data::W1Data() : positions(kW1Samples) {
    gridTopology(kW1Side, counts, ids);
    for (int s = 0; s < kW1Samples; ++s) {
        std::vector<float>& p = positions[std::size_t(s)];
        p.resize(kW1Floats);
        float* out = p.data();
        for (int j = 0; j < kW1Side; ++j) {
            for (int i = 0; i < kW1Side; ++i) {
                *out++ = float(i);
                *out++ = float(j);
                *out++ = float(s) + float((7 * i + 13 * j) & 15) / 16.0f;
            }
        }
    }
}

W2Data::W2Data()
    : allPositions(std::size_t(kW2Samples) * kW2Meshes * kW2Floats),
      allMatrices(std::size_t(kW2Samples) * kW2Meshes * kMatrixFloats) {
    gridTopology(kW2Side, counts, ids);
    for (int s = 0; s < kW2Samples; ++s) {
        for (int k = 0; k < kW2Meshes; ++k) {
            float* out = &allPositions[slot(s, k) * kW2Floats];
            for (int j = 0; j < kW2Side; ++j) {
                for (int i = 0; i < kW2Side; ++i) {
                    *out++ = float(i + 16 * k);
                    *out++ = float(j + 16 * s);
                    *out++ = float(i * j) / 4.0f;
                }
            }
            float* m = &allMatrices[slot(s, k) * kMatrixFloats];
            for (std::size_t e = 0; e < kMatrixFloats; ++e) m[e] = e % 5 == 0 ? 1.0f : 0.0f;
            m[12] = float(k);
            m[13] = float(s);
        }
    }
}

const float* W2Data::positions(int sample, int mesh) const {
    return &allPositions[slot(sample, mesh) * kW2Floats];
}

const float* W2Data::matrix(int sample, int mesh) const {
    return &allMatrices[slot(sample, mesh) * kMatrixFloats];
}

void fillW1Meta(const W1Data& data, KynMETAChunk& meta) {
    fillTimes(meta, kW1Samples);
    addMesh(meta, "|mesh", data.counts, data.ids);
}

void fillW2Meta(const W2Data& data, KynMETAChunk& meta) {
    fillTimes(meta, kW2Samples);
    for (int k = 0; k < kW2Meshes; ++k) {
        KynDOBJChunk* transform = meta.addDOBJ(w2TransformName(k).c_str());
        transform->children.push_back(new KynLeafChunk<int>(kTagXFRM, std::vector<int>{1}));
        addMesh(meta, w2MeshName(k), data.counts, data.ids);
    }
}

bool streamW1(const std::string& path, const KynMETAChunk& meta, const W1Data& data) {
    KynFile file;
    KynSAMSChunk sams;
    bool ok = startFile(file, path, meta, sams);
    const KynHeader posi = leafHeader(kTagPOSI, kCompoundPoint, kDimension3d, kW1Floats);
    for (int s = 0; ok && s < kW1Samples; ++s) {
        ok = sams.writeStartSAMPChunk(file, 1, nullptr) &&
             writeObject(sams, file, posi, data.positions[std::size_t(s)].data()) &&
             sams.writeEndSAMPChunk(file);
    }
    return ok && sams.writeEnd(file) && file.close();
}

bool streamW2(const std::string& path, const KynMETAChunk& meta, const W2Data& data) {
    KynFile file;
    KynSAMSChunk sams;
    bool ok = startFile(file, path, meta, sams);
    const KynHeader posi = leafHeader(kTagPOSI, kCompoundPoint, kDimension3d, kW2Floats);
    const KynHeader mtrx = leafHeader(kTagMTRX, kCompoundTransform, kDimension4x4, kMatrixFloats);
    for (int s = 0; ok && s < kW2Samples; ++s) {
        ok = sams.writeStartSAMPChunk(file, 2 * kW2Meshes, nullptr);
        for (int k = 0; ok && k < kW2Meshes; ++k) {
            ok = writeObject(sams, file, mtrx, data.matrix(s, k)) &&
                 writeObject(sams, file, posi, data.positions(s, k));
        }
        ok = ok && sams.writeEndSAMPChunk(file);
    }
    return ok && sams.writeEnd(file) && file.close();
}

void fillW1Cache(const W1Data& data, KynRwMemCache& cache) {
    for (int s = 0; s < kW1Samples; ++s) {
        KynGroupChunk* group = cache.allocSample(float(s), 0);
        group->children.push_back(new KynLeafChunk<float>(kTagPOSI, kCompoundPoint, kDimension3d,
                                                          data.positions[std::size_t(s)]));
    }
    cache.setName(0, "|mesh");
    std::vector<KynChunk*>& statics = cache.meta.objects[0]->children;
    statics.push_back(new KynLeafChunk<int>(kTagMESH, std::vector<int>{1}));
    statics.push_back(new KynLeafChunk<int>(kTagPCNT, data.counts));
    statics.push_back(new KynLeafChunk<int>(kTagPIDS, data.ids));
}

FILE* openStdio(const std::string& path, const char* mode, std::vector<char>& buffer) {
    FILE* stream = fopen(path.c_str(), mode);
    if (stream == nullptr) return nullptr;
    buffer.resize(kStdioBuffer);
    setvbuf(stream, buffer.data(), _IOFBF, buffer.size());
    return stream;
}

bool writeRawW1(const std::string& path, const W1Data& data) {
    std::vector<char> buffer;
    FILE* out = openStdio(path, "w", buffer);
    if (out == nullptr) return false;
    bool ok = true;
    for (const std::vector<float>& sample : data.positions)
        ok = ok && writeBlocks(out, sample.data(), sample.size());
    return fclose(out) == 0 && ok;
}

bool writeRawW2Positions(const std::string& path, const W2Data& data) {
    std::vector<char> buffer;
    FILE* out = openStdio(path, "w", buffer);
    if (out == nullptr) return false;
    bool ok = true;
    for (int s = 0; s < kW2Samples; ++s)
        for (int k = 0; k < kW2Meshes; ++k)
            ok = ok && writeBlocks(out, data.positions(s, k), kW2Floats);
    return fclose(out) == 0 && ok;
}

bool writeRawW2Matrices(const std::string& path, const W2Data& data) {
    std::vector<char> buffer;
    FILE* out = openStdio(path, "w", buffer);
    if (out == nullptr) return false;
    const bool ok = writeBlocks(out, data.allMatrices.data(), data.allMatrices.size());
    return fclose(out) == 0 && ok;
}

std::string scratchPath(const std::string& name) {
    std::string path = "/tmp/kyn_workloads_" + std::to_string(getpid()) + "_" + name;
    scratchFiles().insert(path);
    return path;
}

void removeScratchFiles() {
    for (const std::string& path : scratchFiles()) unlink(path.c_str());
    scratchFiles().clear();
}

}  // namespace workloads
