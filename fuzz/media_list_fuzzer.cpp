// The media list readers over any payload. The parser of a whole payload never reads past its end;
// a payload it accepts is made of whole items, and writing the records back gives exactly the
// payload; one it refuses leaves the head alone and frees what it had parsed (LeakSanitizer). The
// reader that parses a payload as it arrives from the connection, a window at a time, gives the
// same result and the same records.
//
// Input: one byte k, then the payload's bytes, which the agent sends k % 32 + 1 times over, so
// that items straddle the reader's 16 KiB window at every offset.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include "Wrenlink/MediaBean.h"
#include "doubles/media_list.h"
#include "socket_peer.h"

namespace {

void check(bool ok) {
    if (!ok) std::abort();
}

std::string written_back(const __MediaBean *record) {
    std::string out;
    for (; record != nullptr; record = record->next) {
        out += wrenlink::test::media_item(record->value1, record->text1, record->value2, record->text2, record->value3,
                                          record->text3);
    }
    return out;
}

struct Parsed {
    AgentStatus status;
    uint32_t items;
    std::string records;
};

// Checks what every parse promises and gives what it found; the records are freed.
Parsed judged(__MediaBean &head, uint32_t items, AgentStatus status) {
    if (status != 0) {
        check(items == 0 && head.next == nullptr);
        return {status, 0, {}};
    }
    uint32_t chained = 0;
    for (const __MediaBean *b = head.next; b != nullptr; b = b->next) ++chained;
    check(chained == items);
    Parsed parsed{status, items, written_back(head.next)};
    wrenlink::test::free_media_list(head.next);
    return parsed;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size == 0) return 0;
    const std::string once(reinterpret_cast<const char *>(data + 1), size - 1);
    std::string payload;
    for (unsigned i = 0; i <= data[0] % 32u; ++i) payload += once;

    __MediaBean whole{};
    AgentStatus status = 0xBAD;
    const uint32_t items = ParseMediaBeanFromBytes(&whole, payload.data(), payload.size(), &status);
    const Parsed fromBytes = judged(whole, items, status);
    check(fromBytes.status == 0 || fromBytes.status == AgentShortPayload);
    if (fromBytes.status == 0) check(fromBytes.records == payload);

    const wrenlink::fuzz::SocketPeer peer(reinterpret_cast<const uint8_t *>(payload.data()), payload.size());
    __MediaBean received{};
    status = 0xBAD;
    const uint32_t got = ReceiveMediaBeans(peer.conn(), &received, static_cast<uint32_t>(payload.size()), &status);
    const Parsed fromStream = judged(received, got, status);
    check(fromStream.status == fromBytes.status && fromStream.items == fromBytes.items &&
          fromStream.records == fromBytes.records);
    return 0;
}
