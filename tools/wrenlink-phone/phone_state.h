// The state a phone keeps between commands, stored in its sandbox so that every command (each a
// separate process) sees the same: the installed packages and the activity in front.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "profile.h"
#include "sandbox.h"

namespace phone {

struct Package {
    std::string name;
    bool system = false;
    std::string version_code = "1";
    std::string version_name = "1.0";
    std::string apk;               // phone path of the package file
    int64_t install_time = 0;      // seconds since the epoch
    uint32_t uid = 10000;
};

inline constexpr std::string_view kPackagesFile = "/data/system/packages.list";
inline constexpr std::string_view kFocusFile = "/data/system/focused-activity";

std::vector<Package> load_packages(const Sandbox &sandbox);
bool save_packages(const Sandbox &sandbox, const std::vector<Package> &packages);

// The packages that a profile lists ("phone.package=NAME system|user [CODE [NAME]]").
std::vector<Package> profile_packages(const Profile &profile);

// Where a package's file lies on the phone.
std::string system_apk_path(std::string_view name);
std::string user_apk_path(std::string_view name);

struct Focus {
    std::string component;   // "pkg/.Activity"
    unsigned task = 1;
};

// The activity in front: the last one started, or the profile's home activity.
Focus load_focus(const Sandbox &sandbox, const Profile &profile);
bool save_focus(const Sandbox &sandbox, const Focus &focus);
std::string home_component(const Profile &profile);

// Writes a whole file through a temporary neighbour and a rename, so that a reader in another
// process never sees half of it.
bool write_file_atomically(const std::string &host_path, std::string_view content);
std::optional<std::string> read_file(const std::string &host_path);

}  // namespace phone
