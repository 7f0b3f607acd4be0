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
        1,
        0};
    ToolCall call;
    if (!acceptArguments(usage, argc, argv, call)) return call.exitCode;
    const auto& args = call.arguments;
    return kyninfo(args[0]) == 0 ? 0 : 1;
}
