// Evaluation at a time: which stored samples take part in a value, with which weights, and the
// blend of attributes and positions built on that choice.
//
// A run of `order` + 1 consecutive samples starts at the sample that the cache's
// getMaxSampleIndexNotGreaterThan gives (in a uniform file the one at or before the time, in a
// non-uniform file the one at or after it) and is shifted back near the end of the clip. The
// blends measure their fraction from entry 1 to entry 2 for orders 2 and 3 even though the run
// is not centred on the time; both choices are the defined behaviour of the format's readers.
#include <algorithm>
#include <cmath>
#include <cstdint>

#include "DGMath.h"
#include "KynHelper.h"
#include "KynHelperDetail.h"

namespace Kyn {

using helperDetail::stateOf;

namespace {

// A time closer than this to the picked sample counts as lying on it.
constexpr double kOnSampleTolerance = 0.001;

// The element vectors of the picked samples of one blend. They are read in place; but when the
// cache's bound is small enough that reading a later picked sample could evict an earlier one,
// each is copied as soon as it is fetched, so that no pointer outlives its sample.
template <class S>
class PickedSamples {
  public:
    PickedSamples(const KynRoMemCache& cache, int count)
        : copies(mayEvict(cache, count) ? static_cast<std::size_t>(count) : 0),
          pointers(static_cast<std::size_t>(count), nullptr) {}

    void keep(int k, const std::vector<S>* data) {
        const std::size_t at = static_cast<std::size_t>(k);
        if (copies.empty()) {
            pointers[at] = data;
            return;
        }
        copies[at] = *data;
        pointers[at] = &copies[at];
    }
    const std::vector<const std::vector<S>*>& all() const { return pointers; }

  private:
    // A read-only cache with a bound keeps the last `maxSamples` samples touched (a negative
    // bound keeps one), pinned samples among them, so `count` samples all survive only when the
    // bound is at least `count` plus the pinned samples, of which there are at most as many as
    // pinned groups.
    static bool mayEvict(const KynRoMemCache& cache, int count) {
        return cache.rwMode == 0 && cache.maxSamples != 0 &&
               int64_t(cache.maxSamples) < int64_t(count) + int64_t(cache.pins.size());
    }

    std::vector<std::vector<S>> copies;  // sized once, so their addresses stay put
    std::vector<const std::vector<S>*> pointers;
};

bool isBlendOrder(int order) {
    return order >= 1 && order <= 3;
}

}  // namespace

float KynHelperObj::getTimeFraction(float time) {
    float whole = 0.0f;
    if (cache->meta.rate == 0.0f) return std::modf(time, &whole);
    return std::modf((time - cache->meta.firstTime) * cache->meta.rate, &whole);
}

bool KynHelperObj::getEvalTimeAndSampleIndices(float time, KynInterpolationHints& hints,
                                               std::vector<int>& indices,
                                               std::vector<float>& times) {
    const int order = std::max(hints.order, 0);
    const int sampleCount = static_cast<int>(cache->meta.numSamples);
    int64_t n = int64_t(order) + 1;
    indices.resize(static_cast<std::size_t>(n));
    times.resize(static_cast<std::size_t>(n));

    int s = cache->getMaxSampleIndexNotGreaterThan(time);
    indices[0] = s;
    if (s < 0) {
        std::fill(indices.begin(), indices.end(), -1);
        std::fill(times.begin(), times.end(), time);
        return false;
    }
    // The tolerance looks one way only: from the picked sample towards the time.
    const float distance = std::fabs(time - cache->getSampleTime(s));
    if (kOnSampleTolerance > static_cast<double>(distance)) {
        times[0] = time;
        return false;
    }
    if (time >= cache->meta.lastTime) {
        std::fill(indices.begin(), indices.end(), sampleCount - 1);
        std::fill(times.begin(), times.end(), cache->meta.lastTime);
        return false;
    }
    if (n == 1) {
        times[0] = cache->getSampleTime(s);
        return true;
    }
    // Near the end the run moves back; s + n falls by two per pass, and n serves only this test.
    if (n != 2 && !(s + n < sampleCount || s == 0)) {
        do {
            --s;
            --n;
            indices[0] = s;
        } while (!(s + n < sampleCount || s == 0));
    }
    // The run is consecutive and repeats the last sample where the clip ends.
    for (int i = 0; i <= order; ++i) {
        const std::size_t at = static_cast<std::size_t>(i);
        times[at] = cache->getSampleTime(indices[at]);
        if (i < order)
            indices[at + 1] = indices[at] < sampleCount - 1 ? indices[at] + 1 : indices[at];
    }
    return true;
}

float KynHelperObj::blendFraction(float time, int order, const std::vector<float>& times) {
    if (order == 1) return (time - times[0]) / (times[1] - times[0]);
    return (time - times[1]) / (times[2] - times[1]);
}

template <class T, class S>
bool KynHelperObj::blendSamples(int order, float f,
                                const std::vector<const std::vector<S>*>& samples,
                                std::vector<T>& out) {
    if (!isBlendOrder(order) || samples.size() < static_cast<std::size_t>(order) + 1) return false;
    for (const std::vector<S>* sample : samples)
        if (sample == nullptr) return false;
    const std::vector<S>& p0 = *samples[0];
    const std::size_t count = p0.size();
    // Never read past a later sample's end: a shorter one makes the blend fail.
    for (int k = 1; k <= order; ++k)
        if (samples[static_cast<std::size_t>(k)]->size() < count) return false;

    out.resize(count);
    const S x = static_cast<S>(f);
    if (order == 1) {
        const std::vector<S>& p1 = *samples[1];
        const S rest = S(1) - x;
        for (std::size_t i = 0; i < count; ++i) out[i] = static_cast<T>(p0[i] * rest + p1[i] * x);
    } else if (order == 2) {
        const std::vector<S>& p1 = *samples[1];
        const std::vector<S>& p2 = *samples[2];
        for (std::size_t i = 0; i < count; ++i)
            out[i] = static_cast<T>((p0[i] - (p1[i] + p1[i]) + p2[i]) * S(0.5) * x * x +
                                    (p2[i] - p0[i]) * S(0.5) * x + p1[i]);
    } else {
        const std::vector<S>& p1 = *samples[1];
        const std::vector<S>& p2 = *samples[2];
        const std::vector<S>& p3 = *samples[3];
        S w0, w1, w2, w3;
        DGMath::getCubicFactors<S, S>(w0, w1, w2, w3, x);
        for (std::size_t i = 0; i < count; ++i)
            out[i] = static_cast<T>(p0[i] * w0 + p1[i] * w1 + p2[i] * w2 + p3[i] * w3);
    }
    return true;
}

template bool KynHelperObj::blendSamples(int, float, const std::vector<const std::vector<float>*>&,
                                         std::vector<float>&);
template bool KynHelperObj::blendSamples(int, float, const std::vector<const std::vector<float>*>&,
                                         std::vector<double>&);
template bool KynHelperObj::blendSamples(int, float, const std::vector<const std::vector<double>*>&,
                                         std::vector<double>&);

template <class T>
bool KynHelperObj::getAttrDataAtTime(float time, int attrIndex, KynInterpolationHints& hints,
                                     std::vector<T>& out, int& dimension) {
    dimension = 0;
    out.clear();
    std::vector<int> indices;
    std::vector<float> times;
    const bool blend = getEvalTimeAndSampleIndices(time, hints, indices, times);
    const int order = hints.order;
    if (blend && isBlendOrder(order)) {
        // Only attributes stored as T take part in a blend.
        PickedSamples<T> picked(*cache, order + 1);
        for (int k = 0; k <= order; ++k) {
            const std::vector<T>* data = nullptr;
            if (!getAttrData(indices[static_cast<std::size_t>(k)], attrIndex, data, dimension))
                return false;
            picked.keep(k, data);
        }
        return blendSamples(order, blendFraction(time, order, times), picked.all(), out);
    }
    return getAttr(indices[0], attrIndex, out, dimension);
}

template bool KynHelperObj::getAttrDataAtTime(float, int, KynInterpolationHints&,
                                              std::vector<double>&, int&);

bool KynHelperObj::getAttrAtTime(float time, int attrIndex, KynInterpolationHints& hints,
                                 std::vector<double>& out, int& dimension) {
    return getAttrDataAtTime(time, attrIndex, hints, out, dimension);
}

template <class T>
bool GeometryKynObj::getPOSIDataAtTime(float time, KynInterpolationHints& hints,
                                       std::vector<T>& out, AnimationState& state, int& dimension) {
    dimension = 0;
    state = kStatic;
    // Every failure leaves `out` empty, and every success writes all of it: emptying it only on
    // failure gives the same results without clearing a large vector that is written anyway.
    std::vector<int> indices;
    std::vector<float> times;
    const bool blend = getEvalTimeAndSampleIndices(time, hints, indices, times);
    const int order = hints.order;
    if (blend && isBlendOrder(order)) {
        // Blending reads float-stored positions only, in float, for both result types.
        PickedSamples<float> picked(*cache, order + 1);
        for (int k = 0; k <= order; ++k) {
            const std::vector<float>* data = nullptr;
            if (!getPositionData(indices[static_cast<std::size_t>(k)], data, state, dimension)) {
                out.clear();
                return false;
            }
            picked.keep(k, data);
        }
        if (blendSamples(order, blendFraction(time, order, times), picked.all(), out)) return true;
        out.clear();
        state = kStatic;
        return false;
    }
    // The plain read converts from either storage.
    bool animated = false;
    const bool found = getFloatOrDoubleData(indices[0], kTagPOSI, out, animated, dimension);
    if (!found) out.clear();
    state = stateOf(animated);
    return found;
}

template bool GeometryKynObj::getPOSIDataAtTime(float, KynInterpolationHints&, std::vector<float>&,
                                                AnimationState&, int&);
template bool GeometryKynObj::getPOSIDataAtTime(float, KynInterpolationHints&, std::vector<double>&,
                                                AnimationState&, int&);

}  // namespace Kyn
