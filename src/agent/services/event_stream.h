// The reading side of a scan's event connection. One recv brings in as many events as the kernel
// holds, where reading each header and payload with a receive of its own would cost two system
// calls per event; and an event that fits in the buffer is read where it lies (peek, then skip),
// with no copy of its own.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

namespace wrenlink::agent {

class EventStream {
public:
    static constexpr std::size_t kCapacity = 64 * 1024;

    // Reads from `fd`, which stays the caller's. Check ok(): the buffer may not be had.
    explicit EventStream(int fd) noexcept;
    bool ok() const noexcept { return buffer_ != nullptr; }

    // Copies the next n bytes into `to`. False when the stream ends first: the peer closed or a
    // receive failed. As with the connection's receive_exact, a receive cut by a signal is not retried.
    bool read(void *to, std::size_t n);
    // Takes a field of `length` bytes: copies its first `keep` bytes (keep <= length) into `to`
    // and drops the rest, so that the stream stays in step. False when the stream ends first.
    bool read_prefix(void *to, std::size_t keep, uint64_t length);
    // The next n bytes (n <= kCapacity) in one piece, received as needed; they stay next in the
    // stream until skip(n). Null when the stream ends first.
    const unsigned char *peek(std::size_t n) {
        return buffered() >= n || fill_to(n) ? buffer_.get() + begin_ : nullptr;
    }
    // Drops n bytes that a peek has shown.
    void skip(std::size_t n) noexcept { begin_ += n; }

private:
    // Receives until n bytes (n <= kCapacity) are buffered, moving what is left to the front first.
    bool fill_to(std::size_t n);
    std::size_t buffered() const noexcept { return end_ - begin_; }

    int fd_;
    std::unique_ptr<unsigned char[]> buffer_;
    std::size_t begin_ = 0;
    std::size_t end_ = 0;
    bool ended_ = false;
};

}  // namespace wrenlink::agent
