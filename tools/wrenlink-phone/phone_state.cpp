#include "phone_state.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>

#include "base/unique_fd.h"

namespace phone {

namespace {
constexpr unsigned kFirstUserUid = 10000;

std::vector<std::string> split_tabs(std::string_view line) {
    std::vector<std::string> fields;
    std::size_t pos = 0;
    for (;;) {
        const auto tab = line.find('\t', pos);
        fields.emplace_back(line.substr(pos, tab == std::string_view::npos ? std::string_view::npos : tab - pos));
        if (tab == std::string_view::npos) return fields;
        pos = tab + 1;
    }
}
}  // namespace

std::optional<std::string> read_file(const std::string &host_path) {
    std::ifstream in(host_path, std::ios::binary);
    if (!in) return std::nullopt;
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

bool write_file_atomically(const std::string &host_path, std::string_view content) {
    const std::string temp = host_path + ".tmp." + std::to_string(::getpid());
    {
        wrenlink::UniqueFd fd(::open(temp.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644));
        if (!fd) return false;
        std::size_t done = 0;
        while (done < content.size()) {
            const ssize_t n = ::write(fd.get(), content.data() + done, content.size() - done);
            if (n <= 0) {
                ::unlink(temp.c_str());
                return false;
            }
            done += static_cast<std::size_t>(n);
        }
    }
    if (::rename(temp.c_str(), host_path.c_str()) != 0) {
        ::unlink(temp.c_str());
        return false;
    }
    return true;
}

std::string system_apk_path(std::string_view name) {
    const std::string n(name);
    return "/system/app/" + n + "/" + n + ".apk";
}

std::string user_apk_path(std::string_view name) { return "/data/app/" + std::string(name) + "-1/base.apk"; }

std::vector<Package> load_packages(const Sandbox &sandbox) {
    std::vector<Package> packages;
    const auto text = read_file(sandbox.host_path(kPackagesFile));
    if (!text) return packages;
    std::istringstream in(*text);
    std::string line;
    while (std::getline(in, line)) {
        const auto f = split_tabs(line);
        if (f.size() < 7) continue;
        Package p;
        p.name = f[0];
        p.system = f[1] == "system";
        p.version_code = f[2];
        p.version_name = f[3];
        p.apk = f[4];
        p.install_time = std::strtoll(f[5].c_str(), nullptr, 10);
        p.uid = static_cast<uint32_t>(std::strtoul(f[6].c_str(), nullptr, 10));
        packages.push_back(std::move(p));
    }
    return packages;
}

bool save_packages(const Sandbox &sandbox, const std::vector<Package> &packages) {
    std::string text;
    for (const auto &p : packages) {
        text += p.name + '\t' + (p.system ? "system" : "user") + '\t' + p.version_code + '\t' + p.version_name + '\t' +
                p.apk + '\t' + std::to_string(p.install_time) + '\t' + std::to_string(p.uid) + '\n';
    }
    return write_file_atomically(sandbox.host_path(kPackagesFile), text);
}

std::vector<Package> profile_packages(const Profile &profile) {
    std::vector<Package> packages;
    const auto now = static_cast<int64_t>(::time(nullptr));
    uint32_t next_uid = kFirstUserUid;
    for (const auto &entry : profile.settings("package")) {
        const auto words = split_words(entry);
        if (words.empty()) continue;
        Package p;
        p.name = words[0];
        p.system = words.size() > 1 && words[1] == "system";
        if (words.size() > 2) p.version_code = words[2];
        if (words.size() > 3) p.version_name = words[3];
        p.apk = p.system ? system_apk_path(p.name) : user_apk_path(p.name);
        p.install_time = now;
        p.uid = p.system ? 1000 : next_uid++;
        packages.push_back(std::move(p));
    }
    return packages;
}

std::string home_component(const Profile &profile) {
    return profile.setting("home", "com.android.launcher3/.Launcher");
}

Focus load_focus(const Sandbox &sandbox, const Profile &profile) {
    Focus focus{home_component(profile), 1};
    const auto text = read_file(sandbox.host_path(kFocusFile));
    if (!text) return focus;
    const auto words = split_words(*text);
    if (words.size() >= 2) {
        focus.component = words[0];
        focus.task = static_cast<unsigned>(std::strtoul(words[1].c_str(), nullptr, 10));
    }
    return focus;
}

bool save_focus(const Sandbox &sandbox, const Focus &focus) {
    return write_file_atomically(sandbox.host_path(kFocusFile), focus.component + ' ' + std::to_string(focus.task) + '\n');
}

}  // namespace phone
