// kyn: one command for people and scripts, with a subcommand for each task on a cache file.
// Each subcommand lives in its own source file and adds itself here; the library does the work.
#include <iostream>

#include "Command.h"

namespace {

// The subcommands, in the order that `kyn --help` lists them.
const kyncli::Registration kSubcommands[] = {
    kyncli::addInfo,           kyncli::addTree,    kyncli::addCat,    kyncli::addDiff,
    kyncli::addCheck,          kyncli::addRecover, kyncli::addStitch,
#ifdef KYN_HAVE_EXCHANGE
    kyncli::addExport,         kyncli::addImport,
#endif
    kyncli::addBlenderInstall,
};

// Wrong usage exits with this status, whatever the subcommand.
const int kUsageStatus = 2;

}  // namespace

int main(int argc, char** argv) {
    CLI::App program("Reports on, compares, checks, recovers and joins animated scene caches.",
                     "kyn");
    program.require_subcommand(1);
    program.footer(
        "Run kyn COMMAND --help for the options and exit status of a command. Wrong "
        "usage exits with 2.");
    int status = 0;
    for (kyncli::Registration add : kSubcommands) add(program, status);
    try {
        program.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        const int code = program.exit(error);
        return code == 0 ? 0 : kUsageStatus;
    }
    return status;
}
