// Bounds of an object at one sample: a stored "BBOX" wins, else the box of its "POSI".
//
// Stored BBOX orders differ by element type:
//   float  BBOX := xmin xmax ymin ymax zmin zmax
//   double BBOX := xmin ymin zmin xmax ymax zmax
// and the caller picks either order for the result with `cornerOrder`.
#include "KynHelper.h"
#include "KynHelperDetail.h"

namespace Kyn {

using helperDetail::positionDimension;
using helperDetail::stateOf;

namespace {

constexpr int kBoxSize = 6;

// Result positions of each bound for the two corner orders.
struct BoxLayout {
    int xMin, xMax, yMin, yMax, zMin, zMax;
};
constexpr BoxLayout kCornersFirst{0, 3, 1, 4, 2, 5};  // cornerOrder true
constexpr BoxLayout kAxesFirst{0, 1, 2, 3, 4, 5};     // cornerOrder false

// Copies a stored box, taking element j from stored position `from[j]` (or j itself with no
// permutation) for as many values as are stored, never more than six.
template <class S>
void copyBox(const std::vector<S>& stored, const int* from, float (&bounds)[6]) {
    for (int j = 0; j < kBoxSize; ++j) {
        const std::size_t source = static_cast<std::size_t>(from ? from[j] : j);
        if (source >= stored.size()) {
            if (from) return;  // a permuting copy stops at the first value it lacks
            continue;
        }
        bounds[j] = static_cast<float>(stored[source]);
    }
}

template <class S>
void foldInto(float& low, float& high, S value) {
    if (static_cast<S>(low) > value)
        low = static_cast<float>(value);
    else if (value > static_cast<S>(high))
        high = static_cast<float>(value);
}

// The box of the x, y, z of every tuple; the fourth scalar of a 4-tuple plays no part.
template <class S>
void boxOfPoints(const std::vector<S>& scalars, int dimension, const BoxLayout& at,
                 float (&bounds)[6]) {
    const std::size_t n = scalars.size();
    if (n < 3) return;
    bounds[at.xMin] = bounds[at.xMax] = static_cast<float>(scalars[0]);
    bounds[at.yMin] = bounds[at.yMax] = static_cast<float>(scalars[1]);
    bounds[at.zMin] = bounds[at.zMax] = static_cast<float>(scalars[2]);
    const std::size_t step = static_cast<std::size_t>(dimension);
    // A trailing partial tuple without all of x, y and z is left out.
    for (std::size_t i = step; i + 2 < n; i += step) {
        foldInto(bounds[at.xMin], bounds[at.xMax], scalars[i]);
        foldInto(bounds[at.yMin], bounds[at.yMax], scalars[i + 1]);
        foldInto(bounds[at.zMin], bounds[at.zMax], scalars[i + 2]);
    }
}

}  // namespace

bool KynHelperObj::getBounds(int sampleIndex, float (&bounds)[6], AnimationState& state,
                             bool cornerOrder) {
    static const int kFloatToCorners[kBoxSize] = {0, 2, 4, 1, 3, 5};
    static const int kDoubleToAxes[kBoxSize] = {0, 3, 1, 4, 2, 5};

    bool animated = false;
    const KynChunk* box = cache->getObjectData(sampleIndex, objectIndex, kTagBBOX, &animated);
    if (box != nullptr) {
        state = stateOf(animated);
        const std::vector<float>* floats = nullptr;
        const std::vector<double>* doubles = nullptr;
        if (getKynLeafData(box, floats))
            copyBox(*floats, cornerOrder ? kFloatToCorners : nullptr, bounds);
        else if (getKynLeafData(box, doubles))
            copyBox(*doubles, cornerOrder ? nullptr : kDoubleToAxes, bounds);
        else
            return false;
        return true;
    }

    const KynChunk* points = cache->getObjectData(sampleIndex, objectIndex, kTagPOSI, &animated);
    state = stateOf(animated);
    if (points == nullptr) return false;
    const int dimension = positionDimension(*this, points);
    const BoxLayout& layout = cornerOrder ? kCornersFirst : kAxesFirst;
    const std::vector<float>* floats = nullptr;
    const std::vector<double>* doubles = nullptr;
    if (getKynLeafData(points, floats))
        boxOfPoints(*floats, dimension, layout, bounds);
    else if (getKynLeafData(points, doubles))
        boxOfPoints(*doubles, dimension, layout, bounds);
    else
        return false;
    return true;
}

bool KynHelperObj::getBounds(int sampleIndex, std::vector<float>& bounds, AnimationState& state,
                             bool cornerOrder) {
    // Zero-filled, so that a result that wrote nothing (an empty POSI) copies zeros.
    float box[kBoxSize] = {};
    const bool found = getBounds(sampleIndex, box, state, cornerOrder);
    bounds.assign(box, box + kBoxSize);
    return found;
}

}  // namespace Kyn
