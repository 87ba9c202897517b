// The connection record behind the opaque NetConnection handle.
#pragma once

#include <atomic>
#include <cstdint>
#include <mutex>

#include "Wrenlink/Wrenlink.h"

// A close may come from another thread while a transfer waits in the socket (the way out of a call
// on a silent agent): the socket number and the sticky errors are therefore read and written
// atomically (wrenlink::load_field, store_field), and the close itself goes through `users`.
struct NetConnection {
    int sock = -1;       // -1 once closed: a stale handle fails with EBADF, never reaches a reused number
    int fileError = 0;   // sticky error of the remote file and path operations
    int sendError = 0;   // sticky error of NetConnectionSend, the media and the scan operations
    char peerAddress[32] = {};
    uint16_t peerPort = 0;
    std::mutex mutex;    // one whole remote file exchange
    // Sends and receives inside the socket, and a bit for a close that has come. A close shuts
    // the socket down, which ends the transfers inside, and leaves the descriptor in `closeLeft`
    // for the last of them to close: its number is never reused under a running transfer.
    std::atomic<uint32_t> users{0};
    std::atomic<int> closeLeft{-1};
};

namespace wrenlink {

inline int load_field(const int &field) noexcept { return __atomic_load_n(&field, __ATOMIC_RELAXED); }
inline void store_field(int &field, int value) noexcept { __atomic_store_n(&field, value, __ATOMIC_RELAXED); }

// A connection that the library opens for itself and that no caller ever sees (the event
// connection of a scan): made like NetConnectionOpen's, but not kept for the life of the process.
// Null on failure. Give it back with destroy_private_connection.
NetConnection *open_private_connection(const char *address, uint32_t port);

// Closes and frees a record made by open_private_connection. Records handed to callers are never
// freed.
void destroy_private_connection(NetConnection *conn) noexcept;

}  // namespace wrenlink
