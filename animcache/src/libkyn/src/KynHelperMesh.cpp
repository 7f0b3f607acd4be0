// Geometry and mesh views: positions, topology, normals, velocities, reference pose, shape type.
//
// What a mesh object may carry, each tag static or per sample:
//   POSI, VELO, VPNO, PONO := float or double tuples of 3 or 4
//   PCNT, NCNT := int32 count per face;  PIDS, NIDS := int32 ids, face after face
//   MSPT := int32, first value 0 for a subdivision surface
// and as attributes the reference pose ("rmanP__Pref" or "velt_Pref") and "mdShapeType".
#include "KynHelper.h"
#include "KynHelperDetail.h"
#include "KynKinds.h"

namespace Kyn {

using helperDetail::convertInto;
using helperDetail::positionDimension;
using helperDetail::stateOf;

namespace {

const char* const kPrefNames[] = {"rmanP__Pref", "velt_Pref"};
const char* const kShapeTypeName = "mdShapeType";

bool isPrefName(const std::string& name) {
    return name == kPrefNames[0] || name == kPrefNames[1];
}

// The reads that report `state` only when the whole read succeeds. The chunk read, or null.
template <class T>
const KynChunk* readInPlace(KynHelperObj& view, int sampleIndex, unsigned tag,
                            const std::vector<T>*& data, KynHelperObj::AnimationState& state) {
    state = KynHelperObj::kStatic;
    data = nullptr;
    bool animated = false;
    const KynChunk* chunk =
        view.cache->getObjectData(sampleIndex, view.objectIndex, tag, &animated);
    if (!view.getKynLeafData(chunk, data)) return nullptr;
    state = stateOf(animated);
    return chunk;
}

bool copyInts(KynHelperObj& view, int sampleIndex, unsigned tag, std::vector<int>& out,
              KynHelperObj::AnimationState& state) {
    const std::vector<int>* data = nullptr;
    if (readInPlace(view, sampleIndex, tag, data, state) == nullptr) return false;
    out = *data;
    return true;
}

template <class T>
bool copyConverted(KynHelperObj& view, int sampleIndex, unsigned tag, std::vector<T>& out,
                   KynHelperObj::AnimationState& state) {
    state = KynHelperObj::kStatic;
    bool animated = false;
    int dimension = 0;  // not reported by these reads
    if (!view.getFloatOrDoubleData(sampleIndex, tag, out, animated, dimension)) return false;
    state = stateOf(animated);
    return true;
}

}  // namespace

GeometryKynObj::GeometryKynObj(KynRoMemCache* cache, int objectIndex)
    : KynHelperObj(cache, objectIndex) {
    kinds.insert(kinds.begin(), geometry);
}

GeometryKynObj::~GeometryKynObj() = default;

bool GeometryKynObj::getPositionData(int sampleIndex, const std::vector<float>*& data,
                                     AnimationState& state, int& dimension) {
    const KynChunk* chunk = readInPlace(*this, sampleIndex, kTagPOSI, data, state);
    if (chunk == nullptr) return false;
    dimension = positionDimension(*this, chunk);
    return true;
}

bool GeometryKynObj::getPositionData(int sampleIndex, const std::vector<double>*& data,
                                     AnimationState& state, int& dimension) {
    const KynChunk* chunk = readInPlace(*this, sampleIndex, kTagPOSI, data, state);
    if (chunk == nullptr) return false;
    dimension = positionDimension(*this, chunk);
    return true;
}

bool GeometryKynObj::getPosition(int sampleIndex, std::vector<float>& out, AnimationState& state,
                                 int& dimension) {
    bool animated = false;
    const bool found = getFloatOrDoubleData(sampleIndex, kTagPOSI, out, animated, dimension);
    state = stateOf(animated);
    return found;
}

bool GeometryKynObj::getPosition(int sampleIndex, std::vector<double>& out, AnimationState& state,
                                 int& dimension) {
    bool animated = false;
    const bool found = getFloatOrDoubleData(sampleIndex, kTagPOSI, out, animated, dimension);
    state = stateOf(animated);
    return found;
}

bool GeometryKynObj::getPositionAtTime(float time, KynInterpolationHints& hints,
                                       std::vector<float>& out, AnimationState& state,
                                       int& dimension) {
    return getPOSIDataAtTime(time, hints, out, state, dimension);
}

bool GeometryKynObj::getPositionAtTime(float time, KynInterpolationHints& hints,
                                       std::vector<double>& out, AnimationState& state,
                                       int& dimension) {
    return getPOSIDataAtTime(time, hints, out, state, dimension);
}

// The first attribute with a reference pose name decides: float data, or failure.
bool GeometryKynObj::getPrefData(const std::vector<float>*& data, int& dimension) {
    dimension = 0;
    data = nullptr;
    const KynDATRChunk* table = attrTable();
    if (table == nullptr) return false;
    const int sampleIndex = cache->getSampleIndex(cache->meta.firstTime);
    for (int i = 0; i < table->getNumAttrs(); ++i) {
        if (!isPrefName(table->getAttrName(i))) continue;
        const KynChunk* chunk = cache->getAttrData(sampleIndex, objectIndex, i);
        if (!getKynLeafData(chunk, data)) return false;
        const int stored = getDimension(chunk);
        dimension = stored == 0 ? 3 : stored;
        return true;
    }
    return false;
}

// Unlike the float twin, the search goes on after a hit, so the last double attribute wins, and
// a matching attribute that is not double ends the search keeping any earlier hit.
bool GeometryKynObj::getPrefData(const std::vector<double>*& data, int& dimension) {
    dimension = 0;
    data = nullptr;
    bool found = false;
    const KynDATRChunk* table = attrTable();
    if (table == nullptr) return false;
    const int sampleIndex = cache->getSampleIndex(cache->meta.firstTime);
    for (int i = 0; i < table->getNumAttrs(); ++i) {
        if (!isPrefName(table->getAttrName(i))) continue;
        const KynChunk* chunk = cache->getAttrData(sampleIndex, objectIndex, i);
        const std::vector<double>* values = nullptr;
        if (!getKynLeafData(chunk, values)) return found;
        dimension = positionDimension(*this, chunk);
        data = values;
        found = true;
    }
    return found;
}

MeshKynObj::MeshKynObj(KynRoMemCache* cache, int objectIndex) : GeometryKynObj(cache, objectIndex) {
    kinds.insert(kinds.end(), mesh);
}

MeshKynObj::~MeshKynObj() = default;

bool MeshKynObj::getPcnts(int sampleIndex, const std::vector<int>*& data, AnimationState& state) {
    return readInPlace(*this, sampleIndex, kTagPCNT, data, state) != nullptr;
}

bool MeshKynObj::getPids(int sampleIndex, const std::vector<int>*& data, AnimationState& state) {
    return readInPlace(*this, sampleIndex, kTagPIDS, data, state) != nullptr;
}

bool MeshKynObj::getNcnts(int sampleIndex, const std::vector<int>*& data, AnimationState& state) {
    return readInPlace(*this, sampleIndex, kTagNCNT, data, state) != nullptr;
}

bool MeshKynObj::getNids(int sampleIndex, const std::vector<int>*& data, AnimationState& state) {
    return readInPlace(*this, sampleIndex, kTagNIDS, data, state) != nullptr;
}

bool MeshKynObj::getFaceVertexCnts(int sampleIndex, std::vector<int>& out, AnimationState& state) {
    return copyInts(*this, sampleIndex, kTagPCNT, out, state);
}

bool MeshKynObj::getFaceVertexIds(int sampleIndex, std::vector<int>& out, AnimationState& state) {
    return copyInts(*this, sampleIndex, kTagPIDS, out, state);
}

bool MeshKynObj::getFaceNormalVertexCnts(int sampleIndex, std::vector<int>& out,
                                         AnimationState& state) {
    return copyInts(*this, sampleIndex, kTagNCNT, out, state);
}

bool MeshKynObj::getFaceNormalVertexIds(int sampleIndex, std::vector<int>& out,
                                        AnimationState& state) {
    return copyInts(*this, sampleIndex, kTagNIDS, out, state);
}

bool MeshKynObj::getNormalData(int sampleIndex, const std::vector<float>*& data,
                               AnimationState& state) {
    return readInPlace(*this, sampleIndex, kTagVPNO, data, state) != nullptr;
}

bool MeshKynObj::getNormalData(int sampleIndex, const std::vector<double>*& data,
                               AnimationState& state) {
    return readInPlace(*this, sampleIndex, kTagVPNO, data, state) != nullptr;
}

bool MeshKynObj::getFaceNormalData(int sampleIndex, const std::vector<float>*& data,
                                   AnimationState& state) {
    return readInPlace(*this, sampleIndex, kTagPONO, data, state) != nullptr;
}

bool MeshKynObj::getFaceNormalData(int sampleIndex, const std::vector<double>*& data,
                                   AnimationState& state) {
    return readInPlace(*this, sampleIndex, kTagPONO, data, state) != nullptr;
}

bool MeshKynObj::getVelocityData(int sampleIndex, const std::vector<float>*& data,
                                 AnimationState& state) {
    return readInPlace(*this, sampleIndex, kTagVELO, data, state) != nullptr;
}

bool MeshKynObj::getVelocityData(int sampleIndex, const std::vector<double>*& data,
                                 AnimationState& state) {
    return readInPlace(*this, sampleIndex, kTagVELO, data, state) != nullptr;
}

bool MeshKynObj::getNormals(int sampleIndex, std::vector<float>& out, AnimationState& state) {
    return copyConverted(*this, sampleIndex, kTagVPNO, out, state);
}

bool MeshKynObj::getNormals(int sampleIndex, std::vector<double>& out, AnimationState& state) {
    return copyConverted(*this, sampleIndex, kTagVPNO, out, state);
}

bool MeshKynObj::getFaceNormals(int sampleIndex, std::vector<float>& out, AnimationState& state) {
    return copyConverted(*this, sampleIndex, kTagPONO, out, state);
}

bool MeshKynObj::getFaceNormals(int sampleIndex, std::vector<double>& out, AnimationState& state) {
    return copyConverted(*this, sampleIndex, kTagPONO, out, state);
}

bool MeshKynObj::getVelocity(int sampleIndex, std::vector<float>& out, AnimationState& state) {
    return copyConverted(*this, sampleIndex, kTagVELO, out, state);
}

bool MeshKynObj::getVelocity(int sampleIndex, std::vector<double>& out, AnimationState& state) {
    return copyConverted(*this, sampleIndex, kTagVELO, out, state);
}

namespace {

// Double storage is asked first; a float reference pose is reached through the float search.
template <class T>
bool copyPref(GeometryKynObj& view, std::vector<T>& out) {
    int dimension = 0;
    const std::vector<double>* doubles = nullptr;
    if (view.getPrefData(doubles, dimension)) {
        convertInto(*doubles, out);
        return true;
    }
    const std::vector<float>* floats = nullptr;
    if (view.getPrefData(floats, dimension)) {
        convertInto(*floats, out);
        return true;
    }
    return false;
}

}  // namespace

bool MeshKynObj::getPref(std::vector<float>& out) {
    return copyPref(*this, out);
}

bool MeshKynObj::getPref(std::vector<double>& out) {
    return copyPref(*this, out);
}

bool MeshKynObj::isSubd() {
    const int sampleIndex = cache->getSampleIndex(cache->meta.firstTime);
    // The attribute overrides the chunk; only the first attribute of that name is asked.
    if (const KynDATRChunk* table = attrTable()) {
        for (int i = 0; i < table->getNumAttrs(); ++i) {
            if (table->getAttrName(i) != kShapeTypeName) continue;
            const std::vector<int>* shape = nullptr;
            if (getKynLeafData(cache->getAttrData(sampleIndex, objectIndex, i), shape) &&
                !shape->empty())
                return (*shape)[0] == 0;
            break;
        }
    }
    const std::vector<int>* shape = nullptr;
    if (!getKynLeafData(cache->getObjectData(sampleIndex, objectIndex, kTagMSPT, nullptr), shape) ||
        shape->empty())
        return true;
    return (*shape)[0] == 0;
}

}  // namespace Kyn
