// Socket transfers and the payloads the agent sends: replies on a control connection and events on
// the event connection. The packets themselves go through the library's codec (base/packet.h).
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "base/packet.h"
#include "base/unique_fd.h"

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

// Read replies leave the header's CRC 0 (wire::Crc::Zero): the library never checks it there, and
// it would cost a pass over every byte served. Every other reply carries it.
using wire::Crc;

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
