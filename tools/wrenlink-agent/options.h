// The agent's command line.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "server.h"

namespace wrenlink::reference_agent {

extern const char kUsage[];

struct ProgramOptions {
    AgentOptions agent;
    bool detach = false;
    bool stop = false;      // --stop: end the agent of the pid file, serve nothing
    std::string pid_file;   // empty: wrenlink-agent.pid beside the executable
};

// The options, or nullopt with `error` set (empty for --help).
std::optional<ProgramOptions> parse_options(const std::vector<std::string> &args, std::string &error);

}  // namespace wrenlink::reference_agent
