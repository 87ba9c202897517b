// One line in a root shell on the phone: the tool's `shell` command as a child with two pipes,
// "su" unless the prompt shows root already, the line, and a kill.
#include "adb/runner/root_shell.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <mutex>
#include <thread>

#include "adb/process/child.h"
#include "adb/runner/command_line.h"
#include "adb/runner/pauses.h"
#include "adb/runner/tool_path.h"
#include "adb/runner/tool_runner.h"
#include "base/io.h"

namespace wrenlink::adb {

namespace {

// Root runs are one at a time; they don't exclude the runs of the tool runner.
std::mutex root_shell_mutex;

// A read phase keeps what fits the caller's 2048-byte buffer with its terminator.
constexpr std::size_t kPhaseKeeps = kOutputSize - 1;

// Where the platform gives no descriptor that tells of the shell's exit, how often it is looked at
// while its output stays silent.
constexpr int kExitCheckMs = 10;

// The shell's output, and the shell: a phase waits for text until the shell has gone. A process
// the shell started may keep the pipe open long after, and no text of the shell can come then.
class ShellOutput {
public:
    explicit ShellOutput(process::Child &shell) : shell_(shell) {}
    int fd() const { return shell_.stdout_fd(); }

    // Waits until the pipe can be read (text or its end); false when the shell has exited first.
    bool wait_readable() {
        const int exit = shell_.exit_fd();
        for (;;) {
            pollfd fds[2] = {{fd(), POLLIN, 0}, {exit, POLLIN, 0}};
            const int ready = ::poll(fds, exit >= 0 ? 2 : 1, exit >= 0 ? -1 : kExitCheckMs);
            const bool failed = ready < 0 && errno != EINTR;
            if (ready > 0 && fds[0].revents != 0) return true;
            if (shell_.reap_if_exited()) return false;
            if (failed) std::this_thread::sleep_for(std::chrono::milliseconds(kExitCheckMs));  // never spin
        }
    }

private:
    process::Child &shell_;
};

// One read phase into the start of `output`: waits as long as it takes for the first text (or
// until the shell has gone), then reads until the pipe is empty (or has ended). Text beyond what
// the buffer keeps is read and dropped, so that the next phase starts on an empty pipe.
void read_phase(ShellOutput &shell, char *output) {
    const int fd = shell.fd();
    std::size_t kept = 0;
    bool gotAny = false;
    char dropped[512];
    for (;;) {
        const bool full = kept == kPhaseKeeps;
        char *into = full ? dropped : output + kept;
        const ssize_t n = ::read(fd, into, full ? sizeof dropped : kPhaseKeeps - kept);
        if (n > 0) {
            if (!full) kept += static_cast<std::size_t>(n);
            gotAny = true;
        } else if (n < 0 && errno == EINTR) {
            continue;
        } else if (n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK) && !gotAny) {
            if (!shell.wait_readable()) break;
        } else {
            break;  // the end of the stream, an error, or an empty pipe after some text
        }
    }
    output[kept] = '\0';
}

// Failures of posix_spawn that mean no process could be made at all, as a failed fork would.
bool no_process_made(int failure) { return failure == EAGAIN || failure == ENOMEM; }

}  // namespace

void run_root_shell(const char *commandLine, char *output) {
    const std::string tool = GetAdbPath();
    std::lock_guard lock(root_shell_mutex);

    auto reply = process::make_pipe();
    auto feed = reply ? process::make_pipe() : std::nullopt;
    // The host keeps a read end of the feed, so that a write to a shell that has gone still
    // succeeds and never raises SIGPIPE.
    const UniqueFd feedKept(feed ? ::fcntl(feed->read.get(), F_DUPFD_CLOEXEC, STDERR_FILENO + 1) : -1);
    if (!reply || !feed || !feedKept) {
        // No pipe, no shell: the caller gets the empty text.
        std::printf("pipe faile:%d ", errno);  // kept as callers' logs have always shown it
        output[0] = '\0';
        return;
    }

    process::Child shell;
    // No -s: the tool picks the phone. The shell's stderr stays the host's. posix_spawn rather
    // than fork: nothing of a threaded host is copied, and a failed exec ends the half-made child
    // with status 127 inside the C library, which reports it here.
    const int failure = process::spawn(tool, {tool, "shell"}, {&*feed, &*reply, nullptr}, shell);
    if (failure != 0) {
        // No process at all (as a failed fork): the buffer is left as it was. A tool that can't be
        // started is a shell that ended at once: every phase ends empty.
        if (!no_process_made(failure)) output[0] = '\0';
        return;
    }
    if (!process::set_nonblocking(shell.stdout_fd())) std::perror("fcntl");

    ShellOutput text(shell);
    read_phase(text, output);
    if (std::strchr(output, '#') == nullptr) {
        // Kept: 5 bytes, the terminator with them, as the phones of callers have always been sent;
        // the NUL reaches the shell ahead of the caller's line.
        (void)io::write_all(shell.stdin_fd(), "su\r\n", sizeof "su\r\n");
        pauses::wait_whole(pauses::shell_answer());  // su's answer
        read_phase(text, output);  // whether su worked is not looked at
    }
    (void)io::write_all(shell.stdin_fd(), commandLine, std::strlen(commandLine));
    pauses::wait_whole(pauses::shell_answer());  // the line's answer
    read_phase(text, output);
    shell.kill_and_reap();  // whatever the shell is still doing
}

int32_t is_adb_root(const char *serial, uint8_t *isRoot) {
    if (serial == nullptr || isRoot == nullptr) return -1;
    const auto line = tool_line(serial, "shell id");
    if (!line) return -1;
    const std::string text = run_tool(*line, true, kOutputSize - 1);
    if (text.starts_with("error: device not found")) return 1;
    *isRoot = text.find("uid=0(root)") != std::string::npos ? 1 : 0;
    return 0;
}

}  // namespace wrenlink::adb
