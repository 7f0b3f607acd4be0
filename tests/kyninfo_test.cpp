// The file report and the file comparison: exact report lines for static, uniform and
// non-uniform files, every kind line and attribute line, and the result and clean-up of kyndiff.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <ctime>
#include <functional>

#include "KynChunks.h"
#include "TestFiles.h"
#include "kynUtils.h"

using namespace Kyn;
using namespace kyntest_support;

namespace {

using Prepare = std::function<void(KynMETAChunk& meta)>;
using Fill = std::function<void(int sample, int object, KynGroupChunk& sobj)>;

// A file of `times.size()` samples (none: a static file); `prepare` adds the objects with their
// static chunks, and `fill` gives each object's "SOBJ" its animated chunks.
void writeFile(const std::string& path, const std::vector<float>& times, float rate,
               const Prepare& prepare, const Fill& fill = nullptr) {
    KynFile file;
    ASSERT_TRUE(file.open(path.c_str(), "w"));
    KynMETAChunk meta;
    meta.numSamples = int64_t(times.size());
    if (!times.empty()) {
        meta.firstTime = times.front();
        meta.lastTime = times.back();
    }
    meta.rate = rate;
    prepare(meta);
    ASSERT_TRUE(KynDKYNChunk().write(file) && meta.write(file));
    if (!times.empty()) {
        const auto count = int64_t(meta.objects.size());
        KynSAMSChunk stream;
        ASSERT_TRUE(stream.writeStart(file, int64_t(times.size()), 0, rate == 0.0f));
        for (std::size_t s = 0; s < times.size(); ++s) {
            ASSERT_TRUE(stream.writeStartSAMPChunk(file, count, &times[s]));
            for (int o = 0; o < count; ++o) {
                KynGroupChunk sobj(kTagSOBJ);
                if (fill) fill(int(s), o, sobj);
                ASSERT_TRUE(stream.writeSOBJChunk(file, &sobj));
            }
            ASSERT_TRUE(stream.writeEndSAMPChunk(file));
        }
        ASSERT_TRUE(stream.writeEnd(file));
    }
    ASSERT_TRUE(file.close());
}

template <class T>
KynChunk* leaf(unsigned tag, std::vector<T> values, unsigned char compound = 0,
               unsigned char dimension = 0) {
    return new KynLeafChunk<T>(tag, compound, dimension, values);
}

KynChunk* marker(unsigned tag) {
    return new KynGroupChunk(tag);
}

std::vector<float> identity() {
    return {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1};
}

// Adds a static attribute and sets its value.
template <class T>
void addStatic(KynDATRChunk& datr, const char* name, const char* type, std::vector<T> values,
               unsigned char compound = 0, unsigned char dimension = 0) {
    const int index = datr.addAttr(false, name, type, KynTypeOf<T>::code, compound, dimension);
    auto* value = dynamic_cast<KynLeafChunk<T>*>(datr.getStaticData(index));
    ASSERT_NE(value, nullptr);
    value->data = values;
}

struct Report {
    int result;
    std::vector<std::string> lines;
    std::string err;
};

Report report(const std::string& path) {
    setenv("TZ", "UTC", 1);
    tzset();
    Capture out(std::cout);
    Capture err(std::cerr);
    const int result = kyninfo(path.c_str());
    return {result, out.lines(), err.str()};
}

}  // namespace

TEST(Kyninfo, StaticFileReportsEveryObjectKind) {
    const std::string path = scratchPath("static.kyn");
    writeFile(path, {}, 1, [](KynMETAChunk& meta) {
        meta.space = 7;
        meta.addDOBJ("|mesh")->children = {marker(kTagMESH), leaf<int>(kTagMSPT, {1}),
                                           leaf<float>(kTagPOSI, std::vector<float>(24))};
        meta.addDOBJ("|xform")->children = {leaf<float>(kTagMTRX, identity(), 4, 16)};
        meta.addDOBJ("|both")->children = {marker(kTagMESH), leaf<double>(kTagMTRX, {1.5, 2, 3})};
        meta.addDOBJ("|loc")->children = {marker(kTagELOC)};
        meta.addDOBJ("|cs")->children = {marker(kTagLXCS)};
        meta.addDOBJ("|curve")->children = {marker(kTagNRBC),
                                            leaf<float>(kTagPOSI, std::vector<float>(16), 1, 4)};
        meta.addDOBJ("|surface")->children = {marker(kTagNRBS),
                                              leaf<double>(kTagPOSI, std::vector<double>(6))};
        KynDOBJChunk* plain = meta.addDOBJ("|plain");
        plain->datr = new KynDATRChunk();
        addStatic<std::string>(*plain->datr, "tags", "string[]", {"a", "b"});
        addStatic<int>(*plain->datr, "ids", "int[]", {1, 2});
        addStatic<long>(*plain->datr, "big", "long", {5});
        addStatic<float>(*plain->datr, "pts", "point[]", std::vector<float>(30), 1, 3);
        addStatic<double>(*plain->datr, "one", "point", {0.25}, 1, 3);
        addStatic<float>(*plain->datr, "pair", "float2", {0.5f, 2}, 0, 2);
    });
    const Report r = report(path);
    EXPECT_EQ(r.result, 0);
    EXPECT_EQ(r.err, "");
    EXPECT_EQ(r.lines,
              (std::vector<std::string>{
                  "KYN file version 2",
                  "number of time samples: 0",
                  "static file",
                  "space: unknown (7)",
                  "",
                  "number of objects: 8",
                  "object[0] name: |mesh",
                  "  MESH: mesh topology, MSPT: poly with 8 static vertices",
                  "object[1] name: |xform",
                  "  MTRX: static float transform 4x4 [1,0,0,0] [0,1,0,0] [0,0,1,0] [0,0,0,1]",
                  "object[2] name: |both",
                  "  MTRX: static double [1.5,2,3,",
                  "object[3] name: |loc",
                  "  ELOC: locator",
                  "object[4] name: |cs",
                  "  LXCS: lxCoordSystem",
                  "object[5] name: |curve",
                  "  NRBC:  nurbs curve topology with 4 static vertices",
                  "object[6] name: |surface",
                  " nurbs surface topology with 2 static vertices",
                  "object[7] name: |plain",
                  "  number of attributes: 6",
                  "    attribute[0] NAME: 'tags' TYPE: 'string[]' ATTR: cstr 'a' 'b'",
                  "    attribute[1] NAME: 'ids' TYPE: 'int[]' ATTR: int32 1, 2",
                  "    attribute[2] NAME: 'big' TYPE: 'long' ATTR: int64 5",
                  "    attribute[3] NAME: 'pts' TYPE: 'point[]' ATTR: float point 3d size= 10",
                  "    attribute[4] NAME: 'one' TYPE: 'point' ATTR: double point 3d 0.25",
                  "    attribute[5] NAME: 'pair' TYPE: 'float2' ATTR: float 2d 0.5, 2",
              }));
}

TEST(Kyninfo, UniformFileReportsTheFirstSample) {
    const std::string path = scratchPath("uniform.kyn");
    writeFile(
        path, {1, 1.5f}, 2,
        [](KynMETAChunk& meta) {
            meta.application = "app";
            meta.sourceFile = "scene.src";
            meta.date = 1400000000;
            meta.space = 0;
            KynDOBJChunk* mesh = meta.addDOBJ("|mesh");
            mesh->children = {leaf<int>(kTagMSPT, {0})};
            mesh->datr = new KynDATRChunk();
            mesh->datr->addAttr(true, "pts", "point[]", kTypeFloat, 1, 3);
            mesh->datr->addAttr(true, "w", "float", kTypeFloat, 0, 0);
            addStatic<int>(*mesh->datr, "id", "int", {7});
            meta.addDOBJ("|xform");
            meta.addDOBJ("|curve")->children = {leaf<float>(kTagPOSI, {0, 0, 0})};
            meta.addDOBJ("|surface");
            meta.addDOBJ("|loc");
        },
        [](int sample, int object, KynGroupChunk& sobj) {
            const float s = float(sample);
            if (object == 0) {
                auto* values = new KynGroupChunk(kTagATRS);
                values->children = {leaf<float>(kTagATTR, std::vector<float>(30, s), 1, 3)};
                sobj.children = {marker(kTagMESH), leaf<float>(kTagPOSI, std::vector<float>(6, s)),
                                 values};
            }
            if (object == 1) sobj.children = {leaf<float>(kTagMTRX, identity())};
            if (object == 2) sobj.children = {marker(kTagNRBC)};
            if (object == 3) sobj.children = {marker(kTagNRBS), leaf<float>(kTagPOSI, {s, s, s})};
            if (object == 4) sobj.children = {marker(kTagELOC)};
        });
    const Report r = report(path);
    EXPECT_EQ(r.result, 0);
    EXPECT_EQ(r.lines,
              (std::vector<std::string>{
                  "KYN file version 2",
                  "application: app",
                  "source file: scene.src",
                  "date stamp: Tue May 13 16:53:20 2014",
                  "number of time samples: 2",
                  "first frame: 1",
                  "last frame: 1.5",
                  "sampling rate: 2 samples per frame",
                  "space: world",
                  "",
                  "number of objects: 5",
                  "object[0] name: |mesh",
                  "  MESH: animated (varying) mesh topology, MSPT: subd with 2 animated "
                  "vertices",
                  "  number of attributes: 3",
                  "    attribute[0] NAME: 'pts' TYPE: 'point[]' ATTR: animated float point "
                  "3d size= 10",
                  // No value in the sample: the text of the attribute before it stays.
                  "    attribute[1] NAME: 'w' TYPE: 'float' ATTR: animated float point "
                  "3d size= 10",
                  "    attribute[2] NAME: 'id' TYPE: 'int' ATTR: int32 7",
                  "object[1] name: |xform",
                  "  MTRX: animated float [1,0,0,0] [0,1,0,0] [0,0,1,0] [0,0,0,1], ...",
                  "object[2] name: |curve",
                  "  NRBC: animated (varying) nurbs curve topology with 1 static vertices",
                  "object[3] name: |surface",
                  " nurbs surface topology with 1 animated vertices",
                  "object[4] name: |loc",
                  "  ELOC: animated locator",
              }));
}

TEST(Kyninfo, NonUniformFileAndWideIndexFields) {
    const std::string path = scratchPath("nonuniform.kyn");
    writeFile(path, {1, 2, 4}, 0, [](KynMETAChunk& meta) {
        for (int o = 0; o < 12; ++o) meta.addDOBJ(("o" + std::to_string(o)).c_str());
        meta.objects[11]->datr = new KynDATRChunk();
        for (int a = 0; a < 10; ++a) addStatic<int>(*meta.objects[11]->datr, "n", "int", {a});
    });
    const Report r = report(path);
    ASSERT_EQ(r.lines.size(), 31u);
    EXPECT_EQ(r.lines[3], "last frame: 4");
    EXPECT_EQ(r.lines[4], "sampling rate: nonuniform");
    EXPECT_EQ(r.lines[8], "object[ 0] name: o0");
    EXPECT_EQ(r.lines[19], "object[11] name: o11");
    EXPECT_EQ(r.lines[20], "  number of attributes: 10");
    EXPECT_EQ(r.lines[21], "    attribute[ 0] NAME: 'n' TYPE: 'int' ATTR: int32 0");
    EXPECT_EQ(r.lines[30], "    attribute[ 9] NAME: 'n' TYPE: 'int' ATTR: int32 9");
}

TEST(Kyninfo, FileThatDoesNotLoadIsReported) {
    const std::string path = scratchPath("missing.kyn");
    const Report r = report(path);
    EXPECT_EQ(r.result, -1);
    ASSERT_EQ(r.lines.size(), 1u);
    EXPECT_NE(r.lines[0].find("error opening file, Not a Kyn file"), std::string::npos);
    EXPECT_EQ(r.err.rfind("kyninfo at ", 0), 0u) << r.err;
    EXPECT_NE(r.err.find(" Error " + path + ": could not open file\n"), std::string::npos) << r.err;
}

// The comparisons share fixed temporary names, so they run in one test, one after another.
TEST(Kyndiff, ComparesContentAndCleansUp) {
    ASSERT_EQ(std::system("mkdir -p /disk1/tmp"), 0);
    const std::string first = scratchPath("first.kyn");
    const std::string second = scratchPath("second.kyn");
    const std::string changed = scratchPath("changed.kyn");
    for (const std::string* path : {&first, &second, &changed}) {
        writeFile(*path, {1, 2}, 1, [&](KynMETAChunk& meta) {
            meta.date = path == &first ? 1400000000 : 1500000000;
            meta.addDOBJ(path == &changed ? "|b" : "|a");
        });
    }
    // A leftover of an earlier run is replaced.
    writeBytes("/disk1/tmp/kyn___diff___1.txt", {'x', '\n'});
    EXPECT_EQ(kyndiff(first.c_str(), second.c_str(), nullptr), 0);
    EXPECT_NE(access("/disk1/tmp/kyn___diff___1.txt", F_OK), 0);
    EXPECT_NE(access("/disk1/tmp/kyn___diff___2.txt", F_OK), 0);
    EXPECT_EQ(kyndiff(first.c_str(), changed.c_str(), "-q"), 256);  // diff's exit status 1
    Capture err(std::cerr);
    EXPECT_EQ(kyndiff(first.c_str(), scratchPath("none.kyn").c_str(), nullptr), -1);
    EXPECT_EQ(err.str().rfind("kyndiff at ", 0), 0u);
    EXPECT_NE(err.str().find(" Error " + first + ": is not a valid KYN file\n"), std::string::npos)
        << err.str();
}
