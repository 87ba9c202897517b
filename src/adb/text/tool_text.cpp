#include "adb/text/tool_text.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <utility>

namespace wrenlink::adb {

namespace {

constexpr std::string_view kDevicesHeader = "List of devices attached";

bool contains(std::string_view text, std::string_view word) noexcept { return text.find(word) != text.npos; }

// White space as the C locale and the expression's \s know it.
bool is_space(char c) noexcept { return c == ' ' || (c >= '\t' && c <= '\r'); }

// Calls `visit` with each line of the text, runs of line feeds counting as one: empty lines never
// reach it, and a line may still end in a CR. `visit` returns false to end the walk.
template <class Visit>
void for_each_line(std::string_view text, Visit &&visit) {
    std::size_t pos = 0;
    while (pos < text.size()) {
        const std::size_t end = std::min(text.find('\n', pos), text.size());
        if (end > pos && !visit(text.substr(pos, end - pos))) return;
        pos = end + 1;
    }
}

std::string_view without_trailing_cr(std::string_view line) noexcept {
    if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
    return line;
}

// The serial as the full list and the refresh take it: the bytes before the first tab.
std::string_view serial_before_tab(std::string_view line) noexcept {
    const std::size_t tab = line.find('\t');
    return tab == line.npos ? without_trailing_cr(line) : line.substr(0, tab);
}

// The serial as the short list takes it: the first non-empty piece between tabs.
std::string_view first_tab_piece(std::string_view line) noexcept {
    if (line.find('\t') == line.npos) return without_trailing_cr(line);
    const std::size_t from = line.find_first_not_of('\t');
    const std::size_t to = std::min(line.find('\t', from), line.size());
    return line.substr(from, to - from);
}

bool names_a_phone_state(std::string_view line) noexcept {
    return contains(line, "unauthorized") || contains(line, "device");
}

PhoneLine phone_line(std::string_view line) noexcept {
    return {serial_before_tab(line), !contains(line, "unauthorized")};
}

// What a size word reads as with atof, but with "." as the decimal point whatever locale the host
// application has set: leading white space, a sign, then a decimal or hexadecimal number, "inf" or
// "nan". Text that holds no number reads as 0.
double leading_double(std::string_view text) noexcept {
    std::size_t i = 0;
    while (i < text.size() && is_space(text[i])) ++i;
    bool negative = false;
    if (i < text.size() && (text[i] == '+' || text[i] == '-')) negative = text[i++] == '-';
    auto format = std::chars_format::general;
    if (text.size() - i > 2 && text[i] == '0' && (text[i + 1] == 'x' || text[i + 1] == 'X')) {
        format = std::chars_format::hex;
        i += 2;
    }
    // from_chars would take a minus sign of its own; to atof a second sign is no number.
    if (i < text.size() && (text[i] == '+' || text[i] == '-')) return 0.0;
    double value = 0.0;
    const auto [end, error] = std::from_chars(text.data() + i, text.data() + text.size(), value, format);
    if (error != std::errc{}) value = 0.0;
    (void)end;
    return negative ? -value : value;
}

// The product of a fractional size, truncated. Values from 2^63 up to 2^64 keep their top bit;
// negative ones wrap as the whole-number reading does; what no 64-bit count can hold gives 0.
uint64_t truncate_to_count(double product) noexcept {
    constexpr double kTwoTo63 = 9223372036854775808.0;
    if (!std::isfinite(product) || product >= 2 * kTwoTo63 || product < -kTwoTo63) return 0;
    if (product < 0) return static_cast<uint64_t>(static_cast<int64_t>(product));
    return static_cast<uint64_t>(product);
}

}  // namespace

bool says_device_not_found(std::string_view text) noexcept { return text.starts_with("error: device not found"); }

// ---- devices list ------------------------------------------------------------------------------

bool devices_text_reports_failure(std::string_view text) noexcept {
    return contains(text, "error") || contains(text, "fail");
}

std::string devices_list_records(std::string_view text, std::size_t capacity) {
    std::string records;
    for_each_line(text, [&](std::string_view line) {
        if (contains(line, kDevicesHeader)) return true;  // the header holds "device" too
        std::string_view state;
        if (contains(line, "unauthorized")) {
            state = "unauthor;";
        } else if (contains(line, "offline")) {
            state = "offline;";
        } else if (contains(line, "device")) {
            state = "author;";
        } else {
            return true;
        }
        const std::string_view serial = first_tab_piece(line);
        if (records.size() + serial.size() + 1 + state.size() > capacity) return false;
        records.append(serial).append("-").append(state);
        return true;
    });
    return records;
}

std::vector<PhoneLine> listed_phones(std::string_view text) {
    std::vector<PhoneLine> phones;
    bool first = true;
    for_each_line(text, [&](std::string_view line) {
        if (std::exchange(first, false)) return true;
        if (contains(line, kDevicesHeader) || !names_a_phone_state(line)) return true;
        if (line.front() == '\r') return false;
        phones.push_back(phone_line(line));
        return true;
    });
    return phones;
}

bool is_nonempty_devices_list(std::string_view text) noexcept {
    return text.starts_with(kDevicesHeader) && text.size() != kDevicesHeader.size() + 2;
}

std::vector<PhoneLine> refresh_candidates(std::string_view text) {
    std::vector<PhoneLine> candidates;
    bool first = true;
    for_each_line(text, [&](std::string_view line) {
        if (std::exchange(first, false)) return true;
        if (line.front() == '\r') return false;
        if (names_a_phone_state(line)) candidates.push_back(phone_line(line));
        return true;
    });
    return candidates;
}

// ---- property reads ----------------------------------------------------------------------------

bool soft_version_read_failed(std::string_view text) noexcept {
    return contains(text, "error: device not found") || contains(text, "daemon not running");
}

void copy_property_field(char *field, const char *output) noexcept {
    std::memcpy(field, output, kPropertyFieldSize);
    const std::size_t length = strnlen(field, kPropertyFieldSize);
    for (std::size_t i = 0; i < length; ++i) {
        if (field[i] == '\r' || field[i] == '\n') field[i] = '\0';
    }
}

// ---- failure texts -----------------------------------------------------------------------------

int32_t classify_failure_text(std::string_view text, const FailureVerdicts &verdicts) noexcept {
    if (says_device_not_found(text)) return verdicts.deviceNotFound;
    // In this order; "not found" last, so that the push can leave it out.
    static constexpr std::string_view kFailureTexts[] = {
        "No such file or directory", "Not a directory", "opendir failed, Permission denied",
        "Permission denied",         "does not exist",  "not found",
    };
    const std::size_t searched = verdicts.searchesNotFound ? std::size(kFailureTexts) : std::size(kFailureTexts) - 1;
    for (std::size_t i = 0; i < searched; ++i) {
        if (contains(text, kFailureTexts[i])) {
            return contains(text, "Permission denied") ? verdicts.permission : verdicts.failure;
        }
    }
    return verdicts.clean;
}

// ---- packages ----------------------------------------------------------------------------------

// The expression by hand, which needs no stack in proportion to the text: [^:]* can only end at
// the first colon, \S+ is the non-blank run right behind it, and \s*$ asks that nothing but white
// space follows that run.
bool lists_exactly_one_package(std::string_view text) noexcept {
    const std::size_t colon = text.find(':');
    if (colon == text.npos) return false;
    const std::string_view rest = text.substr(colon + 1);
    std::size_t word = 0;
    while (word < rest.size() && !is_space(rest[word])) ++word;
    if (word == 0) return false;
    for (std::size_t i = word; i < rest.size(); ++i) {
        if (!is_space(rest[i])) return false;
    }
    return true;
}

std::optional<std::string_view> package_prop_value(std::string_view text, std::string_view key) noexcept {
    const std::size_t at = text.find(key);
    if (at == text.npos) return std::nullopt;
    const std::string_view value = text.substr(at + key.size());
    return value.substr(0, std::min(value.find_first_of("\r\n"), value.size()));
}

// ---- activities --------------------------------------------------------------------------------

std::optional<std::string_view> top_activity_name(std::string_view text) noexcept {
    const std::size_t record = text.find("ActivityRecord");
    if (record == text.npos) return std::nullopt;
    std::size_t blank = text.find(' ', record);
    if (blank == text.npos) return std::nullopt;
    std::size_t name = blank + 1;
    if (name < text.size() && text[name] == 'u') {  // the user word "u0" stands before the name
        blank = text.find(' ', name);
        if (blank == text.npos) return std::nullopt;
        name = blank + 1;
    }
    const std::size_t end = std::min(text.find_first_of(" }", name), text.size());
    return text.substr(name, end - name);
}

// ---- storage -----------------------------------------------------------------------------------

bool listing_lacks_path(std::string_view text) noexcept { return contains(text, "No such file or directory"); }

std::optional<uint64_t> free_space_from_df(std::string_view text) {
    std::size_t pos = 0;
    for (int index = 0;; ++index) {
        pos = text.find_first_not_of(' ', pos);
        if (pos == text.npos) return std::nullopt;
        const std::size_t end = std::min(text.find(' ', pos), text.size());
        if (index == 3) return ConvertSpaceStrToValue(std::string(text.substr(pos, end - pos)));
        pos = end;
    }
}

}  // namespace wrenlink::adb

uint64_t ConvertSpaceStrToValue(const std::string &text) noexcept {
    uint64_t unit = 1024;
    if (text.find('G') != std::string::npos) {
        unit = uint64_t{1} << 30;
    } else if (text.find('M') != std::string::npos) {
        unit = uint64_t{1} << 20;
    }
    if (text.find('.') != std::string::npos) {
        return wrenlink::adb::truncate_to_count(wrenlink::adb::leading_double(text) * static_cast<double>(unit));
    }
    // atoll's reading; the product wraps in 64 bits instead of overflowing.
    return static_cast<uint64_t>(std::strtoll(text.c_str(), nullptr, 10)) * unit;
}
