// KynSampleTags: what the first sample of each object holds, as KynCache learnt it from the
// file. Private to the library.
//
// `objectHas` and `isObjectAnimated` answer from an object's first sample on disk. The first
// answer for an object reads the tags of its "SOBJ" (KynTagSurvey); the tags are kept here so
// that every later question about that object, for any tag, costs no read. What is kept holds
// for one sample offset and one state of the file: KynCache forgets it whenever it may no
// longer be what the file holds (see KynCache::forgetFileContents).
#ifndef KYN_SAMPLE_TAGS_H
#define KYN_SAMPLE_TAGS_H

#include <cstdint>
#include <vector>

namespace Kyn {

class KynSampleTags {
  public:
    enum class Known {
        kNo,      // the object's sample has not been surveyed
        kUnread,  // the survey failed: the object has no readable sample there
        kTags     // the tags are known
    };

    // What is known of object `objectIndex` in the sample at `sampleOffset`. With kTags,
    // `has` tells whether `tag` is among them.
    Known find(int64_t sampleOffset, int objectIndex, unsigned tag, bool& has) const;
    // Keeps the outcome of a survey: `readable` false for a failed one.
    void keep(int64_t sampleOffset, int objectIndex, bool readable,
              const std::vector<unsigned>& tags);
    void clear();
    // Storage for the tags of the next survey, reused from survey to survey.
    std::vector<unsigned>& scratch() { return surveyed; }

  private:
    int64_t sampleOffset = -1;    // the sample everything kept belongs to
    std::vector<uint32_t> slots;  // per object: 0 not surveyed, 1 unread, else 2 + pool position
    std::vector<unsigned> pool;   // per surveyed object: the tag count, then the distinct tags
    std::vector<unsigned> surveyed;
};

}  // namespace Kyn

#endif
