#include "EveryKind.h"

#include <gtest/gtest.h>

namespace kyntest_support {

using namespace Kyn;

namespace {

template <class T>
KynLeafChunk<T>* leaf(unsigned tag, const std::vector<T>& data, unsigned char dimension = 0) {
    return new KynLeafChunk<T>(tag, 0, dimension, data);
}

}  // namespace

void describeEveryKind(KynMETAChunk& meta) {
    meta.addDOBJ("|xf")->children = {leaf<int>(kTagXFRM, {})};
    KynDOBJChunk* mesh = meta.addDOBJ("|xf|mesh");
    mesh->children = {leaf<int>(kTagMESH, {}), leaf<int>(kTagPCNT, {4}),
                      leaf<int>(kTagPIDS, {0, 1, 2, 3})};
    mesh->datr = new KynDATRChunk();
    mesh->datr->addAttr(true, "mdShapeType", "int", kTypeInt32, 0, 1);
    mesh->datr->addAttr(false, "rmanP__Pref", "point[]", kTypeFloat, 1, 3);
    static_cast<KynLeafChunk<float>*>(mesh->datr->getStaticData(1))->data.assign(12, 0.5f);
    meta.addDOBJ("|curve")->children = {leaf<int>(kTagNRBC, {}), leaf<int>(kTagDEGR, {1}),
                                        new KynLeafChunk<std::string>(kTagFORM, {"kOpen"}),
                                        leaf<float>(kTagKNTU, {0, 1, 2})};
    KynDOBJChunk* system = meta.addDOBJ("|system");
    system->children = {leaf<int>(kTagLXCS, {})};
    system->datr = new KynDATRChunk();
    system->datr->addAttr(false, "displayShape", "int", kTypeInt32, 0, 1);
    static_cast<KynLeafChunk<int>*>(system->datr->getStaticData(0))->data = {3};
    meta.addDOBJ("|surface")->children = {
        leaf<int>(kTagNRBS, {}),
        leaf<int>(kTagDEGR, {1, 1}),
        new KynLeafChunk<std::string>(kTagFORM, {"kOpen", "kPeriodic"}),
        leaf<float>(kTagKNTU, {0, 1}),
        leaf<double>(kTagKNTV, {0, 1, 2}),
        leaf<float>(kTagPOSI, std::vector<float>(12, 1.0f), 3)};
    meta.addDOBJ("|locator")->children = {leaf<int>(kTagELOC, {}),
                                          leaf<double>(kTagBBOX, {0, 0, 0, 1, 1, 1})};
}

void describeEveryKind(KynMETAChunk& meta, int64_t count, float firstTime, float lastTime,
                       bool nonUniform) {
    meta.numSamples = count;
    meta.firstTime = firstTime;
    meta.lastTime = lastTime;
    meta.rate = nonUniform ? 0.0f : 1.0f;
    describeEveryKind(meta);
}

void writeEveryKindSample(KynFile& file, KynSAMSChunk& sams, int s, const float* time) {
    ASSERT_TRUE(sams.writeStartSAMPChunk(file, kEveryKindObjects, time));
    KynGroupChunk transform(kTagSOBJ), mesh(kTagSOBJ), curve(kTagSOBJ);
    transform.children = {
        leaf<float>(kTagMTRX, {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, float(s), 0, 0, 1}, 16)};
    auto* values = new KynGroupChunk(kTagATRS);
    values->children = {leaf<int>(kTagATTR, {s % 2})};
    mesh.children = {leaf<float>(kTagPOSI, std::vector<float>(12, float(s)), 3), values};
    curve.children = {leaf<float>(kTagPOSI, std::vector<float>(9, float(s)), 3)};
    for (KynGroupChunk* sobj : {&transform, &mesh, &curve})
        ASSERT_TRUE(sams.writeSOBJChunk(file, sobj));
    for (int empty = 0; empty < 3; ++empty) {  // the coordinate system, surface and locator
        ASSERT_TRUE(sams.writeStartSOBJChunk(file));
        ASSERT_TRUE(sams.writeEndSOBJChunk(file));
    }
    ASSERT_TRUE(sams.writeEndSAMPChunk(file));
}

float everyKindTime(bool nonUniform, int s) {
    return nonUniform ? float(1 << s) : float(1 + s);
}

void writeEveryKindFile(const std::string& path, int first, int count, bool nonUniform,
                        const std::function<void(KynMETAChunk&)>& adjust) {
    KynFile file;
    ASSERT_TRUE(file.open(path.c_str(), "w"));
    ASSERT_TRUE(KynDKYNChunk().write(file));
    KynMETAChunk meta;
    meta.application = "test";
    describeEveryKind(meta, count, everyKindTime(nonUniform, first),
                      everyKindTime(nonUniform, first + count - 1), nonUniform);
    if (adjust) adjust(meta);
    ASSERT_TRUE(meta.write(file));
    KynSAMSChunk sams;
    ASSERT_TRUE(sams.writeStart(file, count, 0, meta.rate == 0.0f));
    for (int s = first; s < first + count; ++s) {
        const float time = everyKindTime(nonUniform, s);
        writeEveryKindSample(file, sams, s, &time);
    }
    ASSERT_TRUE(sams.writeEnd(file));
    ASSERT_TRUE(file.close());
}

}  // namespace kyntest_support
