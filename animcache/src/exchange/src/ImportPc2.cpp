// Import of a PC2 file into a cache of one point set, sample by sample. The header's counts
// are checked against the file's size before anything is allocated from them.
#include <sys/types.h>

#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <memory>

#include "CacheWriter.h"
#include "ExchangeCommon.h"
#include "Pc2Format.h"

namespace Kyn {
namespace exchange {

namespace {

struct FileCloser {
    void operator()(FILE* file) const { std::fclose(file); }
};

// "|" and the file name without its directory and extension.
std::string objectNameOf(const std::string& path) {
    const std::size_t slash = path.rfind('/');
    std::string name = path.substr(slash == std::string::npos ? 0 : slash + 1);
    const std::size_t dot = name.rfind('.');
    if (dot != std::string::npos && dot > 0) name.erase(dot);
    return "|" + name;
}

// Why the header cannot be taken, or empty.
std::string checkHeader(const Pc2Header& header, int64_t fileBytes) {
    if (std::memcmp(header.magic, kPc2Magic, sizeof(kPc2Magic)) != 0)
        return "it does not start with \"POINTCACHE2\", so it is no PC2 file";
    if (header.points < 1 || header.samples < 1)
        return "its header counts " + std::to_string(header.points) + " points and " +
               std::to_string(header.samples) + " samples; both must be 1 or more";
    if (!std::isfinite(header.start) || !std::isfinite(header.sampling) || header.sampling <= 0)
        return "its header gives no usable start frame and spacing of samples";
    const int64_t sampleBytes = int64_t(header.points) * 12;
    const int64_t whole = (fileBytes - int64_t(sizeof(Pc2Header))) / sampleBytes;
    if (whole < header.samples)
        return "it is cut short: it holds " + std::to_string(whole) + " whole samples of the " +
               std::to_string(header.samples) + " its header counts";
    return std::string();
}

}  // namespace

KynExchangeResult importPc2(const std::string& in, const std::string& out,
                            const KynImportOptions& options) {
    KynExchangeResult result;
    std::unique_ptr<FILE, FileCloser> file(std::fopen(in.c_str(), "rb"));
    Pc2Header header;
    if (!file) {
        result.error = "cannot open " + in + ": " + std::strerror(errno);
        return result;
    }
    int64_t bytes = -1;
    if (fseeko(file.get(), 0, SEEK_END) == 0) bytes = ftello(file.get());
    if (bytes < int64_t(sizeof(header)) || fseeko(file.get(), 0, SEEK_SET) != 0 ||
        std::fread(&header, sizeof(header), 1, file.get()) != 1) {
        result.error = "cannot import " + in + ": it is shorter than the 32 bytes of a PC2 header";
        return result;
    }
    const std::string why = checkHeader(header, bytes);
    if (!why.empty()) {
        result.error = "cannot import " + in + ": " + why;
        return result;
    }

    const std::string name = options.objectName.empty() ? objectNameOf(in) : options.objectName;
    CacheWriter writer(name, in);
    const float rate = static_cast<float>(1.0 / double(header.sampling));
    if (!writer.start(out, header.samples, header.start, rate, result.error)) return result;
    std::vector<float> positions(std::size_t(header.points) * 3);
    Progress progress(options.progress, header.samples);
    for (int32_t s = 0; s < header.samples; ++s) {
        if (std::fread(positions.data(), sizeof(float), positions.size(), file.get()) !=
            positions.size()) {
            result.error = "cannot read sample " + std::to_string(s) + " of " + in;
            return result;
        }
        if (!writer.sample(positions.data(), std::size_t(header.points), result.error))
            return result;
        progress.step();
    }
    if (!writer.finish(result.error)) return result;
    progress.finish();
    result.files.push_back(out);
    result.objects.push_back(name);
    result.samples = header.samples;
    return result;
}

}  // namespace exchange
}  // namespace Kyn
