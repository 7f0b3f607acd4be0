// The converters, checked by readers that are not ours: tinygltf and tinyobjloader in process,
// assimp and the reference glTF validator as programs (skipped when they are not installed).
// One scene holds every kind of object the converters meet: a transform with a polygon mesh
// (normals, "uv"), a subdivision mesh with double positions, a point set of four components,
// a mesh whose vertex count changes, a NURBS surface and a locator.
#include <gtest/gtest.h>
#include <tiny_gltf.h>
#include <tiny_obj_loader.h>
#include <unistd.h>

#include <charconv>
#include <cmath>
#include <cstdio>
#include <fstream>

#include "KynExchange.h"
#include "KynHelper.h"
#include "TestFiles.h"
#include "ViewFiles.h"

using namespace Kyn;
using namespace kyntest_support;

namespace {

using Floats = std::vector<float>;
using Doubles = std::vector<double>;
using Ints = std::vector<int>;

constexpr int kSamples = 3;  // at frames 1, 2, 3

// Positions are multiples of 1/64 in [1, 2), so that every reader prints them exactly and
// every displacement between samples is exact in float.
float coordinate(int vertex, int axis, int sample) {
    return 1.0f + float((vertex * 7 + axis * 3 + sample * 5) % 64) / 64.0f;
}
Floats grid(int vertices, int sample, int width = 3) {
    Floats points;
    for (int v = 0; v < vertices; ++v)
        for (int k = 0; k < width; ++k) points.push_back(coordinate(v, k % 3, sample));
    return points;
}
std::vector<Floats> perSample(int vertices, int width = 3) {
    std::vector<Floats> samples;
    for (int s = 0; s < kSamples; ++s) samples.push_back(grid(vertices, s, width));
    return samples;
}
// Row-major, row vectors: scale 2, a turn of 30 degrees a sample about z, a move along x.
Doubles matrixAt(int sample) {
    const double a = sample * M_PI / 6, c = 2 * std::cos(a), s = 2 * std::sin(a);
    return {c, s, 0, 0, -s, c, 0, 0, 0, 0, 2, 0, double(sample), 0, 1, 1};
}

const Ints kPolyCounts{4, 3, 5, 2};
const int kVaryingCount[kSamples] = {3, 4, 3};  // vertices of the one face of "|varying"
const Ints kPolyIds{0, 1, 2, 3, 3, 2, 4, 4, 5, 6, 7, 0, 1, 7};

std::string writeScene() {
    ViewFile file(kSamples);
    int o = file.addObject("|root");
    file.addStatic(o, kTagXFRM, Ints{1});
    file.addAnimated(o, kTagMTRX, std::vector<Doubles>{matrixAt(0), matrixAt(1), matrixAt(2)}, 16);
    o = file.addObject("|root|poly");
    file.addStatic(o, kTagMESH, Ints{1});
    file.addStatic(o, kTagMSPT, Ints{1});
    file.addStatic(o, kTagPCNT, kPolyCounts);
    file.addStatic(o, kTagPIDS, kPolyIds);
    file.addStatic(o, kTagVPNO, grid(8, 9));
    file.addStaticAttr(o, "uv", grid(8, 4, 2), 2);
    file.addAnimated(o, kTagPOSI, perSample(8), 3);
    o = file.addObject("|root|subd");
    file.addStatic(o, kTagMESH, Ints{1});
    file.addStatic(o, kTagPCNT, Ints{4});
    file.addStatic(o, kTagPIDS, Ints{0, 1, 2, 3});
    std::vector<Doubles> wide;
    for (const Floats& points : perSample(4)) wide.emplace_back(points.begin(), points.end());
    file.addAnimated(o, kTagPOSI, wide, 3);
    o = file.addObject("|points");
    file.addAnimated(o, kTagPOSI, perSample(5, 4), 4);
    o = file.addObject("|varying");
    file.addStatic(o, kTagMESH, Ints{1});
    file.addAnimated(o, kTagPCNT, std::vector<Ints>{{3}, {4}, {3}});
    file.addAnimated(o, kTagPIDS, std::vector<Ints>{{0, 1, 2}, {0, 1, 2, 3}, {2, 1, 0}});
    file.addAnimated(o, kTagPOSI, std::vector<Floats>{grid(3, 0), grid(4, 1), grid(3, 2)}, 3);
    o = file.addObject("|surface");
    file.addStatic(o, kTagNRBS, Ints{1});
    file.addAnimated(o, kTagPOSI, perSample(4), 3);
    o = file.addObject("|loc");
    file.addStatic(o, kTagELOC, Ints{1});
    return file.write("scene.kyn");
}

const std::string& scene() {
    static const std::string path = writeScene();
    return path;
}

// x, y, z of an object at a sample, read through the library.
Floats cachePoints(const std::string& name, int sample) {
    KynRoMemCache cache;
    EXPECT_TRUE(cache.load(scene().c_str(), true));
    GeometryKynObj view(&cache, cache.findObjectIndex(name, 0));
    Floats points;
    KynHelperObj::AnimationState state;
    int dimension = 0;
    EXPECT_TRUE(view.getPosition(sample, points, state, dimension));
    Floats xyz;
    for (std::size_t v = 0; v + 2 < points.size(); v += std::size_t(dimension))
        xyz.insert(xyz.end(), {points[v], points[v + 1], points[v + 2]});
    return xyz;
}

std::string notesOf(const std::vector<KynExchangeNote>& notes) {
    std::string text;
    for (const KynExchangeNote& note : notes) text += note.object + ": " + note.text + "\n";
    return text;
}

bool haveProgram(const std::string& name) {
    return std::system(("command -v " + name + " >/dev/null 2>&1").c_str()) == 0;
}

// The standard output of a command, and its exit status.
std::string run(const std::string& command, int* status = nullptr) {
    std::string output;
    FILE* pipe = popen(command.c_str(), "r");
    char chunk[4096];
    for (std::size_t n; pipe && (n = fread(chunk, 1, sizeof(chunk), pipe)) > 0;)
        output.append(chunk, n);
    const int code = pipe ? pclose(pipe) : -1;
    if (status) *status = WIFEXITED(code) ? WEXITSTATUS(code) : -1;
    return output;
}

template <class T>
std::vector<T> accessorData(const tinygltf::Model& model, int index) {
    const tinygltf::Accessor& accessor = model.accessors[std::size_t(index)];
    const tinygltf::BufferView& view = model.bufferViews[std::size_t(accessor.bufferView)];
    const unsigned char* begin =
        model.buffers[std::size_t(view.buffer)].data.data() + view.byteOffset + accessor.byteOffset;
    const std::size_t components = std::size_t(tinygltf::GetNumComponentsInType(accessor.type));
    const T* data = reinterpret_cast<const T*>(begin);
    return std::vector<T>(data, data + accessor.count * components);
}

int nodeNamed(const tinygltf::Model& model, const std::string& name) {
    for (std::size_t i = 0; i < model.nodes.size(); ++i)
        if (model.nodes[i].name == name) return int(i);
    return -1;
}

TEST(ExchangeGlb, MeshesMorphTargetsAndTransformsReadBackExactly) {
    const std::string out = scratchPath("scene.glb");
    const KynExchangeResult result = kynExport(scene(), out);
    ASSERT_TRUE(result.ok()) << result.error;
    EXPECT_EQ(result.objects,
              (std::vector<std::string>{"|root", "|root|poly", "|root|subd", "|points", "|loc"}));
    const std::string leftOut = notesOf(result.leftOut);
    EXPECT_NE(leftOut.find("|varying: its vertex count changes at sample 1"), std::string::npos)
        << leftOut;
    EXPECT_NE(leftOut.find("|surface: NURBS"), std::string::npos) << leftOut;
    EXPECT_EQ(result.leftOut.size(), 2u) << leftOut;
    const std::string dropped = notesOf(result.dropped);
    for (const char* note : {"|root|poly: faces of fewer than three vertices are left out",
                             "|root|subd: positions stored as double are written as float",
                             "|points: the fourth component of its positions is left out"})
        EXPECT_NE(dropped.find(note), std::string::npos) << dropped;
    EXPECT_EQ(result.dropped.size(), 3u) << dropped;

    tinygltf::Model model;
    tinygltf::TinyGLTF loader;
    std::string error, warning;
    ASSERT_TRUE(loader.LoadBinaryFromFile(&model, &error, &warning, out)) << error;
    const tinygltf::Node& root = model.nodes[std::size_t(nodeNamed(model, "root"))];
    ASSERT_EQ(root.children.size(), 2u);
    EXPECT_EQ(model.nodes[std::size_t(root.children[0])].name, "poly");
    EXPECT_EQ(model.scenes[0].nodes.size(), 3u);  // root, points, loc

    const tinygltf::Animation& animation = model.animations.at(0);
    const Floats seconds = accessorData<float>(model, animation.samplers.at(0).input);
    EXPECT_EQ(seconds, (Floats{1 / 24.0f, 2 / 24.0f, 3 / 24.0f}));
    for (const char* name : {"|root|poly", "|root|subd", "|points"}) {
        SCOPED_TRACE(name);
        const std::string component = std::string(name).substr(std::string(name).rfind('|') + 1);
        const tinygltf::Node& node = model.nodes[std::size_t(nodeNamed(model, component))];
        const tinygltf::Primitive& primitive = model.meshes[std::size_t(node.mesh)].primitives[0];
        const Floats base = accessorData<float>(model, primitive.attributes.at("POSITION"));
        EXPECT_EQ(base, cachePoints(name, 0));
        ASSERT_EQ(primitive.targets.size(), std::size_t(kSamples - 1));
        for (int s = 1; s < kSamples; ++s) {
            Floats moved =
                accessorData<float>(model, primitive.targets[std::size_t(s - 1)].at("POSITION"));
            for (std::size_t i = 0; i < moved.size(); ++i) moved[i] += base[i];
            EXPECT_EQ(moved, cachePoints(name, s)) << "sample " << s;
        }
        int weightTrack = 0;
        for (const tinygltf::AnimationChannel& channel : animation.channels)
            if (channel.target_path == "weights" &&
                &model.nodes[std::size_t(channel.target_node)] == &node)
                ++weightTrack;
        EXPECT_EQ(weightTrack, 1);
    }
    const tinygltf::Primitive& poly =
        model.meshes[std::size_t(model.nodes[std::size_t(root.children[0])].mesh)].primitives[0];
    EXPECT_EQ(accessorData<uint32_t>(model, poly.indices),
              (std::vector<uint32_t>{0, 1, 2, 0, 2, 3, 3, 2, 4, 4, 5, 6, 4, 6, 7, 4, 7, 0}));
    EXPECT_EQ(accessorData<float>(model, poly.attributes.at("TEXCOORD_0")), grid(8, 4, 2));
    const Floats normals = accessorData<float>(model, poly.attributes.at("NORMAL"));
    const Floats stored = grid(8, 9);
    for (std::size_t v = 0; v < 8; ++v) {
        const float* n = &normals[3 * v];
        EXPECT_NEAR(n[0] * n[0] + n[1] * n[1] + n[2] * n[2], 1.0f, 1e-6f);
        EXPECT_NEAR(n[0] * stored[3 * v + 1], n[1] * stored[3 * v], 1e-6f);  // same direction
    }
    EXPECT_EQ(model.meshes[std::size_t(model.nodes[std::size_t(nodeNamed(model, "points"))].mesh)]
                  .primitives[0]
                  .mode,
              TINYGLTF_MODE_POINTS);

    // The transform's parts at every sample compose its stored matrix again.
    std::map<std::string, Floats> tracks;
    for (const tinygltf::AnimationChannel& channel : animation.channels)
        if (model.nodes[std::size_t(channel.target_node)].name == "root")
            tracks[channel.target_path] =
                accessorData<float>(model, animation.samplers[std::size_t(channel.sampler)].output);
    ASSERT_EQ(tracks.size(), 3u);
    for (int s = 0; s < kSamples; ++s) {
        const float* t = &tracks["translation"][std::size_t(3 * s)];
        const float* q = &tracks["rotation"][std::size_t(4 * s)];
        const float* k = &tracks["scale"][std::size_t(3 * s)];
        const double x = q[0], y = q[1], z = q[2], w = q[3];
        const double r[3][3] = {
            {1 - 2 * (y * y + z * z), 2 * (x * y - z * w), 2 * (x * z + y * w)},
            {2 * (x * y + z * w), 1 - 2 * (x * x + z * z), 2 * (y * z - x * w)},
            {2 * (x * z - y * w), 2 * (y * z + x * w), 1 - 2 * (x * x + y * y)}};
        const Doubles expected = matrixAt(s);
        for (int column = 0; column < 4; ++column)
            for (int row = 0; row < 3; ++row)
                EXPECT_NEAR(column < 3 ? r[row][column] * k[column] : t[row],
                            expected[std::size_t(4 * column + row)], 1e-6)
                    << "sample " << s << " row " << row << " column " << column;
    }
}

TEST(ExchangeGlb, TheReferenceValidatorFindsNoErrors) {
    const std::string validator = KYN_NPM_PREFIX "/node_modules/gltf-validator";
    if (!haveProgram("node") || access(validator.c_str(), F_OK) != 0)
        GTEST_SKIP() << "node or the glTF validator is missing (" << validator
                     << "): scripts/install-deps installs both";
    const std::string out = scratchPath("validate.glb");
    ASSERT_TRUE(kynExport(scene(), out).ok());
    int status = 0;
    const std::string report =
        run("node " KYN_VALIDATE_SCRIPT " " KYN_NPM_PREFIX " " + out + " 2>&1", &status);
    EXPECT_EQ(status, 0) << report;
    EXPECT_NE(report.find("0 errors"), std::string::npos) << report;
}

TEST(ExchangeGlb, AssimpReadsTheTreeAndTheMeshes) {
    if (!haveProgram("assimp")) GTEST_SKIP() << "assimp is missing: install assimp-utils";
    const std::string out = scratchPath("assimp.glb");
    ASSERT_TRUE(kynExport(scene(), out).ok());
    const std::string info = run("assimp info " + out + " 2>/dev/null");
    for (const char* line :
         {"(|root|poly): [8 / 0 / 6 | triangle]", "(|root|subd): [4 / 0 / 2 | triangle]",
          "(|points): [5 / 0 / 5 | point]",
          "├╴root\n│ ├╴poly (mesh 0)\n│ └╴subd (mesh 1)\n├╴points (mesh 2)\n└╴loc"})
        EXPECT_NE(info.find(line), std::string::npos) << line << "\n" << info;
}

TEST(ExchangeGlb, ASampleRangeWritesThoseSamples) {
    const std::string out = scratchPath("range.glb");
    KynExportOptions options;
    options.path = "|root|poly";
    options.firstSample = 1;
    ASSERT_TRUE(kynExport(scene(), out, options).ok());
    tinygltf::Model model;
    std::string error, warning;
    ASSERT_TRUE(tinygltf::TinyGLTF().LoadBinaryFromFile(&model, &error, &warning, out)) << error;
    EXPECT_EQ(model.nodes.size(), 2u);  // the transform above the path stays
    EXPECT_EQ(accessorData<float>(model, model.meshes[0].primitives[0].attributes.at("POSITION")),
              cachePoints("|root|poly", 1));
    EXPECT_EQ(model.meshes[0].primitives[0].targets.size(), 1u);
}

std::vector<unsigned char> pc2Bytes(int points, float start, float sampling,
                                    const std::vector<Floats>& samples) {
    std::vector<unsigned char> bytes = raw(std::string("POINTCACHE2", 12));
    appendLE(bytes, 1, 4);
    appendLE(bytes, points, 4);
    const float header[2] = {start, sampling};
    bytes.insert(bytes.end(), reinterpret_cast<const unsigned char*>(header),
                 reinterpret_cast<const unsigned char*>(header + 2));
    appendLE(bytes, int64_t(samples.size()), 4);
    for (const Floats& sample : samples)
        bytes.insert(bytes.end(), reinterpret_cast<const unsigned char*>(sample.data()),
                     reinterpret_cast<const unsigned char*>(sample.data() + sample.size()));
    return bytes;
}

TEST(ExchangePc2, OneObjectsPositionsWithStartAndSpacing) {
    const std::string out = scratchPath("poly.pc2");
    KynExportOptions options;
    options.path = "|root|poly";
    int64_t lastDone = 0, lastTotal = -1;
    options.progress = [&](int64_t done, int64_t total) { lastDone = done, lastTotal = total; };
    const KynExchangeResult result = kynExport(scene(), out, options);
    ASSERT_TRUE(result.ok()) << result.error;
    EXPECT_EQ(lastDone, lastTotal);
    EXPECT_EQ(readBytes(out), pc2Bytes(8, 1.0f, 1.0f, perSample(8)));
}

TEST(ExchangePc2, ImportThenExportGivesTheSameFile) {
    std::vector<Floats> samples;
    for (int s = 0; s < 4; ++s)
        samples.push_back({0.1f * s, -1e-7f, 3.3333333e5f, 1.0f / 3, 7, -0.0f});
    const std::vector<unsigned char> bytes = pc2Bytes(2, -12.5f, 0.5f, samples);
    const std::string in = scratchPath("cloth.pc2"), cache = scratchPath("cloth.kyn");
    writeBytes(in, bytes);
    const KynExchangeResult imported = kynImport(in, cache);
    ASSERT_TRUE(imported.ok()) << imported.error;
    KynRoMemCache reader;
    ASSERT_TRUE(reader.load(cache.c_str(), true));
    EXPECT_EQ(reader.meta.objects[0]->name, imported.objects.at(0));
    EXPECT_EQ(reader.meta.rate, 2.0f);
    EXPECT_EQ(reader.getSampleTime(3), -11.0f);

    const std::string out = scratchPath("again.pc2");
    ASSERT_TRUE(kynExport(cache, out).ok());
    EXPECT_EQ(readBytes(out), bytes);
}

TEST(ExchangePc2, Refusals) {
    const std::string out = scratchPath("refused.pc2");
    KynExchangeResult result = kynExport(scene(), out);
    EXPECT_NE(result.error.find("have animated positions; name one with --path: |root|poly "
                                "|root|subd |points |varying"),
              std::string::npos)
        << result.error;
    KynExportOptions options;
    options.path = "|varying";
    result = kynExport(scene(), out, options);
    EXPECT_NE(result.error.find("|varying has 4 vertices at sample 1 (frame 2) and 3 at the first"),
              std::string::npos)
        << result.error;
    EXPECT_NE(access(out.c_str(), F_OK), 0) << "a refused export leaves no file";

    std::vector<unsigned char> cut = pc2Bytes(2, 1, 1, {Floats(6, 1.0f), Floats(6, 2.0f)});
    cut.resize(cut.size() - 4);
    const std::string in = scratchPath("cut.pc2"), cache = scratchPath("cut.kyn");
    writeBytes(in, cut);
    result = kynImport(in, cache);
    EXPECT_NE(result.error.find("it is cut short: it holds 1 whole samples of the 2"),
              std::string::npos)
        << result.error;
    EXPECT_NE(access(cache.c_str(), F_OK), 0);
}

std::string shortest(float value) {
    char text[32];
    return std::string(text, std::to_chars(text, text + sizeof(text), value).ptr);
}

tinyobj::attrib_t readObj(const std::string& path, std::vector<tinyobj::shape_t>& shapes) {
    tinyobj::attrib_t attrib;
    std::vector<tinyobj::material_t> materials;
    std::string warning, error;
    EXPECT_TRUE(tinyobj::LoadObj(&attrib, &shapes, &materials, &warning, &error, path.c_str(),
                                 nullptr, false))
        << path << ": " << error;
    return attrib;
}

TEST(ExchangeObj, SequenceThroughACacheAndBackKeepsEveryValue) {
    const std::string first = scratchPath("seq.0001.obj");
    const std::string stem = first.substr(0, first.size() - 8);
    std::vector<Floats> frames;
    for (int f = 0; f < 3; ++f) {
        frames.push_back({0.1f * f, 1.0f / 3, -2e-9f, 12345.678f, 0.7f, 1e30f, -0.3f, 0, 5.5f});
        std::ofstream file(stem + "000" + std::to_string(f + 1) + ".obj");
        for (std::size_t v = 0; v < 3; ++v)
            file << "v " << shortest(frames[std::size_t(f)][3 * v]) << " "
                 << shortest(frames[std::size_t(f)][3 * v + 1]) << " "
                 << shortest(frames[std::size_t(f)][3 * v + 2]) << "\n";
        file << "f 1 2 3\nf 3 2 1\n";
    }
    const std::string cache = scratchPath("seq.kyn");
    const KynExchangeResult imported = kynImport(first, cache);
    ASSERT_TRUE(imported.ok()) << imported.error;
    EXPECT_EQ(imported.samples, 3);

    const std::string out = scratchPath("back.####.obj");
    const KynExchangeResult exported = kynExport(cache, out);
    ASSERT_TRUE(exported.ok()) << exported.error;
    ASSERT_EQ(exported.files.size(), 3u);
    for (int f = 0; f < 3; ++f) {
        EXPECT_EQ(exported.files[std::size_t(f)],
                  out.substr(0, out.size() - 8) + "000" + std::to_string(f + 1) + ".obj");
        std::vector<tinyobj::shape_t> shapes;
        const tinyobj::attrib_t attrib = readObj(exported.files[std::size_t(f)], shapes);
        EXPECT_EQ(Floats(attrib.vertices.begin(), attrib.vertices.end()), frames[std::size_t(f)]);
        ASSERT_EQ(shapes.size(), 1u);
        EXPECT_EQ(shapes[0].mesh.num_face_vertices, (std::vector<unsigned char>{3, 3}));
    }
}

TEST(ExchangeObj, AFrameWithAnotherVertexCountIsRefusedLeavingTheTargetAsItWas) {
    const std::string first = scratchPath("short_1.obj");
    const std::string stem = first.substr(0, first.size() - 5);
    std::ofstream(first) << "v 0 0 0\nv 1 0 0\nv 0 1 0\nf 1 2 3\n";
    std::ofstream(stem + "2.obj") << "v 0 0 0\nv 1 0 0\nf 1 2 2\n";
    const std::string cache = scratchPath("short.kyn");
    const KynExchangeResult result = kynImport(first, cache);
    EXPECT_NE(result.error.find("cannot import frame 2 (" + stem + "2.obj): it has 2 vertices"),
              std::string::npos)
        << result.error;
    EXPECT_NE(access(cache.c_str(), F_OK), 0);
    const std::vector<unsigned char> old = {'o', 'l', 'd'};
    writeBytes(cache, old);
    EXPECT_FALSE(kynImport(first, cache).ok());
    EXPECT_EQ(readBytes(cache), old);
}

TEST(ExchangeObj, EverySampleOfEveryMeshAndPointSet) {
    const std::string out = scratchPath("scene.obj");
    const KynExchangeResult result = kynExport(scene(), out);
    ASSERT_TRUE(result.ok()) << result.error;
    EXPECT_EQ(result.objects,
              (std::vector<std::string>{"|root|poly", "|root|subd", "|points", "|varying"}));
    EXPECT_EQ(result.leftOut.size(), 3u) << notesOf(result.leftOut);  // transform, NURBS, locator
    ASSERT_EQ(result.files.size(), std::size_t(kSamples));
    EXPECT_EQ(result.files[0], out.substr(0, out.size() - 4) + ".0001.obj");
    for (int s = 0; s < kSamples; ++s) {
        std::vector<tinyobj::shape_t> shapes;
        const tinyobj::attrib_t attrib = readObj(result.files[std::size_t(s)], shapes);
        Floats expected;
        for (const char* name : {"|root|poly", "|root|subd", "|points", "|varying"}) {
            const Floats points = cachePoints(name, s);
            expected.insert(expected.end(), points.begin(), points.end());
        }
        EXPECT_EQ(Floats(attrib.vertices.begin(), attrib.vertices.end()), expected);
        ASSERT_EQ(shapes.size(), 3u);  // the point set has no faces
        EXPECT_EQ(shapes[0].name, "|root|poly");
        Ints ids;
        for (const tinyobj::index_t& index : shapes[0].mesh.indices)
            ids.push_back(index.vertex_index);
        EXPECT_EQ(ids, Ints(kPolyIds.begin(), kPolyIds.end() - 2));  // less the face of two
        EXPECT_EQ(shapes[2].mesh.num_face_vertices.at(0), kVaryingCount[s]);
    }
}

TEST(ExchangePly, AssimpReadsEverySample) {
    if (!haveProgram("assimp")) GTEST_SKIP() << "assimp is missing: install assimp-utils";
    const std::string out = scratchPath("scene.ply");
    const KynExchangeResult result = kynExport(scene(), out);
    ASSERT_TRUE(result.ok()) << result.error;
    ASSERT_EQ(result.files.size(), std::size_t(kSamples));
    for (int s = 0; s < kSamples; ++s) {
        Floats all;
        for (const char* name : {"|root|poly", "|root|subd", "|points", "|varying"}) {
            const Floats points = cachePoints(name, s);
            all.insert(all.end(), points.begin(), points.end());
        }
        float low[3] = {2, 2, 2}, high[3] = {0, 0, 0};
        for (std::size_t i = 0; i < all.size(); ++i) {
            low[i % 3] = std::min(low[i % 3], all[i]);
            high[i % 3] = std::max(high[i % 3], all[i]);
        }
        char bounds[160];
        std::snprintf(bounds, sizeof(bounds),
                      "Minimum point      (%f %f %f)\nMaximum point      (%f %f %f)", low[0],
                      low[1], low[2], high[0], high[1], high[2]);
        const std::string info =
            run("assimp info " + result.files[std::size_t(s)] + " --raw 2>/dev/null");
        const int faces = 3 + 1 + 1;  // the face of two vertices is left out
        EXPECT_NE(info.find("Vertices:           " + std::to_string(all.size() / 3)),
                  std::string::npos)
            << info;
        EXPECT_NE(info.find("Faces:              " + std::to_string(faces)), std::string::npos)
            << info;
        EXPECT_NE(info.find(bounds), std::string::npos) << bounds << "\n" << info;
    }
}

TEST(Exchange, SampleRangesAndUnknownFormats) {
    const struct {
        const char* text;
        bool ok;
        int first, last;
    } rows[] = {{"3:7", true, 3, 7},   {"3:", true, 3, -1},  {":7", true, 0, 7},
                {"4", true, 4, 4},     {"7:3", false, 0, 0}, {":", false, 0, 0},
                {"-1:2", false, 0, 0}, {"a", false, 0, 0}};
    for (const auto& row : rows) {
        int first = 0, last = 0;
        EXPECT_EQ(kynParseSampleRange(row.text, first, last), row.ok) << row.text;
        if (row.ok) {
            EXPECT_EQ(std::make_pair(first, last), std::make_pair(row.first, row.last));
        }
    }
    EXPECT_NE(kynExport(scene(), scratchPath("x.fbx")).error.find("use .glb, .pc2, .obj or .ply"),
              std::string::npos);
    KynExportOptions options;
    options.lastSample = kSamples;
    EXPECT_NE(kynExport(scene(), scratchPath("x.glb"), options).error.find("lie outside"),
              std::string::npos);
}

#ifdef KYN_COMMAND
// kyn export and kyn import as processes: what they print and their exit statuses.
TEST(ExchangeCommand, ExportAndImportSayWhatTheyLeftOutAndExitAsDocumented) {
    const std::string errors = scratchPath("stderr.txt");
    const auto kyn = [&](const std::string& arguments, int expected) {
        int status = -1;
        const std::string out = run(KYN_COMMAND " " + arguments + " 2>" + errors, &status);
        const std::vector<unsigned char> err = readBytes(errors);
        EXPECT_EQ(status, expected) << arguments << "\n"
                                    << out << std::string(err.begin(), err.end());
        return out + std::string(err.begin(), err.end());
    };
    const std::string obj = scratchPath("cli.obj");
    const std::string stem = obj.substr(0, obj.size() - 4);
    std::string said = kyn("export " + scene() + " " + obj, 0);
    EXPECT_NE(said.find("wrote " + stem + ".0001.obj ... " + stem +
                        ".0003.obj (3 files): 4 "
                        "objects, 3 samples"),
              std::string::npos)
        << said;
    EXPECT_NE(said.find("kyn export: left out |root: a transform"), std::string::npos) << said;
    kyn("export " + scene() + " " + obj + " --strict", 1);
    said = kyn("export " + scene() + " " + scratchPath("cli.glb") + " --samples 3:", 1);
    EXPECT_NE(said.find("lie outside"), std::string::npos) << said;
    kyn("export " + scene() + " " + scratchPath("cli.glb") + " --samples 2:1", 2);

    const std::string pc2 = scratchPath("cli.pc2"), cache = scratchPath("cli.kyn");
    kyn("export " + scene() + " " + pc2 + " --path '|root|subd'", 0);
    said = kyn("import " + pc2 + " " + cache + " --name '|cloth'", 0);
    EXPECT_NE(said.find("wrote " + cache + ": 1 object, 3 samples"), std::string::npos) << said;
    said = kyn("import " + scratchPath("missing.pc2") + " " + cache, 1);
    EXPECT_NE(said.find("kyn import: cannot open"), std::string::npos) << said;
}
#endif

}  // namespace
