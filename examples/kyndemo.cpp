// kyndemo [FILE]: the life of a cache file from a producer to a host.
//
//  1. A producer builds a mesh "|root|mesh" under a transform "|root" sample by sample in a
//     KynRwMemCache (frames 1 to 24) and saves it; later it adds frames 25 to 30 and saves
//     again, which appends them in place.
//  2. kyninfo reports on the file.
//  3. A host loads it with a KynRoMemCache, finds the mesh by path, builds its view, and reads
//     its positions at a stored sample and at frame 12.5 (linear and cubic), and the transform's
//     matrix at frame 12.5.
#include <cmath>
#include <iostream>
#include <vector>

#include "KynHelper.h"
#include "KynRoMemCache.h"
#include "KynRwMemCache.h"
#include "kynUtils.h"

using namespace Kyn;

namespace {

const int kGrid = 4;  // a 4 x 4 grid of vertices, 3 x 3 quads

// The static topology and marker of the mesh, stored once in its metadata.
void describeMesh(KynDOBJChunk* mesh) {
    std::vector<int> counts, ids;
    for (int j = 0; j + 1 < kGrid; ++j)
        for (int i = 0; i + 1 < kGrid; ++i) {
            int v = j * kGrid + i;
            counts.push_back(4);
            ids.insert(ids.end(), {v, v + 1, v + kGrid + 1, v + kGrid});
        }
    mesh->children.push_back(new KynLeafChunk<int>(kTagMESH, std::vector<int>{1}));
    mesh->children.push_back(new KynLeafChunk<int>(kTagPCNT, counts));
    mesh->children.push_back(new KynLeafChunk<int>(kTagPIDS, ids));
}

// One frame: the transform moves along x, the grid ripples in z.
void addFrame(KynRwMemCache& cache, int frame) {
    std::vector<float> matrix = {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, float(frame), 0, 0, 1};
    cache.allocSample(float(frame), 0)
        ->children.push_back(
            new KynLeafChunk<float>(kTagMTRX, 4 /* transform */, 16 /* 4x4 */, matrix));
    std::vector<float> points;
    for (int j = 0; j < kGrid; ++j)
        for (int i = 0; i < kGrid; ++i)
            points.insert(points.end(), {float(i), float(j), std::sin(0.25f * frame + i)});
    cache.allocSample(float(frame), 1)
        ->children.push_back(new KynLeafChunk<float>(kTagPOSI, 1 /* point */, 3 /* 3d */, points));
}

bool produce(const char* path) {
    KynRwMemCache cache;
    cache.meta.application = "kyndemo";
    cache.meta.sourceFile = "demo.scene";
    cache.setName(0, "|root");
    cache.setName(1, "|root|mesh");
    cache.meta.objects[0]->children.push_back(new KynLeafChunk<int>(kTagXFRM));
    describeMesh(cache.meta.objects[1]);
    for (int frame = 1; frame <= 24; ++frame) addFrame(cache, frame);
    bool saved = false;
    if (!cache.saveAs(path, &saved, nullptr) || !saved) return false;
    std::cout << "wrote frames 1 to 24\n";

    KynRwMemCache later;
    if (!later.load(path, true)) return false;
    for (int frame = 25; frame <= 30; ++frame) addFrame(later, frame);
    if (!later.save(&saved, nullptr) || !saved) return false;
    std::cout << "appended frames 25 to 30\n";
    return true;
}

void printPoint(const char* what, const std::vector<float>& points) {
    std::cout << what << ": vertex 1 at (" << points[3] << ", " << points[4] << ", " << points[5]
              << ")\n";
}

bool consume(const char* path) {
    KynRoMemCache cache;
    if (!cache.load(path, true, 4)) return false;  // at most 4 samples in memory
    KynHelperObjFactory factory(&cache);
    int index = cache.findObjectIndex("|root|mesh", 0);
    KynHelperObj* view = factory.kynObjBuilder(index);
    auto* mesh = dynamic_cast<MeshKynObj*>(view);
    bool ok = mesh != nullptr;
    if (ok) {
        const std::vector<float>* stored = nullptr;
        KynHelperObj::AnimationState state;
        int dimension = 0;
        ok = mesh->getPositionData(cache.getSampleIndex(12.0f), stored, state, dimension);
        if (ok) printPoint("frame 12, stored", *stored);
        KynInterpolationHints hints;
        std::vector<float> points;
        for (int order : {1, 3}) {
            hints.order = order;
            ok = ok && mesh->getPositionAtTime(12.5f, hints, points, state, dimension);
            if (ok) printPoint(order == 1 ? "frame 12.5, linear" : "frame 12.5, cubic", points);
        }
    }
    delete view;

    view = factory.kynObjBuilder(cache.findObjectIndex("|root", 0));
    if (auto* transform = dynamic_cast<TransformKynObj*>(view)) {
        KynInterpolationHints hints;
        hints.order = 1;
        std::vector<float> matrix;
        KynHelperObj::AnimationState state;
        if (transform->getTransformAtTime(12.5f, hints, matrix, state))
            std::cout << "frame 12.5, transform translation x: " << matrix[12] << "\n";
    }
    delete view;  // views go before their cache
    return ok;
}

}  // namespace

int main(int argc, char** argv) {
    const char* path = argc > 1 ? argv[1] : "demo.kyn";
    std::cout << "== producing " << path << "\n";
    if (!produce(path)) return 1;
    std::cout << "== kyninfo " << path << "\n";
    if (kyninfo(path) != 0) return 1;
    std::cout << "== reading it back\n";
    return consume(path) ? 0 : 1;
}
