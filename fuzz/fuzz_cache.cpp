// Loads arbitrary bytes as a cache and reads everything it holds through every reader. The
// first input byte picks keepOpen (bit 2) and the bound on samples held in memory (bits 0-1).
#include "FuzzInput.h"
#include "ReadEverything.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
    if (size < 1) return 0;
    FuzzFile input(data + 1, size - 1);
    if (!input.ok()) return 0;
    Silence out(std::cout);
    Silence err(std::cerr);
    readall::readEverything(input.c_str(), data[0] & 4, data[0] & 3);
    return 0;
}
