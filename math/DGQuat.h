// DGQuat<T>: a quaternion value of four scalars x, y, z, w, where w is the scalar part.
//
// Element access by index runs 0..3 = x, y, z, w. A quaternion that stands for a rotation is of
// unit length, but nothing enforces this. The math kit follows the conventions of DGMatrix4:
// row-major storage, row vectors (p * M), and a product A * B applies A first. The kit is used
// with float and double, and each instantiation computes at its own precision: float calls the
// single-precision functions (sqrtf, acosf, sincosf, fabsf), double the double ones. This header
// also holds those per-precision helpers, in DGMath::detail.
#ifndef DGQUAT_H
#define DGQUAT_H

#include <cmath>

#include "DGMatrix4.h"

namespace DGMath {
namespace detail {

// One overload per precision, so that a float instantiation never widens to double.
inline float squareRoot(float v) {
    return ::sqrtf(v);
}
inline double squareRoot(double v) {
    return ::sqrt(v);
}
inline float arcCosine(float v) {
    return ::acosf(v);
}
inline double arcCosine(double v) {
    return ::acos(v);
}
inline float absolute(float v) {
    return ::fabsf(v);
}
inline double absolute(double v) {
    return ::fabs(v);
}
inline void sineCosine(float v, float* s, float* c) {
    ::sincosf(v, s, c);
}
inline void sineCosine(double v, double* s, double* c) {
    ::sincos(v, s, c);
}

}  // namespace detail
}  // namespace DGMath

template <class T>
class DGQuat {
  public:
    T x;
    T y;
    T z;
    T w;

    // The zero quaternion.
    constexpr DGQuat() : x(0), y(0), z(0), w(0) {}
    constexpr DGQuat(T qx, T qy, T qz, T qw) : x(qx), y(qy), z(qz), w(qw) {}

    // 0 = x, 1 = y, 2 = z, 3 = w. Any other index reaches w, so no access leaves the object.
    T& operator[](int index) { return const_cast<T&>(static_cast<const DGQuat&>(*this)[index]); }
    const T& operator[](int index) const {
        switch (index) {
            case 0:
                return x;
            case 1:
                return y;
            case 2:
                return z;
            default:
                return w;
        }
    }

    // Fills this quaternion with the rotation of the upper 3x3 of `m`, taken as it stands: scale
    // is not removed first, only the final normalisation deals with it. A matrix that is not a
    // rotation may give a negative radicand; its NaN flows into the result unguarded.
    template <class U>
    DGQuat& matrix4ToQuat(const DGMatrix4<U>& m);
};

template <class T>
template <class U>
DGQuat<T>& DGQuat<T>::matrix4ToQuat(const DGMatrix4<U>& m) {
    auto at = [&m](int row, int column) { return static_cast<T>(m[4 * row + column]); };
    const T d0 = at(0, 0);
    const T d1 = at(1, 1);
    const T d2 = at(2, 2);
    const T m15 = at(3, 3);

    // Cyclic index triple led by the largest diagonal element; strict comparisons send ties to
    // the later axis, so three equal values lead with axis 2.
    int i = 2;
    if (d0 > d1) {
        if (d0 > d2) i = 0;
    } else if (d1 > d2) {
        i = 1;
    }
    const int j = (i + 1) % 3;
    const int k = (i + 2) % 3;

    // The trace is measured against the largest diagonal element, not against zero.
    const T trace = d1 + d0 + d2;
    if (trace > at(i, i)) {
        const T s = DGMath::detail::squareRoot(trace + m15);
        w = s * T(0.5);
        x = (at(1, 2) - at(2, 1)) / (T(4) * w);
        y = (at(2, 0) - at(0, 2)) / (T(4) * w);
        z = (at(0, 1) - at(1, 0)) / (T(4) * w);
    } else {
        const T s = DGMath::detail::squareRoot(at(i, i) - at(j, j) - at(k, k) + m15);
        T& qi = (*this)[i];
        qi = T(0.5) * s;
        (*this)[j] = (at(i, j) + at(j, i)) / (T(4) * qi);
        (*this)[k] = (at(i, k) + at(k, i)) / (T(4) * qi);
        w = (at(j, k) - at(k, j)) / (T(4) * qi);
    }

    const T n = DGMath::detail::squareRoot(x * x + y * y + z * z + w * w);
    if (n != T(0)) {
        x = x / n;
        y = y / n;
        z = z / n;
        w = w / n;
    }
    return *this;
}

#endif  // DGQUAT_H
