#include "agent/link/ping.h"

#include <cstring>
#include <string>

#include "agent/link/reply_reader.h"
#include "agent/wire/packets.h"

namespace wrenlink::agent {

// Kept: the answer compared as raw bytes, 00 00 00 01 (not the little-endian 1 of the rest of the
// protocol), and the results -2, -3 and -4 with no -1: agents send these bytes, callers test these
// values.
int32_t ping(NetConnection *conn) {
    static const unsigned char kPong[4] = {0x00, 0x00, 0x00, 0x01};
    ReplyReader reader(conn);
    if (reader.send(make_ping_packet()) < 0) return -2;
    unsigned char reply[4] = {};  // the answer has no header
    if (reader.take_unframed(reply, sizeof reply) == Took::Broken) return -3;
    return std::memcmp(reply, kPong, sizeof kPong) == 0 ? 0 : -4;
}

}  // namespace wrenlink::agent
