#include "Figures.h"

#include <algorithm>
#include <cstdio>

namespace figures {

namespace {

double median(std::vector<double> values) {
    if (values.empty()) return 0.0;
    std::sort(values.begin(), values.end());
    const std::size_t half = values.size() / 2;
    return values.size() % 2 ? values[half] : (values[half - 1] + values[half]) / 2;
}

}  // namespace

Table& table() {
    static Table made;
    return made;
}

int Table::add(const Figure& figure) {
    figures.push_back(figure);
    measured.emplace_back();
    return int(figures.size()) - 1;
}

double Table::ratioOf(int id, double library, double raw) const {
    if (figures[std::size_t(id)].goal == Goal::kThroughputAtLeast) return raw / library;
    return library / raw;
}

void Table::print() const {
    printf("\n| Figure | Library | Baseline | Ratio | Target | Met |\n");
    printf("|---|---|---|---|---|---|\n");
    for (std::size_t id = 0; id < figures.size(); ++id) {
        const Figure& figure = figures[id];
        const Results& results = measured[id];
        if (results.library.empty()) continue;
        if (figure.section) printf("| **%s** | | | | | |\n", figure.section);
        std::vector<double> ratios;
        for (std::size_t r = 0; r < results.library.size() && r < results.raw.size(); ++r)
            ratios.push_back(ratioOf(int(id), results.library[r], results.raw[r]));
        const double library = median(results.library);
        const double ratio = median(ratios);
        char target[64] = "none";
        bool met = true;
        switch (figure.goal) {
            case Goal::kNone:
                break;
            case Goal::kThroughputAtLeast:
                snprintf(target, sizeof(target), ">= %.2fx throughput", figure.target);
                met = ratio >= figure.target;
                break;
            case Goal::kTimeRatioAtMost:
                snprintf(target, sizeof(target), "<= %gx time", figure.target);
                met = ratio <= figure.target;
                break;
            case Goal::kMillisecondsAtMost:
                snprintf(target, sizeof(target), "<= %g ms", figure.target);
                met = library * 1e3 <= figure.target;
                break;
            case Goal::kMegabytesAtMost:
                snprintf(target, sizeof(target), "<= %g MB", figure.target);
                met = library <= figure.target;
                break;
        }
        const char* verdict = figure.goal == Goal::kNone ? "-" : met ? "yes" : "NO";
        if (figure.goal == Goal::kMegabytesAtMost) {
            printf("| %s | %.1f MB | | | %s | %s |\n", figure.name, library, target, verdict);
        } else if (results.raw.empty()) {
            printf("| %s | %.3f ms | | | %s | %s |\n", figure.name, library * 1e3, target, verdict);
        } else {
            printf("| %s | %.3f ms | %.3f ms %s | %.2f | %s | %s |\n", figure.name, library * 1e3,
                   median(results.raw) * 1e3, figure.baseline, ratio, target, verdict);
        }
    }
    printf(
        "\nMedians over the repetitions; the ratio is the median of the per-repetition ratios.\n");
}

void Repetition::add(benchmark::State& state, double librarySeconds, double rawSeconds) {
    state.SetIterationTime(librarySeconds);
    library += librarySeconds;
    raw += rawSeconds;
}

void Repetition::finish(benchmark::State& state, int figure) {
    const double n = double(std::max<int64_t>(state.iterations(), 1));
    Results& results = table().results(figure);
    results.library.push_back(library / n);
    if (raw > 0) {
        results.raw.push_back(raw / n);
        state.counters["raw_ms"] = raw / n * 1e3;
        state.counters["ratio"] = table().ratioOf(figure, library, raw);
    }
    if (bytes > 0 && raw > 0) {
        state.counters["lib_MBps"] = double(bytes) * n / library / 1e6;
        state.counters["raw_MBps"] = double(bytes) * n / raw / 1e6;
    }
}

}  // namespace figures
