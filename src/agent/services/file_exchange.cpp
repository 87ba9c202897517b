#include "agent/services/file_exchange.h"

#include <algorithm>
#include <climits>
#include <cstring>

#include "base/crc.h"

namespace wrenlink::agent::nfc {

Step send_request(NetConnection *conn, const void *bytes, int32_t size) {
    // Only a negative result (sendError set on entry) ends here; a send that broke off half way
    // has set sendError and left the header receive to fail.
    if (send_all(conn, bytes, size, 0) < 0) return transfer_failed();
    return std::nullopt;
}

Step receive_reply_header(NetConnection *conn, wire::PacketHeader &header) {
    if (!receive_header(conn, header)) return transfer_failed();
    if (header.magic != wire::kMagic) return out_of_step(AgentBadMagic);
    return std::nullopt;
}

Step request(NetConnection *conn, const std::string &packet, wire::PacketHeader &header) {
    if (Step s = send_request(conn, packet)) return s;
    return receive_reply_header(conn, header);
}

Step drop_payload(NetConnection *conn, const wire::PacketHeader &header) {
    // A length of 2^31 or more counts as negative to receive_exact, which reads nothing.
    if (header.length > static_cast<uint32_t>(INT32_MAX) || !drop_bytes(conn, header.length)) {
        return out_of_step(AgentShortPayload);
    }
    return std::nullopt;
}

Step receive_payload(NetConnection *conn, const wire::PacketHeader &header, Payload &payload) {
    const AgentStatus r = agent::receive_payload(conn, header.length, payload);
    if (r == ENOMEM) return answered(ENOMEM);  // read and dropped: still in step
    if (r != 0) return out_of_step(r);
    return std::nullopt;
}

Step receive_verified_head(NetConnection *conn, const wire::PacketHeader &header, PayloadHead &head) {
    // A length of 2^31 or more counts as negative to receive_exact, which reads nothing.
    if (header.length > static_cast<uint32_t>(INT32_MAX)) return out_of_step(AgentShortPayload);
    unsigned char piece[16 * 1024];
    uint32_t crc = 0;  // the CRC has no final inversion, so it goes on from piece to piece
    for (uint32_t done = 0; done < header.length;) {
        const auto n = static_cast<int32_t>(std::min<uint32_t>(header.length - done, sizeof piece));
        if (receive_exact(conn, piece, n, 0) != n) return out_of_step(AgentShortPayload);
        crc = get_crc32(piece, static_cast<uint32_t>(n), crc);
        if (done < sizeof head.bytes) {
            std::memcpy(head.bytes + done, piece, std::min<std::size_t>(sizeof head.bytes - done, static_cast<std::size_t>(n)));
        }
        done += static_cast<uint32_t>(n);
    }
    if (crc != header.crc) return out_of_step(AgentBadCrc);
    head.size = header.length;
    return std::nullopt;
}

}  // namespace wrenlink::agent::nfc
