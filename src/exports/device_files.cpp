// Files on the phone.
#include "Wrenlink/ComLog.h"
#include "Wrenlink/Wrenlink.h"
#include "adb/operations/device_files.h"
#include "exports/boundary.h"

using namespace wrenlink;

namespace {
constexpr int32_t kNothingRun = -1;
}  // namespace

extern "C" {

int32_t AdbRenameFile(const char *serial, const char *oldPath, const char *newPath) {
    ComLog::Log("%s Enter...\r\n", __func__);
    return guarded<int32_t>(kNothingRun, [&] { return adb::rename_file(serial, oldPath, newPath); });
}

int32_t AdbRemoveFile(const char *serial, const char *path) {
    ComLog::Log("%s Enter...\r\n", __func__);
    return guarded<int32_t>(kNothingRun, [&] { return adb::remove_file(serial, path); });
}

int32_t AdbRemoveDirectory(const char *serial, const char *path) {
    ComLog::Log("%s Enter...\r\n", __func__);
    return guarded<int32_t>(kNothingRun, [&] { return adb::remove_directory(serial, path); });
}

int32_t AdbMakeDirectory(const char *serial, const char *path) {
    ComLog::Log("%s Enter...\r\n", __func__);
    return guarded<int32_t>(kNothingRun, [&] { return adb::make_directory(serial, path); });
}

int32_t AdbPushFile(const char *serial, const char *localPath, const char *phonePath) {
    ComLog::Log("%s Enter...\r\n", __func__);
    return guarded<int32_t>(kNothingRun, [&] { return adb::push_file(serial, localPath, phonePath); });
}

int32_t AdbPullFile(const char *serial, const char *phonePath, const char *localPath) {
    ComLog::Log("%s Enter...\r\n", __func__);
    return guarded<int32_t>(kNothingRun, [&] { return adb::pull_file(serial, phonePath, localPath); });
}

int32_t AdbPushFileEx(const char *serial, const char *localPath, const char *phonePath) {
    ComLog::Log("Enter %s, serial %s", __func__, serial);
    return guarded<int32_t>(kNothingRun, [&] { return adb::push_file_unjudged(serial, localPath, phonePath); });
}

int32_t AdbPullFileEx(const char *serial, const char *phonePath, const char *localPath) {
    ComLog::Log("Enter %s, serial %s", __func__, serial);
    return guarded<int32_t>(kNothingRun, [&] { return adb::pull_file_unjudged(serial, phonePath, localPath); });
}

int32_t AdbGetFileInfo(void) { return 0; }

}  // extern "C"
