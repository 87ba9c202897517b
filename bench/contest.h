// Ways of doing the same work (the library's and its raw baselines) run in turn inside one
// benchmark, so that the load of a shared machine falls on all of them alike: every iteration calls
// each variant once, in an order that rotates, and times each call on its own clock. A variant's
// figure comes from the median of its calls: a time slice that another process takes now and then
// lands on one call or another and would otherwise sway the sums far more than the differences
// measured here.
//
//   Contest contest(state, {"library", "raw"});
//   contest.run([&](std::size_t variant) { return variant == 0 ? library_call() : raw_call(); });
//   contest.report_rate(bytesPerCall / 1e6, "MB/s");
//
// The figures go out as counters named "<variant> <unit>", which the ratio report reads.
#pragma once

#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <string>
#include <utility>
#include <vector>

namespace wrenlink::bench {

class Contest {
public:
    Contest(benchmark::State &state, std::vector<std::string> variants)
        : state_(state), variants_(std::move(variants)), calls_(variants_.size()) {}

    // Calls `call(variant)` for every variant in each iteration; a call returns false when it
    // failed, which ends the benchmark with an error.
    template <class Call>
    void run(Call &&call) {
        std::size_t turn = 0;
        for (auto _ : state_) {
            for (std::size_t k = 0; k < variants_.size(); ++k) {
                const std::size_t variant = (k + turn) % variants_.size();
                excluded_ = Clock::duration::zero();
                const auto start = Clock::now();
                const bool ok = call(variant);
                calls_[variant].push_back(std::chrono::duration<double>(Clock::now() - start - excluded_).count());
                if (!ok) {
                    state_.SkipWithError((variants_[variant] + " failed").c_str());
                    return;
                }
            }
            ++turn;
        }
    }

    // Runs `step` inside a call without counting its time (a rewind at the end of a file ...).
    template <class Step>
    void untimed(Step &&step) {
        const auto start = Clock::now();
        step();
        excluded_ += Clock::now() - start;
    }

    // Each variant's work per second, given the work of one call in the unit's terms.
    void report_rate(double workPerCall, const char *unit) {
        for (std::size_t v = 0; v < variants_.size(); ++v) {
            const double seconds = median_seconds(v);
            set(v, unit, seconds > 0 ? workPerCall / seconds : 0);
        }
    }

    // The median of a variant's calls, in seconds.
    double median_seconds(std::size_t v) {
        std::vector<double> &calls = calls_[v];
        if (calls.empty()) return 0;
        const auto mid = calls.begin() + static_cast<std::ptrdiff_t>(calls.size() / 2);
        std::nth_element(calls.begin(), mid, calls.end());
        return *mid;
    }

    // Each variant's time per call, in microseconds or milliseconds.
    void report_time(bool milliseconds = false) {
        for (std::size_t v = 0; v < variants_.size(); ++v) {
            set(v, milliseconds ? "ms" : "us", median_seconds(v) * (milliseconds ? 1e3 : 1e6));
        }
    }

private:
    using Clock = std::chrono::steady_clock;
    void set(std::size_t v, const char *unit, double value) { state_.counters[variants_[v] + " " + unit] = value; }

    benchmark::State &state_;
    std::vector<std::string> variants_;
    std::vector<std::vector<double>> calls_;  // seconds of each call, by variant
    Clock::duration excluded_{};
};

}  // namespace wrenlink::bench
