// The agent's command line.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "server.h"

namespace wrenlink::reference_agent {

extern const char kUsage[];

// The options, or nullopt with `error` set (empty for --help).
std::optional<AgentOptions> parse_options(const std::vector<std::string> &args, std::string &error);

}  // namespace wrenlink::reference_agent
