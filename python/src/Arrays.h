// The numpy arrays that the Python package hands out. All are read-only.
//
// - A view of stored data points into a leaf's `data` inside the cache. Its base object holds
//   a pin of the group that holds the leaf, and the cache handle, so that no eviction, reset,
//   load or close frees the memory while the array (or any view of it) lives.
// - An owned array takes over a std::vector that the library filled, without a copy: its base
//   object owns the vector.
#ifndef KYN_PYTHON_ARRAYS_H
#define KYN_PYTHON_ARRAYS_H

#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>

#include <initializer_list>
#include <vector>

#include "Handle.h"

namespace kynpy {

// The shape of an array of up to three dimensions, on the stack: an array is made per read.
struct Shape {
    Shape(std::initializer_list<py::ssize_t> sizes) : rank(int(sizes.size())) {
        int i = 0;
        for (py::ssize_t size : sizes) dims[i++] = size;
    }
    int rank;
    Py_intptr_t dims[3] = {0, 0, 0};
};

// The shape of `count` scalars as rows of `width` (a trailing partial row is left out), or a
// flat run when `width` is 1 or less.
inline Shape rowsOf(std::size_t count, int width) {
    if (width <= 1) return {py::ssize_t(count)};
    return {py::ssize_t(count / std::size_t(width)), py::ssize_t(width)};
}

// A read-only array of `data` with `shape`, C order, whose base is `base` (which keeps the
// memory alive); a copy of nothing when `data` is null.
py::array readOnlyArray(const py::dtype& dtype, const Shape& shape, const void* data,
                        py::capsule base);

// The base of a view: one pin of `group`, released when the array goes.
class Pin {
  public:
    Pin(HandlePtr handle, const Kyn::KynGroupChunk* group)
        : handle(std::move(handle)), group(group) {}
    ~Pin() { handle->cache().unpin(group); }
    Pin(const Pin&) = delete;
    Pin& operator=(const Pin&) = delete;

  private:
    HandlePtr handle;
    const Kyn::KynGroupChunk* group;
};

// A view of `data` (held in `group`, pinned once already for this array) with `shape`.
template <class T>
py::array pinnedArray(const HandlePtr& handle, const Kyn::KynGroupChunk* group, const T* data,
                      const Shape& shape) {
    py::capsule base(new Pin(handle, group), [](void* p) { delete static_cast<Pin*>(p); });
    return readOnlyArray(py::dtype::of<T>(), shape, data, std::move(base));
}

// An array that owns `values`, with `shape`.
template <class T>
py::array ownedArray(std::vector<T>&& values, const Shape& shape) {
    auto* owned = new std::vector<T>(std::move(values));
    py::capsule base(owned, [](void* p) { delete static_cast<std::vector<T>*>(p); });
    return readOnlyArray(py::dtype::of<T>(), shape, owned->data(), std::move(base));
}

}  // namespace kynpy

#endif
