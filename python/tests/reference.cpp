// kyn_py_reference FILE PATH WHAT TIME ORDER: what the library itself evaluates for one object at
// one time, one value per line in hexadecimal floating point, for the Python suite to compare
// with bit for bit. WHAT is positions (float), positions64 (double), matrix (double), surface or
// curve (control points, float) or attribute:NAME (double). TIME may be hexadecimal. Exit status
// 1 when the library answers false.
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "KynHelper.h"
#include "KynRoMemCache.h"

using namespace Kyn;

namespace {

template <class T>
void print(const std::vector<T>& values) {
    for (T value : values) std::printf("%a\n", double(value));
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 6) {
        std::fprintf(stderr, "usage: kyn_py_reference FILE PATH WHAT TIME ORDER\n");
        return 2;
    }
    KynRoMemCache cache;
    if (!cache.load(argv[1], true)) return 2;
    const int index = cache.findObjectIndex(argv[2], 0);
    const std::string what = argv[3];
    const float time = std::strtof(argv[4], nullptr);
    KynInterpolationHints hints;
    hints.order = std::atoi(argv[5]);
    KynHelperObj::AnimationState state;
    int dimension = 0;
    std::vector<float> floats;
    std::vector<double> doubles;
    bool ok = false;
    if (what == "positions") {
        ok = GeometryKynObj(&cache, index).getPositionAtTime(time, hints, floats, state, dimension);
    } else if (what == "positions64") {
        ok =
            GeometryKynObj(&cache, index).getPositionAtTime(time, hints, doubles, state, dimension);
    } else if (what == "matrix") {
        ok = TransformKynObj(&cache, index).getTransformAtTime(time, hints, doubles, state);
    } else if (what == "surface") {
        ok = NurbsSurfaceKynObj(&cache, index)
                 .getControlPointsAtTime(time, hints, floats, state, false);
    } else if (what == "curve") {
        ok = NurbsCurveKynObj(&cache, index).getControlPointsAtTime(time, hints, floats, state);
    } else if (what.rfind("attribute:", 0) == 0) {
        KynHelperObj view(&cache, index);
        const int attr = view.attrTable() ? view.attrTable()->findAttr(what.substr(10)) : -1;
        ok = attr >= 0 && view.getAttrAtTime(time, attr, hints, doubles, dimension);
    }
    print(floats);
    print(doubles);
    return ok ? 0 : 1;
}
