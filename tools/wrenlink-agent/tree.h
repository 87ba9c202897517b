// Walks of the served tree, shared by the scan and the media catalogue. A walk never follows a
// symbolic link (a link could lead out of the root) and passes over directories it cannot read.
#pragma once

#include <sys/stat.h>

#include <functional>
#include <string>
#include <vector>

namespace wrenlink::reference_agent {

struct FileInfo {
    std::string phone;  // phone path, "/DCIM/a.jpg"
    uint64_t size = 0;
    int64_t mtime = 0;  // seconds since the epoch
    uint32_t mode = 0;  // st_mode
};

FileInfo file_info(std::string phone, const struct stat &st);

// Calls `on_file` for every regular file under `host_root`: a directory's files, then its
// subdirectories one after the other, each in byte order of their names; phone paths go
// under `phone_root`. `keep_going` is asked once per directory; false ends the walk.
void walk_files(const std::string &host_root, const std::string &phone_root,
                const std::function<void(const FileInfo &)> &on_file,
                const std::function<bool()> &keep_going = [] { return true; });

// The entries of one directory, names in byte order, without "." and "..". Links are reported
// as links. Empty with errno set when the directory cannot be read.
struct DirEntry {
    std::string name;
    FileInfo info;
};
bool list_directory(const std::string &host_dir, std::vector<DirEntry> &entries);

}  // namespace wrenlink::reference_agent
