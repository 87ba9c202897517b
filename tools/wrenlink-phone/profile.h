// A phone's profile: the values its getprop shows and the state it starts with.
//
// The file is text, one "key=value" per line; blank lines and lines that begin with '#' are skipped,
// blanks around key and value are dropped. Keys that begin with "phone." describe the phone rather
// than name a property, and may repeat (packages, storage); every other key is a property. See
// README.md for the keys. A line that is not "key=value", an unknown "phone." key or a value that
// its key does not take is refused, so that a typing error shows at start rather than as a phone
// that quietly behaves otherwise.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace phone {

class Profile {
public:
    // nullopt with "line N: <reason>" for the first line refused.
    static std::optional<Profile> parse(std::string_view text, std::string &error);
    // nullopt with "<path>: <reason>" or "<path>:<line>: <reason>" when the file cannot be read or
    // holds a line that is refused.
    static std::optional<Profile> load(const std::string &path, std::string &error);

    // The property's value, or the fallback when the profile does not set it.
    std::string property(std::string_view key, std::string_view fallback = {}) const;
    const std::map<std::string, std::string, std::less<>> &properties() const noexcept { return properties_; }

    // Every value of "phone.<name>", in file order; and the last one, or the fallback.
    std::vector<std::string> settings(std::string_view name) const;
    std::string setting(std::string_view name, std::string_view fallback = {}) const;

private:
    std::map<std::string, std::string, std::less<>> properties_;
    std::vector<std::pair<std::string, std::string>> settings_;
};

// Blank-separated words of a text.
std::vector<std::string> split_words(std::string_view text);

}  // namespace phone
