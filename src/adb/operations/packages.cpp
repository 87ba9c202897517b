#include "adb/operations/packages.h"

#include <cstdlib>
#include <cstring>

#include "adb/operations/device_run.h"
#include "adb/text/tool_text.h"
#include "base/malloc_block.h"

namespace wrenlink::adb {

namespace {

constexpr int32_t kNothingRun = -1;
constexpr int32_t kKeyMissing = -2;

// The block a package list is handed over in. Its size is part of what callers were promised,
// although the text in it stays within the 2047 bytes of one run; pages that are never touched
// cost nothing.
constexpr std::size_t kPackageListBlockSize = 16u * 1024u * 1024u;

// A tool run judged by the failure texts, with the package family's answers.
int32_t judge_package_run(const Line &line) {
    if (!line) return kNothingRun;
    ToolOutput out;
    return classify_failure_text(tool_text(line, out), kPackageVerdicts);
}

int32_t list_packages(const char *serial, const char *shellText, char **text, uint32_t *length) {
    if (serial == nullptr || text == nullptr || length == nullptr) return 0;
    // No block is handed over unless it holds the list: without memory the caller gets none.
    *text = nullptr;
    *length = 0;
    MallocBlock<char> block(static_cast<char *>(std::malloc(kPackageListBlockSize)));
    if (!block) return 0;
    block.get()[0] = '\0';  // the shell leaves the block alone when the phone printed nothing
    const std::size_t size = shell_text(serial, Line(shellText), block.get()).size();
    *length = static_cast<uint32_t>(size);
    *text = block.release();
    return 0;
}

}  // namespace

int32_t install_package(const char *serial, const char *packagePath) {
    if (serial == nullptr || packagePath == nullptr) return kNothingRun;
    return judge_package_run(tool_line(serial, "install -r \"%s\"", packagePath));
}

int32_t uninstall_package(const char *serial, const char *packageName) {
    if (serial == nullptr || packageName == nullptr) return kNothingRun;
    // Kept: the double blank, as the line has always been formed; the tokeniser takes two blanks as
    // one, so the tool's arguments are the same either way.
    return judge_package_run(tool_line(serial, "uninstall  \"%s\"", packageName));
}

int32_t list_third_party_packages(const char *serial, char **text, uint32_t *length) {
    return list_packages(serial, "pm list packages -3", text, length);
}

int32_t list_system_packages(const char *serial, char **text, uint32_t *length) {
    return list_packages(serial, " pm list packages -s", text, length);
}

int32_t check_package_apk(const char *serial, const char *packageName, uint8_t *exists) {
    if (serial == nullptr || packageName == nullptr || exists == nullptr) return 0;
    ToolOutput out;
    // The quotes keep the pipeline one argument, which the phone's shell then runs.
    const auto text = shell_text(serial, format_command(" \"pm path %s | grep package\"", packageName), out.bytes);
    if (text.find(".apk") != text.npos) *exists = 1;
    return 0;
}

// The phone's grep is the only comparison with the name asked for: a name that is part of exactly
// one installed name counts as installed, one that is part of two does not.
int32_t check_app_installed(const char *serial, const char *packageName, uint8_t *installed) {
    if (serial == nullptr || packageName == nullptr || installed == nullptr) return 0;
    ToolOutput out;
    const auto text = shell_text(serial, format_command("pm list packages | grep %s", packageName), out.bytes);
    if (lists_exactly_one_package(text)) *installed = 1;
    return 0;
}

int32_t package_prop(const char *serial, const char *packageName, const char *key, char *value) {
    if (serial == nullptr || packageName == nullptr || key == nullptr || value == nullptr) return 0;
    ToolOutput out;
    const auto text = shell_text(serial, format_command(" dumpsys package %s", packageName), out.bytes);
    const auto found = package_prop_value(text, key);
    if (!found) return kKeyMissing;
    write_text(value, *found);
    return 0;
}

}  // namespace wrenlink::adb
