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

// Closes and frees a record that the library itself opened and that no caller ever saw (the event
// connection of a scan). Records handed to callers are never freed.
void destroy_private_connection(NetConnection *conn) noexcept;

}  // namespace wrenlink
