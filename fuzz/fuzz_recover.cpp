// Recovers arbitrary bytes as a damaged cache file. Whatever recovery writes must be a whole
// cache that holds exactly the samples it says it kept.
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "FuzzInput.h"
#include "KynRecovery.h"

using namespace Kyn;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
    FuzzFile input(data, size);
    if (!input.ok()) return 0;
    Silence out(std::cout);
    Silence err(std::cerr);
    static const std::string recovered =
        (access("/dev/shm", W_OK) == 0 ? std::string("/dev/shm") : std::string("/tmp")) +
        "/kyn_fuzz_recover_" + std::to_string(getpid()) + ".kyn";
    const KynRecoveryReport report = recoverCache(input.c_str(), recovered.c_str());
    if (report.written) {
        const KynCheckReport check = checkCache(recovered.c_str());
        if (!check.whole() || check.readableSamples != int64_t(report.kept.size())) std::abort();
    }
    std::remove(recovered.c_str());
    return 0;
}
