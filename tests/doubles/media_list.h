// Media lists from the test's side: an item as the agent puts it in a list reply, a plain count
// of the items of a whole list payload and a list written back as its payload, to hold the
// library's reader against, and the release of a list the library handed over (each record and
// its three texts, with WrenlinkFree).
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "Wrenlink/Wrenlink.h"
#include "base/wire.h"
#include "support/media_list.h"

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

// The number of items of a whole payload, read one field after the other; nothing when the payload
// does not end exactly on an item's end or a text has no NUL before the end.
inline std::optional<std::size_t> count_media_items(std::string_view payload) {
    auto skip = [&payload](std::size_t size) {
        if (payload.size() < size) return false;
        payload.remove_prefix(size);
        return true;
    };
    auto text = [&] {
        const std::size_t nul = payload.find('\0');
        return nul != std::string_view::npos && skip(nul + 1);
    };
    std::size_t items = 0;
    for (; !payload.empty(); ++items) {
        if (!(skip(4) && text() && skip(8) && text() && skip(8) && text())) return std::nullopt;
    }
    return items;
}

// A list the library handed over, written back as the payload the agent would send for it.
inline std::string written_back(const __MediaBean *record) {
    std::string out;
    for (; record != nullptr; record = record->next) {
        out += media_item(record->value1, record->text1, record->value2, record->text2, record->value3, record->text3);
    }
    return out;
}

using support::free_media_list;

}  // namespace wrenlink::test
