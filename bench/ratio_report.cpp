#include "ratio_report.h"

#include <algorithm>
#include <cmath>
#include <cstdarg>
#include <cstdio>

namespace wrenlink::bench {

namespace {

struct Goal {
    Bound bound;
    double value;
};

// case -> baseline ("" for the library's own figure) -> goal
std::map<std::string, std::map<std::string, Goal>> &goals() {
    static std::map<std::string, std::map<std::string, Goal>> all;
    return all;
}

__attribute__((format(printf, 1, 2))) std::string format(const char *fmt, ...) {
    char text[128];
    va_list args;
    va_start(args, fmt);
    std::vsnprintf(text, sizeof text, fmt, args);
    va_end(args);
    return text;
}

std::string figure(double value, const std::string &unit) {
    const int digits = unit == "M/s" ? 3 : unit == "ms" ? 2 : unit == "KiB" ? 0 : 1;
    return format("%.*f %s", digits, value, unit.c_str());
}

// "" when the case has no goal for `key`, else e.g. ">= 0.90 met".
std::string judge(const std::string &caseName, const std::string &key, double value) {
    const auto c = goals().find(caseName);
    if (c == goals().end()) return "";
    const auto g = c->second.find(key);
    if (g == c->second.end()) return "";
    const bool atLeast = g->second.bound == Bound::AtLeast;
    const bool met = atLeast ? value >= g->second.value : value <= g->second.value;
    return format("%s %.2f %s", atLeast ? ">=" : "<=", g->second.value, met ? "met" : "MISSED");
}

}  // namespace

double median(std::vector<double> values) {
    if (values.empty()) return NAN;
    std::sort(values.begin(), values.end());
    const std::size_t mid = values.size() / 2;
    return values.size() % 2 ? values[mid] : (values[mid - 1] + values[mid]) / 2;
}

int goal(const std::string &caseName, const std::string &baseline, Bound bound, double value) {
    goals()[caseName][baseline] = Goal{bound, value};
    return 0;
}

void split_runs(const std::vector<benchmark::BenchmarkReporter::Run> &runs,
                std::vector<benchmark::BenchmarkReporter::Run> &shown,
                std::vector<benchmark::BenchmarkReporter::Run> &kept) {
    using Run = benchmark::BenchmarkReporter::Run;
    for (const auto &run : runs) {
        const bool aggregate = run.run_type == Run::RT_Aggregate;
        if (run.error_occurred || run.repetitions <= 1 || (aggregate && run.aggregate_name == "median")) {
            shown.push_back(run);
        }
        if (!run.error_occurred && !aggregate) kept.push_back(run);
    }
}

void RatioReporter::ReportRuns(const std::vector<Run> &runs) {
    std::vector<Run> shown, kept;
    split_runs(runs, shown, kept);
    for (const auto &run : kept) {
        // The name alone: the suffixes that options add (min_time, real_time ...) are not ours.
        const std::string name = run.run_name.function_name + (run.run_name.args.empty() ? "" : "/" + run.run_name.args);
        Case &c = cases_[name];
        c.order = run.family_index * 1000 + run.per_family_instance_index;
        for (const auto &[counter, value] : run.counters) {
            const auto space = counter.find(' ');
            if (space == std::string::npos) continue;
            Series &s = c.variants[counter.substr(0, space)];
            s.unit = counter.substr(space + 1);
            s.values.push_back(value.value);
        }
        repetitions_ = std::max(repetitions_, static_cast<std::size_t>(std::max<int64_t>(run.repetitions, 1)));
    }
    ConsoleReporter::ReportRuns(shown);
}

void RatioReporter::print_case(const std::string &name, const Case &c) const {
    const auto lib = c.variants.find("library");
    if (lib == c.variants.end()) return;
    const Series &l = lib->second;
    const std::string own = judge(name, "", median(l.values));
    bool first = true;
    for (const auto &[variant, base] : c.variants) {
        if (variant == "library") continue;
        std::vector<double> ratios;
        for (std::size_t i = 0; i < std::min(l.values.size(), base.values.size()); ++i) {
            if (base.values[i] != 0) ratios.push_back(l.values[i] / base.values[i]);
        }
        std::string verdict = judge(name, variant, median(ratios));
        if (first && !own.empty()) verdict += (verdict.empty() ? "library " : "; library ") + own;
        const auto [lo, hi] = std::minmax_element(ratios.begin(), ratios.end());
        std::printf("%-24s %-14s %-11s %-14s %6.3f %-13s %s\n", name.c_str(), figure(median(l.values), l.unit).c_str(),
                    variant.c_str(), figure(median(base.values), base.unit).c_str(), median(ratios),
                    ratios.empty() ? "" : format("%.2f..%.2f", *lo, *hi).c_str(), verdict.empty() ? "-" : verdict.c_str());
        first = false;
    }
    if (first) {
        std::printf("%-24s %-14s %-11s %-14s %6s %-13s %s\n", name.c_str(), figure(median(l.values), l.unit).c_str(), "-",
                    "", "-", "", own.empty() ? "-" : own.c_str());
    }
}

void RatioReporter::Finalize() {
    ConsoleReporter::Finalize();
    std::vector<std::pair<int64_t, std::string>> order;
    for (const auto &[name, c] : cases_) order.emplace_back(c.order, name);
    std::sort(order.begin(), order.end());
    std::printf("\nThe library against raw baselines, measured in turn (%s)\n",
                repetitions_ > 1 ? format("medians of %zu repetitions", repetitions_).c_str() : "one run");
    std::printf("%-24s %-14s %-11s %-14s %6s %-13s %s\n", "case", "library", "baseline", "", "ratio", "range", "goal");
    for (const auto &entry : order) print_case(entry.second, cases_.at(entry.second));
}

}  // namespace wrenlink::bench
