#include "base/log.h"

#include <sys/uio.h>
#include <unistd.h>

#include <cerrno>

namespace wrenlink {

void log_line(std::string_view line) {
    char newline = '\n';
    iovec parts[2] = {{const_cast<char *>(line.data()), line.size()}, {&newline, 1}};
    iovec *next = parts;
    int left = 2;
    while (left > 0) {
        const ssize_t n = ::writev(STDERR_FILENO, next, left);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return;
        // A short write (a full pipe, a signal): go on behind what went out.
        auto done = static_cast<std::size_t>(n);
        while (left > 0 && done >= next->iov_len) {
            done -= next->iov_len;
            ++next;
            --left;
        }
        if (left > 0) {
            next->iov_base = static_cast<char *>(next->iov_base) + done;
            next->iov_len -= done;
        }
    }
}

}  // namespace wrenlink
