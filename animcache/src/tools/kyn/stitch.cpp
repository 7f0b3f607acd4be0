// kyn stitch OUT IN... [--json]: joins caches of the same objects whose time ranges follow one
// another into one cache, in time order.
#include <iostream>
#include <memory>

#include "Command.h"
#include "KynStitch.h"

namespace kyncli {

namespace {

// What to do about each refusal.
std::string remedy(Kyn::KynStitchReport::Refusal refusal) {
    switch (refusal) {
        case Kyn::KynStitchReport::kUnreadable:
        case Kyn::KynStitchReport::kDamaged:
            return "check it with kyn check, and write that piece again";
        case Kyn::KynStitchReport::kObjects:
        case Kyn::KynStitchReport::kStaticData:
        case Kyn::KynStitchReport::kSpace:
            return "only pieces of one scene, written the same way, can be joined";
        case Kyn::KynStitchReport::kSampling:
            return "write every piece with the same sampling";
        case Kyn::KynStitchReport::kOverlap:
            return "give pieces whose frame ranges do not overlap";
        case Kyn::KynStitchReport::kGap:
            return "write the missing frames as a piece of their own and give it too";
        case Kyn::KynStitchReport::kWrite:
            return "check that the directory of OUT is writable and has room";
        default:
            return "";
    }
}

int run(const std::string& out, const std::vector<std::string>& inputs, bool json) {
    Kyn::KynStitchReport report;
    {
        ProgressLine progress("stitching " + out);
        report = Kyn::stitchCaches(out.c_str(), inputs, progress.callback());
    }
    if (json) {
        Json document = {{"out", out}, {"written", report.written}};
        if (report.written) {
            document["order"] = report.order;
            document["samples"] = report.samples;
            document["uniform"] = report.uniform;
        } else {
            document["refusal"] = Kyn::kynStitchRefusalName(report.refusal);
            document["file"] = report.file.empty() ? Json(nullptr) : Json(report.file);
            document["message"] = report.message;
        }
        printJson(document);
    }
    if (!report.written) {
        complain("stitch", report.file.empty() ? out : report.file,
                 report.message + "; nothing was written", remedy(report.refusal));
        return 1;
    }
    if (!json) {
        const std::size_t pieces = report.order.size();
        std::cout << "joined " << pieces << (pieces == 1 ? " piece, " : " pieces, ")
                  << report.samples << " samples, into " << out << ":";
        for (const std::string& piece : report.order) std::cout << ' ' << piece;
        std::cout << '\n';
    }
    return 0;
}

}  // namespace

void addStitch(CLI::App& program, int& status) {
    auto* command = program.add_subcommand(
        "stitch",
        "Joins caches of the same objects whose time ranges follow one another into "
        "one cache, in time order: a frame range written in pieces comes back "
        "together. Refuses pieces that overlap or leave a gap, that hold other objects "
        "or other static data, or that are sampled differently. OUT is replaced only "
        "once it is complete, and may be one of the pieces.");
    auto out = std::make_shared<std::string>();
    auto inputs = std::make_shared<std::vector<std::string>>();
    auto json = std::make_shared<bool>(false);
    command->add_option("OUT", *out, "The cache file to write")->required();
    command->add_option("IN", *inputs, "The pieces, in any order")->required();
    command->add_flag("--json", *json, "Print one JSON document");
    command->footer(
        "Exit status: 0 written, 1 refused or failed (nothing written), 2 wrong "
        "usage.");
    command->callback([out, inputs, json, &status] { status = run(*out, *inputs, *json); });
}

}  // namespace kyncli
