// KynStitch: caches written in pieces, joined into one.
//
// A frame range split over several machines comes back as several caches of the same objects,
// each holding its own stretch of time. stitchCaches joins them, in time order, into one cache
// that holds every sample, time and object that a cache written in one go would hold (its date
// and its reserve of spare samples may differ). It reads no sample into chunk objects: each
// "SAMP" is copied as one block, with only its "JOBJ" offsets moved. It prints nothing; a
// refusal names the input and the reason. One thread at a time per call; calls share nothing.
#ifndef KYN_STITCH_H
#define KYN_STITCH_H

#include <cstdint>
#include <string>
#include <vector>

#include "KynProgress.h"

namespace Kyn {

struct KynStitchReport {
    enum Refusal {
        kNone,
        kNoInput,     // no input given
        kUnreadable,  // an input does not load: `message` holds the loader's words
        kObjects,     // its objects differ from the first input's: count, names or order
        kStaticData,  // an object's static data or attributes differ from the first input's
        kSpace,       // it is in another space (world or object) than the first input
        kSampling,    // uniform against non-uniform, or another rate
        kOverlap,     // its time range overlaps the input before it in time
        kGap,         // uniform inputs that leave samples out between them
        kDamaged,     // a sample of it does not copy; `kyn check` tells more
        kWrite,       // the output could not be written
    };

    bool written = false;
    Refusal refusal = kNone;
    std::string file;                // the input concerned, as given; empty when none
    std::string message;             // the reason in words, without the file name
    std::vector<std::string> order;  // the inputs in the order they were joined
    int64_t samples = 0;             // samples written
    bool uniform = false;            // the output is uniformly sampled
};

// A short name of each refusal ("objects", "overlap", ...), stable for scripts and JSON.
const char* kynStitchRefusalName(KynStitchReport::Refusal refusal);

// Joins `inputs` into `out`. Each input must load, hold the same objects as the first one (the
// same names in the same order, the same static data and attributes) in the same space, and be
// sampled the same way: all uniform at one rate, or all non-uniform. They are put in the order
// of their first times, whatever the order given; uniform inputs must follow one another
// without a gap or an overlap (each first time one step behind the last time before it, within
// a thousandth of a step), non-uniform ones without an overlap. Inputs without samples add
// nothing but must match. The output takes the first input's metadata, with the new counts,
// times and date. It goes to a new file beside `out`, renamed over it at the end, so a failure
// or refusal leaves `out` as it was; `out` may be one of the inputs. Progress is counted in
// bytes of the inputs.
KynStitchReport stitchCaches(const char* out, const std::vector<std::string>& inputs,
                             const KynProgress& progress = KynProgress());

}  // namespace Kyn

#endif
