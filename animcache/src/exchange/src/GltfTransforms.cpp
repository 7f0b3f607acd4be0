// The glTF side of a transform object. A cache stores a 4x4 matrix per sample, row-major with
// row vectors (translation in elements 12 to 14), which read column-major is the column-vector
// matrix that glTF takes, so a static matrix goes over as it is stored. glTF animates
// translation, rotation and scale only, so an animated matrix is split into those three at
// every sample; shear and projection have no place there and are said to be lost.
#include <cmath>

#include "DGQuat.h"
#include "GltfBuilder.h"

namespace Kyn {
namespace exchange {

namespace {

struct Trs {
    double translation[3], rotation[4], scale[3];
    bool exact;  // the parts give the matrix back
};

// Scale from the lengths of the three axis rows (one negated when the axes are mirrored),
// rotation from the rows divided by them, translation from the last row.
Trs decompose(const std::vector<double>& m) {
    Trs trs;
    DGMatrix4<double> rotation;
    rotation[15] = 1;
    const double determinant = m[0] * (m[5] * m[10] - m[6] * m[9]) -
                               m[1] * (m[4] * m[10] - m[6] * m[8]) +
                               m[2] * (m[4] * m[9] - m[5] * m[8]);
    bool exact = m[3] == 0 && m[7] == 0 && m[11] == 0 && m[15] == 1 && determinant != 0;
    for (int row = 0; row < 3; ++row) {
        const double* axis = &m[std::size_t(4 * row)];
        double length = std::sqrt(axis[0] * axis[0] + axis[1] * axis[1] + axis[2] * axis[2]);
        if (row == 0 && determinant < 0) length = -length;
        trs.scale[row] = length;
        trs.translation[row] = m[std::size_t(12 + row)];
        for (int column = 0; column < 3; ++column)
            rotation[4 * row + column] =
                length == 0 ? double(row == column) : axis[column] / length;
    }
    // The rows must be at right angles for the parts to give the matrix back.
    for (int a = 0; a < 3; ++a)
        for (int b = a + 1; b < 3; ++b) {
            double dot = 0;
            for (int k = 0; k < 3; ++k) dot += rotation[4 * a + k] * rotation[4 * b + k];
            exact = exact && std::fabs(dot) < 1e-5;
        }
    DGQuat<double> q;
    q.matrix4ToQuat(rotation);
    trs.rotation[0] = q.x;
    trs.rotation[1] = q.y;
    trs.rotation[2] = q.z;
    trs.rotation[3] = q.w;
    trs.exact = exact;
    return trs;
}

bool isIdentity(const std::vector<double>& m) {
    for (std::size_t i = 0; i < 16; ++i)
        if (m[i] != (i % 5 == 0 ? 1.0 : 0.0)) return false;
    return true;
}

}  // namespace

void addGltfTransform(GltfBuilder& builder, KynRoMemCache& cache, const ObjectSet::Entry& entry,
                      const SampleRange& range, int node, Notes& dropped, Progress& progress) {
    const std::string& name = entry.name();
    auto& view = static_cast<TransformKynObj&>(*entry.view);
    for (int s = range.first; s <= range.last; ++s) progress.step();
    if (!view.inheritsTransform())
        dropped.add(name, "it does not inherit its parent's transform, which glTF cannot say");
    if (cache.meta.space == 0) {
        dropped.add(name, "the cache holds world-space positions, so its transform is left out");
        return;
    }
    std::vector<double> matrix;
    KynHelperObj::AnimationState state = KynHelperObj::kStatic;
    if (!view.getTransformData(range.first, matrix, state)) {
        dropped.add(name, "it stores no matrix, so it is written as an empty node");
        return;
    }
    tinygltf::Node& target = builder.model.nodes[std::size_t(node)];
    if (state != KynHelperObj::kAnimated || range.count() == 1) {
        const Trs trs = decompose(matrix);
        if (trs.exact && !isIdentity(matrix)) target.matrix = matrix;
        if (trs.exact) return;
        dropped.add(name,
                    "its matrix holds shear or projection, which glTF nodes cannot; the "
                    "nearest translation, rotation and scale are written");
        target.translation.assign(trs.translation, trs.translation + 3);
        target.rotation.assign(trs.rotation, trs.rotation + 4);
        target.scale.assign(trs.scale, trs.scale + 3);
        return;
    }

    std::vector<float> translations, rotations, scales;
    bool exact = true;
    for (int s = range.first; s <= range.last; ++s) {
        if (s != range.first && !view.getTransformData(s, matrix, state)) {
            dropped.add(name, "it has no matrix at " + frameText(cache.getSampleTime(s)) +
                                  "; its transform is left out");
            return;
        }
        const Trs trs = decompose(matrix);
        exact = exact && trs.exact;
        translations.insert(translations.end(), trs.translation, trs.translation + 3);
        rotations.insert(rotations.end(), trs.rotation, trs.rotation + 4);
        scales.insert(scales.end(), trs.scale, trs.scale + 3);
        releaseObjectSample(cache, s, entry.index);
    }
    if (!exact)
        dropped.add(name,
                    "at some samples its matrix holds shear or projection, which glTF "
                    "animation cannot; the nearest translation, rotation and scale are "
                    "written");
    const std::size_t keys = std::size_t(range.count());
    builder.addTrack(node, "translation",
                     builder.addFloats(translations.data(), keys, TINYGLTF_TYPE_VEC3, 0));
    builder.addTrack(node, "rotation",
                     builder.addFloats(rotations.data(), keys, TINYGLTF_TYPE_VEC4, 0));
    builder.addTrack(node, "scale", builder.addFloats(scales.data(), keys, TINYGLTF_TYPE_VEC3, 0));
}

}  // namespace exchange
}  // namespace Kyn
