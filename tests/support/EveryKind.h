// A scene of every object kind, for the suites that need each kind in one file: a transform
// "|xf" with an animated matrix; a mesh "|xf|mesh" with static topology, animated positions,
// an animated int32 attribute and a static float one; a curve "|curve" with animated control
// points; a coordinate system "|system" with a static attribute; a surface "|surface" and a
// locator "|locator", all static. Sample s moves the matrix to x = s and sets the positions to s.
#ifndef KYN_EVERY_KIND_H
#define KYN_EVERY_KIND_H

#include <functional>
#include <string>

#include "KynChunks.h"

namespace kyntest_support {

constexpr int kEveryKindObjects = 6;

// Adds the six objects, with their static chunks and attribute tables, to `meta`.
void describeEveryKind(Kyn::KynMETAChunk& meta);
// The same, after setting the count of samples, the first and last times and the rate (1, or 0
// when non-uniform).
void describeEveryKind(Kyn::KynMETAChunk& meta, int64_t count, float firstTime, float lastTime,
                       bool nonUniform);
// Writes sample `s` of the scene through `sams`, at `time`.
void writeEveryKindSample(Kyn::KynFile& file, Kyn::KynSAMSChunk& sams, int s, const float* time);

// The time of sample s: frame 1 + s when uniform (rate 1), 2^s when not.
float everyKindTime(bool nonUniform, int s);

// Writes samples `first` to `first + count - 1` of the scene to `path` in one "SAMS" group,
// letting `adjust` change the metadata before it goes out.
void writeEveryKindFile(const std::string& path, int first, int count, bool nonUniform,
                        const std::function<void(Kyn::KynMETAChunk&)>& adjust = {});

}  // namespace kyntest_support

#endif
