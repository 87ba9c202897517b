// The phones of the soak: one simulated phone process per phone (tools/wrenlink-phone), each with
// its own sandbox and port, and one reference agent per phone (tools/wrenlink-agent, the host
// build) serving the phone's /sdcard on abstract names of its own, which adb forwards reach
// through the phone. A phone process can be killed and started again on the same port and sandbox
// (an unplugged cable: the transport drops, the agent on the phone lives on), stopped and let go
// on (a phone that stalls); an agent can be killed and started again.
//
// Only the main thread starts and ends processes: a child is tied to the thread that started it
// (it gets SIGTERM when that thread ends), and the main thread lives for the whole run.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <mutex>
#include <string>
#include <vector>

#include "support/child_process.h"

namespace wrenlink::soak {

// `count` loopback ports that are free now, below the system's range of ephemeral ports: no
// connection of the machine takes one of them while its server or phone is away.
std::vector<uint16_t> free_low_ports(std::size_t count);

struct Phone {
    std::string serial;         // "127.0.0.1:PORT", the server's name for it
    uint16_t port = 0;          // where the phone listens
    uint16_t controlPort = 0;   // the computer's port forwarded to the agent's control socket
    std::string sandbox;        // the phone's "/"
    std::string storage;        // its /sdcard, the agent's root
    std::string controlName;    // the agent's abstract names
    std::string eventsName;
};

class Farm {
public:
    // Lays out `count` phones under `scratch` (sandboxes and their trees, ports from
    // free_low_ports) and starts every phone and agent. False with the reason.
    bool start(std::size_t count, const std::string &scratch, std::string &error);
    ~Farm();

    std::size_t size() const { return phones_.size(); }
    // The private adb server's port, picked with the phones'.
    uint16_t server_port() const { return serverPort_; }
    const Phone &phone(std::size_t i) const { return phones_.at(i); }

    bool start_phone(std::size_t i);
    void kill_phone(std::size_t i);
    bool stall_phone(std::size_t i);
    void resume_phone(std::size_t i);
    bool start_agent(std::size_t i);
    void kill_agent(std::size_t i);

    bool phone_up(std::size_t i) const;
    bool phone_stalled(std::size_t i) const;
    bool agent_up(std::size_t i) const;

    // Phones and agents that ended without being killed, since the last look: each a crash,
    // named with its status. They are down from then on.
    std::vector<std::string> ended_by_themselves();

private:
    struct Processes {
        support::ChildProcess phone, agent;
        bool stalled = false;
    };

    std::string scratch_;
    uint16_t serverPort_ = 0;
    std::vector<Phone> phones_;
    std::vector<Processes> processes_;
    mutable std::mutex mutex_;
};

}  // namespace wrenlink::soak
