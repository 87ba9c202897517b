// The fault injector: at random moments (seeded), one of
//   - a phone unplugged: its process killed, and started again on the same port and sandbox a
//     little later (the server's transport drops, as when a cable is pulled; the agent lives on);
//   - the adb server killed with SIGKILL (the library's next run starts one again, as adb does);
//   - an agent killed, in the middle of a scan or a transfer where one runs, and started again;
//   - a phone stalled (SIGSTOP) for a few seconds, then let go on (SIGCONT), and not stalled again
//     before a scan that the stall held has had its time to end;
//   - a phone's control forward removed.
// At most one fault holds on a phone at a time, and none while the server's does; the keeper
// repairs what is left to repair. The main thread drives it (tend), so that every process is
// started from the thread that lives longest.
#pragma once

#include <cstddef>
#include <cstdint>
#include <random>
#include <vector>

#include "soak/farm.h"
#include "soak/keeper.h"
#include "soak/ledger.h"
#include "soak/watchdog.h"

namespace wrenlink::soak {

class Injector {
public:
    Injector(Farm &farm, Ledger &ledger, Keeper &keeper, Watchdog &dog, uint64_t seed);

    // One turn of the main thread: undoes what is due, starts again every phone and agent that
    // ended by itself (each a crash), and with `inject` injects the next fault once its moment
    // has come.
    void tend(bool inject);
    // Undoes every fault at once, for the end of the run.
    void restore_all();

private:
    struct Pending {
        Clock::time_point at;
        FaultKind kind;
        std::size_t phone;
        int fault;
    };

    void restart_crashed();
    bool restore(const Pending &p);
    bool inject(FaultKind kind);
    FaultKind draw_kind();
    int free_phone(const std::vector<int> &preferred, FaultKind kind);
    std::chrono::milliseconds between(int lowMs, int highMs);
    bool pending_on(std::size_t phone) const;

    Farm &farm_;
    Ledger &ledger_;
    Keeper &keeper_;
    Watchdog &dog_;
    std::mt19937_64 rng_;
    std::vector<Pending> pending_;
    Clock::time_point next_;
    Clock::time_point agentKillWanted_{};  // since when an agent kill waits for a scan or a transfer
    std::vector<Clock::time_point> stallQuietUntil_;  // by phone: no stall before
};

}  // namespace wrenlink::soak
