// Loading a cache file and seeking its samples.
//   file   := DKYN chunk* META chunk* SAMS*        (other top-level chunks are skipped)
//   SAMS   := TIMS? FREE? JSAM FREE? SAMP*          (TIMS exactly when rate is 0)
//   SAMP   := JOBJ SOBJ*
// load keeps DKYN, META and the concatenated TIMS and JSAM tables of every SAMS, and jumps over
// the samples by the group length: no sample data is read. A JSAM entry is the offset of a SAMP
// header, a JOBJ entry the offset of a SOBJ header. Offsets come from the file and are trusted
// only as far as the header found there says.
#include "KynCache.h"

#include <unistd.h>

#include <climits>
#include <cmath>
#include <cstdio>
#include <memory>
#include <typeinfo>

#include "KynChunksSurvey.h"
#include "KynJumpTables.h"
#include "KynLog.h"
#include "KynSampleTags.h"

// A failed step of load: the message, then the bool that load catches.
#define KYN_LOAD_FAIL(message)  \
    do {                        \
        KYN_LOG_ERROR(message); \
        throw false;            \
    } while (0)

namespace Kyn {

const char* mode[2] = {"r", "r+"};

namespace {

// Any rwMode other than 0 opens for update; the table has no other entry.
const char* modeOf(int rwMode) {
    return mode[rwMode == 0 ? 0 : 1];
}

// Appends the payload of a table chunk to `table`; false unless the file holds the payload in
// whole entries.
template <class T>
bool appendTable(KynFile& file, const KynHeader& h, std::vector<T>& table) {
    if (h.length % int64_t(sizeof(T)) != 0 || !file.canRead(h.length)) return false;
    const std::size_t old = table.size();
    table.resize(old + static_cast<std::size_t>(h.length) / sizeof(T));
    return file.readData(h, table.size() == old ? nullptr : static_cast<void*>(&table[old]));
}

// Whether `chunk` is a leaf of exactly class KynLeafChunk<T> holding as many bytes as `h` says.
template <class T>
bool isLeafOfLength(const KynChunk* chunk, const KynHeader& h) {
    const KynChunk& object = *chunk;
    if (typeid(object) != typeid(KynLeafChunk<T>)) return false;
    const auto* leaf = static_cast<const KynLeafChunk<T>*>(chunk);
    return int64_t(leaf->data.size() * sizeof(T)) == h.length;
}

bool canLend(const KynChunk* chunk, const KynHeader& h) {
    if (chunk == nullptr || chunk->header.tag != h.tag || chunk->header.type != h.type)
        return false;
    switch (h.type) {
        case kTypeInt32:
            return isLeafOfLength<int>(chunk, h);
        case kTypeFloat:
            return isLeafOfLength<float>(chunk, h);
        case kTypeInt64:
            return isLeafOfLength<long>(chunk, h);
        case kTypeDouble:
            return isLeafOfLength<double>(chunk, h);
        default:
            return false;
    }
}

// Reads a group as KynGroupChunk does, except that a child which a leaf of `donor` can hold is
// read into that leaf, taken out of the donor. A leaf reads its payload into the vector it has,
// so one that has the right length already needs neither an allocation nor clearing. The
// result is the group that a plain read gives.
class KynReusingGroup : public KynGroupChunk {
  public:
    KynReusingGroup(unsigned tag, KynGroupChunk& donor) : KynGroupChunk(tag), donor(donor) {}

    bool readChild(const KynHeader& h, KynFile& file, bool& handled) override {
        handled = false;
        std::vector<KynChunk*>& spare = donor.children;
        auto lender = spare.begin();
        while (lender != spare.end() && !canLend(*lender, h)) ++lender;
        if (lender == spare.end()) return false;
        handled = true;
        KynChunk* child = *lender;
        spare.erase(lender);
        if (!child->read(h, file)) {
            delete child;
            return false;
        }
        children.push_back(child);
        return true;
    }

  private:
    KynGroupChunk& donor;
};

// The "SOBJ" whose header was just read, as a plain group owned by the caller; null on failure.
KynGroupChunk* readSampleGroup(const KynHeader& header, KynFile& file, KynGroupChunk* donor) {
    std::unique_ptr<KynGroupChunk> group(new KynGroupChunk(kTagSOBJ));
    if (donor == nullptr) return group->read(header, file) ? group.release() : nullptr;
    KynReusingGroup reader(kTagSOBJ, *donor);
    if (!reader.read(header, file)) return nullptr;
    group->header = reader.header;
    group->children.swap(reader.children);
    return group.release();
}

}  // namespace

KynCache::KynCache() : keptJumps(new KynJumpTables()), firstSamples(new KynSampleTags()) {
    KynCache::reset();
}

KynCache::~KynCache() {
    KynCache::reset();
}

void KynCache::reset() {
    fileName.clear();
    file.close();
    keepOpen = true;
    dkyn.version = 2;
    meta.numSamples = 0;
    meta.firstTime = INFINITY;
    meta.lastTime = -INFINITY;
    meta.rate = 1.0f;
    meta.space = 1;
    meta.application.clear();
    meta.sourceFile.clear();
    meta.date = 0;
    meta.removeAllChildren();
    jumpSample = -1;
    entryReads.clear();
    sampleTimes.clear();
    sampleJumps.clear();
    objectJumps.clear();
    forgetFileContents();
}

// What the cache learnt of the file beyond its tables: the object tables of other samples and
// the tags of first samples. Called whenever jumpSample is found -1, the mark that the file may
// have changed under the cache.
void KynCache::forgetFileContents() {
    keptJumps->clear();
    firstSamples->clear();
}

bool KynCache::load(const char* path, bool keepOpenArg) {
    reset();
    if (!KynFile::isKynFile(path)) {
        KYN_LOG_ERROR("error opening file, Not a Kyn file");
        return false;
    }
    // A read-write cache on a file the user may not write falls back to read-only, silently.
    int index = 0;
    if (rwMode != 0 && access(path, W_OK) == 0) index = 1;
    if (!file.open(path, mode[index])) {
        KYN_LOG_ERROR("error opening file");
        return false;
    }
    keepOpen = keepOpenArg;
    fileName = path;
    try {
        KynHeader h;
        if (!file.readHeader(h)) KYN_LOAD_FAIL("error reading header");
        if (!dkyn.read(h, file)) KYN_LOAD_FAIL("error reading DKYN chunk");
        for (;;) {
            if (!file.readHeader(h)) KYN_LOAD_FAIL("missing META chunk");
            if (h.tag == kTagMETA) break;
            if (!file.skipData(h)) KYN_LOAD_FAIL("error skipping chunk");
        }
        if (!meta.read(h, file)) KYN_LOAD_FAIL("error reading META chunk");
        if (sampleCount() != 0) {
            loadSampleStreams();
            checkSampleCount();
        }
        if (!keepOpen) file.close();
        return true;
    } catch (bool) {
        reset();
        return false;
    }
}

// Reads the prologue of one "SAMS" after another until the jump table holds the sample count.
void KynCache::loadSampleStreams() {
    while (int64_t(sampleJumps.size()) < sampleCount()) {
        KynHeader h;
        for (;;) {
            if (!file.readHeader(h)) KYN_LOAD_FAIL("missing next SAMS chunk for sample ");
            if (h.tag == kTagSAMS) break;
            if (!file.skipData(h)) KYN_LOAD_FAIL("error skipping chunk");
        }
        if (!file.hasStream()) KYN_LOAD_FAIL("error telling file");
        int64_t samsEnd = 0;
        if (__builtin_add_overflow(file.tell(nullptr), h.length, &samsEnd)) samsEnd = INT64_MAX;
        readSamsPrologue();
        if (static_cast<int>(sampleJumps.size()) >= sampleCount()) return;
        if (!file.hasStream() || !file.seek(samsEnd, SEEK_SET, true))
            KYN_LOAD_FAIL("error seeking file");
    }
}

// The chunks in front of the first "SAMP" of a group: the tables and their reserves.
void KynCache::readSamsPrologue() {
    bool sawJsam = false;
    bool sawTims = false;
    KynHeader h;
    while (file.readHeader(h) && h.tag != kTagSAMP) {
        if (h.tag == kTagTIMS) {
            if (!appendTable(file, h, sampleTimes)) KYN_LOAD_FAIL("error reading TIMS chunk");
            sawTims = true;
        } else if (h.tag == kTagJSAM) {
            if (!appendTable(file, h, sampleJumps)) KYN_LOAD_FAIL("error reading JSAM chunk");
            sawJsam = true;
        } else if (h.tag == kTagFREE) {
            if (!file.skipData(h)) KYN_LOAD_FAIL("error skipping FREE chunk");
        }
        // Any other chunk is not skipped: the next header is read from its payload.
    }
    if (!sawJsam) KYN_LOAD_FAIL("missing JSAM chunk");
    if (sampleJumps.empty()) KYN_LOAD_FAIL("no entries in jump table");
    if (meta.rate == 0.0f) {
        if (!sawTims) KYN_LOAD_FAIL("missing TIMS chunk");
        if (sampleJumps.size() != sampleTimes.size())
            KYN_LOAD_FAIL("jump table and time table size mismatch");
    } else if (sawTims) {
        KYN_LOAD_FAIL("unexpected TIMS chunk");
    }
}

void KynCache::checkSampleCount() {
    const int found = static_cast<int>(sampleJumps.size());
    if (sampleCount() != found) KYN_LOAD_FAIL("number of samples is wrong");
    if (!sampleTimes.empty()) {
        // Exact comparisons: NaN on either side is a mismatch.
        if (!(meta.firstTime == sampleTimes.front())) KYN_LOAD_FAIL("first time is wrong");
        if (!(meta.lastTime == sampleTimes.back())) KYN_LOAD_FAIL("last time is wrong");
    } else {
        const float expected = roundf((meta.lastTime - meta.firstTime) * meta.rate) + 1.0f;
        if (expected != static_cast<float>(found)) KYN_LOAD_FAIL("number of samples is wrong");
    }
}

// Brings in the "JOBJ" table of a sample, from the kept tables or from the file, and keeps the
// table it replaces. jumpSample stays -1 unless all of it was read; objectJumps changes only on
// success.
bool KynCache::readObjectJumps(int sampleIndex) {
    const int held = jumpSample;
    jumpSample = -1;
    if (!file.hasStream()) return false;
    // Without a table in hand the samples may have been rewritten or moved since any was kept.
    const bool holding = held >= 0 && std::size_t(held) < sampleJumps.size();
    if (!holding) forgetFileContents();
    const int64_t offset = sampleJumps[static_cast<std::size_t>(sampleIndex)];
    if (holding &&
        keptJumps->exchange(offset, sampleJumps[static_cast<std::size_t>(held)], objectJumps)) {
        jumpSample = sampleIndex;
        return true;
    }
    std::vector<int64_t>& incoming = keptJumps->spare();
    if (!keptJumps->take(offset, incoming) && !readJumpTable(offset, incoming)) return false;
    objectJumps.swap(incoming);
    if (holding) keptJumps->keep(sampleJumps[static_cast<std::size_t>(held)], incoming);
    jumpSample = sampleIndex;
    return true;
}

// Leaves the stream behind the "JOBJ" header of the "SAMP" at `sampleOffset`, with that header
// in `jobj`.
bool KynCache::seekJumpTable(int64_t sampleOffset, KynHeader& jobj) {
    if (!file.seek(sampleOffset, SEEK_SET, true)) return false;
    if (!file.readHeader(jobj) || jobj.tag != kTagSAMP || jobj.type != kTypeGroup ||
        jobj.length == 0)
        return false;
    for (;;) {
        if (!file.readHeader(jobj) || jobj.tag == kTagSOBJ) return false;
        if (jobj.tag == kTagJOBJ) return jobj.length % 8 == 0;
        if (!file.skipData(jobj)) return false;
    }
}

// Reads the "JOBJ" of the "SAMP" at `sampleOffset` into `table`.
bool KynCache::readJumpTable(int64_t sampleOffset, std::vector<int64_t>& table) {
    KynHeader h;
    if (!seekJumpTable(sampleOffset, h) || !file.canRead(h.length)) return false;
    table.resize(static_cast<std::size_t>(h.length / 8));
    return file.readData(h, table.empty() ? nullptr : static_cast<void*>(table.data()));
}

// Reads the one entry of `objectIndex` from the sample's "JOBJ" into `offset`. The table held
// in objectJumps, and jumpSample, stay as they are.
bool KynCache::readObjectJump(int sampleIndex, int objectIndex, int64_t& offset) {
    KynHeader h;
    if (!file.hasStream() || !seekJumpTable(sampleJumps[std::size_t(sampleIndex)], h) ||
        objectIndex < 0 || objectIndex >= h.length / 8)
        return false;
    KynHeader entry = h;
    entry.length = sizeof(int64_t);
    return file.seek(int64_t(objectIndex) * entry.length, SEEK_CUR, true) &&
           file.readData(entry, &offset);
}

// Whether a read in a sample whose table is not held should take only its entry. Single
// entries are read until they have cost about what the whole table would (a ski-rental rule):
// a host that follows one object along the timeline never pays for tables, one that walks the
// objects of a sample pays for single entries at most once over.
bool KynCache::prefersSingleEntry(int sampleIndex) {
    // One extra read costs about what this many bytes of table do.
    constexpr uint64_t kEntryReadBytes = 32 * 1024;
    if (!lazyObjectJumps) return false;
    const int64_t sampleOffset = sampleJumps[std::size_t(sampleIndex)];
    if (jumpSample >= 0 && keptJumps->holds(sampleOffset)) return false;
    if (entryReads.size() != sampleJumps.size()) entryReads.assign(sampleJumps.size(), 0);
    uint32_t& reads = entryReads[std::size_t(sampleIndex)];
    const uint64_t tableBytes = uint64_t(meta.objects.size()) * sizeof(int64_t);
    if ((uint64_t(reads) + 1) * kEntryReadBytes >= tableBytes) return false;
    ++reads;
    return true;
}

// Where the "SOBJ" of the object lies in the sample: from the held table, brought in when
// another sample's is held, or from the single entry.
bool KynCache::findObjectJump(int sampleIndex, int objectIndex, int64_t& offset) {
    if (sampleIndex != jumpSample) {
        if (prefersSingleEntry(sampleIndex))
            return readObjectJump(sampleIndex, objectIndex, offset);
        if (!readObjectJumps(sampleIndex)) return false;
    }
    if (objectIndex < 0 || std::size_t(objectIndex) >= objectJumps.size()) return false;
    offset = objectJumps[std::size_t(objectIndex)];
    return true;
}

bool KynCache::seekObjectSample(KynHeader& header, int sampleIndex, int objectIndex) {
    // The reopen uses rwMode as it stands: a read-write cache reopens for update.
    if (!file.hasStream() && !file.open(fileName.c_str(), modeOf(rwMode))) return false;
    if (sampleCount() == 0) return false;
    // A sample beyond the jump table is not on disk.
    if (sampleIndex < 0 || std::size_t(sampleIndex) >= sampleJumps.size()) return false;
    int64_t offset = 0;
    if (!findObjectJump(sampleIndex, objectIndex, offset)) return false;
    if (!file.hasStream() || !file.seek(offset, SEEK_SET, true)) return false;
    if (!file.readHeader(header) || header.tag != kTagSOBJ) return false;
    return header.type == kTypeGroup;
}

bool KynCache::seekChannelSample(KynHeader& header, int sampleIndex, int objectIndex, unsigned tag,
                                 int* index) {
    if (!seekObjectSample(header, sampleIndex, objectIndex) || header.length == 0) return false;
    // The stack leaves this depth exactly when the last child of the "SOBJ" has been passed.
    const std::size_t depth = file.groupStack.size();
    for (int position = 0;; ++position) {
        if (!file.readHeader(header)) return false;
        if (header.tag == tag && (index == nullptr || position >= *index)) {
            if (index) *index = position;
            return true;
        }
        if (!file.skipData(header) || file.groupStack.size() != depth) return false;
    }
}

// Reads the object's "SOBJ" in the sample as loadObjectSample would, keeping only its tag and
// those of every chunk below it; true exactly when loadObjectSample would give a group.
bool KynCache::surveyObjectSample(int sampleIndex, int objectIndex, std::vector<unsigned>& tags) {
    KynHeader header;
    bool read = seekObjectSample(header, sampleIndex, objectIndex);
    if (read) {
        tags.push_back(kTagSOBJ);
        KynTagSurvey group(kTagSOBJ, tags);
        read = group.read(header, file);
    }
    if (!keepOpen) file.close();
    return read;
}

KynGroupChunk* KynCache::loadObjectSample(int sampleIndex, int objectIndex) {
    return loadObjectSampleReusing(sampleIndex, objectIndex, nullptr);
}

KynGroupChunk* KynCache::loadObjectSampleReusing(int sampleIndex, int objectIndex,
                                                 KynGroupChunk* donor) {
    try {
        KynHeader header;
        if (!seekObjectSample(header, sampleIndex, objectIndex)) throw false;
        KynGroupChunk* group = readSampleGroup(header, file, donor);
        if (group == nullptr) throw false;
        if (!keepOpen) file.close();
        return group;
    } catch (bool) {
        if (!keepOpen) file.close();
        return nullptr;
    }
}

}  // namespace Kyn
