// The one reader of what an agent sends, for every family of the agent half: reply headers,
// payloads with their CRC, payloads dropped unread, and the scan's events.
//
// Its buffer is a 16 KiB window inside the reader, moved to the heap only for a piece larger than
// that which the caller asked to see whole (a media list item), so that a hostile length costs
// time, never memory. On a control connection it never receives past the reply it is reading:
// whatever a reply leaves in the window goes with the reader, and the next exchange, which makes
// a reader of its own, starts at its own header. On the scan's event connection it reads ahead as
// far as its window takes (64 KiB from the heap when it can be had), so that one receive brings in
// many events.
//
// Every receive goes through the connection's loops: a signal fails it (EINTR), and a close from
// another thread ends it.
#pragma once

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "Wrenlink/Wrenlink.h"
#include "agent/link/connection.h"
#include "base/malloc_block.h"
#include "base/packet.h"

namespace wrenlink::agent {

// errno after a failed send or receive. send_all and receive_exact always leave a reason
// (ECONNRESET for a closed stream), but a failed exchange must never read as success, so EIO
// stands in should errno hold 0.
inline int failure_errno() noexcept { return errno != 0 ? errno : EIO; }

// How a take ended. Only Whole, NoMemory and TooLong leave the stream in step.
enum class Took {
    Whole,
    Broken,    // a receive failed, or the stream ended inside the header: errno tells why
    BadMagic,  // the header was taken all the same
    Short,     // the stream ended inside the payload, or its length is 2^31 or more
    BadCrc,
    NoMemory,  // no block for the payload: it was read and dropped
    TooLong,   // the payload is longer than the caller can take: it was read and dropped
};

// A reply payload in one malloc block of exactly `size` bytes (no block when `size` is 0).
struct Payload {
    MallocBlock<unsigned char> bytes;
    uint32_t size = 0;
    const unsigned char *data() const noexcept { return bytes.get(); }
};

// The first bytes of a reply payload (a handle, a position) and the whole payload's size.
struct PayloadHead {
    unsigned char bytes[8] = {};
    uint32_t size = 0;
};

class ReplyReader {
public:
    static constexpr std::size_t kWindow = 16 * 1024;
    enum class Reach { ThisReply, Ahead };

    // Reading ahead, the reader takes a window of kAheadWindow from the heap where it can have
    // one: a receive then brings in hundreds of events, where the inline window's would bring in
    // a quarter as many, each receive costing more than the events it brings.
    static constexpr std::size_t kAheadWindow = 64 * 1024;

    explicit ReplyReader(NetConnection *conn, Reach reach = Reach::ThisReply) noexcept;
    // The reader of a payload of `length` bytes whose header was taken before.
    ReplyReader(NetConnection *conn, uint32_t length) noexcept : conn_(conn), left_(length) {}
    ReplyReader(const ReplyReader &) = delete;
    ReplyReader &operator=(const ReplyReader &) = delete;

    NetConnection *connection() const noexcept { return conn_; }
    // The request goes out on the reader's connection: the connection's send_all.
    int32_t send(const void *data, int32_t length, int32_t flags = 0);
    int32_t send(const std::string &packet) { return send(packet.data(), static_cast<int32_t>(packet.size())); }

    // A 20-byte header; its payload comes next. Whole, BadMagic or Broken.
    Took take_header(wire::PacketHeader &header) {
        if (reach_ == Reach::ThisReply) left_ = wire::kHeaderSize;
        const unsigned char *raw = peek(wire::kHeaderSize);
        if (raw == nullptr) return Took::Broken;
        const bool magic = wire::read_header(raw, header);
        skip(wire::kHeaderSize);
        left_ = header.length;
        return magic ? Took::Whole : Took::BadMagic;
    }
    // Bytes with no header (the ping's answer). Whole, Short when the peer closed first, Broken.
    Took take_unframed(void *to, std::size_t n);

    // The payload's bytes not yet taken.
    uint64_t left() const noexcept { return left_; }
    // The one guard on a payload's length: Short, without reading, for 2^31 or more (what no
    // receive can count); TooLong, after dropping it, for more than `cap`.
    Took guard(uint32_t cap = INT32_MAX);
    // The whole payload in one block, guarded by `cap`.
    Took take_payload(uint32_t cap, Payload &out);
    // The whole payload read in pieces, checked against `crc`; its first bytes kept.
    Took take_verified_head(uint32_t crc, PayloadHead &head);
    // Drops what is left of the payload: Whole, or Short when the stream ends first.
    Took drop_rest() { return drop(left_); }

    // The bytes in the window, next in the stream.
    const unsigned char *data() const noexcept { return base() + begin_; }
    std::size_t buffered() const noexcept { return end_ - begin_; }
    // The next n bytes in one piece, received as needed (a window larger than kWindow is taken
    // from the heap for them); they stay next until skip(n). Null when the stream ends first or
    // no memory can be had.
    const unsigned char *peek(std::size_t n) { return buffered() >= n || fill(n) == Fill::Done ? data() : nullptr; }
    void skip(std::size_t n) noexcept {
        begin_ += n;
        left_ -= left_ < n ? left_ : n;
    }
    // Receives the next piece of the payload behind what the window holds, growing it when it is
    // full. Whole, Short or NoMemory.
    Took receive_more();
    // Takes a field of `length` bytes: its first `keep` bytes (keep <= length, keep <= kWindow)
    // into `to`, the rest dropped. False when the stream ends first.
    bool read_prefix(void *to, std::size_t keep, uint64_t length);

private:
    enum class Fill { Done, Ended, Failed, NoMemory };
    // Receives until n bytes are in the window.
    Fill fill(std::size_t n);
    bool grow(std::size_t n);
    Took drop(uint64_t n);
    unsigned char *base() noexcept { return heap_ ? heap_.get() : window_; }
    const unsigned char *base() const noexcept { return heap_ ? heap_.get() : window_; }

    NetConnection *conn_;
    Reach reach_ = Reach::ThisReply;
    // What the reply still holds for the caller, the window's bytes among them; on a control
    // connection no receive goes past it.
    uint64_t left_ = 0;
    std::size_t begin_ = 0;
    std::size_t end_ = 0;
    std::size_t capacity_ = kWindow;
    std::unique_ptr<unsigned char[]> heap_;
    unsigned char window_[kWindow];
};

// Whether a failed send or header receive stores its errno in the connection's sendError.
enum class SendErrorRule { Untouched, Stored };

// The request of the media and scan families: gate on sendError, send the packet, take the reply
// header. Returns 0 with the header in `reply`, or the result to give back.
AgentStatus control_request(ReplyReader &reader, const std::string &packet, wire::PacketHeader &reply,
                            SendErrorRule rule);

}  // namespace wrenlink::agent
