// The media list parser over any payload: it never reads past the payload's end; a payload it
// accepts is made of whole items, and writing the records back gives exactly the payload; one it
// refuses leaves the head alone and frees what it had parsed (LeakSanitizer).
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include "Wrenlink/MediaBean.h"
#include "Wrenlink/wire.h"

namespace {

void append_text(std::string &out, const char *text) { out.append(text, std::strlen(text) + 1); }

std::string written_back(const __MediaBean *record) {
    std::string out;
    for (; record != nullptr; record = record->next) {
        wrenlink::wire::append_u32(out, record->value1);
        append_text(out, record->text1);
        wrenlink::wire::append_u64(out, record->value2);
        append_text(out, record->text2);
        wrenlink::wire::append_u64(out, record->value3);
        append_text(out, record->text3);
    }
    return out;
}

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
    free_chain(head.next);
    return 0;
}
