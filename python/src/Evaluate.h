// Evaluation at a time of data that the library's views read only at a sample (normals,
// velocities, face normals, float attributes): the library's own choice of samples and its own
// blend, as its positions use them, in the precision of the stored data.
#ifndef KYN_PYTHON_EVALUATE_H
#define KYN_PYTHON_EVALUATE_H

#include <vector>

#include "KynHelper.h"

namespace kynpy {

class Evaluator : public Kyn::KynHelperObj {
  public:
    Evaluator(Kyn::KynRoMemCache* cache, int objectIndex) : KynHelperObj(cache, objectIndex) {}

    // The sample that a hold (order 0) reads at `time`; -1 before the first sample, where only
    // static data exists.
    int holdSample(float time) {
        Kyn::KynInterpolationHints hints;
        std::vector<int> indices;
        std::vector<float> times;
        getEvalTimeAndSampleIndices(time, hints, indices, times);
        return indices[0];
    }

    // The data at `time` with `order`, blended from the `order` + 1 samples the library picks,
    // or the data of the first of them where the library reads one sample alone. `fetch(sample,
    // data, animated)` reads one sample in place. Each fetched sample is pinned until the blend
    // is done, so that a small bound cannot evict it under the blend.
    template <class S, class Fetch>
    bool atTime(float time, int order, Fetch fetch, std::vector<S>& out) {
        Kyn::KynInterpolationHints hints;
        hints.order = order;
        std::vector<int> indices;
        std::vector<float> times;
        const bool blend = getEvalTimeAndSampleIndices(time, hints, indices, times);
        const std::vector<S>* data = nullptr;
        bool animated = false;
        if (!blend || order < 1 || order > 3) {
            if (!fetch(indices[0], data, animated)) return false;
            out = *data;
            return true;
        }
        Pins pins(*cache);
        std::vector<const std::vector<S>*> picked;
        for (int k = 0; k <= order; ++k) {
            const int sample = indices[static_cast<std::size_t>(k)];
            if (!fetch(sample, data, animated)) return false;
            if (animated) pins.add(cache->pinSample(sample, objectIndex));
            picked.push_back(data);
        }
        return blendSamples<S, S>(order, blendFraction(time, order, times), picked, out);
    }

  private:
    class Pins {
      public:
        explicit Pins(Kyn::KynRoMemCache& cache) : cache(cache) {}
        ~Pins() {
            for (const Kyn::KynGroupChunk* group : groups) cache.unpin(group);
        }
        Pins(const Pins&) = delete;
        Pins& operator=(const Pins&) = delete;
        void add(const Kyn::KynGroupChunk* group) {
            if (group != nullptr) groups.push_back(group);
        }

      private:
        Kyn::KynRoMemCache& cache;
        std::vector<const Kyn::KynGroupChunk*> groups;
    };
};

}  // namespace kynpy

#endif
