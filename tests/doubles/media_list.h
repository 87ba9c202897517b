// Media lists from the test's side: an item as the agent puts it in a list reply, and the release
// of a list the library handed over (each record and its three texts, with WrenlinkFree).
#pragma once

#include <cstdint>
#include <string>

#include "Wrenlink/Wrenlink.h"
#include "base/wire.h"

namespace wrenlink::test {

inline std::string media_item(uint32_t v1, const std::string &t1, uint64_t v2, const std::string &t2, uint64_t v3,
                              const std::string &t3) {
    std::string item;
    wire::append_u32(item, v1);
    (item += t1) += '\0';
    wire::append_u64(item, v2);
    (item += t2) += '\0';
    wire::append_u64(item, v3);
    (item += t3) += '\0';
    return item;
}

inline void free_media_list(__MediaBean *record) {
    while (record != nullptr) {
        __MediaBean *next = record->next;
        WrenlinkFree(record->text1);
        WrenlinkFree(record->text2);
        WrenlinkFree(record->text3);
        WrenlinkFree(record);
        record = next;
    }
}

}  // namespace wrenlink::test
