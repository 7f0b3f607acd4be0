// Reads everything a cache holds through every reader a host has: every object of every
// sample, the report, every view with its readers at stored and in-between times with orders 0
// to 3, and the object tree. Shared by the fuzz target of caches and the damaged-file tests.
#ifndef KYN_READ_EVERYTHING_H
#define KYN_READ_EVERYTHING_H

#include <algorithm>
#include <memory>
#include <vector>

#include "KynHelper.h"
#include "KynHierarchy.h"
#include "KynRoMemCache.h"
#include "kynUtils.h"

namespace readall {

using namespace Kyn;

template <class T>
inline void readGeometry(GeometryKynObj& view, int sample, float time,
                         KynInterpolationHints& hints) {
    KynHelperObj::AnimationState state;
    int dimension = 0;
    const std::vector<T>* data = nullptr;
    std::vector<T> out;
    view.getPositionData(sample, data, state, dimension);
    view.getPosition(sample, out, state, dimension);
    view.getPositionAtTime(time, hints, out, state, dimension);
    view.getPrefData(data, dimension);
}

template <class T>
inline void readKind(KynHelperObj* view, int sample, float time, KynInterpolationHints& hints) {
    KynHelperObj::AnimationState state;
    std::vector<T> a, b;
    if (auto* mesh = dynamic_cast<MeshKynObj*>(view)) {
        const std::vector<T>* data = nullptr;
        std::vector<int> ints;
        mesh->getNormalData(sample, data, state);
        mesh->getFaceNormalData(sample, data, state);
        mesh->getVelocityData(sample, data, state);
        mesh->getNormals(sample, a, state);
        mesh->getFaceVertexIds(sample, ints, state);
        mesh->getPref(a);
        mesh->isSubd();
    }
    if (auto* surface = dynamic_cast<NurbsSurfaceKynObj*>(view)) {
        int dimension = 0;
        surface->getKnots(sample, a, b, state, true);
        surface->getControlPoints(sample, a, state, true);
        surface->getControlPointsAtTime(time, hints, a, state, false);
        surface->getPrefControlPoints(a, true);
        surface->getAttr(sample, 0, a, dimension, true);
    }
    if (auto* curve = dynamic_cast<NurbsCurveKynObj*>(view)) {
        curve->getKnots(sample, a, state, true);
        curve->getControlPoints(sample, a, state);
        curve->getControlPointsAtTime(time, hints, a, state);
    }
    if (auto* transform = dynamic_cast<TransformKynObj*>(view)) {
        transform->getTransformData(sample, a, state);
        transform->getTransformAtTime(time, hints, a, state);
        transform->inheritsTransform();
    }
    if (auto* geometry = dynamic_cast<GeometryKynObj*>(view))
        readGeometry<T>(*geometry, sample, time, hints);
}

inline void readView(KynHelperObj* view, int sample, float time, int attrs) {
    KynInterpolationHints hints;
    std::vector<double> values;
    std::vector<float> bounds;
    KynHelperObj::AnimationState state;
    int dimension = 0;
    view->getBounds(sample, bounds, state, sample % 2 == 0);
    for (int order = 0; order <= 3; ++order) {
        hints.order = order;
        readKind<float>(view, sample, time, hints);
        readKind<double>(view, sample, time, hints);
        for (int a = 0; a < attrs && a < 4; ++a)
            view->getAttrAtTime(time, a, hints, values, dimension);
    }
    if (auto* system = dynamic_cast<LxCoordSystemKynObj*>(view)) {
        system->scoped();
        system->displayShape();
        system->parentRig();
    }
}

// Loads `path` with a bound of `maxSamples` held samples and reads it all; caps keep one call
// short however many objects and samples the file claims. False when the load fails.
inline bool readEverything(const char* path, bool keepOpen, int maxSamples) {
    constexpr int kMaxObjects = 16;
    constexpr int kMaxSamples = 8;
    KynRoMemCache cache;
    if (!cache.load(path, keepOpen, maxSamples)) return false;
    kyninfo(path);
    const int objects = std::min<int>(int(cache.meta.objects.size()), kMaxObjects);
    const int samples = std::min<int>(int(cache.meta.numSamples), kMaxSamples);
    KynHelperObjFactory factory(&cache);
    for (int o = 0; o < objects; ++o) {
        std::unique_ptr<KynHelperObj> view(factory.kynObjBuilder(o));
        const KynDATRChunk* table = cache.meta.objects[o]->datr;
        const int attrs = table != nullptr ? table->getNumAttrs() : 0;
        for (int s = -1; s < std::max(samples, 1); ++s) {
            cache.getSample(s, o);
            for (int a = 0; a < attrs && a < 4; ++a) cache.getAttrData(s, o, a);
            float time = cache.getSampleTime(s < 0 ? 0 : s);
            readView(view.get(), s, time, attrs);
            readView(view.get(), s, time + 0.5f, attrs);
        }
    }
    if (objects == int(cache.meta.objects.size())) KynHierarchy hierarchy(cache);
    return true;
}

}  // namespace readall

#endif
