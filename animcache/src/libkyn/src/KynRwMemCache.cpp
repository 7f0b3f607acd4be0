// Editing a cache in memory: adding samples, renaming, shifting, cutting and converting the
// sampling. Nothing here touches the file but `truncate`, which closes it.
//
// Rate 0 means that the sample times stand in the first `numSamples` entries of `sampleTimes`,
// any other rate that sample i lies at firstTime + i / rate. The edits compute in single
// precision and keep what it gives, NaN and a range that no longer fits the sample count
// included: a cache left so saves a file that does not load. They leave `sampleJumps` alone:
// a slot that memory does not hold is read from the file through the entry at the sample's
// index, which after an insertion or a cut may be another sample's, and beyond the table reads
// nothing.
#include "KynRwMemCache.h"

#include <cmath>

namespace Kyn {

namespace {

KynGroupChunk* newObjectSample() {
    return new KynGroupChunk(kTagSOBJ);
}

}  // namespace

KynRwMemCache::KynRwMemCache() {
    rwMode = 1;
}

KynGroupChunk* KynRwMemCache::allocSample(float time, int objectIndex) {
    if (objectIndex < 0 || count() < 0) return nullptr;
    while (meta.objects.size() <= std::size_t(objectIndex)) {
        modified = true;
        canAppend = false;
        meta.addDOBJ("");
    }
    if (count() == 0) return allocFirstSample(time, objectIndex);
    modified = true;
    if (time > meta.lastTime) return allocSampleBehindEnd(time, objectIndex);

    canAppend = false;
    const int index = getMinSampleIndexNotLessThan(time);
    if (getSampleTime(index) == time) {
        // The file's data of this object, if any, is not read: the new group shadows it.
        KynGroupChunk*& slot = sampleSlot(index, objectIndex);
        if (slot == nullptr) slot = newObjectSample();
        return slot;
    }
    // The lookup places a NaN time of a uniform cache, or one between the computed time of the
    // last sample and lastTime, at no sample: there is no place to insert it.
    if (index < 0) return nullptr;
    return insertSample(time, objectIndex, index);
}

KynGroupChunk* KynRwMemCache::allocFirstSample(float time, int objectIndex) {
    modified = true;
    canAppend = false;
    meta.numSamples = 1;
    meta.firstTime = time;
    meta.lastTime = time;
    meta.rate = 1.0f;
    dropSamplesFrom(0);
    KynGroupChunk*& slot = sampleSlot(0, objectIndex);
    slot = newObjectSample();
    return slot;
}

KynGroupChunk* KynRwMemCache::allocSampleBehindEnd(float time, int objectIndex) {
    canAppend = true;
    const int index = count();
    // The second sample teaches the cache its step, whatever the rate comes to; a later one at
    // another step, however slight the difference, makes it non-uniform.
    const float stepRate = 1.0f / (time - meta.lastTime);
    if (index == 1)
        meta.rate = stepRate;
    else if (meta.rate != 0.0f && meta.rate != stepRate)
        convertToNonUniformSampling();
    dropSamplesFrom(index);
    KynGroupChunk*& slot = sampleSlot(index, objectIndex);
    slot = newObjectSample();
    if (meta.rate == 0.0f) {
        sampleTimes.resize(std::size_t(index) + 1);
        sampleTimes[std::size_t(index)] = time;
    }
    meta.numSamples = int64_t(index) + 1;
    meta.lastTime = time;
    return slot;
}

// A new sample in front of sample `sampleIndex`, which moves one place back with all behind it.
// The jump table stays as it is: an object that the new sample lacks in memory is read through
// the entry at its index.
KynGroupChunk* KynRwMemCache::insertSample(float time, int objectIndex, int sampleIndex) {
    // Sample indices are about to move: everything on disk comes into memory first.
    loadAllSamples();
    if (time > meta.firstTime) {
        convertToNonUniformSampling();
    } else if (meta.rate != 0.0f && 1.0 / double(meta.firstTime - time) != double(meta.rate)) {
        // Exactly one step in front of the first sample keeps a uniform cache uniform.
        convertToNonUniformSampling();
    }
    const auto position = std::size_t(sampleIndex);
    if (samples.size() < position) samples.resize(position, nullptr);
    auto* objects = new std::vector<KynGroupChunk*>(std::size_t(objectIndex) + 1, nullptr);
    KynGroupChunk* group = newObjectSample();
    (*objects)[std::size_t(objectIndex)] = group;
    samples.insert(samples.begin() + std::ptrdiff_t(position), objects);
    // A cache that stayed uniform gets one stale entry here, which uniform lookups never read.
    if (sampleTimes.size() < position) sampleTimes.resize(position);
    sampleTimes.insert(sampleTimes.begin() + std::ptrdiff_t(position), time);
    meta.numSamples = int64_t(count()) + 1;
    if (sampleIndex == 0) meta.firstTime = time;
    return group;
}

// Deletes the held samples from `sampleIndex` on and cuts the table there.
void KynRwMemCache::dropSamplesFrom(int sampleIndex) {
    for (int s = int(samples.size()) - 1; s >= sampleIndex; --s) deleteSample(s);
    if (samples.size() > std::size_t(sampleIndex)) samples.resize(std::size_t(sampleIndex));
}

void KynRwMemCache::deleteCache() {
    const std::string keptName = fileName;
    const bool keptOpen = keepOpen;
    reset();
    fileName = keptName;
    keepOpen = keptOpen;
}

void KynRwMemCache::setName(int objectIndex, const char* name) {
    if (objectIndex < 0) return;
    if (name == nullptr) name = "";  // as addDOBJ takes it
    while (meta.objects.size() <= std::size_t(objectIndex)) {
        modified = true;
        meta.addDOBJ("");
    }
    // A name of another length changes the length of the metadata, which append detects.
    KynDOBJChunk* object = meta.objects[std::size_t(objectIndex)];
    if (object->name == name) return;
    modified = true;
    object->name = name;
}

bool KynRwMemCache::setAttrField(int objectIndex, int attrIndex, const std::string& value,
                                 bool name) {
    if (objectIndex < 0 || std::size_t(objectIndex) >= meta.objects.size()) return false;
    modified = true;
    KynDATRChunk* datr = meta.objects[std::size_t(objectIndex)]->datr;
    if (datr == nullptr) return false;
    // A bad attribute index meets the table's own test: its report, and a thrown bool.
    return name ? datr->setAttrName(attrIndex, value) : datr->setAttrType(attrIndex, value);
}

bool KynRwMemCache::setAttrName(int objectIndex, int attrIndex, const std::string& name) {
    return setAttrField(objectIndex, attrIndex, name, true);
}

bool KynRwMemCache::setAttrType(int objectIndex, int attrIndex, const std::string& type) {
    return setAttrField(objectIndex, attrIndex, type, false);
}

void KynRwMemCache::shiftFirstTimeTo(float time) {
    const float delta = time - meta.firstTime;
    if (delta == 0.0f) return;
    if (meta.rate == 0.0f) {
        // firstTime and lastTime stay as they were: a kept behaviour of the non-uniform shift.
        for (float& t : sampleTimes) t += delta;
        if (!sampleTimes.empty()) modified = true;
        return;
    }
    // Single precision, with no test of what the rounding does to the range.
    meta.lastTime += delta;
    meta.firstTime = time;
    modified = true;
}

void KynRwMemCache::convertToNonUniformSampling() {
    if (meta.rate == 0.0f || count() < 0) return;
    sampleTimes.resize(std::size_t(count()));
    for (int i = 0; i < count(); ++i)
        sampleTimes[std::size_t(i)] = static_cast<float>(i) / meta.rate + meta.firstTime;
    meta.rate = 0.0f;
}

bool KynRwMemCache::convertToUniformSampling() {
    if (meta.rate != 0.0f) return true;
    if (count() < 2) {
        meta.rate = 1.0f;
        sampleTimes.clear();
        return true;
    }
    if (sampleTimes.size() < std::size_t(count())) return false;
    const double step = double(sampleTimes[1] - sampleTimes[0]);
    for (std::size_t i = 2; i < std::size_t(count()); ++i) {
        const double difference = double(sampleTimes[i] - sampleTimes[i - 1]);
        if (difference != step || std::isnan(difference)) return false;
    }
    // Any one step serves, 0 and falling steps included: 1 / 0 makes an infinite rate.
    sampleTimes.clear();
    meta.rate = static_cast<float>(1.0 / step);
    return true;
}

void KynRwMemCache::truncate(float time) {
    if (!(time < meta.lastTime)) return;
    const int index = getMinSampleIndexNotLessThan(time);
    if (meta.firstTime > time || index == -1) {
        // Every sample lies behind `time`.
        deleteCache();
        return;
    }
    // The sample at or first after `time` stays, even when it lies after it. Its computed
    // time becomes lastTime, NaN where it rounds past the old lastTime.
    const float last = getSampleTime(index);
    modified = true;
    canAppend = false;
    file.close();
    meta.numSamples = index + 1;
    meta.lastTime = last;
    // sampleTimes and sampleJumps keep their surplus: lookups stop at numSamples.
    dropSamplesFrom(index + 1);
}

}  // namespace Kyn
