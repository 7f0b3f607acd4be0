// Transform views: the stored matrix of a transform at a sample, and its matrix at any time.
//
// What a transform object carries:
//   "XFRM"    any chunk; only its presence counts: it makes the object a transform
//   "MTRX"    16 float or double values, row-major, row vectors, translation in elements 12..14;
//             once in the metadata (static) or in every sample (animated)
//   "MTRO"    one int32, a rotate order 0..5 that overrides the "rotateOrder" channel
//   "INHT"    one int32, 0 when the transform does not inherit its parent's transform
//   channels  dynamic attributes named as the rows of DGTransform<T>::ParamName, each one float
//             or double value; rotations in degrees, except "rotateAxisY", which is in radians
//
// Linear evaluation takes the channel route when the object has data for any channel: each
// channel is interpolated as a plain number and DGTransform<T>::matrix() composes them. Without
// channels it takes the matrix route, which blends two stored matrices: the diagonal as scale,
// the upper 3x3 through quaternions, the translation row as numbers, composed as
// (scale * rotation) * translation. Quadratic evaluation (orders 2 and 3) always takes the
// matrix route through three samples. Neither route decomposes a matrix, so the cosines of a
// rotated sample's diagonal are applied once more as scale; that is the defined result.
#include <cstddef>
#include <cstdint>

#include "DGMath.h"
#include "DGTransform.h"
#include "KynHelper.h"
#include "KynHelperDetail.h"

namespace Kyn {

using helperDetail::stateOf;

namespace {

constexpr std::size_t kMatrixSize = 16;
// Channels 0..27 hold a value of T; 28 and 29 are the two orders, held as integers.
constexpr int kValueChannels = 28;
constexpr int kRotateOrderChannel = 28;
constexpr int kChannelCount = 30;

template <class T>
constexpr T kRadiansPerDegree = T(0.017453292519943295);

// rotateX, rotateY, rotateZ, rotateAxisX and rotateAxisZ are stored in degrees. rotateAxisY (16)
// is stored in the radians that matrix() takes, so it is not converted.
bool isDegreeChannel(int channel) {
    return channel == 3 || channel == 4 || channel == 5 || channel == 15 || channel == 17;
}

// The member of DGTransform<T> that holds value channel `channel` (0..27), in ParamName order.
template <class T>
T DGTransform<T>::*valueChannel(int channel) {
    using X = DGTransform<T>;
    static constexpr T X::*fields[kValueChannels] = {&X::translateX,
                                                     &X::translateY,
                                                     &X::translateZ,
                                                     &X::rotateX,
                                                     &X::rotateY,
                                                     &X::rotateZ,
                                                     &X::scaleX,
                                                     &X::scaleY,
                                                     &X::scaleZ,
                                                     &X::rotatePivotX,
                                                     &X::rotatePivotY,
                                                     &X::rotatePivotZ,
                                                     &X::rotatePivotTranslateX,
                                                     &X::rotatePivotTranslateY,
                                                     &X::rotatePivotTranslateZ,
                                                     &X::rotateAxisX,
                                                     &X::rotateAxisY,
                                                     &X::rotateAxisZ,
                                                     &X::uniformScale,
                                                     &X::shearXY,
                                                     &X::shearXZ,
                                                     &X::shearYZ,
                                                     &X::scalePivotX,
                                                     &X::scalePivotY,
                                                     &X::scalePivotZ,
                                                     &X::scalePivotTranslateX,
                                                     &X::scalePivotTranslateY,
                                                     &X::scalePivotTranslateZ};
    return fields[channel];
}

bool isOrder(int32_t order) {
    return static_cast<uint32_t>(order) <= 5u;
}

// Stores a channel value. The two orders take the value truncated toward zero when that lies in
// 0..5 and drop it otherwise; the range is tested before the conversion, so a NaN or a huge
// value is dropped without an out-of-range conversion.
template <class T>
void storeChannel(DGTransform<T>& transform, int channel, T value) {
    if (channel < kValueChannels) {
        transform.*valueChannel<T>(channel) = value;
        return;
    }
    if (!(value > T(-1) && value < T(6))) return;
    const int32_t order = static_cast<int32_t>(value);
    if (channel == kRotateOrderChannel)
        transform.rotateOrder = order;
    else
        transform.transformOrder = order;
}

// Element 0 of a float or double leaf as T; any other chunk, or an empty leaf, reads as 0.
template <class T>
T channelValue(const KynHelperObj& view, const KynChunk* chunk) {
    const std::vector<double>* doubles = nullptr;
    if (view.getKynLeafData(chunk, doubles))
        return doubles->empty() ? T(0) : static_cast<T>(doubles->front());
    const std::vector<float>* floats = nullptr;
    if (view.getKynLeafData(chunk, floats))
        return floats->empty() ? T(0) : static_cast<T>(floats->front());
    return T(0);
}

// What the channel scan found: the channels as read and interpolated, whether any channel had
// data at the first sample, and whether any was interpolated from later samples.
template <class T>
struct ChannelScan {
    DGTransform<T> transform;
    bool foundChannel = false;
    bool interpolated = false;
};

// Scans the 30 channels (outer loop) against every attribute in table order (inner loop; every
// match counts, so a later attribute of the same name wins). Animated channels are blended
// linearly over indices[0..1] (`points` 2) or quadratically over indices[0..2] (`points` 3).
// Each value is read as soon as its leaf is fetched: the next fetch may evict that sample.
template <class T>
ChannelScan<T> scanChannels(KynHelperObj& view, const std::vector<int>& indices, int points, T t) {
    ChannelScan<T> scan;
    const KynDATRChunk* table = view.attrTable();
    const int attrCount = table != nullptr ? table->getNumAttrs() : 0;
    auto leafAt = [&view](int sample, int attr) -> const KynChunk* {
        return view.cache->getAttrData(sample, view.objectIndex, attr);
    };
    for (int channel = 0; channel < kChannelCount; ++channel) {
        const char* name = DGTransform<T>::ParamName[channel];
        for (int attr = 0; attr < attrCount; ++attr) {
            if (table->getAttrName(attr) != name) continue;
            const KynChunk* first = leafAt(indices[0], attr);
            if (first == nullptr) continue;
            scan.foundChannel = true;
            const T a = channelValue<T>(view, first);
            T value = a;
            if (table->isAnimated(attr)) {
                // A later sample without data leaves the channel as it was, not at `a`.
                const KynChunk* second = leafAt(indices[1], attr);
                const T b = second != nullptr ? channelValue<T>(view, second) : T(0);
                if (points == 2) {
                    if (second == nullptr) continue;
                    value = a * (T(1) - t) + b * t;
                } else {
                    const KynChunk* third = leafAt(indices[2], attr);
                    if (second == nullptr || third == nullptr) continue;
                    const T c = channelValue<T>(view, third);
                    value = T(0.5) * (c - a) * t + (a - T(2) * b + c) * T(0.5) * t * t + b;
                }
                scan.interpolated = true;
            }
            if (isDegreeChannel(channel)) value *= kRadiansPerDegree<T>;
            storeChannel(scan.transform, channel, value);
        }
    }
    return scan;
}

// Copies a result into `matrix`, which grows to sixteen values if a caller handed it shorter.
template <class T>
void storeMatrix(const DGMatrix4<T>& result, std::vector<T>& matrix) {
    if (matrix.size() < kMatrixSize) matrix.resize(kMatrixSize);
    for (std::size_t e = 0; e < kMatrixSize; ++e) matrix[e] = result[static_cast<int>(e)];
}

// (S * R) * Tr, where S is the identity with elements 0, 5, 10 and Tr the identity with
// elements 12, 13, 14 taken from `blend(e)`, and R is the matrix of `rotation`.
template <class T, class Blend>
DGMatrix4<T> composeBlended(const DGQuat<T>& rotation, Blend blend) {
    DGMatrix4<T> scale = DGMatrix4<T>::Identity;
    for (int e : {0, 5, 10}) scale[e] = blend(e);
    DGMatrix4<T> translation = DGMatrix4<T>::Identity;
    for (int e : {12, 13, 14}) translation[e] = blend(e);
    DGMatrix4<T> result;
    DGMath::mult(scale, DGMath::convertMat(rotation), result);
    return DGMath::mult(result, translation, result);
}

// Leaf values converted to T. Only the first sixteen count; a shorter leaf is refused rather
// than read past its end.
template <class T, class S>
bool copyMatrix(const std::vector<S>& values, T* matrix) {
    if (values.size() < kMatrixSize) return false;
    for (std::size_t e = 0; e < kMatrixSize; ++e) matrix[e] = static_cast<T>(values[e]);
    return true;
}

template <class T>
bool transformAtTime(TransformKynObj& view, float time, KynInterpolationHints& hints,
                     std::vector<T>& matrix, KynHelperObj::AnimationState& state) {
    state = KynHelperObj::kStatic;
    matrix.resize(kMatrixSize);
    std::vector<int> indices;
    std::vector<float> times;
    const bool blend = view.getEvalTimeAndSampleIndices(time, hints, indices, times);
    // The fraction is taken in float for both precisions. A transform is never cubic: order 3
    // blends the first three picked samples exactly as order 2 does.
    if (blend && (hints.order == 2 || hints.order == 3)) {
        const float t = (time - times[1]) / (times[2] - times[1]);
        return view.getQuadraticInterpMatrix<T>(indices, static_cast<T>(t), matrix, state);
    }
    if (blend && hints.order == 1) {
        const float t = (time - times[0]) / (times[1] - times[0]);
        return view.getLinearInterpMatrix<T>(indices, static_cast<T>(t), matrix, state);
    }
    return view.getXFRMData<T>(indices[0], matrix.data(), state);
}

}  // namespace

template <class T>
bool TransformKynObj::getXFRMData(int sampleIndex, T* matrix, AnimationState& state) {
    state = kStatic;
    if (matrix == nullptr) return false;
    bool animated = false;
    const KynChunk* chunk = cache->getObjectData(sampleIndex, objectIndex, kTagMTRX, &animated);
    if (chunk == nullptr) return false;
    state = stateOf(animated);
    const std::vector<double>* doubles = nullptr;
    if (getKynLeafData(chunk, doubles)) return copyMatrix(*doubles, matrix);
    const std::vector<float>* floats = nullptr;
    if (getKynLeafData(chunk, floats)) return copyMatrix(*floats, matrix);
    return false;
}

bool TransformKynObj::getTransformData(int sampleIndex, std::vector<float>& data,
                                       AnimationState& state) {
    data.resize(kMatrixSize);
    return getXFRMData(sampleIndex, data.data(), state);
}

bool TransformKynObj::getTransformData(int sampleIndex, std::vector<double>& data,
                                       AnimationState& state) {
    data.resize(kMatrixSize);
    return getXFRMData(sampleIndex, data.data(), state);
}

bool TransformKynObj::inheritsTransform() {
    const int sampleIndex = cache->getSampleIndex(cache->meta.firstTime);
    const KynChunk* chunk = cache->getObjectData(sampleIndex, objectIndex, kTagINHT, nullptr);
    const std::vector<int>* flag = nullptr;
    // Missing, mistyped or empty all mean the transform inherits.
    if (!getKynLeafData(chunk, flag) || flag->empty()) return true;
    return flag->front() != 0;
}

bool TransformKynObj::getTransformAtTime(float time, KynInterpolationHints& hints,
                                         std::vector<float>& matrix, AnimationState& state) {
    return transformAtTime(*this, time, hints, matrix, state);
}

bool TransformKynObj::getTransformAtTime(float time, KynInterpolationHints& hints,
                                         std::vector<double>& matrix, AnimationState& state) {
    return transformAtTime(*this, time, hints, matrix, state);
}

template <class T>
bool TransformKynObj::getLinearInterpMatrix(std::vector<int>& indices, T t, std::vector<T>& matrix,
                                            AnimationState& state) {
    state = kStatic;
    if (indices.size() < 2) return false;
    ChannelScan<T> scan = scanChannels(*this, indices, 2, t);
    if (scan.foundChannel) {
        if (scan.interpolated) state = kAnimated;
        // "MTRO" overrides the rotateOrder channel; transformOrder has no such override.
        const std::vector<int>* order = nullptr;
        if (getKynLeafData(cache->getObjectData(indices[0], objectIndex, kTagMTRO, nullptr),
                           order) &&
            !order->empty() && isOrder(order->front()))
            scan.transform.rotateOrder = order->front();
        storeMatrix(scan.transform.matrix(), matrix);
        return true;
    }

    DGMatrix4<T> m0, m1;
    if (!getXFRMData(indices[0], &m0[0], state) || !getXFRMData(indices[1], &m1[0], state))
        return false;
    const DGQuat<T> rotation =
        DGMath::quatSphericalLinearInterp(DGMath::convertQuat(m0), DGMath::convertQuat(m1), t);
    const T rest = T(1) - t;
    auto linear = [&](int e) { return m0[e] * rest + m1[e] * t; };
    storeMatrix(composeBlended(rotation, linear), matrix);
    return true;
}

template <class T>
bool TransformKynObj::getQuadraticInterpMatrix(std::vector<int>& indices, T t,
                                               std::vector<T>& matrix, AnimationState& state) {
    state = kStatic;
    if (indices.size() < 3) return false;
    // The channels are scanned and then set aside: quadratic evaluation goes through the stored
    // matrices whether the object has channels or not. The scan still reads the channels'
    // samples into the cache, as a linear evaluation of the same object would.
    scanChannels(*this, indices, 3, t);

    DGMatrix4<T> m0, m1, m2;
    if (!getXFRMData(indices[0], &m0[0], state) || !getXFRMData(indices[1], &m1[0], state) ||
        !getXFRMData(indices[2], &m2[0], state))
        return false;
    const DGQuat<T> rotation = DGMath::quatSphericalQuadraticInterp(
        DGMath::convertQuat(m0), DGMath::convertQuat(m1), DGMath::convertQuat(m2), t);
    auto quadratic = [&](int e) {
        const T a = m0[e], b = m1[e], c = m2[e];
        return (a - T(2) * b + c) * T(0.5) * t * t + (c - a) * T(0.5) * t + b;
    };
    storeMatrix(composeBlended(rotation, quadratic), matrix);
    return true;
}

template bool TransformKynObj::getXFRMData(int, float*, AnimationState&);
template bool TransformKynObj::getXFRMData(int, double*, AnimationState&);
template bool TransformKynObj::getLinearInterpMatrix(std::vector<int>&, float, std::vector<float>&,
                                                     AnimationState&);
template bool TransformKynObj::getLinearInterpMatrix(std::vector<int>&, double,
                                                     std::vector<double>&, AnimationState&);
template bool TransformKynObj::getQuadraticInterpMatrix(std::vector<int>&, float,
                                                        std::vector<float>&, AnimationState&);
template bool TransformKynObj::getQuadraticInterpMatrix(std::vector<int>&, double,
                                                        std::vector<double>&, AnimationState&);

}  // namespace Kyn
