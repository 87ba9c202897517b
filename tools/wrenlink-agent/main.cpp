// wrenlink-agent: the reference phone-side agent, serving a directory on loopback.
//
// Threads: the agent's accept loop runs on a thread of its own and each control connection gets
// one more, as does a running scan. The main thread only waits for SIGINT or SIGTERM (blocked in
// every thread, taken with sigwait) and then stops the agent, which ends every connection and the
// scan before the process exits.
#include <signal.h>

#include <cstdio>
#include <string_view>
#include <exception>
#include <thread>

#include "options.h"
#include "server.h"

int main(int argc, char **argv) {
    using namespace wrenlink::reference_agent;
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

    sigset_t stop_signals;
    sigemptyset(&stop_signals);
    sigaddset(&stop_signals, SIGINT);
    sigaddset(&stop_signals, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &stop_signals, nullptr);  // before any thread starts: they inherit it
    signal(SIGPIPE, SIG_IGN);

    try {
        Agent agent(*options);
        std::printf("listening on %s:%u\n", options->address.c_str(), static_cast<unsigned>(agent.port()));
        std::fflush(stdout);
        std::fprintf(stderr, "wrenlink-agent: serving %s\n", options->root.c_str());
        std::thread server([&agent] { agent.run(); });
        int signal_number = 0;
        sigwait(&stop_signals, &signal_number);
        std::fprintf(stderr, "wrenlink-agent: %s, stopping\n", signal_number == SIGINT ? "SIGINT" : "SIGTERM");
        agent.stop();
        server.join();
    } catch (const std::exception &e) {
        std::fprintf(stderr, "wrenlink-agent: %s\n", e.what());
        return 1;
    }
    return 0;
}
