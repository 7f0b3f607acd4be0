// Export to numbered OBJ or PLY files, one per sample, each holding every mesh and point set at
// that sample: positions as stored and faces as stored (OBJ polygons of any size; PLY faces of
// more than 255 vertices fanned into triangles). Objects go one at a time and are dropped from
// the cache when written, so memory holds one sample of one object.
//
// An OBJ file here:   "o" path, then "v x y z" per vertex, then "f i j k ..." per face, vertex
//                     numbers from 1 counted over the whole file; floats in their shortest form
//                     that reads back to the same value.
// A PLY file here:    binary little-endian; "element vertex" (float x, y, z) and "element face"
//                     (list uchar int vertex_indices); all objects merged into one vertex list.
#include <algorithm>
#include <charconv>
#include <cinttypes>

#include "ExchangeCommon.h"

namespace Kyn {
namespace exchange {

namespace {

std::string leftOutReason(Kind kind, const std::string& format) {
    switch (kind) {
        case Kind::kTransform:
            return "a transform: " + format +
                   " files hold geometry only, written as stored, without the transforms above it";
        case Kind::kNurbs:
            return "a NURBS surface or curve has no faces to write";
        case Kind::kLocator:
            return "a locator holds no geometry";
        default:
            return "holds no geometry";
    }
}

// One file of the sequence, written object by object.
class SequenceWriter {
  public:
    virtual ~SequenceWriter() = default;
    virtual bool start(OutFile& file, const std::string& comment) = 0;
    virtual void object(OutFile& file, const std::string& name, const Points& points,
                        const Faces* faces, Notes& dropped) = 0;
    virtual bool finish(OutFile& file) = 0;
};

class ObjWriter : public SequenceWriter {
  public:
    bool start(OutFile& file, const std::string& comment) override {
        written = 0;
        const std::string text = "# " + comment + "\n";
        return file.write(text.data(), text.size());
    }
    void object(OutFile& file, const std::string& name, const Points& points, const Faces* faces,
                Notes&) override {
        const std::string head = "o " + name + "\n";
        file.write(head.data(), head.size());
        char line[160];
        for (std::size_t v = 0; v < points.count; ++v) {
            char* p = line;
            *p++ = 'v';
            for (std::size_t k = 0; k < 3; ++k) {
                *p++ = ' ';
                p = std::to_chars(p, line + sizeof(line), points.xyz[3 * v + k]).ptr;
            }
            *p++ = '\n';
            file.write(line, std::size_t(p - line));
        }
        if (faces != nullptr) {
            std::string text;
            std::size_t at = 0;
            for (int count : *faces->counts) {
                if (count < 3) {
                    at += std::size_t(count);
                    continue;
                }
                text = "f";
                for (int i = 0; i < count; ++i)
                    text += " " + std::to_string(written + uint64_t((*faces->ids)[at++]) + 1);
                text += "\n";
                file.write(text.data(), text.size());
            }
        }
        written += points.count;
    }
    bool finish(OutFile&) override { return true; }

  private:
    uint64_t written = 0;
};

class PlyWriter : public SequenceWriter {
  public:
    bool start(OutFile& file, const std::string& comment) override {
        vertexCount = faceCount = 0;
        base = 0;
        faceBytes.clear();
        std::string text =
            "ply\nformat binary_little_endian 1.0\ncomment " + comment + "\nelement vertex ";
        vertexAt = long(text.size());
        text += "0000000000\nproperty float x\nproperty float y\nproperty float z\n";
        text += "element face ";
        faceAt = long(text.size());
        text += "0000000000\nproperty list uchar int vertex_indices\nend_header\n";
        return file.write(text.data(), text.size());
    }
    // Vertices go out at once; faces wait in a list, since PLY puts them behind every vertex of
    // the file. So a PLY file holds the faces of the file in memory besides one object's sample.
    void object(OutFile& file, const std::string& name, const Points& points, const Faces* faces,
                Notes& dropped) override {
        file.write(points.xyz, points.count * 3 * sizeof(float));
        if (faces != nullptr) {
            std::size_t at = 0;
            for (int count : *faces->counts) {
                const int* ids = faces->ids->data() + at;
                at += std::size_t(count);
                if (count < 3) continue;
                if (count <= 255) {
                    addFace(ids, count);
                    continue;
                }
                dropped.add(name, "faces of more than 255 vertices are fanned into triangles");
                for (int i = 1; i + 1 < count; ++i) {
                    const int triangle[3] = {ids[0], ids[i], ids[i + 1]};
                    addFace(triangle, 3);
                }
            }
        }
        base += uint32_t(points.count);
        vertexCount += points.count;
    }
    bool finish(OutFile& file) override {
        file.write(faceBytes.data(), faceBytes.size());
        return patch(file, vertexAt, vertexCount) && patch(file, faceAt, faceCount) &&
               std::fseek(file.stream(), 0, SEEK_END) == 0;
    }

  private:
    void addFace(const int* ids, int count) {
        faceBytes.push_back(static_cast<unsigned char>(count));
        for (int i = 0; i < count; ++i) {
            const int32_t id = int32_t(base + uint32_t(ids[i]));
            const auto* bytes = reinterpret_cast<const unsigned char*>(&id);
            faceBytes.insert(faceBytes.end(), bytes, bytes + sizeof(id));
        }
        ++faceCount;
    }
    static bool patch(OutFile& file, long offset, uint64_t value) {
        char digits[16];
        std::snprintf(digits, sizeof(digits), "%010" PRIu64, value);
        return std::fseek(file.stream(), offset, SEEK_SET) == 0 && file.write(digits, 10);
    }

    long vertexAt = 0, faceAt = 0;
    uint64_t vertexCount = 0, faceCount = 0;
    uint32_t base = 0;
    std::vector<unsigned char> faceBytes;
};

}  // namespace

KynExchangeResult exportSequence(KynRoMemCache& cache, const std::string& out,
                                 const KynExportOptions& options, bool ply) {
    KynExchangeResult result;
    SampleRange range;
    if (!resolveRange(cache, options, range, result.error)) return result;
    const std::string format = ply ? "PLY" : "OBJ";
    ObjectSet objects(cache, options.path);
    Notes leftOut(result.leftOut), dropped(result.dropped);
    std::vector<const ObjectSet::Entry*> geometry;
    for (const ObjectSet::Entry& entry : objects.entries) {
        if (entry.kind != Kind::kMesh && entry.kind != Kind::kPoints) {
            leftOut.add(entry.name(), leftOutReason(entry.kind, format));
            continue;
        }
        geometry.push_back(&entry);
        const KynDATRChunk* attributes = cache.meta.objects[std::size_t(entry.index)]->datr;
        if (attributes != nullptr && attributes->findAttr("uv") >= 0)
            dropped.add(entry.name(),
                        "texture coordinates are not written to " + format + " files");
    }
    if (geometry.empty()) {
        result.error = "nothing under " + (options.path.empty() ? cache.fileName : options.path) +
                       " has points to write to " + format + " files";
        return result;
    }

    ObjWriter objWriter;
    PlyWriter plyWriter;
    SequenceWriter& writer = ply ? static_cast<SequenceWriter&>(plyWriter) : objWriter;
    const NumberedPath names(out);
    const std::vector<long> numbers = sequenceNumbers(cache, range);
    std::vector<bool> written(geometry.size(), false);
    Progress progress(options.progress, int64_t(range.count()) * int64_t(geometry.size()));
    Points points;
    Faces faces;
    for (int s = range.first; s <= range.last && result.ok(); ++s) {
        const std::string path = names.at(numbers[std::size_t(s - range.first)]);
        OutFile file;
        if (!file.open(path, result.error)) break;
        writer.start(file, "written by libkyn from " + cache.fileName + ", sample " +
                               std::to_string(s) + ", " + frameText(cache.getSampleTime(s)));
        for (std::size_t g = 0; g < geometry.size(); ++g) {
            const ObjectSet::Entry& entry = *geometry[g];
            const std::string& name = entry.name();
            progress.step();
            if (!readPoints(static_cast<GeometryKynObj&>(*entry.view), s, points)) {
                if (s == range.first) leftOut.add(name, "it stores no positions");
                continue;
            }
            if (cache.getObjectData(s, entry.index, kTagVPNO, nullptr) != nullptr)
                dropped.add(name, "normals are not written to " + format + " files");
            const Faces* faceList = nullptr;
            if (entry.kind == Kind::kMesh &&
                readFaces(static_cast<MeshKynObj&>(*entry.view), s, faces)) {
                const std::string why = checkFaces(faces, points.count);
                if (why.empty())
                    faceList = &faces;
                else
                    dropped.add(name, "faces left out: " + why);
                if (faceList && std::any_of(faces.counts->begin(), faces.counts->end(),
                                            [](int count) { return count < 3; }))
                    dropped.add(name, "faces of fewer than three vertices are left out");
            }
            if (points.narrowed)
                dropped.add(name, "positions stored as double are written as float");
            if (points.droppedW)
                dropped.add(name, "the fourth component of its positions is left out");
            writer.object(file, name, points, faceList, dropped);
            written[g] = true;
            releaseObjectSample(cache, s, entry.index);
        }
        if (!writer.finish(file) || !file.close(result.error)) {
            if (result.error.empty()) result.error = writeError(path);
            break;
        }
        result.files.push_back(path);
    }
    if (result.ok() && std::find(written.begin(), written.end(), true) == written.end())
        result.error = "no object under " + (options.path.empty() ? cache.fileName : options.path) +
                       " stores positions to write";
    if (!result.ok()) {
        for (const std::string& path : result.files) std::remove(path.c_str());
        result.files.clear();
        return result;
    }
    progress.finish();
    for (std::size_t g = 0; g < geometry.size(); ++g)
        if (written[g]) result.objects.push_back(geometry[g]->name());
    result.samples = range.count();
    return result;
}

}  // namespace exchange
}  // namespace Kyn
