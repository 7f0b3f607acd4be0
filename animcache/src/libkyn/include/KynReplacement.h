// KynReplacement: a whole file written beside its target and put in its place only once it is
// complete and on the disk, so that a crash leaves the old file or the new one, never a cut
// one. Shared by the safe rewrite of KynRwMemCache, recovery, stitching and the importers; a
// host writing a whole file of its own can use it too: write to path(), then commit.
//
// The new file is "<target>.partial-<host>-<pid>-<n>", in the target's directory (a rename
// does not cross filesystems). A process that dies while writing leaves it there; it is never
// read. A later replacement of the same target on the same host removes those of processes
// that no longer run there.
#ifndef KYN_REPLACEMENT_H
#define KYN_REPLACEMENT_H

#include <string>

#include "KynFile.h"

namespace Kyn {

class KynReplacement {
  public:
    explicit KynReplacement(const std::string& target);
    // Removes the new file unless it was committed.
    ~KynReplacement();
    KynReplacement(const KynReplacement&) = delete;
    KynReplacement& operator=(const KynReplacement&) = delete;

    const std::string& path() const { return temporary; }
    // Puts the new file in place: `written`, open on path(), is flushed to disk (fsync) and
    // closed; the new file takes the permission bits of the target, if there is one; it is
    // renamed over the target; the directory is flushed to disk. False when a step fails; the
    // target is then the old file, unless only the last step failed.
    bool commit(KynFile& written);

  private:
    void removeStale() const;

    std::string target;
    std::string prefix;  // of the names of new files of this target on this host
    std::string temporary;
    bool committed = false;
};

}  // namespace Kyn

#endif
