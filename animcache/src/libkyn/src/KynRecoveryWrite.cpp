// Recovery: a new cache of the whole samples of a damaged file.
//   out := DKYN META SAMS{ [TIMS FREE] JSAM FREE SAMP* }    one group, written by KynSAMSChunk
// Two passes over the damaged file: the scan decides which samples stay (headers only), then
// each kept sample is copied as a block. The metadata is the damaged file's own, with the
// counts and times of what is kept.
#include <cmath>

#include "KynRecovery.h"
#include "KynReplacement.h"
#include "KynSampleCopy.h"

namespace Kyn {

namespace {

struct Kept {
    int64_t offset;
    int64_t index;
    float time;
};

// Whether the kept samples can be stored uniformly: the file is, they follow one another, and
// the times that the loader computes from the new first time are exactly theirs.
bool staysUniform(const std::vector<Kept>& kept, float rate) {
    if (rate == 0.0f || kept.empty() || kept.front().index < 0) return false;
    const float first = kept.front().time;
    for (std::size_t j = 0; j < kept.size(); ++j) {
        if (kept[j].index != kept.front().index + int64_t(j)) return false;
        if (float(int64_t(j)) / rate + first != kept[j].time) return false;
    }
    const float span = roundf((kept.back().time - first) * rate) + 1.0f;
    return span == float(int64_t(kept.size()));
}

KynDamage dropped(KynDamage::Kind kind, const KynScannedSample& sample) {
    KynDamage damage;
    damage.kind = kind;
    damage.tag = kTagSAMP;
    damage.offset = sample.offset;
    damage.sample = sample.index;
    return damage;
}

}  // namespace

KynRecoveryReport recoverCache(const char* damaged, const char* out, const KynProgress& progress) {
    KynRecoveryReport report;
    KynSampleScanner scanner;
    if (out == nullptr) {
        report.failure = "no output file given";
        return report;
    }
    if (!scanner.open(damaged)) {
        report.failure = scanner.failure();
        return report;
    }
    for (const KynDOBJChunk* object : scanner.meta.objects) report.paths.push_back(object->name);
    const int64_t size = scanner.fileSize();
    std::vector<Kept> kept;
    KynScannedSample sample;
    while (scanner.next(sample)) {
        ++report.foundSamples;
        if (!sample.whole) {
            report.dropped.push_back(sample.problem);
            report.dropped.back().sample = sample.index;
        } else if (!sample.hasTime) {
            report.dropped.push_back(dropped(KynDamage::kNoTime, sample));
        } else if (!kept.empty() && !(sample.time > kept.back().time)) {
            report.dropped.push_back(dropped(KynDamage::kOutOfOrder, sample));
        } else {
            kept.push_back({sample.offset, sample.index, sample.time});
        }
        if (progress) progress(scanner.position(), 2 * size);
    }

    KynMETAChunk& meta = scanner.meta;
    const int64_t count = int64_t(kept.size());
    report.uniform = staysUniform(kept, meta.rate);
    meta.numSamples = count;
    if (count > 0) {
        meta.firstTime = kept.front().time;
        meta.lastTime = kept.back().time;
        if (!report.uniform) meta.rate = 0.0f;
    }

    KynReplacement replacement(out);
    KynFile target;
    KynFile source;
    if (!target.open(replacement.path().c_str(), "w") || !source.open(damaged, "r") ||
        !scanner.dkyn.write(target) || !meta.write(target)) {
        report.failure = "the new file could not be written";
        return report;
    }
    if (count > 0) {
        KynSAMSChunk writer;
        KynSampleCopier copier;
        if (!writer.writeStart(target, count, defaultReserve(count), !report.uniform)) {
            report.failure = "the new file could not be written";
            return report;
        }
        const int objects = static_cast<int>(meta.objects.size());
        for (const Kept& k : kept) {
            std::string why;
            if (!copier.copy(source, k.offset, objects, &k.time, false, writer, target, why)) {
                report.failure = "the sample at offset " + std::to_string(k.offset) +
                                 " could not be copied: " + why;
                return report;
            }
            if (progress) progress(size + k.offset, 2 * size);
        }
        if (!writer.writeEnd(target)) {
            report.failure = "the new file could not be written";
            return report;
        }
    }
    if (!replacement.commit(target)) {
        report.failure = "the new file could not be written";
        return report;
    }
    for (const Kept& k : kept) {
        report.kept.push_back(k.index);
        report.keptTimes.push_back(k.time);
    }
    report.written = true;
    if (progress) progress(2 * size, 2 * size);
    return report;
}

}  // namespace Kyn
