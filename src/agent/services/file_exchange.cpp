#include "agent/services/file_exchange.h"

namespace wrenlink::agent::nfc {

Step step(Took took) {
    switch (took) {
    case Took::Whole: return std::nullopt;
    case Took::Broken: return transfer_failed();
    case Took::BadMagic: return out_of_step(AgentBadMagic);
    case Took::Short: return out_of_step(AgentShortPayload);
    case Took::BadCrc: return out_of_step(AgentBadCrc);
    case Took::NoMemory: return answered(ENOMEM);  // read and dropped: still in step
    case Took::TooLong: return answered(EMSGSIZE);
    }
    return out_of_step(AgentShortPayload);
}

Step send_request(ReplyReader &reply, const void *bytes, int32_t size) {
    // Only a negative result (sendError set on entry) ends here; a send that broke off half way
    // has set sendError and left the header receive to fail.
    if (reply.send(bytes, size) < 0) return transfer_failed();
    return std::nullopt;
}

Step request(ReplyReader &reply, const std::string &packet, wire::PacketHeader &header) {
    if (Step s = send_request(reply, packet.data(), static_cast<int32_t>(packet.size()))) return s;
    return step(reply.take_header(header));
}

}  // namespace wrenlink::agent::nfc
