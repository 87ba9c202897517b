// The connection record behind the opaque NetConnection handle, and the loops that move bytes
// through it. The exported NetConnection* functions and every service of the agent half use these.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>

#include "Wrenlink/Wrenlink.h"

// A close may come from another thread while a transfer waits in the socket (the way out of a call
// on a silent agent): the socket number and the sticky errors are therefore read and written
// atomically (load_field, store_field), and the close itself goes through `users`.
struct NetConnection {
    int sock = -1;       // -1 once closed: a stale handle fails with EBADF, never reaches a reused number
    int fileError = 0;   // sticky error of the remote file and path operations
    int sendError = 0;   // sticky error of send_all, the media and the scan operations
    char peerAddress[32] = {};
    uint16_t peerPort = 0;
    std::mutex mutex;    // one whole remote file exchange
    // Sends and receives inside the socket, and a bit for a close that has come. A close shuts
    // the socket down, which ends the transfers inside, and leaves the descriptor in `closeLeft`
    // for the last of them to close: its number is never reused under a running transfer.
    std::atomic<uint32_t> users{0};
    std::atomic<int> closeLeft{-1};
};

namespace wrenlink::agent {

inline int load_field(const int &field) noexcept { return __atomic_load_n(&field, __ATOMIC_RELAXED); }
inline void store_field(int &field, int value) noexcept { __atomic_store_n(&field, value, __ATOMIC_RELAXED); }

// A TCP connection to a dotted IPv4 address and port (low 16 bits), close-on-exec, with no delay,
// the largest receive buffer the system grants and keep-alive. Null when the socket, the address
// text or the connect fails (perror tells which of the last two).
std::unique_ptr<NetConnection> open_connection(const char *address, uint32_t port);

// Sends all `length` bytes: the count sent; -1 at once (errno = the stored error) when an earlier
// send failed on this connection; 0 for length <= 0. A transfer that breaks off returns the count
// so far, prints a line saying so and stores errno (22 if errno was 0) as the sendError.
// Interrupted sends are retried; never raises SIGPIPE.
int32_t send_all(NetConnection *conn, const void *data, int32_t length, int32_t flags);

// Receives exactly `length` bytes: `length`; 0 when the peer closed first (errno ECONNRESET) or
// length <= 0; -1 on an error. A signal that interrupts a receive fails it with EINTR.
int32_t receive_exact(NetConnection *conn, void *buffer, int32_t length, int32_t flags);

// Receives what the socket holds, up to `length` bytes, waiting for the first: the count; 0 when
// the peer closed (errno ECONNRESET) or length <= 0; -1 on an error. A signal fails it with EINTR.
int32_t receive_some(NetConnection *conn, void *buffer, int32_t length);

// Closes the socket once and clears both sticky errors; a second close does nothing. From another
// thread it first shuts the socket down, which ends a transfer waiting there.
void close_connection(NetConnection *conn) noexcept;

// A connection that the library opens for itself and that no caller ever sees (the event
// connection of a scan): made like open_connection's, but handed out bare. Null on failure, also
// when no memory could be had for it. Give it back with destroy_private_connection.
NetConnection *open_private_connection(const char *address, uint32_t port);
void destroy_private_connection(NetConnection *conn) noexcept;

}  // namespace wrenlink::agent
