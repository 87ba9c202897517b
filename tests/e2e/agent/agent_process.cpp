#include "agent_process.h"

#include <fcntl.h>
#include <poll.h>
#ifdef __linux__
#include <sys/prctl.h>
#endif
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <stdexcept>

namespace wrenlink::e2e {

AgentProcess::AgentProcess(const std::filesystem::path &root, std::vector<std::string> args) {
    args.insert(args.begin(), {WRENLINK_AGENT_PATH, "--port", "0"});
    args.push_back(root.string());
    std::vector<char *> argv;  // made before the fork: the child only calls what is safe there
    for (auto &a : args) argv.push_back(a.data());
    argv.push_back(nullptr);
    int out[2];
    if (::pipe(out) != 0 || (pid_ = ::fork()) < 0) throw std::runtime_error("cannot start the agent");
    if (pid_ == 0) {
#ifdef __linux__
        ::prctl(PR_SET_PDEATHSIG, SIGKILL);  // gone with a test that crashed
#endif
        // Not the test's own output: ctest would wait for the agent to close it.
        const int quiet = ::open("/dev/null", O_WRONLY);
        ::dup2(out[1], STDOUT_FILENO);
        ::dup2(quiet, STDERR_FILENO);
        ::execv(argv[0], argv.data());
        ::_exit(127);
    }
    ::close(out[1]);
    std::string line;  // "listening on 127.0.0.1:PORT"
    char c = 0;
    pollfd p{out[0], POLLIN, 0};
    while (line.find('\n') == std::string::npos && ::poll(&p, 1, 10000) > 0 && ::read(out[0], &c, 1) == 1) line += c;
    ::close(out[0]);
    if (line.rfind("listening on ", 0) != 0) {
        stop(SIGKILL);
        throw std::runtime_error("the agent did not start: " + line);
    }
    port_ = static_cast<uint32_t>(std::stoul(line.substr(line.rfind(':') + 1)));
}

AgentProcess::~AgentProcess() { stop(SIGKILL); }

int AgentProcess::stop(int signal_number) {
    if (pid_ <= 0) return -1;
    ::kill(pid_, signal_number);
    int status = 0;
    ::waitpid(pid_, &status, 0);
    pid_ = -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

}  // namespace wrenlink::e2e
