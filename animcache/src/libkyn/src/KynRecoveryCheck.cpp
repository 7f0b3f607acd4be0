// The check of a whole file: every object of every sample read through the cache, and the
// sample stream scanned for what the cache does not look at (lengths, tables, stray bytes).
#include <algorithm>
#include <memory>
#include <set>

#include "KynFormat.h"
#include "KynMessages.h"
#include "KynRecovery.h"
#include "KynRoMemCache.h"

namespace Kyn {

namespace {

// What a chunk of this tag is, in words.
const char* chunkWords(unsigned tag) {
    switch (tag) {
        case kTagDKYN:
            return "magic chunk";
        case kTagMETA:
            return "metadata";
        case kTagSAMS:
            return "sample stream";
        case kTagJSAM:
            return "sample table";
        case kTagTIMS:
            return "time table";
        case kTagSAMP:
            return "sample";
        case kTagJOBJ:
            return "object table";
        case kTagSOBJ:
            return "object";
        default:
            return "";
    }
}

// Reads every object of every sample of a loaded cache. A sample that fails in all its objects
// is one finding, and a run of samples that lie beyond the end of the file is one; a sample
// that the scan explains is left to the scan. Progress goes on from the scan's, by the offset
// of the sample read.
void readEverySample(KynRoMemCache& cache, const std::set<int64_t>& explained,
                     KynCheckReport& report, const KynProgress& progress, int64_t size) {
    const int samples = static_cast<int>(cache.meta.numSamples);
    int64_t done = size;
    int beyond = -1;  // the first of a run of samples beyond the end of the file
    auto endRun = [&](int s) {
        if (beyond < 0) return;
        KynDamage damage;
        damage.kind = KynDamage::kCut;
        damage.tag = kTagSAMP;
        damage.offset = cache.sampleJumps[std::size_t(beyond)];
        damage.sample = beyond;
        damage.detail = s - 1 == beyond
                            ? "it lies beyond the end of the file"
                            : "samples " + std::to_string(beyond) + " to " + std::to_string(s - 1) +
                                  " lie beyond the end of the file";
        report.damage.push_back(damage);
        beyond = -1;
    };
    for (int s = 0; s < samples; ++s) {
        const int64_t offset = cache.sampleJumps[std::size_t(s)];
        if (offset < 0 || offset >= size) {
            if (beyond < 0) beyond = s;
            continue;
        }
        endRun(s);
        std::vector<KynDamage> failed;
        for (int o = 0; o < report.objects; ++o) {
            std::unique_ptr<KynGroupChunk> group(cache.loadObjectSample(s, o));
            if (group) continue;
            KynDamage damage;
            damage.kind = KynDamage::kUnreadable;
            damage.tag = kTagSOBJ;
            damage.offset = cache.jumpSample == s && std::size_t(o) < cache.objectJumps.size()
                                ? cache.objectJumps[std::size_t(o)]
                                : offset;
            damage.sample = s;
            damage.object = o;
            failed.push_back(damage);
        }
        report.readableSamples += failed.empty();
        if (explained.count(offset) == 0 && !failed.empty()) {
            if (int(failed.size()) == report.objects) {
                failed.resize(1);
                failed[0].offset = offset;
                failed[0].object = -1;
                failed[0].tag = kTagSAMP;
            }
            report.damage.insert(report.damage.end(), failed.begin(), failed.end());
        }
        done = std::max(done, size + std::min(size, offset));
        if (progress) progress(done, 2 * size);
    }
    endRun(samples);
}

}  // namespace

std::string kynDamageLine(const KynDamage& damage, const std::vector<std::string>& paths) {
    if (damage.kind == KynDamage::kLoad) {
        const std::size_t end = damage.detail.find_last_not_of(' ');
        return "the file does not load: " + damage.detail.substr(0, end + 1);
    }
    // The subject: the sample and object concerned, or the kind of chunk; then where it lies.
    std::string subject;
    if (damage.sample >= 0) subject = "sample " + std::to_string(damage.sample);
    if (damage.object >= 0) {
        subject += (subject.empty() ? "object " : ", object ") + std::to_string(damage.object);
        if (std::size_t(damage.object) < paths.size())
            subject += " " + paths[std::size_t(damage.object)];
    } else if (damage.tag == kTagJOBJ && !subject.empty()) {
        subject += ", its object table";
    }
    if (subject.empty()) subject = chunkWords(damage.tag);
    if (damage.offset >= 0)
        subject += (subject.empty() ? "offset " : " at offset ") + std::to_string(damage.offset);
    std::string line = subject.empty() ? "" : subject + ": ";
    line += kynDamageText(damage.kind);
    if (!damage.detail.empty()) line += " (" + damage.detail + ")";
    return line;
}

KynCheckReport checkCache(const char* path, const KynProgress& progress) {
    KynCheckReport report;
    KynSampleScanner scanner;
    const bool scanned = scanner.open(path);
    if (!scanned && !KynFile::isKynFile(path)) {
        report.failure = scanner.failure();
        return report;
    }
    report.opened = true;
    report.declaredSamples = scanner.meta.numSamples;
    report.objects = static_cast<int>(scanner.meta.objects.size());
    for (const KynDOBJChunk* object : scanner.meta.objects) report.paths.push_back(object->name);
    const int64_t size = scanner.fileSize();

    // The scan first, so that a sample it explains is not reported twice.
    std::vector<KynDamage> found;
    std::set<int64_t> explained;
    KynScannedSample sample;
    float lastKept = 0.0f;
    int64_t whole = 0;
    while (scanned && scanner.next(sample)) {
        ++report.foundSamples;
        if (!sample.whole) {
            found.push_back(sample.problem);
            explained.insert(sample.offset);
            continue;
        }
        ++whole;
        if (!sample.objectTableMatches) {
            KynDamage damage;
            damage.kind = KynDamage::kObjectTable;
            damage.tag = kTagJOBJ;
            damage.offset = sample.offset;
            damage.sample = sample.index;
            found.push_back(damage);
        }
        if (sample.hasTime && (report.recoverableSamples == 0 || sample.time > lastKept)) {
            ++report.recoverableSamples;
            lastKept = sample.time;
        }
        if (progress) progress(scanner.position(), 2 * size);
    }
    if (scanned) {
        std::vector<KynDamage> problems = scanner.problems();
        found.insert(found.end(), problems.begin(), problems.end());
    }

    KynRoMemCache cache;
    {
        KynMessageCapture capture;
        report.loaded = cache.load(path, true, 2);
        if (!report.loaded) {
            KynDamage damage;
            damage.kind = KynDamage::kLoad;
            damage.detail = capture.last();
            if (!scanned) damage.detail += (damage.detail.empty() ? "" : "; ") + scanner.failure();
            report.damage.push_back(damage);
        }
    }
    if (report.loaded) {
        report.objects = static_cast<int>(cache.meta.objects.size());
        if (!scanned) {
            report.paths.clear();  // the loader's objects, not what the failed scan read of them
            for (const KynDOBJChunk* object : cache.meta.objects)
                report.paths.push_back(object->name);
        }
        readEverySample(cache, explained, report, progress, size);
    } else {
        report.readableSamples = whole;
    }
    report.damage.insert(report.damage.end(), found.begin(), found.end());
    // The loader's words first, then in file order; findings of no offset (-1) last.
    std::stable_sort(report.damage.begin(), report.damage.end(),
                     [](const KynDamage& a, const KynDamage& b) {
                         if ((a.kind == KynDamage::kLoad) != (b.kind == KynDamage::kLoad))
                             return a.kind == KynDamage::kLoad;
                         return uint64_t(a.offset) < uint64_t(b.offset);
                     });
    if (progress) progress(2 * size, 2 * size);
    return report;
}

}  // namespace Kyn
