// Pins of the memory cache: groups that a host still reads from, kept alive past the calls that
// would free them.
//
// Invariants: an entry of `pins` has a count of 1 or more. A group that is not retired is still
// in `samples` or in `meta.objects` and is owned there; a retired group is in neither and is
// owned by its entry, as are the chunks in `kept`. With `pins` empty every path below is the
// plain one: delete at once, evict the least recently used sample.
#include "KynRoMemCache.h"

namespace Kyn {

namespace {

void freeGroup(const KynGroupChunk* group) {
    auto* owned = const_cast<KynGroupChunk*>(group);
    owned->removeAllChildren();  // an object's metadata also owns its attribute table
    delete owned;
}

}  // namespace

KynGroupChunk* KynRoMemCache::pinSample(int sampleIndex, int objectIndex) {
    if (sampleIndex < 0 || std::size_t(sampleIndex) >= samples.size()) return nullptr;
    const std::vector<KynGroupChunk*>* objects = samples[std::size_t(sampleIndex)];
    if (objects == nullptr || objectIndex < 0 || std::size_t(objectIndex) >= objects->size())
        return nullptr;
    KynGroupChunk* group = (*objects)[std::size_t(objectIndex)];
    if (group != nullptr) ++pins[group].count;
    return group;
}

KynDOBJChunk* KynRoMemCache::pinObject(int objectIndex) {
    if (objectIndex < 0 || std::size_t(objectIndex) >= meta.objects.size()) return nullptr;
    KynDOBJChunk* object = meta.objects[std::size_t(objectIndex)];
    if (object != nullptr) ++pins[object].count;
    return object;
}

void KynRoMemCache::unpin(const KynGroupChunk* group) {
    const auto entry = pins.find(group);
    if (entry == pins.end() || --entry->second.count > 0) return;
    const KynPin pin = std::move(entry->second);
    pins.erase(entry);
    for (KynChunk* chunk : pin.kept) delete chunk;
    if (pin.retired) freeGroup(group);
}

bool KynRoMemCache::isSamplePinned(int sampleIndex) const {
    if (pins.empty() || sampleIndex < 0 || std::size_t(sampleIndex) >= samples.size()) return false;
    const std::vector<KynGroupChunk*>* objects = samples[std::size_t(sampleIndex)];
    if (objects == nullptr) return false;
    for (const KynGroupChunk* group : *objects)
        if (group != nullptr && pins.count(group) != 0) return true;
    return false;
}

void KynRoMemCache::releaseChunk(KynChunk* chunk, const KynGroupChunk* holder) {
    const auto entry = pins.find(holder);
    if (entry == pins.end())
        delete chunk;
    else
        entry->second.kept.push_back(chunk);
}

// The least recently used tracked sample that may go: the last of the list, or with pins the
// last one of which no group is pinned; end() when all are pinned.
std::list<int>::iterator KynRoMemCache::evictionCandidate() {
    auto candidate = recentSamples.end();
    while (candidate != recentSamples.begin()) {
        --candidate;
        if (!isSamplePinned(*candidate)) return candidate;
    }
    return recentSamples.end();
}

// A group that leaves the table: freed, or, while pinned, handed over to its pin.
void KynRoMemCache::releaseGroup(KynGroupChunk* group) {
    const auto entry = pins.find(group);
    if (entry == pins.end())
        delete group;
    else
        entry->second.retired = true;
}

// Takes pinned objects out of the metadata before it is emptied, so that they outlive it.
void KynRoMemCache::retirePinnedObjects() {
    if (pins.empty()) return;
    for (KynDOBJChunk*& object : meta.objects) {
        const auto entry = pins.find(object);
        if (entry == pins.end()) continue;
        entry->second.retired = true;
        object = nullptr;
    }
}

// At destruction: frees what only the pins still hold. Pinned groups still in the table or the
// metadata are freed with it.
void KynRoMemCache::freePins() {
    for (auto& [group, pin] : pins) {
        for (KynChunk* chunk : pin.kept) delete chunk;
        if (pin.retired) freeGroup(group);
    }
    pins.clear();
}

}  // namespace Kyn
