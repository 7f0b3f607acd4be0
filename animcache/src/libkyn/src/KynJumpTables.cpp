#include "KynJumpTables.h"

#include <utility>

namespace Kyn {

bool KynJumpTables::take(int64_t offset, std::vector<int64_t>& table) {
    for (auto it = kept.begin(); it != kept.end(); ++it) {
        if (it->offset != offset) continue;
        entries -= it->table.size();
        table.swap(it->table);
        kept.erase(it);
        return true;
    }
    return false;
}

bool KynJumpTables::holds(int64_t offset) const {
    for (const Kept& k : kept)
        if (k.offset == offset) return true;
    return false;
}

void KynJumpTables::keep(int64_t offset, std::vector<int64_t>& table) {
    entries += table.size();
    kept.push_back(Kept{offset, std::move(table)});
    table.clear();
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
