// Saving a memory cache: appending in place, or rewriting the whole file.
//   file := DKYN META SAMS+              the last "SAMS" is the last chunk of the file
//   SAMS := (TIMS FREE)? JSAM FREE SAMP*  FREE: the reserve, 4 bytes a spare sample behind
//                                         TIMS, 8 behind JSAM
// An append rewrites "META" where it lies, which needs its length to stay exactly the same,
// then grows the tables of the last "SAMS" into their reserves (or opens a new "SAMS" at the
// end when the reserve is too small) and writes the new samples at the end of the file. It
// reads no sample data: the survey jumps over each group by its length. Every offset in the
// file is absolute, so nothing written at the end moves what lies in front. Every test that
// can refuse runs before the first byte is written; a refusal falls back to a rewrite.
#include <unistd.h>

#include <algorithm>
#include <ctime>

#include "KynRwMemCache.h"

namespace Kyn {

namespace {

constexpr int64_t kHeaderSize = 16;
constexpr int64_t kMinReserve = 100;

// What an append needs to know of the file. The reserve and the time table are those of the
// last "SAMS": the one that an append in place would reopen.
struct FileSurvey {
    int64_t metaPos = -1;
    int64_t metaLength = -1;
    int64_t lastSamsPos = -1;
    int64_t lastSamsEnd = -1;
    int64_t sampleCount = 0;  // entries of every "JSAM"
    int64_t timsCount = 0;
    int64_t timsFree = 0;
    int64_t jsamFree = 0;
    // The last group opens with exactly the prologue that KynSAMSChunk::appendStart reopens.
    bool regularPrologue = false;
};

enum class Reserve { kNone, kPassed, kDamaged };

// Reads the header at `pos`, behind a table. A "FREE" there is passed over (`pos` moves behind
// it) and its length counted in entries of `entrySize`; one whose length does not fit in the
// file is damaged. Anything else is left for the next read.
Reserve passReserve(KynFile& file, int64_t fileSize, int64_t& pos, int64_t entrySize,
                    int64_t& entries) {
    KynHeader h;
    if (!file.seek(pos, SEEK_SET, true) || !file.readHeader(h) || h.tag != kTagFREE)
        return Reserve::kNone;
    if (h.length < 0 || h.length > fileSize - pos - kHeaderSize) return Reserve::kDamaged;
    entries = h.length / entrySize;
    pos += kHeaderSize + h.length;
    return Reserve::kPassed;
}

// Walks the top level of the file and the prologue of each "SAMS". False when the file is not
// one that this cache can extend: the metadata length differs, a chunk runs past the end of
// the file (a file cut or changed behind the cache), a group lacks its "JSAM", or the frame
// is otherwise malformed.
bool surveyFile(KynFile& file, int64_t fileSize, int64_t metaLength, FileSurvey& survey) {
    bool ok = false;
    int64_t pos = file.tell(&ok);
    if (!ok) return false;
    int64_t expected = -1;   // where the next chunk of a regular prologue begins
    bool groupOpen = false;  // a "SAMS" entered whose "JSAM" has not come yet
    KynHeader h;
    while (pos < fileSize) {
        if (!file.readHeader(h)) return false;
        const int64_t payload = pos + kHeaderSize;
        if (h.length < 0 || h.length > fileSize - payload) return false;
        const int64_t end = payload + h.length;
        if (h.tag == kTagMETA) {
            if (h.length != metaLength) return false;
            survey.metaPos = pos;
            survey.metaLength = h.length;
            pos = end;
        } else if (h.tag == kTagSAMS) {
            if (survey.metaPos < 0 || groupOpen) return false;
            groupOpen = true;
            survey.lastSamsPos = pos;
            survey.lastSamsEnd = end;
            survey.timsCount = survey.timsFree = survey.jsamFree = 0;
            survey.regularPrologue = true;
            expected = payload;
            pos = payload;
        } else if (h.tag == kTagTIMS) {
            if (h.length % 4 != 0) return false;
            survey.timsCount = h.length / 4;
            survey.regularPrologue = survey.regularPrologue && pos == expected;
            pos = end;
            const Reserve reserve = passReserve(file, fileSize, pos, 4, survey.timsFree);
            if (reserve == Reserve::kDamaged) return false;
            if (reserve == Reserve::kNone) survey.regularPrologue = false;
            expected = pos;
        } else if (h.tag == kTagJSAM) {
            if (survey.lastSamsPos < 0 || h.length % 8 != 0) return false;
            survey.sampleCount += h.length / 8;
            survey.regularPrologue = survey.regularPrologue && pos == expected;
            pos = end;
            const Reserve reserve = passReserve(file, fileSize, pos, 8, survey.jsamFree);
            if (reserve == Reserve::kDamaged) return false;
            if (reserve == Reserve::kNone) survey.regularPrologue = false;
            // Jump over the samples of the group by its length; a group that ends inside its
            // own prologue (a length never patched) is damaged.
            if (survey.lastSamsEnd < pos) return false;
            pos = survey.lastSamsEnd;
            groupOpen = false;
        } else {
            pos = end;
        }
        if (!file.seek(pos, SEEK_SET, true)) return false;
    }
    // Every group needs its jump table, or load would refuse the file.
    return pos == fileSize && !groupOpen;
}

// The payload length that the metadata takes when written, measured by writing it to the
// null device: the exact figure, where getLength() is a formula.
int64_t writtenLength(const KynMETAChunk& meta) {
    KynFile sink;
    if (!sink.open("/dev/null", "w") || !meta.write(sink)) return -1;
    return sink.tell(nullptr) - kHeaderSize;
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

// Whether samples `first` to the last are all in the table, with their times when the cache
// is non-uniform: checked before a file is touched.
bool KynRwMemCache::samplesReady(int first, bool nonUniform) const {
    if (count() < 0 || first < 0 || samples.size() < std::size_t(count())) return false;
    if (nonUniform && sampleTimes.size() < std::size_t(count())) return false;
    for (std::size_t s = std::size_t(first); s < std::size_t(count()); ++s)
        if (samples[s] == nullptr) return false;
    return true;
}

// Writes samples `first` to the last through `writer`, each object from its slot or, when the
// cache holds nothing of it, as an empty "SOBJ".
bool KynRwMemCache::writeSamples(KynSAMSChunk& writer, int first, bool nonUniform) {
    const std::size_t numObjects = meta.objects.size();
    for (std::size_t s = std::size_t(first); s < std::size_t(count()); ++s) {
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

// Takes the offsets of the samples that `writer` wrote last, which are this cache's samples
// `first` onwards, into the jump table.
void KynRwMemCache::recordJumps(const KynSAMSChunk& writer, int first) {
    const std::size_t added = std::size_t(count() - first);
    sampleJumps.resize(std::size_t(count()));
    std::copy(writer.sampleJumps.end() - std::ptrdiff_t(added), writer.sampleJumps.end(),
              sampleJumps.begin() + first);
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
    if (!samplesReady(0, !uniform)) return false;
    meta.date = time(nullptr);
    // Opening closes the old stream and truncates the target.
    if (!file.open(path.c_str(), "w")) return false;
    // The target is truncated: no offset of the jump table leads to a sample any more.
    sampleJumps.clear();
    jumpSample = -1;
    if (!dkyn.write(file) || !meta.write(file)) return false;
    if (count() < 1) {
        if (!file.close()) return false;
        finishSave(path);
        return true;
    }
    KynSAMSChunk writer;
    if (!writer.writeStart(file, count(), reserveFor(count()), !uniform) ||
        !writeSamples(writer, 0, !uniform) || !writer.writeEnd(file) || !file.close())
        return false;
    recordJumps(writer, 0);
    finishSave(path);
    return true;
}

// A file with objects but no samples is only a header: it is written afresh.
bool KynRwMemCache::writeHeaderOnly() {
    if (!file.open(fileName.c_str(), "w")) return false;
    meta.date = time(nullptr);
    if (!dkyn.write(file) || !meta.write(file) || !file.close()) return false;
    finishSave(fileName);
    return true;
}

bool KynRwMemCache::append() {
    if (access(fileName.c_str(), W_OK) != 0) return false;
    if (meta.objects.empty()) return false;
    if (count() == 0) return writeHeaderOnly();
    if (!canAppend || count() < 0) return false;

    // A fresh stream for update: one left open by a read may be read-only, and may remember a
    // larger size than a file cut behind the cache's back still has.
    if (!file.open(fileName.c_str(), "r+")) return false;
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
    if (survey.timsFree != 0 && survey.timsFree != survey.jsamFree) return false;
    // The sampling of file and memory must agree: appending cannot switch it.
    const bool nonUniform = !convertToUniformSampling();
    if (nonUniform != (survey.timsCount != 0)) return false;
    if (!samplesReady(int(first), nonUniform)) return false;
    meta.date = time(nullptr);
    if (writtenLength(meta) != survey.metaLength) return false;

    // The first write. From here a failure leaves the file damaged; memory stays whole.
    if (!file.seek(survey.metaPos, SEEK_SET, true) || !meta.write(file)) return false;
    if (!file.seek(survey.lastSamsPos, SEEK_SET, true)) return false;
    const bool inPlace = survey.regularPrologue && survey.lastSamsEnd == fileSize &&
                         survey.jsamFree >= newCount &&
                         (!nonUniform || survey.timsFree >= newCount);
    KynSAMSChunk writer;
    const bool started =
        inPlace ? writer.appendStart(file, newCount)
                : file.seek(0, SEEK_END, true) &&
                      writer.writeStart(file, newCount, reserveFor(count()), nonUniform);
    if (!started || !writeSamples(writer, int(first), nonUniform) || !writer.writeEnd(file) ||
        !file.close())
        return false;
    recordJumps(writer, int(first));
    finishSave(fileName);
    return true;
}

}  // namespace Kyn
