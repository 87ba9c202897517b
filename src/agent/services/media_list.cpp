#include "agent/services/media_list.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "base/wire.h"

namespace wrenlink::agent {

namespace {

// The part of the payload not parsed yet; every read checks what is left first.
class Cursor {
public:
    Cursor(const unsigned char *at, uint64_t left) : at_(at), left_(left) {}
    bool done() const { return left_ == 0; }

    bool u32(uint32_t &v) {
        if (left_ < 4) return false;
        v = wire::load_u32(at_);
        advance(4);
        return true;
    }
    bool u64(uint64_t &v) {
        if (left_ < 8) return false;
        v = wire::load_u64(at_);
        advance(8);
        return true;
    }
    // A NUL-terminated text, copied into a malloc block. `bad` tells a malformed payload from a
    // failed allocation when the result is null.
    char *text(AgentStatus &bad) {
        const void *nul = std::memchr(at_, '\0', static_cast<std::size_t>(left_));
        if (nul == nullptr) {
            bad = AgentShortPayload;
            return nullptr;
        }
        const auto size = static_cast<std::size_t>(static_cast<const unsigned char *>(nul) - at_) + 1;
        auto *copy = static_cast<char *>(std::malloc(size));
        if (copy == nullptr) {
            bad = ENOMEM;
            return nullptr;
        }
        std::memcpy(copy, at_, size);
        advance(size);
        return copy;
    }

private:
    void advance(uint64_t n) {
        at_ += n;
        left_ -= n;
    }
    const unsigned char *at_;
    uint64_t left_;
};

void free_chain(__MediaBean *record) noexcept {
    while (record != nullptr) {
        __MediaBean *next = record->next;
        std::free(record->text1);
        std::free(record->text2);
        std::free(record->text3);
        std::free(record);
        record = next;
    }
}

// One item into a cleared record. 0, or the reason it failed (the record keeps what it got, for
// free_chain to release).
AgentStatus parse_item(Cursor &in, __MediaBean &record) {
    AgentStatus bad = AgentShortPayload;
    uint32_t value1 = 0;
    uint64_t value2 = 0, value3 = 0;
    if (!in.u32(value1) || (record.text1 = in.text(bad)) == nullptr) return bad;
    if (!in.u64(value2) || (record.text2 = in.text(bad)) == nullptr) return bad;
    if (!in.u64(value3) || (record.text3 = in.text(bad)) == nullptr) return bad;
    record.value1 = value1;
    record.value2 = value2;
    record.value3 = value3;
    return 0;
}

// The size of the item at the start of [p, p + n) when it lies there whole, else 0.
std::size_t whole_item_size(const unsigned char *p, std::size_t n) {
    std::size_t at = 0;
    for (const std::size_t value : {4u, 8u, 8u}) {
        at += value;  // the number, then its text up to the NUL
        if (at >= n) return 0;
        const auto *nul = static_cast<const unsigned char *>(std::memchr(p + at, '\0', n - at));
        if (nul == nullptr) return 0;
        at = static_cast<std::size_t>(nul - p) + 1;
    }
    return at;
}

// Records parsed so far, in the order of the wire. They reach the caller's head only when the
// whole list is in; otherwise they are freed with the chain.
class MediaChain {
public:
    MediaChain() = default;
    MediaChain(const MediaChain &) = delete;
    MediaChain &operator=(const MediaChain &) = delete;
    ~MediaChain() { free_chain(first_); }

    // Parses the whole items at the start of [p, p + n), up to the first that is cut off; the
    // count of bytes they took. A failed allocation stops it with status() ENOMEM.
    std::size_t take(const unsigned char *p, std::size_t n) {
        std::size_t used = 0;
        while (const std::size_t size = whole_item_size(p + used, n - used)) {
            auto *record = static_cast<__MediaBean *>(std::calloc(1, sizeof(__MediaBean)));
            if (record == nullptr) {
                status_ = ENOMEM;
                return used;
            }
            (last_ != nullptr ? last_->next : first_) = record;
            last_ = record;
            Cursor in(p + used, size);
            if ((status_ = parse_item(in, *record)) != 0) return used;  // the item is whole: only ENOMEM
            ++items_;
            used += size;
        }
        return used;
    }
    AgentStatus status() const { return status_; }

    // Hangs the records on the head (an empty list leaves it alone) and hands them over.
    uint32_t attach(__MediaBean *head) {
        if (first_ != nullptr) head->next = first_;
        first_ = last_ = nullptr;
        return items_;
    }

private:
    __MediaBean *first_ = nullptr;
    __MediaBean *last_ = nullptr;
    uint32_t items_ = 0;
    AgentStatus status_ = 0;
};

}  // namespace

uint32_t receive_media_list(ReplyReader &reply, __MediaBean *head, AgentStatus *status) {
    *status = reply.guard() == Took::Whole ? 0 : AgentShortPayload;  // 2^31 or more: nothing read
    if (*status != 0) return 0;
    MediaChain chain;
    while (*status == 0 && reply.left() > reply.buffered()) {
        if (const Took took = reply.receive_more(); took != Took::Whole) {
            *status = took == Took::NoMemory ? ENOMEM : AgentShortPayload;
            break;
        }
        reply.skip(chain.take(reply.data(), reply.buffered()));
        *status = chain.status();
    }
    if (*status == 0 && reply.buffered() != 0) *status = AgentShortPayload;  // the payload ends inside an item
    // The rest of the payload is read and dropped, so that the stream stays in step.
    if (*status == ENOMEM && reply.drop_rest() != Took::Whole) *status = AgentShortPayload;
    return *status == 0 ? chain.attach(head) : 0;
}

}  // namespace wrenlink::agent
