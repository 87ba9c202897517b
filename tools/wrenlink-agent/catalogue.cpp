#include "catalogue.h"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>

#include "frame.h"
#include "tree.h"

namespace wrenlink::reference_agent {

namespace {

std::string_view base_name(std::string_view path) {
    const std::size_t slash = path.rfind('/');
    return slash == std::string_view::npos ? path : path.substr(slash + 1);
}

std::size_t index(MediaKind kind) { return static_cast<std::size_t>(kind); }

}  // namespace

std::string encode_media_list(const std::vector<MediaItem> &items) {
    std::string out;
    for (const auto &item : items) {
        put_u32(out, item.id);
        put_text(out, item.path);
        put_u64(out, item.size);
        put_text(out, item.name);
        put_u64(out, static_cast<uint64_t>(item.mtime));
        put_text(out, item.mime);
    }
    return out;
}

uint32_t Catalogue::id_for(const std::string &phone) {
    const auto [it, inserted] = ids_.try_emplace(phone, next_id_);
    if (inserted) ++next_id_;
    return it->second;
}

bool Catalogue::listed_by_tree(MediaKind kind, const Resolved &r) const {
    struct stat st {};
    return r.error == 0 && ::lstat(r.host.c_str(), &st) == 0 && S_ISREG(st.st_mode) &&
           media_kind_of(r.phone) == kind;
}

std::vector<MediaItem> Catalogue::list(MediaKind kind) {
    std::vector<FileInfo> files;
    walk_files(sandbox_.root(), "/", [&](const FileInfo &f) {
        if (media_kind_of(f.phone) == kind) files.push_back(f);
    });

    std::lock_guard lock(mutex_);
    const auto &removed = removed_[index(kind)];
    std::erase_if(files, [&](const FileInfo &f) { return removed.count(f.phone) != 0; });
    for (const auto &phone : added_[index(kind)]) {
        const Resolved r = sandbox_.resolve(phone, Leaf::Follow);
        struct stat st {};
        if (r.error == 0 && ::stat(r.host.c_str(), &st) == 0 && S_ISREG(st.st_mode))
            files.push_back(file_info(phone, st));
    }
    std::sort(files.begin(), files.end(), [](const FileInfo &a, const FileInfo &b) { return a.phone < b.phone; });
    files.erase(std::unique(files.begin(), files.end(),
                            [](const FileInfo &a, const FileInfo &b) { return a.phone == b.phone; }),
                files.end());

    std::vector<MediaItem> items;
    items.reserve(files.size());
    for (const auto &f : files) {
        items.push_back(MediaItem{id_for(f.phone), f.phone, f.size, f.mtime, std::string(base_name(f.phone)),
                                  std::string(mime_type_of(f.phone))});
    }
    return items;
}

int Catalogue::add(MediaKind kind, std::string_view phone) {
    const Resolved r = sandbox_.resolve(phone, Leaf::Follow);
    if (r.error != 0) return r.error;
    struct stat st {};
    if (::stat(r.host.c_str(), &st) != 0) return errno;
    if (!S_ISREG(st.st_mode)) return EINVAL;

    std::lock_guard lock(mutex_);
    auto &added = added_[index(kind)];
    auto &removed = removed_[index(kind)];
    if (listed_by_tree(kind, sandbox_.resolve(phone, Leaf::NoFollow))) return removed.erase(r.phone) != 0 ? 0 : EEXIST;
    removed.erase(r.phone);
    if (!added.insert(r.phone).second) return EEXIST;
    id_for(r.phone);
    return 0;
}

int Catalogue::remove(MediaKind kind, std::string_view phone) {
    const Resolved r = sandbox_.resolve(phone, Leaf::NoFollow);
    if (r.error != 0) return r.error;

    std::lock_guard lock(mutex_);
    const bool was_added = added_[index(kind)].erase(r.phone) != 0;
    if (listed_by_tree(kind, r) && removed_[index(kind)].insert(r.phone).second) return 0;
    return was_added ? 0 : ENOENT;
}

}  // namespace wrenlink::reference_agent
