// Export of one object's positions to a PC2 file, sample by sample: each sample's positions go
// from the cache's chunk to the file without a copy when they are stored as float x, y, z, and
// the cache keeps one sample at a time.
#include <cmath>
#include <limits>

#include "ExchangeCommon.h"
#include "Pc2Format.h"

namespace Kyn {
namespace exchange {

namespace {

bool isGeometry(Kind kind) {
    return kind == Kind::kMesh || kind == Kind::kPoints;
}

// The object at `path` when it has points, else the only one under it whose positions
// animate; null, with `error`, when there is not exactly one.
const ObjectSet::Entry* chooseObject(const ObjectSet& objects, const std::string& path,
                                     std::string& error) {
    std::vector<const ObjectSet::Entry*> moving;
    for (const ObjectSet::Entry& entry : objects.entries) {
        if (!isGeometry(entry.kind)) continue;
        if (!path.empty() && entry.name() == path) return &entry;
        // Positions that are not in the object's metadata lie in the samples.
        KynDOBJChunk* object = objects.cache.meta.objects[std::size_t(entry.index)];
        if (KynCache::findChunk(object, kTagPOSI) == nullptr) moving.push_back(&entry);
    }
    if (moving.size() == 1) return moving.front();
    const std::string where = path.empty() ? objects.cache.fileName : path;
    if (moving.empty()) {
        error = "no object under " + where +
                " has animated positions; a PC2 file holds one deforming mesh or point set";
        return nullptr;
    }
    error = std::to_string(moving.size()) + " objects under " + where +
            " have animated positions; name one with --path:";
    for (const ObjectSet::Entry* entry : moving) error += " " + entry->name();
    return nullptr;
}

// Frames from one sample to the next, as PC2 says it. A cache without a constant rate passes
// when its times lie within 0.001 of evenly spaced ones, the tolerance of a read at a time.
bool samplingOf(const KynRoMemCache& cache, const SampleRange& range, float& sampling) {
    if (cache.meta.rate != 0.0f) {
        sampling = static_cast<float>(1.0 / double(cache.meta.rate));
        return true;
    }
    if (range.count() == 1) {
        sampling = 1.0f;
        return true;
    }
    const double first = cache.getSampleTime(range.first);
    const double step = (double(cache.getSampleTime(range.last)) - first) / (range.count() - 1);
    for (int s = range.first; s <= range.last; ++s)
        if (std::fabs(cache.getSampleTime(s) - (first + (s - range.first) * step)) > 0.001)
            return false;
    sampling = static_cast<float>(step);
    return true;
}

bool sameFaces(const Faces& a, const Faces& b) {
    return *a.counts == *b.counts && *a.ids == *b.ids;
}

}  // namespace

KynExchangeResult exportPc2(KynRoMemCache& cache, const std::string& out,
                            const KynExportOptions& options) {
    KynExchangeResult result;
    SampleRange range;
    if (!resolveRange(cache, options, range, result.error)) return result;
    ObjectSet objects(cache, options.path);
    const ObjectSet::Entry* chosen = chooseObject(objects, options.path, result.error);
    if (chosen == nullptr) return result;
    const std::string& name = chosen->name();
    auto& view = static_cast<GeometryKynObj&>(*chosen->view);
    auto* mesh = chosen->kind == Kind::kMesh ? static_cast<MeshKynObj*>(chosen->view) : nullptr;

    float sampling = 1.0f;
    if (!samplingOf(cache, range, sampling)) {
        result.error = "the samples of " + cache.fileName +
                       " are not evenly spaced in time, which a PC2 file cannot say";
        return result;
    }

    Points points;
    if (!readPoints(view, range.first, points)) {
        result.error = "cannot read the positions of " + name + " at sample " +
                       std::to_string(range.first) + "; kyn check tells whether the file is whole";
        return result;
    }
    const std::size_t vertices = points.count;
    if (vertices > std::size_t(std::numeric_limits<int32_t>::max())) {
        result.error = name + " has more vertices than a PC2 file can count";
        return result;
    }
    // The first sample's faces, kept to see whether later samples change them.
    std::vector<int> firstCounts, firstIds;
    Faces faces;
    const bool facesMove =
        mesh != nullptr && readFaces(*mesh, range.first, faces) && faces.animated;
    if (facesMove) {
        firstCounts = *faces.counts;
        firstIds = *faces.ids;
    }
    const Faces first{&firstCounts, &firstIds, true};

    OutFile file;
    if (!file.open(out, result.error)) return result;
    const Pc2Header header = makePc2Header(
        static_cast<int32_t>(vertices), cache.getSampleTime(range.first), sampling, range.count());
    file.write(&header, sizeof(header));

    Notes dropped(result.dropped);
    Progress progress(options.progress, range.count());
    for (int s = range.first; s <= range.last; ++s) {
        if (s != range.first && !readPoints(view, s, points)) {
            result.error = "cannot read the positions of " + name + " at sample " +
                           std::to_string(s) + "; kyn check tells whether the file is whole";
            return result;
        }
        if (points.count != vertices) {
            result.error = name + " has " + std::to_string(points.count) + " vertices at sample " +
                           std::to_string(s) + " (" + frameText(cache.getSampleTime(s)) + ") and " +
                           std::to_string(vertices) +
                           " at the first; a PC2 file keeps one vertex count";
            return result;
        }
        if (facesMove && readFaces(*mesh, s, faces) && !sameFaces(faces, first))
            dropped.add(name, "its faces change between samples; a PC2 file keeps positions only");
        if (points.narrowed) dropped.add(name, "positions stored as double are written as float");
        if (points.droppedW) dropped.add(name, "the fourth component of its positions is left out");
        if (!file.write(points.xyz, vertices * 3 * sizeof(float))) break;
        progress.step();
    }
    if (!file.close(result.error)) return result;
    progress.finish();
    result.files.push_back(out);
    result.objects.push_back(name);
    result.samples = range.count();
    return result;
}

}  // namespace exchange
}  // namespace Kyn
