// Media lists from the test's side: an item as the agent puts it in a list reply, a plain reading
// of a whole list payload to hold the library's reader against, and the release of a list the
// library handed over (each record and its three texts, with WrenlinkFree).
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

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

struct MediaItem {
    uint32_t value1 = 0;
    std::string text1;
    uint64_t value2 = 0;
    std::string text2;
    uint64_t value3 = 0;
    std::string text3;
    bool operator==(const MediaItem &) const = default;
};

// The items of a whole payload, read one field after the other; nothing when the payload does not
// end exactly on an item's end or a text has no NUL before the end.
inline std::optional<std::vector<MediaItem>> parse_media_list(std::string_view payload) {
    auto field = [&payload](std::size_t size) -> const char * {  // null when fewer bytes are left
        if (payload.size() < size) return nullptr;
        const char *at = payload.data();
        payload.remove_prefix(size);
        return at;
    };
    auto text = [&](std::string &value) {
        const std::size_t nul = payload.find('\0');
        if (nul == std::string_view::npos) return false;
        value.assign(field(nul + 1), nul);
        return true;
    };
    std::vector<MediaItem> items;
    while (!payload.empty()) {
        MediaItem m;
        const char *v1 = field(4);
        if (v1 == nullptr || !text(m.text1)) return std::nullopt;
        const char *v2 = field(8);
        if (v2 == nullptr || !text(m.text2)) return std::nullopt;
        const char *v3 = field(8);
        if (v3 == nullptr || !text(m.text3)) return std::nullopt;
        m.value1 = wire::load_u32(v1);
        m.value2 = wire::load_u64(v2);
        m.value3 = wire::load_u64(v3);
        items.push_back(std::move(m));
    }
    return items;
}

// The items of a list the library handed over, in the order of its chain.
inline std::vector<MediaItem> items_of(const __MediaBean *record) {
    std::vector<MediaItem> items;
    for (; record != nullptr; record = record->next) {
        items.push_back({record->value1, record->text1, record->value2, record->text2, record->value3, record->text3});
    }
    return items;
}

using support::free_media_list;

}  // namespace wrenlink::test
