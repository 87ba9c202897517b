#include "sandbox.h"

#include <unistd.h>

#include <algorithm>
#include <climits>
#include <vector>

#include "phone_path.h"

namespace phone {

std::optional<std::string> resolve_phone_path(std::string_view path, std::string_view base) {
    if (path.starts_with('/')) return wrenlink::tools::normal_phone_path(path);
    std::string joined(base);
    joined += '/';
    joined += path;
    return wrenlink::tools::normal_phone_path(joined);
}

bool path_within(std::string_view path, std::string_view prefix) noexcept {
    if (prefix == "/") return true;
    return path.starts_with(prefix) && (path.size() == prefix.size() || path[prefix.size()] == '/');
}

namespace {
std::vector<std::string> resolved_list(const Profile &profile, std::string_view name,
                                       std::initializer_list<std::string_view> defaults) {
    std::vector<std::string> out;
    for (const auto &value : profile.settings(name))
        for (const auto &word : split_words(value))
            if (auto path = resolve_phone_path(word)) out.push_back(std::move(*path));
    if (out.empty())
        for (const auto d : defaults) out.emplace_back(d);
    return out;
}
}  // namespace

Sandbox::Sandbox(std::string root, const Profile &profile)
    : root_(std::move(root)),
      writable_(resolved_list(profile, "writable", {"/sdcard", "/storage", "/data/local/tmp"})),
      private_(resolved_list(profile, "private", {"/data/data", "/data/system"})) {
    while (root_.size() > 1 && root_.back() == '/') root_.pop_back();
}

std::string Sandbox::host_path(std::string_view phone_path) const {
    const auto resolved = resolve_phone_path(phone_path);
    if (!resolved) return {};
    return *resolved == "/" ? root_ : root_ + *resolved;
}

std::string Sandbox::current_phone_dir() const {
    char buf[PATH_MAX];
    if (!::getcwd(buf, sizeof buf)) return "/";
    const std::string_view cwd = buf;
    if (!path_within(cwd, root_)) return "/";
    const std::string_view rest = cwd.substr(root_.size());
    return resolve_phone_path(rest).value_or("/");
}

std::optional<std::string> Sandbox::phone_path_of(std::string_view argument) const {
    return resolve_phone_path(argument, argument.starts_with('/') ? "/" : current_phone_dir());
}

bool Sandbox::may_write(std::string_view phone_path, bool as_root) const {
    if (as_root) return true;
    return std::any_of(writable_.begin(), writable_.end(), [&](const std::string &w) { return path_within(phone_path, w); });
}

bool Sandbox::may_read(std::string_view phone_path, bool as_root) const {
    if (as_root) return true;
    return std::none_of(private_.begin(), private_.end(), [&](const std::string &p) { return path_within(phone_path, p); });
}

}  // namespace phone
