// The media list parser over any payload: it never reads past the payload's end; a payload it
// accepts is made of whole items, and writing the records back gives exactly the payload; one it
// refuses leaves the head alone and frees what it had parsed (LeakSanitizer).
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include "Wrenlink/MediaBean.h"
#include "doubles/media_list.h"

namespace {

std::string written_back(const __MediaBean *record) {
    std::string out;
    for (; record != nullptr; record = record->next) {
        out += wrenlink::test::media_item(record->value1, record->text1, record->value2, record->text2, record->value3,
                                          record->text3);
    }
    return out;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    __MediaBean head{};
    AgentStatus status = 0xBAD;
    const uint32_t items = ParseMediaBeanFromBytes(&head, data, size, &status);
    if (status != 0) {
        if (status != AgentShortPayload || items != 0 || head.next != nullptr) std::abort();
        return 0;
    }
    uint32_t chained = 0;
    for (const __MediaBean *b = head.next; b != nullptr; b = b->next) ++chained;
    if (chained != items || written_back(head.next) != std::string(reinterpret_cast<const char *>(data), size)) {
        std::abort();
    }
    wrenlink::test::free_media_list(head.next);
    return 0;
}
