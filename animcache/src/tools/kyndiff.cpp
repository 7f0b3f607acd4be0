// kyndiff FILE1 FILE2 [DIFF-OPTIONS]: compares the content of two cache files.
#include <sys/stat.h>
#include <sys/wait.h>

#include <iostream>

#include "ToolArgs.h"
#include "kynUtils.h"

namespace {

// The directory that holds the two text dumps while diff compares them.
const char* const kTemporaryDirectory = "/disk1/tmp";

// diff's own exit status (0 same, 1 different, 2 trouble), or 2 when it did not run.
int exitStatusOf(int result) {
    if (result == -1 || !WIFEXITED(result)) return 2;
    return WEXITSTATUS(result);
}

}  // namespace

int main(int argc, char** argv) {
    const ToolUsage usage = {
        "kyndiff",
        "FILE1 FILE2 [DIFF-OPTIONS]",
        "Compares two cache files by their content: each is written as a flat text\n"
        "dump, with the creation date left out, into the directory /disk1/tmp,\n"
        "and the system's diff compares the dumps with DIFF-OPTIONS, given as one\n"
        "argument. Exits 0 when the files are the same, 1 when they differ, and 2 on\n"
        "failure.\n",
        2,
        3,
        2,
        3};
    ToolCall call;
    if (!acceptArguments(usage, argc, argv, call)) return call.exitCode;
    const auto& args = call.arguments;
    struct stat info;
    if (stat(kTemporaryDirectory, &info) != 0 || !S_ISDIR(info.st_mode)) {
        std::cerr << "kyndiff: the directory " << kTemporaryDirectory
                  << " is missing; it holds the temporary dumps and must exist before kyndiff "
                     "runs\n";
        return 2;
    }
    return exitStatusOf(kyndiff(args[0], args[1], args.size() == 3 ? args[2] : nullptr));
}
