// The glTF mesh of one mesh or point set: the first sample's positions, faces fanned into
// triangles, normals and texture coordinates; every later sample as a morph target whose
// displacements give back that sample's positions exactly when added at weight 1, in float, as
// a viewer adds them.
#include <cmath>

#include "GltfBuilder.h"

namespace Kyn {
namespace exchange {

namespace {

// A difference that gives `target` back exactly when added to `base` in float; false when no
// float close to the plain difference does (a point that moves across magnitudes).
bool exactDelta(float base, float target, float& delta) {
    delta = target - base;
    if (base + delta == target) return true;
    float below = delta, above = delta;
    for (int step = 0; step < 4; ++step) {
        below = std::nextafter(below, -INFINITY);
        above = std::nextafter(above, INFINITY);
        if (base + below == target) return (delta = below), true;
        if (base + above == target) return (delta = above), true;
    }
    return false;
}

// Fans every face of three or more vertices into triangles; answers how many faces had fewer.
std::size_t triangulate(const Faces& faces, std::vector<uint32_t>& triangles) {
    std::size_t at = 0, skipped = 0;
    const std::vector<int>& ids = *faces.ids;
    for (int count : *faces.counts) {
        for (int i = 1; i + 1 < count; ++i)
            triangles.insert(triangles.end(),
                             {uint32_t(ids[at]), uint32_t(ids[at + std::size_t(i)]),
                              uint32_t(ids[at + std::size_t(i) + 1])});
        if (count < 3) ++skipped;
        at += std::size_t(count);
    }
    return skipped;
}

std::string sampleText(const KynRoMemCache& cache, int sample) {
    return "sample " + std::to_string(sample) + " (" + frameText(cache.getSampleTime(sample)) + ")";
}

void addNormals(GltfBuilder& builder, MeshKynObj& mesh, int sample, std::size_t vertices,
                bool animatedRange, tinygltf::Primitive& primitive, Notes& dropped,
                const std::string& name) {
    const KynChunk* faceNormals = nullptr;
    mesh.findChunk(sample, kTagPONO, faceNormals);
    if (faceNormals != nullptr)
        dropped.add(name, "face normals are left out; glTF takes one normal per vertex");
    std::vector<float> normals;
    KynHelperObj::AnimationState state = KynHelperObj::kStatic;
    if (!mesh.getNormals(sample, normals, state)) return;
    if (normals.size() != vertices * 3) {
        dropped.add(name, "its normals are not one per vertex, which glTF needs; left out");
        return;
    }
    for (std::size_t v = 0; v < vertices; ++v) {
        float* n = &normals[3 * v];
        const double length =
            std::sqrt(double(n[0]) * n[0] + double(n[1]) * n[1] + double(n[2]) * n[2]);
        if (!(length > 0) || !std::isfinite(length)) {
            dropped.add(name, "some of its normals have no direction; normals are left out");
            return;
        }
        for (int k = 0; k < 3; ++k) n[k] = static_cast<float>(n[k] / length);
    }
    if (state == KynHelperObj::kAnimated && animatedRange)
        dropped.add(name, "its normals are those of the first sample written");
    primitive.attributes["NORMAL"] = builder.addFloats(normals.data(), vertices, TINYGLTF_TYPE_VEC3,
                                                       TINYGLTF_TARGET_ARRAY_BUFFER);
}

// Texture coordinates have no tag of their own in a cache: they are taken from a float or
// double attribute named "uv" holding one pair per vertex.
void addUvs(GltfBuilder& builder, KynRoMemCache& cache, const ObjectSet::Entry& entry, int sample,
            std::size_t vertices, bool animatedRange, tinygltf::Primitive& primitive,
            Notes& dropped) {
    const KynDATRChunk* attributes = cache.meta.objects[std::size_t(entry.index)]->datr;
    const int index = attributes == nullptr ? -1 : attributes->findAttr("uv");
    if (index < 0) return;
    std::vector<float> uvs;
    std::vector<double> wide;
    int dimension = 0;
    if (!entry.view->getAttr(sample, index, uvs, dimension) &&
        entry.view->getAttr(sample, index, wide, dimension))
        uvs.assign(wide.begin(), wide.end());
    if (uvs.size() != vertices * 2) {
        dropped.add(entry.name(),
                    "its \"uv\" attribute is not one float pair per vertex, which "
                    "glTF needs; texture coordinates are left out");
        return;
    }
    if (attributes->isAnimated(index) && animatedRange)
        dropped.add(entry.name(), "its texture coordinates are those of the first sample written");
    primitive.attributes["TEXCOORD_0"] =
        builder.addFloats(uvs.data(), vertices, TINYGLTF_TYPE_VEC2, TINYGLTF_TARGET_ARRAY_BUFFER);
}

}  // namespace

int addGltfMesh(GltfBuilder& builder, KynRoMemCache& cache, const ObjectSet::Entry& entry,
                const SampleRange& range, Notes& dropped, Progress& progress, std::string& why) {
    const std::string& name = entry.name();
    auto& view = static_cast<GeometryKynObj&>(*entry.view);
    auto* mesh = entry.kind == Kind::kMesh ? static_cast<MeshKynObj*>(entry.view) : nullptr;
    for (int s = range.first; s <= range.last; ++s) progress.step();

    Points points;
    if (!readPoints(view, range.first, points) || points.count == 0) {
        why = "it stores no positions";
        return -1;
    }
    const std::size_t vertices = points.count;
    const std::vector<float> base(points.xyz, points.xyz + vertices * 3);
    const bool moves = points.animated && range.count() > 1;
    if (points.narrowed) dropped.add(name, "positions stored as double are written as float");
    if (points.droppedW) dropped.add(name, "the fourth component of its positions is left out");

    const GltfBuilder::Mark mark = builder.mark();
    tinygltf::Primitive primitive;
    primitive.mode = TINYGLTF_MODE_POINTS;
    primitive.attributes["POSITION"] =
        builder.addFloats(base.data(), vertices, TINYGLTF_TYPE_VEC3, TINYGLTF_TARGET_ARRAY_BUFFER);
    Faces faces;
    std::vector<int> firstCounts, firstIds;
    const bool hasFaces = mesh != nullptr && readFaces(*mesh, range.first, faces);
    if (hasFaces) {
        why = checkFaces(faces, vertices);
        if (!why.empty()) {
            builder.rollback(mark);
            return -1;
        }
        std::vector<uint32_t> triangles;
        if (triangulate(faces, triangles) > 0)
            dropped.add(name, "faces of fewer than three vertices are left out");
        if (!triangles.empty()) {
            primitive.indices = builder.addIndices(triangles);
            primitive.mode = TINYGLTF_MODE_TRIANGLES;
        }
        if (faces.animated) {
            firstCounts = *faces.counts;
            firstIds = *faces.ids;
        }
    }
    if (mesh != nullptr)
        addNormals(builder, *mesh, range.first, vertices, moves, primitive, dropped, name);
    addUvs(builder, cache, entry, range.first, vertices, moves, primitive, dropped);
    releaseObjectSample(cache, range.first, entry.index);

    std::size_t inexact = 0;
    std::vector<float> delta(vertices * 3);
    for (int s = range.first + 1; moves && s <= range.last; ++s) {
        if (!readPoints(view, s, points) || points.count != vertices) {
            builder.rollback(mark);
            why = "its vertex count changes at " + sampleText(cache, s) +
                  "; glTF morph targets keep one vertex count";
            return -1;
        }
        if (hasFaces && faces.animated && readFaces(*mesh, s, faces) &&
            (*faces.counts != firstCounts || *faces.ids != firstIds)) {
            builder.rollback(mark);
            why = "its faces change at " + sampleText(cache, s) +
                  "; glTF morph targets keep one set of faces";
            return -1;
        }
        for (std::size_t i = 0; i < delta.size(); ++i)
            if (!exactDelta(base[i], points.xyz[i], delta[i])) ++inexact;
        primitive.targets.push_back(
            {{"POSITION", builder.addFloats(delta.data(), vertices, TINYGLTF_TYPE_VEC3,
                                            TINYGLTF_TARGET_ARRAY_BUFFER)}});
        releaseObjectSample(cache, s, entry.index);
    }
    if (inexact > 0)
        dropped.add(name, std::to_string(inexact) +
                              " coordinates of its later samples come back from their morph "
                              "targets within float rounding, not exactly: they lie far from "
                              "the first sample's");

    tinygltf::Mesh gltfMesh;
    gltfMesh.name = name;
    gltfMesh.weights.assign(primitive.targets.size(), 0.0);
    gltfMesh.primitives.push_back(primitive);
    builder.model.meshes.push_back(gltfMesh);
    return static_cast<int>(builder.model.meshes.size()) - 1;
}

}  // namespace exchange
}  // namespace Kyn
