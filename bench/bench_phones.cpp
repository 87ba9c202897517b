// Many phones at once: how the library's cost grows with the number of phones attached, through the
// real adb and simulated phones (phone_farm.h), with 1, 4, 16 and 32 phones:
//
//   PhoneList/N   AdbGetPhoneList: time per call and per phone, runs of the tool per call
//   Refresh/N     AdbRereshDevInfo of every phone, one after the other
//   PushPull/N    a 1 MiB AdbPushFile then AdbPullFile for every phone, from one thread and from N
//                 threads at once, in turn (contest.h): what one tool run at a time costs
//   AgentRead/N   the 16 MiB file read with NFCFileRefRead, 1 MiB at a time, through each phone's
//                 forward: from one phone, and from N threads on the N phones at once, in turn
//   Memory/N      the growth of the resident set per connection opened (with a file open on it)
//
// The cases of one phone count run together, so that the phones are set up once for them. This is
// a binary of its own: the library must find the real adb beside it (see bench/CMakeLists.txt).
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "Wrenlink/Wrenlink.h"
#include "base/unique_fd.h"
#include "contest.h"
#include "phone_farm.h"
#include "phones_report.h"
#include "support/resident.h"

namespace {

using namespace wrenlink;
using namespace wrenlink::bench;
using wrenlink::support::resident_kib;

constexpr int kPhoneCounts[] = {1, 4, 16, 32};
constexpr int32_t kReadSize = 1 << 20;
constexpr std::size_t kPushSize = 1 << 20;
constexpr const char *kPhonePath = "/sdcard/wrenlink-bench.bin";

// The library prints a line on standard output for every push and every refreshed phone, and adb
// complains on standard error about each root shell of a pull when several phones are attached
// (the root shell names none): both go to /dev/null while a case runs, so that the console keeps
// to the figures.
class QuietOutput {
public:
    QuietOutput() {
        std::fflush(stdout);
        std::fflush(stderr);
        const UniqueFd null(::open("/dev/null", O_WRONLY | O_CLOEXEC));
        if (!null || !out_ || !err_) return;
        ::dup2(null.get(), STDOUT_FILENO);
        ::dup2(null.get(), STDERR_FILENO);
    }
    QuietOutput(const QuietOutput &) = delete;
    QuietOutput &operator=(const QuietOutput &) = delete;
    ~QuietOutput() {
        std::fflush(stdout);
        std::fflush(stderr);
        if (out_) ::dup2(out_.get(), STDOUT_FILENO);
        if (err_) ::dup2(err_.get(), STDERR_FILENO);
    }

private:
    UniqueFd out_{::fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 3)};
    UniqueFd err_{::fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 3)};
};

PhoneFarm *farm_for(benchmark::State &state) {
    std::string error;
    PhoneFarm *farm = PhoneFarm::with(static_cast<std::size_t>(state.range(0)), error);
    if (farm == nullptr) state.SkipWithError(error.c_str());
    return farm;
}

// Calls `work(i)` for i = 0 .. n-1, each on a thread of its own; true when every call was.
template <class Work>
bool in_threads(std::size_t n, Work &&work) {
    std::vector<char> ok(n, 0);
    std::vector<std::thread> threads;
    for (std::size_t i = 0; i < n; ++i) threads.emplace_back([&, i] { ok[i] = work(i) ? 1 : 0; });
    for (auto &t : threads) t.join();
    return std::all_of(ok.begin(), ok.end(), [](char c) { return c != 0; });
}

void time_counters(benchmark::State &state, const std::string &prefix, double seconds, std::size_t phones) {
    state.counters[prefix + "ms"] = seconds * 1e3;
    state.counters[prefix + "ms_per_phone"] = seconds * 1e3 / static_cast<double>(phones);
}

// Runs of the tool per call, since `before`; their count.
double run_counter(benchmark::State &state, long before, double calls) {
    const double runs = static_cast<double>(PhoneFarm::tool_runs() - before) / calls;
    state.counters["tool_runs"] = runs;
    return runs;
}

// The figures of a case that runs the tool run after run: time per call, per phone and per run.
void serial_run_counters(benchmark::State &state, double seconds, std::size_t phones, long before) {
    time_counters(state, "", seconds, phones);
    const double runs = run_counter(state, before, static_cast<double>(state.iterations()));
    state.counters["ms_per_tool_run"] = runs > 0 ? seconds * 1e3 / runs : 0;
}

bool lists_every_phone(const PhoneInfo *phones, uint32_t count, std::size_t expected) {
    if (count != expected) return false;
    return std::all_of(phones, phones + count, [](const PhoneInfo &p) {
        return p.present == 1 && p.authorized == 1 && std::strncmp(p.productModel, "Wren One", sizeof p.productModel) == 0;
    });
}

void PhoneList(benchmark::State &state) {
    PhoneFarm *farm = farm_for(state);
    if (farm == nullptr) return;
    QuietOutput quiet;
    const long before = PhoneFarm::tool_runs();
    Contest contest(state, {"list"});
    contest.run([&](std::size_t) {
        PhoneInfo *phones = nullptr;
        uint32_t count = 0;
        AdbGetPhoneList(&phones, &count);
        const bool ok = lists_every_phone(phones, count, farm->size());
        WrenlinkFree(phones);
        return ok;
    });
    serial_run_counters(state, contest.median_seconds(0), farm->size(), before);
}

void Refresh(benchmark::State &state) {
    PhoneFarm *farm = farm_for(state);
    if (farm == nullptr) return;
    QuietOutput quiet;
    PhoneInfo *listed = nullptr;
    uint32_t count = 0;
    AdbGetPhoneList(&listed, &count);
    std::vector<PhoneInfo> phones(listed, listed + (listed != nullptr ? count : 0));
    WrenlinkFree(listed);
    if (phones.size() != farm->size()) {
        state.SkipWithError("the phones were not listed");
        return;
    }
    const long before = PhoneFarm::tool_runs();
    Contest contest(state, {"refresh"});
    contest.run([&](std::size_t) {
        for (PhoneInfo &phone : phones) phone.present = 0;
        for (PhoneInfo &phone : phones) AdbRereshDevInfo(&phone);
        return lists_every_phone(phones.data(), static_cast<uint32_t>(phones.size()), farm->size());
    });
    serial_run_counters(state, contest.median_seconds(0), farm->size(), before);
}

std::string pulled_path(std::size_t phone) { return PhoneFarm::scratch() + "/pulled-" + std::to_string(phone) + ".bin"; }

std::string file_text(const std::string &path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

// How many phones' copies came back equal to what was pushed; the copies are removed.
int whole_copies(std::size_t phones, const std::string &pushed) {
    const std::string original = file_text(pushed);
    int whole = 0;
    for (std::size_t i = 0; i < phones; ++i) {
        if (file_text(pulled_path(i)) == original) ++whole;
        std::filesystem::remove(pulled_path(i));
    }
    return whole;
}

bool push_then_pull(const PhoneFarm &farm, std::size_t phone, const std::string &pushed) {
    const char *serial = farm.serial(phone).c_str();
    return AdbPushFile(serial, pushed.c_str(), kPhonePath) == 0 &&
           AdbPullFile(serial, kPhonePath, pulled_path(phone).c_str()) == 0;
}

void PushPull(benchmark::State &state) {
    PhoneFarm *farm = farm_for(state);
    const std::string pushed = PhoneFarm::scratch() + "/pushed.bin";
    if (farm == nullptr || !write_pattern_file(pushed, kPushSize)) return;
    const std::size_t n = farm->size();
    QuietOutput quiet;
    const long before = PhoneFarm::tool_runs();
    int whole[2] = {0, 0};
    Contest contest(state, {"one_thread", "n_threads"});
    contest.run([&](std::size_t variant) {
        bool ok = true;
        if (variant == 0) {
            for (std::size_t i = 0; i < n; ++i) ok = push_then_pull(*farm, i, pushed) && ok;
        } else {
            ok = in_threads(n, [&](std::size_t i) { return push_then_pull(*farm, i, pushed); });
        }
        contest.untimed([&] { whole[variant] = whole_copies(n, pushed); });
        return ok;
    });
    time_counters(state, "one_thread_", contest.median_seconds(0), n);
    time_counters(state, "n_threads_", contest.median_seconds(1), n);
    state.counters["n_threads_vs_one"] = contest.median_seconds(1) / contest.median_seconds(0);
    state.counters["whole_copies"] = std::min(whole[0], whole[1]);
    run_counter(state, before, 2.0 * static_cast<double>(state.iterations()));
}

// A connection through a phone's forward with the agent's 16 MiB file open on it.
class ForwardedFile {
public:
    ForwardedFile(const PhoneFarm &farm, std::size_t phone)
        : conn_(NetConnectionOpen("127.0.0.1", farm.agent_port(phone))) {
        if (conn_ != nullptr && NFCFileRefOpen(conn_, "/read.bin", "r", &ref_) != 0) ref_ = nullptr;
    }
    ForwardedFile(const ForwardedFile &) = delete;
    ForwardedFile &operator=(const ForwardedFile &) = delete;
    ~ForwardedFile() {
        if (ref_ != nullptr) NFCFileRefClose(conn_, ref_);
        NetConnectionClose(conn_);
    }
    bool ok() const { return ref_ != nullptr; }

    // The whole file from its start, into `buffer` (kReadSize bytes) one read at a time.
    bool read_whole(std::vector<unsigned char> &buffer) {
        if (NFCFileRefSeek(conn_, ref_, 0, 0) != 0) return false;
        for (int64_t done = 0; done < kFileSize; done += kReadSize) {
            int32_t length = kReadSize;
            if (NFCFileRefRead(conn_, ref_, buffer.data(), &length) != 0 || length != kReadSize) return false;
        }
        return true;
    }

private:
    NetConnection *conn_;
    NFCFileRef *ref_ = nullptr;
};

std::vector<std::unique_ptr<ForwardedFile>> open_files(const PhoneFarm &farm) {
    std::vector<std::unique_ptr<ForwardedFile>> files;
    files.reserve(farm.size());
    for (std::size_t i = 0; i < farm.size(); ++i) files.push_back(std::make_unique<ForwardedFile>(farm, i));
    return files;
}

bool all_open(const std::vector<std::unique_ptr<ForwardedFile>> &files) {
    return std::all_of(files.begin(), files.end(), [](const auto &f) { return f->ok(); });
}

void AgentRead(benchmark::State &state) {
    PhoneFarm *farm = farm_for(state);
    if (farm == nullptr) return;
    const std::size_t n = farm->size();
    auto files = open_files(*farm);
    std::vector<std::vector<unsigned char>> buffers(n, std::vector<unsigned char>(kReadSize));
    if (!all_open(files)) {
        state.SkipWithError("a file could not be opened through its phone's forward");
        return;
    }
    // One phone from one thread and every phone from a thread each, both on threads made for the
    // call: a thread's first moments cost the same on both sides. The CPU time that every process
    // of the run spends on each variant tells how busy a read keeps the machine.
    CpuTimes spent[2];
    double seconds[2] = {0, 0};
    Contest contest(state, {"one_phone", "all_phones"});
    contest.run([&](std::size_t variant) {
        CpuTimes before;
        contest.untimed([&] { before = farm->cpu_times(); });
        const auto start = std::chrono::steady_clock::now();
        const bool ok = in_threads(variant == 0 ? 1 : n, [&](std::size_t i) { return files[i]->read_whole(buffers[i]); });
        seconds[variant] += std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        contest.untimed([&] { spent[variant] += farm->cpu_times() - before; });
        return ok;
    });
    const double megabytes = static_cast<double>(kFileSize) / 1e6;
    const double one = megabytes / contest.median_seconds(0);
    const double all = static_cast<double>(n) * megabytes / contest.median_seconds(1);
    const auto cores = static_cast<double>(std::max(1u, std::thread::hardware_concurrency()));
    state.counters["one_phone_MBps"] = one;
    state.counters["all_phones_MBps"] = all;
    state.counters["vs_one_times_cores"] = all / (one * std::min(static_cast<double>(n), cores));
    state.counters["one_phone_cpus_server"] = spent[0].server / seconds[0];
    state.counters["one_phone_cpus_phone_side"] = spent[0].phones / seconds[0];
    state.counters["one_phone_cpus_bench"] = spent[0].bench / seconds[0];
    state.counters["all_phones_cpus"] = (spent[1].server + spent[1].phones + spent[1].bench) / seconds[1];
}

void Memory(benchmark::State &state) {
    PhoneFarm *farm = farm_for(state);
    if (farm == nullptr || resident_kib() < 0) {
        if (farm != nullptr) state.SkipWithError("no resident-set figure on this system");
        return;
    }
    { ForwardedFile warmUp(*farm, 0); }  // what the first connection of the process costs once
    for (auto _ : state) {
        const long before = resident_kib();
        const auto files = open_files(*farm);
        const long grown = resident_kib() - before;
        if (!all_open(files)) state.SkipWithError("a file could not be opened through its phone's forward");
        state.counters["KiB_per_connection"] = static_cast<double>(grown) / static_cast<double>(files.size());
    }
}

// Every case for one phone count, then the next count. The number of calls is fixed (one call
// takes minutes with 32 phones), and there is one repetition: each figure is the median of its
// calls. The list and the refresh are called more often with fewer phones, where a call is short.
int register_all() {
    struct Case {
        const char *name;
        void (*function)(benchmark::State &);
        int calls;  // with 16 phones or more
        int phoneCalls;  // phones x calls at the least
    };
    constexpr Case kCases[] = {
        {"PhoneList", PhoneList, 5, 64}, {"Refresh", Refresh, 5, 64}, {"PushPull", PushPull, 1, 0},
        {"AgentRead", AgentRead, 21, 0}, {"Memory", Memory, 1, 0}};
    for (const int n : kPhoneCounts) {
        for (const Case &c : kCases) {
            benchmark::RegisterBenchmark(c.name, c.function)
                ->Arg(n)
                ->Iterations(std::max(c.calls, c.phoneCalls / n))
                ->Repetitions(1)
                ->UseRealTime()
                ->Unit(benchmark::kMillisecond);
        }
    }
    return 0;
}

}  // namespace

static const int kPhones[] = {
    register_all(),
    scaling_row({"AdbGetPhoneList, ms per phone", "PhoneList", "ms_per_phone", 1, GoalOn::Growth, Bound::AtMost, 1.2}),
    scaling_row({"AdbGetPhoneList, tool runs per call", "PhoneList", "tool_runs", 0}),
    scaling_row({"AdbGetPhoneList, ms per tool run", "PhoneList", "ms_per_tool_run", 1}),
    scaling_row({"AdbRereshDevInfo of each, ms per phone", "Refresh", "ms_per_phone", 1}),
    scaling_row({"AdbRereshDevInfo of each, tool runs", "Refresh", "tool_runs", 0}),
    scaling_row({"AdbRereshDevInfo of each, ms per tool run", "Refresh", "ms_per_tool_run", 1}),
    scaling_row({"Push + pull 1 MiB, one thread, ms per phone", "PushPull", "one_thread_ms_per_phone", 0}),
    scaling_row({"Push + pull 1 MiB, N threads, ms per phone", "PushPull", "n_threads_ms_per_phone", 0}),
    scaling_row({"Push + pull, N threads / one thread", "PushPull", "n_threads_vs_one", 2}),
    scaling_row({"Push + pull, tool runs per pass", "PushPull", "tool_runs", 0}),
    scaling_row({"Push + pull, copies back whole", "PushPull", "whole_copies", 0}),
    scaling_row({"Agent reads, one phone, MB/s", "AgentRead", "one_phone_MBps", 0}),
    scaling_row({"Agent reads, N phones at once, MB/s in all", "AgentRead", "all_phones_MBps", 0}),
    scaling_row({"  / (one phone x min(N, cores))", "AgentRead", "vs_one_times_cores", 2, GoalOn::EveryCount,
                 Bound::AtLeast, 0.8}),
    scaling_row({"  CPUs busy, one phone: adb server", "AgentRead", "one_phone_cpus_server", 2}),
    scaling_row({"  CPUs busy, one phone: simulated phone, agent", "AgentRead", "one_phone_cpus_phone_side", 2}),
    scaling_row({"  CPUs busy, one phone: library and bench", "AgentRead", "one_phone_cpus_bench", 2}),
    scaling_row({"  CPUs busy, N phones: all of these", "AgentRead", "all_phones_cpus", 2}),
    scaling_row({"Resident KiB per connection", "Memory", "KiB_per_connection", 1, GoalOn::EveryCount, Bound::AtMost, 64}),
};

int main(int argc, char **argv) {
    const int status = run_with_table<ScalingReporter>(argc, argv);
    PhoneFarm::shut_down();
    return status;
}
