// Every call of the soak runs under the watchdog. The library sets no time limit, so the
// watchdog gives up on an agent call the way the header tells an application to: after a limit it
// closes the call's connection from its own thread, and the call must then return. A call of the
// agent half still waiting a margin after that, or a call of the adb half waiting longer than the
// longest stall plus a margin, is a hang.
//
// A scan is between the two. The close releases its start request, but its event loop reads a
// connection of its own, which only the agent ends: a scan whose phone stalls waits for the stall
// to end (every other fault closes the event connection). A scan is a hang when it outlasts the
// longest stall plus a margin.
#pragma once

#include <chrono>
#include <condition_variable>
#include <initializer_list>
#include <map>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "Wrenlink/Wrenlink.h"
#include "soak/ledger.h"

namespace wrenlink::soak {

enum class Half { Agent, Scan, Adb };

// The longest stall the injector makes.
constexpr std::chrono::milliseconds kLongestStall{6000};

struct Limits {
    std::chrono::milliseconds agentCut{3000};   // the watchdog closes the connection
    std::chrono::milliseconds agentHang{5000};  // the cut plus a margin: the call returns at once
    // The longest stall plus a margin. A call of the adb half waits for every other thread's tool
    // run before each of its own (AdbGetPhoneList makes three for every phone), and each of those
    // may wait for a stalled phone: the margin is wide.
    std::chrono::milliseconds adbHang{95000};
    // The longest stall plus a margin: the scan's own length, and the server's delivery of what
    // the agent sent while the phone stood still.
    std::chrono::milliseconds scanHang{kLongestStall + std::chrono::milliseconds(14000)};
};

class Watchdog {
public:
    struct InFlight {
        std::string call;
        int phone;
        Half half;
        NetConnection *conn;  // closed at the limit; null for calls that have none
        Clock::time_point begin;
        bool cut = false, hung = false;
    };

    Watchdog(Ledger &ledger, Limits limits);
    ~Watchdog();
    Watchdog(const Watchdog &) = delete;
    Watchdog &operator=(const Watchdog &) = delete;

    int enter(std::string call, int phone, Half half, NetConnection *conn);
    // Ends the watch: whether the watchdog closed the connection meanwhile. After this it never
    // touches the connection again.
    bool leave(int id);

    // Phones on which one of `calls` runs now.
    std::vector<int> phones_running(std::initializer_list<std::string_view> calls) const;
    // The calls that are still running, for the end of the run.
    std::vector<InFlight> in_flight() const;
    const Limits &limits() const { return limits_; }

private:
    void run();
    std::chrono::milliseconds hang_limit(Half half) const;

    Ledger &ledger_;
    const Limits limits_;
    mutable std::mutex mutex_;
    std::condition_variable wake_;
    std::map<int, InFlight> calls_;
    int next_ = 1;
    bool stopping_ = false;
    std::thread thread_;
};

// One call under the watchdog, recorded in the ledger by end().
class Watched {
public:
    Watched(Watchdog &dog, Ledger &ledger, std::string call, int phone, Half half, NetConnection *conn = nullptr);
    ~Watched();
    Watched(const Watched &) = delete;
    Watched &operator=(const Watched &) = delete;

    // The call has returned `value`: recorded, and judged.
    Verdict end(int64_t value);
    // Whether the watchdog closed the connection while the call ran (known after end()).
    bool cut() const { return cut_; }

private:
    Watchdog &dog_;
    Ledger &ledger_;
    std::string call_;
    int phone_;
    Clock::time_point begin_ = Clock::now();
    int id_;
    bool ended_ = false, cut_ = false;
};

}  // namespace wrenlink::soak
