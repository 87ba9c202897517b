#include "child_process.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

extern char **environ;

namespace wrenlink::bench {

bool cloexec_pipe(int (&fds)[2]) {
#if defined(__linux__)
    return ::pipe2(fds, O_CLOEXEC) == 0;
#else
    if (::pipe(fds) != 0) return false;
    ::fcntl(fds[0], F_SETFD, FD_CLOEXEC);
    ::fcntl(fds[1], F_SETFD, FD_CLOEXEC);
    return true;
#endif
}

ChildProcess::ChildProcess(const std::vector<std::string> &argv) {
    int out[2];
    if (!cloexec_pipe(out)) return;
    UniqueFd readEnd(out[0]), writeEnd(out[1]);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, writeEnd.get(), STDOUT_FILENO);
    posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
    std::vector<char *> args;
    for (const auto &arg : argv) args.push_back(const_cast<char *>(arg.c_str()));
    args.push_back(nullptr);
    if (::posix_spawn(&pid_, args[0], &actions, nullptr, args.data(), environ) != 0) pid_ = -1;
    posix_spawn_file_actions_destroy(&actions);
    if (pid_ > 0) output_ = std::move(readEnd);
}

ChildProcess::ChildProcess(ChildProcess &&other) noexcept
    : pid_(std::exchange(other.pid_, -1)), output_(std::move(other.output_)), pending_(std::move(other.pending_)) {}

ChildProcess &ChildProcess::operator=(ChildProcess &&other) noexcept {
    if (this != &other) {
        stop();
        pid_ = std::exchange(other.pid_, -1);
        output_ = std::move(other.output_);
        pending_ = std::move(other.pending_);
    }
    return *this;
}

ChildProcess::~ChildProcess() { stop(); }

std::string ChildProcess::read_line(std::chrono::milliseconds deadline) {
    using Clock = std::chrono::steady_clock;
    const auto end = Clock::now() + deadline;
    std::size_t eol;
    while ((eol = pending_.find('\n')) == std::string::npos) {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(end - Clock::now()).count();
        pollfd fd{output_.get(), POLLIN, 0};
        if (!output_ || left <= 0 || ::poll(&fd, 1, static_cast<int>(left)) <= 0) return {};
        char buffer[512];
        const ssize_t n = ::read(output_.get(), buffer, sizeof buffer);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return {};
        pending_.append(buffer, static_cast<std::size_t>(n));
    }
    std::string line = pending_.substr(0, eol);
    pending_.erase(0, eol + 1);
    return line;
}

void ChildProcess::stop() {
    output_.reset();
    if (pid_ <= 0) return;
    ::kill(pid_, SIGTERM);
    int status = 0;
    while (::waitpid(pid_, &status, 0) < 0 && errno == EINTR) {
    }
    pid_ = -1;
}

}  // namespace wrenlink::bench
