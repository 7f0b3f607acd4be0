// kyntest: writes one small cache file by hand through the low-level writer, the complete
// example of how a producer drives KynFile, the chunk objects and KynSAMSChunk:
//   DKYN, META (two objects "foo" and "bar", an "ABCD" list), SAMS with one SAMP of two SOBJ.
// The metadata says 0 samples while the stream holds one: that is the fixed content.
#include <memory>
#include <vector>

#include "KynChunks.h"
#include "KynLog.h"
#include "kynUtils.h"

using namespace Kyn;

namespace {

#define KYNTEST_FAIL(message)               \
    do {                                    \
        KYN_UTIL_ERROR("kyntest", message); \
        return -1;                          \
    } while (false)

// One object of the sample: a hand-made header for the first, the typed call for the second.
int writeObject(KynFile& file, KynSAMSChunk& sams, std::vector<float>& data, int count,
                int positionStep, int velocityStep, bool byHeader) {
    if (!sams.writeStartSOBJChunk(file)) KYNTEST_FAIL("starting SOBJ chunk");
    const unsigned tags[2] = {kTagPOSI, kTagVELO};
    const int steps[2] = {positionStep, velocityStep};
    for (int k = 0; k < 2; ++k) {
        data.resize(count);
        for (int i = 0; i < count; ++i) data[i] = float(i * steps[k]);
        bool ok;
        if (byHeader) {
            KynHeader header;
            header.tag = tags[k];
            header.type = kTypeFloat;
            header.length = int64_t(data.size() * sizeof(float));
            ok = file.writeChunk(header, data.data(), -1);
        } else {
            ok = file.writeChunk<float>(tags[k], data, -1, 0, 0);
        }
        if (!ok && k == 0) KYNTEST_FAIL("writing POS chunk");
        if (!ok) KYNTEST_FAIL("writing VELO chunk");
    }
    if (!sams.writeEndSOBJChunk(file)) KYNTEST_FAIL("ending SOBJ chunk");
    return 0;
}

}  // namespace

int kyntest(const char* path) {
    KynFile file;
    if (!file.open(path, "w")) KYNTEST_FAIL("opening file");

    KynDKYNChunk dkyn;
    dkyn.version = 1;
    if (!dkyn.write(file)) KYNTEST_FAIL("writing DKYN chunk");

    KynMETAChunk meta;
    meta.firstTime = 5.0f;
    meta.lastTime = 7.0f;
    meta.rate = 1.0f;
    meta.space = 0;
    meta.addDOBJ("foo");
    meta.addDOBJ("bar");
    auto* strings = new KynLeafChunk<std::string>(kynTag("ABCD"), 0, 0);
    strings->data = {"aaa", "bbb", "ccc", "ddd"};
    meta.children.push_back(strings);
    if (!meta.KynGroupChunk::write(file)) KYNTEST_FAIL("writing META chunk");

    KynSAMSChunk sams;
    if (!sams.writeStart(file, 1, 2, false)) KYNTEST_FAIL("starting SAMS chunk");
    if (!sams.writeStartSAMPChunk(file, 2, nullptr)) KYNTEST_FAIL("starting SAMP chunk");
    std::vector<float> data;
    if (writeObject(file, sams, data, 4, 1, 2, true) != 0) return -1;
    if (writeObject(file, sams, data, 10, 3, 4, false) != 0) return -1;
    if (!sams.writeEndSAMPChunk(file)) KYNTEST_FAIL("ending SAMP chunk");
    if (!sams.writeEnd(file)) KYNTEST_FAIL("end SAMS chunk");
    if (!file.close()) KYNTEST_FAIL("closing KYN file");
    return 0;
}
