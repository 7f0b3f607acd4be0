// KynRoMemCache: the cache that hosts and object views read through.
//
// It adds to KynCache a table of the samples read so far, one "SOBJ" group per sample and
// object, filled on demand object by object, and an optional bound on the number of samples
// kept: with `maxSamples` above 0 the least recently used sample is deleted, with all its
// objects, when a new one is asked for. Only samples reached through the two-index `getSample`
// of a read-only cache are tracked and evicted; bulk loads are kept.
//
// Ownership: the cache owns every chunk and inner vector of `samples`. Every pointer handed out
// (a group, a child, a leaf's `data`) is borrowed and dies when its sample is evicted, deleted,
// or the cache is reset or destroyed; chunks of the metadata live until `reset`. A host that
// keeps such a pointer longer pins the group that holds it (see "Pins" below).
// Threads: one thread at a time; even reads change the table, the recency list and the stream.
#ifndef KYN_RO_MEM_CACHE_H
#define KYN_RO_MEM_CACHE_H

#include <list>
#include <string>
#include <unordered_map>
#include <vector>

#include "KynCache.h"
#include "KynChunks.h"

namespace Kyn {

// What the cache knows of one pinned group: how many pins it holds, whether the cache has
// already let it go (it then lives on for the pins alone), and chunks that were taken out of it
// while it was pinned.
struct KynPin {
    int count = 0;
    bool retired = false;
    std::vector<KynChunk*> kept;
};

class KynRoMemCache : public KynCache {
  public:
    KynRoMemCache();
    ~KynRoMemCache() override;

    // Deletes all samples, empties the recency list, drops the bound, then empties the file.
    void reset() override;
    // KynCache::load, keeping `maxSamples` across it, and sizing `samples` to the sample count.
    bool load(const char* path, bool keepOpen) override;
    // Sets the bound as given (unclamped) and loads through the two-argument slot.
    virtual bool load(const char* path, bool keepOpen, int maxSamples);

    // The object's "SOBJ" in the sample, read if it is not held; null on bad indices or a
    // failed read. Updates the recency list and may evict the least recently used sample.
    virtual KynGroupChunk* getSample(int sampleIndex, int objectIndex);
    // The first direct child of that "SOBJ" with `tag`, from position `*index` (0 without
    // `index`). `*index` receives its position, or the number of children when there is none.
    virtual KynChunk* getSample(int sampleIndex, int objectIndex, unsigned tag, int* index);
    // The chunk with `tag` for the object: its metadata first (static data shadows sample
    // data), then the sample. `*animated` tells which.
    virtual KynChunk* getObjectData(int sampleIndex, int objectIndex, unsigned tag, bool* animated);
    // The number of "POSI" elements of the object; 0 when there is none.
    virtual int getNumVertices(int sampleIndex, int objectIndex);
    // The value chunk of a dynamic attribute. Reports bad indices on the standard error.
    virtual KynChunk* getAttrData(int sampleIndex, int objectIndex, int attrIndex);

    // The typed data of a direct child with `tag` of the object's sample at exactly `time`,
    // or null when no sample has that time or the child holds another element type.
    template <class T>
    const typename KynLeafChunk<T>::data_type* getSampleDataAtTime(float time, int objectIndex,
                                                                   unsigned tag, int* index);

    // Changes the bound (negative counts as 0) and evicts down to it. No effect read-write.
    void setMaxSamples(int maxSamples);
    // Deletes everything held of one sample; the recency list is left to the caller.
    void deleteSample(int sampleIndex);
    // Deletes every held sample; the bound and the recency list stay.
    void deleteAllSamples();
    // Reads every object of every sample; a failed read leaves its slot empty. Always true.
    bool loadAllSamples();
    // Reads every object of samples 0 to `sampleIndex`; false at the first failed read.
    bool loadSamplesNotGreaterThan(int sampleIndex);

    // The slot of one object of one sample, growing the table and the sample's object vector
    // as needed; both indices must be 0 or above. What is stored there the cache owns. The
    // read-write cache fills slots through it.
    KynGroupChunk*& sampleSlot(int sampleIndex, int objectIndex);

    // Pins. A host that keeps a pointer into a held sample (or into an object's static data)
    // past the next call that could free it pins the group that holds it: the object's "SOBJ"
    // in that sample, or the object's "DOBJ" for static data. Each pin is released by one
    // `unpin`, in any order and at any time while the cache exists. While a group is pinned:
    // - its sample is never evicted, and counts against `maxSamples` as any held sample does:
    //   a read evicts the least recently used unpinned samples, and when pinned samples fill the
    //   bound the recency list holds them and the sample just read;
    // - deleteSample, deleteAllSamples, reset, load (which resets) and the edits of a
    //   read-write cache that delete samples take the group out of `samples` or `meta` as
    //   always, so that the next read reads the object afresh, but do not free it: it lives on,
    //   owned by the cache, until its last unpin.
    // The group's own children stay as they are; a host that edits a pinned group hands what it
    // takes out of it to `releaseChunk`. Destroying the cache frees everything, pinned or not.
    // A cache on which nothing is pinned behaves exactly as it would without pins.
    //
    // Pins the object's group held in that sample, without reading or touching the recency
    // list; the group, or null when none is held.
    KynGroupChunk* pinSample(int sampleIndex, int objectIndex);
    // Pins the object's metadata, which holds its static data and attributes; null on a bad
    // index.
    KynDOBJChunk* pinObject(int objectIndex);
    // Releases one pin of a group that pinSample or pinObject returned; the last one frees the
    // group if the cache has let it go. A group that is not pinned is ignored.
    void unpin(const KynGroupChunk* group);
    // Whether a group of the sample that the cache holds is pinned.
    bool isSamplePinned(int sampleIndex) const;
    // Deletes `chunk`, which the host took out of `holder`'s children; while `holder` is
    // pinned, keeps it until the last unpin.
    void releaseChunk(KynChunk* chunk, const KynGroupChunk* holder);

    // Outer index sample, inner index object; null entries are not held.
    std::vector<std::vector<KynGroupChunk*>*> samples;
    int maxSamples = 0;            // 0: no bound
    std::list<int> recentSamples;  // tracked samples, most recently used first
    // Every pinned group, held by the cache or let go by it.
    std::unordered_map<const KynGroupChunk*, KynPin> pins;

  private:
    void touchRecent(int sampleIndex, int objectIndex, KynGroupChunk*& donor);
    std::list<int>::iterator evictionCandidate();
    void releaseGroup(KynGroupChunk* group);
    void retirePinnedObjects();
    void freePins();
    KynGroupChunk* takeSlot(int sampleIndex, int objectIndex);
    bool loadSampleObjects(int sampleIndex, bool stopOnFailure);
};

template <class T>
const typename KynLeafChunk<T>::data_type* KynRoMemCache::getSampleDataAtTime(float time,
                                                                              int objectIndex,
                                                                              unsigned tag,
                                                                              int* index) {
    if (meta.objects.empty()) return nullptr;
    const int sampleIndex = getSampleIndex(time);
    if (sampleIndex < 0) return nullptr;
    auto* leaf = dynamic_cast<KynLeafChunk<T>*>(getSample(sampleIndex, objectIndex, tag, index));
    return leaf ? &leaf->data : nullptr;
}

}  // namespace Kyn

#endif
