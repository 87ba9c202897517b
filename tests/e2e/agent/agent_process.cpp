#include "agent_process.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <thread>

namespace wrenlink::e2e {

namespace fs = std::filesystem;

AgentProcess::AgentProcess(const fs::path &root, const std::vector<std::string> &extra) {
    std::vector<std::string> args = {WRENLINK_AGENT_PATH, "--port", "0"};
    args.insert(args.end(), extra.begin(), extra.end());
    args.push_back(root.string());
    const std::string log_path = (scratch_.root() / "agent.log").string();

    std::vector<char *> argv;  // made before the fork: the child only calls what is safe there
    for (auto &a : args) argv.push_back(a.data());
    argv.push_back(nullptr);
    int out[2];
    if (::pipe(out) != 0) throw std::runtime_error("pipe failed");
    pid_ = ::fork();
    if (pid_ < 0) throw std::runtime_error("fork failed");
    if (pid_ == 0) {
        const int log = ::open(log_path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
        ::dup2(out[1], STDOUT_FILENO);
        if (log >= 0) ::dup2(log, STDERR_FILENO);
        ::execv(argv[0], argv.data());
        ::_exit(127);
    }
    ::close(out[1]);
    // The first line: "listening on 127.0.0.1:PORT".
    std::string line;
    char c = 0;
    pollfd p{out[0], POLLIN, 0};
    while (line.find('\n') == std::string::npos && ::poll(&p, 1, 10000) > 0 && ::read(out[0], &c, 1) == 1) line += c;
    ::close(out[0]);
    const std::size_t colon = line.rfind(':');
    if (line.rfind("listening on ", 0) != 0 || colon == std::string::npos) {
        stop(SIGKILL);
        throw std::runtime_error("the agent did not start: " + line + log());
    }
    port_ = static_cast<uint32_t>(std::stoul(line.substr(colon + 1)));
}

AgentProcess::~AgentProcess() {
    if (pid_ > 0) stop(SIGTERM);
}

int AgentProcess::stop(int signal_number) {
    if (pid_ <= 0) return -1;
    ::kill(pid_, signal_number);
    int status = 0;
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    pid_t done = 0;
    while ((done = ::waitpid(pid_, &status, WNOHANG)) == 0 && std::chrono::steady_clock::now() < deadline)
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    if (done == 0) {
        ::kill(pid_, SIGKILL);
        ::waitpid(pid_, &status, 0);
        status = -1;
    }
    pid_ = -1;
    return status >= 0 && WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

std::string AgentProcess::log() const {
    std::ifstream in(scratch_.root() / "agent.log");
    std::stringstream s;
    s << in.rdbuf();
    return s.str();
}

}  // namespace wrenlink::e2e
