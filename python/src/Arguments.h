// The arguments of a call, by position or by name, read by hand: pybind11's matching of
// keyword arguments costs about a sixth of a microsecond a call, which a walk over many small
// objects feels (reading 10,000 meshes spends more on it than on their positions).
#ifndef KYN_PYTHON_ARGUMENTS_H
#define KYN_PYTHON_ARGUMENTS_H

#include <pybind11/pybind11.h>

#include <algorithm>
#include <string>
#include <vector>

namespace kynpy {

namespace py = pybind11;

class Arguments {
  public:
    // The values of `names` in order, from `args` and `kwargs`; the names from `positional` on
    // are keyword-only. TypeError for too many arguments, an unknown name or one given twice.
    Arguments(const char* function, const std::vector<const char*>& names, const py::args& args,
              const py::kwargs& kwargs, std::size_t positional = ~std::size_t(0))
        : values(names.size()) {
        if (args.size() > std::min(positional, names.size()))
            throw py::type_error(std::string(function) + "() takes at most " +
                                 std::to_string(std::min(positional, names.size())) +
                                 " positional arguments");
        for (std::size_t i = 0; i < args.size(); ++i) values[i] = args[i];
        if (kwargs.empty()) return;
        std::size_t found = 0;
        std::size_t i = 0;
        for (const char* name : names) {
            if (PyObject* value = PyDict_GetItemString(kwargs.ptr(), name)) {
                if (values[i])
                    throw py::type_error(std::string(function) + "() got multiple values for '" +
                                         name + "'");
                values[i] = py::reinterpret_borrow<py::object>(value);
                ++found;
            }
            ++i;
        }
        if (found != kwargs.size())
            throw py::type_error(std::string(function) + "() got an unexpected keyword argument");
    }

    // The value, or `fallback` when it was not given.
    py::object get(std::size_t i, py::object fallback = py::none()) const {
        return values[i] ? values[i] : fallback;
    }

  private:
    std::vector<py::object> values;
};

}  // namespace kynpy

#endif
