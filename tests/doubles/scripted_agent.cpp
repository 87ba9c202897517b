#include "doubles/scripted_agent.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <fcntl.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <stdexcept>
#include <string_view>
#include <variant>

#include "base/io.h"

namespace wrenlink::test {

namespace {

// Bitwise, on purpose: an implementation of its own, not the library's table.
uint32_t crc_of(const std::string &s) {
    uint32_t c = 0;
    for (unsigned char b : s) {
        c ^= b;
        for (int k = 0; k < 8; ++k) c = (c & 1u) ? (c >> 1) ^ 0xEDB88320u : c >> 1;
    }
    return c;
}

bool read_exact(int fd, std::string &into, std::size_t n) {
    const std::size_t start = into.size();
    into.resize(start + n);
    const io::Transfer t = io::receive_exact(fd, into.data() + start, n);
    into.resize(start + t.done);
    return t.whole();
}

bool send_all(int fd, std::string_view data) { return io::send_all(fd, data.data(), data.size()).whole(); }

}  // namespace

std::string bytes(const std::string &hexText) {
    std::string out;
    int nibbles = 0;
    unsigned value = 0;
    for (char ch : hexText) {
        unsigned v;
        if (ch >= '0' && ch <= '9') v = static_cast<unsigned>(ch - '0');
        else if (ch >= 'a' && ch <= 'f') v = static_cast<unsigned>(ch - 'a' + 10);
        else if (ch >= 'A' && ch <= 'F') v = static_cast<unsigned>(ch - 'A' + 10);
        else continue;
        value = value << 4 | v;
        if (++nibbles == 2) {
            out.push_back(static_cast<char>(value));
            nibbles = 0;
            value = 0;
        }
    }
    if (nibbles != 0) throw std::invalid_argument("odd number of hex digits");
    return out;
}

std::string hex(const std::string &data) {
    std::string out;
    char buf[4];
    for (unsigned char b : data) {
        std::snprintf(buf, sizeof buf, out.empty() ? "%02x" : " %02x", b);
        out += buf;
    }
    return out;
}

std::string le32(uint32_t v) {
    std::string s(4, '\0');
    wire::store_u32(s.data(), v);
    return s;
}

std::string le64(uint64_t v) {
    std::string s(8, '\0');
    wire::store_u64(s.data(), v);
    return s;
}

std::string header(uint32_t magic, uint32_t length, uint32_t opcode, uint32_t crc, uint32_t status) {
    return le32(magic) + le32(length) + le32(opcode) + le32(crc) + le32(status);
}

std::string reply(uint32_t status, const std::string &payload, std::optional<uint32_t> crc, uint32_t opcode) {
    return header(wire::kMagic, static_cast<uint32_t>(payload.size()), opcode, crc.value_or(crc_of(payload)), status) +
           payload;
}

std::string event(uint32_t opcode, const std::string &payload, std::optional<uint32_t> length) {
    return header(wire::kMagic, length.value_or(static_cast<uint32_t>(payload.size())), opcode, 0, 0) + payload;
}

// ---------------------------------------------------------------------------------------------

struct Script::Step {
    enum class Kind { Expect, Read, ExpectRequest, Send, SendFiller, Wait, Hook, Serve, Drain, Flood, Close, Reset };
    Kind kind;
    std::string data;
    std::size_t count = 0;
    uint32_t opcode = 0;
    std::chrono::milliseconds delay{0};
    std::function<void()> fn;
    Handler handler;
};

namespace {
std::shared_ptr<Script::Step> step(Script::Step::Kind kind) {
    auto s = std::make_shared<Script::Step>();
    s->kind = kind;
    return s;
}
}  // namespace

Script &Script::expect(std::string data) {
    auto s = step(Step::Kind::Expect);
    s->data = std::move(data);
    steps_.push_back(s);
    return *this;
}
Script &Script::read(std::size_t n) {
    auto s = step(Step::Kind::Read);
    s->count = n;
    steps_.push_back(s);
    return *this;
}
Script &Script::expect_request(uint32_t opcode) {
    auto s = step(Step::Kind::ExpectRequest);
    s->opcode = opcode;
    steps_.push_back(s);
    return *this;
}
Script &Script::send(std::string data) {
    auto s = step(Step::Kind::Send);
    s->data = std::move(data);
    steps_.push_back(s);
    return *this;
}
Script &Script::send_filler(std::size_t n) {
    auto s = step(Step::Kind::SendFiller);
    s->count = n;
    steps_.push_back(s);
    return *this;
}
Script &Script::wait(std::chrono::milliseconds delay) {
    auto s = step(Step::Kind::Wait);
    s->delay = delay;
    steps_.push_back(s);
    return *this;
}
Script &Script::hook(std::function<void()> fn) {
    auto s = step(Step::Kind::Hook);
    s->fn = std::move(fn);
    steps_.push_back(s);
    return *this;
}
Script &Script::serve(Handler handler) {
    auto s = step(Step::Kind::Serve);
    s->handler = std::move(handler);
    steps_.push_back(s);
    return *this;
}
Script &Script::drain() {
    steps_.push_back(step(Step::Kind::Drain));
    return *this;
}
Script &Script::flood(std::string data) {
    auto s = step(Step::Kind::Flood);
    s->data = std::move(data);
    steps_.push_back(s);
    return *this;
}
Script &Script::close() {
    steps_.push_back(step(Step::Kind::Close));
    return *this;
}
Script &Script::reset() {
    steps_.push_back(step(Step::Kind::Reset));
    return *this;
}

// ---------------------------------------------------------------------------------------------

struct ScriptedAgent::Conn {
    int fd = -1;
    std::size_t index = 0;
    mutable std::mutex mutex;
    std::string received;
};

ScriptedAgent::ScriptedAgent(uint16_t port, const char *bind_address) {
    listen_fd_ = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (listen_fd_ < 0) throw std::runtime_error("socket");
    const int one = 1;
    ::setsockopt(listen_fd_, SOL_SOCKET, SO_REUSEADDR, &one, sizeof one);
    sockaddr_in addr{};
    addr.sin_family = AF_INET;
    addr.sin_port = htons(port);
    ::inet_pton(AF_INET, bind_address, &addr.sin_addr);
    if (::bind(listen_fd_, reinterpret_cast<sockaddr *>(&addr), sizeof addr) != 0 || ::listen(listen_fd_, 64) != 0) {
        const std::string why = std::strerror(errno);
        ::close(listen_fd_);
        throw std::runtime_error("scripted agent cannot listen on port " + std::to_string(port) + ": " + why);
    }
    socklen_t len = sizeof addr;
    ::getsockname(listen_fd_, reinterpret_cast<sockaddr *>(&addr), &len);
    port_ = ntohs(addr.sin_port);
    if (::pipe2(wake_, O_CLOEXEC) != 0) throw std::runtime_error("pipe");
    acceptor_ = std::thread([this] { accept_loop(); });
}

ScriptedAgent::~ScriptedAgent() {
    const char x = 'x';
    (void)!::write(wake_[1], &x, 1);
    acceptor_.join();
    {
        std::lock_guard lock(mutex_);
        for (auto &c : conns_)
            if (c->fd >= 0) ::shutdown(c->fd, SHUT_RDWR);
    }
    for (auto &w : workers_) w.join();
    for (auto &c : conns_)
        if (c->fd >= 0) ::close(c->fd);
    ::close(listen_fd_);
    ::close(wake_[0]);
    ::close(wake_[1]);
}

ScriptedAgent &ScriptedAgent::add(Script script) {
    std::lock_guard lock(mutex_);
    scripts_.push_back(std::move(script));
    return *this;
}

void ScriptedAgent::accept_loop() {
    for (;;) {
        pollfd fds[2] = {{listen_fd_, POLLIN, 0}, {wake_[0], POLLIN, 0}};
        if (::poll(fds, 2, -1) < 0) {
            if (errno == EINTR) continue;
            return;
        }
        if (fds[1].revents != 0) return;
        const int fd = ::accept4(listen_fd_, nullptr, nullptr, SOCK_CLOEXEC);
        if (fd < 0) continue;
        auto conn = std::make_shared<Conn>();
        conn->fd = fd;
        std::lock_guard lock(mutex_);
        conn->index = conns_.size();
        conns_.push_back(conn);
        Script script;
        if (!scripts_.empty()) script = scripts_[std::min(conn->index, scripts_.size() - 1)];
        workers_.emplace_back([this, conn, script] { run(conn, script); });
    }
}

void ScriptedAgent::fail(const std::string &what) {
    std::lock_guard lock(mutex_);
    failures_ += what + "\n";
}

void ScriptedAgent::run(std::shared_ptr<Conn> conn, Script script) {
    const std::string where = "connection " + std::to_string(conn->index) + ": ";
    auto take = [&](std::size_t n, std::string &into) {
        std::string got;
        const bool whole = read_exact(conn->fd, got, n);
        {
            std::lock_guard lock(conn->mutex);
            conn->received += got;
        }
        into = std::move(got);
        return whole;
    };
    bool open = true;
    for (const auto &s : script.steps_) {
        if (!open) break;
        using K = Script::Step::Kind;
        std::string got;
        switch (s->kind) {
        case K::Expect:
            if (!take(s->data.size(), got) || got != s->data) {
                fail(where + "expected [" + hex(s->data) + "] got [" + hex(got) + "]");
                open = false;
            }
            break;
        case K::Read:
            if (!take(s->count, got)) {
                fail(where + "peer closed during a read of " + std::to_string(s->count) + " bytes");
                open = false;
            }
            break;
        case K::ExpectRequest: {
            if (!take(wire::kHeaderSize, got)) {
                fail(where + "peer closed before a request header");
                open = false;
                break;
            }
            const auto h = wire::decode_header(got.data());
            std::string payload;
            if (h.opcode != s->opcode) fail(where + "expected opcode " + std::to_string(s->opcode) + " got " + std::to_string(h.opcode));
            if (h.opcode != wire::op::kPing && !take(h.length, payload)) {
                fail(where + "peer closed inside a request payload");
                open = false;
            }
            break;
        }
        case K::Send:
            if (!send_all(conn->fd, s->data)) open = false;
            break;
        case K::SendFiller: {
            const std::string piece(64 * 1024, 'f');
            for (std::size_t left = s->count; open && left > 0;) {
                const std::size_t n = std::min(left, piece.size());
                open = send_all(conn->fd, std::string_view(piece).substr(0, n));
                left -= n;
            }
            break;
        }
        case K::Wait:
            std::this_thread::sleep_for(s->delay);
            break;
        case K::Hook:
            s->fn();
            break;
        case K::Serve:
            for (;;) {
                std::string head;
                if (!take(wire::kHeaderSize, head)) break;
                Request req{wire::decode_header(head.data()), {}};
                if (req.header.opcode != wire::op::kPing && !take(req.header.length, req.payload)) break;
                const auto answer = s->handler(req);
                if (!answer || !send_all(conn->fd, *answer)) break;
            }
            open = false;
            break;
        case K::Drain:
            while (take(4096, got)) {
            }
            open = false;
            break;
        case K::Flood: {
            // Reading at the same time keeps a peer that sends before it reads from blocking us both.
            std::thread reader([fd = conn->fd] {
                std::string dropped;
                while (read_exact(fd, dropped, 64 * 1024)) dropped.clear();
            });
            send_all(conn->fd, s->data);
            reader.join();
            open = false;
            break;
        }
        case K::Close:
            open = false;
            break;
        case K::Reset: {
            const linger abort{1, 0};
            ::setsockopt(conn->fd, SOL_SOCKET, SO_LINGER, &abort, sizeof abort);
            std::lock_guard lock(mutex_);
            ::close(conn->fd);
            conn->fd = -1;
            open = false;
            break;
        }
        }
    }
    {
        std::lock_guard lock(mutex_);
        if (conn->fd >= 0) ::shutdown(conn->fd, SHUT_RDWR);
    }
    std::lock_guard lock(mutex_);
    ++finished_;
    cv_.notify_all();
}

bool ScriptedAgent::wait_finished(std::size_t n, std::chrono::milliseconds limit) {
    std::unique_lock lock(mutex_);
    return cv_.wait_for(lock, limit, [&] { return finished_ >= n; });
}

std::string ScriptedAgent::received(std::size_t i) const {
    std::shared_ptr<Conn> c;
    {
        std::lock_guard lock(mutex_);
        if (i >= conns_.size()) return {};
        c = conns_[i];
    }
    std::lock_guard lock(c->mutex);
    return c->received;
}

std::size_t ScriptedAgent::connections() const {
    std::lock_guard lock(mutex_);
    return conns_.size();
}

std::string ScriptedAgent::failures() const {
    std::lock_guard lock(mutex_);
    return failures_;
}

}  // namespace wrenlink::test
