// Where the agent listens: a loopback TCP port, or an abstract local socket, the kind of name that
// adb forwards to as `localabstract:NAME`. Abstract names live in the kernel only: no file, no
// port another app could take first, and the peer's uid comes with each connection.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "base/unique_fd.h"

namespace wrenlink::reference_agent {

struct Endpoint {
    std::string address = "127.0.0.1";  // TCP: a loopback address
    uint16_t port = 0;                   // TCP: 0 lets the system pick one
    std::string abstract_name;           // not empty: an abstract local socket, and no TCP

    static Endpoint tcp(std::string address, uint16_t port) { return {std::move(address), port, {}}; }
    static Endpoint local(std::string name) { return {{}, 0, std::move(name)}; }
    bool is_local() const { return !abstract_name.empty(); }
};

// 1 to 100 bytes of [A-Za-z0-9._-].
bool is_abstract_name(std::string_view name);

// "tcp:PORT" (1 to 65535, on 127.0.0.1) or "localabstract:NAME"; nullopt for anything else.
std::optional<Endpoint> parse_endpoint(std::string_view text);

// "127.0.0.1:10243" or "localabstract:NAME", as the agent reports where it listens.
std::string describe(const Endpoint &endpoint);

// A listening socket at `endpoint`, close-on-exec. Empty, with `error` set, on failure.
UniqueFd listen_at(const Endpoint &endpoint, int backlog, int &error);

}  // namespace wrenlink::reference_agent
