// kyn._kyn: the binding of libkyn for Python. The pure-Python package `kyn` around it gives the
// names that scripts use; see python/kyn/__init__.py.
#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include <cmath>

#include "Arrays.h"
#include "Handle.h"
#include "KynHierarchy.h"
#include "Reads.h"
#include "Writer.h"

namespace kynpy {

void bindEditing(py::module& m);

namespace {

// The tree of paths as (name, object index, children) tuples.
py::tuple treeOf(const Kyn::KynHierarchyNode& node) {
    py::list children;
    for (const Kyn::KynHierarchyNode* child : node.children) children.append(treeOf(*child));
    return py::make_tuple(node.name, node.objectIndex, children);
}

py::object dateOf(int64_t seconds) {
    if (seconds == 0) return py::none();
    const py::module datetime = py::module::import("datetime");
    return datetime.attr("datetime")
        .attr("fromtimestamp")(seconds, datetime.attr("timezone").attr("utc"));
}

// The library's settings of a coordinate system; ValueError on another kind.
Kyn::LxCoordSystemKynObj coordinateSystem(const ObjectRef& object) {
    if (object.kind() != "lxcoordsystem")
        throw py::value_error(object.path() + " (" + object.kind() +
                              ") is not a coordinate system");
    return Kyn::LxCoordSystemKynObj(object.cache(), object.index);
}

const char* kReadDoc =
    "At a stored sample (sample=, an index; negative counts from the end) the array views the "
    "cache's memory; at a time (time=, in frames, with order= 0 hold, 1 linear, 2 quadratic, 3 "
    "cubic) it is evaluated into a new array. With neither, the first sample.";

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
            "The names of the object's attributes, animated ones first.")
        .def(
            "positions",
            [](const ObjectRef& o, py::object sample, py::object time, int order) {
                return positions(o, resolve(o, sample, time, order));
            },
            py::arg("sample") = py::none(), py::arg("time") = py::none(), py::arg("order") = 1,
            (std::string("Vertex positions (or stored control vertices), shape (n, 3) or (n, 4), "
                         "in their stored dtype. ") +
             kReadDoc)
                .c_str());
    for (const auto& [name, tag] :
         std::vector<std::pair<const char*, unsigned>>{{"normals", Kyn::kTagVPNO},
                                                       {"face_normals", Kyn::kTagPONO},
                                                       {"velocities", Kyn::kTagVELO}}) {
        const char* what = name;
        const unsigned which = tag;
        object.def(
            name,
            [what, which](const ObjectRef& o, py::object sample, py::object time, int order) {
                return vectors(o, resolve(o, sample, time, order), which, what);
            },
            py::arg("sample") = py::none(), py::arg("time") = py::none(), py::arg("order") = 1,
            kReadDoc);
    }
    object
        .def(
            "topology",
            [](const ObjectRef& o, py::object sample, py::object time) {
                return topology(o, resolve(o, sample, time, 0));
            },
            py::arg("sample") = py::none(), py::arg("time") = py::none(),
            "(counts, indices): the vertex count of each face and the vertex indices of all "
            "faces, int32. At a time, those of the sample a hold reads.")
        .def(
            "matrix",
            [](const ObjectRef& o, py::object sample, py::object time, int order) {
                return matrix(o, resolve(o, sample, time, order));
            },
            py::arg("sample") = py::none(), py::arg("time") = py::none(), py::arg("order") = 1,
            "The transform's (4, 4) float64 matrix, row vectors (a point p maps to p @ M). "
            "Always a new array.")
        .def(
            "bounds",
            [](const ObjectRef& o, py::object sample, py::object time) {
                return bounds(o, resolve(o, sample, time, 0));
            },
            py::arg("sample") = py::none(), py::arg("time") = py::none(),
            "The box [[xmin, ymin, zmin], [xmax, ymax, zmax]], float32: the stored one, or "
            "computed from the positions. At a time, that of the sample a hold reads.")
        .def(
            "attribute",
            [](const ObjectRef& o, const std::string& name, py::object sample, py::object time,
               int order) { return attribute(o, name, resolve(o, sample, time, order)); },
            py::arg("name"), py::arg("sample") = py::none(), py::arg("time") = py::none(),
            py::arg("order") = 1,
            "An attribute's values: shape (n,) or (n, dimension) in the stored dtype, or a list "
            "of str. At a time, float and double values blend; others are those a hold reads.")
        .def(
            "control_points",
            [](const ObjectRef& o, py::object sample, py::object time, int order) {
                return controlPoints(o, resolve(o, sample, time, order));
            },
            py::arg("sample") = py::none(), py::arg("time") = py::none(), py::arg("order") = 1,
            "The full control net, x, y, z, 1 per vertex, float32, periodic repeats included: "
            "(numU, numV, 4) for a surface (V fastest), (n, 4) for a curve.")
        .def(
            "knots",
            [](const ObjectRef& o, py::object sample, py::object time, bool endKnots) {
                return knots(o, resolve(o, sample, time, 0), endKnots);
            },
            py::arg("sample") = py::none(), py::arg("time") = py::none(),
            py::arg("end_knots") = true,
            "The knots in their stored dtype: (u, v) for a surface, one array for a curve.")
        .def(
            "degree",
            [](const ObjectRef& o, py::object sample, py::object time) {
                return degree(o, resolve(o, sample, time, 0));
            },
            py::arg("sample") = py::none(), py::arg("time") = py::none())
        .def(
            "form",
            [](const ObjectRef& o, py::object sample, py::object time) {
                return form(o, resolve(o, sample, time, 0));
            },
            py::arg("sample") = py::none(), py::arg("time") = py::none())
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

void bindCache(py::module& m) {
    py::class_<CacheHandle, HandlePtr> cache(m, "Cache", "An open cache file.");
    cache
        .def_static("_open",
                    [](const std::string& path, int maxSamples, bool keepOpen) {
                        if (maxSamples < 0) throw py::value_error("max_samples must be 0 or more");
                        auto handle = std::make_shared<CacheHandle>(false);
                        handle->load(path, maxSamples, keepOpen);
                        return handle;
                    })
        .def_readonly("path", &CacheHandle::path)
        .def_property_readonly("closed", [](const CacheHandle& h) { return !h.isOpen; })
        .def("close", &CacheHandle::close,
             "Closes the file and empties the cache. Arrays taken from it stay valid.")
        .def(
            "reload",
            [](CacheHandle& h) {
                const int bound = h.cache().maxSamples;
                h.load(h.path, bound, h.cache().keepOpen);
            },
            "Loads the file again, as it is now on disk. Objects taken before go stale; arrays "
            "stay valid.")
        .def("__enter__", [](const HandlePtr& h) { return h; })
        .def("__exit__", [](CacheHandle& h, py::args) { h.close(); })
        .def_property_readonly("application",
                               [](CacheHandle& h) {
                                   h.checkOpen();
                                   return h.cache().meta.application;
                               })
        .def_property_readonly("source_file",
                               [](CacheHandle& h) {
                                   h.checkOpen();
                                   return h.cache().meta.sourceFile;
                               })
        .def_property_readonly(
            "date",
            [](CacheHandle& h) {
                h.checkOpen();
                return dateOf(h.cache().meta.date);
            },
            "When the file was written, a datetime in UTC, or None.")
        .def_property_readonly("first_time",
                               [](CacheHandle& h) {
                                   h.checkOpen();
                                   return h.cache().meta.firstTime;
                               })
        .def_property_readonly("last_time",
                               [](CacheHandle& h) {
                                   h.checkOpen();
                                   return h.cache().meta.lastTime;
                               })
        .def_property_readonly(
            "rate",
            [](CacheHandle& h) {
                h.checkOpen();
                return h.cache().meta.rate;
            },
            "Samples per frame; 0 for a file whose samples stand at times of their own.")
        .def_property_readonly("num_samples",
                               [](CacheHandle& h) {
                                   h.checkOpen();
                                   return h.sampleCount();
                               })
        .def_property_readonly(
            "space",
            [](CacheHandle& h) {
                h.checkOpen();
                return h.cache().meta.space;
            },
            "0 world space, 1 object space.")
        .def_property_readonly(
            "times",
            [](CacheHandle& h) {
                h.checkOpen();
                std::vector<float> times(std::size_t(std::max(h.sampleCount(), 0)));
                for (std::size_t i = 0; i < times.size(); ++i)
                    times[i] = h.cache().getSampleTime(int(i));
                const Shape shape{py::ssize_t(times.size())};
                return ownedArray(std::move(times), shape);
            },
            "The time of every sample, float32.")
        .def_property(
            "max_samples", [](CacheHandle& h) { return h.cache().maxSamples; },
            [](CacheHandle& h, int bound) {
                if (bound < 0) throw py::value_error("max_samples must be 0 or more");
                h.cache().setMaxSamples(bound);
            },
            "How many samples the cache keeps in memory, least recently used out first; 0 for "
            "no bound. Samples that arrays still view are kept besides.")
        .def_property_readonly(
            "objects",
            [](const HandlePtr& h) {
                h->checkOpen();
                py::list objects;
                for (int i = 0; i < h->objectCount(); ++i) objects.append(ObjectRef(h, i));
                return objects;
            },
            "Every object, in file order.")
        .def("__len__",
             [](CacheHandle& h) {
                 h.checkOpen();
                 return h.objectCount();
             })
        .def("__getitem__",
             [](const HandlePtr& h, const std::string& path) {
                 h->checkOpen();
                 const int index = h->lookup(path);
                 if (index < 0) throw py::key_error(path);
                 return ObjectRef(h, index);
             })
        .def("__contains__",
             [](const HandlePtr& h, const std::string& path) {
                 h->checkOpen();
                 return h->lookup(path) >= 0;
             })
        .def(
            "get",
            [](const HandlePtr& h, const std::string& path, py::object fallback, bool exact) {
                h->checkOpen();
                const int index = exact ? h->lookupExact(path) : h->lookup(path);
                return index < 0 ? fallback : py::cast(ObjectRef(h, index));
            },
            py::arg("path"), py::arg("default") = py::none(), py::kw_only(),
            py::arg("exact") = false,
            "The object at `path` by the library's lookup (as cache[path]), or with exact=True "
            "the first whose stored path is `path`; `default` when there is none.")
        .def(
            "sample_index",
            [](CacheHandle& h, float time) {
                h.checkOpen();
                const int index = h.cache().getSampleIndex(time);
                if (index < 0)
                    throw py::value_error("no sample lies exactly at time " +
                                          std::string(py::str(py::float_(time))));
                return index;
            },
            py::arg("time"), "The index of the sample at exactly `time`.")
        .def("_tree",
             [](const HandlePtr& h) {
                 h->checkOpen();
                 const Kyn::KynHierarchy tree(h->cache());
                 return treeOf(*tree.root);
             })
        .def("__repr__", [](const CacheHandle& h) {
            return "<kyn." + std::string(h.editable() ? "EditableCache" : "Cache") + " '" + h.path +
                   "'" + (h.isOpen ? "" : " (closed)") + ">";
        });
}

void bindWriter(py::module& m) {
    py::class_<StreamWriter>(m, "_StreamWriter")
        .def(py::init<const std::string&, const py::list&, int64_t, float, float, const py::object&,
                      int64_t, const std::string&, const std::string&, int64_t>())
        .def("write_sample", &StreamWriter::writeSample)
        .def("close", &StreamWriter::close)
        .def_readonly("path", &StreamWriter::path)
        .def_readonly("count", &StreamWriter::count)
        .def_readonly("written", &StreamWriter::written)
        .def_readonly("closed", &StreamWriter::closed);
}

}  // namespace

}  // namespace kynpy

PYBIND11_MODULE(_kyn, m) {
    using namespace kynpy;
    m.doc() = "The binding of libkyn; use the package kyn.";
    py::register_exception<KynError>(m, "Error", PyExc_OSError);
    bindObject(m);
    bindCache(m);
    bindEditing(m);
    bindWriter(m);
}
