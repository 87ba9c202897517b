#include "Wrenlink/MediaBean.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "Wrenlink/wire.h"

namespace {

// The part of the payload not parsed yet; every read checks what is left first.
class Cursor {
public:
    Cursor(const unsigned char *at, uint64_t left) : at_(at), left_(left) {}
    bool done() const { return left_ == 0; }

    bool u32(uint32_t &v) {
        if (left_ < 4) return false;
        v = wrenlink::wire::load_u32(at_);
        advance(4);
        return true;
    }
    bool u64(uint64_t &v) {
        if (left_ < 8) return false;
        v = wrenlink::wire::load_u64(at_);
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

void free_chain(__MediaBean *record) {
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

}  // namespace

uint32_t ParseMediaBeanFromBytes(__MediaBean *head, const void *bytes, uint64_t count, AgentStatus *status) {
    *status = 0;
    Cursor in(static_cast<const unsigned char *>(bytes), count);
    __MediaBean *first = nullptr, *last = nullptr;
    uint32_t items = 0;
    while (!in.done()) {
        auto *record = static_cast<__MediaBean *>(std::calloc(1, sizeof(__MediaBean)));
        if (record == nullptr) {
            *status = ENOMEM;
            break;
        }
        if (last != nullptr) {
            last->next = record;
        } else {
            first = record;
        }
        last = record;
        if ((*status = parse_item(in, *record)) != 0) break;
        ++items;
    }
    if (*status != 0) {
        free_chain(first);
        return 0;
    }
    if (first != nullptr) head->next = first;
    return items;
}
