// The POSIX process layer under the adb runner and the root shell: pipes, a child started with
// posix_spawn (argv only, never through a shell), the collection of its output, and reaping.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Wrenlink/fd.h"

namespace wrenlink::process {

// A pipe whose ends are close-on-exec and above 2, so that no end ever lands on a standard
// descriptor of the host (where a child's dup2 onto it would be a no-op that keeps close-on-exec).
struct Pipe {
    UniqueFd read;
    UniqueFd write;
};
// std::nullopt with errno on failure.
std::optional<Pipe> make_pipe() noexcept;

// One started child: its process number and the host's ends of the pipes it was given. The child
// is reaped exactly once; a child still there when the object goes is killed and reaped, so that no
// run leaves a zombie or a stray process behind.
class Child {
public:
    Child() noexcept = default;
    Child(pid_t pid, UniqueFd in, UniqueFd out, UniqueFd err) noexcept;
    Child(Child &&other) noexcept;
    Child &operator=(Child &&other) noexcept;
    Child(const Child &) = delete;
    Child &operator=(const Child &) = delete;
    ~Child();

    pid_t pid() const noexcept { return pid_; }
    bool running() const noexcept { return pid_ > 0; }
    int stdin_fd() const noexcept { return in_.get(); }
    int stdout_fd() const noexcept { return out_.get(); }

    void signal(int sig) const noexcept;
    // Reaps the child if it ends within `limit`; true when it is gone.
    bool wait_for(std::chrono::milliseconds limit) noexcept;
    // Kills the child (signal 9) if it is still there, and reaps it.
    void kill_and_reap() noexcept;

    struct Output {
        std::string out;
        std::string err;
    };
    // Reads stdout and stderr as they come (so a child that prints more than a pipe holds never
    // blocks) until both have ended, or until the child has exited: then what is already in the
    // pipes is taken and the reading stops, even when a process the child started still holds
    // them open. The child is reaped on return.
    Output collect();

private:
    // Reaps without blocking; true when the child is gone (or was reaped by someone else).
    bool reap_if_exited() noexcept;
    void reap_blocking() noexcept;

    pid_t pid_ = -1;
    UniqueFd in_;
    UniqueFd out_;
    UniqueFd err_;
};

// The descriptors a child gets as its stdin, stdout and stderr: for each given pipe the child takes
// one end (read for stdin, write for the others) and the Child keeps the other; a null pipe leaves
// the host's own descriptor in place. The child's ends are closed in the host once it has started.
struct Stdio {
    Pipe *in = nullptr;
    Pipe *out = nullptr;
    Pipe *err = nullptr;
};

// Starts `path` with `argv` (argv[0] included) and the host's environment and working directory.
// The child gets no descriptor of the host beyond its three, an empty signal mask and default
// signal dispositions. 0, or the error number of the failure (a failed exec included).
int spawn(const std::string &path, const std::vector<std::string> &argv, Stdio stdio, Child &child);

// Adds O_NONBLOCK to the descriptor's flags; false with errno on failure.
bool set_nonblocking(int fd) noexcept;

// Text up to its first NUL byte.
std::string_view up_to_nul(std::string_view text) noexcept;

}  // namespace wrenlink::process
