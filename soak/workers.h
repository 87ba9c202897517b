// The soak's threads: each picks a phone at random and a task by its weight, again and again,
// until told to stop. Each thread keeps its own random stream (from the seed) and what it knows of
// its files, across the warm-up and the run.
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "soak/tasks.h"

namespace wrenlink::soak {

class Workers {
public:
    Workers(Farm &farm, Ledger &ledger, Watchdog &dog, Connections &conns, const std::string &scratch, int threads,
            uint64_t seed);
    ~Workers();
    Workers(const Workers &) = delete;
    Workers &operator=(const Workers &) = delete;

    void start();
    // Asks every thread to stop after its task and waits for them, at most `limit`: false when a
    // thread is still inside a call then (it is left running; the run must end without it).
    bool stop(std::chrono::milliseconds limit);

    // Every task kind on every phone (the phone list once), from the calling thread while the
    // threads rest: the tasks that did not go well, named.
    std::vector<std::string> clean_pass();

private:
    void work(Context &c);

    std::mutex scanLock_;
    std::vector<std::unique_ptr<Context>> contexts_;  // one per thread, and the clean pass's last
    std::vector<std::thread> threads_;
    std::atomic<bool> stopping_{false};
    std::mutex mutex_;
    std::condition_variable finished_;
    std::size_t running_ = 0;
};

}  // namespace wrenlink::soak
