// The connection record behind the opaque NetConnection handle.
#pragma once

#include <cstdint>
#include <mutex>

#include "Wrenlink/Wrenlink.h"

struct NetConnection {
    int sock = -1;       // -1 once closed: a stale handle fails with EBADF, never reaches a reused number
    int fileError = 0;   // sticky error of the remote file and path operations
    int sendError = 0;   // sticky error of NetConnectionSend, the media and the scan operations
    char peerAddress[32] = {};
    uint16_t peerPort = 0;
    std::mutex mutex;    // one whole remote file exchange
};

namespace wrenlink {

// A connection that the library opens for itself and that no caller ever sees (the event
// connection of a scan): made like NetConnectionOpen's, but not kept for the life of the process.
// Null on failure. Give it back with destroy_private_connection.
NetConnection *open_private_connection(const char *address, uint32_t port);

// Closes and frees a record made by open_private_connection. Records handed to callers are never
// freed.
void destroy_private_connection(NetConnection *conn) noexcept;

}  // namespace wrenlink
