#include "frame.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <cerrno>

#include "base/io.h"
#include "base/platform.h"

namespace wrenlink::reference_agent {

UniqueFd listen_tcp(const std::string &address, uint16_t port, int backlog, int &error) {
    sockaddr_in at{};
    at.sin_family = AF_INET;
    at.sin_port = htons(port);
    if (::inet_pton(AF_INET, address.c_str(), &at.sin_addr) != 1) {
        error = EINVAL;
        return {};
    }
    UniqueFd fd(platform::tcp_socket());
    const int one = 1;
    // The agent closes each event connection first, so its port sits in TIME_WAIT between scans.
    if (!fd || ::setsockopt(fd.get(), SOL_SOCKET, SO_REUSEADDR, &one, sizeof one) != 0 ||
        ::bind(fd.get(), reinterpret_cast<const sockaddr *>(&at), sizeof at) != 0 || ::listen(fd.get(), backlog) != 0) {
        error = errno;
        return {};
    }
    error = 0;
    return fd;
}

uint16_t local_port(int fd) {
    sockaddr_in at{};
    socklen_t size = sizeof at;
    if (::getsockname(fd, reinterpret_cast<sockaddr *>(&at), &size) != 0) return 0;
    return ntohs(at.sin_port);
}

UniqueFd accept_connection(int listener) {
    UniqueFd fd(::accept(listener, nullptr, nullptr));
    if (fd) (void)::fcntl(fd.get(), F_SETFD, FD_CLOEXEC);
    return fd;
}

long send_some(int fd, const void *data, std::size_t n) {
    const ssize_t r = ::send(fd, data, n, MSG_DONTWAIT | platform::send_flags());
    if (r >= 0) return static_cast<long>(r);
    return errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR ? 0 : -1;
}

bool read_exact(int fd, void *buffer, std::size_t n) { return io::receive_exact(fd, buffer, n).whole(); }

bool send_all(int fd, const void *data, std::size_t n) { return io::send_all(fd, data, n).whole(); }

void put_u32(std::string &out, uint32_t v) { wire::append_u32(out, v); }
void put_u64(std::string &out, uint64_t v) { wire::append_u64(out, v); }

void put_text(std::string &out, std::string_view text) {
    out.append(text);
    out.push_back('\0');
}

std::string progress_event(int64_t done, int64_t total) {
    std::string payload;
    put_u64(payload, static_cast<uint64_t>(done));
    put_u64(payload, static_cast<uint64_t>(total));
    return wire::packet(wire::op::kEventProgress, payload, Crc::OverPayload);
}

std::string code_event(uint32_t code) {
    std::string payload;
    put_u32(payload, code);
    return wire::packet(wire::op::kEventCode, payload, Crc::OverPayload);
}

std::string found_item_event(std::string_view text) {
    std::string payload;
    put_text(payload, text);
    return wire::packet(wire::op::kEventFoundItem, payload, Crc::OverPayload);
}

}  // namespace wrenlink::reference_agent
