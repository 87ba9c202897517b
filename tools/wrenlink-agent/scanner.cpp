#include "scanner.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <optional>
#include <vector>

#include "frame.h"
#include "media_types.h"
#include "peer_check.h"

namespace wrenlink::reference_agent {

namespace {

constexpr std::size_t kMaxItemText = 2047;  // with its NUL, the library's 2048-byte item buffer
constexpr std::size_t kFlushAt = 64 * 1024;
constexpr int kPollMs = 50;

void set_receive_limit(int fd, std::chrono::seconds limit) {
    timeval tv{};
    tv.tv_sec = static_cast<decltype(tv.tv_sec)>(limit.count());
    (void)::setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &tv, sizeof tv);
    const int one = 1;
    (void)::setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &one, sizeof one);
}

}  // namespace

std::string found_item_text(const FileInfo &file) {
    return std::to_string(file.size) + "\t" + std::to_string(file.mtime) + "\t" +
           std::string(mime_type_of(file.phone)) + "\t" + file.phone;
}

Scanner::Scanner(const Sandbox &sandbox, ScanOptions options, const Log &log)
    : sandbox_(sandbox), options_(std::move(options)), log_(log) {}

Scanner::~Scanner() { shutdown(); }

int Scanner::start() {
    std::lock_guard lock(mutex_);
    if (shutdown_) return ESHUTDOWN;
    if (running_) return EBUSY;
    // The previous scan's thread has said it is done; it only has to return.
    if (thread_.joinable()) thread_.join();
    int error = 0;
    UniqueFd listener = listen_at(options_.events, 1, error);
    if (!listener) return error;
    running_ = true;
    paused_ = parked_ = stop_ = false;
    thread_ = std::thread(&Scanner::run, this, std::move(listener));
    return 0;
}

int Scanner::pause() {
    std::unique_lock lock(mutex_);
    if (!running_) return ESRCH;
    paused_ = true;
    changed_.notify_all();
    changed_.wait(lock, [&] { return parked_ || !running_ || stop_ || shutdown_; });
    return 0;
}

int Scanner::resume() {
    std::lock_guard lock(mutex_);
    if (!running_) return ESRCH;
    paused_ = false;
    changed_.notify_all();
    return 0;
}

int Scanner::stop() {
    std::lock_guard lock(mutex_);
    if (!running_) return ESRCH;
    stop_ = true;
    changed_.notify_all();
    return 0;
}

void Scanner::shutdown() {
    {
        std::lock_guard lock(mutex_);
        shutdown_ = true;
        changed_.notify_all();
    }
    if (thread_.joinable()) thread_.join();
}

void Scanner::wait_while_paused() {
    std::unique_lock lock(mutex_);
    if (!paused_ || stop_ || shutdown_) return;
    parked_ = true;
    changed_.notify_all();
    changed_.wait(lock, [&] { return !paused_ || stop_ || shutdown_; });
    parked_ = false;
}

void Scanner::rest(std::chrono::microseconds span) {
    std::unique_lock lock(mutex_);
    changed_.wait_for(lock, span, [&] { return paused_ || stop_ || shutdown_; });
}

bool Scanner::stopping() {
    std::lock_guard lock(mutex_);
    return stop_ || shutdown_;
}

bool Scanner::shutting_down() {
    std::lock_guard lock(mutex_);
    return shutdown_;
}

void Scanner::run(UniqueFd listener) {
    UniqueFd events = wait_for_library(listener.get());
    listener.reset();  // the event port is open only while a scan waits for its connection
    if (events) {
        stream(events.get());
    } else {
        log_.say("scan: nobody connected to the event port; scan dropped");
    }
    // The scan is over before its stream closes: whoever sees the close finds no scan running.
    {
        std::lock_guard lock(mutex_);
        running_ = false;
        paused_ = parked_ = false;
        changed_.notify_all();
    }
    events.reset();
}

UniqueFd Scanner::wait_for_library(int listener) {
    const auto deadline = std::chrono::steady_clock::now() + options_.connect_wait;
    while (std::chrono::steady_clock::now() < deadline) {
        wait_while_paused();
        if (stopping()) return {};
        pollfd p{listener, POLLIN, 0};
        if (::poll(&p, 1, kPollMs) <= 0) continue;
        // A refused peer does not end the wait: the library may still come.
        if (UniqueFd events = accept_trusted(listener, log_, "a scan event connection")) return events;
    }
    return {};
}

void Scanner::stream(int events) {
    set_receive_limit(events, std::chrono::seconds(10));
    unsigned char greeting[4];
    if (!read_exact(events, greeting, sizeof greeting)) {
        log_.say("scan: the event connection sent no greeting; scan dropped");
        return;
    }

    std::vector<FileInfo> files;
    walk_files(sandbox_.root(), "/", [&](const FileInfo &f) { files.push_back(f); },
               [&] {
                   wait_while_paused();
                   return !stopping();
               });

    const auto total = static_cast<int64_t>(files.size());
    const int64_t step = std::max<int64_t>(1, total / 100);
    int64_t done = 0;
    std::string buffer;
    for (const auto &file : files) {
        wait_while_paused();
        if (stopping()) break;
        const std::string text = found_item_text(file);
        if (text.size() <= kMaxItemText) {
            buffer += found_item_event(text);
        } else {
            log_.say("scan: path too long for a found item, counted only: " + file.phone);
        }
        ++done;
        if (done % step == 0 || done == total) buffer += progress_event(done, total);
        const bool pacing = options_.item_delay.count() > 0;
        if (pacing || buffer.size() >= kFlushAt) {
            if (!deliver(events, buffer)) return;
            if (pacing) rest(options_.item_delay);
        }
    }
    if (total == 0) buffer += progress_event(0, 0);
    const bool cancelled = stopping();
    buffer += code_event(cancelled ? ECANCELED : 0);
    log_.detail("scan: " + std::to_string(done) + " of " + std::to_string(total) + " files sent, " +
                (cancelled ? "stopped" : "complete"));
    (void)deliver(events, buffer, Flush::Last);
}

bool Scanner::deliver(int events, std::string &buffer, Flush flush) {
    std::size_t sent = 0;
    std::optional<std::chrono::steady_clock::time_point> give_up;
    while (sent < buffer.size()) {
        wait_while_paused();
        if (shutting_down()) {
            if (flush == Flush::Batch) return false;
            const auto now = std::chrono::steady_clock::now();
            if (!give_up) give_up = now + std::chrono::seconds(1);
            if (now > *give_up) return false;
        }
        pollfd p{events, POLLOUT, 0};
        const int ready = ::poll(&p, 1, kPollMs);
        if (ready < 0 && errno != EINTR) return false;
        if (ready <= 0) continue;
        const long n = send_some(events, buffer.data() + sent, buffer.size() - sent);
        if (n < 0) return false;
        sent += static_cast<std::size_t>(n);
    }
    buffer.clear();
    return true;
}

}  // namespace wrenlink::reference_agent
