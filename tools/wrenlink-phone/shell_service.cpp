// "shell:COMMAND" runs the command under /bin/sh with its output and errors in one stream, as a
// phone without the newer shell protocol does, its program paths routed (program_paths.h);
// "shell:" alone is an interactive shell on a pseudo-terminal, with its echo, its prompt and its
// CR LF line ends.
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "base/unique_fd.h"
#include "base/platform.h"
#include "log.h"
#include "phone.h"
#include "program_paths.h"
#include "services.h"
#include "transport.h"

namespace phone {

namespace {

constexpr const char *kShell = "/bin/sh";

// argv and envp for execve, built before fork: the child may only make async-signal-safe calls.
class ExecPlan {
public:
    ExecPlan(std::vector<std::string> args, std::vector<std::string> env) : args_(std::move(args)), env_(std::move(env)) {
        for (auto &a : args_) argv_.push_back(a.data());
        argv_.push_back(nullptr);
        for (auto &e : env_) envp_.push_back(e.data());
        envp_.push_back(nullptr);
    }
    char *const *argv() const noexcept { return argv_.data(); }
    char *const *envp() const noexcept { return envp_.data(); }

private:
    std::vector<std::string> args_;
    std::vector<std::string> env_;
    std::vector<char *> argv_;
    std::vector<char *> envp_;
};

// The shell child, its descriptors and its end. The child leads a process group of its own, so
// that ending the session ends what it started in the foreground.
struct ShellChild {
    pid_t pid = -1;
    wrenlink::UniqueFd input;    // to the child's stdin (the terminal's master side when interactive)
    wrenlink::UniqueFd output;   // from the child's stdout and stderr (the same master when interactive)
    std::mutex mutex;
    bool reaped = false;

    void kill_group() {
        std::lock_guard lock(mutex);
        if (!reaped) ::kill(-pid, SIGKILL);
    }
    // Waits for the child's end without reaping it first, so that kill_group() can never hit a
    // process that took over its number.
    void wait_and_reap() {
        siginfo_t info{};
        while (::waitid(P_PID, static_cast<id_t>(pid), &info, WEXITED | WNOWAIT) != 0 && errno == EINTR) {
        }
        std::lock_guard lock(mutex);
        while (::waitpid(pid, nullptr, 0) < 0 && errno == EINTR) {
        }
        reaped = true;
    }
};

bool spawn_raw(ShellChild &child, std::string_view command, const PhoneContext &phone) {
    int in[2], out[2];
    if (!wrenlink::platform::cloexec_pipe(in)) return false;
    wrenlink::UniqueFd in_read(in[0]), in_write(in[1]);
    if (!wrenlink::platform::cloexec_pipe(out)) return false;
    wrenlink::UniqueFd out_read(out[0]), out_write(out[1]);
    const ExecPlan plan({"sh", "-c", route_program_paths(command, launcher_path(phone.sandbox))},
                        phone.shell_environment(phone.adbd_is_root()));
    const std::string dir = phone.sandbox.root();
    struct sigaction default_action {};
    default_action.sa_handler = SIG_DFL;

    const pid_t pid = ::fork();
    if (pid < 0) return false;
    if (pid == 0) {
        ::sigaction(SIGPIPE, &default_action, nullptr);   // the phone ignores it; its commands must not
        ::setpgid(0, 0);
        ::dup2(in_read.get(), 0);
        ::dup2(out_write.get(), 1);
        ::dup2(out_write.get(), 2);
        if (::chdir(dir.c_str()) != 0) ::_exit(126);
        ::execve(kShell, plan.argv(), plan.envp());
        ::_exit(127);
    }
    ::setpgid(pid, pid);   // also here, so that a kill can never come before the child's own call
    child.pid = pid;
    child.input = std::move(in_write);
    child.output = std::move(out_read);
    return true;
}

bool spawn_interactive(ShellChild &child, const PhoneContext &phone) {
    wrenlink::UniqueFd master(::posix_openpt(O_RDWR | O_NOCTTY));
    if (!master) return false;
    ::fcntl(master.get(), F_SETFD, FD_CLOEXEC);
    if (::grantpt(master.get()) != 0 || ::unlockpt(master.get()) != 0) return false;
    std::string slave;
    {
        static std::mutex ptsname_mutex;   // ptsname keeps its answer in static storage
        std::lock_guard lock(ptsname_mutex);
        const char *name = ::ptsname(master.get());
        if (!name) return false;
        slave = name;
    }
    const winsize size{24, 80, 0, 0};
    ::ioctl(master.get(), TIOCSWINSZ, &size);
    const ExecPlan plan({"sh", "-i"}, phone.shell_environment(phone.adbd_is_root()));
    const std::string dir = phone.sandbox.root();
    struct sigaction default_action {};
    default_action.sa_handler = SIG_DFL;

    const pid_t pid = ::fork();
    if (pid < 0) return false;
    if (pid == 0) {
        ::sigaction(SIGPIPE, &default_action, nullptr);
        ::setsid();
        const int tty = ::open(slave.c_str(), O_RDWR);
        if (tty < 0) ::_exit(126);
#if defined(TIOCSCTTY)
        ::ioctl(tty, TIOCSCTTY, 0);
#endif
        ::dup2(tty, 0);
        ::dup2(tty, 1);
        ::dup2(tty, 2);
        if (tty > 2) ::close(tty);
        if (::chdir(dir.c_str()) != 0) ::_exit(126);
        ::execve(kShell, plan.argv(), plan.envp());
        ::_exit(127);
    }
    child.pid = pid;
    child.input.reset(::dup(master.get()));
    if (child.input) ::fcntl(child.input.get(), F_SETFD, FD_CLOEXEC);
    child.output = std::move(master);
    return true;
}

// Server to child: what the host types, until the stream closes.
void pump_input(Stream &stream, ShellChild &child) {
    bool child_reads = true;
    while (auto chunk = stream.read()) {
        if (child_reads) child_reads = write_all_unless_closed(child.input.get(), *chunk, stream.closed_signal());
    }
    child.input.reset();
}

// Child to server, until the child's output ends or the stream closes.
void pump_output(Stream &stream, ShellChild &child) {
    std::string buffer(64 * 1024, '\0');
    pollfd fds[2] = {{child.output.get(), POLLIN, 0}, {stream.closed_signal(), POLLIN, 0}};
    for (;;) {
        if (::poll(fds, 2, -1) < 0) {
            if (errno == EINTR) continue;
            return;
        }
        if (fds[1].revents != 0) return;
        const ssize_t n = ::read(child.output.get(), buffer.data(), buffer.size());
        if (n < 0 && (errno == EINTR || errno == EAGAIN)) continue;
        if (n <= 0) return;   // end of output; EIO on a terminal whose last user has gone
        if (!stream.write(std::string_view(buffer.data(), static_cast<std::size_t>(n)))) return;
    }
}

}  // namespace

void run_shell(Stream &stream, std::string_view command, const PhoneContext &phone) {
    ShellChild child;
    const bool started = command.empty() ? spawn_interactive(child, phone) : spawn_raw(child, command, phone);
    if (!started) {
        log(0, "%s: cannot start a shell: %s", phone.name.c_str(), std::strerror(errno));
        stream.refuse();
        return;
    }
    // The input side must never block: the stream's end has to get through to a child that stops
    // reading (on a terminal this also makes the shared master non-blocking; the output pump polls).
    ::fcntl(child.input.get(), F_SETFL, ::fcntl(child.input.get(), F_GETFL) | O_NONBLOCK);
    stream.accept();

    std::thread input([&] { pump_input(stream, child); });
    pump_output(stream, child);
    // The output has ended because the command is done, or the server closed the stream and what
    // runs in the session is ended with it.
    if (stream.is_closed()) child.kill_group();
    child.wait_and_reap();
    stream.close();
    input.join();
}

}  // namespace phone
