#include "options.h"

#include <arpa/inet.h>

#include <charconv>

namespace wrenlink::reference_agent {

const char kUsage[] =
    "usage: wrenlink-agent [--address A] [--port N] [--verbose] [--scan-delay-us N] ROOT\n"
    "\n"
    "Plays the phone-side agent on loopback, serving the directory ROOT as the phone's storage.\n"
    "\n"
    "  --address A        control address, in 127.0.0.0/8 (default 127.0.0.1)\n"
    "  --port N           control port (default 10243; 0 picks a free one)\n"
    "  --verbose          log one line per request on standard error\n"
    "  --scan-delay-us N  pause N microseconds after each found item of a scan (default 0)\n"
    "\n"
    "The first line on standard output is \"listening on ADDRESS:PORT\". Scans stream their events\n"
    "on 127.0.0.1:10244. SIGINT or SIGTERM stops the agent.\n"
    "\n"
    "Exit status: 0 after a stop signal; 1 when ROOT or the port cannot be used; 2 for a bad\n"
    "command line.\n";

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

}  // namespace

std::optional<AgentOptions> parse_options(const std::vector<std::string> &args, std::string &error) {
    AgentOptions o;
    error.clear();
    const auto refuse = [&](std::string why) {
        error = std::move(why);
        return std::nullopt;
    };
    for (std::size_t i = 0; i < args.size(); ++i) {
        const std::string &a = args[i];
        if (a == "--help" || a == "-h") return refuse("");
        const bool takes_value = a == "--address" || a == "--port" || a == "--scan-delay-us";
        if (takes_value && i + 1 == args.size()) return refuse(a + " needs a value");
        const std::string value = takes_value ? args[++i] : std::string();
        if (a == "--verbose" || a == "-v") {
            o.verbose = true;
        } else if (a == "--address") {
            if (!is_loopback(value)) return refuse("--address takes a loopback address (127.x.y.z), not '" + value + "'");
            o.address = value;
        } else if (a == "--port") {
            if (!parse_number(value, o.port)) return refuse("--port takes a number from 0 to 65535, not '" + value + "'");
        } else if (a == "--scan-delay-us") {
            unsigned long us = 0;
            if (!parse_number(value, us) || us > 10'000'000)
                return refuse("--scan-delay-us takes a number from 0 to 10000000, not '" + value + "'");
            o.scan.item_delay = std::chrono::microseconds(us);
        } else if (a.starts_with('-')) {
            return refuse("unknown option: " + a);
        } else if (o.root.empty()) {
            o.root = a;
        } else {
            return refuse("unexpected argument: " + a);
        }
    }
    if (o.root.empty()) return refuse("the directory to serve (ROOT) is missing");
    return o;
}

}  // namespace wrenlink::reference_agent
