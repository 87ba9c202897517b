// Socket transfers and the packets the agent sends: replies on a control connection and events on
// the event connection. Every integer goes out little-endian through the codec of the library.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "base/unique_fd.h"
#include "base/wire.h"

namespace wrenlink::reference_agent {

// Reads exactly n bytes; false when the peer closed or a receive failed first.
bool read_exact(int fd, void *buffer, std::size_t n);
// Sends all n bytes; false when a send failed (never raises SIGPIPE).
bool send_all(int fd, const void *data, std::size_t n);
inline bool send_all(int fd, std::string_view bytes) { return send_all(fd, bytes.data(), bytes.size()); }

// A listening TCP socket on a dotted IPv4 address (port 0: the system picks one). Empty, with
// `error` set, on failure.
UniqueFd listen_tcp(const std::string &address, uint16_t port, int backlog, int &error);
// The port a socket is bound to.
uint16_t local_port(int fd);
// accept(2), with the new descriptor close-on-exec; empty on failure.
UniqueFd accept_connection(int listener);
// Sends what it can without blocking; the count sent, 0 when the socket is full, -1 on failure.
long send_some(int fd, const void *data, std::size_t n);

// Whether the payload's CRC goes in the header. Read replies leave it 0: the library never checks
// it there, and it would cost a pass over every byte served.
enum class Crc { Payload, Zero };

// A header with the right magic, `length` = payload size, then the payload.
std::string packet(uint32_t opcode, uint32_t status, std::string_view payload, Crc crc = Crc::Payload);

// Payload helpers.
void put_u32(std::string &out, uint32_t v);
void put_u64(std::string &out, uint64_t v);
// The text and its terminating NUL.
void put_text(std::string &out, std::string_view text);

// The scan's events.
std::string progress_event(int64_t done, int64_t total);
std::string code_event(uint32_t code);
// The text and its NUL; the caller keeps the text under 2048 bytes.
std::string found_item_event(std::string_view text);

}  // namespace wrenlink::reference_agent
