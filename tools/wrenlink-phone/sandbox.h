// The directory that plays the phone's "/": how phone paths map into it, and which of them the
// phone's shell user may read and write.
//
// Paths are mapped lexically, by the rule both tools share (tools/common/phone_path.h): "." and
// ".." are resolved before the sandbox root is put in front, and a path whose ".." would climb above
// "/" is refused (the commands and transfers answer it as a permission denied). This keeps the phone's own commands and the file transfers inside the
// sandbox; it is no security boundary (the shell is the host's /bin/sh, and its redirections and
// builtins see host paths).
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "profile.h"

namespace phone {

// An absolute phone path with "." and ".." resolved, a relative one taken from `base`; nullopt when
// it climbs above "/".
std::optional<std::string> resolve_phone_path(std::string_view path, std::string_view base = "/");

// Whether `path` is `prefix` or lies below it (both absolute and resolved).
bool path_within(std::string_view path, std::string_view prefix) noexcept;

class Sandbox {
public:
    Sandbox(std::string root, const Profile &profile);

    const std::string &root() const noexcept { return root_; }
    // The host path of a phone path; empty (which every system call refuses) when it climbs above "/".
    std::string host_path(std::string_view phone_path) const;
    // The phone path that a command's argument names, relative ones from the current directory;
    // nullopt when it climbs above "/".
    std::optional<std::string> phone_path_of(std::string_view argument) const;
    // The phone path of the current directory ("/" when it lies outside the sandbox).
    std::string current_phone_dir() const;

    // The shell user writes only below the writable places and reads everything but the private
    // ones; root does both everywhere.
    bool may_write(std::string_view phone_path, bool as_root) const;
    bool may_read(std::string_view phone_path, bool as_root) const;

private:
    std::string root_;
    std::vector<std::string> writable_;
    std::vector<std::string> private_;
};

}  // namespace phone
