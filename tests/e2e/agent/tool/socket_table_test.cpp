// The agent's reading of the kernel's TCP socket tables, on rows captured from /proc/net/tcp and
// /proc/net/tcp6 of a little-endian machine: a listener on 127.0.0.1:49501 (C15D), a client of
// root from port 57860 (E204), one of uid 65534 from 57870 (E20E), and one of root through an
// IPv6 socket from 57866 (E20A).
#include <arpa/inet.h>
#include <gtest/gtest.h>

#include <cstring>
#include <optional>

#include "socket_table.h"

namespace wrenlink::reference_agent {
namespace {

constexpr const char *kTcp =
    "  sl  local_address rem_address   st tx_queue rx_queue tr tm->when retrnsmt   uid  timeout inode\n"
    "   1: 0100007F:C15D 00000000:0000 0A 00000000:00000001 00:00000000 00000000     0        0 78085 2 0000000086cbc88d 100 0 0 10 0\n"
    "   2: 0100007F:C15D 0100007F:E20E 01 00000000:00000000 00:00000000 00000000     0        0 0 1 0000000094f597a2 20 0 0 10 -1\n"
    "   3: 0100007F:C15D 0100007F:E204 01 00000000:00000000 00:00000000 00000000     0        0 78088 1 00000000586ac6b9 20 0 0 10 -1\n"
    "   5: 0100007F:E204 0100007F:C15D 01 00000000:00000000 00:00000000 00000000     0        0 78086 2 00000000ca1cb8be 20 0 0 10 -1\n"
    "   6: 0100007F:E20E 0100007F:C15D 01 00000000:00000000 00:00000000 00000000 65534        0 78090 2 000000009e45d0b0 20 0 0 10 -1\n"
    // A client of uid 1000 that already closed: its time-wait row shows uid 0 and no inode.
    "   7: 0100007F:E210 0100007F:C15D 06 00000000:00000000 03:00001770 00000000     0        0 0 3 0000000000000000\n";

constexpr const char *kTcp6 =
    "  sl  local_address                         remote_address                        st tx_queue rx_queue tr tm->when retrnsmt   uid  timeout inode\n"
    "   0: 0000000000000000FFFF00000100007F:E20A 0000000000000000FFFF00000100007F:C15D 01 00000000:00000000 00:00000000 00000000     0        0 78087 2 00000000f2d293ee 20 0 0 10 -1\n"
    "   1: 00000000000000000000000001000000:E212 00000000000000000000000001000000:1F90 01 00000000:00000000 00:00000000 00000000  1000        0 78091 2 0000000011111111 20 0 0 10 -1\n";

// 127.0.0.1:port as an accepted socket reports it.
SocketAddress loopback(uint16_t port) {
    sockaddr_storage storage{};
    sockaddr_in in{};
    in.sin_family = AF_INET;
    in.sin_port = htons(port);
    in.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    std::memcpy(&storage, &in, sizeof in);
    return *socket_address(storage);
}

SocketAddress ipv6_loopback(uint16_t port) {
    sockaddr_storage storage{};
    sockaddr_in6 in6{};
    in6.sin6_family = AF_INET6;
    in6.sin6_port = htons(port);
    in6.sin6_addr = in6addr_loopback;
    std::memcpy(&storage, &in6, sizeof in6);
    return *socket_address(storage);
}

TEST(SocketTable, FindsThePeersOwnRowAndNoOther) {
    const SocketAddress listener = loopback(49501);
    struct Case {
        const char *what;
        const char *table;
        SocketAddress peer, local;
        std::optional<uint32_t> owner;
    } cases[] = {
        {"uid 65534's client", kTcp, loopback(57870), listener, 65534u},
        {"root's client", kTcp, loopback(57860), listener, 0u},
        {"an IPv6 client, in tcp6 with v4-mapped addresses", kTcp6, loopback(57866), listener, 0u},
        {"an IPv6 loopback client", kTcp6, ipv6_loopback(57874), ipv6_loopback(8080), 1000u},
        {"not in tcp: it is an IPv6 socket", kTcp, loopback(57866), listener, std::nullopt},
        {"the listener's side of a connection is not the peer's", kTcp, listener, loopback(57870), std::nullopt},
        {"a closed client's time-wait row", kTcp, loopback(57872), listener, std::nullopt},
        {"no such port", kTcp, loopback(1), listener, std::nullopt},
        {"another listener", kTcp, loopback(57870), loopback(49502), std::nullopt},
        {"an empty table", "", loopback(57870), listener, std::nullopt},
        {"a torn line", "   6: 0100007F:E20E 0100007F:C15D 01 00000000:00000000", loopback(57870), listener, std::nullopt},
    };
    for (const Case &c : cases) EXPECT_EQ(socket_owner(c.table, c.peer, c.local), c.owner) << c.what;
}

}  // namespace
}  // namespace wrenlink::reference_agent
