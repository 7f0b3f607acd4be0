// Attributes of an object by name: in place at a sample; at a time, double attributes through
// the library's evaluation, float ones through the same choice of samples and blend, and the
// others (integers, strings) held at the sample a hold picks.
#include <sstream>

#include "Arrays.h"
#include "Evaluate.h"
#include "Reads.h"

namespace kynpy {

namespace {

struct AttributeRead {
    const ObjectRef& object;
    Evaluator& view;
    int index;
    bool animated;
    const When& when;
    int sample;  // the sample of a stored read, or of a hold at the time

    [[noreturn]] void fail(const std::string& log) const {
        std::ostringstream text;
        text << object.path() << " has no value of attribute '"
             << view.attrTable()->getAttrName(index) << "' ";
        if (when.atTime)
            text << "at time " << when.time;
        else
            text << "at sample " << sample;
        if (!log.empty()) text << " (" << log << ")";
        throw py::value_error(text.str());
    }

    template <class T>
    py::object stored() const {
        const std::vector<T>* data = nullptr;
        int dimension = 0;
        std::string log;
        {
            CapturedLog capture;
            view.getAttrData(sample, index, data, dimension);
            log = capture.messages();
        }
        if (data == nullptr) fail(log);
        const Kyn::KynGroupChunk* group = animated ? object.cache()->pinSample(sample, object.index)
                                                   : object.cache()->pinObject(object.index);
        const Shape shape = rowsOf(data->size(), dimension);
        if (group == nullptr) return ownedArray(std::vector<T>(*data), shape);
        return pinnedArray(object.handle, group, data->data(), shape);
    }

    py::object strings() const {
        const std::vector<std::string>* data = nullptr;
        std::string log;
        {
            CapturedLog capture;
            view.getAttrData(sample, index, data);
            log = capture.messages();
        }
        if (data == nullptr) fail(log);
        py::list values;
        for (const std::string& value : *data) values.append(py::str(value));
        return std::move(values);
    }

    py::object doublesAtTime() const {
        Kyn::KynInterpolationHints hints;
        hints.order = when.order;
        std::vector<double> out;
        int dimension = 0;
        std::string log;
        bool found = false;
        {
            CapturedLog capture;
            found = view.getAttrDataAtTime(when.time, index, hints, out, dimension);
            log = capture.messages();
        }
        if (!found) fail(log);
        const Shape shape = rowsOf(out.size(), dimension);
        return ownedArray(std::move(out), shape);
    }

    py::object floatsAtTime(int dimension) const {
        std::vector<float> out;
        std::string log;
        bool found = false;
        {
            CapturedLog capture;
            auto fetch = [this](int at, const std::vector<float>*& data, bool& isAnimated) {
                int unused = 0;
                isAnimated = animated;
                return view.getAttrData(at, index, data, unused);
            };
            found = view.atTime(when.time, when.order, fetch, out);
            log = capture.messages();
        }
        if (!found) fail(log);
        const Shape shape = rowsOf(out.size(), dimension);
        return ownedArray(std::move(out), shape);
    }
};

}  // namespace

py::object attribute(const ObjectRef& object, const std::string& name, const When& when) {
    Evaluator view(object.cache(), object.index);
    const Kyn::KynDATRChunk* table = view.attrTable();
    const int index = table ? table->findAttr(name) : -1;
    if (index < 0) throw py::key_error(object.path() + " has no attribute '" + name + "'");
    const int sample = startSample(object, when);
    const AttributeRead read{object, view, index, table->isAnimated(index), when, sample};
    const Kyn::KynChunk* chunk = nullptr;
    std::string log;
    {
        CapturedLog capture;
        chunk = object.cache()->getAttrData(sample, object.index, index);
        log = capture.messages();
    }
    if (chunk == nullptr) read.fail(log);
    const bool blend = when.atTime && when.order > 0;
    switch (chunk->header.type) {
        case Kyn::kTypeInt32:
            return read.stored<int>();
        case Kyn::kTypeInt64:
            return read.stored<long>();
        case Kyn::kTypeFloat:
            return blend ? read.floatsAtTime(view.getDimension(chunk)) : read.stored<float>();
        case Kyn::kTypeDouble:
            return when.atTime ? read.doublesAtTime() : read.stored<double>();
        case Kyn::kTypeCstr:
            return read.strings();
        default:
            throw py::value_error("attribute '" + name + "' of " + object.path() +
                                  " holds raw bytes, which are not read");
    }
}

}  // namespace kynpy
