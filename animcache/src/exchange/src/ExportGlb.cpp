// Export to glTF 2.0 binary: the object paths become the node tree (one node per path
// component, so "|root|mesh" is the node "mesh" under the node "root"), meshes and point sets
// hang on their nodes, transforms move them, and one animation plays every track at the sample
// times. With a path, the transforms above it are kept, so what is exported sits where it does
// in the scene.
#include <cmath>
#include <fstream>
#include <map>

#include "GltfBuilder.h"

namespace Kyn {
namespace exchange {

namespace {

// The largest buffer that a .glb file can hold beside its JSON, with room to spare.
constexpr std::size_t kMaxGlbBuffer = (std::size_t(1) << 32) - (std::size_t(64) << 20);

class NodeTree {
  public:
    explicit NodeTree(tinygltf::Model& model) : model(model) {}

    // The node of an object path, made with every node above it that is missing. An object
    // whose path another object took already gets a node of its own beside it.
    int nodeOf(const std::string& path) {
        std::string prefix;
        int parent = -1, node = -1;
        std::size_t start = !path.empty() && path[0] == '|' ? 1 : 0;
        while (true) {
            const std::size_t bar = path.find('|', start);
            const std::string component = path.substr(start, bar - start);
            prefix += "|" + component;
            const bool last = bar == std::string::npos;
            const auto found = nodes.find(prefix);
            if (found != nodes.end() && !(last && taken.count(found->second)))
                node = found->second;
            else
                node = addNode(component, parent, prefix);
            parent = node;
            if (last) break;
            start = bar + 1;
        }
        taken.insert(node);
        return node;
    }

  private:
    int addNode(const std::string& name, int parent, const std::string& path) {
        tinygltf::Node node;
        node.name = name;
        model.nodes.push_back(node);
        const int index = static_cast<int>(model.nodes.size()) - 1;
        if (parent < 0)
            model.scenes.front().nodes.push_back(index);
        else
            model.nodes[std::size_t(parent)].children.push_back(index);
        nodes.emplace(path, index);
        return index;
    }

    tinygltf::Model& model;
    std::map<std::string, int> nodes;  // by path
    std::set<int> taken;               // nodes that hold an object
};

bool writeGlb(const tinygltf::Model& model, const std::string& out, std::string& error) {
    std::ofstream file(out, std::ios::binary | std::ios::trunc);
    tinygltf::TinyGLTF writer;
    const bool written = file && writer.WriteGltfSceneToStream(&model, file, false, true);
    file.close();
    if (written && file) return true;
    error = writeError(out);
    std::remove(out.c_str());
    return false;
}

}  // namespace

KynExchangeResult exportGlb(KynRoMemCache& cache, const std::string& out,
                            const KynExportOptions& options) {
    KynExchangeResult result;
    SampleRange range;
    if (!resolveRange(cache, options, range, result.error)) return result;
    if (!(options.framesPerSecond > 0) || !std::isfinite(options.framesPerSecond)) {
        result.error = "frames per second must be a number above 0";
        return result;
    }
    ObjectSet objects(cache, options.path, true);
    GltfBuilder builder(cache, range, options.framesPerSecond);
    NodeTree tree(builder.model);
    Notes leftOut(result.leftOut), dropped(result.dropped);
    Progress progress(options.progress, int64_t(objects.entries.size()) * range.count());

    for (const ObjectSet::Entry& entry : objects.entries) {
        const std::string& name = entry.name();
        if (entry.kind == Kind::kTransform) {
            addGltfTransform(builder, cache, entry, range, tree.nodeOf(name), dropped, progress);
            if (entry.selected) result.objects.push_back(name);
            continue;
        }
        if (entry.kind == Kind::kMesh || entry.kind == Kind::kPoints) {
            if (!entry.selected) continue;
            std::string why;
            const int mesh = addGltfMesh(builder, cache, entry, range, dropped, progress, why);
            if (mesh < 0) {
                leftOut.add(name, why);
                continue;
            }
            const int node = tree.nodeOf(name);
            builder.model.nodes[std::size_t(node)].mesh = mesh;
            const std::size_t targets = builder.model.meshes[std::size_t(mesh)].weights.size();
            if (targets > 0) builder.addTrack(node, "weights", builder.weights(int(targets)));
            result.objects.push_back(name);
            continue;
        }
        for (int s = range.first; s <= range.last; ++s) progress.step();
        if (!entry.selected) continue;
        if (entry.kind == Kind::kLocator) {
            tree.nodeOf(name);
            result.objects.push_back(name);
        } else if (entry.kind == Kind::kNurbs) {
            leftOut.add(name, "NURBS surfaces and curves have no counterpart in glTF");
        } else {
            leftOut.add(name, "it holds nothing that glTF can carry");
        }
    }

    if (result.objects.empty()) {
        result.error = "nothing under " + (options.path.empty() ? cache.fileName : options.path) +
                       " can be written to glTF";
        return result;
    }
    if (builder.model.buffers.front().data.size() > kMaxGlbBuffer) {
        result.error =
            "the scene needs more than the 4 GB that one .glb file holds; write fewer "
            "samples (--samples) or fewer objects (--path)";
        return result;
    }
    if (builder.timeShift < 0 && !builder.model.animations.empty())
        dropped.add("", "glTF animation starts at 0 seconds, so all times are later by " +
                            std::to_string(-builder.timeShift) + " frames");
    if (!writeGlb(builder.model, out, result.error)) return result;
    progress.finish();
    result.files.push_back(out);
    result.samples = range.count();
    return result;
}

}  // namespace exchange
}  // namespace Kyn
