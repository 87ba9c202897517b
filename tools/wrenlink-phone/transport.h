// One connection from an adb server: the handshake that makes us an online, unlocked phone, the
// streams that the server opens on it, and their flow control.
//
// Threads: serve() reads messages on the caller's thread; every stream's service runs on a thread of
// its own and talks to the server through its Stream. A WRTE in either direction waits for the
// other side's OKAY before the next one on the same stream, so a stream holds at most one chunk
// from the server at any time.
#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "base/unique_fd.h"
#include "message.h"

namespace phone {

struct PhoneContext;
class Transport;

class Stream {
public:
    Stream(Transport &transport, uint32_t local_id, uint32_t remote_id);

    uint32_t local_id() const noexcept { return local_; }

    // For the service. Exactly one of accept() and refuse() comes first.
    void accept();   // the stream is open: the server may write to it
    void refuse();   // the service does not exist or could not start
    // Sends data in pieces the server accepts, each after the OKAY of the one before. False once
    // the stream is closed by either side.
    bool write(std::string_view data);
    // The most that one message of write() carries, as agreed with the server.
    std::size_t max_write() const noexcept;
    // The next chunk the server wrote, acknowledged as it is taken; nullopt once the stream is
    // closed and nothing is left.
    std::optional<std::string> read();
    void close();   // idempotent; tells the server unless it closed first
    bool is_closed() const;
    bool closed_by_peer() const;
    // A descriptor that turns readable once the stream is closed by either side, for services that
    // wait on descriptors of their own (a child's pipes, a socket) with poll().
    int closed_signal() const noexcept { return closed_read_.get(); }

    // For the transport's reader.
    bool deliver(std::string data);   // false when the server ignores flow control
    void acknowledge();
    void peer_closed();

private:
    void signal_closed() noexcept;

    Transport &transport_;
    const uint32_t local_;
    const uint32_t remote_;
    mutable std::mutex mutex_;
    std::condition_variable changed_;
    std::deque<std::string> inbox_;
    bool awaiting_okay_ = false;
    bool peer_closed_ = false;
    bool closed_ = false;
    wrenlink::UniqueFd closed_read_;
    wrenlink::UniqueFd closed_write_;
};

class Transport {
public:
    Transport(wrenlink::UniqueFd socket, const PhoneContext &phone);
    Transport(const Transport &) = delete;
    Transport &operator=(const Transport &) = delete;
    ~Transport();

    // Serves the connection until the server goes away, breaks the protocol or stop() is called;
    // every stream is closed and every service thread joined before it returns.
    void serve();
    void stop() noexcept;

    // One message: its header and the payload where it lies, in one gathered send.
    bool send(uint32_t command, uint32_t arg0, uint32_t arg1, std::string_view payload = {});
    uint32_t max_payload() const noexcept { return max_payload_; }
    const PhoneContext &phone() const noexcept { return phone_; }
    void forget(uint32_t local_id);

private:
    bool read_message(Message &m);
    bool handle(Message &m);   // false: the connection must end
    void reply_connect(const Message &m);
    void open_stream(uint32_t remote_id, std::string service);
    std::shared_ptr<Stream> find(uint32_t local_id);
    void reap_finished_workers();
    void close_everything();

    struct Worker {
        std::thread thread;
        std::shared_ptr<std::atomic<bool>> done;
    };

    wrenlink::UniqueFd socket_;
    const PhoneContext &phone_;
    std::mutex send_mutex_;
    std::mutex streams_mutex_;
    std::map<uint32_t, std::shared_ptr<Stream>> streams_;
    std::vector<Worker> workers_;
    uint32_t next_local_id_ = 1;
    bool connected_ = false;
    std::atomic<uint32_t> peer_version_{kVersionChecksummed};
    std::atomic<uint32_t> max_payload_{kOwnMaxPayload};
};

}  // namespace phone
