// kyn._kyn: the binding of libkyn for Python. The pure-Python package `kyn` around it gives the
// names that scripts use; see python/kyn/__init__.py.
#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include <cmath>

#include "Arguments.h"
#include "Arrays.h"
#include "Handle.h"
#include "KynHierarchy.h"
#include "Reads.h"
#include "Writer.h"

namespace kynpy {

void bindEditing(py::module& m);
void bindObject(py::module& m);
#ifdef KYN_HAVE_EXCHANGE
void bindExchange(py::module& m);
#endif
void bindRecovery(py::module& m);

namespace {

// The tree of paths as (name, object index, children) tuples.
py::tuple treeOf(const Kyn::KynHierarchyNode& node) {
    py::list children;
    for (const Kyn::KynHierarchyNode* child : node.children) children.append(treeOf(*child));
    return py::make_tuple(node.name, node.objectIndex, children);
}

// A read-only property of the file's metadata, for an open cache.
template <class T>
auto metaField(T Kyn::KynMETAChunk::*field) {
    return [field](CacheHandle& h) {
        h.checkOpen();
        return h.cache().meta.*field;
    };
}

py::object dateOf(int64_t seconds) {
    if (seconds == 0) return py::none();
    const py::module datetime = py::module::import("datetime");
    return datetime.attr("datetime")
        .attr("fromtimestamp")(seconds, datetime.attr("timezone").attr("utc"));
}

void bindCache(py::module& m) {
    const auto getParameters = std::make_shared<Parameters>(
        "get", std::vector<const char*>{"path", "default", "exact"}, 2);
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
        .def_property_readonly("application", metaField(&Kyn::KynMETAChunk::application))
        .def_property_readonly("source_file", metaField(&Kyn::KynMETAChunk::sourceFile))
        .def_property_readonly(
            "date",
            [](CacheHandle& h) {
                h.checkOpen();
                return dateOf(h.cache().meta.date);
            },
            "When the file was written, a datetime in UTC, or None.")
        .def_property_readonly("first_time", metaField(&Kyn::KynMETAChunk::firstTime))
        .def_property_readonly("last_time", metaField(&Kyn::KynMETAChunk::lastTime))
        .def_property_readonly(
            "rate", metaField(&Kyn::KynMETAChunk::rate),
            "Samples per frame; 0 for a file whose samples stand at times of their own.")
        .def_property_readonly("num_samples",
                               [](CacheHandle& h) {
                                   h.checkOpen();
                                   return h.sampleCount();
                               })
        .def_property_readonly("space", metaField(&Kyn::KynMETAChunk::space),
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
            "no bound. Samples that arrays still view count but stay.")
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
            [getParameters](const HandlePtr& h, const py::args& args, const py::kwargs& kwargs) {
                const Arguments given(*getParameters, args, kwargs);
                h->checkOpen();
                const std::string path = py::cast<std::string>(given.get(0));
                const bool exact = py::cast<bool>(given.get(2, py::bool_(false)));
                const int index = exact ? h->lookupExact(path) : h->lookup(path);
                return index < 0 ? given.get(1) : py::cast(ObjectRef(h, index));
            },
            "get(path, default=None, *, exact=False): the object at `path` by the library's "
            "lookup (as cache[path]), or with exact=True the first whose stored path is `path`; "
            "`default` when there is none.")
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
                      int64_t, const std::string&, const std::string&, int64_t, int>())
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
#ifdef KYN_HAVE_EXCHANGE
    bindExchange(m);
#endif
    bindRecovery(m);
}
