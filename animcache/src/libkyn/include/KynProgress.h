// KynProgress: how long work tells its caller how far it has come.
//
// Operations that read or write a whole file (checking, recovering, stitching) take an optional
// callback and call it now and then, from the calling thread, with the work done so far and
// the whole, in a unit each operation names (samples, bytes). The last call, if any, has `done`
// equal to `total`. The callback must not use the objects that the operation is working on.
#ifndef KYN_PROGRESS_H
#define KYN_PROGRESS_H

#include <cstdint>
#include <functional>

namespace Kyn {

using KynProgress = std::function<void(int64_t done, int64_t total)>;

}  // namespace Kyn

#endif
