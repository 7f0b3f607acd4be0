// The C++ side of one cache of the Python package, shared by the Python cache object, its
// objects and every array that views the cache's memory, so that the library's cache lives as
// long as any of them.
//
// The cache is a KynRoMemCache, or a KynRwMemCache for an editable cache. Closing it resets it
// (pinned groups stay alive for their arrays) and a new load changes `generation`: an object
// taken before either is stale and says so instead of reading another object's data.
#ifndef KYN_PYTHON_HANDLE_H
#define KYN_PYTHON_HANDLE_H

#include <pybind11/pybind11.h>

#include <cstdint>
#include <memory>
#include <sstream>
#include <string>
#include <string_view>
#include <unordered_map>

#include "KynHelper.h"
#include "KynMessages.h"
#include "KynRoMemCache.h"
#include "KynRwMemCache.h"

namespace kynpy {

namespace py = pybind11;

// kyn.Error: a cache file that does not load or cannot be written.
struct KynError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

class CacheHandle {
  public:
    explicit CacheHandle(bool editable);
    virtual ~CacheHandle() = default;  // so that an editable cache is handed out as one

    // Loads `path` with the library's own checks. Raises FileNotFoundError for a missing file
    // and kyn.Error with the library's words for a file that does not load.
    void load(const std::string& path, int maxSamples, bool keepOpen);
    // Resets the cache; arrays that view it stay valid.
    void close();
    // Raises ValueError when the cache is closed.
    void checkOpen() const;

    // The object that the library's lookup finds from the first object on, or -1. It searches
    // from the last hit, so that a walk in file order finds each path at once.
    int lookup(const std::string& path);
    // The first object whose stored path is exactly `path`, or -1.
    int lookupExact(const std::string& path);
    // To be called when objects were added or renamed.
    void namesChanged();

    Kyn::KynRoMemCache& cache() { return *ro; }
    Kyn::KynRwMemCache* editable() const { return rw; }
    int sampleCount() const { return static_cast<int>(ro->meta.numSamples); }
    int objectCount() const { return static_cast<int>(ro->meta.objects.size()); }
    const std::string& objectPath(int index) const { return ro->meta.objects.at(index)->name; }

    bool isOpen = false;
    uint64_t generation = 0;
    std::string path;

  private:
    // The first object of each key, built on first use and again after a load or an edit of
    // the names. The keys view the names in the metadata, which stay put until then.
    using Names = std::unordered_map<std::string_view, int>;
    struct FirstIndex {
        uint64_t generation = ~uint64_t(0);
        Names first;
    };
    const Names& index(FirstIndex& names, bool leaves);

    std::unique_ptr<Kyn::KynRoMemCache> ro;
    Kyn::KynRwMemCache* rw = nullptr;  // the same cache, when editable
    int hint = 0;
    uint64_t namesVersion = 0;  // changes with every load and every edit of the names
    FirstIndex byLeaf;          // by the last component of the path
    FirstIndex byPath;          // by the whole path
};

using HandlePtr = std::shared_ptr<CacheHandle>;

// One object of a cache, as the Python package hands it out.
struct ObjectRef {
    ObjectRef(HandlePtr handle, int index);
    // Raises ValueError when the cache was closed or loaded again since this object was taken.
    void check() const;
    Kyn::KynRoMemCache* cache() const { return &handle->cache(); }
    const std::string& path() const { return handle->objectPath(index); }
    // The kind name of the view the library's factory builds ("mesh", "transform", ...),
    // found once: the factory may read the object's first sample.
    const std::string& kind() const;
    // A geometry view of the object, made once: reads of positions are the hot path.
    Kyn::GeometryKynObj& geometry() const;

    HandlePtr handle;
    int index;
    uint64_t generation;

  private:
    mutable std::string kindName;
    mutable std::shared_ptr<Kyn::GeometryKynObj> geometryView;
};

// Gathers what the library says about a failure while it lives: its error lines, kept by its
// own capture without their source locations, and the lines it writes on the standard error.
class CapturedLog {
  public:
    CapturedLog();
    ~CapturedLog();
    CapturedLog(const CapturedLog&) = delete;
    CapturedLog& operator=(const CapturedLog&) = delete;
    // The lines, joined by "; ".
    std::string messages() const;

  private:
    Kyn::KynMessageCapture library;
    std::ostringstream errors;
    std::streambuf* savedErr;
};

}  // namespace kynpy

#endif
