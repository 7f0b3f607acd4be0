#include "ExchangeCommon.h"

#include <unistd.h>

#include <cerrno>
#include <cmath>
#include <cstring>
#include <sstream>

#include "KynFile.h"
#include "KynKinds.h"
#include "KynMessages.h"

namespace Kyn {
namespace exchange {

namespace {

constexpr std::size_t kStdioBuffer = std::size_t(1) << 20;

}  // namespace

bool openCache(KynRoMemCache& cache, const std::string& path, int maxSamples, std::string& error) {
    if (access(path.c_str(), R_OK) != 0) {
        error = "cannot open " + path + ": " + std::strerror(errno);
        return false;
    }
    if (!KynFile::isKynFile(path.c_str())) {
        error = path + " is not a cache file (it does not start with a cache header)";
        return false;
    }
    KynMessageCapture capture;
    if (cache.load(path.c_str(), true, maxSamples)) return true;
    error = path + " is damaged (" + capture.last() + "); kyn check " + path +
            " tells what is damaged, kyn recover " + path + " OUT saves what can be saved";
    return false;
}

bool resolveRange(const KynRoMemCache& cache, const KynExportOptions& options, SampleRange& range,
                  std::string& error) {
    const int count = static_cast<int>(cache.meta.numSamples);
    range.first = options.firstSample;
    range.last = options.lastSample < 0 ? count - 1 : options.lastSample;
    if (count < 1) {
        error = cache.fileName + " holds no samples, so there is nothing to convert";
        return false;
    }
    if (range.first < 0 || range.first > range.last || range.last >= count) {
        error = "samples " + std::to_string(options.firstSample) + ":" +
                std::to_string(options.lastSample) + " lie outside " + cache.fileName +
                ", whose samples run from 0 to " + std::to_string(count - 1);
        return false;
    }
    return true;
}

bool isUnder(const std::string& name, const std::string& path) {
    if (path.empty() || name == path) return true;
    const std::string prefix = path.back() == '|' ? path : path + "|";
    return name.compare(0, prefix.size(), prefix) == 0;
}

Kind kindOf(const KynHelperObj& view) {
    if (view.isA(transform)) return Kind::kTransform;
    if (view.isA(nurbssurface) || view.isA(nurbscurve)) return Kind::kNurbs;
    if (view.isA(mesh)) return Kind::kMesh;
    if (view.isA(geometry)) return Kind::kPoints;
    if (view.isA(locator) || view.isA(lxcoordsystem)) return Kind::kLocator;
    return Kind::kOther;
}

ObjectSet::ObjectSet(KynRoMemCache& cache, const std::string& path, bool withAncestors)
    : cache(cache) {
    KynHelperObjFactory factory(&cache);
    for (std::size_t i = 0; i < cache.meta.objects.size(); ++i) {
        const std::string& name = cache.meta.objects[i]->name;
        const bool selected = isUnder(name, path);
        if (!selected && !(withAncestors && isUnder(path, name))) continue;
        KynHelperObj* view = factory.kynObjBuilder(static_cast<int>(i));
        entries.push_back({static_cast<int>(i), kindOf(*view), view, selected});
    }
}

ObjectSet::~ObjectSet() {
    for (Entry& entry : entries) delete entry.view;
}

const std::string& ObjectSet::Entry::name() const {
    return view->cache->meta.objects[static_cast<std::size_t>(index)]->name;
}

bool readPoints(GeometryKynObj& view, int sample, Points& out) {
    out = Points();
    KynHelperObj::AnimationState state = KynHelperObj::kStatic;
    int dimension = 3;
    const std::vector<float>* floats = nullptr;
    const std::vector<double>* doubles = nullptr;
    if (view.getPositionData(sample, floats, state, dimension)) {
        if (dimension == 3) {
            out.xyz = floats->data();
            out.count = floats->size() / 3;
        } else {
            out.count = floats->size() / 4;
            out.copy.resize(out.count * 3);
            for (std::size_t v = 0; v < out.count; ++v)
                for (std::size_t k = 0; k < 3; ++k) out.copy[3 * v + k] = (*floats)[4 * v + k];
        }
    } else if (view.getPositionData(sample, doubles, state, dimension)) {
        const std::size_t width = std::size_t(dimension);
        out.narrowed = true;
        out.count = doubles->size() / width;
        out.copy.resize(out.count * 3);
        for (std::size_t v = 0; v < out.count; ++v)
            for (std::size_t k = 0; k < 3; ++k)
                out.copy[3 * v + k] = static_cast<float>((*doubles)[width * v + k]);
    } else {
        return false;
    }
    if (out.xyz == nullptr) out.xyz = out.copy.data();
    out.droppedW = dimension == 4;
    out.animated = state == KynHelperObj::kAnimated;
    return true;
}

bool readFaces(MeshKynObj& view, int sample, Faces& out) {
    out = Faces();
    KynHelperObj::AnimationState countState = KynHelperObj::kStatic, idState = countState;
    if (!view.getPcnts(sample, out.counts, countState) || !view.getPids(sample, out.ids, idState))
        return false;
    out.animated = countState == KynHelperObj::kAnimated || idState == KynHelperObj::kAnimated;
    return true;
}

std::string checkFaces(const Faces& faces, std::size_t vertices) {
    std::size_t total = 0;
    for (int count : *faces.counts) {
        if (count < 0) return "a face has a negative vertex count";
        total += std::size_t(count);
    }
    if (total != faces.ids->size())
        return "its faces name " + std::to_string(total) + " vertices but it stores " +
               std::to_string(faces.ids->size()) + " vertex ids";
    for (int id : *faces.ids)
        if (id < 0 || std::size_t(id) >= vertices)
            return "a face names vertex " + std::to_string(id) + " of " + std::to_string(vertices);
    return std::string();
}

void releaseObjectSample(KynRoMemCache& cache, int sample, int object) {
    const std::size_t s = std::size_t(sample), o = std::size_t(object);
    if (s >= cache.samples.size() || cache.samples[s] == nullptr) return;
    std::vector<KynGroupChunk*>& objects = *cache.samples[s];
    if (o >= objects.size()) return;
    delete objects[o];
    objects[o] = nullptr;
}

std::string frameText(float time) {
    std::ostringstream text;
    text << "frame " << time;
    return text.str();
}

std::vector<long> sequenceNumbers(const KynRoMemCache& cache, const SampleRange& range) {
    std::vector<long> numbers;
    bool whole = true;
    for (int s = range.first; s <= range.last; ++s) {
        const float time = cache.getSampleTime(s);
        whole = whole && std::isfinite(time) && std::fabs(time) < 1e9f && time == std::floor(time);
        numbers.push_back(static_cast<long>(time));
    }
    if (!whole)
        for (int s = range.first; s <= range.last; ++s) numbers[std::size_t(s - range.first)] = s;
    return numbers;
}

NumberedPath::NumberedPath(const std::string& pattern) {
    const std::size_t slash = pattern.rfind('/');
    const std::size_t nameStart = slash == std::string::npos ? 0 : slash + 1;
    const std::size_t hash = pattern.find('#', nameStart);
    if (hash != std::string::npos) {
        const std::size_t end = pattern.find_first_not_of('#', hash);
        before = pattern.substr(0, hash);
        after = end == std::string::npos ? std::string() : pattern.substr(end);
        width = static_cast<int>((end == std::string::npos ? pattern.size() : end) - hash);
        return;
    }
    const std::size_t dot = pattern.rfind('.');
    const std::size_t split = dot == std::string::npos || dot < nameStart ? pattern.size() : dot;
    before = pattern.substr(0, split) + ".";
    after = pattern.substr(split);
}

std::string NumberedPath::at(long number) const {
    char digits[32];
    std::snprintf(digits, sizeof(digits), "%0*ld", width, number);
    return before + digits + after;
}

void Notes::add(const std::string& object, const std::string& text) {
    if (said.insert({object, text}).second) out.push_back({object, text});
}

Progress::Progress(const KynProgress& callback, int64_t total)
    : callback(callback), total(total), stride(total / 1000 > 0 ? total / 1000 : 1) {}

void Progress::step() {
    ++done;
    if (!callback || done < next || done >= total) return;
    callback(done, total);
    next = done + stride;
}

void Progress::finish() {
    if (callback) callback(total, total);
}

OutFile::~OutFile() {
    if (file == nullptr) return;
    std::fclose(file);
    std::remove(path.c_str());
}

bool OutFile::open(const std::string& target, std::string& error) {
    path = target;
    file = std::fopen(path.c_str(), "wb");
    if (file == nullptr) {
        error = writeError(path);
        return false;
    }
    buffer.resize(kStdioBuffer);
    std::setvbuf(file, buffer.data(), _IOFBF, buffer.size());
    return true;
}

bool OutFile::write(const void* data, std::size_t bytes) {
    if (bytes > 0 && std::fwrite(data, 1, bytes, file) != bytes) failed = true;
    return !failed;
}

bool OutFile::close(std::string& error) {
    const bool flushed = !failed && std::fflush(file) == 0;
    if (!flushed) error = writeError(path);
    const bool closed = std::fclose(file) == 0;
    file = nullptr;
    if (flushed && !closed) error = writeError(path);
    if (flushed && closed) return true;
    std::remove(path.c_str());
    return false;
}

std::string writeError(const std::string& path) {
    return "cannot write " + path + ": " + std::strerror(errno) +
           "; check that its directory exists and has room";
}

}  // namespace exchange
}  // namespace Kyn
