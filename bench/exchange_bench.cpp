// The PC2 export of W1 (every sample of a one-million-vertex mesh, see Workloads.h) next to
// copying the same position bytes from one file to another with fread and fwrite through 1 MiB
// stdio buffers. Each repetition times both back to back, from files warm in the page cache,
// into target files removed first with earlier writes put on disk; the export's time includes
// opening the cache. Prints the medians over five repetitions (after one that is not counted),
// the ratio against the target of 1.5, and the export's peak resident memory. Run by hand:
//
//     ./build-release/bin/exchange_bench
#include <malloc.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <string>
#include <vector>

#include "KynExchange.h"
#include "Workloads.h"

using namespace workloads;

namespace {

constexpr int kRepetitions = 5;
constexpr double kTarget = 1.5;

template <class F>
double timed(F&& f) {
    const auto start = std::chrono::steady_clock::now();
    f();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

double median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    const std::size_t half = values.size() / 2;
    return values.size() % 2 ? values[half] : (values[half - 1] + values[half]) / 2;
}

long statusKilobytes(const char* field) {
    std::ifstream status("/proc/self/status");
    std::string line;
    while (std::getline(status, line))
        if (line.compare(0, strlen(field), field) == 0)
            return std::stol(line.substr(strlen(field) + 1));
    return -1;
}

// The baseline: the raw file copied sample by sample.
bool copyRaw(const std::string& from, const std::string& to) {
    std::vector<char> inBuffer, outBuffer, sample(kW1Floats * sizeof(float));
    FILE* in = openStdio(from, "r", inBuffer);
    FILE* out = openStdio(to, "w", outBuffer);
    bool ok = in != nullptr && out != nullptr;
    for (int s = 0; ok && s < kW1Samples; ++s)
        ok = fread(sample.data(), 1, sample.size(), in) == sample.size() &&
             fwrite(sample.data(), 1, sample.size(), out) == sample.size();
    if (in) fclose(in);
    if (out) ok = fclose(out) == 0 && ok;
    return ok;
}

}  // namespace

int main() {
    const std::string cache = scratchPath("w1.kyn"), raw = scratchPath("w1.raw");
    const std::string pc2 = scratchPath("w1.pc2"), copy = scratchPath("w1_copy.raw");
    {
        const W1Data data;
        Kyn::KynMETAChunk meta;
        fillW1Meta(data, meta);
        if (!streamW1(cache, meta, data) || !writeRawW1(raw, data)) {
            fprintf(stderr, "exchange_bench: cannot write the W1 files under /tmp\n");
            return 1;
        }
    }
    std::vector<double> exportSeconds, copySeconds, ratios, peaks;
    // A first round, not counted, lets the page cache settle after the files were written.
    for (int r = -1; r < kRepetitions; ++r) {
        unlink(pc2.c_str());
        unlink(copy.c_str());
        sync();
        bool ok = false;
        const double baseline = timed([&] { ok = copyRaw(raw, copy); });
        malloc_trim(0);  // so that the export's memory shows in the resident size
        const long before = statusKilobytes("VmRSS:");
        std::ofstream("/proc/self/clear_refs") << "5";
        Kyn::KynExchangeResult result;
        const double library = timed([&] { result = Kyn::kynExport(cache, pc2); });
        if (!ok || !result.ok()) {
            fprintf(stderr, "exchange_bench: %s\n", ok ? result.error.c_str() : "the copy failed");
            removeScratchFiles();
            return 1;
        }
        if (r < 0) continue;
        peaks.push_back(double(statusKilobytes("VmHWM:") - before) / 1024.0);
        exportSeconds.push_back(library);
        copySeconds.push_back(baseline);
        ratios.push_back(library / baseline);
        printf("repetition %d: export %.1f ms, copy %.1f ms, ratio %.2f\n", r + 1, library * 1e3,
               baseline * 1e3, library / baseline);
    }
    removeScratchFiles();
    const double megabytes = double(kW1Samples) * kW1Floats * sizeof(float) / 1e6;
    const double ratio = median(ratios);
    printf("\n| Figure | Export | Copy | Ratio | Target | Met | Peak memory |\n");
    printf("|---|---|---|---|---|---|---|\n");
    printf(
        "| W1 to PC2, %d samples, %.0f MB | %.0f ms (%.0f MB/s) | %.0f ms (%.0f MB/s) | %.2f | "
        "<= %.1fx time | %s | %.1f MB |\n",
        kW1Samples, megabytes, median(exportSeconds) * 1e3, megabytes / median(exportSeconds),
        median(copySeconds) * 1e3, megabytes / median(copySeconds), ratio, kTarget,
        ratio <= kTarget ? "yes" : "NO", median(peaks));
    return 0;
}
