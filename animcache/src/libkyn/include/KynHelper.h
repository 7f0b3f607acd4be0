// KynHelper: object views, typed readers of one object of an open KynRoMemCache.
//
// A view holds the cache and an object index and nothing else. It asks the cache for chunks by
// sample index and tag (or by attribute index), checks their element type, and hands out either
// a pointer into the chunk (operations ending in "Data", stored type only) or a converted copy.
// KynHelperObjFactory builds the view that fits an object's tags; `...AtTime` operations pick
// samples around a time and blend them (hold, linear, quadratic, cubic).
//
// Rules a caller keeps:
// - The cache must outlive every view. A view built by `kynObjBuilder` belongs to the caller,
//   who deletes it through the virtual destructor before the cache goes.
// - Pointers handed out by views are borrowed from the cache: they die when their sample is
//   evicted or deleted, or when the cache is reset or loaded again.
// - A view is used by the thread that uses its cache, one thread at a time: every read may load
//   a sample into the cache and evict another.
// - Sample index -1 reaches static data only. Bad object, sample and attribute indices give
//   false, null, "undef" or the stated default; views print nothing of their own (the cache's
//   `getAttrData` reports a bad attribute index on the standard error).
// - A blend takes the element count of its first picked sample. When a later picked sample is
//   shorter than the first, the blend fails with false rather than read past its end.
// - `KynInterpolationHints::order` below 0 is taken as 0 (hold).
#ifndef KYN_HELPER_H
#define KYN_HELPER_H

#include <set>
#include <string>
#include <typeinfo>
#include <vector>

#include "KynChunks.h"
#include "KynFormat.h"
#include "KynRoMemCache.h"

namespace Kyn {

// Filled by the host and handed to every `...AtTime` operation. Only `order` is read: 0 hold,
// 1 linear, 2 quadratic, 3 cubic; 4 and above pick `order` + 1 samples and then hold.
struct KynInterpolationHints {
    int order = 0;
};

// The base of all views: chunk and attribute access, bounds, evaluation at a time.
class KynHelperObj {
  public:
    // Where the chunk just read came from: the object's metadata (or nothing was found), or
    // the object's block in a sample.
    enum AnimationState { kStatic = 0, kAnimated = 1 };

    KynHelperObj(KynRoMemCache* cache, int objectIndex);
    virtual ~KynHelperObj();

    // Whether `kind` is one of this view's kind names; exact and case-sensitive.
    bool isA(const std::string& kind) const;
    // The type name of the chunk with `tag` at sample 0 ("float", "int32", ...), or "undef".
    std::string getObjectType(unsigned int tag);
    // Stores the chunk with `tag` (null if absent) in `chunk` and returns whether it came from
    // the sample: the result does not say whether a chunk was found.
    bool findChunk(int sampleIndex, unsigned int tag, const KynChunk*& chunk);
    // The first direct child of `group` with `tag`, or null; does not descend.
    const KynChunk* searchChunk(const KynGroupChunk* group, unsigned int tag) const;
    // The scalar count of the chunk's dimension code: 1, 2, 3, 4, 9 or 16; 0 for any other.
    int getDimension(const KynChunk* chunk) const;

    // Points `data` at the elements of a leaf whose type code is exactly that of T, for T =
    // int, long, float, double, std::string; otherwise `data` is null and the result false.
    template <class T>
    bool getKynLeafData(const KynChunk* chunk, const std::vector<T>*& data) const;

    // One attribute at one sample, in place, for T = int, long, float, double. `dimension` is
    // set whenever the attribute's chunk exists, also when its type does not match.
    template <class T>
    bool getAttrData(int sampleIndex, int attrIndex, const std::vector<T>*& data, int& dimension);
    bool getAttrData(int sampleIndex, int attrIndex, const std::vector<std::string>*& data);
    // The same as a copy of the stored type, without conversion; `out` is untouched on failure.
    template <class T>
    bool getAttr(int sampleIndex, int attrIndex, std::vector<T>& out, int& dimension);
    bool getAttr(int sampleIndex, int attrIndex, std::vector<std::string>& out);

    // The chunk with `tag` as a copy converted to T (float or double) from float or double
    // storage. `dimension` is 3 or 4 (any other code reads as 3) and is set before the type is
    // checked; `out` is untouched on failure.
    template <class T>
    bool getFloatOrDoubleData(int sampleIndex, unsigned int tag, std::vector<T>& out,
                              bool& animated, int& dimension);

    // The fractional part of `time` in sample units (of `time` itself in a non-uniform file),
    // with the sign of its argument.
    float getTimeFraction(float time);
    // Picks `order` + 1 consecutive samples for `time` into `indices` and their times into
    // `times`. True: blend them. False: use the data of `indices[0]` alone (a time on a sample
    // within 0.001, at or past the end, before the start, or no samples).
    bool getEvalTimeAndSampleIndices(float time, KynInterpolationHints& hints,
                                     std::vector<int>& indices, std::vector<float>& times);
    // One attribute at `time`; instantiated for double only. Blending needs double attributes.
    template <class T>
    bool getAttrDataAtTime(float time, int attrIndex, KynInterpolationHints& hints,
                           std::vector<T>& out, int& dimension);
    bool getAttrAtTime(float time, int attrIndex, KynInterpolationHints& hints,
                       std::vector<double>& out, int& dimension);

    // The axis-aligned box at one sample: a stored "BBOX" wins, else it is computed from
    // "POSI". `cornerOrder` true: x, y, z minima then maxima; false: x min, x max, y min, ...
    // `state` is written at every exit.
    bool getBounds(int sampleIndex, float (&bounds)[6], AnimationState& state, bool cornerOrder);
    bool getBounds(int sampleIndex, std::vector<float>& bounds, AnimationState& state,
                   bool cornerOrder);

    // The object's attribute table, or null when there is none or `objectIndex` (or the cache)
    // is not valid. Everything that reads attribute names goes through it.
    const KynDATRChunk* attrTable() const;

    KynRoMemCache* cache;         // not owned; must outlive the view
    int objectIndex;              // index into the cache's objects
    std::set<std::string> kinds;  // kind names, filled by the constructors

  protected:
    // The fraction at which `time` lies in a run picked for `order`: from entry 0 to 1 for
    // order 1, from entry 1 to 2 for orders 2 and 3. Computed in float.
    static float blendFraction(float time, int order, const std::vector<float>& times);
    // Blends the element vectors of the `order` + 1 picked samples (order 1, 2 or 3) into
    // `out`, in the arithmetic of S, each result converted to T when stored. `out` takes the
    // length of the first sample; a later sample shorter than that gives false and leaves `out`
    // untouched. Instantiated for (T, S) = (float, float), (double, float), (double, double).
    template <class T, class S>
    static bool blendSamples(int order, float f, const std::vector<const std::vector<S>*>& samples,
                             std::vector<T>& out);
};

template <class T>
bool KynHelperObj::getKynLeafData(const KynChunk* chunk, const std::vector<T>*& data) const {
    data = nullptr;
    if (chunk == nullptr || chunk->header.type != KynTypeOf<T>::code) return false;
    // A leaf of exactly that class, as nearly every leaf is, needs no walk of the class tree.
    const std::type_info& type = typeid(*chunk);
    const auto* leaf = &type == &typeid(KynLeafChunk<T>)
                           ? static_cast<const KynLeafChunk<T>*>(chunk)
                           : dynamic_cast<const KynLeafChunk<T>*>(chunk);
    if (leaf == nullptr) return false;
    data = &leaf->data;
    return true;
}

// Builds the view that fits an object's tags. Views it builds belong to the caller.
class KynHelperObjFactory {
  public:
    explicit KynHelperObjFactory(KynRoMemCache* cache);
    ~KynHelperObjFactory();

    // The first match of "XFRM", "MESH", "NRBS", "NRBC", "ELOC", "LXCS", "POSI" decides the
    // class; no match (or a bad index) gives a bare KynHelperObj. Never null.
    KynHelperObj* kynObjBuilder(int objectIndex);
    // All object names in index order; false at the first empty name, with the names before it.
    bool getObjectNames(std::vector<std::string>& names) const;

    KynRoMemCache* cache;  // not owned
};

// Anything with points: "POSI" in place, as a converted copy, at a time, and a reference pose.
class GeometryKynObj : public KynHelperObj {
  public:
    GeometryKynObj(KynRoMemCache* cache, int objectIndex);
    ~GeometryKynObj() override;

    // "POSI" in place, stored type only. `state` is 0 unless the read succeeds; `dimension`
    // (3 or 4) is written on success only.
    virtual bool getPositionData(int sampleIndex, const std::vector<float>*& data,
                                 AnimationState& state, int& dimension);
    virtual bool getPositionData(int sampleIndex, const std::vector<double>*& data,
                                 AnimationState& state, int& dimension);
    // "POSI" as a converted copy; `state` is written on success and on failure.
    virtual bool getPosition(int sampleIndex, std::vector<float>& out, AnimationState& state,
                             int& dimension);
    virtual bool getPosition(int sampleIndex, std::vector<double>& out, AnimationState& state,
                             int& dimension);
    // "POSI" at `time`. Blending reads float-stored positions only, in float arithmetic; a
    // time on a sample or past the end reads either storage.
    virtual bool getPositionAtTime(float time, KynInterpolationHints& hints,
                                   std::vector<float>& out, AnimationState& state, int& dimension);
    virtual bool getPositionAtTime(float time, KynInterpolationHints& hints,
                                   std::vector<double>& out, AnimationState& state, int& dimension);
    // The reference pose ("rmanP__Pref" or "velt_Pref") in place, at the first sample time.
    // Float: the first matching attribute decides. Double: the last matching double attribute
    // wins, and a match of another type ends the search with what was found before it.
    virtual bool getPrefData(const std::vector<float>*& data, int& dimension);
    virtual bool getPrefData(const std::vector<double>*& data, int& dimension);

    // The evaluation behind getPositionAtTime, for T = float and double.
    template <class T>
    bool getPOSIDataAtTime(float time, KynInterpolationHints& hints, std::vector<T>& out,
                           AnimationState& state, int& dimension);
};

// A polygon or subdivision mesh: topology, normals, velocities, reference pose, shape type.
class MeshKynObj : public GeometryKynObj {
  public:
    MeshKynObj(KynRoMemCache* cache, int objectIndex);
    ~MeshKynObj() override;

    // Topology in place: "PCNT", "PIDS", "NCNT", "NIDS", int32 only.
    bool getPcnts(int sampleIndex, const std::vector<int>*& data, AnimationState& state);
    bool getPids(int sampleIndex, const std::vector<int>*& data, AnimationState& state);
    bool getNcnts(int sampleIndex, const std::vector<int>*& data, AnimationState& state);
    bool getNids(int sampleIndex, const std::vector<int>*& data, AnimationState& state);
    // The same tags as copies.
    bool getFaceVertexCnts(int sampleIndex, std::vector<int>& out, AnimationState& state);
    bool getFaceVertexIds(int sampleIndex, std::vector<int>& out, AnimationState& state);
    bool getFaceNormalVertexCnts(int sampleIndex, std::vector<int>& out, AnimationState& state);
    bool getFaceNormalVertexIds(int sampleIndex, std::vector<int>& out, AnimationState& state);
    // "VPNO", "PONO", "VELO" in place, stored type only.
    bool getNormalData(int sampleIndex, const std::vector<float>*& data, AnimationState& state);
    bool getNormalData(int sampleIndex, const std::vector<double>*& data, AnimationState& state);
    bool getFaceNormalData(int sampleIndex, const std::vector<float>*& data, AnimationState& state);
    bool getFaceNormalData(int sampleIndex, const std::vector<double>*& data,
                           AnimationState& state);
    bool getVelocityData(int sampleIndex, const std::vector<float>*& data, AnimationState& state);
    bool getVelocityData(int sampleIndex, const std::vector<double>*& data, AnimationState& state);
    // The same tags as copies converted from float or double storage.
    bool getNormals(int sampleIndex, std::vector<float>& out, AnimationState& state);
    bool getNormals(int sampleIndex, std::vector<double>& out, AnimationState& state);
    bool getFaceNormals(int sampleIndex, std::vector<float>& out, AnimationState& state);
    bool getFaceNormals(int sampleIndex, std::vector<double>& out, AnimationState& state);
    bool getVelocity(int sampleIndex, std::vector<float>& out, AnimationState& state);
    bool getVelocity(int sampleIndex, std::vector<double>& out, AnimationState& state);
    // The reference pose as a plain run of scalars: the double search first, then the float.
    bool getPref(std::vector<float>& out);
    bool getPref(std::vector<double>& out);
    // The attribute "mdShapeType" if it is int32, else "MSPT": 0 means subdivision surface.
    // A mesh that says nothing counts as a subdivision surface; an empty value says nothing.
    bool isSubd();
};

// A NURBS surface: the full control net rebuilt from the distinct vertices that are stored.
class NurbsSurfaceKynObj : public GeometryKynObj {
  public:
    NurbsSurfaceKynObj(KynRoMemCache* cache, int objectIndex);
    ~NurbsSurfaceKynObj() override;

    using KynHelperObj::getAttr;

    // Element count of "KNTU" / "KNTV" stored as float or double; 0 otherwise or when missing.
    int getNumKnotUData(int sampleIndex);
    int getNumKnotVData(int sampleIndex);
    // "DEGR": degree in U and in V.
    bool getDegree(int sampleIndex, int& degU, int& degV, AnimationState& state);
    // "FORM": form in U and in V; only "kPeriodic" is told apart.
    bool getForm(int sampleIndex, std::string& formU, std::string& formV, AnimationState& state);
    // "KNTU" and "KNTV"; float-stored knots honour `addEndKnots`, double-stored always get them.
    bool getKnots(int sampleIndex, std::vector<float>& knotsU, std::vector<float>& knotsV,
                  AnimationState& state, bool addEndKnots);
    bool getKnots(int sampleIndex, std::vector<double>& knotsU, std::vector<double>& knotsV,
                  AnimationState& state, bool addEndKnots);
    // The net of numU * numV vertices x, y, z, 1; V fastest, or U fastest with `reorder`. A
    // direction without vertices (K = d - 1 knots) gives an empty net.
    bool getControlPoints(int sampleIndex, std::vector<float>& out, AnimationState& state,
                          bool reorder);
    bool getControlPoints(int sampleIndex, std::vector<double>& out, AnimationState& state,
                          bool reorder);
    bool getControlPointsAtTime(float time, KynInterpolationHints& hints, std::vector<float>& out,
                                AnimationState& state, bool reorder);
    bool getControlPointsAtTime(float time, KynInterpolationHints& hints, std::vector<double>& out,
                                AnimationState& state, bool reorder);
    // The reference pose as stored, at most transposed; topology read from static data.
    bool getPrefControlPoints(std::vector<float>& out, bool reorder);
    bool getPrefControlPoints(std::vector<double>& out, bool reorder);
    // An attribute in the net's order: the requested type first, then its sibling type.
    bool getAttr(int sampleIndex, int attrIndex, std::vector<float>& out, int& dimension,
                 bool reorder);
    bool getAttr(int sampleIndex, int attrIndex, std::vector<double>& out, int& dimension,
                 bool reorder);
    bool getAttr(int sampleIndex, int attrIndex, std::vector<int>& out, int& dimension,
                 bool reorder);
    bool getAttr(int sampleIndex, int attrIndex, std::vector<long>& out, int& dimension,
                 bool reorder);
    bool getAttr(int sampleIndex, int attrIndex, std::vector<std::string>& out, bool reorder);

    // Converts and, with `reorder`, transposes per-vertex data to U fastest. For (S, D) =
    // (float, float), (double, float), (double, double), (float, double), (long, int),
    // (int, long), (std::string, std::string).
    template <class S, class D>
    bool reorderAttr(int sampleIndex, const std::vector<S>*& data, std::vector<D>& out,
                     int& dimension, bool reorder);
    // The control net at one sample and at a time, for T = float and double.
    template <class T>
    bool getCPData(int sampleIndex, std::vector<T>& out, AnimationState& state, bool reorder);
    template <class T>
    bool getCPDataAtTime(float time, KynInterpolationHints& hints, std::vector<T>& out,
                         AnimationState& state, bool reorder);
};

// A NURBS curve: the full control polygon rebuilt from the distinct vertices that are stored.
class NurbsCurveKynObj : public GeometryKynObj {
  public:
    NurbsCurveKynObj(KynRoMemCache* cache, int objectIndex);
    ~NurbsCurveKynObj() override;

    // "DEGR": the first value.
    bool getDegree(int sampleIndex, int& degree, AnimationState& state);
    // "FORM": the first string; only "kPeriodic" is told apart.
    bool getForm(int sampleIndex, std::string& form, AnimationState& state);
    // "KNTU", with the two end knots added on request.
    bool getKnots(int sampleIndex, std::vector<float>& knots, AnimationState& state,
                  bool addEndKnots);
    bool getKnots(int sampleIndex, std::vector<double>& knots, AnimationState& state,
                  bool addEndKnots);
    // The polygon of numCVs vertices x, y, z, 1, periodic repeats included; empty for none.
    bool getControlPoints(int sampleIndex, std::vector<float>& out, AnimationState& state);
    bool getControlPoints(int sampleIndex, std::vector<double>& out, AnimationState& state);
    bool getControlPointsAtTime(float time, KynInterpolationHints& hints, std::vector<float>& out,
                                AnimationState& state);
    bool getControlPointsAtTime(float time, KynInterpolationHints& hints, std::vector<double>& out,
                                AnimationState& state);

    // The polygon at one sample and at a time, for T = float and double.
    template <class T>
    bool getCPData(int sampleIndex, std::vector<T>& out, AnimationState& state);
    template <class T>
    bool getCPDataAtTime(float time, KynInterpolationHints& hints, std::vector<T>& out,
                         AnimationState& state);
};

// A locator: a marker in space, read through the generic access of KynHelperObj.
class LocatorKynObj : public KynHelperObj {
  public:
    LocatorKynObj(KynRoMemCache* cache, int objectIndex);
    ~LocatorKynObj() override;
};

// A coordinate system: four settings read from its attributes at sample 0, with defaults.
class LxCoordSystemKynObj : public KynHelperObj {
  public:
    LxCoordSystemKynObj(KynRoMemCache* cache, int objectIndex);
    ~LxCoordSystemKynObj() override;

    virtual bool scoped();              // "scoped", int32; default true
    virtual bool useAsClippingPlane();  // "useAsClippingPlane", int32; default true
    virtual int displayShape();         // "displayShape", int32, as stored; default 1
    virtual std::string parentRig();    // "parentRig", cstr; default empty
};

// A transform: its "MTRX" matrix at a sample, channels held as attributes, and its matrix at
// any time. Matrices are sixteen values, row-major, row vectors.
class TransformKynObj : public KynHelperObj {
  public:
    TransformKynObj(KynRoMemCache* cache, int objectIndex);
    ~TransformKynObj() override;

    // The sixteen values of "MTRX" (float or double storage) converted to T, into `matrix`,
    // which has room for sixteen. For T = float and double.
    template <class T>
    bool getXFRMData(int sampleIndex, T* matrix, AnimationState& state);
    // As getXFRMData, with `data` resized to sixteen first.
    bool getTransformData(int sampleIndex, std::vector<float>& data, AnimationState& state);
    bool getTransformData(int sampleIndex, std::vector<double>& data, AnimationState& state);
    // "INHT" at the first sample time; a missing or non-int32 chunk means true.
    bool inheritsTransform();
    // The matrix at `time`: linear through channels or matrices, quadratic (also for order 3)
    // through matrices, otherwise the stored matrix at the picked sample.
    bool getTransformAtTime(float time, KynInterpolationHints& hints, std::vector<float>& matrix,
                            AnimationState& state);
    bool getTransformAtTime(float time, KynInterpolationHints& hints, std::vector<double>& matrix,
                            AnimationState& state);

    // Blends between the samples of `indices[0]` and `[1]` at fraction `t`; `matrix` holds
    // sixteen values already. For T = float and double.
    template <class T>
    bool getLinearInterpMatrix(std::vector<int>& indices, T t, std::vector<T>& matrix,
                               AnimationState& state);
    // Blends through the samples of `indices[0]` to `[2]`, with `t` 0 at the middle one.
    template <class T>
    bool getQuadraticInterpMatrix(std::vector<int>& indices, T t, std::vector<T>& matrix,
                                  AnimationState& state);
};

}  // namespace Kyn

#endif
