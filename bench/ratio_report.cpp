#include "ratio_report.h"

#include <cstdio>

namespace wrenlink::bench {

void RatioReporter::ReportRuns(const std::vector<Run> &runs) {
    ConsoleReporter::ReportRuns(runs);
    for (const auto &run : runs) {
        if (run.error_occurred || run.run_type != Run::RT_Iteration) continue;
        const std::string name = run.benchmark_name();
        const auto slash = name.rfind('/');
        if (slash == std::string::npos) continue;
        const std::string key = name.substr(0, slash);
        const std::string variant = name.substr(slash + 1);
        Figure f;
        if (auto it = run.counters.find("bytes_per_second"); it != run.counters.end()) {
            f = {it->second.value / 1e6, "MB/s"};
        } else if (auto items = run.counters.find("items_per_second"); items != run.counters.end()) {
            f = {items->second.value, "items/s"};
        } else {
            const double seconds = run.GetAdjustedRealTime() * benchmark::GetTimeUnitMultiplier(run.time_unit);
            f = {seconds > 0 ? 1.0 / seconds : 0, "runs/s"};
        }
        if (!cases_.count(key)) order_.push_back(key);
        cases_[key][variant] = f;
    }
}

void RatioReporter::Finalize() {
    ConsoleReporter::Finalize();
    std::printf("\n%-34s %-14s %14s %-14s %14s %8s\n", "case", "library", "", "baseline", "", "ratio");
    for (const auto &key : order_) {
        const auto &variants = cases_[key];
        const auto lib = variants.find("library");
        for (const auto &[variant, figure] : variants) {
            if (variant == "library") continue;
            if (lib == variants.end()) {
                std::printf("%-34s %-14s %14s %-14s %14.3f %8s\n", key.c_str(), "-", "", variant.c_str(), figure.value, "");
                continue;
            }
            const double ratio = figure.value > 0 ? lib->second.value / figure.value : 0;
            std::printf("%-34s %-14s %14.3f %-14s %14.3f %8.3f  (%s)\n", key.c_str(), "library", lib->second.value,
                        variant.c_str(), figure.value, ratio, figure.unit.c_str());
        }
        if (variants.size() == 1 && lib != variants.end())
            std::printf("%-34s %-14s %14.3f %-14s %14s %8s  (%s)\n", key.c_str(), "library", lib->second.value, "-", "", "",
                        lib->second.unit.c_str());
    }
}

int run_with_ratios(int argc, char **argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    RatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    benchmark::Shutdown();
    return 0;
}

}  // namespace wrenlink::bench
