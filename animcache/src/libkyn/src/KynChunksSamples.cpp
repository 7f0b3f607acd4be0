// The sample stream writer.
//   SAMS := TIMS? FREE? JSAM FREE? SAMP*
//   TIMS := float[samples]        times of a non-uniform file
//   JSAM := int64[samples]        absolute offsets of the "SAMP" headers
//   FREE := reserve of spare samples: 4 bytes each behind TIMS, 8 behind JSAM; a hole
//   SAMP := JOBJ SOBJ*            JOBJ: int64[objects], absolute offsets of the "SOBJ" headers
// Tables go out as placeholders and are overwritten in place when their group ends. To append,
// a table grows into its reserve: the "FREE" header moves back and its length shrinks. A
// committing writer grows its tables that way one sample at a time (see KynChunks.h).
#include <climits>
#include <cstring>

#include "KynChunks.h"

namespace Kyn {

namespace {

KynHeader makeHeader(unsigned tag, unsigned char type, int64_t length) {
    KynHeader h;
    h.tag = tag;
    h.type = type;
    h.length = length;
    return h;
}

bool writeReserve(KynFile& file, int64_t length) {
    return file.writeChunk(makeHeader(kTagFREE, kTypeUndef, length), nullptr, -1);
}

// A table written as placeholders at the current position; false on failure.
template <class T>
bool writeTable(KynFile& file, unsigned tag, const std::vector<T>& table) {
    KynHeader h = makeHeader(tag, KynTypeOf<T>::code, int64_t(table.size() * sizeof(T)));
    return file.writeChunk(h, table.empty() ? nullptr : table.data(), -1);
}

// Reads the table whose header `h` was just read into `table`, with `newSamples` zero entries
// behind it, then the next header into `h`: a "FREE" with room for them must follow.
template <class T>
bool readTableAndReserve(KynFile& file, KynHeader& h, int64_t newSamples, std::vector<T>& table) {
    const int64_t size = sizeof(T);
    // The length comes from the file: nothing is allocated for bytes that are not there.
    if (!file.canRead(h.length)) return false;
    // A negative count, or too few new entries to hold the bytes of a last partial entry, would
    // make the table smaller than the payload read into it.
    if (newSamples < 0 || newSamples > (INT64_MAX - h.length) / size ||
        newSamples * size < h.length % size)
        return false;
    table.assign(static_cast<std::size_t>(newSamples + h.length / size), T());
    if (!file.readData(h, table.data())) return false;
    if (!file.readHeader(h) || h.tag != kTagFREE) return false;
    return newSamples * size <= h.length;
}

// The header of a "FREE" at `at` whose reserve ends at `reserveEnd`.
KynHeader reserveAt(int64_t at, int64_t reserveEnd) {
    return makeHeader(kTagFREE, kTypeUndef, reserveEnd - at - 16);
}

// An empty table at `table` and the "FREE" right behind it up to `reserveEnd`, as one block
// of 32 bytes.
bool writeEmptyTable(KynFile& file, int64_t table, unsigned tag, unsigned char type,
                     int64_t reserveEnd) {
    const KynHeader heads[2] = {makeHeader(tag, type, 0), reserveAt(table + 16, reserveEnd)};
    return file.patch(table, heads, sizeof heads);
}

// The "FREE" behind the table at `table` whose entries take `bytes`, up to `reserveEnd`.
bool patchReserveBehind(KynFile& file, int64_t table, int64_t bytes, int64_t reserveEnd) {
    const KynHeader reserve = reserveAt(table + 16 + bytes, reserveEnd);
    return file.patch(table + 16 + bytes, &reserve, sizeof reserve);
}

// Commits entry `k` of the table at `table`: the entry in place, and, when the table has a
// reserve ending at `reserveEnd` (not -1), the "FREE" behind it and the table's new length, in
// that order. Each write is handed to the system before the next.
bool commitEntry(KynFile& file, int64_t table, const void* entry, int64_t size, uint64_t k,
                 int64_t reserveEnd) {
    unsigned char bytes[8 + sizeof(KynHeader)];
    std::memcpy(bytes, entry, std::size_t(size));
    const int64_t entryAt = table + 16 + size * int64_t(k);
    std::size_t length = std::size_t(size);
    if (reserveEnd >= 0) {
        const KynHeader reserve = reserveAt(entryAt + size, reserveEnd);
        std::memcpy(bytes + size, &reserve, sizeof reserve);
        length += sizeof reserve;
    }
    if (!file.patch(entryAt, bytes, length) || !file.flush(false)) return false;
    if (reserveEnd < 0) return true;
    const int64_t tableLength = size * int64_t(k + 1);
    return file.patch(table + 8, &tableLength, sizeof tableLength) && file.flush(false);
}

}  // namespace

KynSAMSChunk::KynSAMSChunk() : KynGroupChunk(kTagSAMS) {}

KynSAMSChunk::~KynSAMSChunk() = default;

void KynSAMSChunk::reset() {
    times.clear();
    sampleJumps.clear();
    objectJumps.clear();
    timsOffset = jsamOffset = jobjOffset = -1;
    sampleIndex = objectIndex = 0;
    inStep = false;
    samsPayload = timsReserveEnd = jsamReserveEnd = -1;
    followed = Followed();
}

bool KynSAMSChunk::read(const KynHeader&, KynFile&) {
    return false;
}

bool KynSAMSChunk::write(KynFile&) const {
    return false;
}

bool KynSAMSChunk::writeStart(KynFile& file, int64_t numSamples, int64_t numFree, bool nonUniform) {
    sampleIndex = 0;
    if (numSamples < 0 || numFree < 0) return false;
    if (!file.startGroup(header)) return false;
    samsPayload = file.tell(nullptr);
    if (nonUniform) {
        bool ok = false;
        timsOffset = file.tell(&ok);
        if (!ok) {
            file.endGroup();
            return false;
        }
        times.resize(static_cast<std::size_t>(numSamples));
        if (!writeTable(file, kTagTIMS, times) ||
            (numFree != 0 && !writeReserve(file, numFree * 4))) {
            file.endGroup();
            return false;
        }
    }
    bool ok = false;
    jsamOffset = file.tell(&ok);
    if (!ok) {
        file.endGroup();
        return false;
    }
    sampleJumps.resize(static_cast<std::size_t>(numSamples));
    if (!writeTable(file, kTagJSAM, sampleJumps) ||
        (numFree != 0 && !writeReserve(file, numFree * 8))) {
        file.endGroup();
        return false;
    }
    inStep = commit != kCommitAtEnd && numFree != 0;
    if (timsOffset >= 0) timsReserveEnd = timsOffset + 32 + 4 * (numSamples + numFree);
    jsamReserveEnd = jsamOffset + 32 + 8 * (numSamples + numFree);
    return commitStart(file, true);
}

bool KynSAMSChunk::writeStartSAMPChunk(KynFile& file, int64_t numObjects, const float* time) {
    if (sampleIndex >= sampleJumps.size()) return false;
    objectIndex = 0;
    bool ok = false;
    sampleJumps[sampleIndex] = file.tell(&ok);
    if (!ok) return false;
    if (time != nullptr && sampleIndex < times.size()) times[sampleIndex] = *time;
    if (!file.startGroup(makeHeader(kTagSAMP, kTypeGroup, 0))) return false;
    jobjOffset = file.tell(&ok);
    if (ok && numObjects >= 0) {
        objectJumps.resize(static_cast<std::size_t>(numObjects));
        ok = writeTable(file, kTagJOBJ, objectJumps);
    } else {
        ok = false;
    }
    if (!ok) file.endGroup();
    return ok;
}

bool KynSAMSChunk::writeStartSOBJChunk(KynFile& file) {
    if (objectIndex >= objectJumps.size()) return false;
    bool ok = false;
    objectJumps[objectIndex] = file.tell(&ok);
    if (!ok) return false;
    return file.startGroup(makeHeader(kTagSOBJ, kTypeGroup, 0));
}

bool KynSAMSChunk::writeEndSOBJChunk(KynFile& file) {
    if (!file.endGroup()) return false;
    ++objectIndex;
    return true;
}

bool KynSAMSChunk::writeSOBJChunk(KynFile& file, const KynGroupChunk* group) {
    if (objectIndex >= objectJumps.size() || group == nullptr) return false;
    if (group->header.tag != kTagSOBJ || group->header.type != kTypeGroup) return false;
    bool ok = false;
    objectJumps[objectIndex] = file.tell(&ok);
    if (!ok || !group->write(file)) return false;
    ++objectIndex;
    return true;
}

bool KynSAMSChunk::writeEndSAMPChunk(KynFile& file) {
    if (!file.endGroup()) return false;
    if (jobjOffset >= 0 && !file.writeChunk(kTagJOBJ, objectJumps, jobjOffset, 0, 0)) return false;
    ++sampleIndex;
    return commitSample(file);
}

bool KynSAMSChunk::writeSAMPChunk(KynFile& file, const KynHeader& sample, const void* payload,
                                  const float* time) {
    if (sampleIndex >= sampleJumps.size() || sample.tag != kTagSAMP || sample.type != kTypeGroup)
        return false;
    bool ok = false;
    const int64_t offset = file.tell(&ok);
    if (!ok || !file.writeChunk(sample, payload, -1)) return false;
    sampleJumps[sampleIndex] = offset;
    if (time != nullptr && sampleIndex < times.size()) times[sampleIndex] = *time;
    ++sampleIndex;
    return commitSample(file);
}

bool KynSAMSChunk::writeEnd(KynFile& file) {
    for (const KynChunk* child : children) {
        if (!child->write(file)) {
            file.endGroup();
            return false;
        }
    }
    if (!file.endGroup()) return false;
    if (timsOffset >= 0 && !file.writeChunk(kTagTIMS, times, timsOffset, 0, 0)) return false;
    if (jsamOffset >= 0 && !file.writeChunk(kTagJSAM, sampleJumps, jsamOffset, 0, 0)) return false;
    return commitEnd(file);
}

bool KynSAMSChunk::appendStart(KynFile& file, int64_t newSamples) {
    bool ok = false;
    const int64_t groupOffset = file.tell(&ok);
    if (!ok) return false;
    file.readHeader(header);
    if (header.tag != kTagSAMS) return false;
    // A committing writer leaves the group as it is on disk until its first sample is in.
    const bool inPlace = commit != kCommitAtEnd;
    const int64_t length = inPlace ? header.length : 0;
    file.groupStack.clear();
    if (!file.seek(groupOffset, SEEK_SET, true)) return false;
    if (!file.startGroup(makeHeader(kTagSAMS, kTypeGroup, length))) return false;
    samsPayload = file.tell(nullptr);

    // The chunk's own header is the buffer of every read: it ends as the last "FREE" read.
    // A header that does not read leaves the last one in place, which is no "JSAM".
    int64_t position = file.tell(nullptr);
    file.readHeader(header);
    if (header.tag == kTagTIMS) {
        timsOffset = position;
        if (!readTableAndReserve(file, header, newSamples, times)) return false;
        timsReserveEnd = file.tell(nullptr) + header.length;
        if (!inPlace) {
            if (!file.seek(timsOffset, SEEK_SET, false)) return false;
            if (!writeTable(file, kTagTIMS, times)) return false;
            if (!writeReserve(file, header.length - newSamples * 4)) return false;
        } else if (!file.seek(timsReserveEnd, SEEK_SET, false)) {
            return false;
        }
        position = file.tell(nullptr);
        file.readHeader(header);
    }
    jsamOffset = position;
    if (header.tag != kTagJSAM) return false;
    sampleIndex = static_cast<uint64_t>(header.length / 8);
    if (!readTableAndReserve(file, header, newSamples, sampleJumps)) return false;
    jsamReserveEnd = file.tell(nullptr) + header.length;
    if (!inPlace) {
        if (!file.seek(jsamOffset, SEEK_SET, false)) return false;
        writeTable(file, kTagJSAM, sampleJumps);
        writeReserve(file, header.length - newSamples * 8);
    }
    inStep = inPlace;
    return file.seek(0, SEEK_END, false) && commitStart(file, false);
}

bool KynSAMSChunk::followMetadata(const KynMETAChunk& meta, int64_t metaOffset) {
    followed = Followed();
    if (meta.numSamples < 1 || metaOffset < 0) return false;
    followed.countOffset = metaOffset + meta.fieldOffset(kTagNSAM);
    followed.lastTimeOffset = metaOffset + meta.fieldOffset(kTagLTIM);
    followed.count = meta.numSamples;
    followed.firstTime = meta.firstTime;
    followed.lastTime = meta.lastTime;
    followed.rate = meta.rate;
    return true;
}

int64_t KynSAMSChunk::committedCount() const {
    return followed.count - int64_t(sampleJumps.size() - sampleIndex);
}

// The start of a committing group: its tables made empty (a new group), the metadata's count
// set to the samples in front of it, and all of it handed over.
bool KynSAMSChunk::commitStart(KynFile& file, bool emptyTables) {
    if (commit == kCommitAtEnd) return true;
    if (inStep && emptyTables) {
        if (timsOffset >= 0 &&
            !writeEmptyTable(file, timsOffset, kTagTIMS, kTypeFloat, timsReserveEnd))
            return false;
        if (!writeEmptyTable(file, jsamOffset, kTagJSAM, kTypeInt64, jsamReserveEnd)) return false;
    }
    if (inStep && followed.countOffset >= 0) {
        const int64_t count = committedCount();
        if (!file.patch(followed.countOffset, &count, sizeof count)) return false;
    }
    return file.flush(commit == kCommitEachSampleToDisk);
}

bool KynSAMSChunk::commitSample(KynFile& file) {
    if (commit == kCommitAtEnd) return true;
    const bool toDisk = commit == kCommitEachSampleToDisk;
    const uint64_t k = sampleIndex - 1;
    if (!file.flush(false)) return false;  // the sample before its entries
    if (timsOffset >= 0 && k < times.size() &&
        !commitEntry(file, timsOffset, &times[k], 4, k, inStep ? timsReserveEnd : -1))
        return false;
    if (jsamOffset >= 0 &&
        !commitEntry(file, jsamOffset, &sampleJumps[k], 8, k, inStep ? jsamReserveEnd : -1))
        return false;
    if (!inStep) return file.flush(toDisk);
    const int64_t length = file.tell(nullptr) - samsPayload;
    if (!file.patch(samsPayload - 8, &length, sizeof length) || !file.flush(toDisk)) return false;
    if (followed.countOffset < 0) return true;
    const int64_t count = committedCount();
    const float lastTime = followed.rate == 0.0f
                               ? (k < times.size() ? times[k] : 0.0f)
                               : float(count - 1) / followed.rate + followed.firstTime;
    return file.patch(followed.lastTimeOffset, &lastTime, sizeof lastTime) && file.flush(false) &&
           file.patch(followed.countOffset, &count, sizeof count) && file.flush(toDisk);
}

// The "FREE" chunks and the metadata's fields as the default leaves them, behind the tables
// that writeEnd has written in full.
bool KynSAMSChunk::commitEnd(KynFile& file) {
    if (commit == kCommitAtEnd) return true;
    if (inStep) {
        if (timsOffset >= 0 &&
            !patchReserveBehind(file, timsOffset, 4 * int64_t(times.size()), timsReserveEnd))
            return false;
        if (!patchReserveBehind(file, jsamOffset, 8 * int64_t(sampleJumps.size()), jsamReserveEnd))
            return false;
        if (followed.countOffset >= 0 &&
            (!file.patch(followed.lastTimeOffset, &followed.lastTime, sizeof(float)) ||
             !file.patch(followed.countOffset, &followed.count, sizeof(int64_t))))
            return false;
    }
    return file.flush(commit == kCommitEachSampleToDisk);
}

}  // namespace Kyn
