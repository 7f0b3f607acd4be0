// Drives a read-write cache through an edit-and-save sequence decoded from the input bytes,
// against a scratch file: samples at ordinary and extreme times, names, time shifts, sampling
// conversions, truncation, saves that append or rewrite, reloads. Every saved file is loaded
// again and read whole.
#include <unistd.h>

#include <cmath>
#include <limits>
#include <string>

#include "FuzzInput.h"
#include "KynRoMemCache.h"
#include "KynRwMemCache.h"

using namespace Kyn;

namespace {

class Bytes {
  public:
    Bytes(const uint8_t* data, std::size_t size) : data(data), size(size) {}
    bool more() const { return at < size; }
    uint8_t next() { return at < size ? data[at++] : 0; }
    // Mostly small steps, sometimes the values that break arithmetic.
    float time() {
        uint8_t b = next();
        switch (b) {
            case 250:
                return std::numeric_limits<float>::infinity();
            case 251:
                return -std::numeric_limits<float>::infinity();
            case 252:
                return std::numeric_limits<float>::quiet_NaN();
            case 253:
                return 3.0e38f;
            case 254:
                return -3.0e38f;
            case 255:
                return 1.0e-30f;
            default:
                return float(b) * 0.25f - 8.0f;
        }
    }

  private:
    const uint8_t* data;
    std::size_t size;
    std::size_t at = 0;
};

std::string scratchPath() {
    const char* dir = access("/dev/shm", W_OK) == 0 ? "/dev/shm" : "/tmp";
    return std::string(dir) + "/kyn_fuzz_rw_" + std::to_string(getpid()) + ".kyn";
}

void readBack(const std::string& path) {
    KynRoMemCache cache;
    if (!cache.load(path.c_str(), false, 2)) return;
    for (int s = 0; s < int(cache.meta.numSamples) && s < 64; ++s)
        for (int o = 0; o < int(cache.meta.objects.size()); ++o)
            cache.getObjectData(s, o, kTagPOSI, nullptr);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
    static const std::string path = scratchPath();
    unlink(path.c_str());
    Silence out(std::cout);
    Silence err(std::cerr);
    Bytes in(data, size);
    KynRwMemCache cache;
    cache.meta.application = "fuzz";
    cache.meta.sourceFile = "fuzz.scene";
    for (int step = 0; step < 48 && in.more(); ++step) {
        switch (in.next() % 11) {
            case 0: {
                float time = in.time();
                if (KynGroupChunk* sample = cache.allocSample(time, in.next() % 4)) {
                    std::vector<float> points(3 * (in.next() % 4), time);
                    sample->children.push_back(new KynLeafChunk<float>(kTagPOSI, points));
                }
                break;
            }
            case 1:
                cache.setName(in.next() % 4, std::string(in.next() % 5, 'n').c_str());
                break;
            case 2:
                cache.save(nullptr, nullptr);
                break;
            case 3:
                cache.saveAs(path.c_str(), nullptr, nullptr);
                break;
            case 4:
                cache.load(path.c_str(), in.next() % 2 == 0);
                break;
            case 5:
                cache.truncate(in.time());
                break;
            case 6:
                cache.shiftFirstTimeTo(in.time());
                break;
            case 7:
                cache.convertToNonUniformSampling();
                break;
            case 8:
                cache.convertToUniformSampling();
                break;
            case 9:
                cache.deleteCache();
                break;
            case 10:
                cache.numFree = in.next() % 8;
                break;
        }
    }
    cache.reset();
    readBack(path);
    unlink(path.c_str());
    return 0;
}
