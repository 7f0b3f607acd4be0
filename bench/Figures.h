// The figures of the performance programs: what each repetition measured on the library side and
// on its raw baseline, and the table of medians printed at the end of a run.
//
// Every repetition records its library time, its baseline time and their ratio; a figure's
// ratio in the table is the median of the per-repetition ratios, so a slow moment of the machine
// weighs on both sides of a ratio. A figure may have a target, judged on its median.
#ifndef KYN_BENCH_FIGURES_H
#define KYN_BENCH_FIGURES_H

#include <benchmark/benchmark.h>

#include <chrono>
#include <cstdint>
#include <vector>

namespace figures {

enum class Goal {
    kNone,               // reported, not judged
    kThroughputAtLeast,  // a share of the baseline's throughput: raw time / library time
    kTimeRatioAtMost,    // a multiple of the baseline's time
    kMillisecondsAtMost,
    kMegabytesAtMost  // a memory figure: `library` holds megabytes, there is no baseline
};

struct Figure {
    const char* section;  // a heading printed in front of the first figure under it, or null
    const char* name;
    const char* baseline;
    Goal goal;
    double target;
};

// What the repetitions of one figure measured.
struct Results {
    std::vector<double> library;  // seconds, or megabytes for a memory figure
    std::vector<double> raw;      // seconds of the baseline
};

// The figures of a program, in the order of its table, and their results. `add` appends and
// returns the figure's id.
class Table {
  public:
    int add(const Figure& figure);
    Results& results(int id) { return measured[std::size_t(id)]; }
    double ratioOf(int id, double library, double raw) const;
    // The table in Markdown, figures without results left out.
    void print() const;

  private:
    std::vector<Figure> figures;
    std::vector<Results> measured;
};

Table& table();

template <class F>
double timed(F&& f) {
    const auto start = std::chrono::steady_clock::now();
    f();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

// The library and baseline seconds of one repetition, added up over its iterations, and what it
// reports to Google Benchmark.
struct Repetition {
    double library = 0;
    double raw = 0;
    int64_t bytes = 0;  // moved per iteration, for the throughput counters

    void add(benchmark::State& state, double librarySeconds, double rawSeconds);
    void finish(benchmark::State& state, int figure);
};

}  // namespace figures

#endif
