// Deep copy of a typed leaf under another tag. Private to the library.
#ifndef KYN_CHUNKS_COPY_H
#define KYN_CHUNKS_COPY_H

#include "KynChunks.h"

namespace Kyn {

// A new leaf of the same element type, compound, dimension and data as `source`, tagged `tag`,
// with its length computed; null when `source` is null or no leaf of types 2 to 6.
KynChunk* copyLeafAs(const KynChunk* source, unsigned tag);

}  // namespace Kyn

#endif
