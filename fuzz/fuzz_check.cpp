// Checks arbitrary bytes as a cache file, and scans them as a live reader would, holding back a
// sample still being written; the scan must stand behind everything it reported.
#include <cstdlib>

#include "FuzzInput.h"
#include "KynRecovery.h"

using namespace Kyn;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
    FuzzFile input(data, size);
    if (!input.ok()) return 0;
    Silence out(std::cout);
    Silence err(std::cerr);
    int64_t last = 0;
    const KynCheckReport report = checkCache(input.c_str(), [&](int64_t done, int64_t total) {
        if (done < last || done > total) std::abort();
        last = done;
    });
    if (report.whole() && report.readableSamples != report.declaredSamples) std::abort();
    KynSampleScanner scanner;
    scanner.holdTail = true;
    if (!scanner.open(input.c_str())) return 0;
    KynScannedSample sample;
    int64_t behind = 0;
    while (scanner.next(sample)) {
        if (sample.offset < behind || scanner.position() > scanner.fileSize()) std::abort();
        behind = sample.offset + 1;
    }
    scanner.problems();
    return 0;
}
