// The loops that move an exact count of bytes through a descriptor, for the library and the tools
// alike: send and receive on a socket, write on a pipe or a file. One system call rarely moves the
// whole count; these go on until it has moved, the peer has closed, or a call has failed. Each
// call is a cancellation point, so none of these is noexcept: a thread that its host cancels
// unwinds out of them.
#pragma once

#include <cstddef>

namespace wrenlink::io {

// What a loop does when a signal interrupts a call: call again, or fail with EINTR. The library's
// receive fails, so that a host which installs its handlers without SA_RESTART sees the signal.
enum class OnSignal { Retry, Fail };

enum class Ending { Whole, Closed, Failed };

struct Transfer {
    std::size_t done = 0;  // bytes moved
    Ending ending = Ending::Whole;  // Failed leaves the reason in errno
    bool whole() const noexcept { return ending == Ending::Whole; }
};

// Sends all n bytes with `flags` and the platform's no-SIGPIPE flag; interrupted sends are retried.
// Whole, or Failed after `done` bytes.
Transfer send_all(int fd, const void *data, std::size_t n, int flags = 0);

// Receives exactly n bytes. Whole, Closed when the peer closed first, or Failed.
Transfer receive_exact(int fd, void *to, std::size_t n, OnSignal onSignal = OnSignal::Retry,
                       int flags = 0);

// Writes all n bytes (a pipe, a file); interrupted writes are retried. False with errno on failure.
bool write_all(int fd, const void *data, std::size_t n);

}  // namespace wrenlink::io
