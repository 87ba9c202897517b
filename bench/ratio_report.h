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
#include <unistd.h>

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace wrenlink::bench {

enum class Bound { AtLeast, AtMost };

// The median of the values (the mean of the middle two for an even count); NaN for none.
double median(std::vector<double> values);

// Declares a goal: the ratio of the case's library figure to `baseline` must keep within `bound`
// `value`. With an empty `baseline` the goal is on the library's own figure. Returns 0, so that a
// goal can stand beside its benchmarks as a static initialiser.
int goal(const std::string &caseName, const std::string &baseline, Bound bound, double value);

// Splits a batch of runs into those the console shows (single runs, failures, the medians of
// repetitions) and those whose figures a table keeps (every repetition that did not fail).
void split_runs(const std::vector<benchmark::BenchmarkReporter::Run> &runs,
                std::vector<benchmark::BenchmarkReporter::Run> &shown,
                std::vector<benchmark::BenchmarkReporter::Run> &kept);

// Runs the benchmarks selected by the command line, reported through a console reporter of ours
// that ends with its table.
template <class Reporter>
int run_with_table(int argc, char **argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    Reporter reporter(::isatty(STDOUT_FILENO) ? Reporter::OO_ColorTabular : Reporter::OO_Tabular);
    benchmark::RunSpecifiedBenchmarks(&reporter);
    benchmark::Shutdown();
    return 0;
}

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

}  // namespace wrenlink::bench
