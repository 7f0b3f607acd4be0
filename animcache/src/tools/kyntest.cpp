// kyntest FILE: writes a small fixed cache file through the low-level writer.
#include "ToolArgs.h"
#include "kynUtils.h"

int main(int argc, char** argv) {
    const ToolUsage usage = {"kyntest",
                             "FILE",
                             "Writes a small cache file with two objects and one sample to "
                             "FILE,\nreplacing it. Exits 0 on success and 1 on failure.\n",
                             1,
                             1,
                             1};
    int exitCode = 0;
    if (!acceptArguments(usage, argc, argv, exitCode)) return exitCode;
    return kyntest(argv[1]) == 0 ? 0 : 1;
}
