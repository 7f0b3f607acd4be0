// A hard limit on single allocations for the tests of damaged files: any request above
// kAllocationLimit stops the process with a message that names what was being examined. It
// aborts rather than throws, because a stream swallows the exception of its buffer and a runaway
// dump would then go on. A test binary gets the guard by calling setAllocationContext.
#ifndef KYN_ALLOCATION_GUARD_H
#define KYN_ALLOCATION_GUARD_H

#include <cstddef>

namespace kyntest_support {

constexpr std::size_t kAllocationLimit = std::size_t(64) << 20;

// Names the damage under examination; `what` must outlive the examination. Null for none.
void setAllocationContext(const char* what);

}  // namespace kyntest_support

#endif
