// The writer of the caches that imports make: one object, uniform samples, and per sample
// nothing but the object's float x, y, z positions. The metadata goes out first, then each
// sample as it comes, so an import holds one sample at a time. The file is written beside its
// target and renamed over it when finished: an import that fails or dies leaves the target as
// it was.
#ifndef KYN_EXCHANGE_CACHE_WRITER_H
#define KYN_EXCHANGE_CACHE_WRITER_H

#include <memory>
#include <string>

#include "KynChunks.h"
#include "KynFile.h"
#include "KynReplacement.h"

namespace Kyn {
namespace exchange {

class CacheWriter {
  public:
    // `object` names the object; `source` is recorded as the cache's source file.
    CacheWriter(const std::string& object, const std::string& source);
    CacheWriter(const CacheWriter&) = delete;
    CacheWriter& operator=(const CacheWriter&) = delete;

    // Static chunks of the object, owned by the metadata once added.
    KynDOBJChunk& object() { return *meta.objects.front(); }

    // Writes the metadata for `samples` samples from `firstTime`, `rate` samples a frame.
    // False, with `error`, when the file cannot be written or the times cannot be held.
    bool start(const std::string& path, int64_t samples, float firstTime, float rate,
               std::string& error);
    bool sample(const float* xyz, std::size_t vertices, std::string& error);
    bool finish(std::string& error);

  private:
    KynMETAChunk meta;
    std::string path;
    // Declared before the file, so that the file is closed before the new file is removed
    // (unless committed).
    std::unique_ptr<KynReplacement> replacement;
    KynFile file;
    KynSAMSChunk sams;
};

}  // namespace exchange
}  // namespace Kyn

#endif
