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

#include <vector>

#include "Handle.h"

namespace kynpy {

using Shape = std::vector<py::ssize_t>;

void makeReadOnly(py::array& array);

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
    auto* pin = new Pin(handle, group);
    py::capsule base(pin, [](void* p) { delete static_cast<Pin*>(p); });
    py::array array(py::dtype::of<T>(), shape, data, base);
    makeReadOnly(array);
    return array;
}

// An array that owns `values`, with `shape`.
template <class T>
py::array ownedArray(std::vector<T>&& values, const Shape& shape) {
    auto* owned = new std::vector<T>(std::move(values));
    py::capsule base(owned, [](void* p) { delete static_cast<std::vector<T>*>(p); });
    py::array array(py::dtype::of<T>(), shape, owned->data(), base);
    makeReadOnly(array);
    return array;
}

// The shape of `count` scalars as rows of `width` (a trailing partial row is left out), or a
// flat run when `width` is 1 or less.
Shape rowsOf(std::size_t count, int width);

}  // namespace kynpy

#endif
