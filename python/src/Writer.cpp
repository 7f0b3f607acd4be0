#include "Writer.h"

#include <ctime>

#include "Handle.h"

namespace kynpy {

namespace {

// Metadata built for writing; its objects are freed with it.
struct OwnedMeta {
    ~OwnedMeta() { meta.reset(); }
    Kyn::KynMETAChunk meta;
};

// The chunks of one object in one sample.
struct ObjectSample {
    std::vector<LeafData> chunks;
    std::vector<LeafData> attributes;
    bool hasAttributes = false;
};

}  // namespace

StreamWriter::StreamWriter(const std::string& pathArg, const py::list& objects, int64_t countArg,
                           float firstArg, float rateArg, const py::object& timesArg,
                           int64_t reserve, const std::string& application,
                           const std::string& sourceFile, int64_t space, int commit)
    : path(pathArg), count(countArg), first(firstArg), rate(rateArg), numObjects(objects.size()) {
    if (!timesArg.is_none()) {
        times = py::cast<std::vector<float>>(timesArg);
        rate = 0.0f;
    }
    OwnedMeta owned;
    Kyn::KynMETAChunk& meta = owned.meta;
    meta.application = application;
    meta.sourceFile = sourceFile;
    meta.date = static_cast<int64_t>(std::time(nullptr));
    meta.numSamples = count;
    meta.rate = rate;
    meta.space = space;
    meta.firstTime = times.empty() ? first : times.front();
    meta.lastTime = times.empty() ? timeOf(count - 1) : times.back();
    for (const py::handle item : objects) {
        const py::tuple fields = py::reinterpret_borrow<py::tuple>(item);
        Kyn::KynDOBJChunk* object = meta.addDOBJ(py::cast<std::string>(fields[0]).c_str());
        describeObject(*object, leafDataList(fields[1]), attributeDataList(fields[2]),
                       attributeDataList(fields[3]));
    }
    bool ok = file.open(path.c_str(), "w") && Kyn::KynDKYNChunk().write(file);
    const int64_t metaOffset = ok ? file.tell(nullptr) : -1;
    ok = ok && meta.write(file);
    sams.commit = Kyn::KynSAMSChunk::Commit(commit);
    if (sams.commit != Kyn::KynSAMSChunk::kCommitAtEnd) sams.followMetadata(meta, metaOffset);
    ok = ok && sams.writeStart(file, count, reserve, !times.empty());
    if (!ok) failed("cannot write '" + path + "': check that its directory exists and is writable");
}

float StreamWriter::timeOf(int64_t sample) const {
    if (!times.empty()) return times.at(std::size_t(sample));
    return static_cast<float>(sample) / rate + first;
}

void StreamWriter::failed(const std::string& what) {
    file.close();
    closed = true;
    throw KynError(what);
}

void StreamWriter::writeSample(const py::object& time, const py::list& objects) {
    if (closed) throw py::value_error("the writer of '" + path + "' is closed");
    if (written >= count)
        throw py::value_error("all " + std::to_string(count) + " samples of '" + path +
                              "' are written already");
    float sampleTime = timeOf(written);
    if (!time.is_none() && py::cast<float>(time) != sampleTime)
        throw py::value_error("sample " + std::to_string(written) + " lies at time " +
                              std::to_string(sampleTime) + ", not " + std::string(py::str(time)));
    std::vector<ObjectSample> given(numObjects);
    for (const py::handle item : objects) {
        const py::tuple fields = py::reinterpret_borrow<py::tuple>(item);
        const std::size_t index = py::cast<std::size_t>(fields[0]);
        if (index >= numObjects) throw py::index_error("object index out of range");
        given[index].chunks = leafDataList(fields[1]);
        given[index].hasAttributes = !fields[2].is_none();
        if (given[index].hasAttributes) given[index].attributes = leafDataList(fields[2]);
    }
    bool ok = sams.writeStartSAMPChunk(file, int64_t(numObjects), &sampleTime);
    for (std::size_t o = 0; ok && o < numObjects; ++o) {
        ok = sams.writeStartSOBJChunk(file);
        for (const LeafData& chunk : given[o].chunks) ok = ok && writeLeaf(file, chunk);
        if (ok && given[o].hasAttributes) {
            Kyn::KynHeader group;
            group.tag = Kyn::kTagATRS;
            group.type = Kyn::kTypeGroup;
            ok = file.startGroup(group);
            for (const LeafData& value : given[o].attributes) ok = ok && writeLeaf(file, value);
            ok = ok && file.endGroup();
        }
        ok = ok && sams.writeEndSOBJChunk(file);
    }
    ok = ok && sams.writeEndSAMPChunk(file);
    if (!ok)
        failed("writing sample " + std::to_string(written) + " of '" + path +
               "' failed: is the disk full?");
    ++written;
}

void StreamWriter::close() {
    if (closed) return;
    // The tables are finished in any case, so that the samples written read back.
    if (!sams.writeEnd(file) || !file.close())
        failed("finishing '" + path + "' failed: is the disk full?");
    closed = true;
    if (written < count)
        throw py::value_error("only " + std::to_string(written) + " of " + std::to_string(count) +
                              " samples were written to '" + path +
                              "': those read back, and reading a later one fails");
}

}  // namespace kynpy
