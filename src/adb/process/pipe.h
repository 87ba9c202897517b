// Pipes for a child process: close-on-exec, and never on a standard descriptor of the host.
#pragma once

#include <optional>

#include "base/unique_fd.h"

namespace wrenlink::process {

// A pipe whose ends are close-on-exec and above 2, so that no end ever lands on a standard
// descriptor of the host (where a child's dup2 onto it would be a no-op that keeps close-on-exec).
struct Pipe {
    UniqueFd read;
    UniqueFd write;
};
// std::nullopt with errno on failure.
std::optional<Pipe> make_pipe() noexcept;

// Adds O_NONBLOCK to the descriptor's flags; false with errno on failure.
bool set_nonblocking(int fd) noexcept;

}  // namespace wrenlink::process
