#include "base/packet.h"

#include "base/crc.h"

namespace wrenlink::wire {

void PayloadCrc::add(const void *data, std::size_t n) noexcept {
    const auto *p = static_cast<const unsigned char *>(data);
    // get_crc32 counts in u32; a piece beyond that goes in parts.
    for (std::size_t part = 0; n > 0; p += part, n -= part) {
        part = n < 0x80000000u ? n : 0x80000000u;
        value_ = get_crc32(p, static_cast<uint32_t>(part), value_);
    }
}

uint32_t payload_crc(std::string_view payload) noexcept {
    PayloadCrc crc;
    crc.add(payload.data(), payload.size());
    return crc.value();
}

std::string packet_header(uint32_t opcode, uint32_t length, uint32_t crc, uint32_t status) {
    std::string out(kHeaderSize, '\0');
    put_header(out.data(), opcode, length, crc, status);
    return out;
}

std::string packet(uint32_t opcode, std::string_view payload, Crc crc, uint32_t status) {
    return packet_as_given(
        {kMagic, static_cast<uint32_t>(payload.size()), opcode, crc == Crc::OverPayload ? payload_crc(payload) : 0, status},
        payload);
}

std::string packet_as_given(const PacketHeader &h, std::string_view payload) {
    std::string out(kHeaderSize + payload.size(), '\0');
    encode_header(h, out.data());
    payload.copy(out.data() + kHeaderSize, payload.size());
    return out;
}

}  // namespace wrenlink::wire
