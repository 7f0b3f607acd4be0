// The scan of a sample stream that trusts no table and no group length.
//   stream   := (SAMS-header, (TIMS | JSAM | FREE)*, SAMP*)*      walked chunk by chunk
//   SAMP     := SAMP{ other*, JOBJ, (SOBJ | other)* }              judged by what it holds
// Writers patch the "SAMS" and "SAMP" lengths and the tables last, so a file left by a crash
// holds lengths of 0 and tables of zeros; the walk never jumps by them. Where the chunks stop
// making sense it looks for the next header of a "SAMP" or "SAMS" (or, in a prologue, of a
// "JSAM" or "TIMS") byte by byte: the four tag bytes and the type, compound, dimension and
// reserved bytes that every writer puts there.
#include <climits>
#include <cmath>
#include <cstring>
#include <string>
#include <unordered_map>

#include "KynRecovery.h"

namespace Kyn {

const char* kynDamageName(KynDamage::Kind kind) {
    switch (kind) {
        case KynDamage::kLoad:
            return "load";
        case KynDamage::kCut:
            return "cut";
        case KynDamage::kUnfinished:
            return "unfinished";
        case KynDamage::kLength:
            return "length";
        case KynDamage::kChunk:
            return "chunk";
        case KynDamage::kObjectCount:
            return "object-count";
        case KynDamage::kObjectTable:
            return "object-table";
        case KynDamage::kSampleTable:
            return "sample-table";
        case KynDamage::kTimeTable:
            return "time-table";
        case KynDamage::kSampleCount:
            return "sample-count";
        case KynDamage::kUnreadable:
            return "unreadable";
        case KynDamage::kNoTime:
            return "no-time";
        case KynDamage::kOutOfOrder:
            return "out-of-order";
    }
    return "?";
}

const char* kynDamageText(KynDamage::Kind kind) {
    switch (kind) {
        case KynDamage::kLoad:
            return "the file does not load";
        case KynDamage::kCut:
            return "the file is cut short there";
        case KynDamage::kUnfinished:
            return "its length was never written";
        case KynDamage::kLength:
            return "its length does not match what it holds";
        case KynDamage::kChunk:
            return "unexpected or broken chunk";
        case KynDamage::kObjectCount:
            return "it holds another number of objects than the metadata names";
        case KynDamage::kObjectTable:
            return "its entries do not lead to the sample's objects";
        case KynDamage::kSampleTable:
            return "its entries do not lead to the samples";
        case KynDamage::kTimeTable:
            return "it does not match the sample table";
        case KynDamage::kSampleCount:
            return "it gives another number of samples than the file holds";
        case KynDamage::kUnreadable:
            return "the cache cannot read it";
        case KynDamage::kNoTime:
            return "its time is not on disk";
        case KynDamage::kOutOfOrder:
            return "its time is not after the time of the sample kept before it";
    }
    return "?";
}

namespace {

constexpr std::size_t kSearchBlock = 64 * 1024;
constexpr int64_t kMaxPayload = INT32_MAX;

bool fits(int64_t start, int64_t length, int64_t end) {
    return length >= 0 && start <= end && length <= end - start;
}

// The eight bytes that every writer puts at the front of a chunk header of this tag and type.
bool hasSignature(const unsigned char* bytes, unsigned tag, unsigned char type) {
    unsigned value = 0;
    std::memcpy(&value, bytes, 4);
    return value == tag && bytes[4] == type && bytes[5] == 0 && bytes[6] == 0 && bytes[7] == 0;
}

bool isSampleHeader(const KynHeader& h) {
    return h.tag == kTagSAMP && h.type == kTypeGroup;
}

bool isGroupHeader(const KynHeader& h) {
    return h.tag == kTagSAMS && h.type == kTypeGroup;
}

KynDamage damageAt(KynDamage::Kind kind, unsigned tag, int64_t offset,
                   std::string detail = std::string()) {
    KynDamage damage;
    damage.kind = kind;
    damage.tag = tag;
    damage.offset = offset;
    damage.detail = std::move(detail);
    return damage;
}

// Whether a leaf of this header reads as the library reads leaves.
bool leafReads(const KynHeader& h) {
    switch (h.type) {
        case kTypeInt32:
        case kTypeFloat:
            return h.length % 4 == 0 && h.length <= kMaxPayload;
        case kTypeInt64:
        case kTypeDouble:
            return h.length % 8 == 0 && h.length <= kMaxPayload;
        case kTypeUndef:
        case kTypeCstr:
            return h.length <= kMaxPayload;
        default:
            return true;  // an unknown type is skipped by every reader
    }
}

}  // namespace

// One "SAMS" group as the walk found it.
struct ScannedGroup {
    int64_t offset = -1;  // of its header; -1 for samples met before any group header
    int64_t length = 0;   // its header's length
    int64_t end = -1;     // behind the last chunk of it that the walk passed
    bool hasTimes = false;
    int64_t timsOffset = -1;
    std::vector<float> times;
    bool hasJumps = false;
    int64_t jsamOffset = -1;
    std::vector<int64_t> jumps;
    int64_t lastWritten = -1;                        // the last non-zero entry of `jumps`
    int64_t firstIndex = -1;                         // index of its first sample, when known
    std::vector<int64_t> samples;                    // offsets of the samples met in it
    std::unordered_map<int64_t, int64_t> jumpIndex;  // offset to entry, built when needed
    bool prologue = true;                            // no sample of it met yet

    // The entry of `jumps` that holds `offset`, or -1.
    int64_t entryOf(int64_t offset, int64_t expected) {
        if (expected >= 0 && expected < int64_t(jumps.size()) && jumps[expected] == offset)
            return expected;
        if (jumpIndex.empty() && !jumps.empty())
            for (std::size_t k = jumps.size(); k-- > 0;) jumpIndex[jumps[k]] = int64_t(k);
        auto it = jumpIndex.find(offset);
        return it == jumpIndex.end() ? -1 : it->second;
    }
};

struct KynSampleScanner::State {
    KynFile file;
    std::string failure;
    int64_t size = 0;
    int64_t pos = 0;
    int objects = 0;
    float rate = 1.0f;
    float firstTime = 0.0f;
    std::vector<ScannedGroup> groups;
    int64_t groupEnd = -1;  // where the current group says it ends; -1 unknown
    int64_t nextIndex = 0;  // index of the next sample while `inSync`
    bool inSync = true;
    bool polled = false;  // the last walk found nothing more: the next is a new look
    int64_t samplesFound = 0;
    std::vector<KynDamage> found;
    std::vector<unsigned char> block;
    std::vector<int64_t> entries;

    bool readHeaderAt(int64_t offset, KynHeader& h) {
        if (!fits(offset, 16, size) || !file.seek(offset, SEEK_SET, true)) return false;
        return file.readHeader(h);
    }

    template <class T>
    bool readTable(int64_t offset, const KynHeader& h, std::vector<T>& table) {
        if (h.length % int64_t(sizeof(T)) != 0 || !fits(offset + 16, h.length, size) ||
            !file.seek(offset + 16, SEEK_SET, true) || !file.canRead(h.length))
            return false;
        table.assign(static_cast<std::size_t>(h.length) / sizeof(T), T());
        return table.empty() || file.readData(h, table.data());
    }

    // The group being walked; samples or tables met before any group header get one of their
    // own.
    ScannedGroup& group() {
        if (groups.empty()) {
            groups.emplace_back();
            groups.back().firstIndex = inSync ? nextIndex : -1;
        }
        return groups.back();
    }

    void refreshSize() {
        if (file.seek(0, SEEK_END, true)) size = file.tell(nullptr);
    }

    bool openFile(const char* path, KynDKYNChunk& dkyn, KynMETAChunk& meta);
    int64_t search(int64_t from, bool prologue);
    bool walk(KynScannedSample& sample, bool holdTail);
    void startGroup(const KynHeader& h);
    bool prologueChunk(const KynHeader& h);
    void skipTo(int64_t offset, int64_t from, const char* what);
    void examine(const KynHeader& h, KynScannedSample& sample);
    bool checkChildren(int64_t start, int64_t end, int depth, int object, KynDamage& problem);
    void locate(KynScannedSample& sample);
    void place(KynScannedSample& sample);
    bool settled(KynScannedSample& sample);
    void rereadTables(ScannedGroup& g);
    bool walkOn(KynScannedSample& sample, bool holdTail);
    int64_t continuation(const KynScannedSample& sample);
    void groupProblems(const ScannedGroup& g, std::vector<KynDamage>& out) const;
};

bool KynSampleScanner::State::openFile(const char* path, KynDKYNChunk& dkyn, KynMETAChunk& meta) {
    if (path == nullptr || !file.open(path, "r")) {
        failure = "the file cannot be opened";
        return false;
    }
    refreshSize();
    KynHeader h;
    if (!readHeaderAt(0, h) || h.tag != kTagDKYN) {
        failure = "the file does not start with a cache header";
        return false;
    }
    int64_t at = 0;
    if (dkyn.read(h, file)) {
        at = 24;
    } else {
        found.push_back(damageAt(KynDamage::kChunk, kTagDKYN, 0, "it does not read"));
        at = fits(16, h.length, size) ? 16 + h.length : 24;
    }
    for (;;) {
        if (!readHeaderAt(at, h)) {
            failure = "the metadata is missing";
            return false;
        }
        if (h.tag == kTagMETA) break;
        if (!fits(at + 16, h.length, size)) {
            failure = "the metadata is missing";
            return false;
        }
        at += 16 + h.length;
    }
    if (!meta.read(h, file)) {
        failure = "the metadata does not read";
        return false;
    }
    pos = file.tell(nullptr);
    objects = static_cast<int>(meta.objects.size());
    rate = meta.rate;
    firstTime = meta.firstTime;
    return true;
}

// The offset of the first header signature at or behind `from`, or -1.
int64_t KynSampleScanner::State::search(int64_t from, bool prologue) {
    block.resize(kSearchBlock);
    for (int64_t start = from; start + 8 <= size;) {
        const int64_t want = std::min<int64_t>(int64_t(kSearchBlock), size - start);
        KynHeader piece;
        piece.length = want;
        if (!file.seek(start, SEEK_SET, true) || !file.readData(piece, block.data())) return -1;
        for (int64_t i = 0; i + 8 <= want; ++i) {
            const unsigned char* at = &block[std::size_t(i)];
            if (at[0] != 'S' && at[0] != 'J' && at[0] != 'T') continue;
            if (hasSignature(at, kTagSAMP, kTypeGroup) || hasSignature(at, kTagSAMS, kTypeGroup) ||
                (prologue && (hasSignature(at, kTagJSAM, kTypeInt64) ||
                              hasSignature(at, kTagTIMS, kTypeFloat))))
                return start + i;
        }
        if (start + want >= size) break;
        start += want - 7;  // a signature may straddle two blocks
    }
    return -1;
}

void KynSampleScanner::State::skipTo(int64_t offset, int64_t from, const char* what) {
    const int64_t end = offset < 0 ? size : offset;
    std::string detail = std::string(what) + "; " + std::to_string(end - from) + " bytes skipped";
    if (offset < 0) detail += ", up to the end of the file";
    found.push_back(damageAt(KynDamage::kChunk, 0, from, detail));
    // Samples may lie in what was skipped: their count is lost, unless the walk was still among
    // the tables in front of the first sample of its group.
    if (!groups.empty() && !group().prologue) inSync = false;
    pos = end;
}

void KynSampleScanner::State::startGroup(const KynHeader& h) {
    ScannedGroup g;
    g.offset = pos;
    g.length = h.length;
    g.end = pos + 16;
    if (inSync) {
        g.firstIndex = nextIndex;
    } else {
        // Without the running count, the tables of the groups before tell where this one starts.
        int64_t sum = 0;
        bool known = true;
        for (const ScannedGroup& before : groups) {
            known = known && before.hasJumps;
            sum += int64_t(before.jumps.size());
        }
        if (known) g.firstIndex = sum;
    }
    groups.push_back(std::move(g));
    groupEnd = (h.length > 0 && fits(pos + 16, h.length, size)) ? pos + 16 + h.length : -1;
    pos += 16;
}

// A "TIMS", "JSAM" or "FREE" of a prologue; false when it does not read.
bool KynSampleScanner::State::prologueChunk(const KynHeader& h) {
    ScannedGroup& g = group();
    bool ok = fits(pos + 16, h.length, size);
    if (ok && h.tag == kTagTIMS) {
        ok = h.type == kTypeFloat && !g.hasTimes && readTable(pos, h, g.times);
        if (ok) {
            g.hasTimes = true;
            g.timsOffset = pos;
        }
    } else if (ok && h.tag == kTagJSAM) {
        ok = h.type == kTypeInt64 && !g.hasJumps && readTable(pos, h, g.jumps);
        if (ok) {
            g.hasJumps = true;
            g.jsamOffset = pos;
        }
        for (std::size_t k = 0; ok && k < g.jumps.size(); ++k)
            if (g.jumps[k] != 0) g.lastWritten = int64_t(k);
    }
    if (!ok) return false;
    pos += 16 + h.length;
    g.end = pos;
    return true;
}

// Checks the chunks from `start` to `end`, the payload of a group `depth` deep, each ending
// where its length says. Problems name `object`.
bool KynSampleScanner::State::checkChildren(int64_t start, int64_t end, int depth, int object,
                                            KynDamage& problem) {
    if (std::size_t(depth) > kMaxGroupDepth) {
        problem = damageAt(KynDamage::kChunk, kTagSOBJ, start, "groups nested too deep");
        problem.object = object;
        return false;
    }
    for (int64_t at = start; at < end;) {
        KynHeader h;
        if (!fits(at, 16, end) || !readHeaderAt(at, h) || !fits(at + 16, h.length, end)) {
            problem = damageAt(KynDamage::kLength, kTagSOBJ, at,
                               "a chunk runs past the end of its group");
            problem.object = object;
            return false;
        }
        if (h.type == kTypeGroup) {
            if (!checkChildren(at + 16, at + 16 + h.length, depth + 1, object, problem))
                return false;
        } else if (!leafReads(h)) {
            problem = damageAt(KynDamage::kChunk, kTagSOBJ, at,
                               "a chunk of a size its type does not allow");
            problem.object = object;
            return false;
        }
        at += 16 + h.length;
    }
    return true;
}

void KynSampleScanner::State::examine(const KynHeader& h, KynScannedSample& sample) {
    const int64_t p = pos;
    sample = KynScannedSample();
    sample.offset = p;
    sample.length = h.length;
    sample.group = int(groups.size()) - 1;
    KynDamage& problem = sample.problem;
    problem = damageAt(KynDamage::kUnfinished, kTagSAMP, p);
    if (h.length == 0) return;
    if (h.length < 16) {
        problem = damageAt(KynDamage::kLength, kTagSAMP, p, "too short for an object table");
        return;
    }
    if (!fits(p + 16, h.length, size)) {
        problem = damageAt(KynDamage::kCut, kTagSAMP, p);
        return;
    }
    const int64_t end = p + 16 + h.length;
    bool tableSeen = false;
    for (int64_t at = p + 16; at < end;) {
        KynHeader c;
        if (!fits(at, 16, end) || !readHeaderAt(at, c) || !fits(at + 16, c.length, end)) {
            problem = damageAt(KynDamage::kLength, kTagSAMP, at, "a chunk runs past its end");
            return;
        }
        const int object = int(sample.objects.size());
        if (c.tag == kTagJOBJ && !tableSeen && sample.objects.empty()) {
            if (c.length % 8 != 0 || !readTable(at, c, entries)) {
                problem = damageAt(KynDamage::kChunk, kTagJOBJ, at, "entries that are not whole");
                return;
            }
            tableSeen = true;
        } else if (c.tag == kTagSOBJ) {
            if (!tableSeen || c.type != kTypeGroup) {
                problem = damageAt(
                    KynDamage::kChunk, kTagSOBJ, at,
                    tableSeen ? "an object that is no group" : "an object before the object table");
                problem.object = object;
                return;
            }
            if (!checkChildren(at + 16, at + 16 + c.length, 1, object, problem)) return;
            sample.objects.push_back(at);
        } else if (c.type == kTypeGroup) {
            if (!checkChildren(at + 16, at + 16 + c.length, 1, -1, problem)) return;
        } else if (!leafReads(c)) {
            problem = damageAt(KynDamage::kChunk, kTagSAMP, at,
                               "a chunk of a size its type does not allow");
            return;
        }
        at += 16 + c.length;
    }
    if (!tableSeen) {
        problem = damageAt(KynDamage::kChunk, kTagSAMP, p, "no object table");
        return;
    }
    if (int64_t(sample.objects.size()) != objects) {
        problem = damageAt(KynDamage::kObjectCount, kTagSAMP, p,
                           std::to_string(sample.objects.size()) + " objects, the metadata names " +
                               std::to_string(objects));
        return;
    }
    sample.whole = true;
    sample.objectTableMatches = entries == sample.objects;
}

// Gives the sample its index and time, as far as the file shows them.
void KynSampleScanner::State::locate(KynScannedSample& sample) {
    ScannedGroup& g = group();
    const int64_t expected = g.firstIndex >= 0 && inSync ? nextIndex - g.firstIndex : -1;
    const int64_t entry = g.entryOf(sample.offset, expected);
    int64_t index = -1;    // in the file
    int64_t inGroup = -1;  // in the group, which is the place of its time in "TIMS"
    if (entry >= 0) {
        inGroup = entry;  // the table wins over the running count
        if (g.firstIndex >= 0) index = g.firstIndex + entry;
    } else if (inSync) {
        index = nextIndex;
        if (g.firstIndex >= 0) inGroup = index - g.firstIndex;
    }
    sample.index = index;
    sample.hasTime = false;
    if (rate != 0.0f) {
        const float time = float(index) / rate + firstTime;
        sample.hasTime = index >= 0 && std::isfinite(time);
        if (sample.hasTime) sample.time = time;
    } else if (inGroup >= 0 && inGroup < int64_t(g.times.size()) && inGroup <= g.lastWritten) {
        sample.time = g.times[std::size_t(inGroup)];
        sample.hasTime = std::isfinite(sample.time);  // no lookup could ever find another
    }
    if (!sample.whole) sample.problem.sample = index;
}

// Locates the sample and counts it in.
void KynSampleScanner::State::place(KynScannedSample& sample) {
    locate(sample);
    if (sample.index >= 0) {
        nextIndex = sample.index + 1;
        inSync = true;
    }
    ScannedGroup& g = group();
    g.samples.push_back(sample.offset);
    g.prologue = false;
    ++samplesFound;
}

// Where the walk goes on behind a sample: its end when it is whole or its end lands on a
// sample, a group or the end of the file; otherwise the next signature behind its header (-1
// when there is none).
int64_t KynSampleScanner::State::continuation(const KynScannedSample& sample) {
    const int64_t p = sample.offset;
    if (sample.length >= 16 && fits(p + 16, sample.length, size)) {
        const int64_t end = p + 16 + sample.length;
        KynHeader h;
        if (sample.whole || end == size ||
            (readHeaderAt(end, h) && (isSampleHeader(h) || isGroupHeader(h))))
            return end;
    }
    return search(p + 1, false);
}

// The group's tables as they are on disk now: a writer that commits each sample adds to them.
void KynSampleScanner::State::rereadTables(ScannedGroup& g) {
    KynHeader h;
    if (g.timsOffset >= 0 && readHeaderAt(g.timsOffset, h) && h.tag == kTagTIMS)
        readTable(g.timsOffset, h, g.times);
    if (g.jsamOffset >= 0 && readHeaderAt(g.jsamOffset, h) && h.tag == kTagJSAM &&
        readTable(g.jsamOffset, h, g.jumps)) {
        g.jumpIndex.clear();
        for (std::size_t k = 0; k < g.jumps.size(); ++k)
            if (g.jumps[k] != 0) g.lastWritten = int64_t(k);
    }
}

// For a reader of a file still being written: whether the sample can be reported now, whole,
// with an object table that leads to its objects and with a time.
bool KynSampleScanner::State::settled(KynScannedSample& sample) {
    if (!sample.whole || !sample.objectTableMatches) return false;
    locate(sample);
    if (!sample.hasTime && rate == 0.0f) {
        rereadTables(group());
        locate(sample);
    }
    return sample.hasTime;
}

bool KynSampleScanner::State::walk(KynScannedSample& sample, bool holdTail) {
    // A new look at a file that another writer extends: what was read ahead may have changed.
    if (holdTail && polled) file.forgetReadAhead();
    polled = !walkOn(sample, holdTail);
    return !polled;
}

bool KynSampleScanner::State::walkOn(KynScannedSample& sample, bool holdTail) {
    refreshSize();
    while (pos < size) {
        KynHeader h;
        if (!readHeaderAt(pos, h)) {
            if (holdTail) return false;
            found.push_back(damageAt(KynDamage::kCut, 0, pos, "inside a chunk header"));
            pos = size;
            return false;
        }
        if (groupEnd >= 0 && pos > groupEnd) groupEnd = -1;  // the group's length is wrong
        if (isGroupHeader(h)) {
            startGroup(h);
            continue;
        }
        const bool behindGroup = !groups.empty() && pos == groupEnd;  // at the top level
        const bool inPrologue = !behindGroup && (groups.empty() || group().prologue);
        if (inPrologue && (h.tag == kTagTIMS || h.tag == kTagJSAM || h.tag == kTagFREE)) {
            if (prologueChunk(h)) continue;
            const int64_t next = search(pos + 1, true);
            if (next < 0 && holdTail) return false;  // a table still being written
            skipTo(next, pos, "a broken table");
            continue;
        }
        if (isSampleHeader(h)) {
            const int64_t p = pos;
            examine(h, sample);
            if (holdTail && !settled(sample)) return false;
            const int64_t next = sample.whole ? p + 16 + h.length : continuation(sample);
            place(sample);
            // A search behind a sample finds the next header that is intact, so the count
            // holds: only a sample whose header is damaged too could lie in between.
            pos = next < 0 ? size : next;
            if (sample.whole || next == p + 16 + h.length) group().end = pos;
            return true;
        }
        if ((groups.empty() || behindGroup) && fits(pos + 16, h.length, size)) {
            pos += 16 + h.length;  // a top-level chunk of another kind, which readers skip
            continue;
        }
        const int64_t next = search(pos + 1, inPrologue);
        if (next < 0 && holdTail) return false;  // a chunk still being written
        skipTo(next, pos, "bytes that are no chunk");
    }
    return false;
}

void KynSampleScanner::State::groupProblems(const ScannedGroup& g,
                                            std::vector<KynDamage>& out) const {
    const int64_t at = g.offset >= 0 ? g.offset : (g.samples.empty() ? -1 : g.samples.front());
    if (g.offset < 0) {
        out.push_back(damageAt(KynDamage::kChunk, kTagSAMS, at, "no header in front of samples"));
    } else if (g.length == 0 && !g.samples.empty()) {
        out.push_back(damageAt(KynDamage::kUnfinished, kTagSAMS, g.offset));
    } else if (g.length != 0 && g.offset + 16 + g.length != g.end) {
        out.push_back(damageAt(KynDamage::kLength, kTagSAMS, g.offset,
                               "it says " + std::to_string(g.length) + " bytes, its chunks take " +
                                   std::to_string(g.end - g.offset - 16)));
    }
    const int64_t jumpsAt = g.jsamOffset >= 0 ? g.jsamOffset : at;
    if (!g.hasJumps) {
        out.push_back(damageAt(KynDamage::kSampleTable, kTagJSAM, jumpsAt, "there is none"));
    } else if (g.jumps != g.samples) {
        std::size_t unwritten = 0;
        std::size_t first = 0;
        while (first < g.jumps.size() && first < g.samples.size() &&
               g.jumps[first] == g.samples[first])
            ++first;
        for (int64_t jump : g.jumps) unwritten += jump == 0;
        std::string detail = std::to_string(g.jumps.size()) + " entries for " +
                             std::to_string(g.samples.size()) + " samples";
        if (unwritten != 0) detail += ", " + std::to_string(unwritten) + " never written";
        if (first < g.jumps.size()) detail += ", the first wrong is entry " + std::to_string(first);
        out.push_back(damageAt(KynDamage::kSampleTable, kTagJSAM, jumpsAt, detail));
    }
    const int64_t timesAt = g.timsOffset >= 0 ? g.timsOffset : at;
    if (rate == 0.0f && !g.hasTimes)
        out.push_back(damageAt(KynDamage::kTimeTable, kTagTIMS, timesAt, "there is none"));
    else if (rate == 0.0f && g.hasJumps && g.times.size() != g.jumps.size())
        out.push_back(damageAt(KynDamage::kTimeTable, kTagTIMS, timesAt,
                               std::to_string(g.times.size()) + " times for " +
                                   std::to_string(g.jumps.size()) + " offsets"));
    else if (rate != 0.0f && g.hasTimes)
        out.push_back(damageAt(KynDamage::kTimeTable, kTagTIMS, timesAt, "in a uniform file"));
}

KynSampleScanner::KynSampleScanner() : state(new State()) {}

KynSampleScanner::~KynSampleScanner() = default;

bool KynSampleScanner::open(const char* path) {
    close();
    if (state->openFile(path, dkyn, meta)) return true;
    const std::string failure = state->failure;
    close();
    state->failure = failure;
    return false;
}

void KynSampleScanner::close() {
    state.reset(new State());
    meta.reset();
    dkyn.reset();
}

bool KynSampleScanner::next(KynScannedSample& sample) {
    return state->file.hasStream() && state->walk(sample, holdTail);
}

std::vector<KynDamage> KynSampleScanner::problems() const {
    std::vector<KynDamage> out = state->found;
    for (const ScannedGroup& g : state->groups) state->groupProblems(g, out);
    if (state->file.hasStream() && meta.numSamples != state->samplesFound)
        out.push_back(damageAt(KynDamage::kSampleCount, kTagMETA, -1,
                               "it says " + std::to_string(meta.numSamples) + ", the file holds " +
                                   std::to_string(state->samplesFound)));
    return out;
}

int64_t KynSampleScanner::position() const {
    return state->pos;
}

int64_t KynSampleScanner::fileSize() const {
    return state->size;
}

const std::string& KynSampleScanner::failure() const {
    return state->failure;
}

}  // namespace Kyn
