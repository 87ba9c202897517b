// The disk discovery scan.
//
// One scan at a time, for the whole agent. A start opens the event port and only then lets the
// control connection answer, so the library finds the port ready; the port closes again as soon
// as the library has connected. The scan runs on a thread of its own: it reads the library's
// four-byte greeting, walks the served tree, and streams per regular file one found-item event,
// a progress event every hundredth of the way (and at the end), and finally one code event:
// 0 when the walk is complete, ECANCELED after a stop or when the agent shuts down. Then it
// closes the event connection.
//
// Pause, resume and stop may come from any control connection while the scan runs. A pause is
// answered only once the scan has parked: after its reply no further byte goes out on the event
// connection until a resume (or a stop, which also ends a pause).
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>

#include "base/unique_fd.h"
#include "endpoint.h"
#include "log.h"
#include "sandbox.h"
#include "tree.h"

namespace wrenlink::reference_agent {

struct ScanOptions {
    // Where the event connection is taken: the library connects to 127.0.0.1:10244 on its own
    // machine, which on a phone is a port adb forwards to this endpoint.
    Endpoint events = Endpoint::tcp("127.0.0.1", 10244);
    // A pause after each found item: lets a person watch a small tree's scan go by.
    std::chrono::microseconds item_delay{0};
    // How long an accepted start waits for the library's event connection.
    std::chrono::milliseconds connect_wait{10000};
};

// The text of a found item: "<size>\t<mtime>\t<MIME type>\t<phone path>".
std::string found_item_text(const FileInfo &file);

class Scanner {
public:
    Scanner(const Sandbox &sandbox, ScanOptions options, const Log &log);
    ~Scanner();
    Scanner(const Scanner &) = delete;
    Scanner &operator=(const Scanner &) = delete;

    // 0 with the event port listening, EBUSY while a scan runs, or the errno of the listen.
    int start();
    // 0, or ESRCH when no scan runs.
    int pause();
    int resume();
    int stop();
    // Ends a running scan (code ECANCELED) and refuses new ones; returns when its thread is gone.
    void shutdown();

private:
    void run(UniqueFd listener);
    UniqueFd wait_for_library(int listener);
    void stream(int events);
    // Sends the whole buffer, parking while paused; false when the connection failed. On a
    // shutdown a batch is dropped, while the last one (with the code) gets a second to go out.
    enum class Flush { Batch, Last };
    bool deliver(int events, std::string &buffer, Flush flush = Flush::Batch);
    // Blocks while paused (a stop or a shutdown ends the pause).
    void wait_while_paused();
    // Sleeps, cut short by a pause, a stop or a shutdown.
    void rest(std::chrono::microseconds span);
    bool stopping();
    bool shutting_down();

    const Sandbox &sandbox_;
    const ScanOptions options_;
    const Log &log_;

    std::mutex mutex_;
    std::condition_variable changed_;
    bool running_ = false;
    bool paused_ = false;
    bool parked_ = false;
    bool stop_ = false;
    bool shutdown_ = false;
    std::thread thread_;
};

}  // namespace wrenlink::reference_agent
