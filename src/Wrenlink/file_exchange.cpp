#include "Wrenlink/file_exchange.h"

#include <climits>

#include "Wrenlink/crc.h"

namespace wrenlink::nfc {

Step send_request(NetConnection *conn, const void *bytes, int32_t size) {
    // Only a negative result (sendError set on entry) ends here; a send that broke off half way
    // has set sendError and left the header receive to fail.
    if (NetConnectionSend(conn, bytes, size, 0) < 0) return transfer_failed();
    return std::nullopt;
}

Step receive_reply_header(NetConnection *conn, wire::PacketHeader &header) {
    if (!agent::receive_header(conn, header)) return transfer_failed();
    if (header.magic != wire::kMagic) return out_of_step(AgentBadMagic);
    return std::nullopt;
}

Step request(NetConnection *conn, const std::string &packet, wire::PacketHeader &header) {
    if (Step s = send_request(conn, packet)) return s;
    return receive_reply_header(conn, header);
}

Step drop_payload(NetConnection *conn, const wire::PacketHeader &header) {
    // A length of 2^31 or more counts as negative to NetConnectionRecv, which reads nothing.
    if (header.length > static_cast<uint32_t>(INT32_MAX) || !agent::drop_bytes(conn, header.length)) {
        return out_of_step(AgentShortPayload);
    }
    return std::nullopt;
}

Step receive_payload(NetConnection *conn, const wire::PacketHeader &header, agent::Payload &payload, Crc crc) {
    const AgentStatus r = agent::receive_payload(conn, header.length, payload);
    if (r == ENOMEM) return answered(ENOMEM);  // read and dropped: still in step
    if (r != 0) return out_of_step(r);
    if (crc == Crc::Verified && get_crc32(payload.data(), payload.size, 0) != header.crc) {
        return out_of_step(AgentBadCrc);
    }
    return std::nullopt;
}

}  // namespace wrenlink::nfc
