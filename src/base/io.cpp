#include "base/io.h"

#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>

#include "base/platform.h"

namespace wrenlink::io {

Transfer send_all(int fd, const void *data, std::size_t n, int flags) {
    const auto *p = static_cast<const char *>(data);
    Transfer t;
    while (t.done < n) {
        const ssize_t sent = ::send(fd, p + t.done, n - t.done, flags | platform::send_flags());
        if (sent > 0) {
            t.done += static_cast<std::size_t>(sent);
        } else if (sent < 0 && errno == EINTR) {
            continue;
        } else {
            t.ending = Ending::Failed;
            break;
        }
    }
    return t;
}

Transfer receive_exact(int fd, void *to, std::size_t n, OnSignal onSignal, int flags) {
    auto *p = static_cast<char *>(to);
    Transfer t;
    while (t.done < n) {
        const ssize_t got = ::recv(fd, p + t.done, n - t.done, flags);
        if (got > 0) {
            t.done += static_cast<std::size_t>(got);
        } else if (got == 0) {
            t.ending = Ending::Closed;
            break;
        } else if (errno != EINTR || onSignal == OnSignal::Fail) {
            t.ending = Ending::Failed;
            break;
        }
    }
    return t;
}

bool write_all(int fd, const void *data, std::size_t n) {
    const auto *p = static_cast<const char *>(data);
    while (n > 0) {
        const ssize_t written = ::write(fd, p, n);
        if (written < 0 && errno == EINTR) continue;
        if (written <= 0) return false;
        p += written;
        n -= static_cast<std::size_t>(written);
    }
    return true;
}

}  // namespace wrenlink::io
