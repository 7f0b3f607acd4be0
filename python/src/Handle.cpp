// Loading, closing and looking up objects for the Python package, and the library's log lines
// turned into messages for people.
#include "Handle.h"

#include <unistd.h>

#include <cerrno>
#include <iostream>

namespace kynpy {

namespace {

std::string_view leafOf(std::string_view path) {
    return path.substr(path.rfind('|') + 1);  // npos + 1 is 0: the whole path
}

}  // namespace

CapturedLog::CapturedLog() : savedErr(std::cerr.rdbuf(errors.rdbuf())) {}

CapturedLog::~CapturedLog() {
    std::cerr.rdbuf(savedErr);
}

std::string CapturedLog::messages() const {
    std::vector<std::string> lines = library.messages;
    std::istringstream written(errors.str());
    for (std::string line; std::getline(written, line);) lines.push_back(line);
    std::string all;
    for (const std::string& line : lines) {
        if (line.empty()) continue;
        if (!all.empty()) all += "; ";
        all += line;
    }
    return all;
}

CacheHandle::CacheHandle(bool editableCache) {
    if (editableCache) {
        auto cache = std::make_unique<Kyn::KynRwMemCache>();
        rw = cache.get();
        ro = std::move(cache);
        // A save that writes the whole file leaves the old file or the new one if it dies.
        rw->safeRewrite = true;
    } else {
        ro = std::make_unique<Kyn::KynRoMemCache>();
    }
}

void CacheHandle::load(const std::string& file, int maxSamples, bool keepOpen) {
    ++generation;
    namesChanged();
    isOpen = false;
    path = file;
    if (access(file.c_str(), F_OK) != 0) {
        errno = ENOENT;
        PyErr_SetFromErrnoWithFilename(PyExc_FileNotFoundError, file.c_str());
        throw py::error_already_set();
    }
    std::string why;
    {
        CapturedLog log;
        if (ro->load(file.c_str(), keepOpen, maxSamples)) {
            isOpen = true;
            return;
        }
        why = log.messages();
    }
    if (why.find("Not a Kyn file") != std::string::npos)
        throw KynError("'" + file + "' is not a cache file (" + why + ")");
    if (why == "error opening file")
        throw KynError("cannot open '" + file + "' (" + why + "): check that it is readable");
    throw KynError("cannot load '" + file + "': " + why +
                   " (the file is damaged or was not written to the end)");
}

void CacheHandle::close() {
    ++generation;
    namesChanged();
    isOpen = false;
    ro->reset();
}

void CacheHandle::checkOpen() const {
    if (!isOpen) throw py::value_error("the cache is closed");
}

const CacheHandle::Names& CacheHandle::index(FirstIndex& names, bool leaves) {
    if (names.generation == namesVersion) return names.first;
    names.first.clear();
    names.first.reserve(std::size_t(objectCount()));
    for (int i = objectCount() - 1; i >= 0; --i)
        names.first[leaves ? leafOf(objectPath(i)) : std::string_view(objectPath(i))] = i;
    names.generation = namesVersion;
    return names.first;
}

int CacheHandle::lookup(const std::string& query) {
    // The library's names match when their last components do, so the object found from the
    // last hit has the same last component as the first one that matches.
    const int hit = ro->findObjectIndex(query, hint);
    if (hit < 0) return -1;
    hint = hit + 1;
    return index(byLeaf, true).at(leafOf(objectPath(hit)));
}

int CacheHandle::lookupExact(const std::string& query) {
    const auto& first = index(byPath, false);
    const auto found = first.find(query);
    return found == first.end() ? -1 : found->second;
}

void CacheHandle::namesChanged() {
    ++namesVersion;
}

ObjectRef::ObjectRef(HandlePtr handleArg, int indexArg)
    : handle(std::move(handleArg)), index(indexArg), generation(handle->generation) {}

void ObjectRef::check() const {
    handle->checkOpen();
    if (generation != handle->generation)
        throw py::value_error("the cache was loaded again since this object was taken");
}

Kyn::GeometryKynObj& ObjectRef::geometry() const {
    if (!geometryView) geometryView = std::make_shared<Kyn::GeometryKynObj>(cache(), index);
    return *geometryView;
}

const std::string& ObjectRef::kind() const {
    check();
    if (!kindName.empty()) return kindName;
    Kyn::KynHelperObjFactory factory(cache());
    std::unique_ptr<Kyn::KynHelperObj> view(factory.kynObjBuilder(index));
    kindName = "helperObj";
    for (const char* kind : {"transform", "mesh", "nurbssurface", "nurbscurve", "locator",
                             "lxcoordsystem", "geometry"}) {
        if (view->isA(kind)) {
            kindName = kind;
            break;
        }
    }
    return kindName;
}

}  // namespace kynpy
