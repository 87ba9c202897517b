#include "agent_process.h"

#include <signal.h>

#include <cstdlib>
#include <sstream>
#include <stdexcept>

namespace wrenlink::e2e {

namespace {

std::vector<std::string> agent_command(const std::filesystem::path &root, const std::vector<std::string> &options) {
    std::vector<std::string> argv;
    const char *command = std::getenv("WRENLINK_AGENT_COMMAND");
    std::istringstream words(command != nullptr ? command : "");
    for (std::string word; words >> word;) argv.push_back(word);
    if (argv.empty()) argv.emplace_back(WRENLINK_AGENT_PATH);
    argv.insert(argv.end(), {"--port", "0"});
    argv.insert(argv.end(), options.begin(), options.end());
    argv.push_back(root.string());
    return argv;
}

}  // namespace

AgentProcess::AgentProcess(const std::filesystem::path &root, const std::vector<std::string> &options)
    : process_(agent_command(root, options), {.stderrPath = ""}) {
    // The first line: "listening on 127.0.0.1:PORT".
    const std::string line = process_.read_line(std::chrono::seconds(10));
    const std::size_t colon = line.rfind(':');
    if (line.rfind("listening on ", 0) != 0 || colon == std::string::npos) {
        process_.stop(SIGKILL);
        throw std::runtime_error("the agent did not start: " + line);
    }
    port_ = static_cast<uint32_t>(std::stoul(line.substr(colon + 1)));
}

}  // namespace wrenlink::e2e
