// The reference agent as a separate program, for the end-to-end tests: started on a served
// directory with an ephemeral control port, stopped with a signal.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "doubles/temp_tree.h"
#include "support/child_process.h"

namespace wrenlink::e2e {

class AgentProcess {
public:
    // Starts wrenlink-agent --port 0 [extra...] ROOT and waits for its "listening on" line.
    explicit AgentProcess(const std::filesystem::path &root, const std::vector<std::string> &extra = {});
    ~AgentProcess();
    AgentProcess(const AgentProcess &) = delete;
    AgentProcess &operator=(const AgentProcess &) = delete;

    uint32_t port() const { return port_; }
    // Sends the signal and waits for the exit: the exit status, or -1 when it died otherwise or
    // did not end within ten seconds (it is then killed).
    int stop(int signal_number);
    // What the agent wrote on standard error so far.
    std::string log() const;

private:
    test::TempTree scratch_;
    support::ChildProcess process_;
    uint32_t port_ = 0;
};

}  // namespace wrenlink::e2e
