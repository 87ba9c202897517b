// What the scan, media and file families share when they talk to the agent: reading a reply
// header and payload, the error value of a failed transfer, and the request of the media and scan
// families (which differ only in whether a failed transfer sticks).
#pragma once

#include <cerrno>
#include <cstdint>
#include <string>

#include "Wrenlink/Wrenlink.h"
#include "agent/link/connection.h"
#include "base/malloc_block.h"
#include "base/packet.h"

namespace wrenlink::agent {

// errno after a failed send or receive. send_all and receive_exact always leave a reason
// (ECONNRESET for a closed stream), but a failed exchange must never read as success, so EIO
// stands in should errno hold 0.
inline int failure_errno() noexcept { return errno != 0 ? errno : EIO; }

// One 20-byte reply header. False when it did not arrive whole.
bool receive_header(NetConnection *conn, wire::PacketHeader &header);

// A reply payload in one malloc block of exactly `size` bytes (no block when `size` is 0).
struct Payload {
    MallocBlock<unsigned char> bytes;
    uint32_t size = 0;
    const unsigned char *data() const noexcept { return bytes.get(); }
};

// Receives the `length` payload bytes that a reply header announced. Returns 0;
// AgentShortPayload when the stream ended first, or at once for a length of 2^31 or more (a
// negative count to receive_exact, which reads nothing); or ENOMEM when no block could be had,
// after the payload was read and dropped so that the stream stays in step (AgentShortPayload if
// the stream ended during the drop).
AgentStatus receive_payload(NetConnection *conn, uint32_t length, Payload &out);

// Reads and drops `length` bytes in pieces; false when the stream ends first.
bool drop_bytes(NetConnection *conn, uint64_t length);

// Whether a failed send or header receive stores its errno in the connection's sendError.
enum class SendErrorRule { Untouched, Stored };

// The request of the media and scan families: gate on sendError, send the packet, read the reply
// header and test its magic. Returns 0 with the header in `reply`, or the result to give back.
AgentStatus control_request(NetConnection *conn, const std::string &packet, wire::PacketHeader &reply,
                            SendErrorRule rule);

}  // namespace wrenlink::agent
