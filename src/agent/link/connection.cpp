#include "agent/link/connection.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <new>

#include "base/io.h"
#include "base/platform.h"
#include "base/unique_fd.h"

namespace wrenlink::agent {

namespace {

void set_option(int fd, int level, int name, int value) noexcept {
    // Results are ignored: a refused size leaves the kernel's own.
    (void)::setsockopt(fd, level, name, &value, sizeof value);
}

constexpr uint32_t kClosed = 1u << 31;  // in NetConnection::users, beside the count

// Closes the descriptor that a close left behind, once: whoever comes first takes it.
void close_left(NetConnection *conn) noexcept {
    const int fd = conn->closeLeft.exchange(-1, std::memory_order_acq_rel);
    if (fd >= 0) close_descriptor(fd);
}

// One send or receive loop's hold on the socket: the descriptor, or -1 once the connection is
// closed (the system call then fails with EBADF, as on any closed descriptor).
class SocketUse {
public:
    explicit SocketUse(NetConnection *conn) noexcept : conn_(conn) {
        if ((conn->users.fetch_add(1, std::memory_order_acq_rel) & kClosed) == 0) fd_ = load_field(conn->sock);
    }
    ~SocketUse() {
        if (conn_->users.fetch_sub(1, std::memory_order_acq_rel) - 1 == kClosed) close_left(conn_);
    }
    SocketUse(const SocketUse &) = delete;
    SocketUse &operator=(const SocketUse &) = delete;
    int fd() const noexcept { return fd_; }

private:
    NetConnection *conn_;
    int fd_ = -1;
};

}  // namespace

std::unique_ptr<NetConnection> open_connection(const char *address, uint32_t port) {
    UniqueFd fd(platform::tcp_socket());
    if (!fd) return nullptr;

    sockaddr_in peer{};
    peer.sin_family = AF_INET;
    peer.sin_port = htons(static_cast<uint16_t>(port));
    if (address == nullptr || ::inet_pton(AF_INET, address, &peer.sin_addr) <= 0) {
        std::perror("inet_pton");  // kept: callers' logs have always shown these two lines
        return nullptr;
    }
    if (::connect(fd.get(), reinterpret_cast<const sockaddr *>(&peer), sizeof peer) != 0) {
        std::perror("connect");
        return nullptr;
    }
    set_option(fd.get(), IPPROTO_TCP, TCP_NODELAY, 1);
    // Kept: the receive buffer asked for twice, the first size negative as an int, as callers'
    // connections always were. Either request fixes the buffer at the system's cap
    // (net.core.rmem_max) and stops the kernel growing it; without them a transfer would run on a
    // window the kernel sizes by itself, and its speed would change under the callers.
    set_option(fd.get(), SOL_SOCKET, SO_RCVBUF, static_cast<int>(0xA0000000u));
    set_option(fd.get(), SOL_SOCKET, SO_RCVBUF, 0x0A000000);
    set_option(fd.get(), SOL_SOCKET, SO_KEEPALIVE, 1);

    auto conn = std::make_unique<NetConnection>();
    conn->sock = fd.release();
    // inet_pton accepted the text, so it is at most 15 characters.
    std::snprintf(conn->peerAddress, sizeof conn->peerAddress, "%s", address);
    conn->peerPort = static_cast<uint16_t>(port);
    return conn;
}

int32_t send_all(NetConnection *conn, const void *data, int32_t length, int32_t flags) {
    if (conn == nullptr) {
        errno = EINVAL;
        return -1;
    }
    if (const int stored = load_field(conn->sendError)) {
        errno = stored;
        return -1;
    }
    if (length <= 0) return 0;
    const SocketUse socket(conn);
    const io::Transfer sent = io::send_all(socket.fd(), data, static_cast<std::size_t>(length), flags);
    const auto count = static_cast<int32_t>(sent.done);
    if (sent.whole()) return count;
    const int err = errno;
    // Kept: 22 stands when the system left no reason, so that callers never read 0 as a failure.
    store_field(conn->sendError, err != 0 ? err : EINVAL);
    // Kept: the line callers' logs have always shown; the failure itself is only in sendError.
    std::printf("NetConnectionSend:%d/%d(%s)\n", count, length, std::strerror(err));
    errno = err;
    return count;
}

int32_t receive_exact(NetConnection *conn, void *buffer, int32_t length, int32_t flags) {
    if (length <= 0) return 0;
    if (conn == nullptr) {
        errno = EINVAL;
        return -1;
    }
    const SocketUse socket(conn);
    const io::Transfer got =
        io::receive_exact(socket.fd(), buffer, static_cast<std::size_t>(length), io::OnSignal::Fail, flags);
    switch (got.ending) {
    case io::Ending::Whole:
        return length;
    case io::Ending::Closed:
        // The peer closed before the whole count: report it, so that no caller that returns
        // errno after a failed exchange reports success.
        errno = ECONNRESET;
        return 0;
    case io::Ending::Failed:
        break;
    }
    return -1;
}

int32_t receive_some(NetConnection *conn, void *buffer, int32_t length) {
    if (length <= 0) return 0;
    const SocketUse socket(conn);
    const ssize_t got = ::recv(socket.fd(), buffer, static_cast<std::size_t>(length), 0);
    if (got == 0) errno = ECONNRESET;  // as receive_exact reports a close
    return got < 0 ? -1 : static_cast<int32_t>(got);
}

void close_connection(NetConnection *conn) noexcept {
    store_field(conn->fileError, 0);
    store_field(conn->sendError, 0);
    const uint32_t before = conn->users.fetch_or(kClosed, std::memory_order_acq_rel);
    if ((before & kClosed) != 0) return;  // closed already
    const int fd = load_field(conn->sock);
    store_field(conn->sock, -1);
    if (fd < 0) return;
    // Transfers inside end now: a receive sees the end of the stream, a send fails. Nobody can have
    // closed the descriptor yet, since it is handed over only below.
    if ((before & ~kClosed) != 0) ::shutdown(fd, SHUT_RDWR);
    conn->closeLeft.store(fd, std::memory_order_release);
    if ((conn->users.load(std::memory_order_acquire) & ~kClosed) == 0) close_left(conn);
}

NetConnection *open_private_connection(const char *address, uint32_t port) {
    try {
        return open_connection(address, port).release();
    } catch (const std::bad_alloc &) {
        return nullptr;
    }
}

void destroy_private_connection(NetConnection *conn) noexcept {
    if (conn == nullptr) return;
    close_connection(conn);
    delete conn;
}

}  // namespace wrenlink::agent
