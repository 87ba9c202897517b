#include "support/child_process.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>
#if defined(__linux__)
#include <sys/prctl.h>
#endif

#include <cerrno>
#include <thread>
#include <utility>

#include "base/platform.h"

namespace wrenlink::support {

namespace {

// In the child, between fork and exec: only async-signal-safe calls.
[[noreturn]] void become(char *const argv[], int output, const char *stderrPath, bool endWithParent,
                         bool stderrToOutput) {
#if defined(__linux__)
    if (endWithParent) ::prctl(PR_SET_PDEATHSIG, SIGTERM);
#else
    (void)endWithParent;
#endif
    ::dup2(output, STDOUT_FILENO);
    if (stderrToOutput) {
        ::dup2(output, STDERR_FILENO);
    } else if (stderrPath != nullptr) {
        const int err = ::open(stderrPath, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
        if (err >= 0) ::dup2(err, STDERR_FILENO);
    }
    ::execv(argv[0], argv);
    ::_exit(127);
}

}  // namespace

ChildProcess::ChildProcess(const std::vector<std::string> &argv, const Options &options) {
    int out[2];
    if (argv.empty() || !platform::cloexec_pipe(out)) return;
    UniqueFd readEnd(out[0]), writeEnd(out[1]);
    std::vector<char *> args;  // made before the fork
    for (const auto &arg : argv) args.push_back(const_cast<char *>(arg.c_str()));
    args.push_back(nullptr);
    const char *stderrPath = options.stderrPath.empty() ? nullptr : options.stderrPath.c_str();
    pid_ = ::fork();
    if (pid_ == 0) become(args.data(), writeEnd.get(), stderrPath, options.endWithParent, options.stderrToOutput);
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

bool ChildProcess::read_all(std::string &text, std::chrono::milliseconds deadline) {
    using Clock = std::chrono::steady_clock;
    const auto end = Clock::now() + deadline;
    text = std::move(pending_);
    pending_.clear();
    while (output_) {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(end - Clock::now()).count();
        pollfd fd{output_.get(), POLLIN, 0};
        if (left <= 0) return false;
        if (::poll(&fd, 1, static_cast<int>(left)) <= 0) continue;
        char buffer[4096];
        const ssize_t n = ::read(output_.get(), buffer, sizeof buffer);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) break;
        text.append(buffer, static_cast<std::size_t>(n));
    }
    return true;
}

bool ChildProcess::ended(int &status) {
    if (pid_ <= 0 || ::waitpid(pid_, &status, WNOHANG) != pid_) return false;
    pid_ = -1;
    output_.reset();
    return true;
}

int ChildProcess::stop(int signal, std::chrono::milliseconds grace) {
    output_.reset();
    if (pid_ <= 0) return -1;
    ::kill(pid_, signal);
    int status = 0;
    const auto deadline = std::chrono::steady_clock::now() + grace;
    pid_t done = 0;
    while ((done = ::waitpid(pid_, &status, WNOHANG)) == 0 && std::chrono::steady_clock::now() < deadline)
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    if (done == 0) {
        ::kill(pid_, SIGKILL);
        while (::waitpid(pid_, &status, 0) < 0 && errno == EINTR) {
        }
    }
    pid_ = -1;
    return done > 0 && WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

void ChildProcess::stop() { stop(SIGTERM); }

}  // namespace wrenlink::support
