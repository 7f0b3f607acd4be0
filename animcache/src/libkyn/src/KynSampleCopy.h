// Copying samples from one cache file into the sample stream of another. Private to the
// library.
#ifndef KYN_SAMPLE_COPY_H
#define KYN_SAMPLE_COPY_H

#include <cstdint>
#include <string>
#include <vector>

#include "KynChunks.h"
#include "KynFile.h"

namespace Kyn {

class KynSampleCopier {
  public:
    // Copies the "SAMP" at `offset` of `in` into `out` as the next sample of `writer`, at
    // `time` (ignored by a uniform writer). Its "SOBJ" groups are copied byte for byte and in
    // order; its "JOBJ" is made to lead to them where they now stand. A sample of up to 2 GiB
    // goes in one block, a larger one object by object. With `requireTable`, a sample whose
    // "JOBJ" does not lead to its own objects is refused. False, with `why`, on failure.
    bool copy(KynFile& in, int64_t offset, int objects, const float* time, bool requireTable,
              KynSAMSChunk& writer, KynFile& out, std::string& why);

  private:
    bool copyByObject(KynFile& in, int64_t offset, const KynHeader& sample, int objects,
                      const float* time, KynSAMSChunk& writer, KynFile& out, std::string& why);
    bool copyChunk(KynFile& in, int64_t offset, KynFile& out, int64_t& end, std::size_t depth);

    std::vector<char> buffer;
};

// The reserve of spare samples that a full write gives a "SAMS" of `samples` samples.
inline int64_t defaultReserve(int64_t samples) {
    return samples * 2 < 100 ? 100 : samples * 2;
}

}  // namespace Kyn

#endif
