// A cache that follows a growing file: the scanner of recovery, holding back what is not whole
// yet, decides which samples the cache shows; the cache reads them through its own stream.
#include "KynLiveCache.h"

#include "KynRecovery.h"

namespace Kyn {

KynLiveCache::KynLiveCache() = default;

KynLiveCache::~KynLiveCache() = default;

void KynLiveCache::reset() {
    KynRoMemCache::reset();
    scanner.reset();
    shownTimes.clear();
    consecutive = true;
}

bool KynLiveCache::load(const char* path, bool) {
    const int bound = maxSamples;
    reset();
    maxSamples = bound;
    why.clear();
    std::unique_ptr<KynSampleScanner> found(new KynSampleScanner());
    found->holdTail = true;
    if (!found->open(path)) {
        why = found->failure();
        return false;
    }
    if (!file.open(path, "r")) {
        why = "the file cannot be opened";
        return false;
    }
    fileName = path;
    dkyn.version = found->dkyn.version;
    // The metadata as the scanner read it, taken over whole: objects, attributes, fields.
    KynMETAChunk& read = found->meta;
    meta.header = read.header;
    meta.objects.swap(read.objects);
    meta.children.swap(read.children);
    meta.application = read.application;
    meta.sourceFile = read.sourceFile;
    meta.date = read.date;
    meta.space = read.space;
    meta.rate = fileRate = read.rate;
    meta.firstTime = fileFirstTime = read.firstTime;
    meta.lastTime = read.lastTime;
    meta.numSamples = 0;
    scanner = std::move(found);
    refresh();
    return true;
}

int KynLiveCache::refresh() {
    if (!scanner) return -1;
    file.forgetReadAhead();
    int added = 0;
    KynScannedSample sample;
    while (scanner->next(sample)) {
        // No lookup could find a sample whose time is not after the one before.
        if (!shownTimes.empty() && !(sample.time > shownTimes.back())) continue;
        consecutive = consecutive && sample.index == int64_t(sampleJumps.size());
        sampleJumps.push_back(sample.offset);
        shownTimes.push_back(sample.time);
        ++added;
    }
    meta.numSamples = int64_t(sampleJumps.size());
    if (fileRate != 0.0f && consecutive) {
        meta.rate = fileRate;
        meta.firstTime = fileFirstTime;
        sampleTimes.clear();
    } else {
        meta.rate = 0.0f;
        sampleTimes = shownTimes;
        if (!shownTimes.empty()) meta.firstTime = shownTimes.front();
    }
    if (!shownTimes.empty()) meta.lastTime = shownTimes.back();
    return added;
}

}  // namespace Kyn
