// Stitching: caches of one scene, each holding a stretch of time, joined into one.
//   out := DKYN META' SAMS{ [TIMS FREE] JSAM FREE SAMP(piece 1)* SAMP(piece 2)* ... }
// META' is the first piece's metadata with the total count, the first and last times of the
// whole and a new date. Each piece is loaded twice: once, tables only, to be compared with the
// first, and once more to have its samples copied. Only two metadata are held at a time.
#include "KynStitch.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <ctime>
#include <memory>
#include <sstream>

#include "KynCache.h"
#include "KynMessages.h"
#include "KynReplacement.h"
#include "KynSampleCopy.h"

namespace Kyn {

const char* kynStitchRefusalName(KynStitchReport::Refusal refusal) {
    switch (refusal) {
        case KynStitchReport::kNone:
            return "none";
        case KynStitchReport::kNoInput:
            return "no-input";
        case KynStitchReport::kUnreadable:
            return "unreadable";
        case KynStitchReport::kObjects:
            return "objects";
        case KynStitchReport::kStaticData:
            return "static-data";
        case KynStitchReport::kSpace:
            return "space";
        case KynStitchReport::kSampling:
            return "sampling";
        case KynStitchReport::kOverlap:
            return "overlap";
        case KynStitchReport::kGap:
            return "gap";
        case KynStitchReport::kDamaged:
            return "damaged";
        case KynStitchReport::kWrite:
            return "write";
    }
    return "?";
}

namespace {

template <class T>
bool sameLeaf(const KynChunk& a, const KynChunk& b) {
    const auto* x = dynamic_cast<const KynLeafChunk<T>*>(&a);
    const auto* y = dynamic_cast<const KynLeafChunk<T>*>(&b);
    if (x == nullptr || y == nullptr) return x == y;
    if (x->data.size() != y->data.size()) return false;
    return x->data.empty() || std::memcmp(x->data.data(), y->data.data(),
                                          x->data.size() * sizeof(T)) == 0;  // bit for bit
}

template <>
bool sameLeaf<std::string>(const KynChunk& a, const KynChunk& b) {
    const auto* x = dynamic_cast<const KynLeafChunk<std::string>*>(&a);
    const auto* y = dynamic_cast<const KynLeafChunk<std::string>*>(&b);
    return x != nullptr && y != nullptr ? x->data == y->data : x == y;
}

bool sameChunk(const KynChunk* a, const KynChunk* b);

bool sameChildren(const std::vector<KynChunk*>& a, const std::vector<KynChunk*>& b) {
    if (a.size() != b.size()) return false;
    for (std::size_t i = 0; i < a.size(); ++i)
        if (!sameChunk(a[i], b[i])) return false;
    return true;
}

bool sameChunk(const KynChunk* a, const KynChunk* b) {
    if (a == nullptr || b == nullptr) return a == b;
    const KynHeader& x = a->header;
    const KynHeader& y = b->header;
    if (x.tag != y.tag || x.type != y.type || x.compound != y.compound ||
        x.dimension != y.dimension)
        return false;
    switch (x.type) {
        case kTypeGroup: {
            const auto* g = dynamic_cast<const KynGroupChunk*>(a);
            const auto* h = dynamic_cast<const KynGroupChunk*>(b);
            return g != nullptr && h != nullptr && sameChildren(g->children, h->children);
        }
        case kTypeUndef:
            return sameLeaf<char>(*a, *b);
        case kTypeCstr:
            return sameLeaf<std::string>(*a, *b);
        case kTypeInt32:
            return sameLeaf<int>(*a, *b);
        case kTypeFloat:
            return sameLeaf<float>(*a, *b);
        case kTypeInt64:
            return sameLeaf<long>(*a, *b);
        case kTypeDouble:
            return sameLeaf<double>(*a, *b);
        default:
            return x.length == y.length;  // unknown types keep no payload
    }
}

bool sameAttributes(const KynDATRChunk* a, const KynDATRChunk* b) {
    if (a == nullptr || b == nullptr)
        return (a ? a->getNumAttrs() : 0) == (b ? b->getNumAttrs() : 0);
    return a->satr.names == b->satr.names && a->satr.types == b->satr.types &&
           a->aatr.names == b->aatr.names && a->aatr.types == b->aatr.types &&
           sameChildren(a->atrs.children, b->atrs.children);
}

// What a piece contributes, noted while it is compared with the first.
struct Piece {
    std::string path;
    int64_t samples = 0;
    float firstTime = 0.0f;
    float lastTime = 0.0f;
    float rate = 0.0f;
    int64_t bytes = 0;  // its sample stream, from its first sample to the end of the file
};

std::string describeSampling(float rate) {
    if (rate == 0.0f) return "non-uniform";
    std::ostringstream text;
    text << "uniform at " << rate << " samples per frame";
    return text.str();
}

class Stitcher {
  public:
    Stitcher(const std::vector<std::string>& inputs, KynStitchReport& report)
        : inputs(inputs), report(report) {}

    bool survey();
    bool orderInTime();
    bool write(const char* out, const KynProgress& progress);

  private:
    bool refuse(KynStitchReport::Refusal why, const std::string& file, const std::string& what) {
        report.refusal = why;
        report.file = file;
        report.message = what;
        return false;
    }
    bool load(KynCache& cache, const std::string& path);
    bool compare(const KynCache& piece, const std::string& path);
    bool copyPiece(const Piece& piece, KynSAMSChunk& writer, KynFile& out, int64_t& done,
                   int64_t total, const KynProgress& progress);

    const std::vector<std::string>& inputs;
    KynStitchReport& report;
    KynCache first;             // the first input, whose metadata the output takes
    std::vector<Piece> pieces;  // those with samples, in time order once ordered
};

bool Stitcher::load(KynCache& cache, const std::string& path) {
    KynMessageCapture capture;
    if (cache.load(path.c_str(), true)) return true;
    return refuse(KynStitchReport::kUnreadable, path, "it does not load: " + capture.last());
}

bool Stitcher::compare(const KynCache& piece, const std::string& path) {
    const KynMETAChunk& a = first.meta;
    const KynMETAChunk& b = piece.meta;
    const std::string& reference = inputs.front();
    if (a.objects.size() != b.objects.size())
        return refuse(KynStitchReport::kObjects, path,
                      "it holds " + std::to_string(b.objects.size()) + " objects, " + reference +
                          " holds " + std::to_string(a.objects.size()));
    for (std::size_t i = 0; i < a.objects.size(); ++i) {
        const KynDOBJChunk& x = *a.objects[i];
        const KynDOBJChunk& y = *b.objects[i];
        if (x.name != y.name)
            return refuse(KynStitchReport::kObjects, path,
                          "its object " + std::to_string(i) + " is " + y.name + ", in " +
                              reference + " it is " + x.name);
        if (!sameChildren(x.children, y.children) || !sameAttributes(x.datr, y.datr))
            return refuse(KynStitchReport::kStaticData, path,
                          "the static data or attributes of " + y.name + " differ from those in " +
                              reference);
    }
    if (a.space != b.space)
        return refuse(KynStitchReport::kSpace, path,
                      "it is in another space (world or object) than " + reference);
    return true;
}

// Loads every input, compares it with the first, and notes its time range and sampling.
bool Stitcher::survey() {
    if (inputs.empty()) return refuse(KynStitchReport::kNoInput, "", "no input given");
    if (!load(first, inputs.front())) return false;
    std::vector<Piece> all;
    for (std::size_t i = 0; i < inputs.size(); ++i) {
        KynCache other;
        if (i > 0 && (!load(other, inputs[i]) || !compare(other, inputs[i]))) return false;
        const KynCache& cache = i > 0 ? other : first;
        Piece piece;
        piece.path = inputs[i];
        piece.samples = cache.meta.numSamples;
        if (piece.samples == 0) continue;  // nothing to add, and it matches
        piece.firstTime = cache.meta.firstTime;
        piece.lastTime = cache.meta.lastTime;
        piece.rate = cache.meta.rate;
        KynFile file;
        if (file.open(inputs[i].c_str(), "r") && file.seek(0, SEEK_END, true))
            piece.bytes = file.tell(nullptr) - cache.sampleJumps.front();
        all.push_back(piece);
        const Piece& set = all.front();
        if ((piece.rate == 0.0f) != (set.rate == 0.0f) ||
            (piece.rate != 0.0f && piece.rate != set.rate))
            return refuse(KynStitchReport::kSampling, piece.path,
                          "it is " + describeSampling(piece.rate) + ", " + set.path + " is " +
                              describeSampling(set.rate));
    }
    pieces = std::move(all);
    return true;
}

// Puts the pieces in the order of their first times and checks that each follows the one
// before it.
bool Stitcher::orderInTime() {
    std::stable_sort(pieces.begin(), pieces.end(),
                     [](const Piece& a, const Piece& b) { return a.firstTime < b.firstTime; });
    for (std::size_t i = 1; i < pieces.size(); ++i) {
        const Piece& before = pieces[i - 1];
        const Piece& piece = pieces[i];
        std::ostringstream range;
        range << "it starts at frame " << piece.firstTime << ", " << before.path
              << " ends at frame " << before.lastTime;
        if (piece.rate == 0.0f) {
            if (!(piece.firstTime > before.lastTime))
                return refuse(KynStitchReport::kOverlap, piece.path, range.str());
            continue;
        }
        // Steps from the last sample before it to its first one: 1 when they follow each other.
        const double steps = (double(piece.firstTime) - double(before.lastTime)) * piece.rate;
        if (std::fabs(steps - 1.0) < 1e-3) continue;
        if (steps < 1.0) return refuse(KynStitchReport::kOverlap, piece.path, range.str());
        std::ostringstream gap;
        gap << range.str() << ", and its samples are " << piece.rate
            << " per frame: the pieces leave a gap";
        return refuse(KynStitchReport::kGap, piece.path, gap.str());
    }
    for (const Piece& piece : pieces) report.order.push_back(piece.path);
    return true;
}

bool Stitcher::copyPiece(const Piece& piece, KynSAMSChunk& writer, KynFile& out, int64_t& done,
                         int64_t total, const KynProgress& progress) {
    KynCache cache;
    KynFile in;
    if (!load(cache, piece.path) || !in.open(piece.path.c_str(), "r"))
        return refuse(KynStitchReport::kUnreadable, piece.path, "it cannot be read again");
    KynSampleCopier copier;
    const int objects = static_cast<int>(cache.meta.objects.size());
    const bool nonUniform = cache.meta.rate == 0.0f;
    const int64_t start = cache.sampleJumps.front();
    for (std::size_t s = 0; s < cache.sampleJumps.size(); ++s) {
        std::string why;
        const float* time = nonUniform ? &cache.sampleTimes[s] : nullptr;
        if (!copier.copy(in, cache.sampleJumps[s], objects, time, true, writer, out, why)) {
            if (why == "the new file could not be written")
                return refuse(KynStitchReport::kWrite, "", why);
            return refuse(KynStitchReport::kDamaged, piece.path,
                          "its sample " + std::to_string(s) + " is damaged: " + why);
        }
        if (progress) {
            const int64_t through = std::min(piece.bytes, cache.sampleJumps[s] - start);
            progress(std::min(total, done + through), total);
        }
    }
    done += piece.bytes;
    return true;
}

bool Stitcher::write(const char* out, const KynProgress& progress) {
    KynMETAChunk& meta = first.meta;
    int64_t count = 0;
    int64_t total = 0;
    for (const Piece& piece : pieces) {
        count += piece.samples;
        total += piece.bytes;
    }
    meta.numSamples = count;
    if (!pieces.empty()) {
        meta.firstTime = pieces.front().firstTime;
        meta.lastTime = pieces.back().lastTime;
        meta.rate = pieces.front().rate;
    }
    meta.date = static_cast<int64_t>(std::time(nullptr));
    KynReplacement replacement(out);
    KynFile file;
    if (!file.open(replacement.path().c_str(), "w") || !first.dkyn.write(file) || !meta.write(file))
        return refuse(KynStitchReport::kWrite, "", "the new file could not be written");
    if (count > 0) {
        KynSAMSChunk writer;
        if (!writer.writeStart(file, count, defaultReserve(count), meta.rate == 0.0f))
            return refuse(KynStitchReport::kWrite, "", "the new file could not be written");
        int64_t done = 0;
        for (const Piece& piece : pieces)
            if (!copyPiece(piece, writer, file, done, total, progress)) return false;
        if (!writer.writeEnd(file))
            return refuse(KynStitchReport::kWrite, "", "the new file could not be written");
    }
    if (!replacement.commit(file))
        return refuse(KynStitchReport::kWrite, "", "the new file could not be written");
    report.samples = count;
    report.uniform = meta.rate != 0.0f;
    if (progress) progress(total, total);
    return true;
}

}  // namespace

KynStitchReport stitchCaches(const char* out, const std::vector<std::string>& inputs,
                             const KynProgress& progress) {
    KynStitchReport report;
    if (out == nullptr) {
        report.refusal = KynStitchReport::kWrite;
        report.message = "no output file given";
        return report;
    }
    Stitcher stitcher(inputs, report);
    report.written = stitcher.survey() && stitcher.orderInTime() && stitcher.write(out, progress);
    if (!report.written) report.order.clear();
    return report;
}

}  // namespace Kyn
