#include "options.h"

#include <arpa/inet.h>

#include <charconv>

#include "endpoint.h"

namespace wrenlink::reference_agent {

const char kUsage[] =
    "usage: wrenlink-agent [--address A] [--port N] [--control localabstract:NAME] [--events ENDPOINT]\n"
    "                      [--detach] [--pid-file PATH] [--verbose] [--scan-delay-us N] ROOT\n"
    "       wrenlink-agent --stop [--pid-file PATH]\n"
    "\n"
    "Plays the phone-side agent, serving the directory ROOT as the phone's storage. It serves only\n"
    "connections from its own uid or root; others are closed unread and logged.\n"
    "\n"
    "  --address A        control address, in 127.0.0.0/8 (default 127.0.0.1)\n"
    "  --port N           control port (default 10243; 0 picks a free one)\n"
    "  --control localabstract:NAME\n"
    "                     take control connections on the abstract local socket NAME instead\n"
    "                     of TCP (NAME: 1 to 100 of A-Z a-z 0-9 . _ -)\n"
    "  --events ENDPOINT  where a scan takes its event connection: tcp:PORT (on 127.0.0.1) or\n"
    "                     localabstract:NAME (default tcp:10244)\n"
    "  --detach           once listening, leave the caller and run on in a session of its own\n"
    "  --pid-file PATH    the pid file that --detach writes and --stop reads (default\n"
    "                     wrenlink-agent.pid beside the executable); also written when given\n"
    "                     without --detach\n"
    "  --stop             end the agent of the pid file (SIGTERM; SIGKILL after 5 s)\n"
    "  --verbose          log one line per request too, on standard error (a detached agent\n"
    "                     always logs, to the pid file's name with .log for .pid)\n"
    "  --scan-delay-us N  pause N microseconds after each found item of a scan (default 0)\n"
    "\n"
    "The first line on standard output is \"listening on ADDRESS:PORT\" or \"listening on\n"
    "localabstract:NAME\"; with --detach it comes once the detached agent serves. SIGINT or\n"
    "SIGTERM stops the agent.\n"
    "\n"
    "Exit status: 0 after a stop signal, and for --detach and --stop done; 1 when ROOT, the\n"
    "port, the name or the pid file cannot be used, or an agent of the same pid file runs;\n"
    "2 for a bad command line.\n";

namespace {

template <class T>
bool parse_number(const std::string &text, T &value) {
    const auto [end, ec] = std::from_chars(text.data(), text.data() + text.size(), value);
    return ec == std::errc() && end == text.data() + text.size();
}

// Only loopback: the agent serves files without any authentication.
bool is_loopback(const std::string &address) {
    in_addr a{};
    return ::inet_pton(AF_INET, address.c_str(), &a) == 1 && (ntohl(a.s_addr) >> 24) == 127;
}

// Where the options that pick a listener, or that only a start or only --stop take, must agree.
std::string check_together(const ProgramOptions &o, bool tcp_given, bool other_given) {
    if (o.stop) return other_given || !o.agent.root.empty() ? "--stop takes no option but --pid-file, and no ROOT" : "";
    if (o.agent.control.is_local() && tcp_given) return "--control cannot be given with --address or --port";
    if (o.agent.root.empty()) return "the directory to serve (ROOT) is missing";
    return "";
}

}  // namespace

std::optional<ProgramOptions> parse_options(const std::vector<std::string> &args, std::string &error) {
    ProgramOptions o;
    AgentOptions &agent = o.agent;
    bool tcp_given = false, other_given = false;
    error.clear();
    const auto refuse = [&](std::string why) {
        error = std::move(why);
        return std::nullopt;
    };
    for (std::size_t i = 0; i < args.size(); ++i) {
        const std::string &a = args[i];
        if (a == "--help" || a == "-h") return refuse("");
        const bool takes_value = a == "--address" || a == "--port" || a == "--scan-delay-us" || a == "--control" ||
                                 a == "--events" || a == "--pid-file";
        if (takes_value && i + 1 == args.size()) return refuse(a + " needs a value");
        const std::string value = takes_value ? args[++i] : std::string();
        tcp_given = tcp_given || a == "--address" || a == "--port";
        other_given = other_given || (a != "--stop" && a != "--pid-file");
        if (a == "--verbose" || a == "-v") {
            agent.verbose = true;
        } else if (a == "--address") {
            if (!is_loopback(value)) return refuse("--address takes a loopback address (127.x.y.z), not '" + value + "'");
            agent.control.address = value;
        } else if (a == "--port") {
            if (!parse_number(value, agent.control.port))
                return refuse("--port takes a number from 0 to 65535, not '" + value + "'");
        } else if (a == "--control") {
            const auto at = parse_endpoint(value);
            if (!at || !at->is_local())
                return refuse("--control takes localabstract:NAME (NAME: 1 to 100 of A-Z a-z 0-9 . _ -), not '" + value + "'");
            agent.control = *at;
        } else if (a == "--events") {
            const auto at = parse_endpoint(value);
            if (!at) return refuse("--events takes tcp:PORT (1 to 65535) or localabstract:NAME, not '" + value + "'");
            agent.scan.events = *at;
        } else if (a == "--scan-delay-us") {
            unsigned long us = 0;
            if (!parse_number(value, us) || us > 10'000'000)
                return refuse("--scan-delay-us takes a number from 0 to 10000000, not '" + value + "'");
            agent.scan.item_delay = std::chrono::microseconds(us);
        } else if (a == "--detach") {
            o.detach = true;
        } else if (a == "--stop") {
            o.stop = true;
        } else if (a == "--pid-file") {
            if (value.empty()) return refuse("--pid-file takes a path, not ''");
            o.pid_file = value;
        } else if (a.starts_with('-')) {
            return refuse("unknown option: " + a);
        } else if (agent.root.empty()) {
            agent.root = a;
        } else {
            return refuse("unexpected argument: " + a);
        }
    }
    if (std::string why = check_together(o, tcp_given, other_given); !why.empty()) return refuse(why);
    return o;
}

}  // namespace wrenlink::reference_agent
