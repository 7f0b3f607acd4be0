#include "ViewFiles.h"

#include <gtest/gtest.h>

#include "KynFile.h"
#include "TestFiles.h"

namespace kyntest_support {

using namespace Kyn;

ViewFile::ViewFile(int count, float firstTime, float rate) : sampleObjects(count) {
    for (int i = 0; i < count; ++i) times.push_back(float(i) / rate + firstTime);
    meta.numSamples = count;
    meta.rate = rate;
    meta.firstTime = firstTime;
    if (count > 0) meta.lastTime = times.back();
}

ViewFile::ViewFile(const std::vector<float>& sampleTimes)
    : times(sampleTimes), sampleObjects(sampleTimes.size()) {
    meta.numSamples = static_cast<int64_t>(times.size());
    meta.rate = 0.0f;
    if (!times.empty()) {
        meta.firstTime = times.front();
        meta.lastTime = times.back();
    }
}

ViewFile::~ViewFile() {
    for (auto& objects : sampleObjects)
        for (KynGroupChunk* group : objects) delete group;
}

int ViewFile::addObject(const std::string& name) {
    meta.addDOBJ(name.c_str());
    for (auto& objects : sampleObjects) objects.push_back(new KynGroupChunk(kTagSOBJ));
    return static_cast<int>(meta.objects.size()) - 1;
}

KynDATRChunk* ViewFile::attrTable(int object) {
    KynDOBJChunk* dobj = meta.objects[at(object)];
    if (dobj->datr == nullptr) dobj->datr = new KynDATRChunk();
    return dobj->datr;
}

KynGroupChunk* ViewFile::attrValues(int sample, int object) {
    KynGroupChunk* block = sampleObjects[at(sample)][at(object)];
    for (KynChunk* child : block->children)
        if (child->header.tag == kTagATRS) return static_cast<KynGroupChunk*>(child);
    auto* values = new KynATRSChunk();
    block->children.push_back(values);
    return values;
}

std::string ViewFile::write(const std::string& name) {
    const std::string path = scratchPath(name);
    KynFile file;
    EXPECT_TRUE(file.open(path.c_str(), "w"));
    EXPECT_TRUE(KynDKYNChunk().write(file));
    EXPECT_TRUE(meta.write(file));
    KynSAMSChunk sams;
    const bool nonUniform = meta.rate == 0.0f;
    EXPECT_TRUE(sams.writeStart(file, meta.numSamples, 0, nonUniform));
    for (std::size_t s = 0; s < sampleObjects.size(); ++s) {
        EXPECT_TRUE(
            sams.writeStartSAMPChunk(file, static_cast<int64_t>(meta.objects.size()), &times[s]));
        for (const KynGroupChunk* block : sampleObjects[s])
            EXPECT_TRUE(sams.writeSOBJChunk(file, block));
        EXPECT_TRUE(sams.writeEndSAMPChunk(file));
    }
    EXPECT_TRUE(sams.writeEnd(file));
    EXPECT_TRUE(file.close());
    return path;
}

}  // namespace kyntest_support
