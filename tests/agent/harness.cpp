#include "harness.h"

#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>


namespace wrenlink::test {

namespace fs = std::filesystem;

namespace {
reference_agent::AgentOptions options_for(const fs::path &root, reference_agent::ScanOptions scan) {
    reference_agent::AgentOptions o;
    o.root = root.string();
    o.port = 0;
    o.scan = std::move(scan);
    return o;
}
}  // namespace

InProcessAgent::InProcessAgent(const fs::path &root, reference_agent::ScanOptions scan)
    : agent_(options_for(root, std::move(scan))), thread_([this] { agent_.run(); }) {}

InProcessAgent::~InProcessAgent() {
    agent_.stop();
    thread_.join();
}

NetConnection *InProcessAgent::connect() const {
    NetConnection *c = NetConnectionOpen("127.0.0.1", port());
    EXPECT_NE(c, nullptr);
    return c;
}

AgentReply receive_packet(NetConnection *conn) {
    AgentReply r;
    unsigned char raw[wire::kHeaderSize];
    if (NetConnectionRecv(conn, raw, sizeof raw, 0) != static_cast<int32_t>(sizeof raw)) return r;
    r.header = wire::decode_header(raw);
    r.payload.assign(r.header.length, '\0');
    r.complete = NetConnectionRecv(conn, r.payload.data(), static_cast<int32_t>(r.header.length), 0) ==
                 static_cast<int32_t>(r.header.length);
    return r;
}

AgentReply roundtrip(NetConnection *conn, const std::string &packet) {
    if (NetConnectionSend(conn, packet.data(), static_cast<int32_t>(packet.size()), 0) !=
        static_cast<int32_t>(packet.size()))
        return {};
    return receive_packet(conn);
}

bool peer_closed(NetConnection *conn) {
    pollfd p{conn->sock, POLLIN, 0};
    if (::poll(&p, 1, 5000) <= 0) return false;
    char byte;
    return ::recv(conn->sock, &byte, 1, MSG_PEEK) == 0;
}

}  // namespace wrenlink::test
