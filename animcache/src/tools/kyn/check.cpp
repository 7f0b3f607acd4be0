// kyn check FILE [--json]: reads every chunk of every object of every sample through the cache
// and scans the sample stream; says whether the file is whole, and if not, what is damaged and
// where, and how many samples can be read and recovered.
#include <iostream>
#include <memory>

#include "Damage.h"

namespace kyncli {

namespace {

const std::size_t kLinesShown = 20;

int run(const std::string& path, bool json) {
    Kyn::KynCheckReport report;
    {
        ProgressLine progress("checking " + path);
        report = Kyn::checkCache(path.c_str(), progress.callback());
    }
    if (!report.opened) {
        complain("check", path, report.failure, "check the path; a cache file starts with DKYN");
        if (json) printJson({{"file", path}, {"whole", false}, {"failure", report.failure}});
        return 2;
    }
    const std::vector<std::string>& names = report.paths;
    if (json) {
        Json damage = Json::array();
        for (const Kyn::KynDamage& d : report.damage) damage.push_back(damageJson(d, names));
        printJson({{"file", path},
                   {"whole", report.whole()},
                   {"loaded", report.loaded},
                   {"objects", report.objects},
                   {"declaredSamples", report.declaredSamples},
                   {"foundSamples", report.foundSamples},
                   {"readableSamples", report.readableSamples},
                   {"recoverableSamples", report.recoverableSamples},
                   {"damage", damage}});
        return report.whole() ? 0 : 1;
    }
    if (report.whole()) {
        std::cout << path << ": whole, " << report.readableSamples << " samples of "
                  << report.objects << " objects read\n";
        return 0;
    }
    std::cout << path << ": damaged\n";
    printDamage(report.damage, names, kLinesShown);
    const int64_t samples = std::max(report.declaredSamples, report.foundSamples);
    std::cout << report.readableSamples << " of " << samples << " samples can be read";
    if (!report.loaded) std::cout << " once recovered";
    std::cout << "; kyn recover " << path << " OUT would keep " << report.recoverableSamples
              << '\n';
    return 1;
}

}  // namespace

void addCheck(CLI::App& program, int& status) {
    addFileCommand(program, status, "check",
                   "Reads every chunk of every object of every sample through the cache, and "
                   "scans the lengths and tables of the sample stream: says whether the file is "
                   "whole, and if not, what is damaged and where, and how many samples can be "
                   "read.",
                   "0 whole, 1 damaged, 2 the file could not be checked (missing, "
                   "unreadable, not a cache) or wrong usage.",
                   run);
}

}  // namespace kyncli
