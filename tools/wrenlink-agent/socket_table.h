// The kernel's tables of TCP sockets (/proc/net/tcp and /proc/net/tcp6), read for the owner of one
// socket: on loopback TCP the peer's uid does not come with a connection, but the peer's own
// socket is a row of these tables, with its uid.
#pragma once

#include <sys/socket.h>

#include <array>
#include <cstdint>
#include <optional>
#include <string_view>

namespace wrenlink::reference_agent {

// An address and port as the tables name them: IPv6, with an IPv4 address in its v4-mapped form
// (::ffff:a.b.c.d), so that a row of either table compares alike.
struct SocketAddress {
    std::array<unsigned char, 16> ip{};
    uint16_t port = 0;
    bool operator==(const SocketAddress &) const = default;
};

// The address of an AF_INET or AF_INET6 socket address; nullopt for any other family.
std::optional<SocketAddress> socket_address(const sockaddr_storage &address);

// The uid of the socket whose row has these local and remote addresses, in the text of either
// table. Only a socket that a process still holds counts (its inode is not 0): the rows of a
// connection that its owner already closed (time-wait) and of one not yet accepted carry uid 0
// whoever made them. nullopt when no such row is found.
std::optional<uint32_t> socket_owner(std::string_view table, const SocketAddress &local, const SocketAddress &remote);

}  // namespace wrenlink::reference_agent
