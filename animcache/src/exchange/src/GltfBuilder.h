// The glTF model that an export fills: one buffer, one buffer view per accessor, and the
// shared animation inputs. Meshes and transforms of the cache's objects are added by
// GltfMeshes.cpp and GltfTransforms.cpp; ExportGlb.cpp puts the node tree together and writes
// the file. Private to the converters.
#ifndef KYN_EXCHANGE_GLTF_BUILDER_H
#define KYN_EXCHANGE_GLTF_BUILDER_H

#include <tiny_gltf.h>

#include <map>
#include <string>
#include <vector>

#include "ExchangeCommon.h"

namespace Kyn {
namespace exchange {

class GltfBuilder {
  public:
    GltfBuilder(const KynRoMemCache& cache, const SampleRange& range, double framesPerSecond);

    // Appends `count` elements of `type` (TINYGLTF_TYPE_...) to the buffer, in a view of their
    // own for `target` (0 for none), and answers the new accessor. Float data of the types
    // that need them get their bounds.
    int addFloats(const float* data, std::size_t count, int type, int target);
    int addIndices(const std::vector<uint32_t>& indices);

    // The sample times in seconds, one accessor for every animation.
    int times();
    // Weights that show morph target k - 1 alone at sample k and none at the first sample.
    int weights(int targets);
    // An animation track of `path` ("translation", "rotation", "scale", "weights") on a node.
    void addTrack(int node, const char* path, int output);

    // What the buffer and the tables held at a moment, to go back to it when an object that was
    // being added is left out after all. Tracks are added only for whole objects, so the shared
    // inputs never lie behind a mark.
    struct Mark {
        std::size_t bytes, views, accessors;
    };
    Mark mark() const;
    void rollback(const Mark& mark);

    tinygltf::Model model;
    // The shift that makes the first time 0 or more, in frames (0 when none is needed).
    float timeShift = 0;

  private:
    int addView(const void* data, std::size_t bytes, int target);

    const KynRoMemCache& cache;
    SampleRange range;
    double framesPerSecond;
    int timesAccessor = -1;
    std::map<int, int> weightAccessors;  // by target count
};

// Adds the mesh of a mesh or point set object; its index, or -1 with the reason in `why`.
int addGltfMesh(GltfBuilder& builder, KynRoMemCache& cache, const ObjectSet::Entry& entry,
                const SampleRange& range, Notes& dropped, Progress& progress, std::string& why);

// Gives a node the transform of a transform object: a matrix, or its parts, and tracks when
// they animate. `dropped` learns what glTF cannot say.
void addGltfTransform(GltfBuilder& builder, KynRoMemCache& cache, const ObjectSet::Entry& entry,
                      const SampleRange& range, int node, Notes& dropped, Progress& progress);

}  // namespace exchange
}  // namespace Kyn

#endif
