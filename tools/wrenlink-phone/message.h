// The framing of adb's transport between the host's server and a phone: a 24-byte little-endian
// header (command, two arguments, payload length, payload byte sum, command ^ 0xffffffff) and then
// the payload.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace phone {

constexpr uint32_t command_word(const char (&name)[5]) {
    return static_cast<uint32_t>(static_cast<unsigned char>(name[0])) |
           static_cast<uint32_t>(static_cast<unsigned char>(name[1])) << 8 |
           static_cast<uint32_t>(static_cast<unsigned char>(name[2])) << 16 |
           static_cast<uint32_t>(static_cast<unsigned char>(name[3])) << 24;
}

constexpr uint32_t kConnect = command_word("CNXN");
constexpr uint32_t kAuth = command_word("AUTH");
constexpr uint32_t kOpen = command_word("OPEN");
constexpr uint32_t kOkay = command_word("OKAY");
constexpr uint32_t kWrite = command_word("WRTE");
constexpr uint32_t kClose = command_word("CLSE");

// Version 0x01000001 lets both sides leave the payload sum unchecked (and 0); older servers still
// check it, so with them we fill it in and check theirs.
constexpr uint32_t kVersionChecksummed = 0x01000000;
constexpr uint32_t kVersion = 0x01000001;
constexpr std::size_t kHeaderSize = 24;

// What we advertise as our largest payload (a phone's daemon of this protocol version offers 1 MiB,
// and every message waits for its OKAY, so larger messages mean fewer round trips), and the most we
// accept from a server at all (servers of this version split at the smaller of their own limit and
// ours; a larger length means a broken peer, and the connection is dropped rather than a buffer
// grown to its wish).
constexpr uint32_t kOwnMaxPayload = 1024 * 1024;
constexpr uint32_t kAcceptedMaxPayload = 1024 * 1024;

struct Header {
    uint32_t command = 0;
    uint32_t arg0 = 0;
    uint32_t arg1 = 0;
    uint32_t length = 0;
    uint32_t checksum = 0;
    uint32_t magic = 0;
};

struct Message {
    uint32_t command = 0;
    uint32_t arg0 = 0;
    uint32_t arg1 = 0;
    std::string payload;
};

uint32_t payload_sum(std::string_view payload) noexcept;

// The header of a message with this payload, as it goes on the wire before the payload; the payload
// sum is left 0 unless `with_sum`.
void encode_header(unsigned char (&out)[kHeaderSize], uint32_t command, uint32_t arg0, uint32_t arg1,
                   std::string_view payload, bool with_sum) noexcept;

// Reads a header; nullopt when the magic does not match the command or the length is beyond what we
// accept. The payload is checked separately, once it is in.
std::optional<Header> decode_header(const unsigned char (&bytes)[kHeaderSize]) noexcept;

// A short printable name for logs: "OPEN", or the hex value of an unknown command.
std::string command_name(uint32_t command);

}  // namespace phone
