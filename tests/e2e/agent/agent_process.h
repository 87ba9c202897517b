// The reference agent as a separate program, for the end-to-end tests: started on a served
// directory with an ephemeral control port, stopped with a signal when the object goes. What it
// writes on standard error lands in the test's own output.
//
// The program is this build's agent, or the command in WRENLINK_AGENT_COMMAND when it is set:
// words split at spaces, the first a full path, e.g. "/usr/bin/qemu-aarch64-static
// /src/build/phone-agents/arm64-v8a/wrenlink-agent" for a phone build under its emulator.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "support/child_process.h"

namespace wrenlink::e2e {

class AgentProcess {
public:
    // Starts the agent with --port 0 [OPTIONS] ROOT and waits for its "listening on" line.
    explicit AgentProcess(const std::filesystem::path &root, const std::vector<std::string> &options = {});

    uint32_t port() const { return port_; }
    pid_t pid() const { return process_.pid(); }

private:
    support::ChildProcess process_;
    uint32_t port_ = 0;
};

}  // namespace wrenlink::e2e
