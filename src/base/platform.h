// The few places where Linux and macOS differ, gathered in one unit.
#pragma once

#include <spawn.h>
#include <sys/types.h>

#include <string>

#include "base/unique_fd.h"

// The exception by which the C library unwinds a cancelled thread, where the C++ runtime names it
// (glibc with libstdc++). A catch-all that swallows it aborts the process, so every catch-all on
// the way out of an entry point lets it pass.
// It has no object: the reference that catches it is bound to null, which the undefined-behaviour
// sanitizer must not check in the catching function.
#if defined(__GLIBCXX__) && __has_include(<cxxabi.h>)
#include <cxxabi.h>
#define WRENLINK_FORCED_UNWIND abi::__forced_unwind
#define WRENLINK_CATCHES_FORCED_UNWIND __attribute__((no_sanitize("null")))
#else
#define WRENLINK_CATCHES_FORCED_UNWIND
#endif

namespace wrenlink::platform {

// Flags to add to every send(): no SIGPIPE where the platform has a per-call flag.
int send_flags() noexcept;

// A send flag that holds a short piece back until the next send (MSG_MORE), so that a request
// header sent just before its data leaves in the same segment; 0 where the platform has none.
int more_follows_flag() noexcept;

// A TCP socket that is close-on-exec and, where the platform has no per-call flag, never raises
// SIGPIPE. -1 with errno on failure.
int tcp_socket() noexcept;

// A pipe whose both ends are close-on-exec. False with errno on failure.
bool cloexec_pipe(int fds[2]) noexcept;

// The running executable's full path; empty when it cannot be had.
std::string executable_path();

// The process's environment, as a child started by posix_spawn inherits it.
char **environment() noexcept;

// Makes a posix_spawn child close every descriptor above 2 (its standard three stay), as far as the
// platform allows: a file action on Linux, a spawn flag (added to `flags`) on macOS. Elsewhere the
// library's own descriptors are still close-on-exec. 0 or an error number.
int spawn_closes_other_descriptors(posix_spawn_file_actions_t *actions, short &flags) noexcept;

// A handle on the child `pid` that stays with that process even once someone else has reaped it
// (a pidfd on Linux, readable when the child has exited), so that a pid which the host reaped and
// the system handed to another process is never signalled. `gone` when the child is no longer
// ours to wait for (the host reaped it first); an empty handle otherwise where the platform has
// none, and the child is then known by its pid alone.
struct ChildHandle {
    UniqueFd fd;
    bool gone = false;
};
ChildHandle child_handle(pid_t pid);

// Sends `sig` to the child: through its handle where it has one, otherwise by pid only while the
// child is still ours to wait for.
void signal_child(pid_t pid, int handle, int sig);

enum class Reaped { No, Yes, ByOthers };
// Reaps the child if it has ended (with `block`, once it has ended). ByOthers when it is no
// longer ours to wait for: a host that reaps every child, or ignores SIGCHLD, took it.
Reaped reap_child(pid_t pid, int handle, bool block);

// The popen mode for reading whose pipe is close-on-exec where the C library offers it.
const char *popen_read_mode() noexcept;

}  // namespace wrenlink::platform
