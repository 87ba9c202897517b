// The phone benchmarks' table: a row per figure, a column per phone count, the growth from the
// fewest phones to the most, and the goal set for the row. Benchmarks are named
// "<family>/<phones>" and give their figures as counters; a row names a family and a counter, and
// a cell is the median of that counter over the repetitions.
#pragma once

#include <benchmark/benchmark.h>

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "ratio_report.h"

namespace wrenlink::bench {

// Where a row's goal applies: to the growth from the fewest phones to the most, or to the figure
// at every phone count.
enum class GoalOn { None, Growth, EveryCount };

struct ScalingRow {
    std::string label;
    std::string family;
    std::string counter;
    int digits = 1;
    GoalOn on = GoalOn::None;
    Bound bound = Bound::AtMost;
    double value = 0;
};

// Adds a row, below those added before; returns 0, so that rows can stand beside their benchmarks
// as static initialisers.
int scaling_row(ScalingRow row);

class ScalingReporter : public benchmark::ConsoleReporter {
public:
    using ConsoleReporter::ConsoleReporter;
    // Passes single runs and the medians of repetitions on to the console; keeps every figure.
    void ReportRuns(const std::vector<Run> &runs) override;
    void Finalize() override;

private:
    // The median of the row's counter with `phones` phones; none when that was not measured.
    std::optional<double> cell(const ScalingRow &row, long phones) const;

    // family -> phones -> counter -> one value per repetition
    std::map<std::string, std::map<long, std::map<std::string, std::vector<double>>>> figures_;
};

}  // namespace wrenlink::bench
