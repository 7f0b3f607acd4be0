// DGTransform<T>: one transform in decomposed form, thirty named channels composed into a matrix.
//
// Each channel is a public member named as its ParamName row; matrix() composes them into
// resultMatrix and returns it, recomputing on every call (nothing is cached). Conventions are
// those of the math kit: row-major storage, row vectors (p * M), and A * B applies A first. With
// the default transformOrder a point goes through: minus scale pivot, scale, shear, plus scale
// pivot, scale pivot translate, minus rotate pivot, rotate axis, rotate, plus rotate pivot,
// rotate pivot translate, translate. Angles are in radians. A stack value of one evaluation; it
// owns nothing and shares nothing.
#ifndef DGTRANSFORM_H
#define DGTRANSFORM_H

#include <cstdint>

#include "DGMath.h"
#include "DGMatrix4.h"

template <class T>
class DGTransform {
  public:
    // Row c names channel c; rows 0..29 are the members below in order, row 30 stands for none.
    inline static const char* const ParamName[31] = {"translateX",
                                                     "translateY",
                                                     "translateZ",
                                                     "rotateX",
                                                     "rotateY",
                                                     "rotateZ",
                                                     "scaleX",
                                                     "scaleY",
                                                     "scaleZ",
                                                     "rotatePivotX",
                                                     "rotatePivotY",
                                                     "rotatePivotZ",
                                                     "rotatePivotTranslateX",
                                                     "rotatePivotTranslateY",
                                                     "rotatePivotTranslateZ",
                                                     "rotateAxisX",
                                                     "rotateAxisY",
                                                     "rotateAxisZ",
                                                     "uniformScale",
                                                     "shearXY",
                                                     "shearXZ",
                                                     "shearYZ",
                                                     "scalePivotX",
                                                     "scalePivotY",
                                                     "scalePivotZ",
                                                     "scalePivotTranslateX",
                                                     "scalePivotTranslateY",
                                                     "scalePivotTranslateZ",
                                                     "rotateOrder",
                                                     "transformOrder",
                                                     "ERROR"};

    // The name of a channel; any index outside 0..30 reads as row 30, "ERROR".
    static const char* paramName(int channel) {
        return ParamName[channel >= 0 && channel <= 30 ? channel : 30];
    }

    T translateX = 0;
    T translateY = 0;
    T translateZ = 0;
    T rotateX = 0;
    T rotateY = 0;
    T rotateZ = 0;
    T scaleX = 1;
    T scaleY = 1;
    T scaleZ = 1;
    T rotatePivotX = 0;
    T rotatePivotY = 0;
    T rotatePivotZ = 0;
    T rotatePivotTranslateX = 0;
    T rotatePivotTranslateY = 0;
    T rotatePivotTranslateZ = 0;
    T rotateAxisX = 0;
    T rotateAxisY = 0;
    T rotateAxisZ = 0;
    T uniformScale = 1;
    T shearXY = 0;
    T shearXZ = 0;
    T shearYZ = 0;
    T scalePivotX = 0;
    T scalePivotY = 0;
    T scalePivotZ = 0;
    T scalePivotTranslateX = 0;
    T scalePivotTranslateY = 0;
    T scalePivotTranslateZ = 0;
    // 0..5 select Rx.Ry.Rz, Ry.Rz.Rx, Rz.Rx.Ry, Rx.Rz.Ry, Ry.Rx.Rz, Rz.Ry.Rx; others act as 0.
    int32_t rotateOrder = 0;
    // 0..5 select S.R.T, S.T.R, R.S.T, R.T.S, T.S.R, T.R.S of the scale group, rotate group and
    // translation; others act as 0.
    int32_t transformOrder = 0;
    // Output of matrix(), overwritten in full by each call.
    DGMatrix4<T> resultMatrix;

    DGTransform() = default;

    // Composes the channels into resultMatrix and returns it. A stage whose channels hold their
    // neutral values (compared exactly; NaN is never neutral) is skipped, and when no stage runs
    // and the translation is 0 the result is an exact copy of Identity.
    DGMatrix4<T>& matrix();

  private:
    static DGMatrix4<T> translation(T x, T y, T z) {
        DGMatrix4<T> m = DGMatrix4<T>::Identity;
        m[12] = x;
        m[13] = y;
        m[14] = z;
        return m;
    }

    // Products of three axis rotations, indexed by rotateOrder: 0 = x, 1 = y, 2 = z.
    static constexpr int kRotateOrders[6][3] = {{0, 1, 2}, {1, 2, 0}, {2, 0, 1},
                                                {0, 2, 1}, {1, 0, 2}, {2, 1, 0}};
    // Products of the three groups, indexed by transformOrder: 0 = scale, 1 = rotate, 2 =
    // translate.
    static constexpr int kTransformOrders[6][3] = {{0, 1, 2}, {0, 2, 1}, {1, 0, 2},
                                                   {1, 2, 0}, {2, 0, 1}, {2, 1, 0}};

    static int orderIndex(int32_t order) { return static_cast<uint32_t>(order) > 5u ? 0 : order; }

    DGMatrix4<T> eulerProduct(T angleX, T angleY, T angleZ) const;
};

template <class T>
DGMatrix4<T> DGTransform<T>::eulerProduct(T angleX, T angleY, T angleZ) const {
    DGMatrix4<T> axis[3] = {DGMatrix4<T>::Identity, DGMatrix4<T>::Identity, DGMatrix4<T>::Identity};
    T s, c;
    if (angleX != T(0)) {
        DGMath::detail::sineCosine(angleX, &s, &c);
        axis[0][5] = c;
        axis[0][6] = s;
        axis[0][9] = -s;
        axis[0][10] = c;
    }
    if (angleY != T(0)) {
        DGMath::detail::sineCosine(angleY, &s, &c);
        axis[1][0] = c;
        axis[1][2] = -s;
        axis[1][8] = s;
        axis[1][10] = c;
    }
    if (angleZ != T(0)) {
        DGMath::detail::sineCosine(angleZ, &s, &c);
        axis[2][0] = c;
        axis[2][1] = s;
        axis[2][4] = -s;
        axis[2][5] = c;
    }
    const int* order = kRotateOrders[orderIndex(rotateOrder)];
    DGMatrix4<T> product;
    DGMath::mult(axis[order[0]], axis[order[1]], product);
    return DGMath::mult(product, axis[order[2]], product);
}

template <class T>
DGMatrix4<T>& DGTransform<T>::matrix() {
    bool anyStage = false;

    DGMatrix4<T> scaleGroup = DGMatrix4<T>::Identity;
    const bool scalePivot = scalePivotX != T(0) || scalePivotY != T(0) || scalePivotZ != T(0);
    if (scalePivot) {
        DGMath::mult(scaleGroup, translation(-scalePivotX, -scalePivotY, -scalePivotZ), scaleGroup);
        anyStage = true;
    }
    if (scaleX != T(1) || scaleY != T(1) || scaleZ != T(1) || uniformScale != T(1)) {
        DGMatrix4<T> scale = DGMatrix4<T>::Identity;
        scale[0] = scaleX * uniformScale;
        scale[5] = scaleY * uniformScale;
        scale[10] = scaleZ * uniformScale;
        DGMath::mult(scaleGroup, scale, scaleGroup);
        anyStage = true;
    }
    if (shearXY != T(0) || shearXZ != T(0) || shearYZ != T(0)) {
        DGMatrix4<T> shear = DGMatrix4<T>::Identity;
        shear[4] = shearXY;
        shear[8] = shearXZ;
        shear[9] = shearYZ;
        DGMath::mult(scaleGroup, shear, scaleGroup);
        anyStage = true;
    }
    if (scalePivot) {
        DGMath::mult(scaleGroup, translation(scalePivotX, scalePivotY, scalePivotZ), scaleGroup);
    }
    if (scalePivotTranslateX != T(0) || scalePivotTranslateY != T(0) ||
        scalePivotTranslateZ != T(0)) {
        DGMath::mult(scaleGroup,
                     translation(scalePivotTranslateX, scalePivotTranslateY, scalePivotTranslateZ),
                     scaleGroup);
        anyStage = true;
    }

    DGMatrix4<T> rotateGroup = DGMatrix4<T>::Identity;
    const bool rotatePivot = rotatePivotX != T(0) || rotatePivotY != T(0) || rotatePivotZ != T(0);
    if (rotatePivot) {
        DGMath::mult(rotateGroup, translation(-rotatePivotX, -rotatePivotY, -rotatePivotZ),
                     rotateGroup);
        anyStage = true;
    }
    if (rotateAxisX != T(0) || rotateAxisY != T(0) || rotateAxisZ != T(0)) {
        DGMath::mult(rotateGroup, eulerProduct(rotateAxisX, rotateAxisY, rotateAxisZ), rotateGroup);
        anyStage = true;
    }
    if (rotateX != T(0) || rotateY != T(0) || rotateZ != T(0)) {
        DGMath::mult(rotateGroup, eulerProduct(rotateX, rotateY, rotateZ), rotateGroup);
        anyStage = true;
    }
    if (rotatePivot) {
        DGMath::mult(rotateGroup, translation(rotatePivotX, rotatePivotY, rotatePivotZ),
                     rotateGroup);
    }
    if (rotatePivotTranslateX != T(0) || rotatePivotTranslateY != T(0) ||
        rotatePivotTranslateZ != T(0)) {
        DGMath::mult(
            rotateGroup,
            translation(rotatePivotTranslateX, rotatePivotTranslateY, rotatePivotTranslateZ),
            rotateGroup);
        anyStage = true;
    }

    if (!anyStage && translateX == T(0) && translateY == T(0) && translateZ == T(0)) {
        resultMatrix = DGMatrix4<T>::Identity;
        return resultMatrix;
    }

    const DGMatrix4<T> groups[3] = {scaleGroup, rotateGroup,
                                    translation(translateX, translateY, translateZ)};
    const int* order = kTransformOrders[orderIndex(transformOrder)];
    DGMath::mult(groups[order[0]], groups[order[1]], resultMatrix);
    return DGMath::mult(resultMatrix, groups[order[2]], resultMatrix);
}

#endif  // DGTRANSFORM_H
