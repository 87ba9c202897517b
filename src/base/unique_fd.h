// One owning descriptor type: move-only, closes exactly once, and keeps errno across the close so
// that a failure's errno survives the cleanup of the path that reports it. A close is cleanup, never
// a cancellation point (cancellation.h).
#pragma once

#include <unistd.h>

#include <cerrno>
#include <utility>

#include "base/cancellation.h"

namespace wrenlink {

// Closes `fd`, keeping errno as it was.
inline void close_descriptor(int fd) noexcept {
    const NoCancel cleanup;
    const int saved = errno;
    ::close(fd);
    errno = saved;
}

class UniqueFd {
public:
    UniqueFd() noexcept = default;
    explicit UniqueFd(int fd) noexcept : fd_(fd) {}
    UniqueFd(UniqueFd &&other) noexcept : fd_(other.release()) {}
    UniqueFd &operator=(UniqueFd &&other) noexcept {
        if (this != &other) reset(other.release());
        return *this;
    }
    UniqueFd(const UniqueFd &) = delete;
    UniqueFd &operator=(const UniqueFd &) = delete;
    ~UniqueFd() { reset(); }

    int get() const noexcept { return fd_; }
    explicit operator bool() const noexcept { return fd_ >= 0; }
    int release() noexcept { return std::exchange(fd_, -1); }
    void reset(int fd = -1) noexcept {
        if (fd_ >= 0) close_descriptor(fd_);
        fd_ = fd;
    }

private:
    int fd_ = -1;
};

}  // namespace wrenlink
