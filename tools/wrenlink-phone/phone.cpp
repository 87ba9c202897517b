#include "phone.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "commands.h"
#include "phone_state.h"

namespace phone {

namespace {
// The phone's skeleton: what a freshly flashed phone has that the library's commands reach for.
constexpr const char *kDirectories[] = {
    "/system/bin", "/system/app", "/data/app", "/data/data", "/data/local/tmp", "/data/system",
    "/sdcard",     "/storage",    "/proc",       "/dev",
};

// Variables of the host that the phone's commands keep: the sanitizers' settings, so that a
// sanitized build of this program behaves the same when it runs as a phone command.
constexpr const char *kKeptHostVariables[] = {"ASAN_OPTIONS", "UBSAN_OPTIONS", "LSAN_OPTIONS", "TSAN_OPTIONS"};

bool make_directories(const std::string &host_path, std::string &error) {
    std::string partial;
    std::size_t pos = 0;
    while (pos != std::string::npos) {
        pos = host_path.find('/', pos + 1);
        partial = host_path.substr(0, pos);
        if (partial.empty()) continue;
        if (::mkdir(partial.c_str(), 0755) != 0 && errno != EEXIST) {
            error = partial + ": " + std::strerror(errno);
            return false;
        }
    }
    return true;
}

bool link_command(const std::string &bin_dir, const std::string &name, const std::string &target, std::string &error) {
    const std::string link = bin_dir + "/" + name;
    ::unlink(link.c_str());
    if (::symlink(target.c_str(), link.c_str()) != 0) {
        error = link + ": " + std::strerror(errno);
        return false;
    }
    return true;
}

bool seed_packages(const PhoneContext &phone, std::string &error) {
    if (::access(phone.sandbox.host_path(kPackagesFile).c_str(), F_OK) == 0) return true;
    const auto packages = profile_packages(phone.profile);
    for (const auto &p : packages) {
        const std::string apk = phone.sandbox.host_path(p.apk);
        if (!make_directories(apk.substr(0, apk.rfind('/')), error)) return false;
        if (!write_file_atomically(apk, "PK\x05\x06" + std::string(18, '\0'))) {   // an empty zip
            error = apk + ": " + std::strerror(errno);
            return false;
        }
    }
    if (!save_packages(phone.sandbox, packages)) {
        error = "cannot write the package list: " + std::string(std::strerror(errno));
        return false;
    }
    return true;
}
}  // namespace

std::string PhoneContext::banner() const {
    return "device::ro.product.name=" + profile.property("ro.product.name") +
           ";ro.product.model=" + profile.property("ro.product.model") +
           ";ro.product.device=" + profile.property("ro.product.device") + ";";
}

std::vector<std::string> PhoneContext::shell_environment(bool as_root) const {
    const std::string &root = sandbox.root();
    std::vector<std::string> env = {
        "PATH=" + root + "/system/bin:/usr/local/bin:/usr/bin:/bin",
        "HOME=" + root,
        "ANDROID_DATA=/data",
        "ANDROID_ROOT=/system",
        "EXTERNAL_STORAGE=/sdcard",
        "TERM=dumb",
        std::string("PS1=") + (as_root ? "# " : "$ "),
        std::string(kEnvSandbox) + "=" + root,
        std::string(kEnvProfile) + "=" + profile_path,
        std::string(kEnvUid) + "=" + (as_root ? "0" : std::to_string(kShellUid)),
    };
    for (const char *variable : kKeptHostVariables)
        if (const char *value = std::getenv(variable)) env.push_back(std::string(variable) + "=" + value);
    return env;
}

bool prepare_sandbox(const PhoneContext &phone, std::string &error) {
    for (const char *dir : kDirectories)
        if (!make_directories(phone.sandbox.host_path(dir), error)) return false;
    for (const auto &entry : phone.profile.settings("storage")) {
        const auto words = split_words(entry);
        if (!words.empty() && !make_directories(phone.sandbox.host_path(words[0]), error)) return false;
    }
    const std::string bin_dir = phone.sandbox.host_path("/system/bin");
    for (const auto &name : command_names())
        if (!link_command(bin_dir, name, phone.executable, error)) return false;
    return seed_packages(phone, error);
}

}  // namespace phone
