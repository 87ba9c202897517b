#include "agent_process.h"

#include <signal.h>

#include <fstream>
#include <sstream>
#include <stdexcept>

namespace wrenlink::e2e {

namespace fs = std::filesystem;

namespace {

std::vector<std::string> agent_command(const fs::path &root, const std::vector<std::string> &extra) {
    std::vector<std::string> args = {WRENLINK_AGENT_PATH, "--port", "0"};
    args.insert(args.end(), extra.begin(), extra.end());
    args.push_back(root.string());
    return args;
}

}  // namespace

AgentProcess::AgentProcess(const fs::path &root, const std::vector<std::string> &extra)
    : process_(agent_command(root, extra), {.stderrPath = (scratch_.root() / "agent.log").string()}) {
    // The first line: "listening on 127.0.0.1:PORT".
    const std::string line = process_.read_line(std::chrono::seconds(10));
    const std::size_t colon = line.rfind(':');
    if (line.rfind("listening on ", 0) != 0 || colon == std::string::npos) {
        stop(SIGKILL);
        throw std::runtime_error("the agent did not start: " + line + log());
    }
    port_ = static_cast<uint32_t>(std::stoul(line.substr(colon + 1)));
}

AgentProcess::~AgentProcess() = default;  // the process is stopped with SIGTERM

int AgentProcess::stop(int signal_number) { return process_.stop(signal_number); }

std::string AgentProcess::log() const {
    std::ifstream in(scratch_.root() / "agent.log");
    std::stringstream s;
    s << in.rdbuf();
    return s.str();
}

}  // namespace wrenlink::e2e
