#include "GltfBuilder.h"

#include <algorithm>
#include <cstring>
#include <limits>

namespace Kyn {
namespace exchange {

namespace {

int componentsOf(int type) {
    switch (type) {
        case TINYGLTF_TYPE_SCALAR:
            return 1;
        case TINYGLTF_TYPE_VEC2:
            return 2;
        case TINYGLTF_TYPE_VEC3:
            return 3;
        default:
            return 4;
    }
}

}  // namespace

GltfBuilder::GltfBuilder(const KynRoMemCache& cache, const SampleRange& range,
                         double framesPerSecond)
    : cache(cache), range(range), framesPerSecond(framesPerSecond) {
    model.asset.version = "2.0";
    model.asset.generator = "libkyn";
    model.buffers.emplace_back();
    model.scenes.emplace_back();
    model.defaultScene = 0;
    const float first = cache.getSampleTime(range.first);
    if (first < 0) timeShift = first;
}

int GltfBuilder::addView(const void* data, std::size_t bytes, int target) {
    std::vector<unsigned char>& buffer = model.buffers.front().data;
    tinygltf::BufferView view;
    view.buffer = 0;
    view.byteOffset = buffer.size();
    view.byteLength = bytes;
    view.target = target;
    const auto* begin = static_cast<const unsigned char*>(data);
    buffer.insert(buffer.end(), begin, begin + bytes);
    model.bufferViews.push_back(view);
    return static_cast<int>(model.bufferViews.size()) - 1;
}

int GltfBuilder::addFloats(const float* data, std::size_t count, int type, int target) {
    const int components = componentsOf(type);
    tinygltf::Accessor accessor;
    accessor.bufferView = addView(data, count * std::size_t(components) * sizeof(float), target);
    accessor.componentType = TINYGLTF_COMPONENT_TYPE_FLOAT;
    accessor.count = count;
    accessor.type = type;
    // Positions and animation inputs must carry their bounds; the others may.
    accessor.minValues.assign(std::size_t(components), std::numeric_limits<double>::infinity());
    accessor.maxValues.assign(std::size_t(components), -std::numeric_limits<double>::infinity());
    for (std::size_t i = 0; i < count; ++i)
        for (std::size_t c = 0; c < std::size_t(components); ++c) {
            const double value = data[i * std::size_t(components) + c];
            accessor.minValues[c] = std::min(accessor.minValues[c], value);
            accessor.maxValues[c] = std::max(accessor.maxValues[c], value);
        }
    model.accessors.push_back(accessor);
    return static_cast<int>(model.accessors.size()) - 1;
}

int GltfBuilder::addIndices(const std::vector<uint32_t>& indices) {
    tinygltf::Accessor accessor;
    accessor.bufferView = addView(indices.data(), indices.size() * sizeof(uint32_t),
                                  TINYGLTF_TARGET_ELEMENT_ARRAY_BUFFER);
    accessor.componentType = TINYGLTF_COMPONENT_TYPE_UNSIGNED_INT;
    accessor.count = indices.size();
    accessor.type = TINYGLTF_TYPE_SCALAR;
    model.accessors.push_back(accessor);
    return static_cast<int>(model.accessors.size()) - 1;
}

int GltfBuilder::times() {
    if (timesAccessor >= 0) return timesAccessor;
    std::vector<float> seconds;
    for (int s = range.first; s <= range.last; ++s)
        seconds.push_back(
            static_cast<float>((double(cache.getSampleTime(s)) - timeShift) / framesPerSecond));
    timesAccessor = addFloats(seconds.data(), seconds.size(), TINYGLTF_TYPE_SCALAR, 0);
    return timesAccessor;
}

int GltfBuilder::weights(int targets) {
    const auto found = weightAccessors.find(targets);
    if (found != weightAccessors.end()) return found->second;
    const std::size_t keys = std::size_t(range.count()), width = std::size_t(targets);
    std::vector<float> values(keys * width, 0.0f);
    for (std::size_t k = 1; k < keys && k - 1 < width; ++k) values[k * width + k - 1] = 1.0f;
    const int accessor = addFloats(values.data(), values.size(), TINYGLTF_TYPE_SCALAR, 0);
    weightAccessors[targets] = accessor;
    return accessor;
}

void GltfBuilder::addTrack(int node, const char* path, int output) {
    if (model.animations.empty()) {
        model.animations.emplace_back();
        model.animations.front().name = "cache";
    }
    tinygltf::Animation& animation = model.animations.front();
    tinygltf::AnimationSampler sampler;
    sampler.input = times();
    sampler.output = output;
    sampler.interpolation = "LINEAR";
    animation.samplers.push_back(sampler);
    tinygltf::AnimationChannel channel;
    channel.sampler = static_cast<int>(animation.samplers.size()) - 1;
    channel.target_node = node;
    channel.target_path = path;
    animation.channels.push_back(channel);
}

GltfBuilder::Mark GltfBuilder::mark() const {
    return {model.buffers.front().data.size(), model.bufferViews.size(), model.accessors.size()};
}

void GltfBuilder::rollback(const Mark& mark) {
    model.buffers.front().data.resize(mark.bytes);
    model.bufferViews.resize(mark.views);
    model.accessors.resize(mark.accessors);
}

}  // namespace exchange
}  // namespace Kyn
