// kyn recover DAMAGED OUT [--json]: writes to OUT a valid cache of every whole sample of
// DAMAGED whose time is known, and says which samples it kept and which it dropped, and why.
#include <iostream>
#include <memory>

#include "Damage.h"

namespace kyncli {

namespace {

const std::size_t kLinesShown = 20;

int run(const std::string& damaged, const std::string& out, bool json) {
    Kyn::KynRecoveryReport report;
    {
        ProgressLine progress("recovering " + damaged);
        report = Kyn::recoverCache(damaged.c_str(), out.c_str(), progress.callback());
    }
    const std::vector<std::string>& names = report.paths;
    if (json) {
        Json dropped = Json::array();
        for (const Kyn::KynDamage& d : report.dropped) dropped.push_back(damageJson(d, names));
        Json times = Json::array();
        for (float t : report.keptTimes) times.push_back(jsonNumber(t));
        printJson({{"file", damaged},
                   {"out", out},
                   {"written", report.written},
                   {"failure", report.failure},
                   {"foundSamples", report.foundSamples},
                   {"kept", report.kept},
                   {"keptTimes", times},
                   {"uniform", report.uniform},
                   {"dropped", dropped}});
    }
    if (!report.written) {
        complain("recover", damaged, report.failure + "; nothing was written",
                 "kyn check " + damaged + " tells more");
        return 1;
    }
    if (json) return 0;
    std::cout << "kept " << report.kept.size() << " of " << report.foundSamples
              << " samples found in " << damaged << ", written to " << out;
    if (!report.keptTimes.empty())
        std::cout << " (frames " << number(report.keptTimes.front()) << " to "
                  << number(report.keptTimes.back()) << ", "
                  << (report.uniform ? "uniform" : "non-uniform") << ")";
    std::cout << '\n';
    if (!report.dropped.empty()) {
        std::cout << "dropped:\n";
        printDamage(report.dropped, names, kLinesShown);
    }
    return 0;
}

}  // namespace

void addRecover(CLI::App& program, int& status) {
    auto* command = program.add_subcommand(
        "recover",
        "Writes to OUT a valid cache of every whole sample of DAMAGED whose time is "
        "known, with its objects copied byte for byte, and says which samples it "
        "kept and which it dropped. A sample of a non-uniform file whose time was "
        "never written (its writer died before it wrote the time table) is dropped: "
        "no time is made up. OUT is replaced only once it is complete.");
    auto damaged = std::make_shared<std::string>();
    auto out = std::make_shared<std::string>();
    auto json = std::make_shared<bool>(false);
    command->add_option("DAMAGED", *damaged, "The damaged cache file")->required();
    command->add_option("OUT", *out, "The cache file to write")->required();
    command->add_flag("--json", *json, "Print one JSON document");
    command->footer(
        "Exit status: 0 OUT written (perhaps without every sample; see what was "
        "dropped), 1 nothing written, 2 wrong usage.");
    command->callback([damaged, out, json, &status] { status = run(*damaged, *out, *json); });
}

}  // namespace kyncli
