// kyn._export: the converters' export of a cache to glTF, PC2, OBJ or PLY, in this process.
// Built when the converters are (KYN_HAVE_EXCHANGE); the package's kyn.export wraps it.
#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include "Handle.h"
#include "KynExchange.h"

namespace kynpy {

namespace {

py::list notesOf(const std::vector<Kyn::KynExchangeNote>& notes) {
    py::list list;
    for (const Kyn::KynExchangeNote& note : notes)
        list.append(py::make_tuple(note.object, note.text));
    return list;
}

}  // namespace

void bindExchange(py::module& m) {
    m.def("_export", [](const std::string& cache, const std::string& out, const std::string& path,
                        int firstSample, int lastSample, double framesPerSecond) {
        Kyn::KynExportOptions options;
        options.path = path;
        options.firstSample = firstSample;
        options.lastSample = lastSample;
        options.framesPerSecond = framesPerSecond;
        Kyn::KynExchangeResult result;
        {
            // The export reads and writes files of its own; other threads may run meanwhile.
            py::gil_scoped_release release;
            result = Kyn::kynExport(cache, out, options);
        }
        if (!result.ok()) throw KynError(result.error);
        return py::make_tuple(result.files, result.objects, notesOf(result.leftOut),
                              notesOf(result.dropped), result.samples);
    });
}

}  // namespace kynpy
