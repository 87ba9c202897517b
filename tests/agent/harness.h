// Running the reference agent for a test: a served tree in a temporary directory, an agent
// in-process on an ephemeral control port, and one request/reply exchange through the library's
// own connection and packet builders.
#pragma once

#include <filesystem>
#include <string>
#include <thread>

#include "agent/link/connection.h"
#include "base/wire.h"
#include "doubles/temp_tree.h"
#include "server.h"

namespace wrenlink::test {

class InProcessAgent {
public:
    explicit InProcessAgent(const std::filesystem::path &root, reference_agent::ScanOptions scan = {});
    ~InProcessAgent();
    uint16_t port() const { return agent_.port(); }
    // A new control connection; fails the test when it cannot be opened.
    NetConnection *connect() const;

private:
    reference_agent::Agent agent_;
    std::thread thread_;
};

struct AgentReply {
    wire::PacketHeader header;
    std::string payload;
    bool complete = false;  // header and payload arrived whole
};

// Sends the packet and reads one framed reply (header and `length` bytes).
AgentReply roundtrip(NetConnection *conn, const std::string &packet);
// Reads one framed packet.
AgentReply receive_packet(NetConnection *conn);
// True when the agent has closed the connection (a receive ends at once with nothing).
bool peer_closed(NetConnection *conn);

}  // namespace wrenlink::test
