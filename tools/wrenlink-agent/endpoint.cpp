#include "endpoint.h"

#include <sys/socket.h>
#include <sys/un.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstddef>
#include <cstring>

#include "frame.h"

namespace wrenlink::reference_agent {

namespace {

constexpr std::size_t kMaxAbstractName = 100;

bool is_name_byte(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '.' || c == '_' ||
           c == '-';
}

UniqueFd listen_abstract(const std::string &name, int backlog, int &error) {
    sockaddr_un at{};
    at.sun_family = AF_UNIX;
    // An abstract name starts with a NUL and is exactly as long as the address length says: no
    // terminating NUL, or the name would differ from the one adb connects to.
    std::memcpy(at.sun_path + 1, name.data(), name.size());
    const auto size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1 + name.size());
    UniqueFd fd(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    if (!fd || ::bind(fd.get(), reinterpret_cast<const sockaddr *>(&at), size) != 0 ||
        ::listen(fd.get(), backlog) != 0) {
        error = errno;
        return {};
    }
    error = 0;
    return fd;
}

}  // namespace

bool is_abstract_name(std::string_view name) {
    return !name.empty() && name.size() <= kMaxAbstractName && std::all_of(name.begin(), name.end(), is_name_byte);
}

std::optional<Endpoint> parse_endpoint(std::string_view text) {
    constexpr std::string_view kTcp = "tcp:", kLocal = "localabstract:";
    if (text.starts_with(kLocal)) {
        const std::string_view name = text.substr(kLocal.size());
        if (!is_abstract_name(name)) return std::nullopt;
        return Endpoint::local(std::string(name));
    }
    if (!text.starts_with(kTcp)) return std::nullopt;
    const std::string_view digits = text.substr(kTcp.size());
    uint16_t port = 0;
    const auto [end, ec] = std::from_chars(digits.data(), digits.data() + digits.size(), port);
    if (ec != std::errc() || end != digits.data() + digits.size() || port == 0) return std::nullopt;
    return Endpoint::tcp("127.0.0.1", port);
}

std::string describe(const Endpoint &endpoint) {
    if (endpoint.is_local()) return "localabstract:" + endpoint.abstract_name;
    return endpoint.address + ":" + std::to_string(endpoint.port);
}

UniqueFd listen_at(const Endpoint &endpoint, int backlog, int &error) {
    if (endpoint.is_local()) return listen_abstract(endpoint.abstract_name, backlog, error);
    return listen_tcp(endpoint.address, endpoint.port, backlog, error);
}

}  // namespace wrenlink::reference_agent
