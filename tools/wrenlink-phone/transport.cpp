#include "transport.h"

#include <sys/socket.h>
#include <sys/uio.h>

#include <cerrno>
#include <utility>

#include "base/platform.h"
#include "base/io.h"
#include "log.h"
#include "phone.h"
#include "services.h"

namespace phone {

namespace {
// A well-behaved server has one unacknowledged chunk per stream; a few more are tolerated, a flood
// ends the connection instead of growing memory.
constexpr std::size_t kMaxQueuedChunks = 8;

bool read_exactly(int fd, void *to, std::size_t size) { return wrenlink::io::receive_exact(fd, to, size).whole(); }

// Moves a gathered send on past the `sent` bytes that went out.
void skip_sent(msghdr &message, std::size_t sent) noexcept {
    while (message.msg_iovlen > 0 && sent >= message.msg_iov->iov_len) {
        sent -= message.msg_iov->iov_len;
        ++message.msg_iov;
        --message.msg_iovlen;
    }
    if (message.msg_iovlen > 0) {
        message.msg_iov->iov_base = static_cast<char *>(message.msg_iov->iov_base) + sent;
        message.msg_iov->iov_len -= sent;
    }
}
}  // namespace

// ---- Stream ----------------------------------------------------------------------------------

Stream::Stream(Transport &transport, uint32_t local_id, uint32_t remote_id)
    : transport_(transport), local_(local_id), remote_(remote_id) {
    int fds[2];
    if (wrenlink::platform::cloexec_pipe(fds)) {
        closed_read_.reset(fds[0]);
        closed_write_.reset(fds[1]);
    }
}

void Stream::signal_closed() noexcept {
    if (!closed_write_) return;
    const char byte = 1;
    [[maybe_unused]] const ssize_t ignored = ::write(closed_write_.get(), &byte, 1);
}

void Stream::accept() { transport_.send(kOkay, local_, remote_); }

void Stream::refuse() {
    {
        std::lock_guard lock(mutex_);
        closed_ = true;
    }
    signal_closed();
    transport_.send(kClose, 0, remote_);
    transport_.forget(local_);
}

bool Stream::write(std::string_view data) {
    const std::size_t piece = max_write();
    while (!data.empty()) {
        {
            std::unique_lock lock(mutex_);
            changed_.wait(lock, [&] { return !awaiting_okay_ || peer_closed_ || closed_; });
            if (peer_closed_ || closed_) return false;
            awaiting_okay_ = true;
        }
        const std::string_view chunk = data.substr(0, piece);
        if (!transport_.send(kWrite, local_, remote_, chunk)) return false;
        data.remove_prefix(chunk.size());
    }
    return true;
}

std::size_t Stream::max_write() const noexcept { return transport_.max_payload(); }

std::optional<std::string> Stream::read() {
    std::string chunk;
    {
        std::unique_lock lock(mutex_);
        changed_.wait(lock, [&] { return !inbox_.empty() || peer_closed_ || closed_; });
        if (inbox_.empty()) return std::nullopt;
        chunk = std::move(inbox_.front());
        inbox_.pop_front();
        if (peer_closed_ || closed_) return chunk;
    }
    transport_.send(kOkay, local_, remote_);
    return chunk;
}

void Stream::close() {
    bool tell_server = false;
    {
        std::lock_guard lock(mutex_);
        if (closed_) return;
        closed_ = true;
        tell_server = !peer_closed_;
        if (tell_server) signal_closed();
    }
    changed_.notify_all();
    if (tell_server) transport_.send(kClose, local_, remote_);
    transport_.forget(local_);
}

bool Stream::is_closed() const {
    std::lock_guard lock(mutex_);
    return closed_ || peer_closed_;
}

bool Stream::closed_by_peer() const {
    std::lock_guard lock(mutex_);
    return peer_closed_;
}

bool Stream::deliver(std::string data) {
    {
        std::lock_guard lock(mutex_);
        if (closed_ || peer_closed_) return true;   // late data for a stream on its way out
        if (inbox_.size() >= kMaxQueuedChunks) return false;
        inbox_.push_back(std::move(data));
    }
    changed_.notify_all();
    return true;
}

void Stream::acknowledge() {
    {
        std::lock_guard lock(mutex_);
        awaiting_okay_ = false;
    }
    changed_.notify_all();
}

void Stream::peer_closed() {
    {
        std::lock_guard lock(mutex_);
        if (peer_closed_) return;
        peer_closed_ = true;
        if (!closed_) signal_closed();
    }
    changed_.notify_all();
}

// ---- Transport -------------------------------------------------------------------------------

Transport::Transport(wrenlink::UniqueFd socket, const PhoneContext &phone) : socket_(std::move(socket)), phone_(phone) {}

Transport::~Transport() { close_everything(); }

void Transport::stop() noexcept { ::shutdown(socket_.get(), SHUT_RDWR); }

bool Transport::send(uint32_t command, uint32_t arg0, uint32_t arg1, std::string_view payload) {
    unsigned char header[kHeaderSize];
    encode_header(header, command, arg0, arg1, payload, peer_version_ < kVersion);
    if (verbosity() >= 2)
        log(2, "%s send %s %u %u (%zu bytes)", phone_.name.c_str(), command_name(command).c_str(), arg0, arg1,
            payload.size());
    iovec parts[2] = {{header, sizeof header}, {const_cast<char *>(payload.data()), payload.size()}};
    msghdr message{};
    message.msg_iov = parts;
    message.msg_iovlen = payload.empty() ? 1 : 2;
    std::lock_guard lock(send_mutex_);
    while (message.msg_iovlen > 0) {
        const ssize_t n = ::sendmsg(socket_.get(), &message, wrenlink::platform::send_flags());
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return false;
        skip_sent(message, static_cast<std::size_t>(n));
    }
    return true;
}

bool Transport::read_message(Message &m) {
    unsigned char raw[kHeaderSize];
    if (!read_exactly(socket_.get(), raw, sizeof raw)) return false;
    const std::optional<Header> header = decode_header(raw);
    if (!header) {
        log(0, "%s: malformed message header, dropping the connection", phone_.name.c_str());
        return false;
    }
    m.command = header->command;
    m.arg0 = header->arg0;
    m.arg1 = header->arg1;
    m.payload.assign(header->length, '\0');
    if (header->length > 0 && !read_exactly(socket_.get(), m.payload.data(), m.payload.size())) return false;
    if (peer_version_ < kVersion && payload_sum(m.payload) != header->checksum) {
        log(0, "%s: payload sum mismatch, dropping the connection", phone_.name.c_str());
        return false;
    }
    if (verbosity() >= 2)
        log(2, "%s recv %s %u %u (%zu bytes)", phone_.name.c_str(), command_name(m.command).c_str(), m.arg0, m.arg1,
            m.payload.size());
    return true;
}

void Transport::serve() {
    Message m;
    while (read_message(m) && handle(m)) reap_finished_workers();
    close_everything();
}

bool Transport::handle(Message &m) {
    if (m.command == kConnect) {
        reply_connect(m);
        return true;
    }
    if (!connected_) return true;   // nothing counts before the handshake
    switch (m.command) {
        case kOpen: {
            std::string service = std::move(m.payload);
            while (!service.empty() && service.back() == '\0') service.pop_back();
            if (m.arg0 != 0) open_stream(m.arg0, std::move(service));
            return true;
        }
        case kOkay:
            if (auto s = find(m.arg1)) s->acknowledge();
            return true;
        case kWrite:
            if (auto s = find(m.arg1)) {
                if (!s->deliver(std::move(m.payload))) {
                    log(0, "%s: server ignores flow control, dropping the connection", phone_.name.c_str());
                    return false;
                }
            }
            return true;
        case kClose:
            if (auto s = find(m.arg1)) {
                s->peer_closed();
                forget(m.arg1);
            }
            return true;
        default:
            return true;   // AUTH and unknown commands: a phone without authentication ignores them
    }
}

void Transport::reply_connect(const Message &m) {
    peer_version_ = m.arg0;
    const uint32_t peer_max = m.arg1 == 0 ? kOwnMaxPayload : m.arg1;
    max_payload_ = peer_max < kOwnMaxPayload ? peer_max : kOwnMaxPayload;
    connected_ = true;
    log(1, "%s: server connected (version 0x%08x, max payload %u)", phone_.name.c_str(), m.arg0, m.arg1);
    send(kConnect, kVersion, kOwnMaxPayload, phone_.banner());
}

void Transport::open_stream(uint32_t remote_id, std::string service) {
    std::shared_ptr<Stream> stream;
    {
        std::lock_guard lock(streams_mutex_);
        const uint32_t id = next_local_id_++;
        if (next_local_id_ == 0) next_local_id_ = 1;
        stream = std::make_shared<Stream>(*this, id, remote_id);
        streams_[id] = stream;
    }
    log(1, "%s: open \"%s\"", phone_.name.c_str(), service.c_str());
    auto done = std::make_shared<std::atomic<bool>>(false);
    std::thread worker([this, stream, done, service = std::move(service)] {
        run_service(*stream, service, phone_);
        stream->close();
        *done = true;
    });
    workers_.push_back({std::move(worker), std::move(done)});
}

std::shared_ptr<Stream> Transport::find(uint32_t local_id) {
    std::lock_guard lock(streams_mutex_);
    const auto it = streams_.find(local_id);
    return it == streams_.end() ? nullptr : it->second;
}

void Transport::forget(uint32_t local_id) {
    std::lock_guard lock(streams_mutex_);
    streams_.erase(local_id);
}

void Transport::reap_finished_workers() {
    for (auto it = workers_.begin(); it != workers_.end();) {
        if (*it->done) {
            it->thread.join();
            it = workers_.erase(it);
        } else {
            ++it;
        }
    }
}

void Transport::close_everything() {
    stop();
    std::map<uint32_t, std::shared_ptr<Stream>> streams;
    {
        std::lock_guard lock(streams_mutex_);
        streams.swap(streams_);
    }
    for (auto &[id, stream] : streams) stream->peer_closed();
    for (auto &w : workers_) w.thread.join();
    workers_.clear();
}

}  // namespace phone
