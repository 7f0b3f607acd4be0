// kyn import IN OUT [--name PATH] [--strict]: a new cache from a PC2 file or a numbered OBJ
// sequence. The converters do the work; this prints what they wrote and what they left out.
#include "Command.h"
#include "Exchange.h"
#include "KynExchange.h"

namespace kyncli {

namespace {

struct ImportArguments {
    std::string in, out;
    Kyn::KynImportOptions options;
    bool strict = false;
};

int run(ImportArguments& arguments) {
    return runExchange("import", arguments.strict, [&](const Kyn::KynProgress& progress) {
        arguments.options.progress = progress;
        return Kyn::kynImport(arguments.in, arguments.out, arguments.options);
    });
}

}  // namespace

void addImport(CLI::App& program, int& status) {
    auto* command = program.add_subcommand(
        "import",
        "Writes a new cache from a .pc2 file (one point set: its positions, first frame and "
        "spacing) or from the first file of a numbered OBJ sequence (shot.0001.obj, "
        "shot.0002.obj ... until a number is missing; one polygon mesh with the faces of the "
        "first file, frame n at time n). A file whose vertex count differs from the first is "
        "refused, and so is the import. One sample is held in memory at a time.");
    auto arguments = std::make_shared<ImportArguments>();
    command->add_option("IN", arguments->in, "A .pc2 file or the first .obj file of a sequence")
        ->required();
    command->add_option("OUT", arguments->out, "The cache file to write")->required();
    command->add_option("--name", arguments->options.objectName,
                        "The object's path in the cache (default: | and the file's name)");
    command->add_flag("--strict", arguments->strict, "Exit 1 when anything in IN was left out");
    command->footer(
        "OUT is written beside itself and renamed over itself when complete: a failure "
        "leaves it as it was. "
        "Exit status: 0 written, 1 refused or failed (nothing written; or, with "
        "--strict, something was left out), 2 wrong usage.");
    command->callback([arguments, &status] { status = run(*arguments); });
}

}  // namespace kyncli
