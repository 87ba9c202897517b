#include "soak/phone_tree.h"

#include <cstdlib>
#include <cstring>
#include <set>
#include <utility>

#include "support/scratch.h"

namespace wrenlink::soak {

namespace {

struct TreeFile {
    const char *path;  // the agent's phone path; the file lies at storage + path
    std::size_t size;
    MediaKind kind;
    bool media;
};

constexpr TreeFile kTree[] = {
    {"/DCIM/a.jpg", 1500, MediaKind::Images, true},      {"/DCIM/b.jpg", 2500, MediaKind::Images, true},
    {"/DCIM/Camera/c.png", 3500, MediaKind::Images, true}, {"/Music/m.mp3", 4500, MediaKind::Musics, true},
    {"/Movies/v.mp4", 5500, MediaKind::Videos, true},      {kPullAgentPath, kPullSize, MediaKind::Images, false},
};

}  // namespace

bool make_phone_tree(const std::string &storage) {
    for (const TreeFile &f : kTree)
        if (!support::write_pattern_file(storage + f.path, f.size)) return false;
    return true;
}

bool media_list_matches(MediaKind kind, const __MediaBean *first, uint32_t count, std::string &why) {
    std::set<std::pair<std::string, uint64_t>> expected, listed;
    for (const TreeFile &f : kTree)
        if (f.media && f.kind == kind) expected.emplace(f.path, f.size);
    uint32_t walked = 0;
    for (const __MediaBean *item = first; item != nullptr && walked <= count; item = item->next, ++walked) {
        const uint64_t size = item->value2;  // a copy: the packed record's field is not aligned
        listed.emplace(item->text1 != nullptr ? item->text1 : "(null)", size);
    }
    if (walked != count) {
        why = "the list holds " + std::to_string(walked) + " items where the count says " + std::to_string(count);
        return false;
    }
    if (listed != expected) {
        why = "the list names " + std::to_string(listed.size()) + " items, not the tree's " +
              std::to_string(expected.size());
        for (const auto &[path, size] : listed)
            if (expected.count({path, size}) == 0) why += "; unexpected " + path + " of " + std::to_string(size);
        return false;
    }
    return true;
}

bool scan_found_tree(const std::map<std::string, uint64_t> &found, std::string &why) {
    for (const TreeFile &f : kTree) {
        const auto it = found.find(f.path);
        if (it == found.end()) {
            why = std::string(f.path) + " is missing from a complete scan";
            return false;
        }
        if (it->second != f.size) {
            why = std::string(f.path) + " has size " + std::to_string(it->second) + ", not " + std::to_string(f.size);
            return false;
        }
    }
    return true;
}

bool parse_found_item(const char *item, std::string &path, uint64_t &size) {
    char *end = nullptr;
    size = std::strtoull(item, &end, 10);
    if (end == item || *end != '\t') return false;
    const char *tab = std::strrchr(item, '\t');
    if (tab == end) return false;  // two more fields come before the path
    path = tab + 1;
    return !path.empty();
}

}  // namespace wrenlink::soak
