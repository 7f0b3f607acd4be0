// kyn2txt FILE: prints every chunk of a cache file as text.
#include <cstring>
#include <iostream>

#include "kynUtils.h"

int main(int argc, char** argv) {
    if (argc == 2 && std::strcmp(argv[1], "--help") == 0) {
        std::cout << "usage: kyn2txt FILE\n"
                     "Prints every chunk of the cache file FILE, one line a chunk, indented by\n"
                     "nesting. Exits 0 on success and 1 on failure.\n";
        return 0;
    }
    if (argc != 2) {
        std::cerr << "usage: kyn2txt FILE (kyn2txt --help for more)\n";
        return 1;
    }
    return kyn2txt(argv[1]) == 0 ? 0 : 1;
}
