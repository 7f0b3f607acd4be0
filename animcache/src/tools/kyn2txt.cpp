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
                             1,
                             0};
    ToolCall call;
    if (!acceptArguments(usage, argc, argv, call)) return call.exitCode;
    const auto& args = call.arguments;
    return kyn2txt(args[0]) == 0 ? 0 : 1;
}
