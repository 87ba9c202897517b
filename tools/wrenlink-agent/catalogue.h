// The media catalogue: images, music and videos.
//
// A kind's catalogue is every regular file under the root whose extension belongs to the kind,
// plus the paths added to it, less the paths deleted from it. It is read from the tree at each
// list, so files written or removed through the file operations show at the next list. Add and
// del change the catalogue only, never the files. Ids are given in the order paths are first seen
// and stay with their path for the agent's life.
#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <mutex>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "media_types.h"
#include "sandbox.h"

namespace wrenlink::reference_agent {

struct MediaItem {
    uint32_t id = 0;
    std::string path;  // phone path
    uint64_t size = 0;
    int64_t mtime = 0;
    std::string name;  // display name: the file name
    std::string mime;
};

// The wire form of a list reply: for each item value1 (id), text1 (phone path), value2 (size),
// text2 (display name), value3 (modification time), text3 (MIME type).
std::string encode_media_list(const std::vector<MediaItem> &items);

class Catalogue {
public:
    explicit Catalogue(const Sandbox &sandbox) : sandbox_(sandbox) {}

    // Sorted by phone path.
    std::vector<MediaItem> list(MediaKind kind);
    // 0, or errno: ENOENT (no such file), EINVAL (not a regular file), EEXIST (already listed),
    // EACCES (outside the root).
    int add(MediaKind kind, std::string_view phone);
    // 0, or ENOENT when the path is not in the catalogue.
    int remove(MediaKind kind, std::string_view phone);

private:
    // Whether the file belongs to the kind by itself (a regular file with a fitting extension).
    bool listed_by_tree(MediaKind kind, const Resolved &r) const;
    uint32_t id_for(const std::string &phone);

    const Sandbox &sandbox_;
    std::mutex mutex_;
    std::map<std::string, uint32_t> ids_;
    uint32_t next_id_ = 1;
    std::array<std::set<std::string>, kMediaKinds> added_, removed_;
};

}  // namespace wrenlink::reference_agent
