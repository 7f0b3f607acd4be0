// kyninfo FILE: prints a summary of a cache file.
#include <cstring>
#include <iostream>

#include "kynUtils.h"

int main(int argc, char** argv) {
    if (argc == 2 && std::strcmp(argv[1], "--help") == 0) {
        std::cout << "usage: kyninfo FILE\n"
                     "Prints a summary of the cache file FILE: its version, sampling and space,\n"
                     "then each object with its kind and its dynamic attributes, as found in the\n"
                     "first sample. Exits 0 on success and 1 on failure.\n";
        return 0;
    }
    if (argc != 2) {
        std::cerr << "usage: kyninfo FILE (kyninfo --help for more)\n";
        return 1;
    }
    return kyninfo(argv[1]) == 0 ? 0 : 1;
}
