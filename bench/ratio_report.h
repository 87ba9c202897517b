// A console reporter that ends the usual output with a table of the library's figures against its
// raw baselines.
//
// A benchmark gives its figures as counters named "<variant> <unit>" (see contest.h): the variant
// "library" and one or more baselines, measured in turn within the same run. The table has one row
// per baseline: both figures (medians over the repetitions), the ratio library / baseline (the
// median of the ratios of each repetition, with their lowest and highest), and the goal set for it.
// A case with the library's figure alone (memory growth) gets one row, its goal on that figure.
#pragma once

#include <benchmark/benchmark.h>

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace wrenlink::bench {

enum class Bound { AtLeast, AtMost };

// Declares a goal: the ratio of the case's library figure to `baseline` must keep within `bound`
// `value`. With an empty `baseline` the goal is on the library's own figure. Returns 0, so that a
// goal can stand beside its benchmarks as a static initialiser.
int goal(const std::string &caseName, const std::string &baseline, Bound bound, double value);

class RatioReporter : public benchmark::ConsoleReporter {
public:
    using ConsoleReporter::ConsoleReporter;
    // Passes single runs and the medians of repetitions on to the console; keeps every figure.
    void ReportRuns(const std::vector<Run> &runs) override;
    void Finalize() override;

private:
    struct Series {
        std::string unit;
        std::vector<double> values;  // one per repetition
    };
    struct Case {
        int64_t order = 0;
        std::map<std::string, Series> variants;
    };
    void print_case(const std::string &name, const Case &c) const;

    std::map<std::string, Case> cases_;
    std::size_t repetitions_ = 1;
};

// Runs the benchmarks selected by the command line with the table at the end; use as main().
int run_with_ratios(int argc, char **argv);

}  // namespace wrenlink::bench
