// The sample stream writer.
//   SAMS := TIMS? FREE? JSAM FREE? SAMP*
//   TIMS := float[samples]        times of a non-uniform file
//   JSAM := int64[samples]        absolute offsets of the "SAMP" headers
//   FREE := reserve of spare samples: 4 bytes each behind TIMS, 8 behind JSAM; a hole
//   SAMP := JOBJ SOBJ*            JOBJ: int64[objects], absolute offsets of the "SOBJ" headers
// Tables go out as placeholders and are overwritten in place when their group ends. To append,
// a table grows into its reserve: the "FREE" header moves back and its length shrinks.
#include <climits>

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

}  // namespace

KynSAMSChunk::KynSAMSChunk() : KynGroupChunk(kTagSAMS) {}

KynSAMSChunk::~KynSAMSChunk() = default;

void KynSAMSChunk::reset() {
    times.clear();
    sampleJumps.clear();
    objectJumps.clear();
    timsOffset = jsamOffset = jobjOffset = -1;
    sampleIndex = objectIndex = 0;
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
    return true;
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
    return true;
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
    return true;
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
    if (jsamOffset < 0) return true;
    return file.writeChunk(kTagJSAM, sampleJumps, jsamOffset, 0, 0);
}

bool KynSAMSChunk::appendStart(KynFile& file, int64_t newSamples) {
    bool ok = false;
    const int64_t groupOffset = file.tell(&ok);
    if (!ok) return false;
    file.readHeader(header);
    if (header.tag != kTagSAMS) return false;
    file.groupStack.clear();
    if (!file.seek(groupOffset, SEEK_SET, true)) return false;
    if (!file.startGroup(makeHeader(kTagSAMS, kTypeGroup, 0))) return false;

    // The chunk's own header is the buffer of every read: it ends as the last "FREE" read.
    // A header that does not read leaves the last one in place, which is no "JSAM".
    int64_t position = file.tell(nullptr);
    file.readHeader(header);
    if (header.tag == kTagTIMS) {
        timsOffset = position;
        if (!readTableAndReserve(file, header, newSamples, times)) return false;
        if (!file.seek(timsOffset, SEEK_SET, false)) return false;
        if (!writeTable(file, kTagTIMS, times)) return false;
        if (!writeReserve(file, header.length - newSamples * 4)) return false;
        position = file.tell(nullptr);
        file.readHeader(header);
    }
    jsamOffset = position;
    if (header.tag != kTagJSAM) return false;
    sampleIndex = static_cast<uint64_t>(header.length / 8);
    if (!readTableAndReserve(file, header, newSamples, sampleJumps)) return false;
    if (!file.seek(jsamOffset, SEEK_SET, false)) return false;
    writeTable(file, kTagJSAM, sampleJumps);
    writeReserve(file, header.length - newSamples * 8);
    return file.seek(0, SEEK_END, false);
}

}  // namespace Kyn
