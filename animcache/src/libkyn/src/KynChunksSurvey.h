// Reading a group for the tags it holds, without keeping its data. Private to the library.
//
// KynTagSurvey reads a group exactly as KynGroupChunk::read would: it succeeds and fails on the
// same files, consumes the same bytes and leaves the file's group stack the same, but it skips
// every leaf payload after testing that the leaf would read (whole elements, all in the file)
// and keeps only the tag of every chunk below the group, depth first.
#ifndef KYN_CHUNKS_SURVEY_H
#define KYN_CHUNKS_SURVEY_H

#include <vector>

#include "KynChunks.h"

namespace Kyn {

// Whether a leaf payload of `elementSize`-byte elements, whose header was just read, would be
// read whole: a whole number of elements, all of them in the file.
bool leafPayloadReadable(const KynHeader& header, KynFile& file, int64_t elementSize);

class KynTagSurvey : public KynGroupChunk {
  public:
    // The tags found below the group are appended to `tags`, which the caller owns.
    KynTagSurvey(unsigned tag, std::vector<unsigned>& tags) : KynGroupChunk(tag), tags(tags) {}

    bool readChild(const KynHeader& header, KynFile& file, bool& handled) override;

  private:
    std::vector<unsigned>& tags;
};

}  // namespace Kyn

#endif
