// KynRwMemCache: the editor of a cache, and the only code that brings a memory cache to disk.
//
// A producer fills it from nothing, sample by sample, with `allocSample`; a host that has
// loaded a file renames objects and attributes, shifts or cuts the time range, adds samples and
// switches between uniform and non-uniform sampling. Every edit is in memory until `save`,
// which appends the new samples to the file in place when it can (the tables of the last
// "SAMS" grow into their "FREE" reserve) and rewrites the whole file otherwise.
//
// Ownership: the groups that `allocSample` hands out are owned by the `samples` table, like the
// ones read from the file; the caller fills them and must not delete them. They stay valid
// until the sample is deleted, the cache is reset or destroyed. A read-write cache never evicts:
// an edited sample exists nowhere else.
// Rules: the file must not change beneath the cache between `load` and `save`; an append
// compares only the counts of the file's tables with memory, and writes into the file as it
// finds it. One thread at a time.
#ifndef KYN_RW_MEM_CACHE_H
#define KYN_RW_MEM_CACHE_H

#include <cstdint>
#include <string>

#include "KynChunks.h"
#include "KynRoMemCache.h"

namespace Kyn {

class KynRwMemCache : public KynRoMemCache {
  public:
    // Opens files for update (rwMode 1); nothing modified, nothing to append, default reserve.
    KynRwMemCache();

    // The "SOBJ" of the object at `time`, made empty if the cache does not hold it; objects up
    // to `objectIndex` are made nameless when missing. Any time is taken, NaN and infinities
    // included. Null for a negative index, and for a time in front of the end that the time
    // lookup places at no sample (NaN in a uniform cache, or a time between the computed time
    // of the last sample and `lastTime`): such a sample has no place to go.
    KynGroupChunk* allocSample(float time, int objectIndex);
    // Empties the cache but stays bound to the same file (`fileName`, `keepOpen`).
    void deleteCache();
    // Sets an object's name, making nameless objects up to `objectIndex` when missing. A null
    // name counts as empty.
    void setName(int objectIndex, const char* name);
    // Rename or retype a dynamic attribute. False for a bad object index; otherwise the cache
    // is marked modified, and an object without attributes answers false. A bad attribute
    // index is the attribute table's: it prints " DATR attribute index out of bounds" and
    // throws a bool (false), with the names and types as they were.
    bool setAttrName(int objectIndex, int attrIndex, const std::string& name);
    bool setAttrType(int objectIndex, int attrIndex, const std::string& type);
    // Moves the time range so that it starts at `time`: `lastTime` moves by the same delta, in
    // single precision, whatever the rounding does to the range. A non-uniform cache moves its
    // time table only, and keeps `firstTime` and `lastTime`, which then disagree with the
    // table: a file saved so does not load.
    void shiftFirstTimeTo(float time);
    // Gives sample i the explicit time i / rate + firstTime (rate 0). The last one's can miss
    // `lastTime` by a rounding (1 / (1 / 7) is not 7); a file saved so does not load.
    void convertToNonUniformSampling();
    // Drops the explicit times if every step between neighbours equals the first exactly,
    // whatever it is: a step of 0 gives an infinite rate, a falling one a negative rate. False,
    // with nothing changed, if they do not. Neither conversion marks the cache modified.
    bool convertToUniformSampling();
    // Drops the samples behind the first one at or after `time`, which stays; its computed
    // time becomes `lastTime`, NaN included. The time and jump tables keep their surplus.
    void truncate(float time);

    // `saveAs(fileName)` if the cache is modified; otherwise nothing, and true.
    bool save(bool* saved, bool* deleted);
    // Appends when `path` is the cache's own file and the file allows it, otherwise writes the
    // whole file afresh; a cache without objects removes `path` instead. `*saved`: a file now
    // holds the cache; `*deleted`: a file was removed. True unless something failed; false for
    // a null path.
    bool saveAs(const char* path, bool* saved, bool* deleted);
    // Writes the samples added behind the end of `fileName` into that file in place: into the
    // reserve of the last "SAMS" when the spare count found (that of the last "FREE" behind
    // any "JSAM") holds them, else in a new "SAMS" at the end. False, with the file untouched,
    // when the file's metadata, counts or sampling do not fit memory (a refusal of the sampling
    // leaves the jump table sized to the sample count already); a failure from the first
    // write on (a last group without its reserve refuses there) leaves the file damaged, the
    // memory whole, and a rewrite to repair it.
    bool append();

    bool modified = false;   // memory differs from the file
    bool canAppend = false;  // every sample added since the last save lies behind the end
    int numFree = 0;         // spare samples per "SAMS"; 0: twice the samples; at least 100

    // Off by default: a save that writes the whole file truncates the target and writes it
    // afresh, so a crash leaves it cut. With safeRewrite, every whole-file write (a rewrite, a
    // file of no samples, saveAs to another path) goes to a new file beside the target that is
    // flushed to disk and then renamed over it, with the directory flushed after: a crash
    // leaves the old file or the new one. A process that dies while writing leaves
    // "<target>.partial-<host>-<pid>-<n>" beside the target; a later safe save of that target
    // on the same host removes those of processes that no longer run. The new file takes the
    // permission bits of the old one. On failure the target and the jump table are as they
    // were and the new file is gone.
    bool safeRewrite = false;
    // Off by default. With syncAppend, an append in place ends with the file flushed to disk.
    bool syncAppend = false;
    // The writer's commit mode for appends and for rewrites that are not safe ones (a safe
    // rewrite's new file does not stand until it is whole): with kCommitEachSample or
    // kCommitEachSampleToDisk every sample is committed as it is written, and the metadata's
    // count and last time follow (see KynSAMSChunk), so that a save that dies leaves a file
    // that loads with the samples written so far. An append then writes the metadata first
    // with the count and last time of the samples already in the file. The file that a
    // finished save leaves is the same in every mode.
    KynSAMSChunk::Commit commitSamples = KynSAMSChunk::kCommitAtEnd;

  private:
    // The low 32 bits of the sample count, as every test of the count reads them.
    int count() const { return static_cast<int>(meta.numSamples); }
    KynGroupChunk* allocFirstSample(float time, int objectIndex);
    KynGroupChunk* allocSampleBehindEnd(float time, int objectIndex);
    KynGroupChunk* insertSample(float time, int objectIndex, int sampleIndex);
    void dropSamplesFrom(int sampleIndex);
    bool setAttrField(int objectIndex, int attrIndex, const std::string& value, bool name);

    int64_t reserveFor(int64_t sampleCount) const;
    bool writeSamples(KynSAMSChunk& writer, int first, bool nonUniform);
    void finishSave(const std::string& path);
    bool removeFile(const char* path, bool* deleted);
    bool writeHeaderOnly();
    bool rewrite(const std::string& path);
    bool writeFile(const std::string& path, bool uniform);
    bool writeWhole(const std::string& path, bool uniform, bool committing);
    bool writeMetadataInFront(int64_t samplesInFile);
};

}  // namespace Kyn

#endif
