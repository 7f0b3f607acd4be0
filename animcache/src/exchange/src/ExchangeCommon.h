// What the converters share: opening a cache with the core's log turned into a message, the
// sample range, which objects a conversion takes and what kind each is, positions and faces of
// one object at one sample, numbered file names, and the progress count. Private to the
// converters.
#ifndef KYN_EXCHANGE_COMMON_H
#define KYN_EXCHANGE_COMMON_H

#include <cstdio>
#include <memory>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "KynExchange.h"
#include "KynHelper.h"
#include "KynRoMemCache.h"

namespace Kyn {
namespace exchange {

// Loads `path` read-only, keeping at most `maxSamples` samples (0: no bound). On failure
// `error` says why in words for people; the library's own error line is kept, not printed.
bool openCache(KynRoMemCache& cache, const std::string& path, int maxSamples, std::string& error);

struct SampleRange {
    int first = 0;
    int last = -1;
    int count() const { return last - first + 1; }
};
// The options' range checked against the cache: false, with `error`, when it holds no sample.
bool resolveRange(const KynRoMemCache& cache, const KynExportOptions& options, SampleRange& range,
                  std::string& error);

// Whether the object path `name` is `path` or lies under it; every name lies under "".
bool isUnder(const std::string& name, const std::string& path);

enum class Kind { kMesh, kPoints, kTransform, kLocator, kNurbs, kOther };
Kind kindOf(const KynHelperObj& view);

// Views of the objects at or under a path (and, when asked, of the objects above it), built
// once, deleted with the set; the cache must outlive it.
class ObjectSet {
  public:
    ObjectSet(KynRoMemCache& cache, const std::string& path, bool withAncestors = false);
    ~ObjectSet();
    ObjectSet(const ObjectSet&) = delete;
    ObjectSet& operator=(const ObjectSet&) = delete;

    struct Entry {
        int index;
        Kind kind;
        KynHelperObj* view;  // owned
        bool selected;       // false for an object above the path
        const std::string& name() const;
    };
    std::vector<Entry> entries;
    KynRoMemCache& cache;
};

// The positions of a geometry object at a sample as x, y, z floats: a pointer into the cache's
// chunk where they are stored so, else a converted copy. Valid until the sample is released.
struct Points {
    const float* xyz = nullptr;
    std::size_t count = 0;  // vertices
    bool animated = false;
    bool narrowed = false;  // stored as double
    bool droppedW = false;  // stored with a fourth component
    std::vector<float> copy;
};
bool readPoints(GeometryKynObj& view, int sample, Points& out);

// The faces of a mesh at a sample, borrowed from the cache like Points.
struct Faces {
    const std::vector<int>* counts = nullptr;
    const std::vector<int>* ids = nullptr;
    bool animated = false;
};
// False when the mesh stores no faces.
bool readFaces(MeshKynObj& view, int sample, Faces& out);
// Why the faces cannot stand over `vertices` vertices, or empty when they can.
std::string checkFaces(const Faces& faces, std::size_t vertices);

// Drops what the cache holds of one object at one sample, so that a conversion that goes
// object by object keeps no more than one object's sample.
void releaseObjectSample(KynRoMemCache& cache, int sample, int object);

// "frame 12" or "frame 12.5".
std::string frameText(float time);
// Sample numbers of a sequence: the frame when every sample of the range lies on a whole
// frame, else the sample index.
std::vector<long> sequenceNumbers(const KynRoMemCache& cache, const SampleRange& range);

// The file names of a numbered sequence, from the name the user gave.
class NumberedPath {
  public:
    explicit NumberedPath(const std::string& pattern);
    std::string at(long number) const;

  private:
    std::string before, after;
    int width = 4;
};

// Notes on objects, each said once, in the order first said.
class Notes {
  public:
    explicit Notes(std::vector<KynExchangeNote>& out) : out(out) {}
    void add(const std::string& object, const std::string& text);

  private:
    std::vector<KynExchangeNote>& out;
    std::set<std::pair<std::string, std::string>> said;
};

// Counts steps and tells the callback, at most about a thousand times over the whole run.
class Progress {
  public:
    Progress(const KynProgress& callback, int64_t total);
    void step();
    void finish();

  private:
    const KynProgress& callback;
    int64_t total, done = 0, next = 0, stride;
};

// A stdio file for writing with a large buffer, closed (and removed unless kept) when it goes.
class OutFile {
  public:
    OutFile() = default;
    ~OutFile();
    OutFile(const OutFile&) = delete;
    OutFile& operator=(const OutFile&) = delete;

    bool open(const std::string& path, std::string& error);
    bool write(const void* data, std::size_t bytes);
    // Flushes and closes; false, with `error`, when any write failed.
    bool close(std::string& error);
    FILE* stream() const { return file; }

  private:
    std::string path;
    FILE* file = nullptr;
    std::vector<char> buffer;
    bool failed = false;
};

// "cannot write PATH: reason".
std::string writeError(const std::string& path);

KynExchangeResult exportGlb(KynRoMemCache& cache, const std::string& out,
                            const KynExportOptions& options);
KynExchangeResult exportPc2(KynRoMemCache& cache, const std::string& out,
                            const KynExportOptions& options);
KynExchangeResult exportSequence(KynRoMemCache& cache, const std::string& out,
                                 const KynExportOptions& options, bool ply);
KynExchangeResult importPc2(const std::string& in, const std::string& out,
                            const KynImportOptions& options);
KynExchangeResult importObj(const std::string& in, const std::string& out,
                            const KynImportOptions& options);

}  // namespace exchange
}  // namespace Kyn

#endif
