// Running the reference agent for a test: a served tree in a temporary directory, an agent
// in-process on an ephemeral control port, and one request/reply exchange through the library's
// own connection and packet builders.
#pragma once

#include <filesystem>
#include <string>
#include <thread>

#include "Wrenlink/NetConnection.h"
#include "Wrenlink/wire.h"
#include "server.h"

namespace wrenlink::test {

// A directory under the system's temporary directory, removed with everything in it.
class TempTree {
public:
    TempTree();
    ~TempTree();
    TempTree(const TempTree &) = delete;
    TempTree &operator=(const TempTree &) = delete;

    const std::filesystem::path &root() const { return root_; }
    std::filesystem::path host(const std::string &relative) const { return root_ / relative; }
    // Writes a file (making its directories).
    void write(const std::string &relative, const std::string &content) const;
    std::string read(const std::string &relative) const;
    bool exists(const std::string &relative) const;

private:
    std::filesystem::path root_;
};

class InProcessAgent {
public:
    explicit InProcessAgent(const std::filesystem::path &root, agent::ScanOptions scan = {});
    ~InProcessAgent();
    uint16_t port() const { return agent_.port(); }
    // A new control connection; fails the test when it cannot be opened.
    NetConnection *connect() const;

private:
    agent::Agent agent_;
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
