// "tcp:PORT": a connection to a port on the phone, which for this phone is the loopback interface
// of the machine it runs on. This is what a host's `adb forward tcp:A tcp:B` reaches.
#include <arpa/inet.h>
#include <fcntl.h>
#include <poll.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
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
    ::fcntl(socket.get(), F_SETFL, ::fcntl(socket.get(), F_GETFL) | O_NONBLOCK);
    stream.accept();

    // Host to port, until the stream closes or the port stops taking data.
    std::thread to_port([&] {
        bool open = true;
        while (auto chunk = stream.read()) {
            if (open) open = write_all_unless_closed(socket.get(), *chunk, stream.closed_signal());
        }
    });

    // Port to host, until either side ends. Each read takes as much as one message may carry, as a
    // phone's daemon does: every message waits for the server's OKAY before the next, so smaller
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
    to_port.join();
}

}  // namespace phone
