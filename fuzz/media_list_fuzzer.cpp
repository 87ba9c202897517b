// The media list reader over any payload, as it arrives from the connection a window at a time,
// held against a plain reading of the whole payload (doubles/media_list.h). It accepts exactly the
// payloads made of whole items, and writing its records back gives exactly the payload; one it
// refuses leaves the head alone and frees what it had parsed (LeakSanitizer).
//
// Input: one byte k, then the payload's bytes, which the agent sends k % 32 + 1 times over, so
// that items straddle the reader's 16 KiB window at every offset.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include "agent/services/media_list.h"
#include "doubles/media_list.h"
#include "socket_peer.h"

namespace {

void check(bool ok) {
    if (!ok) std::abort();
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
    Parsed parsed{status, items, wrenlink::test::written_back(head.next)};
    wrenlink::test::free_media_list(head.next);
    return parsed;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size == 0) return 0;
    const std::string once(reinterpret_cast<const char *>(data + 1), size - 1);
    std::string payload;
    for (unsigned i = 0; i <= data[0] % 32u; ++i) payload += once;

    const auto reference = wrenlink::test::count_media_items(payload);

    const wrenlink::fuzz::SocketPeer peer(reinterpret_cast<const uint8_t *>(payload.data()), payload.size());
    __MediaBean received{};
    AgentStatus status = 0xBAD;
    const uint32_t got =
        wrenlink::agent::receive_media_list(peer.conn(), &received, static_cast<uint32_t>(payload.size()), &status);
    const Parsed parsed = judged(received, got, status);
    check(parsed.status == (reference ? 0 : AgentShortPayload));
    if (reference) check(parsed.items == *reference && parsed.records == payload);
    return 0;
}
