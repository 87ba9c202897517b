#include "detach.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <system_error>

#include "base/platform.h"

namespace wrenlink::reference_agent {

namespace {

constexpr char kServing = 'S';

UniqueFd open_or_throw(const std::string &path, int flags) {
    UniqueFd fd(::open(path.c_str(), flags | O_CLOEXEC, 0644));
    if (!fd) throw std::system_error(errno, std::generic_category(), path);
    return fd;
}

// The starting process: waits for the agent's word, then leaves without running any destructor,
// since everything it holds now belongs to the agent.
[[noreturn]] void wait_and_leave(pid_t middle, UniqueFd ready, const std::string &line) {
    while (::waitpid(middle, nullptr, 0) < 0 && errno == EINTR) {
    }
    char word = 0;
    ssize_t n = 0;
    do {
        n = ::read(ready.get(), &word, 1);
    } while (n < 0 && errno == EINTR);
    if (n == 1 && word == kServing) {
        std::fputs(line.c_str(), stdout);
        std::fflush(stdout);
        ::_exit(0);
    }
    std::fputs("wrenlink-agent: the detached agent ended before it served\n", stderr);
    ::_exit(1);
}

}  // namespace

UniqueFd detach(const std::string &line, const std::string &log_path, PidFile &pid_file) {
    // Opened here, so that a failure still reaches the caller.
    const UniqueFd null = open_or_throw("/dev/null", O_RDWR);
    const UniqueFd log = log_path.empty() ? UniqueFd() : open_or_throw(log_path, O_WRONLY | O_CREAT | O_TRUNC);
    int fds[2];
    if (!platform::cloexec_pipe(fds)) throw std::system_error(errno, std::generic_category(), "pipe");
    UniqueFd wait_end(fds[0]), ready(fds[1]);
    std::fflush(nullptr);
    const pid_t middle = ::fork();
    if (middle < 0) throw std::system_error(errno, std::generic_category(), "fork");
    if (middle > 0) {
        ready.reset();
        wait_and_leave(middle, std::move(wait_end), line);
    }
    // The middle process: a new session, then a child of that session that is not its leader.
    if (::setsid() < 0) ::_exit(1);
    const pid_t agent = ::fork();
    if (agent != 0) ::_exit(agent < 0 ? 1 : 0);

    wait_end.reset();
    if (!pid_file.write(::getpid())) ::_exit(1);
    const int err = log ? log.get() : null.get();
    if (::dup2(null.get(), STDIN_FILENO) < 0 || ::dup2(null.get(), STDOUT_FILENO) < 0 ||
        ::dup2(err, STDERR_FILENO) < 0 || ::chdir("/") != 0)
        ::_exit(1);
    ::signal(SIGHUP, SIG_IGN);
    return ready;
}

void report_serving(UniqueFd ready) {
    (void)!::write(ready.get(), &kServing, 1);
}

}  // namespace wrenlink::reference_agent
