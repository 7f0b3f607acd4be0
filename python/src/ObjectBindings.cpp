// kyn.Object: the reads of one object. The reads take their arguments by position or by name
// through Arguments, which is quicker than pybind11's own matching on this hot path; their
// signatures stand in their docstrings and in the package's type stubs.
#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include "Arguments.h"
#include "Handle.h"
#include "Reads.h"

namespace kynpy {

namespace {

const char* kWhen =
    " At a stored sample (sample=, an index; negative counts from the end) arrays of data "
    "stored as they are handed out view the cache's memory; at a time (time=, in frames, with "
    "order= 0 hold, 1 linear, 2 quadratic, 3 cubic) the result is a new array. With neither, "
    "the first sample.";

// The library's settings of a coordinate system; ValueError on another kind.
Kyn::LxCoordSystemKynObj coordinateSystem(const ObjectRef& object) {
    if (object.kind() != "lxcoordsystem")
        throw py::value_error(object.path() + " (" + object.kind() +
                              ") is not a coordinate system");
    return Kyn::LxCoordSystemKynObj(object.cache(), object.index);
}

// Defines a read `name(sample=None, time=None[, order=1][, more...])`: `read` takes the object,
// where to read and the arguments, whose values from `first more` on are its own.
template <class Read>
void defineRead(py::class_<ObjectRef>& object, const char* name, bool withOrder,
                std::vector<const char*> more, Read read, const std::string& doc) {
    std::vector<const char*> names{"sample", "time"};
    if (withOrder) names.push_back("order");
    const std::size_t firstMore = names.size();
    names.insert(names.end(), more.begin(), more.end());
    const auto parameters = std::make_shared<Parameters>(name, names);
    object.def(
        name,
        [parameters, withOrder, firstMore, read](const ObjectRef& o, const py::args& args,
                                                 const py::kwargs& kwargs) {
            const Arguments given(*parameters, args, kwargs);
            const When when = resolve(o, given.get(0), given.get(1),
                                      withOrder ? given.get(2, py::int_(1)) : py::int_(0));
            return read(o, when, given, firstMore);
        },
        doc.c_str());
}

}  // namespace

void bindObject(py::module& m) {
    py::class_<ObjectRef> object(m, "Object", "One object of a cache.");
    object
        .def_property_readonly("path",
                               [](const ObjectRef& o) {
                                   o.check();
                                   return o.path();
                               })
        .def_property_readonly("name",
                               [](const ObjectRef& o) {
                                   o.check();
                                   return o.path().substr(o.path().rfind('|') + 1);
                               })
        .def_property_readonly("index", [](const ObjectRef& o) { return o.index; })
        .def_property_readonly("kind", &ObjectRef::kind,
                               "The kind of view the library builds: 'transform', 'mesh', "
                               "'nurbssurface', 'nurbscurve', 'locator', 'lxcoordsystem', "
                               "'geometry' (points alone) or 'helperObj' (none of these).")
        .def_property_readonly("cache", [](const ObjectRef& o) { return o.handle; })
        .def_property_readonly(
            "attributes",
            [](const ObjectRef& o) {
                o.check();
                std::vector<std::string> names;
                if (const Kyn::KynDATRChunk* table = o.cache()->meta.objects[o.index]->datr)
                    for (int i = 0; i < table->getNumAttrs(); ++i)
                        names.push_back(table->getAttrName(i));
                return names;
            },
            "The names of the object's attributes, animated ones first.");

    using Given = const Arguments&;
    defineRead(
        object, "positions", true, {},
        [](const ObjectRef& o, const When& when, Given, std::size_t) { return positions(o, when); },
        std::string("positions(sample=None, time=None, order=1): vertex positions (or stored "
                    "control vertices), (n, 3) or (n, 4), in their stored dtype.") +
            kWhen);
    for (const auto& [name, tag] :
         std::vector<std::pair<const char*, unsigned>>{{"normals", Kyn::kTagVPNO},
                                                       {"face_normals", Kyn::kTagPONO},
                                                       {"velocities", Kyn::kTagVELO}}) {
        const char* what = name;
        const unsigned which = tag;
        defineRead(
            object, name, true, {},
            [what, which](const ObjectRef& o, const When& when, Given, std::size_t) {
                return vectors(o, when, which, what);
            },
            std::string(name) + "(sample=None, time=None, order=1): as positions." + kWhen);
    }
    defineRead(
        object, "topology", false, {},
        [](const ObjectRef& o, const When& when, Given, std::size_t) { return topology(o, when); },
        "topology(sample=None, time=None): (counts, indices), int32: the vertex count of each "
        "face and the vertex indices of all faces. At a time, those of the sample a hold "
        "reads.");
    defineRead(
        object, "matrix", true, {},
        [](const ObjectRef& o, const When& when, Given, std::size_t) { return matrix(o, when); },
        "matrix(sample=None, time=None, order=1): the transform's (4, 4) float64 matrix, row "
        "vectors (a point p maps to p @ M); always a new array.");
    defineRead(
        object, "bounds", false, {},
        [](const ObjectRef& o, const When& when, Given, std::size_t) { return bounds(o, when); },
        "bounds(sample=None, time=None): [[xmin, ymin, zmin], [xmax, ymax, zmax]], float32: "
        "the stored box, or one computed from the positions. At a time, that of the sample a "
        "hold reads.");
    const auto attributeParameters =
        std::make_shared<Parameters>("attribute", std::vector{"name", "sample", "time", "order"});
    object.def(
        "attribute",
        [attributeParameters](const ObjectRef& o, const py::args& args, const py::kwargs& kwargs) {
            const Arguments given(*attributeParameters, args, kwargs);
            if (given.get(0).is_none())
                throw py::type_error("attribute() needs the attribute's name");
            return attribute(o, py::cast<std::string>(given.get(0)),
                             resolve(o, given.get(1), given.get(2), given.get(3, py::int_(1))));
        },
        (std::string("attribute(name, sample=None, time=None, order=1): an attribute's values, "
                     "(n,) or (n, dimension) in the stored dtype, or a list of str. At a time, "
                     "float and double values blend; others are those a hold reads.") +
         kWhen)
            .c_str());
    defineRead(
        object, "control_points", true, {},
        [](const ObjectRef& o, const When& when, Given, std::size_t) {
            return controlPoints(o, when);
        },
        "control_points(sample=None, time=None, order=1): the full control net, x, y, z, 1 per "
        "vertex, float32, periodic repeats included: (numU, numV, 4) for a surface (V fastest), "
        "(n, 4) for a curve.");
    defineRead(
        object, "knots", false, {"end_knots"},
        [](const ObjectRef& o, const When& when, Given given, std::size_t more) {
            return knots(o, when, py::cast<bool>(given.get(more, py::bool_(true))));
        },
        "knots(sample=None, time=None, end_knots=True): the knots in their stored dtype, (u, v) "
        "for a surface, one array for a curve.");
    defineRead(
        object, "degree", false, {},
        [](const ObjectRef& o, const When& when, Given, std::size_t) { return degree(o, when); },
        "degree(sample=None, time=None): (u, v) of a surface, one value of a curve.");
    defineRead(
        object, "form", false, {},
        [](const ObjectRef& o, const When& when, Given, std::size_t) { return form(o, when); },
        "form(sample=None, time=None): (u, v) of a surface, one value of a curve.");

    object
        .def("_is_animated",
             [](const ObjectRef& o, unsigned tag) {
                 o.check();
                 return o.cache()->isObjectAnimated(o.index, tag);
             })
        .def_property_readonly(
            "inherits_transform",
            [](const ObjectRef& o) {
                o.check();
                return Kyn::TransformKynObj(o.cache(), o.index).inheritsTransform();
            })
        .def_property_readonly("is_subd",
                               [](const ObjectRef& o) {
                                   o.check();
                                   return Kyn::MeshKynObj(o.cache(), o.index).isSubd();
                               })
        .def_property_readonly("scoped",
                               [](const ObjectRef& o) { return coordinateSystem(o).scoped(); })
        .def_property_readonly(
            "use_as_clipping_plane",
            [](const ObjectRef& o) { return coordinateSystem(o).useAsClippingPlane(); })
        .def_property_readonly(
            "display_shape", [](const ObjectRef& o) { return coordinateSystem(o).displayShape(); })
        .def_property_readonly("parent_rig",
                               [](const ObjectRef& o) { return coordinateSystem(o).parentRig(); })
        .def("__eq__",
             [](const ObjectRef& a, const ObjectRef& b) {
                 return a.handle == b.handle && a.index == b.index && a.generation == b.generation;
             })
        .def("__hash__",
             [](const ObjectRef& o) {
                 return std::hash<const void*>()(o.handle.get()) ^ std::size_t(o.index);
             })
        .def("__repr__", [](const ObjectRef& o) {
            if (!o.handle->isOpen || o.generation != o.handle->generation)
                return std::string("<kyn.Object of a closed cache>");
            return "<kyn.Object " + o.path() + " (" + o.kind() + ")>";
        });
}

}  // namespace kynpy
