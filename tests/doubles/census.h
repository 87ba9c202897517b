// What the process holds: its open descriptors and its children that ended unreaped. Tests take
// them before and after many runs to prove that nothing is left behind.
#pragma once

#include <fcntl.h>
#include <sys/wait.h>

namespace wrenlink::test {

inline int open_descriptors() {
    int count = 0;
    for (int fd = 0; fd < 4096; ++fd) count += ::fcntl(fd, F_GETFD) >= 0 ? 1 : 0;
    return count;
}

// True when a child of this process has ended and not been reaped. Reaps nothing.
inline bool zombie_child_left() {
    siginfo_t info{};
    if (::waitid(P_ALL, 0, &info, WEXITED | WNOHANG | WNOWAIT) != 0) return false;  // no child at all
    return info.si_pid != 0;
}

}  // namespace wrenlink::test
