// Installing the reference agent (wrenlink-agent) on a phone, and taking it away again, through
// the library's exported calls alone: what an application does before the agent half has a peer.
//
//   AgentInstall install({.serial = "", .agents_dir = ""}, [](const std::string &line) { log(line); });
//   if (!install.install()) show(install.error());      // what was set up is taken down again
//   ... use install.connection() ...
//   if (!install.remove()) show(install.error());       // the destructor removes too, silently
//
// The steps: pick the phone (AdbGetPhoneList); read its processor (`getprop ro.product.cpu.abi`,
// then ro.product.cpu.abilist) and pick the build made for it; push it to
// /data/local/tmp/wrenlink-agent and check its size there; make it executable and start it
// detached, listening on the abstract sockets wrenlink-agent (requests) and wrenlink-events (scan
// events); forward the computer's ports to them; connect and ping until it answers. An agent that
// an earlier run left running is stopped and started again. remove() closes the connection, stops
// the agent and removes the two forwards. The pushed file stays on the phone.
//
// Blocking: every step runs adb and waits for it; install() takes about a second on a phone that
// answers, and up to start_seconds more for an agent that does not. Not thread-safe: one thread
// uses one AgentInstall.
#pragma once

#include <Wrenlink/Wrenlink.h>

#include <cstdint>
#include <functional>
#include <string>

namespace wrenlink_example {

struct AgentInstallSettings {
    std::string serial;             // the phone; empty: the first authorised one
    std::string agents_dir;         // holds <abi>/wrenlink-agent; empty: default_agents_dir()
    uint32_t control_port = 10243;  // the computer's end of the requests' forward
    int start_seconds = 10;         // how long a started agent may take to answer a ping
};

// Where an installed application finds the phone builds: share/wrenlink/phone-agents beside the
// folder of the running executable (<prefix>/bin/../share/...). Empty where that can't be known.
std::string default_agents_dir();

// The phone path of the agent, and the abstract socket names it listens on there.
inline constexpr const char *kAgentPhonePath = "/data/local/tmp/wrenlink-agent";
inline constexpr const char *kAgentControlName = "wrenlink-agent";
inline constexpr const char *kAgentEventsName = "wrenlink-events";
// The library takes a scan's events at this port of the computer, always.
inline constexpr uint32_t kEventPort = 10244;

class AgentInstall {
public:
    using Report = std::function<void(const std::string &line)>;

    explicit AgentInstall(AgentInstallSettings settings, Report report = {});
    AgentInstall(const AgentInstall &) = delete;
    AgentInstall &operator=(const AgentInstall &) = delete;
    ~AgentInstall();

    // All the steps, each reported in a line. False at the first one that fails, with error()
    // naming it; whatever was set up by then is taken down again.
    bool install();
    // Closes the connection, stops the agent and removes the forwards: what install() set up.
    // False when the agent did not stop (error() gives its words); the forwards go all the same.
    // Once done, a second call does nothing.
    bool remove();

    NetConnection *connection() const noexcept { return connection_; }
    const std::string &serial() const noexcept { return serial_; }
    const std::string &abi() const noexcept { return abi_; }
    const std::string &error() const noexcept { return error_; }

private:
    bool pick_phone();
    bool pick_build();
    bool push();
    bool start();
    bool forward();
    bool connect();
    bool fail(const std::string &why);
    void report(const std::string &line) const;
    std::string shell(const std::string &line) const;

    AgentInstallSettings settings_;
    Report report_;
    std::string serial_, abi_, build_, start_text_, error_;
    bool started_ = false;
    bool forwarded_ = false;
    NetConnection *connection_ = nullptr;
};

}  // namespace wrenlink_example
