#include "KynSampleTags.h"

#include <algorithm>

namespace Kyn {

namespace {

constexpr uint32_t kNotSurveyed = 0;
constexpr uint32_t kUnread = 1;
constexpr uint32_t kFirstPosition = 2;

}  // namespace

KynSampleTags::Known KynSampleTags::find(int64_t offset, int objectIndex, unsigned tag,
                                         bool& has) const {
    has = false;
    if (offset != sampleOffset || objectIndex < 0 || std::size_t(objectIndex) >= slots.size())
        return Known::kNo;
    const uint32_t slot = slots[std::size_t(objectIndex)];
    if (slot == kNotSurveyed) return Known::kNo;
    if (slot == kUnread) return Known::kUnread;
    const unsigned* count = &pool[slot - kFirstPosition];
    has = std::find(count + 1, count + 1 + *count, tag) != count + 1 + *count;
    return Known::kTags;
}

void KynSampleTags::keep(int64_t offset, int objectIndex, bool readable,
                         const std::vector<unsigned>& tags) {
    if (objectIndex < 0) return;
    if (offset != sampleOffset) {
        clear();
        sampleOffset = offset;
    }
    // Objects are mostly surveyed in index order: the table grows in steps, not by one slot.
    if (std::size_t(objectIndex) >= slots.size())
        slots.resize(std::max(std::size_t(objectIndex) + 1, 2 * slots.size()), kNotSurveyed);
    if (!readable) {
        slots[std::size_t(objectIndex)] = kUnread;
        return;
    }
    const std::size_t position = pool.size();
    pool.push_back(0);
    for (unsigned tag : tags) {
        if (std::find(pool.begin() + std::ptrdiff_t(position) + 1, pool.end(), tag) != pool.end())
            continue;
        pool.push_back(tag);
        ++pool[position];
    }
    slots[std::size_t(objectIndex)] = uint32_t(position) + kFirstPosition;
}

void KynSampleTags::clear() {
    sampleOffset = -1;
    slots.clear();
    pool.clear();
}

}  // namespace Kyn
