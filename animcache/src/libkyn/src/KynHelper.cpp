// The base view, its chunk and attribute accessors, and the factory that picks a view's class.
#include "KynHelper.h"

#include "KynHelperDetail.h"
#include "KynKinds.h"

namespace Kyn {

using helperDetail::convertInto;
using helperDetail::positionDimension;

KynHelperObj::KynHelperObj(KynRoMemCache* cache, int objectIndex)
    : cache(cache), objectIndex(objectIndex) {
    // Each constructor inserts its kind name where it sorts, given as a hint: "geometry" goes in
    // front of "helperObj", every other name behind all names before it.
    kinds.insert(helperObj);
}

KynHelperObj::~KynHelperObj() = default;

bool KynHelperObj::isA(const std::string& kind) const {
    return kinds.count(kind) != 0;
}

std::string KynHelperObj::getObjectType(unsigned int tag) {
    // Always sample 0: a tag that appears only in later samples reads as "undef".
    const KynChunk* chunk = cache->getObjectData(0, objectIndex, tag, nullptr);
    if (chunk == nullptr) return kynTypeNames[kTypeUndef];
    return kynTypeName(chunk->header.type);
}

bool KynHelperObj::findChunk(int sampleIndex, unsigned int tag, const KynChunk*& chunk) {
    bool animated = false;
    chunk = cache->getObjectData(sampleIndex, objectIndex, tag, &animated);
    return animated;
}

const KynChunk* KynHelperObj::searchChunk(const KynGroupChunk* group, unsigned int tag) const {
    if (group == nullptr) return nullptr;
    for (const KynChunk* child : group->children)
        if (child != nullptr && child->header.tag == tag) return child;
    return nullptr;
}

int KynHelperObj::getDimension(const KynChunk* chunk) const {
    if (chunk == nullptr) return 0;
    switch (chunk->header.dimension) {
        case 1:
        case 2:
        case 3:
        case 4:
        case 9:
        case 16:
            return chunk->header.dimension;
        default:
            return 0;
    }
}

const KynDATRChunk* KynHelperObj::attrTable() const {
    if (cache == nullptr || objectIndex < 0 ||
        static_cast<std::size_t>(objectIndex) >= cache->meta.objects.size())
        return nullptr;
    const KynDOBJChunk* object = cache->meta.objects[static_cast<std::size_t>(objectIndex)];
    return object != nullptr ? object->datr : nullptr;
}

template <class T>
bool KynHelperObj::getAttrData(int sampleIndex, int attrIndex, const std::vector<T>*& data,
                               int& dimension) {
    data = nullptr;
    const KynChunk* chunk = cache->getAttrData(sampleIndex, objectIndex, attrIndex);
    if (chunk == nullptr) return false;
    dimension = getDimension(chunk);
    return getKynLeafData(chunk, data);
}

bool KynHelperObj::getAttrData(int sampleIndex, int attrIndex,
                               const std::vector<std::string>*& data) {
    data = nullptr;
    return getKynLeafData(cache->getAttrData(sampleIndex, objectIndex, attrIndex), data);
}

template <class T>
bool KynHelperObj::getAttr(int sampleIndex, int attrIndex, std::vector<T>& out, int& dimension) {
    const std::vector<T>* data = nullptr;
    if (!getAttrData(sampleIndex, attrIndex, data, dimension)) return false;
    out = *data;
    return true;
}

bool KynHelperObj::getAttr(int sampleIndex, int attrIndex, std::vector<std::string>& out) {
    const std::vector<std::string>* data = nullptr;
    if (!getAttrData(sampleIndex, attrIndex, data)) return false;
    out = *data;
    return true;
}

template <class T>
bool KynHelperObj::getFloatOrDoubleData(int sampleIndex, unsigned int tag, std::vector<T>& out,
                                        bool& animated, int& dimension) {
    animated = false;
    const KynChunk* chunk = cache->getObjectData(sampleIndex, objectIndex, tag, &animated);
    if (chunk == nullptr) return false;
    // The dimension is reported before the type is looked at, also for a chunk that fails.
    dimension = positionDimension(*this, chunk);
    if (chunk->header.type == kTypeFloat) {
        const std::vector<float>* data = nullptr;
        if (!getKynLeafData(chunk, data)) return false;
        convertInto(*data, out);
        return true;
    }
    if (chunk->header.type == kTypeDouble) {
        const std::vector<double>* data = nullptr;
        if (!getKynLeafData(chunk, data)) return false;
        convertInto(*data, out);
        return true;
    }
    return false;
}

template bool KynHelperObj::getAttrData(int, int, const std::vector<int>*&, int&);
template bool KynHelperObj::getAttrData(int, int, const std::vector<long>*&, int&);
template bool KynHelperObj::getAttrData(int, int, const std::vector<float>*&, int&);
template bool KynHelperObj::getAttrData(int, int, const std::vector<double>*&, int&);
template bool KynHelperObj::getAttr(int, int, std::vector<int>&, int&);
template bool KynHelperObj::getAttr(int, int, std::vector<long>&, int&);
template bool KynHelperObj::getAttr(int, int, std::vector<float>&, int&);
template bool KynHelperObj::getAttr(int, int, std::vector<double>&, int&);
template bool KynHelperObj::getFloatOrDoubleData(int, unsigned int, std::vector<float>&, bool&,
                                                 int&);
template bool KynHelperObj::getFloatOrDoubleData(int, unsigned int, std::vector<double>&, bool&,
                                                 int&);

// The member functions of these three kinds live in KynHelperNurbs.cpp and
// KynHelperTransform.cpp; their constructors stay here, beside the factory that builds them.
NurbsSurfaceKynObj::NurbsSurfaceKynObj(KynRoMemCache* cache, int objectIndex)
    : GeometryKynObj(cache, objectIndex) {
    kinds.insert(kinds.end(), nurbssurface);
}

NurbsSurfaceKynObj::~NurbsSurfaceKynObj() = default;

NurbsCurveKynObj::NurbsCurveKynObj(KynRoMemCache* cache, int objectIndex)
    : GeometryKynObj(cache, objectIndex) {
    kinds.insert(kinds.end(), nurbscurve);
}

NurbsCurveKynObj::~NurbsCurveKynObj() = default;

TransformKynObj::TransformKynObj(KynRoMemCache* cache, int objectIndex)
    : KynHelperObj(cache, objectIndex) {
    kinds.insert(kinds.end(), transform);
}

TransformKynObj::~TransformKynObj() = default;

KynHelperObjFactory::KynHelperObjFactory(KynRoMemCache* cache) : cache(cache) {}

KynHelperObjFactory::~KynHelperObjFactory() = default;

KynHelperObj* KynHelperObjFactory::kynObjBuilder(int objectIndex) {
    // The order is the precedence: a transform tag wins over every other tag of the object.
    if (cache != nullptr) {
        if (cache->objectHas(objectIndex, kTagXFRM)) return new TransformKynObj(cache, objectIndex);
        if (cache->objectHas(objectIndex, kTagMESH)) return new MeshKynObj(cache, objectIndex);
        if (cache->objectHas(objectIndex, kTagNRBS))
            return new NurbsSurfaceKynObj(cache, objectIndex);
        if (cache->objectHas(objectIndex, kTagNRBC))
            return new NurbsCurveKynObj(cache, objectIndex);
        if (cache->objectHas(objectIndex, kTagELOC)) return new LocatorKynObj(cache, objectIndex);
        if (cache->objectHas(objectIndex, kTagLXCS))
            return new LxCoordSystemKynObj(cache, objectIndex);
        if (cache->objectHas(objectIndex, kTagPOSI)) return new GeometryKynObj(cache, objectIndex);
    }
    return new KynHelperObj(cache, objectIndex);
}

bool KynHelperObjFactory::getObjectNames(std::vector<std::string>& names) const {
    names.clear();
    if (cache == nullptr) return false;
    for (const KynDOBJChunk* object : cache->meta.objects) {
        if (object == nullptr || object->name.empty()) return false;
        names.push_back(object->name);
    }
    return true;
}

}  // namespace Kyn
