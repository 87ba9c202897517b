#include "log.h"

#include <unistd.h>

#include <cstring>

namespace wrenlink::agent {

void Log::say(const std::string &line) const {
    // One write per line: lines of several threads never interleave.
    std::string out = "wrenlink-agent: " + line + "\n";
    std::size_t done = 0;
    while (done < out.size()) {
        const ssize_t n = ::write(STDERR_FILENO, out.data() + done, out.size() - done);
        if (n <= 0) return;
        done += static_cast<std::size_t>(n);
    }
}

std::string connection_tag(int number) {
    std::string tag = "#";
    tag += std::to_string(number);
    return tag;
}

std::string describe_status(uint32_t status) {
    if (status == 0) return "0";
    return std::to_string(status) + " (" + std::strerror(static_cast<int>(status)) + ")";
}

}  // namespace wrenlink::agent
