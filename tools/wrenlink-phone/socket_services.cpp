// The services that reach a socket on the phone, what a host's `adb forward tcp:A tcp:B` and
// `adb forward tcp:A localabstract:NAME` open: "tcp:PORT", a port of the loopback interface of the
// machine the phone runs on, and "localabstract:NAME", an abstract Unix socket of this machine.
// Once connected, both carry bytes the same way.
#include <arpa/inet.h>
#include <fcntl.h>
#include <poll.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <charconv>
#include <cstring>
#include <string>
#include <thread>

#include "base/unique_fd.h"
#include "base/platform.h"
#include "log.h"
#include "phone.h"
#include "services.h"
#include "transport.h"

namespace phone {

namespace {

// "PORT" or "PORT:HOST"; only loopback hosts are phone-local.
bool parse_target(std::string_view target, uint16_t &port, in_addr &address) {
    const auto colon = target.find(':');
    const std::string_view number = target.substr(0, colon);
    unsigned value = 0;
    const auto [end, ec] = std::from_chars(number.data(), number.data() + number.size(), value);
    if (ec != std::errc() || end != number.data() + number.size() || value == 0 || value > 65535) return false;
    port = static_cast<uint16_t>(value);
    std::string host = colon == std::string_view::npos ? "127.0.0.1" : std::string(target.substr(colon + 1));
    if (host == "localhost") host = "127.0.0.1";
    if (::inet_pton(AF_INET, host.c_str(), &address) != 1) return false;
    return (ntohl(address.s_addr) >> 24) == 127;
}

wrenlink::UniqueFd connect_loopback(uint16_t port, in_addr address) {
    wrenlink::UniqueFd fd(wrenlink::platform::tcp_socket());
    if (!fd) return fd;
    sockaddr_in to{};
    to.sin_family = AF_INET;
    to.sin_port = htons(port);
    to.sin_addr = address;
    while (::connect(fd.get(), reinterpret_cast<const sockaddr *>(&to), sizeof to) != 0) {
        if (errno != EINTR) return {};
    }
    return fd;
}

// The longest abstract name: the address's path less its leading NUL.
constexpr std::size_t kMaxAbstractName = sizeof(sockaddr_un{}.sun_path) - 1;

// Printable ASCII without blanks, as the names that phones' services use.
bool is_abstract_name(std::string_view name) noexcept {
    if (name.empty() || name.size() > kMaxAbstractName) return false;
    for (const char c : name)
        if (c <= ' ' || c > '~') return false;
    return true;
}

wrenlink::UniqueFd connect_abstract(std::string_view name) {
    wrenlink::UniqueFd fd(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    if (!fd) return fd;
    sockaddr_un to{};
    to.sun_family = AF_UNIX;
    std::memcpy(to.sun_path + 1, name.data(), name.size());
    const auto size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1 + name.size());
    while (::connect(fd.get(), reinterpret_cast<const sockaddr *>(&to), size) != 0) {
        if (errno != EINTR) return {};
    }
    return fd;
}

// Carries bytes between the stream and a connected socket until either side ends.
void carry(Stream &stream, wrenlink::UniqueFd socket) {
    ::fcntl(socket.get(), F_SETFL, ::fcntl(socket.get(), F_GETFL) | O_NONBLOCK);
    stream.accept();

    // Host to socket, until the stream closes or the socket stops taking data.
    std::thread to_socket([&] {
        bool open = true;
        while (auto chunk = stream.read()) {
            if (open) open = write_all_unless_closed(socket.get(), *chunk, stream.closed_signal());
        }
    });

    // Socket to host, until either side ends. Each read takes as much as one message may carry, as
    // a phone's daemon does: every message waits for the server's OKAY before the next, so smaller
    // pieces cost a round trip each.
    std::string buffer(stream.max_write(), '\0');
    pollfd fds[2] = {{socket.get(), POLLIN, 0}, {stream.closed_signal(), POLLIN, 0}};
    for (;;) {
        if (::poll(fds, 2, -1) < 0) {
            if (errno == EINTR) continue;
            break;
        }
        if (fds[1].revents != 0) break;
        const ssize_t n = ::recv(socket.get(), buffer.data(), buffer.size(), 0);
        if (n < 0 && (errno == EINTR || errno == EAGAIN)) continue;
        if (n <= 0) break;
        if (!stream.write(std::string_view(buffer.data(), static_cast<std::size_t>(n)))) break;
    }
    stream.close();
    ::shutdown(socket.get(), SHUT_RDWR);
    to_socket.join();
}

}  // namespace

void run_tcp_forward(Stream &stream, std::string_view target, const PhoneContext &phone) {
    uint16_t port = 0;
    in_addr address{};
    if (!parse_target(target, port, address)) {
        log(1, "%s: refusing tcp target \"%.*s\"", phone.name.c_str(), static_cast<int>(target.size()), target.data());
        stream.refuse();
        return;
    }
    wrenlink::UniqueFd socket = connect_loopback(port, address);
    if (!socket) {
        log(1, "%s: tcp:%u: %s", phone.name.c_str(), port, std::strerror(errno));
        stream.refuse();
        return;
    }
    carry(stream, std::move(socket));
}

void run_abstract_forward(Stream &stream, std::string_view name, const PhoneContext &phone) {
    const int shown = static_cast<int>(std::min<std::size_t>(name.size(), 200));
    if (!is_abstract_name(name)) {
        log(1, "%s: refusing abstract socket name \"%.*s\"", phone.name.c_str(), shown, name.data());
        stream.refuse();
        return;
    }
    wrenlink::UniqueFd socket = connect_abstract(name);
    if (!socket) {
        log(1, "%s: localabstract:%.*s: %s", phone.name.c_str(), shown, name.data(), std::strerror(errno));
        stream.refuse();
        return;
    }
    carry(stream, std::move(socket));
}

}  // namespace phone
