// KynLiveCache: reading a cache file while its producer is still writing it.
//
// A read-only cache over a file that a producer streams samples into or appends to. `load`
// shows the samples that are whole so far, `refresh` adds those that have become whole since,
// and views, getSample and the time lookups read them as from any KynRoMemCache. A sample is
// shown once it is whole: its length written, every chunk of it there and ending where its
// group says, its "JOBJ" leading to its objects, and its time known. Half a sample is never
// shown. The samples are found by the scan that recovery uses (KynSampleScanner, with
// `holdTail`), not through the file's tables and counts, which a default writer puts out
// last. Samples are shown in file order, each at a time after the one before.
//
// What the producer must do:
// - Uniform sampling: nothing more. A sample shows once its bytes have reached the system.
//   KynFile gathers small writes in a window of 1 MiB, so small samples show a few at a
//   time, when the window is full, unless the writer commits each sample
//   (KynSAMSChunk::commit, KynRwMemCache::commitSamples).
// - Non-uniform sampling: commit each sample. The default writer puts the times on disk only
//   when the stream ends, and a sample without a time is not shown until then.
// A sample that never becomes whole (a damaged file) stops the view before it; `kyn check`
// says what is wrong.
//
// State: after each load or refresh, meta.numSamples, meta.lastTime and sampleJumps hold the
// samples shown, and for a non-uniform file sampleTimes and meta.firstTime their times. A
// uniform file keeps the rate and first time of its metadata; if its samples shown do not run
// from the first without a gap, the view lists their times as a non-uniform file does
// (meta.rate 0). The rest of the metadata is read once, at load. The file stays open
// (keepOpen is always true), on the file that load opened. It never writes.
// Threads: one thread at a time, like any cache; the producer is another process or thread
// with a file of its own.
#ifndef KYN_LIVE_CACHE_H
#define KYN_LIVE_CACHE_H

#include <memory>
#include <string>
#include <vector>

#include "KynRoMemCache.h"

namespace Kyn {

class KynSampleScanner;

class KynLiveCache : public KynRoMemCache {
  public:
    KynLiveCache();
    ~KynLiveCache() override;

    void reset() override;
    // Opens `path` and shows its whole samples (`keepOpen` is ignored). False when the file
    // does not open or its metadata does not read, with `failure` saying why; prints nothing.
    // The three-argument load sets the bound on samples held, as for any cache.
    bool load(const char* path, bool keepOpen) override;
    using KynRoMemCache::load;
    // Adds the samples that have become whole since the last look: the number added, or -1
    // when no file is loaded.
    int refresh();
    // Why the last load failed, in words; empty after a good one.
    const std::string& failure() const { return why; }

  private:
    std::unique_ptr<KynSampleScanner> scanner;
    std::string why;
    std::vector<float> shownTimes;  // of the samples shown, in order
    bool consecutive = true;        // they are samples 0, 1, 2 ... of the file
    float fileRate = 1.0f;          // the metadata's rate and first time
    float fileFirstTime = 0.0f;
};

}  // namespace Kyn

#endif
