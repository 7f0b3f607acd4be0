// The reads of an object: the library's views at a sample or at a time, their results handed
// to numpy without a copy, and failures turned into exceptions that say what was missing.
#include "Reads.h"

#include <cmath>
#include <limits>
#include <sstream>

#include "Arrays.h"
#include "Evaluate.h"

namespace kynpy {

using Kyn::KynHelperObj;
using State = Kyn::KynHelperObj::AnimationState;

namespace {

std::string describe(const When& when) {
    std::ostringstream text;
    if (when.atTime)
        text << "at time " << when.time;
    else if (when.sample >= 0)
        text << "at sample " << when.sample;
    else
        text << "as static data";
    return text.str();
}

// ValueError: the object holds no `what` where it was asked for, with the likely reason.
[[noreturn]] void missing(const ObjectRef& object, const char* what, const When& when,
                          const std::string& note = "") {
    std::ostringstream text;
    text << object.path() << " (" << object.kind() << ") has no " << what << " " << describe(when);
    const Kyn::KynMETAChunk& meta = object.cache()->meta;
    if (when.atTime && meta.numSamples > 0 && when.time < meta.firstTime)
        text << ": the time lies before the first sample (" << meta.firstTime
             << "), where only static data exists";
    if (!note.empty()) text << ": " << note;
    throw py::value_error(text.str());
}

// The positionDimension rule: 3 or 4 scalars a tuple, anything else reads as 3.
int pointWidth(const Kyn::KynChunk* chunk) {
    const int dimension = chunk ? chunk->header.dimension : 3;
    return dimension == 3 || dimension == 4 ? dimension : 3;
}

// The chunk with `tag` where a read at `when` starts.
Kyn::KynChunk* chunkAt(const ObjectRef& object, const When& when, unsigned tag) {
    return object.cache()->getObjectData(startSample(object, when), object.index, tag, nullptr);
}

unsigned char storedType(const ObjectRef& object, const When& when, unsigned tag) {
    return typeAt(object, startSample(object, when), tag);
}

// A view of data that the object holds in its sample (`animated`) or in its metadata.
template <class T>
py::array inCache(const ObjectRef& object, int sample, bool animated, const std::vector<T>& data,
                  const Shape& shape) {
    Kyn::KynRoMemCache& cache = *object.cache();
    const Kyn::KynGroupChunk* group =
        animated ? cache.pinSample(sample, object.index) : cache.pinObject(object.index);
    if (group == nullptr) return ownedArray(std::vector<T>(data), shape);
    return pinnedArray(object.handle, group, data.data(), shape);
}

template <class T>
py::array owned(std::vector<T>&& values, int width) {
    const Shape shape = rowsOf(values.size(), width);
    return ownedArray(std::move(values), shape);
}

// The leaf with `tag` of element type T at `sample`, in place.
template <class T>
bool leafAt(const ObjectRef& object, int sample, unsigned tag, const std::vector<T>*& data,
            bool& animated, int* width = nullptr) {
    const Kyn::KynChunk* chunk =
        object.cache()->getObjectData(sample, object.index, tag, &animated);
    if (chunk == nullptr || chunk->header.type != Kyn::KynTypeOf<T>::code) return false;
    const auto* leaf = dynamic_cast<const Kyn::KynLeafChunk<T>*>(chunk);
    if (leaf == nullptr) return false;
    data = &leaf->data;
    if (width) *width = pointWidth(chunk);
    return true;
}

template <class T>
bool vectorsOf(const ObjectRef& object, const When& when, unsigned tag, py::array& result) {
    const std::vector<T>* data = nullptr;
    bool animated = false;
    int width = 3;
    if (!when.atTime) {
        if (!leafAt(object, when.sample, tag, data, animated, &width)) return false;
        result = inCache(object, when.sample, animated, *data, rowsOf(data->size(), width));
        return true;
    }
    width = pointWidth(chunkAt(object, when, tag));
    std::vector<T> out;
    auto fetch = [&](int sample, const std::vector<T>*& found, bool& isAnimated) {
        return leafAt(object, sample, tag, found, isAnimated);
    };
    if (!Evaluator(object.cache(), object.index).atTime(when.time, when.order, fetch, out))
        return false;
    result = owned(std::move(out), width);
    return true;
}

int checkedIndex(const py::object& value, const char* what) {
    if (PyFloat_Check(value.ptr()))
        throw py::type_error(std::string(what) + " must be an integer, not a float" +
                             (std::string(what) == "sample" ? "; use time= for times" : ""));
    try {
        return py::cast<int>(value);
    } catch (const py::cast_error&) {
        if (PyIndex_Check(value.ptr())) throw py::index_error(std::string(what) + " out of range");
        throw py::type_error(std::string(what) + " must be an integer, not " +
                             std::string(py::str(value.get_type().attr("__name__"))));
    }
}

}  // namespace

int startSample(const ObjectRef& object, const When& when) {
    return when.atTime ? Evaluator(object.cache(), object.index).holdSample(when.time)
                       : when.sample;
}

unsigned char typeAt(const ObjectRef& object, int sample, unsigned tag) {
    const Kyn::KynChunk* chunk = object.cache()->getObjectData(sample, object.index, tag, nullptr);
    return chunk ? chunk->header.type : static_cast<unsigned char>(Kyn::kTypeUndef);
}

When resolve(const ObjectRef& object, const py::object& sample, const py::object& time,
             const py::object& orderArg) {
    object.check();
    const int order = checkedIndex(orderArg, "order");
    When when;
    const int count = object.handle->sampleCount();
    if (!sample.is_none() && !time.is_none())
        throw py::value_error("give sample= or time=, not both");
    if (!time.is_none()) {
        if (order < 0 || order > 3)
            throw py::value_error("order must be 0 (hold), 1, 2 or 3 (cubic), not " +
                                  std::to_string(order));
        const double value = py::cast<double>(py::float_(time));
        if (std::isnan(value)) throw py::value_error("time is NaN");
        when.atTime = true;
        when.time = static_cast<float>(value);
        when.order = order;
        return when;
    }
    if (sample.is_none()) {
        when.sample = count > 0 ? 0 : -1;
        return when;
    }
    int index = checkedIndex(sample, "sample");
    if (index < 0) index += count;
    if (index < 0 || index >= count)
        throw py::index_error("sample " + std::string(py::str(sample)) +
                              " out of range: the cache has " + std::to_string(count) + " samples");
    when.sample = index;
    return when;
}

py::array positions(const ObjectRef& object, const When& when) {
    Kyn::GeometryKynObj& view = object.geometry();
    State state = KynHelperObj::kStatic;
    int width = 3;
    if (when.atTime) {
        Kyn::KynInterpolationHints hints;
        hints.order = when.order;
        if (storedType(object, when, Kyn::kTagPOSI) == Kyn::kTypeDouble) {
            std::vector<double> out;
            if (view.getPositionAtTime(when.time, hints, out, state, width))
                return owned(std::move(out), width);
            missing(object, "positions", when,
                    "positions stored as double are read at a sample, not blended; read them "
                    "with sample= or order=0");
        }
        std::vector<float> out;
        if (view.getPositionAtTime(when.time, hints, out, state, width))
            return owned(std::move(out), width);
        missing(object, "positions", when);
    }
    const std::vector<float>* floats = nullptr;
    if (view.getPositionData(when.sample, floats, state, width))
        return inCache(object, when.sample, state == KynHelperObj::kAnimated, *floats,
                       rowsOf(floats->size(), width));
    const std::vector<double>* doubles = nullptr;
    if (view.getPositionData(when.sample, doubles, state, width))
        return inCache(object, when.sample, state == KynHelperObj::kAnimated, *doubles,
                       rowsOf(doubles->size(), width));
    missing(object, "positions", when);
}

py::array vectors(const ObjectRef& object, const When& when, unsigned tag, const char* what) {
    py::array result;
    if (storedType(object, when, tag) == Kyn::kTypeDouble) {
        if (vectorsOf<double>(object, when, tag, result)) return result;
    } else if (vectorsOf<float>(object, when, tag, result)) {
        return result;
    }
    missing(object, what, when);
}

py::tuple topology(const ObjectRef& object, const When& when) {
    Kyn::MeshKynObj view(object.cache(), object.index);
    const int sample = startSample(object, when);
    const std::vector<int>* counts = nullptr;
    const std::vector<int>* indices = nullptr;
    State countState = KynHelperObj::kStatic, indexState = KynHelperObj::kStatic;
    if (!view.getPcnts(sample, counts, countState) || !view.getPids(sample, indices, indexState))
        missing(object, "topology (face vertex counts and indices)", when);
    return py::make_tuple(inCache(object, sample, countState == KynHelperObj::kAnimated, *counts,
                                  {py::ssize_t(counts->size())}),
                          inCache(object, sample, indexState == KynHelperObj::kAnimated, *indices,
                                  {py::ssize_t(indices->size())}));
}

py::array matrix(const ObjectRef& object, const When& when) {
    Kyn::TransformKynObj view(object.cache(), object.index);
    State state = KynHelperObj::kStatic;
    std::vector<double> values;
    bool found = false;
    if (when.atTime) {
        Kyn::KynInterpolationHints hints;
        hints.order = when.order;
        found = view.getTransformAtTime(when.time, hints, values, state);
    } else {
        found = view.getTransformData(when.sample, values, state);
    }
    if (!found) missing(object, "matrix", when);
    return ownedArray(std::move(values), {4, 4});
}

py::array bounds(const ObjectRef& object, const When& when) {
    KynHelperObj view(object.cache(), object.index);
    const int sample = startSample(object, when);
    float box[6];
    std::fill(box, box + 6, std::numeric_limits<float>::quiet_NaN());
    State state = KynHelperObj::kStatic;
    if (!view.getBounds(sample, box, state, true)) missing(object, "bounds", when);
    return ownedArray(std::vector<float>(box, box + 6), {2, 3});
}

}  // namespace kynpy
