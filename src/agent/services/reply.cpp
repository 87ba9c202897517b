#include "agent/services/reply.h"

#include <algorithm>
#include <climits>
#include <cstdlib>

namespace wrenlink::agent {

bool receive_header(NetConnection *conn, wire::PacketHeader &header) {
    unsigned char raw[wire::kHeaderSize] = {};
    if (receive_exact(conn, raw, sizeof raw, 0) != static_cast<int32_t>(sizeof raw)) return false;
    header = wire::decode_header(raw);
    return true;
}

bool drop_bytes(NetConnection *conn, uint64_t length) {
    unsigned char piece[16 * 1024];
    while (length > 0) {
        const auto n = static_cast<int32_t>(std::min<uint64_t>(length, sizeof piece));
        if (receive_exact(conn, piece, n, 0) != n) return false;
        length -= static_cast<uint64_t>(n);
    }
    return true;
}

AgentStatus receive_payload(NetConnection *conn, uint32_t length, Payload &out) {
    out = Payload{};
    if (length == 0) return 0;
    if (length > static_cast<uint32_t>(INT32_MAX)) return AgentShortPayload;
    out.bytes.reset(static_cast<unsigned char *>(std::malloc(length)));
    if (!out.bytes) return drop_bytes(conn, length) ? ENOMEM : AgentShortPayload;
    if (receive_exact(conn, out.bytes.get(), static_cast<int32_t>(length), 0) != static_cast<int32_t>(length)) {
        out = Payload{};
        return AgentShortPayload;
    }
    out.size = length;
    return 0;
}

AgentStatus control_request(NetConnection *conn, const std::string &packet, wire::PacketHeader &reply,
                            SendErrorRule rule) {
    if (const int stored = load_field(conn->sendError)) return static_cast<AgentStatus>(stored);
    auto failed = [&] {
        const int err = failure_errno();
        if (rule == SendErrorRule::Stored) store_field(conn->sendError, err);
        return static_cast<AgentStatus>(err);
    };
    if (send_all(conn, packet.data(), static_cast<int32_t>(packet.size()), 0) < 0) return failed();
    if (!receive_header(conn, reply)) return failed();
    if (reply.magic != wire::kMagic) return AgentBadMagic;
    return 0;
}

}  // namespace wrenlink::agent
