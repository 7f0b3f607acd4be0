// kyn export CACHE OUT [--path P] [--samples A:B] [--fps F] [--strict]: a cache, or the objects
// under a path, to glTF, PC2, OBJ or PLY as OUT's extension says. The converters do the work;
// this prints what they wrote and what they left out.
#include <iostream>

#include "Command.h"
#include "Exchange.h"
#include "KynExchange.h"

namespace kyncli {

namespace {

struct ExportArguments {
    std::string cache, out, samples;
    Kyn::KynExportOptions options;
    bool strict = false;
};

int run(ExportArguments& arguments) {
    if (!arguments.samples.empty())
        Kyn::kynParseSampleRange(arguments.samples, arguments.options.firstSample,
                                 arguments.options.lastSample);
    return runExchange("export", arguments.strict, [&](const Kyn::KynProgress& progress) {
        arguments.options.progress = progress;
        return Kyn::kynExport(arguments.cache, arguments.out, arguments.options);
    });
}

}  // namespace

void addExport(CLI::App& program, int& status) {
    auto* command = program.add_subcommand(
        "export",
        "Writes a cache, or the objects under --path, to the format that OUT's extension names. "
        ".glb: glTF 2.0 binary, meshes and point sets with the faces of the first sample "
        "written, normals and texture coordinates (a float attribute \"uv\", one pair per "
        "vertex), later samples as morph targets with a weight track, transforms as node "
        "matrices or animated translation, rotation and scale, the object paths as the node "
        "tree; it is built in memory, every exported sample of every mesh, held twice while "
        "the file is written. .pc2: the positions of one deforming object (--path, or the "
        "cache's only one) at every sample. .obj, .ply: one file per sample, numbered by frame "
        "(shot.obj gives shot.0001.obj ...; a run of # in OUT takes the number), positions and "
        "faces of every mesh and point set as stored. PC2, OBJ and PLY hold one sample of the "
        "largest object in memory. What a format cannot carry is named on the standard "
        "error.");
    auto arguments = std::make_shared<ExportArguments>();
    command->add_option("CACHE", arguments->cache, "The cache file to read")->required();
    command->add_option("OUT", arguments->out, "The file to write: .glb, .pc2, .obj or .ply")
        ->required();
    command->add_option("--path", arguments->options.path,
                        "Only the object at this path and those under it");
    const CLI::Validator range(
        [](std::string& text) {
            int first = 0, last = 0;
            return Kyn::kynParseSampleRange(text, first, last)
                       ? std::string()
                       : "give A:B, A:, :B or A, sample indices from 0";
        },
        "A:B");
    command
        ->add_option("--samples", arguments->samples,
                     "Sample indices A:B (from 0, both included; A: and :B leave an end "
                     "open); all samples when not given")
        ->check(range);
    command
        ->add_option("--fps", arguments->options.framesPerSecond,
                     "Frames per second of glTF animation times (default 24)")
        ->check(CLI::PositiveNumber);
    command->add_flag("--strict", arguments->strict, "Exit 1 when anything asked for was left out");
    command->footer(
        "Exit status: 0 written, 1 nothing could be written (or, with --strict, "
        "something was left out), 2 wrong usage.");
    command->callback([arguments, &status] { status = run(*arguments); });
}

}  // namespace kyncli
