// The few places where Linux and macOS differ, gathered in one unit.
#pragma once

#include <string>

namespace wrenlink::platform {

// Flags to add to every send(): no SIGPIPE where the platform has a per-call flag.
int send_flags() noexcept;

// A TCP socket that is close-on-exec and, where the platform has no per-call flag, never raises
// SIGPIPE. -1 with errno on failure.
int tcp_socket() noexcept;

// A pipe whose both ends are close-on-exec. False with errno on failure.
bool cloexec_pipe(int fds[2]) noexcept;

// The running executable's full path; empty when it cannot be had.
std::string executable_path();

}  // namespace wrenlink::platform
