// The agent: a listener for control connections, a thread per connection, and the services they
// share (the served tree, the media catalogue and the scan).
#pragma once

#include <cstdint>
#include <list>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

#include "base/unique_fd.h"
#include "catalogue.h"
#include "endpoint.h"
#include "log.h"
#include "sandbox.h"
#include "scanner.h"
#include "session.h"

namespace wrenlink::reference_agent {

struct AgentOptions {
    std::string root;
    // A loopback TCP port (0: the system picks one; port() tells which) or an abstract name.
    Endpoint control = Endpoint::tcp("127.0.0.1", 10243);
    bool verbose = false;
    ScanOptions scan;
    std::size_t max_connections = 64;
};

class Agent {
public:
    // Binds the control port or name. Throws std::system_error when the root, the port or the name
    // can't be had.
    explicit Agent(AgentOptions options);
    ~Agent();
    Agent(const Agent &) = delete;
    Agent &operator=(const Agent &) = delete;

    // The control port; 0 on an abstract socket.
    uint16_t port() const { return port_; }
    // Where control connections are taken: "127.0.0.1:10243" or "localabstract:NAME".
    std::string listening_on() const;
    // Accepts and serves connections until stop(); then ends every connection and the scan.
    void run();
    // Makes run() return; safe from any thread.
    void stop();

private:
    struct Connection {
        std::unique_ptr<Session> session;
        std::thread thread;
    };
    void accept_one();
    void reap_finished();
    void end_all();

    AgentOptions options_;
    Log log_;
    Sandbox sandbox_;
    Catalogue catalogue_;
    Scanner scanner_;
    UniqueFd listener_;
    uint16_t port_ = 0;
    UniqueFd wake_read_, wake_write_;
    std::list<Connection> connections_;
    int next_number_ = 1;
};

}  // namespace wrenlink::reference_agent
