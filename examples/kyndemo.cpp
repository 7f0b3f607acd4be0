// kyndemo [FILE]: writes a small cache file with the low-level writer, then dumps it as text.
#include <iostream>

#include "kynUtils.h"

int main(int argc, char** argv) {
    const char* path = argc > 1 ? argv[1] : "demo.kyn";
    std::cout << "== writing " << path << " with kyntest\n";
    if (kyntest(path) != 0) return 1;
    std::cout << "== its chunks, as kyn2txt prints them\n";
    return kyn2txt(path) == 0 ? 0 : 1;
}
