#include "phones_report.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <set>

namespace wrenlink::bench {

namespace {

std::vector<ScalingRow> &rows() {
    static std::vector<ScalingRow> all;
    return all;
}

bool within(Bound bound, double figure, double value) {
    return bound == Bound::AtLeast ? figure >= value : figure <= value;
}

// "-" when the row has no goal, else e.g. "growth <= 1.20 met".
std::string verdict(const ScalingRow &row, double growth, const std::vector<double> &cells) {
    if (row.on == GoalOn::None) return "-";
    bool met = !cells.empty();
    if (row.on == GoalOn::Growth) met = within(row.bound, growth, row.value);
    for (const double cell : cells) met = met && (row.on != GoalOn::EveryCount || within(row.bound, cell, row.value));
    char text[64];
    std::snprintf(text, sizeof text, "%s%s %.2f %s", row.on == GoalOn::Growth ? "growth " : "each ",
                  row.bound == Bound::AtLeast ? ">=" : "<=", row.value, met ? "met" : "MISSED");
    return text;
}

}  // namespace

int scaling_row(ScalingRow row) {
    rows().push_back(std::move(row));
    return 0;
}

void ScalingReporter::ReportRuns(const std::vector<Run> &runs) {
    std::vector<Run> shown, kept;
    split_runs(runs, shown, kept);
    for (const auto &run : kept) {
        auto &byCounter = figures_[run.run_name.function_name][std::atol(run.run_name.args.c_str())];
        for (const auto &[name, counter] : run.counters) byCounter[name].push_back(counter.value);
    }
    ConsoleReporter::ReportRuns(shown);
}

std::optional<double> ScalingReporter::cell(const ScalingRow &row, long phones) const {
    const auto family = figures_.find(row.family);
    if (family == figures_.end()) return std::nullopt;
    const auto byCounter = family->second.find(phones);
    if (byCounter == family->second.end()) return std::nullopt;
    const auto values = byCounter->second.find(row.counter);
    if (values == byCounter->second.end()) return std::nullopt;
    return median(values->second);
}

void ScalingReporter::Finalize() {
    ConsoleReporter::Finalize();
    std::set<long> counts;
    for (const auto &[family, byCount] : figures_) {
        for (const auto &entry : byCount) counts.insert(entry.first);
    }
    if (counts.empty()) return;
    const long fewest = *counts.begin(), most = *counts.rbegin();
    std::printf("\nFigures by the number of phones\n%-46s", "figure");
    for (const long n : counts) std::printf(" %9ld", n);
    std::printf(" %9s  goal\n", ("x " + std::to_string(fewest) + "->" + std::to_string(most)).c_str());
    for (const ScalingRow &row : rows()) {
        if (figures_.count(row.family) == 0) continue;
        std::printf("%-46s", row.label.c_str());
        std::vector<double> cells;
        for (const long n : counts) {
            const auto figure = cell(row, n);
            if (figure) cells.push_back(*figure);
            if (figure) std::printf(" %9.*f", row.digits, *figure);
            else std::printf(" %9s", "-");
        }
        const auto first = cell(row, fewest), last = cell(row, most);
        const double growth = first && last && *first != 0 ? *last / *first : NAN;
        std::printf(" %9.2f  %s\n", growth, verdict(row, growth, cells).c_str());
    }
}

}  // namespace wrenlink::bench
