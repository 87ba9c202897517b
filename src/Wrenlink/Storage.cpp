// Where the phone's storage card lies and how much room a path has left.
#include <cstring>

#include "Wrenlink/AdbText.h"
#include "Wrenlink/ComLog.h"
#include "Wrenlink/boundary.h"
#include "Wrenlink/device_run.h"

using namespace wrenlink;

extern "C" {

// The first of /sdcard, /sdcard0 ... /sdcard4 whose listing does not say it is missing. Any other
// listing counts as found: an empty one, and one that was refused. Each candidate is judged on
// the whole output of its own run.
int32_t AdbGetFirstSDCardPath(const char *serial, char *path) {
    ComLog::Log("%s Enter...\r\n", __func__);
    if (serial == nullptr || path == nullptr) return 0;
    return guarded<int32_t>(0, [&] {
        for (int number = -1; number <= 4; ++number) {
            // The candidate stands in the caller's buffer (at least 9 bytes) while it is tried.
            std::memcpy(path, "/sdcard", sizeof "/sdcard");
            if (number >= 0) {
                path[7] = static_cast<char>('0' + number);
                path[8] = '\0';
            }
            ToolOutput out;
            if (!listing_lacks_path(run_shell(serial, format_command(" \"ls -l %s\"", path), out.bytes))) return 0;
        }
        path[0] = '\0';
        return 0;
    });
}

int32_t AdbGetStorageFreespace(const char *serial, const char *path, uint64_t *freeBytes) {
    ComLog::Log("%s Enter...\r\n", __func__);
    if (serial == nullptr || path == nullptr || freeBytes == nullptr) return 0;
    return guarded<int32_t>(0, [&] {
        ToolOutput out;
        const auto free = free_space_from_df(run_shell(serial, format_command(" \"df %s | grep / \"", path), out.bytes));
        if (!free) return -2;
        *freeBytes = *free;
        return 0;
    });
}

}  // extern "C"
