// DGMatrix4<T>: a 4x4 matrix value of sixteen scalars, the matrix type of the math kit.
//
// Storage is row-major: element index = 4 * row + column. Points are row vectors and transform
// as p * M, so a translation sits in elements 12, 13, 14, and a product A * B applies A first
// and B second. A well-formed transform has element 15 = 1 and elements 3, 7, 11 = 0. The
// sixteen values are the whole object, with no padding, so a matrix may be copied to and from
// a block of sixteen scalars in this order. It is a plain value: no allocation, no shared state,
// and `Identity` is a constant built before any dynamic initialisation runs.
#ifndef DGMATRIX4_H
#define DGMATRIX4_H

template <class T>
class DGMatrix4 {
  public:
    // The exact identity: 1 on elements 0, 5, 10, 15 and +0 elsewhere. Products compare
    // operands with it byte for byte, so its bit pattern matters, not only its value.
    static const DGMatrix4 Identity;

    // All sixteen elements start at zero.
    constexpr DGMatrix4() : elements_{} {}

    // Element access by index 0..15 (4 * row + column); the index is not checked.
    constexpr T& operator[](int index) { return elements_[index]; }
    constexpr const T& operator[](int index) const { return elements_[index]; }

  private:
    T elements_[16];
};

template <class T>
const DGMatrix4<T> DGMatrix4<T>::Identity = [] {
    DGMatrix4<T> m;
    m[0] = m[5] = m[10] = m[15] = T(1);
    return m;
}();

#endif  // DGMATRIX4_H
