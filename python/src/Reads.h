// What an object of the Python package reads: each operation at a stored sample (a view of the
// cache's memory where the data is stored as it is handed out) or at a time (a new array).
#ifndef KYN_PYTHON_READS_H
#define KYN_PYTHON_READS_H

#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>

#include <string>

#include "Handle.h"

namespace kynpy {

// Where to read: a stored sample, or a time with an order. With neither given, the first
// sample (static data alone when the file has no samples).
struct When {
    bool atTime = false;
    int sample = -1;
    float time = 0.0f;
    int order = 1;
};

// Raises TypeError, IndexError or ValueError for a bad sample, time or order (an int, None for
// the default).
When resolve(const ObjectRef& object, const py::object& sample, const py::object& time,
             const py::object& order);

// The sample that a read at `when` starts from: the sample, or the one a hold (order 0) reads
// at the time (-1 before the first sample).
int startSample(const ObjectRef& object, const When& when);

// The type code of the object's chunk with `tag` at `sample` (static data first); 0 for none.
unsigned char typeAt(const ObjectRef& object, int sample, unsigned tag);

py::array positions(const ObjectRef& object, const When& when);
// Normals ("VPNO"), face normals ("PONO") or velocities ("VELO"); `what` names them in errors.
py::array vectors(const ObjectRef& object, const When& when, unsigned tag, const char* what);
py::tuple topology(const ObjectRef& object, const When& when);
py::array matrix(const ObjectRef& object, const When& when);
py::array bounds(const ObjectRef& object, const When& when);
py::object attribute(const ObjectRef& object, const std::string& name, const When& when);

py::array controlPoints(const ObjectRef& object, const When& when);
py::object knots(const ObjectRef& object, const When& when, bool endKnots);
py::object degree(const ObjectRef& object, const When& when);
py::object form(const ObjectRef& object, const When& when);

}  // namespace kynpy

#endif
