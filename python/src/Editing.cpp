// The editable cache of the Python package: a KynRwMemCache that gains objects and samples from
// numpy arrays, and is saved by appending in place where it can (save) or written whole
// (save_as). Chunks replaced in a group that arrays still view are kept until those arrays go.
#include <pybind11/stl.h>

#include "Chunks.h"
#include "Handle.h"
#include "Writer.h"

namespace kynpy {

namespace {

class EditableHandle : public CacheHandle {
  public:
    EditableHandle() : CacheHandle(true) { isOpen = true; }
    Kyn::KynRwMemCache& rw() { return *editable(); }
};

using EditablePtr = std::shared_ptr<EditableHandle>;

// Puts `chunk` in place of the first direct child of `group` with its tag, or behind them.
void replaceChild(Kyn::KynRoMemCache& cache, Kyn::KynGroupChunk& group,
                  const Kyn::KynGroupChunk& holder, Kyn::KynChunk* chunk) {
    for (Kyn::KynChunk*& child : group.children) {
        if (child->header.tag != chunk->header.tag) continue;
        cache.releaseChunk(child, &holder);
        child = chunk;
        return;
    }
    group.children.push_back(chunk);
}

// Sets the values of animated attributes, by name, in the "ATRS" group of one object's sample.
void setAttributes(Kyn::KynRoMemCache& cache, const ObjectRef& object, Kyn::KynGroupChunk& sample,
                   const py::list& values) {
    const Kyn::KynDATRChunk* table = cache.meta.objects.at(object.index)->datr;
    Kyn::KynGroupChunk* group = nullptr;
    for (Kyn::KynChunk* child : sample.children)
        if (child->header.tag == Kyn::kTagATRS) group = dynamic_cast<Kyn::KynGroupChunk*>(child);
    if (group == nullptr) {
        group = new Kyn::KynGroupChunk(Kyn::kTagATRS);
        sample.children.push_back(group);
    }
    for (const py::handle item : values) {
        const py::tuple fields = py::reinterpret_borrow<py::tuple>(item);
        const std::string name = py::cast<std::string>(fields[0]);
        const int index = table ? table->findAttr(name) : -1;
        if (index < 0 || !table->isAnimated(index))
            throw py::key_error(object.path() + " has no animated attribute '" + name +
                                "': declare it with add_object(..., animated_attributes=...)");
        const auto position = std::size_t(table->getAnimatedDataIndex(index));
        while (group->children.size() <= position)
            group->children.push_back(new Kyn::KynLeafChunk<char>(Kyn::kTagATTR));
        Kyn::KynChunk* leaf = newLeaf(leafData(fields[1]));
        cache.releaseChunk(group->children[position], &sample);
        group->children[position] = leaf;
    }
}

void checkSavable(EditableHandle& handle) {
    handle.checkOpen();
    if (handle.rw().meta.objects.empty())
        throw py::value_error(
            "a cache without objects is not saved: saving it would remove the file");
}

[[noreturn]] void saveFailed(const std::string& path) {
    throw KynError("saving '" + path +
                   "' failed: check that its directory exists and is writable and that the disk "
                   "has room; the cache in memory is unchanged, so the save can be repeated");
}

// The setter of a text of the file's metadata: marks the cache modified.
auto setMetaText(std::string Kyn::KynMETAChunk::*field) {
    return [field](EditableHandle& h, const std::string& value) {
        h.checkOpen();
        h.rw().meta.*field = value;
        h.rw().modified = true;
    };
}

}  // namespace

void bindEditing(py::module& m) {
    py::class_<EditableHandle, CacheHandle, EditablePtr>(m, "EditableCache")
        .def(py::init([](py::object path, bool keepOpen) {
                 auto handle = std::make_shared<EditableHandle>();
                 if (!path.is_none())
                     handle->load(py::cast<std::string>(py::str(path)), 0, keepOpen);
                 return handle;
             }),
             py::arg("path") = py::none(), py::arg("keep_open") = true)
        .def_property(
            "application", [](EditableHandle& h) { return h.rw().meta.application; },
            setMetaText(&Kyn::KynMETAChunk::application))
        .def_property(
            "source_file", [](EditableHandle& h) { return h.rw().meta.sourceFile; },
            setMetaText(&Kyn::KynMETAChunk::sourceFile))
        .def_property_readonly("modified", [](EditableHandle& h) { return h.rw().modified; })
        .def("_add_object",
             [](EditableHandle& h, const std::string& path, const py::list& chunks,
                const py::list& fixed, const py::list& animated) {
                 h.checkOpen();
                 const int index = h.objectCount();
                 h.rw().setName(index, path.c_str());
                 describeObject(*h.rw().meta.objects.back(), leafDataList(chunks),
                                attributeDataList(fixed), attributeDataList(animated));
                 h.namesChanged();
                 return index;
             })
        .def("_write_sample",
             [](const EditablePtr& h, float time, const py::list& objects) {
                 h->checkOpen();
                 for (const py::handle item : objects) {
                     const py::tuple fields = py::reinterpret_borrow<py::tuple>(item);
                     const ObjectRef object(h, py::cast<int>(fields[0]));
                     if (object.index < 0 || object.index >= h->objectCount())
                         throw py::index_error("object index out of range");
                     Kyn::KynGroupChunk& sample = *h->rw().allocSample(time, object.index);
                     for (const LeafData& leaf : leafDataList(fields[1]))
                         replaceChild(h->rw(), sample, sample, newLeaf(leaf));
                     if (!fields[2].is_none())
                         setAttributes(h->rw(), object, sample,
                                       py::reinterpret_borrow<py::list>(fields[2]));
                 }
             })
        .def("_rename",
             [](EditableHandle& h, int index, const std::string& path) {
                 h.checkOpen();
                 h.rw().setName(index, path.c_str());
                 h.namesChanged();
             })
        .def(
            "truncate",
            [](EditableHandle& h, float time) {
                h.checkOpen();
                h.rw().truncate(time);
            },
            py::arg("time"), "Drops the samples behind the first one at or after `time`.")
        .def(
            "save",
            [](EditableHandle& h) {
                checkSavable(h);
                if (h.rw().fileName.empty())
                    throw py::value_error("this cache has no file yet: use save_as(path)");
                bool saved = false;
                if (!h.rw().save(&saved, nullptr)) saveFailed(h.rw().fileName);
            },
            "Writes the changes to the cache's file: in place, behind the samples that are "
            "there, when the new samples lie behind them and the metadata keeps its length; "
            "otherwise the whole file afresh, beside it, renamed over it once on disk.")
        .def(
            "save_as",
            [](EditableHandle& h, const py::object& path) {
                checkSavable(h);
                const std::string target = py::cast<std::string>(py::str(path));
                bool saved = false;
                if (!h.rw().saveAs(target.c_str(), &saved, nullptr)) saveFailed(target);
                h.path = target;
            },
            py::arg("path"),
            "Writes the whole cache beside `path` and renames it over `path` once on disk; the "
            "cache belongs to `path` from then on.");
}

}  // namespace kynpy
