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
                             1,
                             0};
    ToolCall call;
    if (!acceptArguments(usage, argc, argv, call)) return call.exitCode;
    const auto& args = call.arguments;
    return kyntest(args[0]) == 0 ? 0 : 1;
}
