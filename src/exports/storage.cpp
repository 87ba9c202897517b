// Storage.
#include "Wrenlink/ComLog.h"
#include "Wrenlink/Wrenlink.h"
#include "adb/operations/storage.h"
#include "exports/boundary.h"

using namespace wrenlink;

extern "C" {

int32_t AdbGetFirstSDCardPath(const char *serial, char *path) {
    ComLog::Log("%s Enter...\r\n", __func__);
    return guarded<int32_t>(0, [&] { return adb::first_sdcard_path(serial, path); });
}

int32_t AdbGetStorageFreespace(const char *serial, const char *path, uint64_t *freeBytes) {
    ComLog::Log("%s Enter...\r\n", __func__);
    return guarded<int32_t>(0, [&] { return adb::storage_free_space(serial, path, freeBytes); });
}

}  // extern "C"
