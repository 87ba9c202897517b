#include "pid_file.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <thread>

#include "base/platform.h"

namespace wrenlink::reference_agent {

namespace {

using std::chrono::milliseconds;
using Clock = std::chrono::steady_clock;

constexpr milliseconds kPoll{20};

bool try_lock(int fd) {
    while (::flock(fd, LOCK_EX | LOCK_NB) != 0) {
        if (errno != EINTR) return false;
    }
    return true;
}

// The pid written in the file; 0 when there is none (yet).
pid_t read_pid(int fd) {
    char text[32];
    const ssize_t n = ::pread(fd, text, sizeof text - 1, 0);
    pid_t pid = 0;
    if (n <= 0) return 0;
    const auto [end, ec] = std::from_chars(text, text + n, pid);
    return ec == std::errc() && pid > 0 ? pid : 0;
}

// The holder's pid, waiting a moment for an agent that has locked the file but not yet written it.
pid_t holder_of(int fd) {
    const auto give_up = Clock::now() + milliseconds(1000);
    pid_t pid = read_pid(fd);
    while (pid == 0 && Clock::now() < give_up) {
        std::this_thread::sleep_for(kPoll);
        pid = read_pid(fd);
    }
    return pid;
}

// Whether the file at `path` is still the one open on `fd` (not removed or replaced meanwhile).
bool still_at(int fd, const std::string &path) {
    struct stat open_one {}, named_one {};
    return ::fstat(fd, &open_one) == 0 && ::stat(path.c_str(), &named_one) == 0 && open_one.st_dev == named_one.st_dev &&
           open_one.st_ino == named_one.st_ino;
}

// Waits until the lock on `fd` can be had: the holder has ended. False when it still lives at
// `deadline`.
bool lock_by(int fd, Clock::time_point deadline) {
    while (!try_lock(fd)) {
        if (Clock::now() >= deadline) return false;
        std::this_thread::sleep_for(kPoll);
    }
    return true;
}

}  // namespace

std::string default_pid_file() {
    const std::string self = platform::executable_path();
    const std::size_t slash = self.rfind('/');
    if (slash == std::string::npos) return {};
    return self.substr(0, slash + 1) + "wrenlink-agent.pid";
}

std::string log_file_for(const std::string &pid_file) {
    constexpr std::string_view kSuffix = ".pid";
    std::string_view base = pid_file;
    if (base.ends_with(kSuffix)) base.remove_suffix(kSuffix.size());
    return std::string(base) + ".log";
}

PidFile::~PidFile() {
    // Removed while still locked, so that a new agent never takes a file on its way out.
    if (fd_ && still_at(fd_.get(), path_)) (void)::unlink(path_.c_str());
}

PidFile::Claim PidFile::claim(const std::string &path, pid_t &holder, int &error) {
    // A stop may remove the file between its open here and the lock: then try again on the new one.
    for (int attempt = 0; attempt < 10; ++attempt) {
        UniqueFd fd(::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644));
        if (!fd) {
            error = errno;
            return Claim::Failed;
        }
        if (!try_lock(fd.get())) {
            if (errno != EWOULDBLOCK) {
                error = errno;
                return Claim::Failed;
            }
            holder = holder_of(fd.get());
            return Claim::HeldByAnother;
        }
        if (still_at(fd.get(), path)) {
            path_ = path;
            fd_ = std::move(fd);
            return Claim::Taken;
        }
    }
    error = EAGAIN;
    return Claim::Failed;
}

bool PidFile::write(pid_t pid) {
    const std::string text = std::to_string(pid) + "\n";
    if (::ftruncate(fd_.get(), 0) == 0 &&
        ::pwrite(fd_.get(), text.data(), text.size(), 0) == static_cast<ssize_t>(text.size()))
        return true;
    std::fprintf(stderr, "wrenlink-agent: pid file %s: %s\n", path_.c_str(), std::strerror(errno));
    return false;
}

int stop_agent(const std::string &path) {
    const UniqueFd fd(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
    if (!fd && errno == ENOENT) {
        std::puts("no agent running");
        return 0;
    }
    if (!fd) {
        std::fprintf(stderr, "wrenlink-agent: %s: %s\n", path.c_str(), std::strerror(errno));
        return 1;
    }
    if (try_lock(fd.get())) {
        // Nobody holds it: an agent that was killed left it behind.
        (void)::unlink(path.c_str());
        std::puts("no agent running");
        return 0;
    }
    const pid_t pid = holder_of(fd.get());
    if (pid == 0 || ::kill(pid, SIGTERM) != 0) {
        std::fprintf(stderr, "wrenlink-agent: cannot stop the agent of %s (pid %d): %s\n", path.c_str(),
                     static_cast<int>(pid), pid == 0 ? "no pid in the file" : std::strerror(errno));
        return 1;
    }
    bool ended = lock_by(fd.get(), Clock::now() + milliseconds(5000));
    const bool killed = !ended && ::kill(pid, SIGKILL) == 0;
    if (killed) ended = lock_by(fd.get(), Clock::now() + milliseconds(2000));
    if (!ended) {
        std::fprintf(stderr, "wrenlink-agent: the agent (pid %d) did not end\n", static_cast<int>(pid));
        return 1;
    }
    if (still_at(fd.get(), path)) (void)::unlink(path.c_str());
    std::printf("stopped the agent (pid %d)%s\n", static_cast<int>(pid), killed ? " with SIGKILL" : "");
    return 0;
}

}  // namespace wrenlink::reference_agent
