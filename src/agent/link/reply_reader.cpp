#include "agent/link/reply_reader.h"

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <new>

namespace wrenlink::agent {

int32_t ReplyReader::send(const void *data, int32_t length, int32_t flags) {
    return send_all(conn_, data, length, flags);
}

ReplyReader::ReplyReader(NetConnection *conn, Reach reach) noexcept : conn_(conn), reach_(reach) {
    if (reach != Reach::Ahead) return;
    heap_.reset(new (std::nothrow) unsigned char[kAheadWindow]);
    if (heap_) capacity_ = kAheadWindow;
}

bool ReplyReader::grow(std::size_t n) {
    // A payload's window grows by doubling up to what the reply holds; never beyond n otherwise.
    const uint64_t limit = reach_ == Reach::ThisReply ? left_ : uint64_t{capacity_} * 2;
    const auto bigger = static_cast<std::size_t>(std::max<uint64_t>(n, std::min<uint64_t>(uint64_t{capacity_} * 2, limit)));
    std::unique_ptr<unsigned char[]> block(new (std::nothrow) unsigned char[bigger]);
    if (!block) return false;
    std::memcpy(block.get(), data(), buffered());
    end_ = buffered();
    begin_ = 0;
    heap_ = std::move(block);
    capacity_ = bigger;
    return true;
}

ReplyReader::Fill ReplyReader::fill(std::size_t n) {
    if (reach_ == Reach::ThisReply && n > left_) return Fill::Ended;  // the reply holds fewer
    if (n > capacity_ && !grow(n)) return Fill::NoMemory;
    if (begin_ > 0) {
        std::memmove(base(), data(), buffered());
        end_ -= begin_;
        begin_ = 0;
    }
    while (end_ < n) {
        std::size_t room = capacity_ - end_;
        if (reach_ == Reach::ThisReply) {
            // Exactly what the reply still holds, as far as the window takes: never a byte of
            // the next reply.
            room = static_cast<std::size_t>(std::min<uint64_t>(room, left_ - end_));
            const auto want = static_cast<int32_t>(room);
            const int32_t got = receive_exact(conn_, base() + end_, want, 0);
            if (got != want) return got == 0 ? Fill::Ended : Fill::Failed;
            end_ += room;
        } else {
            const int32_t got = receive_some(conn_, base() + end_, static_cast<int32_t>(std::min<std::size_t>(room, INT32_MAX)));
            if (got <= 0) return got == 0 ? Fill::Ended : Fill::Failed;
            end_ += static_cast<std::size_t>(got);
        }
    }
    return Fill::Done;
}

Took ReplyReader::take_unframed(void *to, std::size_t n) {
    if (reach_ == Reach::ThisReply) left_ = n;
    switch (buffered() >= n ? Fill::Done : fill(n)) {
    case Fill::Done:
        std::memcpy(to, data(), n);
        skip(n);
        return Took::Whole;
    case Fill::Failed:
        return Took::Broken;
    default:
        return Took::Short;
    }
}

Took ReplyReader::guard(uint32_t cap) {
    if (left_ > static_cast<uint32_t>(INT32_MAX)) return Took::Short;
    if (left_ > cap) return drop_rest() == Took::Whole ? Took::TooLong : Took::Short;
    return Took::Whole;
}

Took ReplyReader::take_payload(uint32_t cap, Payload &out) {
    out = Payload{};
    if (const Took guarded = guard(cap); guarded != Took::Whole) return guarded;
    const auto length = static_cast<uint32_t>(left_);
    if (length == 0) return Took::Whole;
    out.bytes.reset(static_cast<unsigned char *>(std::malloc(length)));
    if (!out.bytes) return drop_rest() == Took::Whole ? Took::NoMemory : Took::Short;
    // What the window holds, then the rest straight into the block.
    const std::size_t held = std::min<std::size_t>(buffered(), length);
    std::memcpy(out.bytes.get(), data(), held);
    skip(held);
    const auto rest = static_cast<int32_t>(length - held);
    if (rest > 0 && receive_exact(conn_, out.bytes.get() + held, rest, 0) != rest) {
        out = Payload{};
        return Took::Short;
    }
    left_ = 0;
    out.size = length;
    return Took::Whole;
}

Took ReplyReader::take_verified_head(uint32_t crc, PayloadHead &head) {
    if (const Took guarded = guard(); guarded != Took::Whole) return guarded;
    wire::PayloadCrc running;
    uint32_t done = 0;
    while (left_ > 0) {
        if (buffered() == 0 && fill(1) != Fill::Done) return Took::Short;
        const auto n = static_cast<std::size_t>(std::min<uint64_t>(buffered(), left_));
        running.add(data(), n);
        if (done < sizeof head.bytes) std::memcpy(head.bytes + done, data(), std::min(sizeof head.bytes - done, n));
        done += static_cast<uint32_t>(n);
        skip(n);
    }
    if (running.value() != crc) return Took::BadCrc;
    head.size = done;
    return Took::Whole;
}

Took ReplyReader::drop(uint64_t n) {
    while (n > 0) {
        if (buffered() == 0 && fill(1) != Fill::Done) return Took::Short;
        const auto k = static_cast<std::size_t>(std::min<uint64_t>(n, buffered()));
        skip(k);
        n -= k;
    }
    return Took::Whole;
}

Took ReplyReader::receive_more() {
    switch (fill(buffered() + 1)) {
    case Fill::Done: return Took::Whole;
    case Fill::NoMemory: return Took::NoMemory;
    default: return Took::Short;
    }
}

bool ReplyReader::read_prefix(void *to, std::size_t keep, uint64_t length) {
    const unsigned char *field = peek(keep);
    if (field == nullptr) return false;
    std::memcpy(to, field, keep);
    skip(keep);
    return drop(length - keep) == Took::Whole;
}

AgentStatus control_request(ReplyReader &reader, const std::string &packet, wire::PacketHeader &reply,
                            SendErrorRule rule) {
    NetConnection *conn = reader.connection();
    if (const int stored = load_field(conn->sendError)) return static_cast<AgentStatus>(stored);
    auto failed = [&] {
        const int err = failure_errno();
        if (rule == SendErrorRule::Stored) store_field(conn->sendError, err);
        return static_cast<AgentStatus>(err);
    };
    if (reader.send(packet) < 0) return failed();
    const Took took = reader.take_header(reply);
    if (took == Took::Broken) return failed();
    if (took == Took::BadMagic) return AgentBadMagic;
    return 0;
}

}  // namespace wrenlink::agent
