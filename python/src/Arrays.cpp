#include "Arrays.h"

namespace kynpy {

void makeReadOnly(py::array& array) {
    py::detail::array_proxy(array.ptr())->flags &= ~py::detail::npy_api::NPY_ARRAY_WRITEABLE_;
}

Shape rowsOf(std::size_t count, int width) {
    if (width <= 1) return {py::ssize_t(count)};
    return {py::ssize_t(count / std::size_t(width)), py::ssize_t(width)};
}

}  // namespace kynpy
