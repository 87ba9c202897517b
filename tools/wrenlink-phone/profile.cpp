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

Profile Profile::parse(std::string_view text) {
    Profile p;
    std::size_t start = 0;
    while (start <= text.size()) {
        const auto end = text.find('\n', start);
        const std::string_view line = trim(text.substr(start, end == std::string_view::npos ? std::string_view::npos : end - start));
        start = end == std::string_view::npos ? text.size() + 1 : end + 1;
        if (line.empty() || line.front() == '#') continue;
        const auto eq = line.find('=');
        if (eq == std::string_view::npos) continue;
        const std::string_view key = trim(line.substr(0, eq));
        const std::string_view value = trim(line.substr(eq + 1));
        if (key.empty()) continue;
        if (key.starts_with(kSettingPrefix))
            p.settings_.emplace_back(key.substr(kSettingPrefix.size()), value);
        else
            p.properties_[std::string(key)] = std::string(value);
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
    return parse(text.str());
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
