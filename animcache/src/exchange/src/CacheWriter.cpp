#include "CacheWriter.h"

#include <cmath>
#include <ctime>

#include "ExchangeCommon.h"

namespace Kyn {
namespace exchange {

namespace {

constexpr unsigned char kCompoundPoint = 1;
constexpr unsigned char kDimension3d = 3;
// Room in the sample tables for appending later without a new sample stream.
constexpr int64_t kSpareSamples = 100;

}  // namespace

CacheWriter::CacheWriter(const std::string& object, const std::string& source) {
    meta.application = "kyn import";
    meta.sourceFile = source;
    meta.date = static_cast<int64_t>(std::time(nullptr));
    meta.addDOBJ(object.c_str());
}

bool CacheWriter::start(const std::string& target, int64_t samples, float firstTime, float rate,
                        std::string& error) {
    meta.numSamples = samples;
    meta.firstTime = firstTime;
    meta.rate = rate;
    meta.lastTime = static_cast<float>(double(firstTime) + double(samples - 1) / double(rate));
    // A reader finds the sample count again from the first and last time and the rate.
    if (!std::isfinite(meta.lastTime) ||
        std::roundf((meta.lastTime - meta.firstTime) * rate) + 1.0f != float(samples)) {
        error = "the sample times, from frame " + std::to_string(firstTime) + " at " +
                std::to_string(rate) + " samples a frame, cannot be held in single precision";
        return false;
    }
    path = target;
    replacement = std::make_unique<KynReplacement>(target);
    if (file.open(replacement->path().c_str(), "w") && KynDKYNChunk().write(file) &&
        meta.write(file) && sams.writeStart(file, samples, kSpareSamples, false))
        return true;
    error = writeError(path);
    return false;
}

bool CacheWriter::sample(const float* xyz, std::size_t vertices, std::string& error) {
    KynHeader posi;
    posi.tag = kTagPOSI;
    posi.type = kTypeFloat;
    posi.compound = kCompoundPoint;
    posi.dimension = kDimension3d;
    posi.length = static_cast<int64_t>(vertices * 3 * sizeof(float));
    if (sams.writeStartSAMPChunk(file, 1, nullptr) && sams.writeStartSOBJChunk(file) &&
        file.writeChunk(posi, xyz, -1) && sams.writeEndSOBJChunk(file) &&
        sams.writeEndSAMPChunk(file))
        return true;
    error = writeError(path);
    return false;
}

bool CacheWriter::finish(std::string& error) {
    if (sams.writeEnd(file) && replacement->commit(file)) return true;
    error = writeError(path);
    return false;
}

}  // namespace exchange
}  // namespace Kyn
