// Pure readers of the adb tool's text. The device operations only form a line, run it and hand the
// text to one of these; everything that decides an outcome from text lives here and is tested on
// captured outputs.
//
// Every reader takes the text as it stands in an output buffer: up to its first NUL, at most 2047
// bytes for a 2048-byte buffer.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace wrenlink::adb {

constexpr std::size_t kPropertyFieldSize = 32;  // one text field of PhoneInfo

// "error: device not found" as the very first bytes of a text: the tool's word that the phone
// asked for is not attached. Anywhere else in the text it is not this answer.
bool says_device_not_found(std::string_view text) noexcept;

// ---- devices list ------------------------------------------------------------------------------

// One phone line of the tool's list: the serial (the bytes before the first tab; the whole line
// without a trailing CR when there is no tab) and whether its state lets the phone be used.
struct PhoneLine {
    std::string_view serial;
    bool authorized;
};

// "error" or "fail" anywhere in the text, the daemon's start-up lines and the serials included:
// the list as a whole is then not trusted.
bool devices_text_reports_failure(std::string_view text) noexcept;

// The records of the short list: "serial-author;", "serial-offline;" or "serial-unauthor;" per
// phone line, with nothing between them. Records that would take the result past `capacity`
// bytes are left out whole.
std::string devices_list_records(std::string_view text, std::size_t capacity);

// The phones of the full list: the first line is dropped whatever it says, header lines are
// skipped, lines with neither "unauthorized" nor "device" are skipped, and a line that begins with
// a CR ends the list.
std::vector<PhoneLine> listed_phones(std::string_view text);

// Whether the text is a list worth walking for one phone: it begins with the header and is not
// the bare empty list (the header and two line feeds).
bool is_nonempty_devices_list(std::string_view text) noexcept;

// The candidate lines of a refresh: the first line is dropped, a line that begins with a CR ends
// the walk, lines with neither "unauthorized" nor "device" are skipped. Header lines further down
// are candidates like any other.
std::vector<PhoneLine> refresh_candidates(std::string_view text);

// ---- property reads ----------------------------------------------------------------------------

// The soft version's failure test: either word anywhere in the text.
bool soft_version_read_failed(std::string_view text) noexcept;

// Copies exactly the first 32 bytes of a zeroed output buffer into `field` and cuts the field at
// its first CR or LF, so that it reads as the first line of the value. The pass never leaves the
// field, also when its 32 bytes hold no terminator.
void copy_property_field(char *field, const char *output) noexcept;

// ---- failure texts of file and package operations ----------------------------------------------

// What one operation answers in each case of the classification.
struct FailureVerdicts {
    int32_t deviceNotFound;  // the text begins with "error: device not found"
    int32_t failure;         // a failure text, and no "Permission denied" anywhere
    int32_t permission;      // a failure text, and "Permission denied" somewhere
    int32_t clean;           // no failure text
    bool searchesNotFound;   // whether "not found" counts as a failure text
};

// rename, remove, remove directory: no permission answer of their own.
inline constexpr FailureVerdicts kRemovalVerdicts{0, 1, 1, 0, true};
// make directory, pull.
inline constexpr FailureVerdicts kCopyVerdicts{0, 1, 2, 0, true};
// push: the tool prints "not found" for reasons that are no failure of the copy.
inline constexpr FailureVerdicts kPushVerdicts{0, 1, 2, 0, false};
// install, uninstall: the phone missing is 0, everything that ran is 1 or 2.
inline constexpr FailureVerdicts kPackageVerdicts{0, 1, 2, 1, true};

int32_t classify_failure_text(std::string_view text, const FailureVerdicts &verdicts) noexcept;

// ---- packages ----------------------------------------------------------------------------------

// The whole text is exactly one "word:package" line, with any trailing white space: the text
// matches the ECMAScript expression ^[^:]*:(\S+)\s*$ as a whole.
bool lists_exactly_one_package(std::string_view text) noexcept;

// The bytes right behind the first `key` up to the line end, or nothing when the key is absent.
std::optional<std::string_view> package_prop_value(std::string_view text, std::string_view key) noexcept;

// ---- activities --------------------------------------------------------------------------------

// The focused activity's component from a "... ActivityRecord{hash [uN ]pkg/.Name tN}" line, or
// nothing when no name can be taken.
std::optional<std::string_view> top_activity_name(std::string_view text) noexcept;

// ---- storage -----------------------------------------------------------------------------------

// The listing of a candidate card path says that the path is not there.
bool listing_lacks_path(std::string_view text) noexcept;

// Free bytes from the fourth blank-separated word of a `df` text (words counted over the whole
// text; CR and LF stay inside words), or nothing when there are fewer than four words.
std::optional<uint64_t> free_space_from_df(std::string_view text);

}  // namespace wrenlink::adb

// A `df` size word in bytes: G counts in GiB, else M in MiB, else KiB, whichever capital stands
// anywhere in the word; with a "." the number is read as a fraction and the product truncated.
uint64_t ConvertSpaceStrToValue(const std::string &text) noexcept;
