// The book of the soak: every call that returned with its result, every fault with the window in
// which it held, and every finding (a hang, a crash, corrupt data). Shared by all threads.
//
// A call is "hit" by a fault when the call ran while the fault held, on the fault's phone (a
// killed server holds for every phone): from the injection until the keeper found the phone whole
// again, repaired where a repair was needed.
#pragma once

#include <chrono>
#include <cstdint>
#include <deque>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "soak/documented.h"

namespace wrenlink::soak {

using Clock = std::chrono::steady_clock;

enum class FaultKind { Unplug, ServerKill, AgentKill, Stall, ForwardRemoved };
constexpr int kFaultKinds = 5;
const char *fault_name(FaultKind kind);

constexpr int kEveryPhone = -1;

// How the values of one call, or of the calls one fault kind hit, came out.
struct ResultCounts {
    long made = 0;
    long ok = 0;
    std::map<std::string, long> failed;        // by value name
    std::map<std::string, long> undocumented;  // by value name
    long cut = 0;                              // ended by the watchdog's close
    double longestSeconds = 0;
};

struct FaultTally {
    long injected = 0;
    long callsHit = 0;
    ResultCounts results;
};

// Transfers whose result says only that a run was made, or whose text the library judges: their
// data are compared all the same and counted here, never as corruption.
struct ApartCounts {
    long intact = 0;
    long differs = 0;
    long differsWithoutFault = 0;  // no fault held on the phone or the server while it ran
};

struct Totals {
    long calls = 0, faults = 0, crashes = 0, hangs = 0, corrupt = 0, undocumented = 0, leaked = 0;
};

class Ledger {
public:
    // A call that has returned. `cut`: the watchdog had closed its connection.
    void record(const std::string &call, int phone, Clock::time_point begin, int64_t value, bool cut);

    // Findings, each with a line that says what and where (printed in the report).
    void corrupt(const std::string &call, int phone, const std::string &what);
    void hang(const std::string &call, int phone, double seconds);
    void crash(const std::string &what);
    void checked_apart(const std::string &call, const std::string &value, int phone, Clock::time_point begin,
                       bool intact);
    void set_leaked(long leaked);

    // Faults. begin_fault gives an id; restored says the injector has undone what it did (the
    // phone or agent runs again, the phone goes on); the window closes at the first healthy check
    // after that (close_restored_faults, with each phone's health).
    int begin_fault(FaultKind kind, int phone);
    void restored(int id);
    // `healthy` is what a look that began at `lookBegan` found: only faults injected before it
    // can be closed by it.
    void close_restored_faults(const std::vector<bool> &healthy, Clock::time_point lookBegan);
    bool fault_open_on(int phone) const;  // one of its own or the server's
    bool server_fault_open() const;
    std::size_t open_faults() const;

    Totals totals() const;
    std::map<std::string, ResultCounts> calls() const;
    std::map<std::string, ApartCounts> apart() const;
    std::vector<FaultTally> faults() const;
    std::vector<std::string> findings() const;

private:
    struct Window {
        int id;
        FaultKind kind;
        int phone;
        Clock::time_point begin, end;
        bool restored = false, closed = false;
    };
    bool held_during(const Window &w, int phone, Clock::time_point begin, Clock::time_point end) const;
    void prune(Clock::time_point now);

    mutable std::mutex mutex_;
    Totals totals_;
    std::map<std::string, ResultCounts> calls_;
    std::map<std::string, ApartCounts> apart_;
    std::vector<FaultTally> faults_ = std::vector<FaultTally>(kFaultKinds);
    std::deque<Window> windows_;  // open ones, and closed ones as long as a running call may overlap them
    std::vector<std::string> findings_;
    int nextFault_ = 1;
};

// Adds one result to the counts.
void count_result(ResultCounts &counts, const std::string &call, int64_t value, bool cut, double seconds);

}  // namespace wrenlink::soak
