// NURBS surface and curve views: the full control net (or polygon) rebuilt from the distinct
// vertices that a file stores, the knots with or without their two end knots, and per-vertex
// attributes put in the order of the net.
//
// What a surface object carries, each tag static or per sample:
//   DEGR := int32 degU, degV          FORM := cstr formU, formV ("kPeriodic" or any other text)
//   KNTU, KNTV := float or double knots without the two end knots, both of one type
//   POSI := float x, y, z per distinct vertex, V fastest: vertex (u, v) at v + u * distinctV
// A direction with K knots of degree d has K - d + 1 vertices; a periodic one stores d fewer and
// the net repeats its first d rows at the end. A curve reads the first DEGR and FORM values and
// KNTU alone. Handed-out vertices are x, y, z, 1.
#include <algorithm>
#include <climits>
#include <cstdint>

#include "KynHelper.h"
#include "KynHelperDetail.h"

namespace Kyn {

using helperDetail::convertInto;
using helperDetail::stateOf;

namespace {

const char* const kPeriodic = "kPeriodic";

// Hosts address nets with int, so a net whose scalar count would not fit one is refused; this
// also bounds what a damaged degree can make a periodic net grow to.
constexpr int64_t kMaxNetVertices = INT_MAX / 4;

bool isBlendOrder(int order) {
    return order >= 1 && order <= 3;
}

// The vertex counts of one direction of a net.
struct NetDirection {
    NetDirection(int64_t knots, int64_t degree, bool periodic)
        : count(knots - degree + 1), distinct(periodic ? count - degree : count) {}

    // The stored position of net position `at`: positions at or past `distinct` wrap by the
    // remainder, the periodic repeats to the first rows (a negative `distinct` wraps them all).
    int64_t wrap(int64_t at) const { return at >= distinct ? at % distinct : at; }
    // How many stored positions the wrapped positions 0 .. count - 1 reach, from 0 on.
    int64_t reach() const { return std::min(count, distinct < 0 ? -distinct : distinct); }

    int64_t count;
    int64_t distinct;
};

// Element count of a float or double knot chunk; 0 for a missing chunk or another type.
int knotCount(const KynHelperObj& view, const KynChunk* chunk) {
    std::size_t count = 0;
    const std::vector<double>* doubles = nullptr;
    const std::vector<float>* floats = nullptr;
    if (view.getKynLeafData(chunk, doubles))
        count = doubles->size();
    else if (view.getKynLeafData(chunk, floats))
        count = floats->size();
    return static_cast<int>(std::min<std::size_t>(count, INT_MAX));
}

// The knots of `chunk` stored as S, or null. With end knots to add, an empty vector has no first
// knot to repeat and is refused as well.
template <class S>
const std::vector<S>* storedKnots(const KynHelperObj& view, const KynChunk* chunk,
                                  bool addEndKnots) {
    const std::vector<S>* knots = nullptr;
    if (!view.getKynLeafData(chunk, knots) || (addEndKnots && knots->empty())) return nullptr;
    return knots;
}

// `out` takes the stored knots, framed by a repeat of the first and of the last on request.
template <class T, class S>
void copyKnots(const std::vector<S>& stored, bool addEndKnots, std::vector<T>& out) {
    if (!addEndKnots) {
        convertInto(stored, out);
        return;
    }
    out.resize(stored.size() + 2);
    out.front() = static_cast<T>(stored.front());
    for (std::size_t i = 0; i < stored.size(); ++i) out[i + 1] = static_cast<T>(stored[i]);
    out.back() = static_cast<T>(stored.back());
}

// Both knot vectors of a surface as S; neither output is written unless both read.
template <class T, class S>
bool copySurfaceKnots(const KynHelperObj& view, const KynChunk* chunkU, const KynChunk* chunkV,
                      bool addEndKnots, std::vector<T>& knotsU, std::vector<T>& knotsV) {
    const std::vector<S>* storedU = storedKnots<S>(view, chunkU, addEndKnots);
    const std::vector<S>* storedV = storedKnots<S>(view, chunkV, addEndKnots);
    if (storedU == nullptr || storedV == nullptr) return false;
    copyKnots(*storedU, addEndKnots, knotsU);
    copyKnots(*storedV, addEndKnots, knotsV);
    return true;
}

template <class T>
bool readSurfaceKnots(KynHelperObj& view, int sampleIndex, std::vector<T>& knotsU,
                      std::vector<T>& knotsV, KynHelperObj::AnimationState& state,
                      bool addEndKnots) {
    state = KynHelperObj::kStatic;
    // One flag for both lookups: the state reported is that of KNTV.
    bool animated = false;
    const KynChunk* chunkU =
        view.cache->getObjectData(sampleIndex, view.objectIndex, kTagKNTU, &animated);
    const KynChunk* chunkV =
        view.cache->getObjectData(sampleIndex, view.objectIndex, kTagKNTV, &animated);
    if (chunkU == nullptr || chunkV == nullptr) return false;
    state = stateOf(animated);
    // Float knots honour the request; double knots always get their end knots.
    if (chunkU->header.type == kTypeFloat)
        return copySurfaceKnots<T, float>(view, chunkU, chunkV, addEndKnots, knotsU, knotsV);
    if (chunkU->header.type == kTypeDouble)
        return copySurfaceKnots<T, double>(view, chunkU, chunkV, true, knotsU, knotsV);
    return false;
}

template <class T>
bool readCurveKnots(KynHelperObj& view, int sampleIndex, std::vector<T>& knots,
                    KynHelperObj::AnimationState& state, bool addEndKnots) {
    state = KynHelperObj::kStatic;
    bool animated = false;
    const KynChunk* chunk =
        view.cache->getObjectData(sampleIndex, view.objectIndex, kTagKNTU, &animated);
    if (chunk == nullptr) return false;
    state = stateOf(animated);
    if (const std::vector<double>* doubles = storedKnots<double>(view, chunk, addEndKnots)) {
        copyKnots(*doubles, addEndKnots, knots);
        return true;
    }
    if (const std::vector<float>* floats = storedKnots<float>(view, chunk, addEndKnots)) {
        copyKnots(*floats, addEndKnots, knots);
        return true;
    }
    return false;
}

// A surface's DEGR or FORM leaf. `state` is written only when the leaf reads.
template <class T>
const std::vector<T>* readSurfaceLeaf(KynHelperObj& view, int sampleIndex, unsigned tag,
                                      KynHelperObj::AnimationState& state) {
    state = KynHelperObj::kStatic;
    bool animated = false;
    const std::vector<T>* data = nullptr;
    if (!view.getKynLeafData(
            view.cache->getObjectData(sampleIndex, view.objectIndex, tag, &animated), data))
        return nullptr;
    state = stateOf(animated);
    return data;
}

// The first value of a curve's DEGR or FORM. `state` is written as soon as the chunk is found,
// before its type is checked.
template <class T>
bool readCurveFirst(KynHelperObj& view, int sampleIndex, unsigned tag, T& value,
                    KynHelperObj::AnimationState& state) {
    state = KynHelperObj::kStatic;
    bool animated = false;
    const KynChunk* chunk =
        view.cache->getObjectData(sampleIndex, view.objectIndex, tag, &animated);
    if (chunk == nullptr) return false;
    state = stateOf(animated);
    const std::vector<T>* data = nullptr;
    if (!view.getKynLeafData(chunk, data) || data->empty()) return false;
    value = data->front();
    return true;
}

// The stored distinct vertices: POSI of float type only, also when a double net is asked for.
const std::vector<float>* storedVertices(KynHelperObj& view, int sampleIndex, bool& animated) {
    animated = false;
    const std::vector<float>* posi = nullptr;
    view.getKynLeafData(
        view.cache->getObjectData(sampleIndex, view.objectIndex, kTagPOSI, &animated), posi);
    return posi;
}

// The number of whole x, y, z vertices that POSI holds.
int64_t storedVertexCount(const std::vector<float>& posi) {
    return static_cast<int64_t>(posi.size() / 3);
}

// numU * numV of two directions of no negative count, or -1 when it exceeds `limit`; taken
// without overflow, whatever counts a damaged file makes up.
int64_t netVertices(const NetDirection& u, const NetDirection& v, int64_t limit) {
    if (u.count == 0 || v.count == 0) return 0;
    return u.count <= limit / v.count ? u.count * v.count : -1;
}
// Whether POSI holds every stored vertex that a net of positive counts and distinct counts
// reaches: the last is (reach of V - 1) + (reach of U - 1) * distinctV.
bool holdsReached(const NetDirection& u, const NetDirection& v, const std::vector<float>& posi) {
    const int64_t lastU = u.reach() - 1;
    const int64_t lastV = v.reach() - 1;
    const int64_t stored = storedVertexCount(posi);
    return lastV < stored && lastU <= (stored - 1 - lastV) / v.distinct;
}

// Writes stored vertex `source` with a weight of 1 to net position `at`.
template <class T>
void putVertex(const std::vector<float>& posi, int64_t source, int64_t at, std::vector<T>& out) {
    const std::size_t from = static_cast<std::size_t>(source) * 3;
    const std::size_t to = static_cast<std::size_t>(at) * 4;
    out[to] = static_cast<T>(posi[from]);
    out[to + 1] = static_cast<T>(posi[from + 1]);
    out[to + 2] = static_cast<T>(posi[from + 2]);
    out[to + 3] = T(1);
}

// Moves the `numU` * `numV` vectors of `width` scalars of V-fastest `data` to U-fastest order in
// `out`, converting each scalar. Scalars past the last whole vector are not written.
template <class S, class D>
void transposeInto(const std::vector<S>& data, int64_t width, int64_t numU, int64_t numV,
                   std::vector<D>& out) {
    out.resize(data.size());
    for (int64_t i = 0; i < numU * numV; ++i) {
        const std::size_t from = static_cast<std::size_t>(((i % numU) * numV + i / numU) * width);
        const std::size_t to = static_cast<std::size_t>(i * width);
        for (std::size_t k = 0; k < static_cast<std::size_t>(width); ++k)
            out[to + k] = static_cast<D>(data[from + k]);
    }
}

// One net per picked sample, held locally since nets are rebuilt on every read.
template <class T>
struct PickedNets {
    explicit PickedNets(int count)
        : nets(static_cast<std::size_t>(count)), pointers(static_cast<std::size_t>(count)) {
        for (std::size_t k = 0; k < nets.size(); ++k) pointers[k] = &nets[k];
    }
    std::vector<T>& at(int k) { return nets[static_cast<std::size_t>(k)]; }

    std::vector<std::vector<T>> nets;  // sized once, so the pointers stay valid
    std::vector<const std::vector<T>*> pointers;
};

// The requested attribute type first, then its sibling; what is found is put in net order.
template <class D, class First, class Second>
bool readFamilyAttr(NurbsSurfaceKynObj& view, int sampleIndex, int attrIndex, std::vector<D>& out,
                    int& dimension, bool reorder) {
    const std::vector<First>* first = nullptr;
    if (view.getAttrData(sampleIndex, attrIndex, first, dimension))
        return view.reorderAttr(sampleIndex, first, out, dimension, reorder);
    const std::vector<Second>* second = nullptr;
    if (view.getAttrData(sampleIndex, attrIndex, second, dimension))
        return view.reorderAttr(sampleIndex, second, out, dimension, reorder);
    return false;
}

// The reference pose, double storage first; transposed by the static topology (sample -1).
template <class T>
bool readPrefNet(NurbsSurfaceKynObj& view, std::vector<T>& out, bool reorder) {
    int dimension = 0;
    const std::vector<double>* doubles = nullptr;
    if (view.getPrefData(doubles, dimension))
        return view.reorderAttr(-1, doubles, out, dimension, reorder);
    const std::vector<float>* floats = nullptr;
    if (view.getPrefData(floats, dimension))
        return view.reorderAttr(-1, floats, out, dimension, reorder);
    return false;
}

}  // namespace

int NurbsSurfaceKynObj::getNumKnotUData(int sampleIndex) {
    return knotCount(*this, cache->getObjectData(sampleIndex, objectIndex, kTagKNTU, nullptr));
}

int NurbsSurfaceKynObj::getNumKnotVData(int sampleIndex) {
    return knotCount(*this, cache->getObjectData(sampleIndex, objectIndex, kTagKNTV, nullptr));
}

bool NurbsSurfaceKynObj::getDegree(int sampleIndex, int& degU, int& degV, AnimationState& state) {
    degU = 0;
    degV = 0;
    const std::vector<int>* degrees = readSurfaceLeaf<int>(*this, sampleIndex, kTagDEGR, state);
    if (degrees == nullptr) return false;
    // A short DEGR is not an error: both degrees stay 0.
    if (degrees->size() >= 2) {
        degU = (*degrees)[0];
        degV = (*degrees)[1];
    }
    return true;
}

bool NurbsSurfaceKynObj::getForm(int sampleIndex, std::string& formU, std::string& formV,
                                 AnimationState& state) {
    const std::vector<std::string>* forms =
        readSurfaceLeaf<std::string>(*this, sampleIndex, kTagFORM, state);
    if (forms == nullptr) return false;
    // A short FORM is not an error: both forms keep what they held.
    if (forms->size() >= 2) {
        formU = (*forms)[0];
        formV = (*forms)[1];
    }
    return true;
}

bool NurbsSurfaceKynObj::getKnots(int sampleIndex, std::vector<float>& knotsU,
                                  std::vector<float>& knotsV, AnimationState& state,
                                  bool addEndKnots) {
    return readSurfaceKnots(*this, sampleIndex, knotsU, knotsV, state, addEndKnots);
}

bool NurbsSurfaceKynObj::getKnots(int sampleIndex, std::vector<double>& knotsU,
                                  std::vector<double>& knotsV, AnimationState& state,
                                  bool addEndKnots) {
    return readSurfaceKnots(*this, sampleIndex, knotsU, knotsV, state, addEndKnots);
}

template <class T>
bool NurbsSurfaceKynObj::getCPData(int sampleIndex, std::vector<T>& out, AnimationState& state,
                                   bool reorder) {
    state = kStatic;
    AnimationState ignored = kStatic;
    std::string formU;
    std::string formV;
    if (!getForm(sampleIndex, formU, formV, ignored)) return false;
    int degU = 0;
    int degV = 0;
    if (!getDegree(sampleIndex, degU, degV, ignored)) return false;
    const int knotsU = getNumKnotUData(sampleIndex);
    const int knotsV = getNumKnotVData(sampleIndex);
    if (knotsU == 0 || knotsV == 0) return false;
    bool animated = false;
    const std::vector<float>* posi = storedVertices(*this, sampleIndex, animated);
    if (posi == nullptr) return false;

    const NetDirection u(knotsU, degU, formU == kPeriodic);
    const NetDirection v(knotsV, degV, formV == kPeriodic);
    // A direction without vertices makes an empty net. Otherwise a negative count has no net,
    // and a periodic direction needs distinct vertices to repeat.
    int64_t vertices = 0;
    if (u.count != 0 && v.count != 0) {
        if (u.count < 0 || v.count < 0 || u.distinct <= 0 || v.distinct <= 0) return false;
        vertices = netVertices(u, v, kMaxNetVertices);
        if (vertices < 0 || !holdsReached(u, v, *posi)) return false;
    }
    state = stateOf(animated);
    out.resize(static_cast<std::size_t>(vertices) * 4);
    for (int64_t i = 0; i < vertices; ++i) {
        // Stored order runs V fastest; `reorder` hands the net out with U fastest.
        const int64_t atU = reorder ? i % u.count : i / v.count;
        const int64_t atV = reorder ? i / u.count : i % v.count;
        putVertex(*posi, v.wrap(atV) + u.wrap(atU) * v.distinct, i, out);
    }
    return true;
}

template <class T>
bool NurbsSurfaceKynObj::getCPDataAtTime(float time, KynInterpolationHints& hints,
                                         std::vector<T>& out, AnimationState& state, bool reorder) {
    std::vector<int> indices;
    std::vector<float> times;
    const bool blend = getEvalTimeAndSampleIndices(time, hints, indices, times);
    const int order = hints.order;
    if (!blend || !isBlendOrder(order)) return getCPData(indices[0], out, state, reorder);
    PickedNets<T> picked(order + 1);
    for (int k = 0; k <= order; ++k)
        if (!getCPData(indices[static_cast<std::size_t>(k)], picked.at(k), state, reorder))
            return false;
    if (blendSamples(order, blendFraction(time, order, times), picked.pointers, out)) return true;
    state = kStatic;
    return false;
}

bool NurbsSurfaceKynObj::getControlPoints(int sampleIndex, std::vector<float>& out,
                                          AnimationState& state, bool reorder) {
    return getCPData(sampleIndex, out, state, reorder);
}

bool NurbsSurfaceKynObj::getControlPoints(int sampleIndex, std::vector<double>& out,
                                          AnimationState& state, bool reorder) {
    return getCPData(sampleIndex, out, state, reorder);
}

bool NurbsSurfaceKynObj::getControlPointsAtTime(float time, KynInterpolationHints& hints,
                                                std::vector<float>& out, AnimationState& state,
                                                bool reorder) {
    return getCPDataAtTime(time, hints, out, state, reorder);
}

bool NurbsSurfaceKynObj::getControlPointsAtTime(float time, KynInterpolationHints& hints,
                                                std::vector<double>& out, AnimationState& state,
                                                bool reorder) {
    return getCPDataAtTime(time, hints, out, state, reorder);
}

bool NurbsSurfaceKynObj::getPrefControlPoints(std::vector<float>& out, bool reorder) {
    return readPrefNet(*this, out, reorder);
}

bool NurbsSurfaceKynObj::getPrefControlPoints(std::vector<double>& out, bool reorder) {
    return readPrefNet(*this, out, reorder);
}

bool NurbsSurfaceKynObj::getAttr(int sampleIndex, int attrIndex, std::vector<float>& out,
                                 int& dimension, bool reorder) {
    return readFamilyAttr<float, float, double>(*this, sampleIndex, attrIndex, out, dimension,
                                                reorder);
}

bool NurbsSurfaceKynObj::getAttr(int sampleIndex, int attrIndex, std::vector<double>& out,
                                 int& dimension, bool reorder) {
    return readFamilyAttr<double, double, float>(*this, sampleIndex, attrIndex, out, dimension,
                                                 reorder);
}

bool NurbsSurfaceKynObj::getAttr(int sampleIndex, int attrIndex, std::vector<int>& out,
                                 int& dimension, bool reorder) {
    return readFamilyAttr<int, int, long>(*this, sampleIndex, attrIndex, out, dimension, reorder);
}

bool NurbsSurfaceKynObj::getAttr(int sampleIndex, int attrIndex, std::vector<long>& out,
                                 int& dimension, bool reorder) {
    return readFamilyAttr<long, long, int>(*this, sampleIndex, attrIndex, out, dimension, reorder);
}

bool NurbsSurfaceKynObj::getAttr(int sampleIndex, int attrIndex, std::vector<std::string>& out,
                                 bool reorder) {
    const std::vector<std::string>* data = nullptr;
    if (!getAttrData(sampleIndex, attrIndex, data)) return false;
    int dimension = 1;
    return reorderAttr(sampleIndex, data, out, dimension, reorder);
}

template <class S, class D>
bool NurbsSurfaceKynObj::reorderAttr(int sampleIndex, const std::vector<S>*& data,
                                     std::vector<D>& out, int& dimension, bool reorder) {
    if (data == nullptr) return false;
    if (reorder) {
        int degU = 0;
        int degV = 0;
        AnimationState ignored = kStatic;
        if (!getDegree(sampleIndex, degU, degV, ignored)) return false;
        const int knotsU = getNumKnotUData(sampleIndex);
        const int knotsV = getNumKnotVData(sampleIndex);
        if (knotsU == 0 || knotsV == 0) return false;
        // Full counts, forms unread: data of one value per distinct vertex of a periodic
        // surface does not match and is handed over as stored, as is any other mismatch. So
        // is data under a dimension of 0, which holds no whole vector, or under a negative
        // count, whose transposition would index before the data.
        const NetDirection u(knotsU, degU, false);
        const NetDirection v(knotsV, degV, false);
        const int64_t width = dimension;
        if (width > 0 && u.count >= 0 && v.count >= 0) {
            const int64_t count = static_cast<int64_t>(data->size()) / width;
            if (count == netVertices(u, v, count)) {
                transposeInto(*data, width, u.count, v.count, out);
                return true;
            }
        }
    }
    convertInto(*data, out);
    return true;
}

template bool NurbsSurfaceKynObj::getCPData(int, std::vector<float>&, AnimationState&, bool);
template bool NurbsSurfaceKynObj::getCPData(int, std::vector<double>&, AnimationState&, bool);
template bool NurbsSurfaceKynObj::getCPDataAtTime(float, KynInterpolationHints&,
                                                  std::vector<float>&, AnimationState&, bool);
template bool NurbsSurfaceKynObj::getCPDataAtTime(float, KynInterpolationHints&,
                                                  std::vector<double>&, AnimationState&, bool);
template bool NurbsSurfaceKynObj::reorderAttr(int, const std::vector<float>*&, std::vector<float>&,
                                              int&, bool);
template bool NurbsSurfaceKynObj::reorderAttr(int, const std::vector<double>*&, std::vector<float>&,
                                              int&, bool);
template bool NurbsSurfaceKynObj::reorderAttr(int, const std::vector<double>*&,
                                              std::vector<double>&, int&, bool);
template bool NurbsSurfaceKynObj::reorderAttr(int, const std::vector<float>*&, std::vector<double>&,
                                              int&, bool);
template bool NurbsSurfaceKynObj::reorderAttr(int, const std::vector<long>*&, std::vector<int>&,
                                              int&, bool);
template bool NurbsSurfaceKynObj::reorderAttr(int, const std::vector<int>*&, std::vector<long>&,
                                              int&, bool);
template bool NurbsSurfaceKynObj::reorderAttr(int, const std::vector<std::string>*&,
                                              std::vector<std::string>&, int&, bool);

bool NurbsCurveKynObj::getDegree(int sampleIndex, int& degree, AnimationState& state) {
    return readCurveFirst(*this, sampleIndex, kTagDEGR, degree, state);
}

bool NurbsCurveKynObj::getForm(int sampleIndex, std::string& form, AnimationState& state) {
    return readCurveFirst(*this, sampleIndex, kTagFORM, form, state);
}

bool NurbsCurveKynObj::getKnots(int sampleIndex, std::vector<float>& knots, AnimationState& state,
                                bool addEndKnots) {
    return readCurveKnots(*this, sampleIndex, knots, state, addEndKnots);
}

bool NurbsCurveKynObj::getKnots(int sampleIndex, std::vector<double>& knots, AnimationState& state,
                                bool addEndKnots) {
    return readCurveKnots(*this, sampleIndex, knots, state, addEndKnots);
}

template <class T>
bool NurbsCurveKynObj::getCPData(int sampleIndex, std::vector<T>& out, AnimationState& state) {
    state = kStatic;
    AnimationState ignored = kStatic;
    int degree = 0;
    if (!getDegree(sampleIndex, degree, ignored)) return false;
    std::string form;
    if (!getForm(sampleIndex, form, ignored)) return false;
    // Knots of another type count as none.
    const KynChunk* knots = cache->getObjectData(sampleIndex, objectIndex, kTagKNTU, nullptr);
    if (knots == nullptr) return false;
    bool animated = false;
    const std::vector<float>* posi = storedVertices(*this, sampleIndex, animated);
    if (posi == nullptr) return false;

    // No vertex makes an empty polygon. A negative count has none, a periodic count of no
    // distinct vertex has nothing to repeat; every vertex reached must be stored.
    const NetDirection cvs(knotCount(*this, knots), degree, form == kPeriodic);
    if (cvs.count < 0) return false;
    if (cvs.count > 0 && (cvs.distinct == 0 || cvs.reach() > storedVertexCount(*posi) ||
                          cvs.count > kMaxNetVertices))
        return false;
    // Only the flag of POSI counts.
    state = stateOf(animated);
    out.resize(static_cast<std::size_t>(cvs.count) * 4);
    for (int64_t i = 0; i < cvs.count; ++i) putVertex(*posi, cvs.wrap(i), i, out);
    return true;
}

template <class T>
bool NurbsCurveKynObj::getCPDataAtTime(float time, KynInterpolationHints& hints,
                                       std::vector<T>& out, AnimationState& state) {
    std::vector<int> indices;
    std::vector<float> times;
    const bool blend = getEvalTimeAndSampleIndices(time, hints, indices, times);
    const int order = hints.order;
    if (!blend || !isBlendOrder(order)) return getCPData(indices[0], out, state);
    PickedNets<T> picked(order + 1);
    for (int k = 0; k <= order; ++k)
        if (!getCPData(indices[static_cast<std::size_t>(k)], picked.at(k), state)) return false;
    if (blendSamples(order, blendFraction(time, order, times), picked.pointers, out)) return true;
    state = kStatic;
    return false;
}

bool NurbsCurveKynObj::getControlPoints(int sampleIndex, std::vector<float>& out,
                                        AnimationState& state) {
    return getCPData(sampleIndex, out, state);
}

bool NurbsCurveKynObj::getControlPoints(int sampleIndex, std::vector<double>& out,
                                        AnimationState& state) {
    return getCPData(sampleIndex, out, state);
}

bool NurbsCurveKynObj::getControlPointsAtTime(float time, KynInterpolationHints& hints,
                                              std::vector<float>& out, AnimationState& state) {
    return getCPDataAtTime(time, hints, out, state);
}

bool NurbsCurveKynObj::getControlPointsAtTime(float time, KynInterpolationHints& hints,
                                              std::vector<double>& out, AnimationState& state) {
    return getCPDataAtTime(time, hints, out, state);
}

template bool NurbsCurveKynObj::getCPData(int, std::vector<float>&, AnimationState&);
template bool NurbsCurveKynObj::getCPData(int, std::vector<double>&, AnimationState&);
template bool NurbsCurveKynObj::getCPDataAtTime(float, KynInterpolationHints&, std::vector<float>&,
                                                AnimationState&);
template bool NurbsCurveKynObj::getCPDataAtTime(float, KynInterpolationHints&, std::vector<double>&,
                                                AnimationState&);

}  // namespace Kyn
