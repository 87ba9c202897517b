#include "tree.h"

#include "sandbox.h"

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <memory>

namespace wrenlink::reference_agent {

namespace {

struct DirCloser {
    void operator()(DIR *d) const { ::closedir(d); }
};

}  // namespace

FileInfo file_info(std::string phone, const struct stat &st) {
    FileInfo f;
    f.phone = std::move(phone);
    f.size = static_cast<uint64_t>(st.st_size);
    f.mtime = static_cast<int64_t>(st.st_mtime);
    f.mode = static_cast<uint32_t>(st.st_mode);
    return f;
}

bool list_directory(const std::string &host_dir, std::vector<DirEntry> &entries) {
    entries.clear();
    const int fd = ::open(host_dir.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    if (fd < 0) return false;
    std::unique_ptr<DIR, DirCloser> dir(::fdopendir(fd));
    if (!dir) {
        const int saved = errno;
        ::close(fd);
        errno = saved;
        return false;
    }
    while (const dirent *e = ::readdir(dir.get())) {
        const std::string name = e->d_name;
        if (name == "." || name == "..") continue;
        struct stat st {};
        if (::fstatat(fd, e->d_name, &st, AT_SYMLINK_NOFOLLOW) != 0) continue;  // gone meanwhile
        entries.push_back(DirEntry{name, file_info(name, st)});
    }
    std::sort(entries.begin(), entries.end(), [](const DirEntry &a, const DirEntry &b) { return a.name < b.name; });
    return true;
}

void walk_files(const std::string &host_root, const std::string &phone_root,
                const std::function<void(const FileInfo &)> &on_file, const std::function<bool()> &keep_going) {
    // An explicit stack: depth costs memory, never open descriptors or native stack.
    struct Pending {
        std::string host, phone;
    };
    std::vector<Pending> stack{{host_root, phone_root}};
    std::vector<DirEntry> entries;
    while (!stack.empty()) {
        if (!keep_going()) return;
        const Pending dir = std::move(stack.back());
        stack.pop_back();
        if (!list_directory(dir.host, entries)) continue;
        // Subdirectories go on the stack in reverse, so that they come out in byte order.
        const std::size_t first_sub = stack.size();
        for (auto &e : entries) {
            if (S_ISREG(e.info.mode)) {
                e.info.phone = join_path(dir.phone, e.name);
                on_file(e.info);
            } else if (S_ISDIR(e.info.mode)) {
                stack.push_back({join_path(dir.host, e.name), join_path(dir.phone, e.name)});
            }
        }
        std::reverse(stack.begin() + static_cast<std::ptrdiff_t>(first_sub), stack.end());
    }
}

}  // namespace wrenlink::reference_agent
