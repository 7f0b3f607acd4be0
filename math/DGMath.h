// DGMath: the operations of the math kit on DGMatrix4 and DGQuat values.
//
// Matrix product with identity and affine shortcuts, conversions between quaternion and matrix,
// spherical interpolation over two or three quaternions, and the cubic interpolation weights.
// Conventions: row-major storage, row vectors (p * M), and a product A * B applies A first and
// B second. Nothing here allocates, keeps state or reports failure; the functions touch only
// their arguments, so any thread may call them on its own values. Each precision computes in its
// own arithmetic (float calls sqrtf, acosf, sincosf, fabsf; double the double forms); a scalar of
// another type, such as an interpolation parameter, is converted to the quaternion's scalar type
// first.
#ifndef DGMATH_H
#define DGMATH_H

#include <cstring>

#include "DGMatrix4.h"
#include "DGQuat.h"

namespace DGMath {
namespace detail {

template <class T>
bool isExactIdentity(const DGMatrix4<T>& m) {
    static_assert(sizeof(DGMatrix4<T>) == 16 * sizeof(T), "a matrix is exactly sixteen scalars");
    return std::memcmp(&m[0], &DGMatrix4<T>::Identity[0], sizeof(DGMatrix4<T>)) == 0;
}

template <class T>
T dot(const DGQuat<T>& a, const DGQuat<T>& b) {
    return a.x * b.x + a.y * b.y + a.z * b.z + a.w * b.w;
}

// Above this |a . b| the two quaternions are blended linearly instead of along the arc; in
// float it is the nearest single-precision value of 0.9995.
template <class T>
constexpr T kLinearBlendThreshold = T(0.9995);

// a * (1 - u) + b * u, divided by its length unless that length is 0.
template <class T>
DGQuat<T> blendNormalised(const DGQuat<T>& a, const DGQuat<T>& b, T u) {
    const T v = T(1) - u;
    DGQuat<T> r(a.x * v + b.x * u, a.y * v + b.y * u, a.z * v + b.z * u, a.w * v + b.w * u);
    const T n = squareRoot(dot(r, r));
    if (n != T(0)) r = DGQuat<T>(r.x / n, r.y / n, r.z / n, r.w / n);
    return r;
}

// Walks the angle phi from a along the great circle towards b, whose dot product with a is d.
// The direction b - a * d is normalised unless its length is 0; the result is not renormalised.
template <class T>
DGQuat<T> alongArc(const DGQuat<T>& a, const DGQuat<T>& b, T d, T phi) {
    DGQuat<T> p(b.x - a.x * d, b.y - a.y * d, b.z - a.z * d, b.w - a.w * d);
    const T n = squareRoot(dot(p, p));
    if (n != T(0)) p = DGQuat<T>(p.x / n, p.y / n, p.z / n, p.w / n);
    T s, c;
    sineCosine(phi, &s, &c);
    return DGQuat<T>(p.x * s + a.x * c, p.y * s + a.y * c, p.z * s + a.z * c, p.w * s + a.w * c);
}

}  // namespace detail

// out = a * b, returned. `out` may be the same object as `a` or `b`. An operand that equals
// Identity byte for byte (so -0.0 does not pass for 0) makes the result a copy of the other.
// When element 11 of both operands is 0 the result is taken as affine: column 3 becomes
// 0, 0, 0, 1 without being computed, whatever the operands hold in elements 3, 7 and 15.
template <class T, class U>
DGMatrix4<T>& mult(const DGMatrix4<T>& a, const DGMatrix4<U>& b, DGMatrix4<T>& out) {
    if (detail::isExactIdentity(b)) {
        if (&a != &out) out = a;
        return out;
    }
    if (detail::isExactIdentity(a)) {
        if (static_cast<const void*>(&b) != static_cast<const void*>(&out)) {
            for (int e = 0; e < 16; ++e) out[e] = static_cast<T>(b[e]);
        }
        return out;
    }

    auto element = [&a, &b](int r, int c) {
        return static_cast<T>(a[4 * r] * b[c] + a[4 * r + 1] * b[4 + c] + a[4 * r + 2] * b[8 + c] +
                              a[4 * r + 3] * b[12 + c]);
    };
    DGMatrix4<T> product;
    for (int r = 0; r < 4; ++r) {
        for (int c = 0; c < 3; ++c) product[4 * r + c] = element(r, c);
    }
    if (b[11] == U(0) && a[11] == T(0)) {
        product[3] = product[7] = product[11] = T(0);
        product[15] = T(1);
    } else {
        for (int r = 0; r < 4; ++r) product[4 * r + 3] = element(r, 3);
    }
    out = product;
    return out;
}

// The rotation matrix of `q`, used as it stands (not normalised first).
template <class T>
DGMatrix4<T> convertMat(const DGQuat<T>& q) {
    const T x = q.x, y = q.y, z = q.z, w = q.w;
    DGMatrix4<T> m;
    m[0] = T(1) - T(2) * (y * y + z * z);
    m[1] = T(2) * (x * y + z * w);
    m[2] = T(2) * (z * x - y * w);
    m[4] = T(2) * (x * y - z * w);
    m[5] = T(1) - T(2) * (z * z + x * x);
    m[6] = T(2) * (y * z + x * w);
    m[8] = T(2) * (z * x + y * w);
    m[9] = T(2) * (y * z - x * w);
    m[10] = T(1) - T(2) * (y * y + x * x);
    m[15] = T(1);
    return m;
}

// The quaternion of `m`, made by DGQuat<T>::matrix4ToQuat.
template <class T>
DGQuat<T> convertQuat(const DGMatrix4<T>& m) {
    DGQuat<T> q;
    q.matrix4ToQuat(m);
    return q;
}

// Spherical interpolation from a (t = 0) to b (t = 1). Neither input is ever negated, so a
// negative a . b takes the long arc. Nearly parallel inputs are blended linearly and normalised;
// b = -a thus blends to the zero quaternion at t = 0.5, which is returned as it is.
template <class T, class U>
DGQuat<T> quatSphericalLinearInterp(const DGQuat<T>& a, const DGQuat<T>& b, U t) {
    const T u = static_cast<T>(t);
    const T d = detail::dot(a, b);
    if (detail::absolute(d) > detail::kLinearBlendThreshold<T>) {
        return detail::blendNormalised(a, b, u);
    }
    const T theta = detail::arcCosine(d);
    const T phi = (T(1) - u) * T(0) + theta * u;
    return detail::alongArc(a, b, d, phi);
}

// Spherical interpolation through a (t = -1), b (t = 0) and a third point at t = 1 that lies at
// the angle of c from a, on the great circle through a and b: a parabola in the angle. Only the
// angle between a and c is used, never the direction of c. Nearly parallel a and b are blended
// linearly as in the two-point form, ignoring c, so for t > 0 that blend extrapolates past b.
template <class T, class U>
DGQuat<T> quatSphericalQuadraticInterp(const DGQuat<T>& a, const DGQuat<T>& b, const DGQuat<T>& c,
                                       U t) {
    const T u = static_cast<T>(t);
    const T d = detail::dot(a, b);
    if (detail::absolute(d) > detail::kLinearBlendThreshold<T>) {
        return detail::blendNormalised(a, b, u + T(1));
    }
    const T thetaAB = detail::arcCosine(d);
    const T thetaAC = detail::arcCosine(detail::dot(a, c));
    const T phi =
        ((T(0) - T(2) * thetaAB + thetaAC) * T(0.5)) * u * u + (thetaAC * T(0.5)) * u + thetaAB;
    return detail::alongArc(a, b, d, phi);
}

// Catmull-Rom weights of four consecutive samples for the fraction f measured from the second
// sample to the third, computed in the arithmetic of T.
template <class T, class U>
void getCubicFactors(T& w0, T& w1, T& w2, T& w3, U f) {
    const T x = static_cast<T>(f);
    w0 = ((T(-0.5) * x + T(1.0)) * x - T(0.5)) * x;
    w1 = (T(1.5) * x - T(2.5)) * x * x + T(1.0);
    w2 = ((T(-1.5) * x + T(2.0)) * x + T(0.5)) * x;
    w3 = (x * T(0.5) - T(0.5)) * x * x;
}

}  // namespace DGMath

#endif  // DGMATH_H
