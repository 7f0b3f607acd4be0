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

// The names a function takes, made once: the names from `positional` on are keyword-only.
struct Parameters {
    Parameters(const char* function, std::vector<const char*> names,
               std::size_t positional = ~std::size_t(0))
        : function(function),
          names(std::move(names)),
          positional(std::min(positional, this->names.size())) {
        for (const char* name : this->names)
            keys.push_back(py::reinterpret_steal<py::object>(PyUnicode_InternFromString(name)));
    }

    const char* function;
    std::vector<const char*> names;
    std::size_t positional;
    std::vector<py::object> keys;  // the names as interned Python strings
};

class Arguments {
  public:
    // The values of the parameters in order, from `args` and `kwargs`; TypeError as Python
    // words it for too many arguments, an unknown name or one given twice.
    Arguments(const Parameters& parameters, const py::args& args, const py::kwargs& kwargs)
        : values(parameters.names.size()) {
        const std::string function = parameters.function;
        if (args.size() > parameters.positional)
            throw py::type_error(function + "() takes at most " +
                                 std::to_string(parameters.positional) + " positional arguments");
        for (std::size_t i = 0; i < args.size(); ++i) values[i] = args[i];
        if (kwargs.empty()) return;
        std::size_t found = 0;
        for (std::size_t i = 0; i < values.size(); ++i) {
            PyObject* value = PyDict_GetItem(kwargs.ptr(), parameters.keys[i].ptr());
            if (value == nullptr) continue;
            if (values[i])
                throw py::type_error(function + "() got multiple values for '" +
                                     parameters.names[i] + "'");
            values[i] = py::reinterpret_borrow<py::object>(value);
            ++found;
        }
        if (found != kwargs.size())
            throw py::type_error(function + "() got an unexpected keyword argument");
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
