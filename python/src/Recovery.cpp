// The library's check and stitch for the package (kyn.check, kyn.stitch): what they found, as
// dicts of plain values that python/kyn/_recovery.py turns into objects and exceptions. Both
// run without the interpreter's lock, so that other threads go on while they read.
#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include <string>
#include <vector>

#include "KynRecovery.h"
#include "KynStitch.h"

namespace kynpy {

namespace py = pybind11;

namespace {

py::object orNone(int64_t value) {
    return value >= 0 ? py::object(py::int_(value)) : py::object(py::none());
}

py::dict damageOf(const Kyn::KynDamage& damage, const std::vector<std::string>& paths) {
    py::dict found;
    const bool named = damage.object >= 0 && std::size_t(damage.object) < paths.size();
    found["kind"] = Kyn::kynDamageName(damage.kind);
    found["text"] = Kyn::kynDamageLine(damage, paths);
    found["chunk"] = damage.tag != 0
                         ? py::object(py::str(reinterpret_cast<const char*>(&damage.tag), 4))
                         : py::object(py::none());
    found["offset"] = orNone(damage.offset);
    found["sample"] = orNone(damage.sample);
    found["object"] = orNone(damage.object);
    found["path"] = named ? py::object(py::str(paths[std::size_t(damage.object)])) : py::none();
    found["detail"] = damage.detail;
    return found;
}

py::dict check(const std::string& path) {
    Kyn::KynCheckReport report;
    {
        py::gil_scoped_release unlocked;
        report = Kyn::checkCache(path.c_str());
    }
    py::dict result;
    result["opened"] = report.opened;
    result["failure"] = report.failure;
    result["loaded"] = report.loaded;
    result["whole"] = report.whole();
    result["objects"] = report.objects;
    result["declared_samples"] = report.declaredSamples;
    result["found_samples"] = report.foundSamples;
    result["readable_samples"] = report.readableSamples;
    result["recoverable_samples"] = report.recoverableSamples;
    py::list damage;
    for (const Kyn::KynDamage& d : report.damage) damage.append(damageOf(d, report.paths));
    result["damage"] = damage;
    return result;
}

py::dict stitch(const std::string& out, const std::vector<std::string>& inputs) {
    Kyn::KynStitchReport report;
    {
        py::gil_scoped_release unlocked;
        report = Kyn::stitchCaches(out.c_str(), inputs);
    }
    py::dict result;
    result["written"] = report.written;
    result["refusal"] = Kyn::kynStitchRefusalName(report.refusal);
    result["file"] = report.file;
    result["message"] = report.message;
    result["order"] = report.order;
    result["samples"] = report.samples;
    result["uniform"] = report.uniform;
    return result;
}

}  // namespace

void bindRecovery(py::module& m) {
    m.def("_check", &check, py::arg("path"));
    m.def("_stitch", &stitch, py::arg("out"), py::arg("inputs"));
}

}  // namespace kynpy
