// The agent packet, written once for every side that speaks it: the library's requests, the
// reference agent's replies and events, the bench's raw client and the tests' scripted agent.
//
// A packet is a 20-byte header of five little-endian u32 fields (magic, length, opcode, crc,
// status) and `length` payload bytes. The CRC is the payload's (crc.h) or 0, as each request and
// reply has it; the status is 0 in requests and events.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "base/wire.h"

namespace wrenlink::wire {

constexpr uint32_t kMagic = 0xF0CF9CFCu;
constexpr std::size_t kHeaderSize = 20;

struct PacketHeader {
    uint32_t magic = 0;
    uint32_t length = 0;
    uint32_t opcode = 0;
    uint32_t crc = 0;
    uint32_t status = 0;
};

// Every field as given, the magic too: the explicit form, for the malformed headers of tests.
inline void encode_header(const PacketHeader &h, void *to) noexcept {
    auto *p = static_cast<unsigned char *>(to);
    store_u32(p + 0, h.magic);
    store_u32(p + 4, h.length);
    store_u32(p + 8, h.opcode);
    store_u32(p + 12, h.crc);
    store_u32(p + 16, h.status);
}
// The fields as they stand, whatever the magic.
inline PacketHeader decode_header(const void *from) noexcept {
    const auto *p = static_cast<const unsigned char *>(from);
    return PacketHeader{load_u32(p + 0), load_u32(p + 4), load_u32(p + 8), load_u32(p + 12), load_u32(p + 16)};
}
// The fields of a received header; false when its magic is wrong.
inline bool read_header(const void *from, PacketHeader &h) noexcept {
    h = decode_header(from);
    return h.magic == kMagic;
}

// The payload's CRC, taken as the bytes come: it has no final inversion, so it goes on from
// piece to piece.
class PayloadCrc {
public:
    void add(const void *data, std::size_t n) noexcept;
    uint32_t value() const noexcept { return value_; }

private:
    uint32_t value_ = 0;
};
uint32_t payload_crc(std::string_view payload) noexcept;

// Whether the header carries the payload's CRC or 0.
enum class Crc { OverPayload, Zero };

// A header with the right magic, into 20 bytes at `to`: for a payload of `length` bytes that the
// caller sends from memory of its own.
inline void put_header(void *to, uint32_t opcode, uint32_t length, uint32_t crc = 0, uint32_t status = 0) noexcept {
    encode_header({kMagic, length, opcode, crc, status}, to);
}
// The same header as a byte string, to which the caller may append the payload's first part.
std::string packet_header(uint32_t opcode, uint32_t length, uint32_t crc = 0, uint32_t status = 0);
// A whole packet: the header (length = payload size, CRC as `crc` says) and the payload.
std::string packet(uint32_t opcode, std::string_view payload, Crc crc, uint32_t status = 0);
// Every header field as given (a wrong magic, CRC or length on purpose), then the payload.
std::string packet_as_given(const PacketHeader &h, std::string_view payload = {});

}  // namespace wrenlink::wire
