// KynJumpTables: the "JOBJ" tables of samples read before, kept aside by KynCache. Private to
// the library.
//
// A cache holds the table of one sample in its public `objectJumps`. When a read moves on to
// another sample, the table it held is kept here under the file offset of its "SAMP", so that
// reads that go back and forth between samples (a blend at a time, a walk over many objects at
// two samples) take each table from the file once. A kept table is exactly what the file holds
// as long as the file is not rewritten, and it is found by the offset of its "SAMP", so moving
// samples in memory cannot mislead it. KynCache forgets them all whenever it holds no table
// (`jumpSample` -1), as load, reset and every save leave it.
//
// At most kMaxTables tables and kMaxEntries entries are kept; the least recently used go first.
#ifndef KYN_JUMP_TABLES_H
#define KYN_JUMP_TABLES_H

#include <cstddef>
#include <cstdint>
#include <vector>

namespace Kyn {

class KynJumpTables {
  public:
    static constexpr std::size_t kMaxTables = 64;
    static constexpr std::size_t kMaxEntries = std::size_t(1) << 22;  // 32 MB of offsets

    // Moves the table kept for `offset` into `table` and forgets it there; false when none is.
    bool take(int64_t offset, std::vector<int64_t>& table);
    // Keeps `table` under `offset`, leaving `table` empty.
    void keep(int64_t offset, std::vector<int64_t>& table);
    // take(offset, ...) followed by keep(heldOffset, ...) of what `table` held, in one step:
    // `table` and the table kept for `offset` change places, so that a reader going back and
    // forth between two samples moves no table. False, with nothing changed, when none is kept.
    bool exchange(int64_t offset, int64_t heldOffset, std::vector<int64_t>& table);
    bool holds(int64_t offset) const;
    void clear();
    // Storage to read the next table into: the last evicted table's, so that a read that
    // replaces a kept table allocates nothing.
    std::vector<int64_t>& spare() { return spareTable; }

  private:
    struct Kept {
        int64_t offset;
        std::vector<int64_t> table;
    };

    std::size_t indexOf(int64_t offset) const;  // kept.size() when none is kept there
    void dropOverBound();                       // the least recently used go first

    std::vector<Kept> kept;  // least recently used first
    std::size_t entries = 0;
    std::vector<int64_t> spareTable;
};

}  // namespace Kyn

#endif
