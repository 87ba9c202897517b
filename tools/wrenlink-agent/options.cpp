#include "options.h"

#include <arpa/inet.h>

#include <charconv>

namespace wrenlink::agent {

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
    "on 127.0.0.1:10244. SIGINT or SIGTERM stops the agent.\n";

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
    for (std::size_t i = 0; i < args.size(); ++i) {
        const std::string &a = args[i];
        const bool has_value = i + 1 < args.size();
        if (a == "--help" || a == "-h") return std::nullopt;
        if (a == "--verbose" || a == "-v") {
            o.verbose = true;
        } else if (a == "--address" && has_value) {
            o.address = args[++i];
            if (!is_loopback(o.address)) {
                error = "--address must be a loopback address (127.x.y.z): " + o.address;
                return std::nullopt;
            }
        } else if (a == "--port" && has_value) {
            if (!parse_number(args[++i], o.port)) {
                error = "--port needs a number from 0 to 65535";
                return std::nullopt;
            }
        } else if (a == "--scan-delay-us" && has_value) {
            unsigned long us = 0;
            if (!parse_number(args[++i], us) || us > 10'000'000) {
                error = "--scan-delay-us needs a number from 0 to 10000000";
                return std::nullopt;
            }
            o.scan.item_delay = std::chrono::microseconds(us);
        } else if (!a.empty() && a[0] != '-' && o.root.empty()) {
            o.root = a;
        } else {
            error = "unexpected argument: " + a;
            return std::nullopt;
        }
    }
    if (o.root.empty()) {
        error = "the directory to serve is missing";
        return std::nullopt;
    }
    return o;
}

}  // namespace wrenlink::agent
