// A connection record whose agent is the other end of a socketpair: the agent sends the fuzzer's
// bytes and then closes its sending side, so any read past them ends the stream as a closing
// agent would. What the library sends piles up unread on the agent's side.
#pragma once

#include <sys/socket.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <thread>

#include "agent/link/connection.h"

namespace wrenlink::fuzz {

class SocketPeer {
public:
    SocketPeer(const uint8_t *data, std::size_t size) {
        int fds[2];
        if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, fds) != 0) std::abort();
        conn_ = new NetConnection;
        conn_->sock = fds[0];
        agent_ = fds[1];
        // Small inputs fit the socket's buffer at once; larger ones go from a thread, which a read
        // that stops early leaves blocked until the connection is closed.
        if (size <= kFitsAtOnce) {
            send_and_close(agent_, data, size);
        } else {
            writer_ = std::thread(send_and_close, agent_, data, size);
        }
    }
    ~SocketPeer() {
        agent::destroy_private_connection(conn_);  // ends a blocked writer with EPIPE
        if (writer_.joinable()) writer_.join();
        ::close(agent_);
    }
    SocketPeer(const SocketPeer &) = delete;
    SocketPeer &operator=(const SocketPeer &) = delete;

    NetConnection *conn() const { return conn_; }

    // Whether the connection's lock is free: every exit of an exchange must release it.
    bool lock_is_free() const {
        if (!conn_->mutex.try_lock()) return false;
        conn_->mutex.unlock();
        return true;
    }

private:
    static constexpr std::size_t kFitsAtOnce = 16 * 1024;

    static void send_and_close(int fd, const uint8_t *data, std::size_t size) {
        while (size > 0) {
            const ssize_t n = ::send(fd, data, size, MSG_NOSIGNAL);
            if (n <= 0) break;
            data += n;
            size -= static_cast<std::size_t>(n);
        }
        ::shutdown(fd, SHUT_WR);
    }

    NetConnection *conn_ = nullptr;
    int agent_ = -1;
    std::thread writer_;
};

}  // namespace wrenlink::fuzz
