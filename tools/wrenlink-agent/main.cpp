// wrenlink-agent: the reference phone-side agent, serving a directory on loopback or on an
// abstract local socket, in the foreground or detached (--detach), and --stop to end a detached one.
//
// Threads: the agent's accept loop runs on a thread of its own and each control connection gets
// one more, as does a running scan. The main thread only waits for SIGINT or SIGTERM (blocked in
// every thread, taken with sigwait) and then stops the agent, which ends every connection and the
// scan before the process exits. A detached agent forks before any thread starts.
#include <signal.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <exception>
#include <string_view>
#include <thread>

#include "detach.h"
#include "options.h"
#include "pid_file.h"
#include "server.h"

namespace {

using namespace wrenlink::reference_agent;

// The pid file this run uses; empty when it keeps none (a foreground start without --pid-file).
// Absolute: a detached agent leaves its working directory, and still removes the file at its end.
std::string pid_file_path(const ProgramOptions &options) {
    if (!options.pid_file.empty()) {
        char here[4096];
        if (options.pid_file.starts_with('/') || ::getcwd(here, sizeof here) == nullptr) return options.pid_file;
        return std::string(here) + "/" + options.pid_file;
    }
    return options.detach || options.stop ? default_pid_file() : std::string();
}

// Takes the pid file, or says why not: 0, or the exit status.
int claim_pid_file(PidFile &pid_file, const std::string &path) {
    pid_t holder = 0;
    int error = 0;
    switch (pid_file.claim(path, holder, error)) {
    case PidFile::Claim::Taken:
        return 0;
    case PidFile::Claim::HeldByAnother:
        std::fprintf(stderr, "wrenlink-agent: an agent already runs (pid %d); stop it with --stop\n",
                     static_cast<int>(holder));
        return 1;
    case PidFile::Claim::Failed:
        break;
    }
    std::fprintf(stderr, "wrenlink-agent: pid file %s: %s\n", path.c_str(), std::strerror(error));
    return 1;
}

int serve(const ProgramOptions &options, const std::string &pid_path, const sigset_t &stop_signals) {
    PidFile pid_file;
    if (!pid_path.empty()) {
        if (const int status = claim_pid_file(pid_file, pid_path); status != 0) return status;
    }
    Agent agent(options.agent);
    const std::string line = "listening on " + agent.listening_on() + "\n";
    wrenlink::UniqueFd ready;
    if (options.detach) {
        // Always a log: a detached agent has no terminal, and its refusals of other uids must be read somewhere.
        ready = detach(line, log_file_for(pid_path), pid_file);
    } else {
        if (pid_file && !pid_file.write(::getpid())) return 1;
        std::fputs(line.c_str(), stdout);
        std::fflush(stdout);
    }
    std::fprintf(stderr, "wrenlink-agent: serving %s\n", options.agent.root.c_str());
    std::thread server([&agent] { agent.run(); });
    if (ready) report_serving(std::move(ready));
    int signal_number = 0;
    sigwait(&stop_signals, &signal_number);
    std::fprintf(stderr, "wrenlink-agent: %s, stopping\n", signal_number == SIGINT ? "SIGINT" : "SIGTERM");
    agent.stop();
    server.join();
    return 0;
}

}  // namespace

int main(int argc, char **argv) {
    std::string error;
    const auto options = parse_options(std::vector<std::string>(argv + 1, argv + argc), error);
    if (!options && error.empty()) {
        std::fputs(kUsage, stdout);
        return 0;
    }
    if (!options) {
        const std::string_view usage(kUsage);
        std::fprintf(stderr, "wrenlink-agent: %s\n%s", error.c_str(),
                     std::string(usage.substr(0, usage.find('\n') + 1)).c_str());
        return 2;
    }
    const std::string pid_path = pid_file_path(*options);
    if ((options->detach || options->stop) && pid_path.empty()) {
        std::fputs("wrenlink-agent: cannot find the agent's own path for its pid file; give --pid-file\n", stderr);
        return 1;
    }
    if (options->stop) return stop_agent(pid_path);

    sigset_t stop_signals;
    sigemptyset(&stop_signals);
    sigaddset(&stop_signals, SIGINT);
    sigaddset(&stop_signals, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &stop_signals, nullptr);  // before any thread starts: they inherit it
    signal(SIGPIPE, SIG_IGN);

    try {
        return serve(*options, pid_path, stop_signals);
    } catch (const std::exception &e) {
        std::fprintf(stderr, "wrenlink-agent: %s\n", e.what());
        return 1;
    }
}
