// kyntest FILE: writes a small fixed cache file through the low-level writer.
#include <cstring>
#include <iostream>

#include "kynUtils.h"

int main(int argc, char** argv) {
    if (argc == 2 && std::strcmp(argv[1], "--help") == 0) {
        std::cout << "usage: kyntest FILE\n"
                     "Writes a small cache file with two objects and one sample to FILE,\n"
                     "replacing it. Exits 0 on success and 1 on failure.\n";
        return 0;
    }
    if (argc != 2) {
        std::cerr << "usage: kyntest FILE (kyntest --help for more)\n";
        return 1;
    }
    return kyntest(argv[1]) == 0 ? 0 : 1;
}
