// Lookups on a loaded cache: objects by path name, samples by time, chunks by tag.
//
// Every time test is exact; callers that want a tolerance apply it themselves. A file is
// non-uniform exactly when its rate is 0 (a NaN rate counts as uniform); its times then stand
// in `sampleTimes`, which is searched only as far as both it and the sample count reach.
#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <typeinfo>

#include "KynCache.h"
#include "KynSampleTags.h"

namespace Kyn {

namespace {

// The last component of a path: the text behind its last "|", or all of it.
struct Leaf {
    const char* text;
    std::size_t length;
};

Leaf leafOf(const std::string& name) {
    const std::size_t bar = name.rfind('|');
    if (bar == std::string::npos) return Leaf{name.data(), name.size()};
    return Leaf{name.data() + bar + 1, name.size() - bar - 1};
}

// Whether the last component of `name` is `leaf`, which holds no "|": `name` ends in it, right
// behind a "|" or as a whole.
bool endsInLeaf(const std::string& name, Leaf leaf) {
    if (name.size() < leaf.length) return false;
    const std::size_t start = name.size() - leaf.length;
    if (start != 0 && name[start - 1] != '|') return false;
    // Names that differ mostly differ in their last character: it is compared first.
    if (leaf.length == 0) return true;
    if (name.back() != leaf.text[leaf.length - 1]) return false;
    return std::memcmp(name.data() + start, leaf.text, leaf.length - 1) == 0;
}

// A computed sample position truncated to a sample index, or -1. NaN and values outside the
// 32-bit range are refused before the conversion, which would otherwise be undefined.
int truncatedIndex(float position, int count) {
    if (!(position > -1.0f) || !(position < static_cast<float>(count))) return -1;
    const int index = static_cast<int>(position);
    return index < 0 || index >= count ? -1 : index;
}

// The group behind a chunk of type 1, or null for a chunk of that type that is no group. The two
// classes that every lookup meets, a sample's group and an object's metadata, are told by their
// exact type, which costs a comparison where a cast walks the class tree.
KynGroupChunk* asGroup(KynChunk* chunk) {
    const std::type_info& type = typeid(*chunk);
    if (&type == &typeid(KynGroupChunk) || &type == &typeid(KynDOBJChunk))
        return static_cast<KynGroupChunk*>(chunk);
    return dynamic_cast<KynGroupChunk*>(chunk);
}

}  // namespace

// Equal names have equal leaves, so the leaves alone decide.
bool KynCache::compareNames(const std::string& a, const std::string& b) const {
    return endsInLeaf(a, leafOf(b));
}

int KynCache::findObjectIndex(const std::string& name, int startIndex) const {
    const int count = static_cast<int>(meta.objects.size());
    if (count == 0 || name.empty()) return -1;

    // Each path component of the query loses everything up to its last ":". The first
    // character of the whole name is always kept, so "ns:a" is looked up as "na".
    std::string stripped;
    const bool namespaced = name.find(':') != std::string::npos;
    if (namespaced) {
        std::string& wanted = stripped;
        int lastColon = -1;
        int lastBar = 0;
        if (name[0] == ':')
            lastColon = 0;
        else
            wanted = name[0];
        const int last = static_cast<int>(name.size()) - 1;
        for (int i = 1; i <= last; ++i) {
            if (name[i] == ':') lastColon = i;
            if (name[i] == '|' || i == last) {
                const int from = std::max(lastColon, lastBar);
                wanted.append(name, static_cast<std::size_t>(from + 1),
                              static_cast<std::size_t>(i - from));
                lastBar = i;
                lastColon = -1;
            }
        }
    }

    const Leaf leaf = leafOf(namespaced ? stripped : name);
    if (startIndex < 0 || startIndex >= count) startIndex = 0;
    // A long search waits on memory for each object in turn; the objects a few steps ahead are
    // asked for early so that their waits overlap.
    constexpr int kAhead = 8;
    KynDOBJChunk* const* objects = meta.objects.data();
    for (int k = 0; k < count; ++k) {
        const int index = (startIndex + k) % count;
        const KynDOBJChunk* ahead =
            k + kAhead < count ? objects[(index + kAhead) % count] : nullptr;
        if (ahead) {
            __builtin_prefetch(&ahead->name);
            __builtin_prefetch(reinterpret_cast<const char*>(&ahead->name) + sizeof(std::string) -
                               1);
        }
        const KynDOBJChunk* object = objects[index];
        if (object && endsInLeaf(object->name, leaf)) return index;
    }
    return -1;
}

KynChunk* KynCache::findChunk(KynChunk* chunk, unsigned tag) {
    if (chunk == nullptr) return nullptr;
    if (chunk->header.tag == tag) return chunk;
    if (chunk->header.type != kTypeGroup) return nullptr;
    KynGroupChunk* group = asGroup(chunk);
    if (group == nullptr) return nullptr;
    for (KynChunk* child : group->children) {
        if (KynChunk* found = findChunk(child, tag)) return found;
    }
    return nullptr;
}

// The first position in the time table whose time is not less than `time`.
int KynCache::lowerBoundTime(float time) const {
    int first = 0;
    int length = static_cast<int>(std::min<std::size_t>(
        sampleTimes.size(), static_cast<std::size_t>(std::max(sampleCount(), 0))));
    while (length > 0) {
        const int half = length / 2;
        if (time > sampleTimes[static_cast<std::size_t>(first + half)]) {
            first += half + 1;
            length -= half + 1;
        } else {
            length = half;
        }
    }
    return first;
}

int KynCache::getSampleIndex(float time) const {
    const int count = sampleCount();
    if (count == 0) return -1;
    if (meta.firstTime > time || time > meta.lastTime) return -1;
    if (meta.rate != 0.0f) {
        float whole = 0.0f;
        const float fraction = modff((time - meta.firstTime) * meta.rate, &whole);
        if (fraction != 0.0f) return -1;  // also NaN
        return truncatedIndex(whole, count);
    }
    const int index = lowerBoundTime(time);
    if (std::size_t(index) >= std::min(sampleTimes.size(), std::size_t(count))) return -1;
    return sampleTimes[static_cast<std::size_t>(index)] == time ? index : -1;
}

int KynCache::getMaxSampleIndexNotGreaterThan(float time) const {
    const int count = sampleCount();
    if (count == 0) return -1;
    const float t = meta.lastTime < time ? meta.lastTime : time;
    if (meta.firstTime > t) return -1;
    if (meta.rate != 0.0f) return truncatedIndex((t - meta.firstTime) * meta.rate, count);
    // Non-uniform: the first sample at or after the time, not the last one before it.
    const int index = lowerBoundTime(t);
    return std::size_t(index) < std::min(sampleTimes.size(), std::size_t(count)) ? index : -1;
}

int KynCache::getMinSampleIndexNotLessThan(float time) const {
    const int count = sampleCount();
    if (count == 0) return -1;
    const float t = meta.firstTime > time ? meta.firstTime : time;
    if (t > meta.lastTime) return -1;
    if (meta.rate != 0.0f) return truncatedIndex(ceilf((t - meta.firstTime) * meta.rate), count);
    const int index = lowerBoundTime(t);
    return std::size_t(index) < std::min(sampleTimes.size(), std::size_t(count)) ? index : -1;
}

float KynCache::getSampleTime(int index) const {
    const float none = std::numeric_limits<float>::quiet_NaN();
    const int count = sampleCount();
    if (count == 0 || index < 0 || index >= count) return none;
    if (meta.rate == 0.0f) {
        const auto position = static_cast<std::size_t>(index);
        return position < sampleTimes.size() ? sampleTimes[position] : none;
    }
    const float time = static_cast<float>(index) / meta.rate + meta.firstTime;
    if (time < meta.firstTime || time > meta.lastTime) return none;
    return time;
}

// Whether the object's first sample on disk holds `tag`: read past the memory cache, which is
// neither filled nor disturbed. The first question about an object reads the headers of its
// "SOBJ"; the tags found there answer every later one while the stream stays open, until the
// file may have changed (jumpSample -1).
bool KynCache::firstSampleHas(int objectIndex, unsigned tag) {
    const int sampleIndex = getSampleIndex(meta.firstTime);
    if (sampleIndex < 0) return false;
    // With the stream closed the file is opened again, which may fail: no kept answer holds.
    const bool open = file.hasStream();
    if (jumpSample < 0) forgetFileContents();
    // A sample without an offset is not on disk; its reads fail.
    const bool onDisk = std::size_t(sampleIndex) < sampleJumps.size();
    const int64_t offset = onDisk ? sampleJumps[std::size_t(sampleIndex)] : -1;
    bool has = false;
    if (open && onDisk) {
        const KynSampleTags::Known known = firstSamples->find(offset, objectIndex, tag, has);
        // The public tables end as the read of the sample would leave them: its object table
        // held, taken from the kept ones when it is there.
        int64_t sobj = 0;
        if (known != KynSampleTags::Known::kNo && findObjectJump(sampleIndex, objectIndex, sobj))
            return has;
    }
    std::vector<unsigned>& tags = firstSamples->scratch();
    tags.clear();
    const bool read = surveyObjectSample(sampleIndex, objectIndex, tags);
    if (open && onDisk) firstSamples->keep(offset, objectIndex, read, tags);
    return read && std::find(tags.begin(), tags.end(), tag) != tags.end();
}

bool KynCache::objectHas(int objectIndex, unsigned tag) {
    if (objectIndex < 0 || std::size_t(objectIndex) >= meta.objects.size()) return false;
    KynDOBJChunk* object = meta.objects[static_cast<std::size_t>(objectIndex)];
    if (findChunk(object, tag)) return true;
    // The attribute table is no child of the object, so findChunk cannot see it.
    if (tag == kTagDATR && object && object->datr && object->datr->getNumAttrs() > 0) return true;
    if (sampleCount() < 1) return false;
    return firstSampleHas(objectIndex, tag);
}

bool KynCache::isObjectAnimated(int objectIndex, unsigned tag) {
    if (sampleCount() < 1) return false;
    if (objectIndex < 0 || std::size_t(objectIndex) >= meta.objects.size()) return false;
    if (findChunk(meta.objects[static_cast<std::size_t>(objectIndex)], tag)) return false;
    return firstSampleHas(objectIndex, tag);
}

}  // namespace Kyn
