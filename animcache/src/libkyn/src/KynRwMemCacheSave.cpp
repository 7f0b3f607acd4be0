// Saving a memory cache: appending in place, or rewriting the whole file.
//   file := DKYN META SAMS+              the last "SAMS" is the last chunk of the file
//   SAMS := (TIMS FREE)? JSAM FREE SAMP*  FREE: the reserve, 4 bytes a spare sample behind
//                                         TIMS, 8 behind JSAM
// An append rewrites "META" where it lies, which needs its length to stay exactly the same,
// then grows the tables of the last "SAMS" into their reserves (or opens a new "SAMS" at the
// end when the reserve is too small) and writes the new samples at the end of the file. It
// reads no sample data: the survey jumps over each group by its length. Every offset in the
// file is absolute, so nothing written at the end moves what lies in front. The survey's tests
// run before the first byte is written; reopening the last group can still refuse after the
// metadata went out (a last group without a reserve). Any refusal falls back to a rewrite.
#include <unistd.h>

#include <ctime>

#include "KynReplacement.h"
#include "KynRwMemCache.h"

namespace Kyn {

namespace {

constexpr int64_t kHeaderSize = 16;
constexpr int64_t kMinReserve = 100;

// What an append learns of the file. The counts of "TIMS" entries and of spare samples are
// those of the last chunks seen of their kind: a group that lacks one keeps the count of an
// earlier group.
struct FileSurvey {
    int64_t metaPos = -1;
    int64_t metaLength = -1;
    int64_t lastSamsPos = -1;
    int64_t sampleCount = 0;  // entries of every "JSAM"
    int64_t timsCount = 0;
    int64_t timsFree = 0;
    int64_t jsamFree = 0;
};

// Reads past a table whose header `h` was just read, counting its entries. The length comes
// from the file: the payload must be there, in whole entries.
bool passTable(KynFile& file, const KynHeader& h, int64_t entrySize, int64_t& entries) {
    if (h.length % entrySize != 0 || !file.canRead(h.length) || !file.skipData(h)) return false;
    entries = h.length / entrySize;
    return true;
}

// Walks the top level of the file and the prologue of each "SAMS", jumping over the samples of
// a group by its length. False when the metadata in the file has another length than in
// memory, a "SAMS" comes before any "META", or a table cannot be read; the walk ends at the
// first header that does not read or chunk that does not skip.
bool surveyFile(KynFile& file, int64_t fileSize, int64_t metaLength, FileSurvey& survey) {
    int64_t pos = file.tell(nullptr);
    KynHeader h;
    while (file.readHeader(h)) {
        int64_t entries = 0;
        if (h.tag == kTagMETA) {
            if (h.length != metaLength) return false;
            survey.metaPos = pos;
            survey.metaLength = h.length;
            file.seek(pos + kHeaderSize + h.length, SEEK_SET, true);
            pos = file.tell(nullptr);
        } else if (h.tag == kTagSAMS) {
            if (survey.metaPos < 0) return false;
            survey.lastSamsPos = pos;
            pos = file.tell(nullptr);
        } else if (h.tag == kTagTIMS) {
            if (!passTable(file, h, 4, survey.timsCount)) return false;
            pos = file.tell(nullptr);
            file.readHeader(h);
            if (h.tag == kTagFREE) {
                survey.timsFree = h.length / 4;
                if (!file.skipData(h)) return true;
                pos = file.tell(nullptr);
            } else {
                file.seek(pos, SEEK_SET, true);
            }
        } else if (h.tag == kTagJSAM) {
            const int64_t jsamPos = pos;
            if (!passTable(file, h, 8, entries)) return false;
            survey.sampleCount += entries;
            file.readHeader(h);
            if (h.tag == kTagFREE) survey.jsamFree = h.length / 8;
            file.seek(survey.lastSamsPos, SEEK_SET, true);
            if (!file.readHeader(h) || !file.skipData(h)) return true;
            pos = file.tell(nullptr);
            // A group that ends at or before its own "JSAM" (a length never patched) would
            // lead back to it over and over.
            if (pos <= jsamPos) return false;
        } else {
            if (!file.skipData(h) || !file.hasStream()) return true;
            pos = file.tell(nullptr);
            if (pos >= fileSize) return true;
        }
    }
    return true;
}

}  // namespace

bool KynRwMemCache::save(bool* saved, bool* deleted) {
    if (modified) return saveAs(fileName.c_str(), saved, deleted);
    if (saved) *saved = false;
    if (deleted) *deleted = false;
    return true;
}

bool KynRwMemCache::saveAs(const char* path, bool* saved, bool* deleted) {
    if (saved) *saved = false;
    if (deleted) *deleted = false;
    if (path == nullptr) return false;
    // A copy: `path` may be the buffer of fileName, which a successful save replaces.
    const std::string target = path;
    if (meta.objects.empty()) return removeFile(target.c_str(), deleted);
    // Every refusal of append lands in a full rewrite.
    const bool done = (target == fileName && append()) || rewrite(target);
    if (done && saved) *saved = true;
    return done;
}

// A cache emptied of all objects deletes its file on save. A failed removal is no failure.
bool KynRwMemCache::removeFile(const char* path, bool* deleted) {
    file.close();
    if (access(path, F_OK) != 0) return true;
    const bool removed = unlink(path) == 0;
    if (deleted) *deleted = removed;
    sampleJumps.clear();
    sampleTimes.clear();
    return true;
}

int64_t KynRwMemCache::reserveFor(int64_t sampleCount) const {
    const int64_t reserve = numFree != 0 ? numFree : sampleCount * 2;
    return reserve < kMinReserve ? kMinReserve : reserve;
}

// Writes samples `first` to the last through `writer`, each object from its slot or, when the
// cache holds nothing of it, as an empty "SOBJ", and notes where each sample went in the jump
// table, which holds every sample already.
bool KynRwMemCache::writeSamples(KynSAMSChunk& writer, int first, bool nonUniform) {
    const std::size_t numObjects = meta.objects.size();
    for (std::size_t s = std::size_t(first); s < std::size_t(count()); ++s) {
        if (s >= samples.size() || samples[s] == nullptr) return false;
        bool open = false;
        sampleJumps[s] = file.tell(&open);
        if (!open) return false;
        // A time table shorter than the samples (set so by hand) has no time for this one.
        if (nonUniform && s >= sampleTimes.size()) return false;
        const float* time = nonUniform ? &sampleTimes[s] : nullptr;
        if (!writer.writeStartSAMPChunk(file, int64_t(numObjects), time)) return false;
        const std::vector<KynGroupChunk*>& row = *samples[s];
        for (std::size_t o = 0; o < numObjects; ++o) {
            const KynGroupChunk* group = o < row.size() ? row[o] : nullptr;
            const bool written = group != nullptr ? writer.writeSOBJChunk(file, group)
                                                  : writer.writeStartSOBJChunk(file) &&
                                                        writer.writeEndSOBJChunk(file);
            if (!written) return false;
        }
        if (!writer.writeEndSAMPChunk(file)) return false;
    }
    return true;
}

// A save that leaves the cache belonging to `path`, in step with its file.
void KynRwMemCache::finishSave(const std::string& path) {
    fileName = path;
    jumpSample = -1;
    modified = false;
    canAppend = false;
}

bool KynRwMemCache::rewrite(const std::string& path) {
    if (count() < 0) return false;
    // All sample data must be in memory before the source is destroyed.
    if (!loadAllSamples()) return false;
    const bool uniform = convertToUniformSampling();
    meta.date = time(nullptr);
    if (!writeFile(path, uniform)) return false;
    finishSave(path);
    return true;
}

// A file with objects but no samples is only a header: it is written afresh.
bool KynRwMemCache::writeHeaderOnly() {
    if (safeRewrite) {
        meta.date = time(nullptr);
        if (!writeFile(fileName, true)) return false;
    } else {
        if (!file.open(fileName.c_str(), "w")) return false;
        meta.date = time(nullptr);
        if (!dkyn.write(file) || !meta.write(file) || !file.close()) return false;
    }
    finishSave(fileName);
    return true;
}

// Writes the whole cache to `path`: in place, the target truncated first (a failure leaves the
// stream open on what was written), or, safely, to a new file that replaces the target once it
// is whole.
bool KynRwMemCache::writeFile(const std::string& path, bool uniform) {
    if (!safeRewrite) return writeWhole(path, uniform, true) && file.close();
    const std::vector<int64_t> jumps = sampleJumps;
    KynReplacement replacement(path);
    if (writeWhole(replacement.path(), uniform, false) && replacement.commit(file)) return true;
    file.close();
    sampleJumps = jumps;
    return false;
}

// Opens `path` afresh (which closes the old stream) and writes the cache into it; the stream
// stays open.
bool KynRwMemCache::writeWhole(const std::string& path, bool uniform, bool committing) {
    if (!file.open(path.c_str(), "w") || !dkyn.write(file)) return false;
    const int64_t metaOffset = file.tell(nullptr);
    if (!meta.write(file)) return false;
    if (count() < 1) return true;
    if (samples.size() != std::size_t(count())) return false;
    KynSAMSChunk writer;
    if (committing && commitSamples != KynSAMSChunk::kCommitAtEnd) {
        writer.commit = commitSamples;
        writer.followMetadata(meta, metaOffset);
    }
    if (!writer.writeStart(file, count(), reserveFor(count()), !uniform)) return false;
    sampleJumps.resize(std::size_t(count()));
    return writeSamples(writer, 0, !uniform) && writer.writeEnd(file);
}

// The metadata of an append, at the current position. A committing append writes it with the
// count and last time of the samples already in the file, which its writer then moves on
// sample by sample; otherwise with those of memory.
bool KynRwMemCache::writeMetadataInFront(int64_t samplesInFile) {
    if (commitSamples == KynSAMSChunk::kCommitAtEnd || samplesInFile < 1) return meta.write(file);
    const int64_t count = meta.numSamples;
    const float lastTime = meta.lastTime;
    meta.lastTime = getSampleTime(int(samplesInFile - 1));
    meta.numSamples = samplesInFile;
    const bool written = meta.write(file);
    meta.numSamples = count;
    meta.lastTime = lastTime;
    return written;
}

bool KynRwMemCache::append() {
    if (access(fileName.c_str(), W_OK) != 0) return false;
    if (meta.objects.empty()) return false;
    if (count() == 0) return writeHeaderOnly();
    if (!canAppend || count() < 0) return false;

    if (!file.hasStream() && !file.open(fileName.c_str(), "r+")) return false;
    if (!file.seek(0, SEEK_END, true)) return false;
    const int64_t fileSize = file.tell(nullptr);
    if (!file.seek(0, SEEK_SET, true)) return false;
    KynHeader h;
    KynDKYNChunk magic;
    if (!file.readHeader(h) || !magic.read(h, file)) return false;
    FileSurvey survey;
    if (!surveyFile(file, fileSize, meta.getLength(), survey)) return false;
    if (survey.metaPos < 0 || survey.lastSamsPos < 0) return false;

    // Only the counts are compared: the file holds `first` samples, memory has more.
    const int64_t first = survey.sampleCount;
    const int64_t newCount = count() - first;
    if (newCount < 1) return false;
    sampleJumps.resize(std::size_t(count()));
    if (survey.timsFree != 0 && survey.timsFree != survey.jsamFree) return false;
    // The sampling of file and memory must agree: appending cannot switch it.
    const bool nonUniform = !convertToUniformSampling();
    if (nonUniform != (survey.timsCount != 0)) return false;
    // Only the formula of the metadata's length was compared with the file's. It counts the
    // headers of empty names, which are not written, so a metadata that passes may write
    // shorter than the file's and leave stale bytes in front of the samples.

    // The first write. From here a failure leaves the file damaged; memory stays whole.
    meta.date = time(nullptr);
    if (!file.seek(survey.metaPos, SEEK_SET, true) || !writeMetadataInFront(first)) return false;
    if (!file.seek(survey.lastSamsPos, SEEK_SET, true)) return false;
    KynSAMSChunk writer;
    if (commitSamples != KynSAMSChunk::kCommitAtEnd) {
        writer.commit = commitSamples;
        writer.followMetadata(meta, survey.metaPos);
    }
    const bool started =
        survey.jsamFree < newCount
            ? file.seek(0, SEEK_END, true) &&
                  writer.writeStart(file, newCount, reserveFor(count()), nonUniform)
            : writer.appendStart(file, newCount);
    if (!started || !writeSamples(writer, int(first), nonUniform) || !writer.writeEnd(file) ||
        (syncAppend && !file.flush(true)) || !file.close())
        return false;
    finishSave(fileName);
    return true;
}

}  // namespace Kyn
