// The memory cache of samples: one "SOBJ" group per sample and object, read on demand.
//
// Invariants: every non-null entry of `samples` is an inner vector owned by the cache, and every
// non-null slot of an inner vector a group owned by the cache. `recentSamples` holds each
// tracked sample index at most once, most recent first; an index in it may name a sample that
// has since been deleted, which deleteSample tolerates.
#include "KynRoMemCache.h"

#include <algorithm>
#include <iostream>

namespace Kyn {

KynRoMemCache::KynRoMemCache() = default;

KynRoMemCache::~KynRoMemCache() {
    deleteAllSamples();
    freePins();
}

void KynRoMemCache::reset() {
    deleteAllSamples();
    recentSamples.clear();
    maxSamples = 0;
    retirePinnedObjects();
    KynCache::reset();
}

bool KynRoMemCache::load(const char* path, bool keepOpenArg) {
    // The virtual reset inside the load zeroes the bound; it survives the load all the same.
    const int bound = maxSamples;
    const bool loaded = KynCache::load(path, keepOpenArg);
    maxSamples = bound;
    if (sampleCount() > 0) samples.resize(static_cast<std::size_t>(sampleCount()), nullptr);
    return loaded;
}

bool KynRoMemCache::load(const char* path, bool keepOpenArg, int maxSamplesArg) {
    maxSamples = maxSamplesArg;
    return load(path, keepOpenArg);
}

KynGroupChunk*& KynRoMemCache::sampleSlot(int sampleIndex, int objectIndex) {
    const auto sample = static_cast<std::size_t>(sampleIndex);
    const auto object = static_cast<std::size_t>(objectIndex);
    if (sample >= samples.size()) samples.resize(sample + 1, nullptr);
    std::vector<KynGroupChunk*>*& objects = samples[sample];
    if (objects == nullptr) objects = new std::vector<KynGroupChunk*>();
    if (object >= objects->size()) {
        // Room for every object at once: a walk over the objects then never moves the table.
        objects->reserve(std::max(object + 1, meta.objects.size()));
        objects->resize(object + 1, nullptr);
    }
    return (*objects)[object];
}

// Moves a sample to the front of the recency list, first evicting the least recently used
// samples until there is room for it under the bound; pinned samples count but are not evicted.
// The first evicted group of `objectIndex` goes to `donor` instead of being deleted.
void KynRoMemCache::touchRecent(int sampleIndex, int objectIndex, KynGroupChunk*& donor) {
    if (!recentSamples.empty() && recentSamples.front() == sampleIndex) return;
    recentSamples.remove(sampleIndex);
    while (!recentSamples.empty() && int64_t(recentSamples.size()) >= maxSamples) {
        const auto victim = evictionCandidate();
        if (victim == recentSamples.end()) break;  // every tracked sample is pinned
        const int evicted = *victim;
        if (donor == nullptr) donor = takeSlot(evicted, objectIndex);
        deleteSample(evicted);
        recentSamples.erase(victim);
    }
    recentSamples.push_front(sampleIndex);
}

// Takes the group out of a slot that exists, leaving it empty; null when there is none.
KynGroupChunk* KynRoMemCache::takeSlot(int sampleIndex, int objectIndex) {
    if (sampleIndex < 0 || std::size_t(sampleIndex) >= samples.size()) return nullptr;
    std::vector<KynGroupChunk*>* objects = samples[static_cast<std::size_t>(sampleIndex)];
    if (objects == nullptr || std::size_t(objectIndex) >= objects->size()) return nullptr;
    KynGroupChunk* group = (*objects)[static_cast<std::size_t>(objectIndex)];
    (*objects)[static_cast<std::size_t>(objectIndex)] = nullptr;
    return group;
}

KynGroupChunk* KynRoMemCache::getSample(int sampleIndex, int objectIndex) {
    const int numObjects = static_cast<int>(meta.objects.size());
    if (numObjects == 0 || objectIndex >= numObjects || objectIndex < 0) return nullptr;
    if (sampleIndex < 0 || sampleIndex >= sampleCount()) return nullptr;
    // An edited sample of a read-write cache exists nowhere else, so it is never evicted. The
    // object's group in an evicted sample lends its leaves to the read that takes its place:
    // a sample of the same shape then reads into storage that is already there.
    KynGroupChunk* donor = nullptr;
    if (rwMode == 0 && maxSamples != 0) touchRecent(sampleIndex, objectIndex, donor);
    KynGroupChunk*& slot = sampleSlot(sampleIndex, objectIndex);
    // A failed read leaves the slot empty, and the next request tries again.
    if (slot == nullptr) slot = loadObjectSampleReusing(sampleIndex, objectIndex, donor);
    delete donor;
    return slot;
}

KynChunk* KynRoMemCache::getSample(int sampleIndex, int objectIndex, unsigned tag, int* index) {
    KynGroupChunk* group = getSample(sampleIndex, objectIndex);
    if (group == nullptr) return nullptr;
    const std::size_t start = index && *index > 0 ? static_cast<std::size_t>(*index) : 0;
    for (std::size_t position = start; position < group->children.size(); ++position) {
        KynChunk* child = group->children[position];
        if (child->header.tag == tag) {
            if (index) *index = static_cast<int>(position);
            return child;
        }
    }
    if (index) *index = static_cast<int>(group->children.size());
    return nullptr;
}

KynChunk* KynRoMemCache::getObjectData(int sampleIndex, int objectIndex, unsigned tag,
                                       bool* animated) {
    if (animated) *animated = false;
    if (objectIndex < 0 || std::size_t(objectIndex) >= meta.objects.size()) return nullptr;
    // Static data shadows sample data of the same tag, and costs no read.
    if (KynChunk* found = findChunk(meta.objects[static_cast<std::size_t>(objectIndex)], tag))
        return found;
    KynGroupChunk* group = getSample(sampleIndex, objectIndex);
    if (group == nullptr) return nullptr;
    KynChunk* found = findChunk(group, tag);
    if (found && animated) *animated = true;
    return found;
}

int KynRoMemCache::getNumVertices(int sampleIndex, int objectIndex) {
    if (objectIndex < 0 || std::size_t(objectIndex) >= meta.objects.size()) return 0;
    KynChunk* positions = findChunk(meta.objects[static_cast<std::size_t>(objectIndex)], kTagPOSI);
    if (positions == nullptr && sampleIndex >= 0) {
        KynGroupChunk* group = getSample(sampleIndex, objectIndex);
        if (group == nullptr) return 0;
        positions = findChunk(group, kTagPOSI);
    }
    if (positions == nullptr) return 0;
    const int64_t size = positions->header.type == kTypeDouble ? 8 : 4;
    const int64_t width = positions->header.dimension != 0 ? positions->header.dimension : 3;
    return static_cast<int>(positions->getLength() / (size * width));
}

KynChunk* KynRoMemCache::getAttrData(int sampleIndex, int objectIndex, int attrIndex) {
    if (objectIndex < 0 || std::size_t(objectIndex) >= meta.objects.size()) return nullptr;
    const KynDOBJChunk* object = meta.objects[static_cast<std::size_t>(objectIndex)];
    if (object == nullptr || object->datr == nullptr) return nullptr;
    const KynDATRChunk* datr = object->datr;
    const int count = datr->getNumAttrs();
    if (count == 0) return nullptr;
    if (attrIndex < 0 || attrIndex >= count) {
        std::cerr << "DATR index out of range " << attrIndex << std::endl;
        return nullptr;
    }
    if (!datr->isAnimated(attrIndex)) return datr->getStaticData(attrIndex);
    auto* values =
        dynamic_cast<KynGroupChunk*>(getSample(sampleIndex, objectIndex, kTagATRS, nullptr));
    if (values == nullptr) {
        std::cerr << "ATRS GROUP chunk missing for object at " << objectIndex << std::endl;
        return nullptr;
    }
    const int position = datr->getAnimatedDataIndex(attrIndex);
    if (position < 0) {
        std::cerr << "Animated Data missing for object at " << objectIndex << std::endl;
        return nullptr;
    }
    // A sample with fewer values than the table names has nothing at that position.
    if (std::size_t(position) >= values->children.size()) return nullptr;
    return values->children[static_cast<std::size_t>(position)];
}

void KynRoMemCache::setMaxSamples(int bound) {
    if (rwMode != 0) return;
    bound = std::max(bound, 0);
    if (maxSamples > bound) {
        while (int64_t(recentSamples.size()) > bound) {
            const auto victim = evictionCandidate();
            if (victim == recentSamples.end()) break;
            deleteSample(*victim);
            recentSamples.erase(victim);
        }
    }
    maxSamples = bound;
}

void KynRoMemCache::deleteSample(int sampleIndex) {
    if (sampleIndex < 0 || std::size_t(sampleIndex) >= samples.size()) return;
    std::vector<KynGroupChunk*>*& objects = samples[static_cast<std::size_t>(sampleIndex)];
    if (objects == nullptr) return;
    for (KynGroupChunk* group : *objects) releaseGroup(group);
    delete objects;
    objects = nullptr;
    if (std::size_t(sampleIndex) + 1 == samples.size()) {
        while (!samples.empty() && samples.back() == nullptr) samples.pop_back();
    }
}

void KynRoMemCache::deleteAllSamples() {
    for (auto sample = samples.rbegin(); sample != samples.rend(); ++sample) {
        if (*sample == nullptr) continue;
        for (auto group = (*sample)->rbegin(); group != (*sample)->rend(); ++group)
            releaseGroup(*group);
        delete *sample;
    }
    samples.clear();
}

// Reads every object of one sample that is not held yet, sizing its object vector to the
// number of objects.
bool KynRoMemCache::loadSampleObjects(int sampleIndex, bool stopOnFailure) {
    const std::size_t numObjects = meta.objects.size();
    std::vector<KynGroupChunk*>*& objects = samples[static_cast<std::size_t>(sampleIndex)];
    if (objects == nullptr) objects = new std::vector<KynGroupChunk*>();
    for (std::size_t object = numObjects; object < objects->size(); ++object)
        releaseGroup((*objects)[object]);
    if (objects->size() != numObjects) objects->resize(numObjects, nullptr);
    for (std::size_t object = 0; object < numObjects; ++object) {
        KynGroupChunk*& slot = (*objects)[object];
        if (slot != nullptr) continue;
        slot = loadObjectSample(sampleIndex, static_cast<int>(object));
        if (slot == nullptr && stopOnFailure) return false;
    }
    return true;
}

bool KynRoMemCache::loadAllSamples() {
    const int count = std::max(sampleCount(), 0);
    for (int sample = count; sample < static_cast<int>(samples.size()); ++sample)
        deleteSample(sample);
    if (samples.size() != std::size_t(count)) samples.resize(std::size_t(count), nullptr);
    if (count < 1) return true;
    for (int sample = 0; sample < count; ++sample) loadSampleObjects(sample, false);
    return true;
}

bool KynRoMemCache::loadSamplesNotGreaterThan(int sampleIndex) {
    const int last = sampleCount() - 1;
    const int upTo = std::min(sampleIndex, last);
    if (upTo < 0) return true;
    if (upTo == last) return loadAllSamples();
    if (std::size_t(upTo) >= samples.size()) samples.resize(std::size_t(upTo) + 1, nullptr);
    for (int sample = 0; sample <= upTo; ++sample) {
        if (!loadSampleObjects(sample, true)) return false;
    }
    return true;
}

}  // namespace Kyn
