// Runs the text dump on arbitrary bytes.
#include "FuzzInput.h"
#include "kynUtils.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
    FuzzFile input(data, size);
    if (!input.ok()) return 0;
    Silence out(std::cout);
    Silence err(std::cerr);
    kyn2txt(input.c_str());
    return 0;
}
