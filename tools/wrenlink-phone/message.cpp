#include "message.h"

#include <cstdio>

#include "base/wire.h"

namespace phone {

using wrenlink::wire::load_u32;
using wrenlink::wire::store_u32;

uint32_t payload_sum(std::string_view payload) noexcept {
    uint32_t sum = 0;
    for (const char c : payload) sum += static_cast<unsigned char>(c);
    return sum;
}

void encode_header(unsigned char (&out)[kHeaderSize], uint32_t command, uint32_t arg0, uint32_t arg1,
                   std::string_view payload, bool with_sum) noexcept {
    store_u32(out + 0, command);
    store_u32(out + 4, arg0);
    store_u32(out + 8, arg1);
    store_u32(out + 12, static_cast<uint32_t>(payload.size()));
    store_u32(out + 16, with_sum ? payload_sum(payload) : 0);
    store_u32(out + 20, command ^ 0xFFFFFFFFu);
}

std::optional<Header> decode_header(const unsigned char (&bytes)[kHeaderSize]) noexcept {
    Header h;
    h.command = load_u32(bytes + 0);
    h.arg0 = load_u32(bytes + 4);
    h.arg1 = load_u32(bytes + 8);
    h.length = load_u32(bytes + 12);
    h.checksum = load_u32(bytes + 16);
    h.magic = load_u32(bytes + 20);
    if (h.magic != (h.command ^ 0xFFFFFFFFu) || h.length > kAcceptedMaxPayload) return std::nullopt;
    return h;
}

std::string command_name(uint32_t command) {
    std::string name;
    for (int shift = 0; shift < 32; shift += 8) {
        const auto c = static_cast<char>(command >> shift);
        if (c < 'A' || c > 'Z') {
            char hex[16];
            std::snprintf(hex, sizeof hex, "0x%08x", command);
            return hex;
        }
        name += c;
    }
    return name;
}

}  // namespace phone
