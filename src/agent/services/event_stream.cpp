#include "agent/services/event_stream.h"

#include <sys/socket.h>

#include <algorithm>
#include <cstring>
#include <new>

namespace wrenlink::agent {

EventStream::EventStream(int fd) noexcept : fd_(fd), buffer_(new (std::nothrow) unsigned char[kCapacity]) {}

bool EventStream::fill_to(std::size_t n) {
    if (begin_ > 0) {
        std::memmove(buffer_.get(), buffer_.get() + begin_, buffered());
        end_ -= begin_;
        begin_ = 0;
    }
    while (end_ < n) {
        if (ended_) return false;
        const ssize_t got = ::recv(fd_, buffer_.get() + end_, kCapacity - end_, 0);
        if (got <= 0) {
            ended_ = true;
            return false;
        }
        end_ += static_cast<std::size_t>(got);
    }
    return true;
}

bool EventStream::read(void *to, std::size_t n) {
    auto *out = static_cast<unsigned char *>(to);
    while (n > 0) {
        if (buffered() == 0 && !fill_to(1)) return false;
        const std::size_t k = std::min(n, buffered());
        std::memcpy(out, buffer_.get() + begin_, k);
        begin_ += k;
        out += k;
        n -= k;
    }
    return true;
}

bool EventStream::read_prefix(void *to, std::size_t keep, uint64_t length) {
    if (!read(to, keep)) return false;
    for (uint64_t rest = length - keep; rest > 0;) {
        if (buffered() == 0 && !fill_to(1)) return false;
        const std::size_t k = static_cast<std::size_t>(std::min<uint64_t>(rest, buffered()));
        begin_ += k;
        rest -= k;
    }
    return true;
}

}  // namespace wrenlink::agent
