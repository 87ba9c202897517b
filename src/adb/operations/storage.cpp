#include "adb/operations/storage.h"

#include <cstring>

#include "adb/operations/device_run.h"
#include "adb/text/tool_text.h"

namespace wrenlink::adb {

// The first of /sdcard, /sdcard0 ... /sdcard4 whose listing does not say it is missing. Any other
// listing counts as found: an empty one, and one that was refused. Each candidate is judged on
// the whole output of its own run.
int32_t first_sdcard_path(const char *serial, char *path) {
    if (serial == nullptr || path == nullptr) return 0;
    for (int number = -1; number <= 4; ++number) {
        // The candidate stands in the caller's buffer (at least 9 bytes) while it is tried.
        std::memcpy(path, "/sdcard", sizeof "/sdcard");
        if (number >= 0) {
            path[7] = static_cast<char>('0' + number);
            path[8] = '\0';
        }
        ToolOutput out;
        if (!listing_lacks_path(shell_text(serial, format_command(" \"ls -l %s\"", path), out.bytes))) return 0;
    }
    path[0] = '\0';
    return 0;
}

int32_t storage_free_space(const char *serial, const char *path, uint64_t *freeBytes) {
    if (serial == nullptr || path == nullptr || freeBytes == nullptr) return 0;
    ToolOutput out;
    const auto free = free_space_from_df(shell_text(serial, format_command(" \"df %s | grep / \"", path), out.bytes));
    if (!free) return -2;
    *freeBytes = *free;
    return 0;
}

}  // namespace wrenlink::adb
