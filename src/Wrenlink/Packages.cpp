// Packages on the phone: install and remove (judged by the failure texts), list, and look up.
#include <cstdlib>
#include <cstring>

#include "Wrenlink/AdbText.h"
#include "Wrenlink/ComLog.h"
#include "Wrenlink/boundary.h"
#include "Wrenlink/device_run.h"
#include "base/malloc_block.h"

using namespace wrenlink;

namespace {

constexpr int32_t kNothingRun = -1;
constexpr int32_t kKeyMissing = -2;

// The block a package list is handed over in. Its size is part of what callers were promised,
// although the text in it stays within the 2047 bytes of one run; pages that are never touched
// cost nothing.
constexpr std::size_t kPackageListBlockSize = 16u * 1024u * 1024u;

// A tool run judged by the failure texts, with the package family's answers.
int32_t judge_package_run(const char *name, const Line &line) {
    if (!line) return kNothingRun;
    ComLog::Log("%s execute command:%s...\r\n", name, line->c_str());
    ToolOutput out;
    const std::string_view text = run_tool(line, out);
    ComLog::Log("%s execute command return:%s...\r\n", name, out.bytes);
    return classify_failure_text(text, kPackageVerdicts);
}

int32_t list_packages(const char *serial, const char *shellText, char **text, uint32_t *length) {
    if (serial == nullptr || text == nullptr || length == nullptr) return 0;
    // No block is handed over unless it holds the list: without memory the caller gets none.
    *text = nullptr;
    *length = 0;
    MallocBlock<char> block(static_cast<char *>(std::malloc(kPackageListBlockSize)));
    if (!block) return 0;
    block.get()[0] = '\0';  // the shell leaves the block alone when the phone printed nothing
    const std::size_t size = run_shell(serial, Line(shellText), block.get()).size();
    *length = static_cast<uint32_t>(size);
    *text = block.release();
    return 0;
}

}  // namespace

extern "C" {

int32_t AdbInstallPackage(const char *serial, const char *packagePath) {
    ComLog::Log("%s Enter...\r\n", __func__);
    if (serial == nullptr || packagePath == nullptr) return kNothingRun;
    return guarded<int32_t>(kNothingRun, [&] {
        return judge_package_run("AdbInstallPackage",
                                 format_command("%s -s %s install -r \"%s\"", "", serial, packagePath));
    });
}

int32_t AdbUninstallPackage(const char *serial, const char *packageName) {
    ComLog::Log("%s Enter...\r\n", __func__);
    if (serial == nullptr || packageName == nullptr) return kNothingRun;
    return guarded<int32_t>(kNothingRun, [&] {
        return judge_package_run("AdbUninstallPackage",
                                 format_command("%s -s %s uninstall  \"%s\"", "", serial, packageName));
    });
}

int32_t AdbListPackege3(const char *serial, char **text, uint32_t *length) {
    ComLog::Log("%s Enter...\r\n", __func__);
    return guarded<int32_t>(0, [&] { return list_packages(serial, "pm list packages -3", text, length); });
}

int32_t AdbListPackegeSys(const char *serial, char **text, uint32_t *length) {
    ComLog::Log("%s Enter...\r\n", __func__);
    return guarded<int32_t>(0, [&] { return list_packages(serial, " pm list packages -s", text, length); });
}

int32_t AdbCheckPackageApkExist(const char *serial, const char *packageName, uint8_t *exists) {
    ComLog::Log("%s Enter...\r\n", __func__);
    if (serial == nullptr || packageName == nullptr || exists == nullptr) return 0;
    return guarded<int32_t>(0, [&] {
        ToolOutput out;
        // The quotes keep the pipeline one argument, which the phone's shell then runs.
        const auto text = run_shell(serial, format_command(" \"pm path %s | grep package\"", packageName), out.bytes);
        if (text.find(".apk") != text.npos) *exists = 1;
        return 0;
    });
}

// The phone's grep is the only comparison with the name asked for: a name that is part of exactly
// one installed name counts as installed, one that is part of two does not.
int32_t AdbCheckAppInstalled(const char *serial, const char *packageName, uint8_t *installed) {
    if (serial == nullptr || packageName == nullptr || installed == nullptr) return 0;
    return guarded<int32_t>(0, [&] {
        ToolOutput out;
        const auto text = run_shell(serial, format_command("pm list packages | grep %s", packageName), out.bytes);
        if (lists_exactly_one_package(text)) *installed = 1;
        return 0;
    });
}

int32_t AdbGetPackageProp(const char *serial, const char *packageName, const char *key, char *value) {
    ComLog::Log("%s Enter...\r\n", __func__);
    if (serial == nullptr || packageName == nullptr || key == nullptr || value == nullptr) return 0;
    return guarded<int32_t>(0, [&] {
        ToolOutput out;
        const auto text = run_shell(serial, format_command(" dumpsys package %s", packageName), out.bytes);
        const auto found = package_prop_value(text, key);
        if (!found) return kKeyMissing;
        write_text(value, *found);
        return 0;
    });
}

}  // extern "C"
