#include <cstring>

#include "Wrenlink/NetConnection.h"
#include "Wrenlink/packets.h"

extern "C" int32_t TestPing(NetConnection *conn) {
    static const unsigned char kPong[4] = {0x00, 0x00, 0x00, 0x01};
    std::string ping;
    try {
        ping = make_ping_packet();
    } catch (...) {
        return -2;
    }
    if (NetConnectionSend(conn, ping.data(), static_cast<int32_t>(ping.size()), 0) < 0) return -2;
    unsigned char reply[4] = {};
    if (NetConnectionRecv(conn, reply, sizeof reply, 0) < 0) return -3;
    return std::memcmp(reply, kPong, sizeof kPong) == 0 ? 0 : -4;
}
