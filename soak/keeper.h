// The keeper repairs what a fault broke, as a lab's application would: the adb server that a
// kill ended knows no phones and no forwards when the library's next run starts a new one, a
// phone plugged back is left offline by the server, a forward removed is gone. Every fifth of a
// second it looks at the server's phones and forwards and mends what is missing, with the tool
// directly (adb_tool.h). A phone is whole when its process runs and goes on, its agent runs, the
// server lists it as a device and its control forward is there; a fault's window closes at the
// first look that finds its phone (or, for the server, every phone) whole after the injector has
// undone what it did.
//
// It also tells when the server ended without being killed by the soak: a crash.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <set>
#include <thread>
#include <vector>

#include "soak/farm.h"
#include "soak/ledger.h"

namespace wrenlink::soak {

class Keeper {
public:
    Keeper(Farm &farm, Ledger &ledger);
    ~Keeper();
    Keeper(const Keeper &) = delete;
    Keeper &operator=(const Keeper &) = delete;

    // Waits until a look that began after this call finds every phone whole; false when `limit`
    // passed first.
    bool wait_all_whole(std::chrono::milliseconds limit);
    // While held, the keeper runs nothing (the census counts children meanwhile); hold() returns
    // once a look under way has ended.
    void hold(bool held);
    // The injector's kill of the server with this pid: not a crash.
    void server_killed(pid_t pid);

private:
    void run();
    void look();
    bool mend(std::size_t i, const std::string &state, const std::string &forwards);

    Farm &farm_;
    Ledger &ledger_;
    std::mutex lookMutex_;  // held for one look
    mutable std::mutex mutex_;
    std::condition_variable changed_;
    bool stopping_ = false, held_ = false;
    Clock::time_point lastWholeLook_{};  // when the last look that found every phone whole began
    pid_t server_ = -1;
    std::set<pid_t> killed_;
    Clock::time_point serverAbsentSince_{};
    std::vector<Clock::time_point> offlineSince_;
    std::thread thread_;
};

}  // namespace wrenlink::soak
