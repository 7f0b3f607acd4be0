#include "KynJumpTables.h"

#include <algorithm>
#include <utility>

namespace Kyn {

std::size_t KynJumpTables::indexOf(int64_t offset) const {
    const auto it = std::find_if(kept.begin(), kept.end(),
                                 [offset](const Kept& k) { return k.offset == offset; });
    return static_cast<std::size_t>(it - kept.begin());
}

bool KynJumpTables::take(int64_t offset, std::vector<int64_t>& table) {
    const std::size_t i = indexOf(offset);
    if (i == kept.size()) return false;
    entries -= kept[i].table.size();
    table.swap(kept[i].table);
    kept.erase(kept.begin() + static_cast<std::ptrdiff_t>(i));
    return true;
}

bool KynJumpTables::holds(int64_t offset) const {
    return indexOf(offset) != kept.size();
}

void KynJumpTables::keep(int64_t offset, std::vector<int64_t>& table) {
    entries += table.size();
    kept.push_back(Kept{offset, std::move(table)});
    table.clear();
    dropOverBound();
}

bool KynJumpTables::exchange(int64_t offset, int64_t heldOffset, std::vector<int64_t>& table) {
    const std::size_t i = indexOf(offset);
    if (i == kept.size()) return false;
    entries = entries - kept[i].table.size() + table.size();
    table.swap(kept[i].table);
    kept[i].offset = heldOffset;
    // The table just kept is the most recently used: it moves to the back.
    std::rotate(kept.begin() + std::ptrdiff_t(i), kept.begin() + std::ptrdiff_t(i) + 1, kept.end());
    dropOverBound();
    return true;
}

void KynJumpTables::dropOverBound() {
    while (!kept.empty() && (kept.size() > kMaxTables || entries > kMaxEntries)) {
        entries -= kept.front().table.size();
        spareTable.swap(kept.front().table);
        kept.erase(kept.begin());
    }
}

void KynJumpTables::clear() {
    kept.clear();
    entries = 0;
    spareTable = std::vector<int64_t>();
}

}  // namespace Kyn
