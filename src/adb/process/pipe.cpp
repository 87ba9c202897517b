#include "adb/process/pipe.h"

#include <fcntl.h>
#include <unistd.h>

#include "base/platform.h"

namespace wrenlink::process {

namespace {

bool lift_above_stdio(UniqueFd &fd) noexcept {
    if (fd.get() > STDERR_FILENO) return true;
    const int moved = ::fcntl(fd.get(), F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
    if (moved < 0) return false;
    fd.reset(moved);
    return true;
}

}  // namespace

std::optional<Pipe> make_pipe() noexcept {
    int fds[2];
    if (!platform::cloexec_pipe(fds)) return std::nullopt;
    Pipe pipe{UniqueFd(fds[0]), UniqueFd(fds[1])};
    if (!lift_above_stdio(pipe.read) || !lift_above_stdio(pipe.write)) return std::nullopt;
    return pipe;
}

bool set_nonblocking(int fd) noexcept {
    const int flags = ::fcntl(fd, F_GETFL);
    return flags >= 0 && ::fcntl(fd, F_SETFL, flags | O_NONBLOCK) == 0;
}

}  // namespace wrenlink::process
