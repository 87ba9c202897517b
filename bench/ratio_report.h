// A console reporter that, after the usual output, prints one table row per pair of benchmarks
// named "<case>/library" and "<case>/<baseline>": both figures and their ratio.
//
// Pairs are matched by the text before the last '/' of the name (arguments come before it, e.g.
// "FileRead/65536/library" and "FileRead/65536/raw_direct"). The figure is bytes or items per
// second when the benchmark sets them, otherwise the inverse of the time per iteration.
#pragma once

#include <benchmark/benchmark.h>

#include <map>
#include <string>
#include <vector>

namespace wrenlink::bench {

class RatioReporter : public benchmark::ConsoleReporter {
public:
    void ReportRuns(const std::vector<Run> &runs) override;
    void Finalize() override;

private:
    struct Figure {
        double value = 0;  // higher is better
        std::string unit;
    };
    std::map<std::string, std::map<std::string, Figure>> cases_;  // case -> variant -> figure
    std::vector<std::string> order_;
};

// Runs all registered benchmarks with the ratio table at the end; use as main().
int run_with_ratios(int argc, char **argv);

}  // namespace wrenlink::bench
