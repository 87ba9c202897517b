// wrenlink-soak: faults survived. Simulated phones on a private adb server, an agent per phone,
// threads calling the library across both halves, and a seeded injector of the faults a test lab
// meets; then the tables of what came back, and the last line that tells whether anything crashed,
// hung, corrupted data, gave an undocumented result or leaked. The phases:
//
//   set-up      phones, agents, the server; the keeper connects the phones and makes the forwards
//   warm-up     the threads work without faults, and a clean pass; then with faults, and after
//               every fault is undone and repaired and the threads have stopped, the census
//   faults      the threads work while the injector injects, for --minutes
//   settle      every fault undone and repaired, the threads stopped, a clean pass; the census
#include <fcntl.h>
#include <unistd.h>

#include <cmath>
#include <cstdio>
#include <filesystem>
#include <thread>

#include "base/unique_fd.h"
#include "soak/adb_tool.h"
#include "soak/census.h"
#include "soak/connections.h"
#include "soak/farm.h"
#include "soak/injector.h"
#include "soak/keeper.h"
#include "soak/ledger.h"
#include "soak/options.h"
#include "soak/report.h"
#include "soak/watchdog.h"
#include "soak/workers.h"
#include "support/adb_server.h"
#include "support/scratch.h"

namespace {

using namespace wrenlink;
using namespace wrenlink::soak;
using std::chrono::milliseconds;
using std::chrono::seconds;

// The warm-ups of a long run; a short one (the test command's) halves them.
constexpr auto kQuietWarmUp = seconds(8);
constexpr auto kFaultyWarmUp = seconds(20);
constexpr double kShortRunMinutes = 5;
constexpr auto kProgressEvery = seconds(15);
constexpr auto kRepairLimit = seconds(60);
constexpr auto kSettle = seconds(2);
constexpr auto kTurn = milliseconds(50);

// The report keeps the process's standard output; the lines that the library, the tool and the
// helpers print on fds 1 and 2 go to `log` (or nowhere), so that they never mix with the tables.
std::FILE *report_stream(const std::string &log) {
    std::fflush(stdout);
    const int kept = ::fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 3);
    const UniqueFd sink(::open(log.empty() ? "/dev/null" : log.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644));
    if (kept < 0 || !sink) return nullptr;
    ::dup2(sink.get(), STDOUT_FILENO);
    ::dup2(sink.get(), STDERR_FILENO);
    return ::fdopen(kept, "w");
}

class Soak {
public:
    Soak(const Options &options, std::FILE *report, const std::string &scratch)
        : options_(options), report_(report), scratch_(scratch) {}

    int run() {
        std::string error;
        if (!farm_.start(static_cast<std::size_t>(options_.phones), scratch_, error)) return fail(error);
        support::use_private_adb_server(farm_.server_port(), scratch_);
        run_adb({"start-server"});
        Keeper keeper(farm_, ledger_);
        if (!keeper.wait_all_whole(kRepairLimit)) return fail("the server did not list every phone with its forward");
        Connections conns(farm_, ledger_, dog_);
        Workers workers(farm_, ledger_, dog_, conns, scratch_, options_.threads, options_.seed);
        Injector injector(farm_, ledger_, keeper, dog_, options_.seed);
        Phases phases{keeper, conns, workers, injector};

        const int share = options_.minutes < kShortRunMinutes ? 2 : 1;
        const auto quietWarmUp = kQuietWarmUp / share, faultyWarmUp = kFaultyWarmUp / share;
        note("warm-up: " + std::to_string(quietWarmUp.count()) + " s without faults, then a clean pass");
        if (!work(phases, quietWarmUp, false)) return abandon();
        if (const auto failed = workers.clean_pass(); !failed.empty())
            return fail("the clean pass before any fault failed: " + failed.front());
        // The first faults take the process to paths it meets only then (and its allocator to the
        // sizes they need): the census that the end is held against comes after some.
        note("warm-up: " + std::to_string(faultyWarmUp.count()) + " s with faults, then the repairs and the census");
        if (!work(phases, faultyWarmUp, true) || !settle(phases, false)) return abandon();
        ending_.before = census(conns, keeper);

        note("faults: " + std::to_string(std::lround(options_.minutes * 60)) + " s");
        if (!work(phases, milliseconds(static_cast<long>(options_.minutes * 60000)), true) || !settle(phases, true))
            return abandon();
        std::this_thread::sleep_for(kSettle);
        ending_.after = census(conns, keeper);
        ending_.connectionsOpened = conns.opened();
        return finish();
    }

    ~Soak() { run_adb({"kill-server"}); }

private:
    struct Phases {
        Keeper &keeper;
        Connections &conns;
        Workers &workers;
        Injector &injector;
    };

    // A line of the report that opens a phase, with the seconds the run has taken so far.
    void note(const std::string &line) {
        const auto at = std::chrono::duration_cast<seconds>(Clock::now() - began_).count();
        std::fprintf(report_, "[%3lld s] %s\n", static_cast<long long>(at), line.c_str());
        std::fflush(report_);
    }

    // The threads work for `length`, with faults or without; then they stop. False when a thread
    // never came back from a call.
    bool work(Phases &p, milliseconds length, bool faults) {
        p.workers.start();
        tend(p.injector, Clock::now() + length, faults);
        return faults || p.workers.stop(dog_.limits().adbHang + seconds(5));
    }

    // Every fault undone and repaired, the threads stopped, and at the end a clean pass over every
    // phone. False when a thread never came back from a call.
    bool settle(Phases &p, bool end) {
        note(end ? "settle: every fault undone and repaired, the threads stopped, a clean pass"
                 : "repairs: every fault undone and repaired, the threads stopped");
        p.injector.restore_all();
        const bool repaired = p.keeper.wait_all_whole(kRepairLimit);
        if (!p.workers.stop(dog_.limits().adbHang + seconds(5))) return false;
        if (!repaired) ending_.cleanPassFailures.push_back("the repair of every phone after the faults");
        if (!end) return true;
        std::vector<std::string> failed;
        for (int attempt = 0; attempt < 3; ++attempt) {
            failed = p.workers.clean_pass();
            if (failed.empty()) break;
            p.keeper.wait_all_whole(kRepairLimit);
        }
        ending_.cleanPassFailures.insert(ending_.cleanPassFailures.end(), failed.begin(), failed.end());
        ending_.cleanPassRan = true;
        return true;
    }

    // Turns of the main thread until `end`: the injector's, and a progress line now and then.
    void tend(Injector &injector, Clock::time_point end, bool inject) {
        const auto began = Clock::now();
        // A line every 15 s, or every minute in a long run.
        const auto every = options_.minutes > 10 ? kProgressEvery * 4 : kProgressEvery;
        auto progress = began + every;
        while (Clock::now() < end) {
            injector.tend(inject);
            std::this_thread::sleep_for(kTurn);
            if (Clock::now() < progress) continue;
            progress += every;
            const auto at = std::chrono::duration_cast<seconds>(Clock::now() - began).count();
            const Census now = take_census();
            std::fprintf(report_, "  at %lld s, resident %ld KiB, heap %ld KiB: %s\n", static_cast<long long>(at),
                         now.residentKib, now.heapKib, last_line(ledger_.totals()).c_str());
            std::fflush(report_);
        }
    }

    Census census(Connections &conns, Keeper &keeper) {
        conns.close_idle();
        keeper.hold(true);
        const Census c = take_census();
        keeper.hold(false);
        return c;
    }

    int finish() {
        ledger_.set_leaked(leaked(ending_.before, ending_.after));
        print_report(report_, ledger_, ending_);
        const Totals t = ledger_.totals();
        const bool clean = t.crashes == 0 && t.hangs == 0 && t.corrupt == 0 && t.undocumented == 0 && t.leaked == 0;
        return clean && ending_.cleanPassFailures.empty() ? 0 : 1;
    }

    // A thread is still inside a call: report, and end the process without waiting for it.
    int abandon() {
        ending_.cleanPassFailures.push_back("(not run: a thread never came back from its call)");
        print_report(report_, ledger_, ending_);
        run_adb({"kill-server"});
        std::_Exit(1);
    }

    int fail(const std::string &what) {
        std::fprintf(report_, "wrenlink-soak: %s\n", what.c_str());
        return 1;
    }

    const Options options_;
    std::FILE *report_;
    const std::string scratch_;
    Farm farm_;
    Ledger ledger_;
    Watchdog dog_{ledger_, Limits{}};
    Ending ending_;
    const Clock::time_point began_ = Clock::now();
};

}  // namespace

int main(int argc, char **argv) {
    Options options;
    std::string error;
    switch (parse_options(argc, argv, options, error)) {
    case Parsed::Help: std::fputs(kUsage, stdout); return 0;
    case Parsed::Bad: std::fprintf(stderr, "wrenlink-soak: %s (see --help)\n", error.c_str()); return 2;
    case Parsed::Run: break;
    }
    const std::string scratch = support::make_scratch_directory("WRENLINK_SOAK_TMPDIR", "wrenlink-soak");
    if (scratch.empty()) {
        std::fprintf(stderr, "wrenlink-soak: cannot make a scratch directory\n");
        return 1;
    }
    std::FILE *report = report_stream(options.log);
    if (report == nullptr) {
        std::fprintf(stderr, "wrenlink-soak: cannot open %s\n", options.log.c_str());
        return 1;
    }
    std::fprintf(report, "soak: seed %llu, %d phones, %d threads, %.1f minutes of faults\n",
                 static_cast<unsigned long long>(options.seed), options.phones, options.threads, options.minutes);
    std::fflush(report);
    int status = 1;
    {
        Soak soak(options, report, scratch);
        status = soak.run();
    }
    std::error_code ec;
    std::filesystem::remove_all(scratch, ec);
    return status;
}
