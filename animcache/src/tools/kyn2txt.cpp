// kyn2txt FILE: prints every chunk of a cache file as text.
#include "ToolArgs.h"
#include "kynUtils.h"

int main(int argc, char** argv) {
    const ToolUsage usage = {"kyn2txt",
                             "FILE",
                             "Prints every chunk of the cache file FILE, one line a chunk, "
                             "indented by\nnesting. Exits 0 on success and 1 on failure.\n",
                             1,
                             1,
                             1};
    int exitCode = 0;
    if (!acceptArguments(usage, argc, argv, exitCode)) return exitCode;
    return kyn2txt(argv[1]) == 0 ? 0 : 1;
}
