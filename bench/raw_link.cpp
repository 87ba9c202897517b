#include "raw_link.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

#include <cerrno>

namespace wrenlink::bench {

namespace {

#if defined(MSG_NOSIGNAL)
constexpr int kSendFlags = MSG_NOSIGNAL;
#else
constexpr int kSendFlags = 0;
#endif

sockaddr_in loopback(uint16_t port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return address;
}

void set_option(int fd, int level, int name, int value) { (void)::setsockopt(fd, level, name, &value, sizeof value); }

}  // namespace

UniqueFd connect_loopback(uint16_t port) {
    UniqueFd fd(::socket(AF_INET, SOCK_STREAM, 0));
    if (!fd) return fd;
    const sockaddr_in peer = loopback(port);
    if (::connect(fd.get(), reinterpret_cast<const sockaddr *>(&peer), sizeof peer) != 0) return UniqueFd();
    set_option(fd.get(), IPPROTO_TCP, TCP_NODELAY, 1);
    set_option(fd.get(), SOL_SOCKET, SO_RCVBUF, static_cast<int>(0xA0000000u));
    set_option(fd.get(), SOL_SOCKET, SO_RCVBUF, 0x0A000000);
    set_option(fd.get(), SOL_SOCKET, SO_KEEPALIVE, 1);
#if defined(SO_NOSIGPIPE)
    set_option(fd.get(), SOL_SOCKET, SO_NOSIGPIPE, 1);
#endif
    return fd;
}

UniqueFd listen_loopback(uint16_t port) {
    UniqueFd fd(::socket(AF_INET, SOCK_STREAM, 0));
    if (!fd) return fd;
    set_option(fd.get(), SOL_SOCKET, SO_REUSEADDR, 1);
    const sockaddr_in address = loopback(port);
    if (::bind(fd.get(), reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0 ||
        ::listen(fd.get(), 16) != 0) {
        return UniqueFd();
    }
    return fd;
}

uint16_t port_of(int listener) {
    sockaddr_in address{};
    socklen_t size = sizeof address;
    if (::getsockname(listener, reinterpret_cast<sockaddr *>(&address), &size) != 0) return 0;
    return ntohs(address.sin_port);
}

UniqueFd accept_one(int listener) {
    for (;;) {
        const int fd = ::accept(listener, nullptr, nullptr);
        if (fd >= 0 || errno != EINTR) return UniqueFd(fd);
    }
}

bool send_all(int fd, const void *data, std::size_t n, bool more) {
    int flags = kSendFlags;
#if defined(MSG_MORE)
    if (more) flags |= MSG_MORE;
#else
    (void)more;
#endif
    const auto *p = static_cast<const char *>(data);
    while (n > 0) {
        const ssize_t sent = ::send(fd, p, n, flags);
        if (sent < 0 && errno == EINTR) continue;
        if (sent <= 0) return false;
        p += sent;
        n -= static_cast<std::size_t>(sent);
    }
    return true;
}

bool recv_exact(int fd, void *to, std::size_t n) {
    auto *p = static_cast<char *>(to);
    while (n > 0) {
        const ssize_t got = ::recv(fd, p, n, 0);
        if (got < 0 && errno == EINTR) continue;
        if (got <= 0) return false;
        p += got;
        n -= static_cast<std::size_t>(got);
    }
    return true;
}

void file_request(unsigned char (&out)[kFileRequestSize], uint32_t opcode, uint32_t length, uint32_t id,
                  int64_t offset, int32_t count) {
    wire::put_header(out, opcode, length);
    wire::store_u32(out + 20, id);
    wire::store_u64(out + 24, static_cast<uint64_t>(offset));
    wire::store_u32(out + 32, static_cast<uint32_t>(count));
}

bool recv_header(int fd, wire::PacketHeader &header) {
    unsigned char raw[wire::kHeaderSize];
    if (!recv_exact(fd, raw, sizeof raw)) return false;
    return wire::read_header(raw, header);
}

uint32_t raw_open(int fd, const std::string &path, const std::string &mode) {
    std::string payload = path;
    payload += '\0';
    payload += mode;
    payload += '\0';
    wire::PacketHeader reply;
    if (!send_all(fd, wire::packet(wire::op::kFileOpen, payload, wire::Crc::OverPayload)) ||
        !recv_header(fd, reply) || reply.status != 0 || reply.length != 4) {
        return 0;
    }
    unsigned char id[4];
    return recv_exact(fd, id, sizeof id) ? wire::load_u32(id) : 0;
}

}  // namespace wrenlink::bench
