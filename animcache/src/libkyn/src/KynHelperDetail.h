// Rules shared by the object view sources; not part of the public interface.
#ifndef KYN_HELPER_DETAIL_H
#define KYN_HELPER_DETAIL_H

#include <vector>

#include "KynHelper.h"

namespace Kyn {
namespace helperDetail {

// Position-like tuples have 3 or 4 scalars; any other dimension code reads as 3.
inline int positionDimension(const KynHelperObj& view, const KynChunk* chunk) {
    const int dimension = view.getDimension(chunk);
    return dimension == 3 || dimension == 4 ? dimension : 3;
}

inline KynHelperObj::AnimationState stateOf(bool animated) {
    return animated ? KynHelperObj::kAnimated : KynHelperObj::kStatic;
}

// Resizes `out` to the length of `source` and converts every element.
template <class T, class S>
void convertInto(const std::vector<S>& source, std::vector<T>& out) {
    out.resize(source.size());
    for (std::size_t i = 0; i < source.size(); ++i) out[i] = static_cast<T>(source[i]);
}

}  // namespace helperDetail
}  // namespace Kyn

#endif
