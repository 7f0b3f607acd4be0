// kyninfo FILE: prints a summary of a cache file.
#include "ToolArgs.h"
#include "kynUtils.h"

int main(int argc, char** argv) {
    const ToolUsage usage = {
        "kyninfo",
        "FILE",
        "Prints a summary of the cache file FILE: its version, sampling and space,\n"
        "then each object with its kind and its dynamic attributes, as found in the\n"
        "first sample. Exits 0 on success and 1 on failure.\n",
        1,
        1,
        1};
    int exitCode = 0;
    if (!acceptArguments(usage, argc, argv, exitCode)) return exitCode;
    return kyninfo(argv[1]) == 0 ? 0 : 1;
}
