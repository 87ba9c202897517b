// Small helpers of the runner tests.
#pragma once

#include <fcntl.h>
#include <sys/wait.h>

#include <string>

#include "Wrenlink/Wrenlink.h"
#include "Wrenlink/command_line.h"

namespace wrenlink::test {

// One run through the public entry point, with the usual 2048-byte buffer.
inline std::string adb_text(const char *line, bool isWaitExit = true) {
    char output[kOutputSize] = {};
    AdbCommand(line, output, kOutputSize, isWaitExit);
    return output;
}

// True when a child of this process has ended and not been reaped. Reaps nothing.
inline bool zombie_child_left() {
    siginfo_t info{};
    if (::waitid(P_ALL, 0, &info, WEXITED | WNOHANG | WNOWAIT) != 0) return false;  // no child at all
    return info.si_pid != 0;
}

inline int open_descriptors() {
    int count = 0;
    for (int fd = 0; fd < 4096; ++fd) count += ::fcntl(fd, F_GETFD) >= 0 ? 1 : 0;
    return count;
}

}  // namespace wrenlink::test
