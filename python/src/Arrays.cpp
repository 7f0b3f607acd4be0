#include "Arrays.h"

namespace kynpy {

py::array readOnlyArray(const py::dtype& dtype, const Shape& shape, const void* data,
                        py::capsule base) {
    auto& api = py::detail::npy_api::get();
    py::ssize_t count = 1;
    for (int i = 0; i < shape.rank; ++i) count *= shape.dims[i];
    // An empty vector may have no memory at all: numpy then makes its own, and needs no base.
    const bool view = data != nullptr && count > 0;
    auto array = py::reinterpret_steal<py::array>(api.PyArray_NewFromDescr_(
        api.PyArray_Type_, dtype.inc_ref().ptr(), shape.rank, const_cast<Py_intptr_t*>(shape.dims),
        nullptr, view ? const_cast<void*>(data) : nullptr, 0, nullptr));
    if (!array) throw py::error_already_set();
    if (view && api.PyArray_SetBaseObject_(array.ptr(), base.release().ptr()) != 0)
        throw py::error_already_set();
    py::detail::array_proxy(array.ptr())->flags &= ~py::detail::npy_api::NPY_ARRAY_WRITEABLE_;
    return array;
}

}  // namespace kynpy
