// The readers of the adb tool's text, the runner's tokeniser and StringSplit, over any bytes. The
// first byte picks the reader (its value modulo 8, in the order of kReaders below: a corpus file
// starts with the digit '0'..'7'); the rest is that reader's input, still ending where the
// fuzzer's block ends, so that AddressSanitizer sees any read past it. What each reader must
// hold to is said beside it. Where that is the whole answer (the property field, the one-package
// test, the size word with a "."), the corpus holds the worked cases too.
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <memory>
#include <regex>
#include <string>
#include <string_view>
#include <vector>

#include "adb/runner/tokeniser.h"
#include "adb/text/string_split.h"
#include "adb/text/tool_text.h"

using namespace wrenlink::adb;

namespace {

void check(bool ok) {
    if (!ok) std::abort();
}

// What the readers of the tool's text are given: the text as it stands in a 2048-byte output
// buffer, up to its first NUL and at most 2047 bytes.
std::string_view tool_text(const uint8_t *data, std::size_t size) {
    const auto *text = reinterpret_cast<const char *>(data);
    return {text, strnlen(text, size < 2047 ? size : 2047)};
}

// Whether `part` is a view into `whole`, as the readers promise for what they pick out.
bool lies_within(std::string_view part, std::string_view whole) {
    return part.empty() || (part.data() >= whole.data() && part.data() + part.size() <= whole.data() + whole.size());
}

// The tokeniser over any command line (a C string: the input up to its first NUL). Every token is
// non-empty and holds no quote; a line without quotes splits at its blanks alone; a line without
// any token gives the tool's path as the only argument.
void command_line(const uint8_t *data, std::size_t size) {
    const auto *chars = reinterpret_cast<const char *>(data);
    const std::string line(chars, strnlen(chars, size));
    const std::string tool = "/app/Resources/adb";
    const std::vector<std::string> args = split_command_line(line, tool);
    check(!args.empty());
    if (line.find_first_not_of(" \"") == std::string::npos) {
        check(args == std::vector<std::string>{tool});
        return;
    }
    std::size_t bytes = 0;
    for (const auto &arg : args) {
        check(!arg.empty() && arg.find('"') == std::string::npos);
        bytes += arg.size();
    }
    check(bytes <= line.size());
    if (line.find('"') == std::string::npos) {
        std::vector<std::string> words;
        StringSplit(words, line, " ");
        check(words == args);
    }
}

// Every serial the devices-list readers pick out lies inside the text and within one line, and
// the short list stays within the caller's capacity, whole records only.
void devices_list(const uint8_t *data, std::size_t size) {
    const std::string_view text = tool_text(data, size);
    (void)devices_text_reports_failure(text);
    (void)is_nonempty_devices_list(text);
    for (const auto &phones : {listed_phones(text), refresh_candidates(text)}) {
        for (const PhoneLine &phone : phones) {
            check(lies_within(phone.serial, text) && phone.serial.find_first_of("\t\n") == std::string_view::npos);
        }
    }
    // A capacity the first byte picks, so that records are cut at every length.
    const std::size_t capacity = size == 0 ? 0 : data[0] * 8u;
    const std::string records = devices_list_records(text, capacity);
    check(records.size() <= capacity && (records.empty() || records.back() == ';'));
}

// The failure-text classification, for every operation's set of answers: the answer is always one
// of the set; a text that begins with the device word gives the device answer; a failure text
// with "Permission denied" never gives the plain failure answer where the two differ.
void failure_text(const uint8_t *data, std::size_t size) {
    const std::string_view text = tool_text(data, size);
    const bool permission = text.find("Permission denied") != std::string_view::npos;
    for (const FailureVerdicts &v : {kRemovalVerdicts, kCopyVerdicts, kPushVerdicts, kPackageVerdicts}) {
        const int32_t answer = classify_failure_text(text, v);
        check(answer == v.deviceNotFound || answer == v.failure || answer == v.permission || answer == v.clean);
        if (says_device_not_found(text)) check(answer == v.deviceNotFound);
        if (permission && !says_device_not_found(text) && v.failure != v.permission) check(answer != v.failure);
    }
}

// The package readers. The value behind a key lies inside the text and ends before any line end.
// The one-package test agrees with the expression it stands for, ^[^:]*:(\S+)\s*$ in ECMAScript
// grammar, matched against the whole text (compared on short texts, where the standard library's
// backtracking matcher stays cheap). Input: one byte n, then a key of n % 16 bytes, then the text.
void package_text(const uint8_t *data, std::size_t size) {
    if (size == 0) return;
    const std::size_t keySize = data[0] % 16u;
    if (size < 1 + keySize) return;
    const std::string_view key(reinterpret_cast<const char *>(data + 1), keySize);
    const std::string_view text = tool_text(data + 1 + keySize, size - 1 - keySize);
    if (const auto value = package_prop_value(text, key)) {
        check(lies_within(*value, text) && value->find_first_of("\r\n") == std::string_view::npos);
        check(text.find(key) != std::string_view::npos);
    }
    const bool one = lists_exactly_one_package(text);
    if (text.size() <= 256) {
        static const std::regex expression("^[^:]*:(\\S+)\\s*$", std::regex::ECMAScript);
        check(one == std::regex_match(text.begin(), text.end(), expression));
    }
}

// A property read's copy into its 32-byte field, from a zeroed 2048-byte output buffer: it never
// leaves the field (a heap block of exactly 32 bytes), and the field reads as the text's first
// line, cut at 32 bytes.
void property_field(const uint8_t *data, std::size_t size) {
    const std::string_view text = tool_text(data, size);
    (void)says_device_not_found(text);
    (void)soft_version_read_failed(text);
    auto output = std::make_unique<char[]>(2048);  // zeroed
    std::memcpy(output.get(), text.data(), text.size());
    auto field = std::make_unique<char[]>(kPropertyFieldSize);
    std::memset(field.get(), 'x', kPropertyFieldSize);
    copy_property_field(field.get(), output.get());
    const std::string_view value(field.get(), strnlen(field.get(), kPropertyFieldSize));
    check(value == text.substr(0, text.find_first_of("\r\n")).substr(0, kPropertyFieldSize));
}

uint64_t unit_of(const std::string &word) {
    if (word.find('G') != std::string::npos) return uint64_t{1} << 30;
    if (word.find('M') != std::string::npos) return uint64_t{1} << 20;
    return 1024;
}

// A product as a count: what no 64-bit count holds is 0, negative values wrap.
uint64_t as_count(double product) {
    if (!std::isfinite(product) || product >= 18446744073709551616.0 || product < -9223372036854775808.0) return 0;
    if (product < 0) return static_cast<uint64_t>(static_cast<int64_t>(product));
    return static_cast<uint64_t>(product);
}

// The size word of `df` in bytes: a word with a "." reads its number as the C library's atof does
// in the "C" locale (the reading the library promises whatever locale the application has set),
// times the unit, truncated; nothing is undefined on the way (UBSan watches the conversions). The
// fourth-word reader runs over the same bytes as a whole text.
void space_value(const uint8_t *data, std::size_t size) {
    const std::string_view text = tool_text(data, size);
    (void)free_space_from_df(text);
    const std::string word(text);
    const uint64_t bytes = ConvertSpaceStrToValue(word);
    if (word.find('.') != std::string::npos) {
        check(bytes == as_count(std::atof(word.c_str()) * static_cast<double>(unit_of(word))));
    }
}

// StringSplit over any text and any separator set (the first byte says how many of the next bytes
// are separators): the pieces never hold a separator, are never empty, and with their separators
// put back they make up the text.
void string_split(const uint8_t *data, std::size_t size) {
    if (size == 0) return;
    const std::size_t count = data[0] % 4;
    if (size < 1 + count) return;
    const std::string separators(reinterpret_cast<const char *>(data + 1), count);
    const std::string text(reinterpret_cast<const char *>(data + 1 + count), size - 1 - count);
    std::vector<std::string> out{"kept"};
    const int32_t added = StringSplit(out, text, separators);
    check(added >= 0 && out.size() == 1 + static_cast<std::size_t>(added) && out[0] == "kept");
    std::string joined;
    for (std::size_t i = 1; i < out.size(); ++i) {
        check(!out[i].empty() && out[i].find_first_of(separators) == std::string::npos);
        joined += out[i];
    }
    std::string stripped;
    if (!separators.empty())
        for (char c : text)
            if (separators.find(c) == std::string::npos) stripped += c;
    check(joined == stripped);
}

// The walk for the focused activity: a name it takes lies inside the text and holds no blank and
// no "}", so that it always fits the caller's 2048-byte buffer with its terminator.
void top_activity(const uint8_t *data, std::size_t size) {
    const std::string_view text = tool_text(data, size);
    if (const auto name = top_activity_name(text)) {
        check(lies_within(*name, text) && name->find_first_of(" }") == std::string_view::npos);
        check(text.find("ActivityRecord") != std::string_view::npos && name->size() < 2048);
    }
}

using Reader = void (*)(const uint8_t *, std::size_t);
constexpr Reader kReaders[] = {command_line, devices_list,   failure_text, package_text,
                               property_field, space_value, string_split, top_activity};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size > 0) kReaders[data[0] % std::size(kReaders)](data + 1, size - 1);
    return 0;
}
