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

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size == 0) return 0;
    const std::string once(reinterpret_cast<const char *>(data + 1), size - 1);
    std::string payload;
    for (unsigned i = 0; i <= data[0] % 32u; ++i) payload += once;

    const auto reference = wrenlink::test::count_media_items(payload);

    const wrenlink::fuzz::SocketPeer peer(reinterpret_cast<const uint8_t *>(payload.data()), payload.size());
    if (!peer.whole()) return 0;
    __MediaBean head{};
    AgentStatus status = 0xBAD;
    wrenlink::agent::ReplyReader reply(peer.conn(), static_cast<uint32_t>(payload.size()));
    const uint32_t items = wrenlink::agent::receive_media_list(reply, &head, &status);
    uint32_t chained = 0;
    for (const __MediaBean *b = head.next; b != nullptr; b = b->next) ++chained;
    check(chained == items && status == (reference ? 0 : AgentShortPayload) && (reference || head.next == nullptr));
    if (reference) check(items == *reference && wrenlink::test::written_back(head.next) == payload);
    wrenlink::test::free_media_list(head.next);
    return 0;
}
