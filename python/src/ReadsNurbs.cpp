// NURBS surfaces and curves: control nets rebuilt by the library's views (new arrays, since the
// stored vertices are not the net), knots, degrees and forms.
#include "Arrays.h"
#include "Reads.h"

namespace kynpy {

namespace {

using State = Kyn::KynHelperObj::AnimationState;

[[noreturn]] void notNurbs(const ObjectRef& object, const char* what) {
    throw py::value_error(object.path() + " (" + object.kind() + ") is not a NURBS surface or " +
                          "curve, so it has no " + what);
}

[[noreturn]] void noNurbsData(const ObjectRef& object, const char* what, int sample) {
    throw py::value_error(object.path() + " (" + object.kind() + ") has no " + what +
                          " at sample " + std::to_string(sample));
}

template <class T>
py::object surfaceKnots(Kyn::NurbsSurfaceKynObj& view, const ObjectRef& object, int sample,
                        bool endKnots) {
    std::vector<T> u, v;
    State state = Kyn::KynHelperObj::kStatic;
    if (!view.getKnots(sample, u, v, state, endKnots)) noNurbsData(object, "knots", sample);
    const py::ssize_t nu = py::ssize_t(u.size()), nv = py::ssize_t(v.size());
    return py::make_tuple(ownedArray(std::move(u), {nu}), ownedArray(std::move(v), {nv}));
}

template <class T>
py::object curveKnots(Kyn::NurbsCurveKynObj& view, const ObjectRef& object, int sample,
                      bool endKnots) {
    std::vector<T> k;
    State state = Kyn::KynHelperObj::kStatic;
    if (!view.getKnots(sample, k, state, endKnots)) noNurbsData(object, "knots", sample);
    const py::ssize_t n = py::ssize_t(k.size());
    return ownedArray(std::move(k), {n});
}

}  // namespace

py::array controlPoints(const ObjectRef& object, const When& when) {
    const std::string& kind = object.kind();
    const int sample = startSample(object, when);
    Kyn::KynInterpolationHints hints;
    hints.order = when.order;
    State state = Kyn::KynHelperObj::kStatic;
    std::vector<float> net;
    if (kind == "nurbssurface") {
        Kyn::NurbsSurfaceKynObj view(object.cache(), object.index);
        const bool found = when.atTime
                               ? view.getControlPointsAtTime(when.time, hints, net, state, false)
                               : view.getControlPoints(sample, net, state, false);
        if (!found) noNurbsData(object, "control points", sample);
        int degreeU = 0, degreeV = 0;
        view.getDegree(sample, degreeU, degreeV, state);
        const py::ssize_t numU = view.getNumKnotUData(sample) - degreeU + 1;
        const py::ssize_t numV = view.getNumKnotVData(sample) - degreeV + 1;
        if (numU > 0 && numV > 0 && std::size_t(numU * numV * 4) == net.size())
            return ownedArray(std::move(net), {numU, numV, 4});
    } else if (kind == "nurbscurve") {
        Kyn::NurbsCurveKynObj view(object.cache(), object.index);
        const bool found = when.atTime ? view.getControlPointsAtTime(when.time, hints, net, state)
                                       : view.getControlPoints(sample, net, state);
        if (!found) noNurbsData(object, "control points", sample);
    } else {
        notNurbs(object, "control points");
    }
    const Shape shape = rowsOf(net.size(), 4);
    return ownedArray(std::move(net), shape);
}

py::object knots(const ObjectRef& object, const When& when, bool endKnots) {
    const std::string& kind = object.kind();
    const int sample = startSample(object, when);
    const bool doubles = typeAt(object, sample, Kyn::kTagKNTU) == Kyn::kTypeDouble;
    if (kind == "nurbssurface") {
        Kyn::NurbsSurfaceKynObj view(object.cache(), object.index);
        return doubles ? surfaceKnots<double>(view, object, sample, endKnots)
                       : surfaceKnots<float>(view, object, sample, endKnots);
    }
    if (kind == "nurbscurve") {
        Kyn::NurbsCurveKynObj view(object.cache(), object.index);
        return doubles ? curveKnots<double>(view, object, sample, endKnots)
                       : curveKnots<float>(view, object, sample, endKnots);
    }
    notNurbs(object, "knots");
}

py::object degree(const ObjectRef& object, const When& when) {
    const std::string& kind = object.kind();
    const int sample = startSample(object, when);
    State state = Kyn::KynHelperObj::kStatic;
    if (kind == "nurbssurface") {
        int u = 0, v = 0;
        if (!Kyn::NurbsSurfaceKynObj(object.cache(), object.index).getDegree(sample, u, v, state))
            noNurbsData(object, "degrees", sample);
        return py::make_tuple(u, v);
    }
    if (kind == "nurbscurve") {
        int d = 0;
        if (!Kyn::NurbsCurveKynObj(object.cache(), object.index).getDegree(sample, d, state))
            noNurbsData(object, "degree", sample);
        return py::int_(d);
    }
    notNurbs(object, "degree");
}

py::object form(const ObjectRef& object, const When& when) {
    const std::string& kind = object.kind();
    const int sample = startSample(object, when);
    State state = Kyn::KynHelperObj::kStatic;
    if (kind == "nurbssurface") {
        std::string u, v;
        if (!Kyn::NurbsSurfaceKynObj(object.cache(), object.index).getForm(sample, u, v, state))
            noNurbsData(object, "forms", sample);
        return py::make_tuple(u, v);
    }
    if (kind == "nurbscurve") {
        std::string f;
        if (!Kyn::NurbsCurveKynObj(object.cache(), object.index).getForm(sample, f, state))
            noNurbsData(object, "form", sample);
        return py::str(f);
    }
    notNurbs(object, "form");
}

}  // namespace kynpy
