// KynCache: the file-level reader of one cache file.
//
// `load` walks the frame of a file once and validates it; from then on the magic chunk, the
// metadata and the two tables of the sample stream (sample times and sample offsets) stay in
// memory, and sample data stays on disk. `loadObjectSample` fetches one object of one sample
// through the jump tables. Nothing here keeps a fetched sample: KynRoMemCache does that.
//
// Ownership: the cache owns its members, including the objects of `meta`, until `reset` or the
// next `load`. A chunk that `loadObjectSample` returns belongs to the caller.
// Threads: one cache, with its KynFile, is used by one thread at a time; every read moves the
// stream and may replace `objectJumps`.
// Cost: a read in a sample other than `jumpSample` brings that sample's "JOBJ" table into
// `objectJumps`. The tables of samples left behind are kept aside by the file offset of their
// "SAMP" (a bounded number, least recently used dropped first) and come back without a read of
// the file. With `lazyObjectJumps` a read may take its object's single entry instead (see
// there). `objectHas` and `isObjectAnimated` read only the headers of an object's first sample,
// once: the tags found there are kept, so that later questions about the object cost no read
// while the stream stays open. Kept tables and tags are forgotten whenever `jumpSample` is -1,
// as load, reset and every save leave it: code that changes the file under a loaded cache sets
// `jumpSample` to -1.
#ifndef KYN_CACHE_H
#define KYN_CACHE_H

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "KynChunks.h"
#include "KynFile.h"

namespace Kyn {

class KynJumpTables;
class KynSampleTags;

// Stream open modes by `KynCache::rwMode`: 0 "r", 1 "r+".
extern const char* mode[2];

class KynCache {
  public:
    KynCache();
    virtual ~KynCache();
    KynCache(const KynCache&) = delete;
    KynCache& operator=(const KynCache&) = delete;

    // Back to the empty state: no file, no objects, no tables, the stream closed.
    virtual void reset();
    // Opens and validates `path`. On failure it prints why, and the cache is empty.
    virtual bool load(const char* path, bool keepOpen);

    // Leaves the stream just behind the "SOBJ" header of the object in the sample, with that
    // header in `header`. Silent; false when the offsets lead nowhere valid.
    bool seekObjectSample(KynHeader& header, int sampleIndex, int objectIndex);
    // As seekObjectSample, then walks on to the child with `tag` and stops behind its header.
    // With `index`, the first such child at position `*index` or later, whose position is
    // stored back.
    bool seekChannelSample(KynHeader& header, int sampleIndex, int objectIndex, unsigned tag,
                           int* index);
    // The object's "SOBJ" in the sample with all its children, owned by the caller; or null.
    KynGroupChunk* loadObjectSample(int sampleIndex, int objectIndex);

    // Whether two stored names name the same object: equal, or equal after their last "|".
    bool compareNames(const std::string& a, const std::string& b) const;
    // The first object, in circular order from `startIndex`, whose name matches `name` with
    // the namespaces of the query removed; -1 if none.
    int findObjectIndex(const std::string& name, int startIndex) const;
    // `chunk` itself if it has `tag`, else the first chunk with `tag` below it, depth first.
    static KynChunk* findChunk(KynChunk* chunk, unsigned tag);

    // Time lookups. All comparisons are exact; -1 means no such sample.
    int getSampleIndex(float time) const;
    // Uniform files: the last sample at or before `time`. Non-uniform files: the first sample
    // at or after `time`; this asymmetry is kept for the evaluation code built on it.
    int getMaxSampleIndexNotGreaterThan(float time) const;
    int getMinSampleIndexNotLessThan(float time) const;
    // The time of the sample, or a quiet NaN.
    float getSampleTime(int index) const;

    // Whether the object carries `tag` in its metadata or in its first sample ("DATR" also
    // counts when the attribute table is not empty). Reads past the memory cache, which it
    // neither fills nor disturbs.
    bool objectHas(int objectIndex, unsigned tag);
    // Whether `tag` is in the object's first sample and not in its metadata.
    bool isObjectAnimated(int objectIndex, unsigned tag);

    std::string fileName;              // path given to load; empty when nothing is loaded
    bool keepOpen = true;              // false: the stream is closed between reads
    int rwMode = 0;                    // index into `mode`: 0 read-only, 1 read-write
    KynDKYNChunk dkyn;                 // the magic chunk
    KynMETAChunk meta;                 // file-wide values and the objects
    std::vector<float> sampleTimes;    // per sample, non-uniform files only
    std::vector<int64_t> sampleJumps;  // offset of every "SAMP" header, from all "JSAM"
    KynFile file;
    int jumpSample = -1;               // sample whose "JOBJ" is in objectJumps, or -1
    std::vector<int64_t> objectJumps;  // offset of every "SOBJ" header of jumpSample
    // Off by default. When true, a read in a sample whose table is neither held nor kept aside
    // may take only the object's own entry of that sample's "JOBJ", leaving jumpSample and
    // objectJumps as they were. Single entries are read in a sample until they have cost about
    // what its whole table would; then the table is brought in as usual. Files of up to 4096
    // objects always read whole tables. For hosts that follow a few objects along the timeline
    // of a file with many objects. Survives load and reset.
    bool lazyObjectJumps = false;

  protected:
    // The low 32 bits of meta.numSamples, as every test of the sample count reads them.
    int sampleCount() const { return static_cast<int>(meta.numSamples); }
    // loadObjectSample, where a leaf child of `donor` (a group the caller is about to delete)
    // whose tag, class and element count match a leaf being read lends it its storage: the
    // result is the same, but the storage is in place already. Leaves lent leave `donor`.
    KynGroupChunk* loadObjectSampleReusing(int sampleIndex, int objectIndex, KynGroupChunk* donor);

  private:
    void loadSampleStreams();
    void readSamsPrologue();
    void checkSampleCount();
    bool readObjectJumps(int sampleIndex);
    bool seekJumpTable(int64_t sampleOffset, KynHeader& jobj);
    bool readJumpTable(int64_t sampleOffset, std::vector<int64_t>& table);
    bool readObjectJump(int sampleIndex, int objectIndex, int64_t& offset);
    bool prefersSingleEntry(int sampleIndex);
    bool findObjectJump(int sampleIndex, int objectIndex, int64_t& offset);
    int lowerBoundTime(float time) const;
    bool firstSampleHas(int objectIndex, unsigned tag);
    bool surveyObjectSample(int sampleIndex, int objectIndex, std::vector<unsigned>& tags);
    void forgetFileContents();

    std::unique_ptr<KynJumpTables> keptJumps;     // tables of samples other than jumpSample
    std::unique_ptr<KynSampleTags> firstSamples;  // tags of the objects' first samples
    std::vector<uint32_t> entryReads;             // per sample, single entries read while lazy
};

}  // namespace Kyn

#endif
