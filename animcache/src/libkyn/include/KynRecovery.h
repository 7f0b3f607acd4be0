// KynRecovery: what is wrong with a cache file, and what can be saved from it.
//
// - KynSampleScanner walks the sample stream of a file without trusting the lengths and tables
//   that a writer puts out last, and judges every sample by what it holds.
// - checkCache reads every object of every sample through a KynRoMemCache, and says whether the
//   file is whole; if not, what is damaged and where, and how many samples can be read.
// - recoverCache writes a new cache of every whole sample of a damaged file whose time is known.
// None of them prints: KynCache::load's words are kept (KynMessages.h) and come back in the
// results. They read damaged files differently from the loader on purpose, as told below; the
// loader itself is not changed. One thread at a time per object; separate objects share nothing.
//
// What the scanner takes for a whole sample, at any offset behind the metadata:
//   SAMP{ other*, JOBJ, (SOBJ | other)* }    the length ends exactly behind the last child
//   SOBJ{ chunk* }                           one per object of the metadata, in object order
//   chunk := leaf | group{ chunk* }          every group ends exactly where its length says,
//                                            nested at most 256 deep; int32, float, int64 and
//                                            double leaves hold whole elements; no payload of
//                                            2 GiB or more
// A "SAMP" whose length was never written (0) is not whole, even if all its chunks are there.
// The "JOBJ" entries need not be right: `objectTableMatches` says whether they are, and
// recovery writes tables of its own.
#ifndef KYN_RECOVERY_H
#define KYN_RECOVERY_H

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "KynChunks.h"
#include "KynFile.h"
#include "KynProgress.h"

namespace Kyn {

// One finding: what is wrong, and where.
struct KynDamage {
    enum Kind {
        kLoad,         // the loader refused the file; `detail` holds its words
        kCut,          // the file ends inside this chunk
        kUnfinished,   // a group whose length was never written: it reads as 0
        kLength,       // a length that does not match what the group holds, or the file
        kChunk,        // a header that does not belong here, or bytes that are no chunk
        kObjectCount,  // a sample with another number of objects than the metadata names
        kObjectTable,  // a "JOBJ" that does not hold the offsets of its sample's objects
        kSampleTable,  // a "JSAM" whose entries do not lead to the samples of its group
        kTimeTable,    // a "TIMS" with another number of entries than its "JSAM"
        kSampleCount,  // the metadata's sample count differs from the samples on disk
        kUnreadable,   // the cache could not read this object of this sample
        kNoTime,       // the time of this sample is not on disk (recovery drops it)
        kOutOfOrder,   // its time is not after the time of the sample kept before it
    };
    Kind kind = kChunk;
    unsigned tag = 0;     // of the chunk concerned ("SAMS", "SAMP", "SOBJ", "JSAM" ...); 0: none
    int64_t offset = -1;  // file offset of the chunk concerned; -1 when none applies
    int64_t sample = -1;  // index of the sample concerned; -1 when none or not known
    int object = -1;      // index of the object concerned; -1 when none
    std::string detail;   // particulars in words, without advice; may be empty
};

// A short name of each kind ("cut", "unfinished", ...), stable for scripts and JSON.
const char* kynDamageName(KynDamage::Kind kind);
// The kind in words, said of the chunk concerned: "the file ends inside it", ...
const char* kynDamageText(KynDamage::Kind kind);
// One finding in a line for people: "sample 3, object 1 |root|mesh at offset 1234: the file is
// cut short there (DETAIL)", or "the file does not load: WORDS". `paths` holds the object
// paths of the file, when known (KynCheckReport::paths).
std::string kynDamageLine(const KynDamage& damage, const std::vector<std::string>& paths);

// A sample as the scanner found it.
struct KynScannedSample {
    int64_t offset = -1;              // of its "SAMP" header
    int64_t length = 0;               // the header's length as on disk
    bool whole = false;               // see the top of this header
    bool objectTableMatches = false;  // its "JOBJ" holds exactly `objects`
    std::vector<int64_t> objects;     // offsets of its "SOBJ" headers, as far as they were found
    int64_t index = -1;               // its place in the file's sample order; -1: not known
    bool hasTime = false;
    float time = 0.0f;  // when `hasTime`
    int group = -1;     // the "SAMS" group it lies in, counted from 0
    KynDamage problem;  // why it is not whole; meaningless when it is
};

// Walks the sample stream from behind the metadata to the end of the file, chunk by chunk, and
// reports every "SAMP" it meets, whole or not. "SAMS" lengths and the tables are read but not
// followed: the walk goes by the chunks themselves. Where the chunks stop making sense (bytes
// that are no header, a sample whose length is wrong or missing) it skips by the length when
// that lands on a "SAMP", a "SAMS" or the end of the file, and otherwise looks for the next
// "SAMP" or "SAMS" header byte by byte.
//
// The index and time of a sample are taken from the file only as far as it shows them:
// - Index: samples are counted in file order. A sample whose offset stands in its group's
//   "JSAM" takes the index that the table gives. After a stretch that had to be searched byte by
//   byte the count is lost, until a "JSAM" entry gives it back.
// - Time in a uniform file (rate not 0): firstTime + index / rate, in single precision, as
//   KynCache::getSampleTime computes it; none when the index is not known.
// - Time in a non-uniform file: entry k of its group's "TIMS", where k is its place in the
//   group, and only when the group's "JSAM" holds a non-zero entry at k or behind it. Writers
//   leave both tables as zeros until the end of a group, and write the times just before the
//   offsets, so a "JSAM" entry never written means that the time was not written either.
//   Otherwise the sample has no time: the scanner never makes one up.
class KynSampleScanner {
  public:
    KynSampleScanner();
    ~KynSampleScanner();
    KynSampleScanner(const KynSampleScanner&) = delete;
    KynSampleScanner& operator=(const KynSampleScanner&) = delete;

    // Opens `path` for reading, reads the magic chunk and the metadata, and stands at the start
    // of the sample stream. False when the file does not open, does not start with a "DKYN"
    // header, or holds no "META" that reads; `failure` then says which.
    bool open(const char* path);
    void close();

    // The next sample in file order; false when the file holds no more. Samples are reported
    // once each, also those that are not whole.
    bool next(KynScannedSample& sample);

    // For a reader of a file that a writer still extends (KynLiveCache). Off by default. When
    // on, `next` reports only samples that are whole, whose "JOBJ" leads to their objects and
    // whose time is known; before any other sample, and before a chunk that does not fit the
    // file yet, it answers false, and looks again from there on the next call. A call after a
    // false answer first forgets what was read ahead, and a sample of a non-uniform file whose
    // time is not known reads its group's tables again, since a writer that commits each
    // sample adds to them. A sample that never becomes whole (a damaged file) stops the walk
    // for good.
    bool holdTail = false;

    // Findings that belong to no one sample: the groups, their tables, stray bytes, a cut at
    // the top level, the sample count of the metadata. Complete once `next` has answered false.
    std::vector<KynDamage> problems() const;

    // The offset at which the walk stands: behind the last chunk it has passed.
    int64_t position() const;
    // The size of the file as the walk last saw it.
    int64_t fileSize() const;
    // Why `open` failed, in words; empty after a good open.
    const std::string& failure() const;

    KynDKYNChunk dkyn;
    KynMETAChunk meta;  // the file's metadata as it reads; its counts and times may be wrong

  private:
    struct State;
    std::unique_ptr<State> state;
};

// What checkCache found.
struct KynCheckReport {
    bool opened = false;             // the file could be opened and starts with a "DKYN" header
    bool loaded = false;             // KynCache::load accepted it
    int64_t declaredSamples = 0;     // the sample count of the metadata (0 when unreadable)
    int objects = 0;                 // objects named by the metadata
    int64_t foundSamples = 0;        // samples the scan met on disk, whole or not
    int64_t readableSamples = 0;     // loaded: samples whose every object read; else whole ones
    int64_t recoverableSamples = 0;  // whole samples with a known time: what recovery keeps
    std::vector<KynDamage> damage;   // in file order as far as found; empty for a whole file
    std::vector<std::string> paths;  // the object paths, as far as the metadata reads
    std::string failure;             // why the check could not run at all (opened false)

    bool whole() const { return loaded && damage.empty(); }
};

// Checks the file at `path`. When it loads: every object of every sample is read through a
// KynRoMemCache that holds two samples at most, and the sample stream is scanned as well, so
// that tables and lengths that the loader does not look at are checked too. When it does not:
// the loader's words and what the scan finds. Progress is counted in samples.
KynCheckReport checkCache(const char* path, const KynProgress& progress = KynProgress());

// What recoverCache did.
struct KynRecoveryReport {
    bool written = false;          // `out` now holds a valid cache (perhaps of no samples)
    std::string failure;           // why nothing was written, in words
    int64_t foundSamples = 0;      // samples met on disk, whole or not
    std::vector<int64_t> kept;     // indices in the damaged file of the samples written, in order;
                                   // -1 for a sample whose index is not known
    std::vector<float> keptTimes;  // their times
    std::vector<KynDamage> dropped;  // one per sample met and not written, with the reason
    bool uniform = false;            // the output is uniformly sampled
    std::vector<std::string> paths;  // the object paths of `damaged`, as far as its metadata reads
};

// Writes to `out` a new cache of every whole sample of `damaged` that has a time (see
// KynSampleScanner), in file order, with the metadata of `damaged` (its objects, names and
// attributes; the counts and times set to what is kept). A sample whose time is not after the
// time of the sample kept before it is dropped. The output is uniform when the damaged file is
// and the samples kept follow one another without a gap; otherwise each keeps its time in a
// table. The objects of each sample are copied byte for byte, with new offset tables. The
// output goes to a new file beside `out`, renamed over it at the end, so a failure leaves
// `out` as it was; `out` may name `damaged` itself. Memory stays near the size of one sample.
// Progress is counted in bytes of the damaged file: scanned, then copied.
KynRecoveryReport recoverCache(const char* damaged, const char* out,
                               const KynProgress& progress = KynProgress());

}  // namespace Kyn

#endif
