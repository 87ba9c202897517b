#include "profile.h"

#include <cerrno>
#include <cstring>
#include <fstream>
#include <sstream>

namespace phone {

namespace {
constexpr std::string_view kBlanks = " \t\r\n";
constexpr std::string_view kSettingPrefix = "phone.";

std::string_view trim(std::string_view s) {
    const auto first = s.find_first_not_of(kBlanks);
    if (first == std::string_view::npos) return {};
    const auto last = s.find_last_not_of(kBlanks);
    return s.substr(first, last - first + 1);
}

bool is_number(std::string_view word) {
    return !word.empty() && word.find_first_not_of("0123456789") == std::string_view::npos;
}

bool all_phone_paths(const std::vector<std::string> &words) {
    for (const auto &w : words)
        if (w.empty() || w.front() != '/') return false;
    return !words.empty();
}

// Why the value does not suit the setting, or nothing when it does.
std::optional<std::string> refusal(std::string_view name, std::string_view value) {
    const auto words = split_words(value);
    const auto takes = [&](std::string_view form) {
        return "phone." + std::string(name) + " takes " + std::string(form) + ", not '" + std::string(value) + "'";
    };
    if (name == "su" || name == "adb_root") {
        if (value != "yes" && value != "no") return takes("yes or no");
    } else if (name == "home") {
        if (words.size() != 1 || value.find('/') == std::string_view::npos) return takes("PACKAGE/ACTIVITY");
    } else if (name == "package") {
        if (words.empty() || words.size() > 4 || (words.size() > 1 && words[1] != "system" && words[1] != "user"))
            return takes("NAME system|user [CODE [VERSION]]");
    } else if (name == "storage") {
        if (words.size() != 4 || words[0].front() != '/' || !is_number(words[2]) || !is_number(words[3]))
            return takes("MOUNT FILESYSTEM SIZE USED");
    } else if (name == "writable" || name == "private") {
        if (!all_phone_paths(words)) return takes("phone paths");
    } else {
        return "unknown setting phone." + std::string(name);
    }
    return std::nullopt;
}
}  // namespace

std::vector<std::string> split_words(std::string_view text) {
    std::vector<std::string> words;
    std::size_t pos = 0;
    while ((pos = text.find_first_not_of(kBlanks, pos)) != std::string_view::npos) {
        const auto end = text.find_first_of(kBlanks, pos);
        words.emplace_back(text.substr(pos, end == std::string_view::npos ? std::string_view::npos : end - pos));
        pos = end;
    }
    return words;
}

std::optional<Profile> Profile::parse(std::string_view text, std::string &error) {
    Profile p;
    std::size_t start = 0;
    for (int number = 1; start <= text.size(); ++number) {
        const auto end = text.find('\n', start);
        const std::string_view line = trim(text.substr(start, end == std::string_view::npos ? std::string_view::npos : end - start));
        start = end == std::string_view::npos ? text.size() + 1 : end + 1;
        if (line.empty() || line.front() == '#') continue;
        const auto refuse = [&](const std::string &why) {
            error = "line " + std::to_string(number) + ": " + why;
            return std::nullopt;
        };
        const auto eq = line.find('=');
        const std::string_view key = trim(line.substr(0, eq));
        if (eq == std::string_view::npos || key.empty()) return refuse("not key=value: '" + std::string(line) + "'");
        const std::string_view value = trim(line.substr(eq + 1));
        if (key.starts_with(kSettingPrefix)) {
            const std::string_view name = key.substr(kSettingPrefix.size());
            if (const auto why = refusal(name, value)) return refuse(*why);
            p.settings_.emplace_back(name, value);
        } else {
            p.properties_[std::string(key)] = std::string(value);
        }
    }
    return p;
}

std::optional<Profile> Profile::load(const std::string &path, std::string &error) {
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        error = path + ": " + std::strerror(errno);
        return std::nullopt;
    }
    std::ostringstream text;
    text << in.rdbuf();
    auto profile = parse(text.str(), error);
    if (!profile) error = path + ":" + error.substr(std::string_view("line ").size());
    return profile;
}

std::string Profile::property(std::string_view key, std::string_view fallback) const {
    const auto it = properties_.find(key);
    return it == properties_.end() ? std::string(fallback) : it->second;
}

std::vector<std::string> Profile::settings(std::string_view name) const {
    std::vector<std::string> values;
    for (const auto &[key, value] : settings_)
        if (key == name) values.push_back(value);
    return values;
}

std::string Profile::setting(std::string_view name, std::string_view fallback) const {
    for (auto it = settings_.rbegin(); it != settings_.rend(); ++it)
        if (it->first == name) return it->second;
    return std::string(fallback);
}

}  // namespace phone
