// A child process of the adb runner and the root shell: started with posix_spawn (argv only, never
// through a shell), its output collected, reaped.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "adb/process/pipe.h"
#include "base/unique_fd.h"

namespace wrenlink::process {

// One started child: its process number, a handle on it that survives its pid (platform.h), and
// the host's ends of the pipes it was given. The child is reaped exactly once, by us or by a host
// that reaps every child; a child still there when the object goes is killed and reaped, so that
// no run leaves a zombie or a stray process behind. Signals reach the child through its handle, so
// a pid that someone else reaped is never signalled.
//
// The waits are cancellation points: a host may cancel a thread that waits here, and the object's
// destructor then kills and reaps the child on the way out.
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
    // Readable once the child has exited; -1 where the platform gives no such descriptor, and the
    // child must then be looked at from time to time.
    int exit_fd() const noexcept { return handle_.get(); }

    void signal(int sig);
    // Reaps the child if it has ended, without blocking; true when it is gone (or was reaped by
    // someone else).
    bool reap_if_exited();
    // Reaps the child if it ends within `limit`, however often a signal interrupts the wait; true
    // when it is gone.
    bool wait_for(std::chrono::milliseconds limit);
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
    //
    // Of each stream only its text up to its first NUL is kept, and of the two together no more
    // than `keep` bytes, stdout first: whatever else the child prints is read and dropped.
    Output collect(std::size_t keep);

private:
    void reap_blocking() noexcept;

    pid_t pid_ = -1;
    UniqueFd handle_;
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

}  // namespace wrenlink::process
