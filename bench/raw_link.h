// What the raw baselines and the bench's own servers speak with: plain loopback sockets and exact
// transfers. Packets go through the library's codec (base/packet.h), so that a raw client frames
// and parses them exactly as the library does; what it measures is a hand-written client's own
// loops.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "base/packet.h"
#include "base/unique_fd.h"

namespace wrenlink::bench {

// A connection to 127.0.0.1:port with the socket options that the library sets on its own
// connections (no delay, the large receive buffer, keep-alive). Empty on failure.
UniqueFd connect_loopback(uint16_t port);
// A socket listening on 127.0.0.1:port (0: a free port). Empty on failure, with errno set.
UniqueFd listen_loopback(uint16_t port);
uint16_t port_of(int listener);
UniqueFd accept_one(int listener);

// Exact transfers; false when the peer closed or a call failed first. Sends never raise SIGPIPE.
// With `more`, the bytes wait for the next send where the platform allows (MSG_MORE).
bool send_all(int fd, const void *data, std::size_t n, bool more = false);
inline bool send_all(int fd, std::string_view bytes) { return send_all(fd, bytes.data(), bytes.size()); }
bool recv_exact(int fd, void *to, std::size_t n);

// The 36 bytes of a read or write request: header with `length`, then id, offset and count.
constexpr std::size_t kFileRequestSize = wire::kHeaderSize + 16;
void file_request(unsigned char (&out)[kFileRequestSize], uint32_t opcode, uint32_t length, uint32_t id,
                  int64_t offset, int32_t count);

// Receives a header and checks its magic; false on a short header or a wrong magic.
bool recv_header(int fd, wire::PacketHeader &header);

// Opens a file on the agent over a raw connection: the remote id, or 0 on any failure.
uint32_t raw_open(int fd, const std::string &path, const std::string &mode);

}  // namespace wrenlink::bench
